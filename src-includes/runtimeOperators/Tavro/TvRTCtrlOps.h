#pragma once

#include <cstddef>

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"
#include "Tavro/tvAssert.h"

// Control instructions: halt, branches, call and return. Their label operands name labels by string, since a
// label may stand later in the text; the number is looked up the first time that it is needed and then
// written into the stream. A name that does not exist is label 0, the start of the stream.
namespace Tavro::TvRT {

inline constexpr const char* ctrlOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTCtrlOps.h";

// A label as an operand, 8 bytes.
struct LabelOperand {
  unsigned int oid;  // of the label's name
  len_t label = unresolvedLabel;
  len_t reserved = 0;
};
static_assert(sizeof(LabelOperand) == 8);

// Ends the run.
//   stack:  -> (nothing)
//   stream: handler, 4 unused bytes
struct TAVRO_EXPORT haltOp {
  unsigned int unused = 0;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("haltOp", "", "halt", OperandKind::Unused);
  static constexpr OpTrait traits = endsRun;

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on at the label. A label number that does not exist ends the process.
//   stack:  -> (nothing)
//   stream: handler, label
struct TAVRO_EXPORT branchOp {
  LabelOperand target;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("branchOp", "", "branch", OperandKind::Label);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on at the label when the condition is true, not when it is false or null. A label number that does not
// exist counts as a false condition.
//   stack:  condition -> (nothing)
//   stream: handler, label
struct TAVRO_EXPORT condBranchOp {
  LabelOperand target;

  static constexpr auto shape =
      declareOp<Types<>, Types<bool>, Types<>>("condBranchOp", "", "condBranch", OperandKind::Label);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  bool follow(Context& context, const StackValue<bool>& condition, std::size_t& next) const;
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on at the label when the condition is false or null. A label number that does not exist ends the
// process.
//   stack:  condition -> (nothing)
//   stream: handler, label
struct TAVRO_EXPORT invCondBranchOp {
  LabelOperand target;

  static constexpr auto shape =
      declareOp<Types<>, Types<bool>, Types<>>("invCondBranchOp", "", "invCondBranch", OperandKind::Label);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  bool follow(Context& context, const StackValue<bool>& condition, std::size_t& next) const;
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on at the first label for -1, at the second for 1, and at the next instruction otherwise. The value
// must not be null (asserted). A label number that does not exist ends the process.
//   stack:  three-way result -> (nothing)
//   stream: handler, label for -1, label for 1
struct TAVRO_EXPORT compareBranchOp {
  LabelOperand less;
  LabelOperand greater;

