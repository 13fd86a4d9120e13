#pragma once

#include <exception>
#include <string>

namespace Tavro {

// The message of the exception that the action throws, which must be an `Exception`.
template <typename Exception = std::exception, typename Action>
std::string thrown(const Action& action) {
  try {
    action();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

}  // namespace Tavro
