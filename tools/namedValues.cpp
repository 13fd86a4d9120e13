#include "namedValues.h"

#include "failure.h"

namespace Tavro::Tool {

NamedValue readNamedValue(const std::string& form, const std::string& text, const std::string& command) {
  const std::size_t sign = text.find('=');
  if (sign == std::string::npos || sign == 0)
    failCommandLine("'" + text + "' is not of the form " + form, command);
  return {text.substr(0, sign), text.substr(sign + 1)};
}

std::map<std::string, std::string> readNamedValues(const std::string& form,
                                                   const std::vector<std::string>& texts,
                                                   const std::string& command) {
  std::map<std::string, std::string> values;
  for (const std::string& text : texts) {
    const NamedValue value = readNamedValue(form, text, command);
    if (!values.insert(value).second)
      failCommandLine(value.first + " is given twice (" + form + ")", command);
  }
  return values;
}

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0;;) {
    const std::size_t comma = text.find(',', begin);
    parts.push_back(text.substr(begin, comma - begin));
    if (comma == std::string::npos) return parts;
    begin = comma + 1;
  }
}

}  // namespace Tavro::Tool