  static constexpr auto shape = declareOp<Types<>, Types<signed char>, Types<>>(
      "compareBranchOp", "", "compareBranch", OperandKind::Label, OperandKind::Label);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  bool follow(Context& context, const StackValue<signed char>& cond, std::size_t& next) const;
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on at the label; `return` comes back to the next instruction. A label number that does not exist ends
// the process.
//   stack:  -> (nothing)
//   stream: handler, label
struct TAVRO_EXPORT callOp {
  LabelOperand target;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("callOp", "", "call", OperandKind::Label);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Goes on behind the last call, or ends the run when there is none.
//   stack:  -> (nothing)
//   stream: handler, 4 unused bytes
struct TAVRO_EXPORT returnOp {
  unsigned int unused = 0;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("returnOp", "", "return", OperandKind::Unused);
  static constexpr OpTrait traits = endsRun;

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// What takes a condition.
using Branches = Types<condBranchOp, invCondBranchOp>;

// Ends the process over a label number that does not exist.
[[noreturn, gnu::cold]] TAVRO_EXPORT void endOnBadLabel(len_t label);

// Looks a label up by its name, whose OID is given, and writes its number into the operand in the stream.
[[gnu::cold]] TAVRO_EXPORT len_t resolveLabel(Context& context, unsigned int oid, unsigned char* operand);

// The label number of an operand that stands at `operand`.
inline len_t labelOf(Context& context, const LabelOperand& label, unsigned char* operand) {
  return label.label != unresolvedLabel ? label.label : resolveLabel(context, label.oid, operand);
}

// Whether a jump has to be left to the traced handler, because its label's number is not known yet. What it
// has popped is put back then.
template <Trace trace, typename... Popped>
inline bool isLeftToTraced(Context& context, const LabelOperand& label, const Popped&... popped) {
  if constexpr (trace == Trace::Off) {
    if (label.label == unresolvedLabel) [[unlikely]] {
      (context.stackR().pushBack<trace>(popped), ...);
      return true;
    }
  }
  return false;
}

inline bool isTrue(const StackValue<bool>& condition) { return !condition.isNull() && condition.value != 0; }

template <Trace trace, typename Condition>
inline void traceNotTaken(const char* name, int line, const Condition& condition) {
  traceOp<trace>(ctrlOpsSource, line, name, "(  ", condition, " )");
}

template <Trace trace, typename Condition>
inline void traceTaken(const char* name, int line, const Condition& condition, len_t label) {
  traceOp<trace>(ctrlOpsSource, line, name, "(  ", condition, " ) --> ", label);
}

inline bool condBranchOp::follow(Context& context, const StackValue<bool>& condition,
                                 std::size_t& next) const {
  return !isTrue(condition) || context.istream().findNamedPlace(target.label, next);
}

inline bool invCondBranchOp::follow(Context& context, const StackValue<bool>& condition,
                                    std::size_t& next) const {
  return isTrue(condition) || context.istream().findNamedPlace(target.label, next);
}

inline bool compareBranchOp::follow(Context& context, const StackValue<signed char>& cond,
                                    std::size_t& next) const {
  if (cond.isNull()) return false;
  if (cond.value == -1) return context.istream().findNamedPlace(less.label, next);
  if (cond.value == 1) return context.istream().findNamedPlace(greater.label, next);
  return true;
}

template <Trace trace>
OpResult haltOp::op(Context& context) {
  context.halt();
  return OpOk;
}

template <Trace trace>
OpResult returnOp::op(Context& context) {
  context.returnOp();
  return OpOk;
}

template <Trace trace>
OpResult branchOp::op(Context& context) {
  const Operands<branchOp, trace> operands(context);
  if (isLeftToTraced<trace>(context, operands->target)) return leftToTraced;
  const len_t label = labelOf(context, operands->target, operands.bytes());
  traceOp<trace>(ctrlOpsSource, __LINE__, shape.className, "( ) --> ", label);
  if (!context.gotoOp<trace>(label)) endOnBadLabel(label);
  return OpOk;
}

template <Trace trace>
OpResult condBranchOp::op(Context& context) {
  const Operands<condBranchOp, trace> operands(context);
  const StackValue<bool> condition = context.stackR().pop<bool, trace>();
  if (isTrue(condition)) {
    if (isLeftToTraced<trace>(context, operands->target, condition)) return leftToTraced;
    const len_t label = labelOf(context, operands->target, operands.bytes());
    traceTaken<trace>(shape.className, __LINE__, condition, label);
    if (context.gotoOp<trace>(label)) return OpOk;
  }
  traceNotTaken<trace>(shape.className, __LINE__, condition);
  operands.step();
  return OpOk;
}

template <Trace trace>
OpResult invCondBranchOp::op(Context& context) {
  const Operands<invCondBranchOp, trace> operands(context);
  const StackValue<bool> condition = context.stackR().pop<bool, trace>();
  if (isTrue(condition)) {
    traceNotTaken<trace>(shape.className, __LINE__, condition);
    operands.step();
    return OpOk;
  }
  if (isLeftToTraced<trace>(context, operands->target, condition)) return leftToTraced;
  const len_t label = labelOf(context, operands->target, operands.bytes());
  traceTaken<trace>(shape.className, __LINE__, condition, label);
  if (!context.gotoOp<trace>(label)) endOnBadLabel(label);
  return OpOk;
}

template <Trace trace>
OpResult compareBranchOp::op(Context& context) {
  const Operands<compareBranchOp, trace> operands(context);
  const StackValue<signed char> cond = context.stackR().pop<signed char, trace>();
  assertThat(!cond.isNull(), "!cond.isNull()",
             "static Tavro::TvRT::OpResult Tavro::TvRT::compareBranchOp::op(Tavro::TvRT::Context&)");
  len_t label = noBranch;
  if (cond.value == -1) {
    if (isLeftToTraced<trace>(context, operands->less, cond)) return leftToTraced;
    label = labelOf(context, operands->less, operands.bytes() + offsetof(compareBranchOp, less));
  } else if (cond.value == 1) {
    if (isLeftToTraced<trace>(context, operands->greater, cond)) return leftToTraced;
    label = labelOf(context, operands->greater, operands.bytes() + offsetof(compareBranchOp, greater));
  }
  if (label == noBranch) {
    traceNotTaken<trace>(shape.className, __LINE__, cond);
    operands.step();
    return OpOk;
  }
  traceTaken<trace>(shape.className, __LINE__, cond, label);
  if (!context.gotoOp<trace>(label)) endOnBadLabel(label);
  return OpOk;
}

template <Trace trace>
OpResult callOp::op(Context& context) {
  const Operands<callOp, trace> operands(context);
  const len_t label = labelOf(context, operands->target, operands.bytes());
  operands.step();
  context.call(label);
  return OpOk;
}

}  // namespace Tavro::TvRT
