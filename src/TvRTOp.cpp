// The debug handler of all instructions, the names and codes of the machine's types, and what the control
// instructions share.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTTypes.h"

namespace Tavro::TvRT {

Kelpo::DebugHandler* tvRtOpKelpoDebugHandler_ = Kelpo::Platform::getDebugHandler("TvRtOp");

namespace {

Kelpo::DebugHandler* const unitDebugHandler = Kelpo::Platform::getDebugHandler("TvRTOp");

}  // namespace

len_t resolveLabel(Context& context, unsigned int oid, unsigned char* operand) {
  const len_t number = context.translateEntry(context.fetchString(oid));
  std::memcpy(operand + offsetof(LabelOperand, label), &number, sizeof number);
  return number;
}

void endOnBadLabel(len_t label) {
  std::cout << "bad branch label index: " << label << std::endl;
  std::exit(1);
}

std::string typeNameOrUnknown(TavroTypes type) {
  try {
    return getTavroTypeName(type);
  } catch (const std::exception&) {
    return "unknown";
  }
}

template <typename T>
std::string TvRTTypename() {
  return nativeType<T>.name;
}

template <typename T>
TavroTypes TvRTTypeValue() {
  Kelpo::trace(unitDebugHandler, traceDetail, "TvRTOp", __LINE__, "TvRTTypeValue", [](std::ostream& text) {
    text << "Tavro::TavroTypes Tavro::TvRT::TvRTTypeValue() [with T = " << nativeType<T>.spelling << "]"
         << " entered";
  });
  return nativeType<T>.code;
}

template std::string TvRTTypename<unsigned char>();
template std::string TvRTTypename<unsigned short>();
template std::string TvRTTypename<unsigned int>();
template std::string TvRTTypename<unsigned long long>();
template std::string TvRTTypename<signed char>();
template std::string TvRTTypename<short>();
template std::string TvRTTypename<int>();
template std::string TvRTTypename<long long>();
template std::string TvRTTypename<float>();
template std::string TvRTTypename<double>();
template std::string TvRTTypename<bool>();
template std::string TvRTTypename<std::string>();
template std::string TvRTTypename<StringValueReference>();
template std::string TvRTTypename<IpAddr>();
template std::string TvRTTypename<Ip6Addr>();
template std::string TvRTTypename<IpGenAddr>();
template std::string TvRTTypename<IpGenAddrReference>();
template std::string TvRTTypename<IpGenPrefix>();
template std::string TvRTTypename<IpGenPrefixReference>();

template TavroTypes TvRTTypeValue<unsigned char>();
template TavroTypes TvRTTypeValue<unsigned short>();
template TavroTypes TvRTTypeValue<unsigned int>();
template TavroTypes TvRTTypeValue<unsigned long long>();
template TavroTypes TvRTTypeValue<signed char>();
template TavroTypes TvRTTypeValue<short>();
template TavroTypes TvRTTypeValue<int>();
template TavroTypes TvRTTypeValue<long long>();
template TavroTypes TvRTTypeValue<float>();
template TavroTypes TvRTTypeValue<double>();
template TavroTypes TvRTTypeValue<bool>();
template TavroTypes TvRTTypeValue<std::string>();
template TavroTypes TvRTTypeValue<StringValueReference>();
template TavroTypes TvRTTypeValue<IpAddr>();
template TavroTypes TvRTTypeValue<Ip6Addr>();
template TavroTypes TvRTTypeValue<IpGenAddr>();
template TavroTypes TvRTTypeValue<IpGenAddrReference>();
template TavroTypes TvRTTypeValue<IpGenPrefix>();
template TavroTypes TvRTTypeValue<IpGenPrefixReference>();

}  // namespace Tavro::TvRT
