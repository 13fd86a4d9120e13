#pragma once

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

// Control instructions: halt, branches, call and return. Their label operands name labels by string, since a
// label may stand later in the text; the number is looked up the first time that it is needed and then
// written into the stream. A name that does not exist is label 0, the start of the stream.
namespace Tavro::TvRT {

inline constexpr const char* ctrlOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTCtrlOps.h";

inline constexpr len_t unresolvedLabel = 0xFFFF;
inline constexpr len_t noBranch = 32767;

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

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
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
  static OpResult op(Context& context);
};

// Goes on behind the last call, or ends the run when there is none.
//   stack:  -> (nothing)
//   stream: handler, 4 unused bytes
struct TAVRO_EXPORT returnOp {
  unsigned int unused = 0;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("returnOp", "", "return", OperandKind::Unused);

  len_t install(Context& context) const {
    return installInstruction(context, *this, ctrlOpsSource, __LINE__);
  }
  static OpResult op(Context& context);
};

}  // namespace Tavro::TvRT
