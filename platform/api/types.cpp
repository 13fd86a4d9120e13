#include "Tavro/types.h"

#include <algorithm>
#include <stdexcept>

#include "Tavro/tvExceptions.h"
#include "textForms.h"

namespace Tavro {

namespace {

// The row's number in the type table.
std::size_t rowOfCode(int code) {
  const auto* const found = std::find_if(typeTable.begin(), typeTable.end(),
                                         [code](const TypeRow& row) { return row.code == code; });
  if (found == typeTable.end()) throw TvOutOfRange(noSuchType(code));
  return static_cast<std::size_t>(found - typeTable.begin());
}

}  // namespace

TavroTypes tavroCppTypeNameToType(const std::string& name) {
  const auto* const found = std::find_if(typeTable.begin(), typeTable.end(),
                                         [&name](const TypeRow& row) { return row.name == name; });
  if (found == typeTable.end()) throw std::invalid_argument(quoteForMessage(name) + " is no type name");
  return found->code;
}

const std::string& getTavroTypeName(TavroTypes type) {
  static const auto names = [] {
    std::array<std::string, typeTable.size()> made;
    std::transform(typeTable.begin(), typeTable.end(), made.begin(),
                   [](const TypeRow& row) { return row.name; });
    return made;
  }();
  return names[rowOfCode(type)];
}

unsigned short getTavroTypeLength(unsigned short type) { return typeTable[rowOfCode(type)].width; }

}  // namespace Tavro
