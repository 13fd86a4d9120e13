// The control instructions, the debug handler of all instructions, and the types of the machine.

#include <cstddef>
#include <cstdlib>
#include <iostream>

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTTypes.h"
#include "Tavro/tvAssert.h"

namespace Tavro::TvRT {

Kelpo::DebugHandler* tvRtOpKelpoDebugHandler_ = Kelpo::Platform::getDebugHandler("TvRtOp");

namespace {

Kelpo::DebugHandler* const unitDebugHandler = Kelpo::Platform::getDebugHandler("TvRTOp");

// The label number of an operand. One that is not known yet is looked up by its name and written into the
// stream at `operand`, where the operand stands.
inline len_t labelOf(Context& context, const LabelOperand& label, unsigned char* operand) {
  if (label.label != unresolvedLabel) [[likely]]
    return label.label;
  const len_t number = context.translateEntry(context.fetchString(label.oid));
  std::memcpy(operand + offsetof(LabelOperand, label), &number, sizeof number);
  return number;
}

inline bool isTrue(const StackValue<bool>& condition) { return !condition.isNull() && condition.value != 0; }

[[noreturn]] void endOnBadLabel(len_t label) {
  std::cout << "bad branch label index: " << label << std::endl;
  std::exit(1);
}

template <typename Condition>
void traceNotTaken(const char* name, int line, const Condition& condition) {
  traceOp(ctrlOpsSource, line, name, "(  ", condition, " )");
}

template <typename Condition>
void traceTaken(const char* name, int line, const Condition& condition, len_t label) {
  traceOp(ctrlOpsSource, line, name, "(  ", condition, " ) --> ", label);
}

}  // namespace

OpResult haltOp::op(Context& context) {
  context.halt();
  return OpOk;
}

OpResult returnOp::op(Context& context) {
  context.returnOp();
  return OpOk;
}

OpResult branchOp::op(Context& context) {
  const Operands<branchOp> operands(context);
  const len_t label = labelOf(context, operands->target, operands.bytes());
  traceOp(ctrlOpsSource, __LINE__, shape.className, "( ) --> ", label);
  if (!context.gotoOp(label)) endOnBadLabel(label);
  return OpOk;
}

OpResult condBranchOp::op(Context& context) {
  const Operands<condBranchOp> operands(context);
  const StackValue<bool> condition = context.stackR().pop<bool>();
  if (isTrue(condition)) {
    const len_t label = labelOf(context, operands->target, operands.bytes());
    traceTaken(shape.className, __LINE__, condition, label);
    if (context.gotoOp(label)) return OpOk;
  }
  traceNotTaken(shape.className, __LINE__, condition);
  operands.step();
  return OpOk;
}

OpResult invCondBranchOp::op(Context& context) {
  const Operands<invCondBranchOp> operands(context);
  const StackValue<bool> condition = context.stackR().pop<bool>();
  if (isTrue(condition)) {
    traceNotTaken(shape.className, __LINE__, condition);
    operands.step();
    return OpOk;
  }
  const len_t label = labelOf(context, operands->target, operands.bytes());
  traceTaken(shape.className, __LINE__, condition, label);
  if (!context.gotoOp(label)) endOnBadLabel(label);
  return OpOk;
}

OpResult compareBranchOp::op(Context& context) {
  const Operands<compareBranchOp> operands(context);
  const StackValue<signed char> cond = context.stackR().pop<signed char>();
  assertThat(!cond.isNull(), "!cond.isNull()",
             "static Tavro::TvRT::OpResult Tavro::TvRT::compareBranchOp::op(Tavro::TvRT::Context&)");
  len_t label = noBranch;
  if (cond.value == -1)
    label = labelOf(context, operands->less, operands.bytes() + offsetof(compareBranchOp, less));
  else if (cond.value == 1)
    label = labelOf(context, operands->greater, operands.bytes() + offsetof(compareBranchOp, greater));
  if (label == noBranch) {
    traceNotTaken(shape.className, __LINE__, cond);
    operands.step();
    return OpOk;
  }
  traceTaken(shape.className, __LINE__, cond, label);
  if (!context.gotoOp(label)) endOnBadLabel(label);
  return OpOk;
}

OpResult callOp::op(Context& context) {
  const Operands<callOp> operands(context);
  const len_t label = labelOf(context, operands->target, operands.bytes());
  operands.step();
  context.call(label);
  return OpOk;
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
