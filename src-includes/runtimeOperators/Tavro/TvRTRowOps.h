#pragma once

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTOp.h"
#include "Tavro/TvRTProxy.h"
#include "Tavro/export.h"
#include "Tavro/tvExceptions.h"

// Row instructions: rows move between the row slots and the tables. Each hands its slot number, which is the
// table's number too, to the context, and what that throws passes through. The forms with an index name one
// of the table's indexes; the others use index 0.
namespace Tavro::TvRT {

inline constexpr const char* rowOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTRowOps.h";

// Looks the key row up in a table; the slot gets the row found, or a null row.
//   stack:  -> found
//   stream: handler, row
struct TAVRO_EXPORT FetchRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<bool>>("FetchRowOp", "", "fetchRow", OperandKind::RowSlot);
  static constexpr unsigned traits = handsOver | callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As FetchRowOp, under an index.
//   stack:  -> found
//   stream: handler, row, index
struct TAVRO_EXPORT FetchRowIndexedOp {
  len_t row;
  len_t index;

  static constexpr auto shape = declareOp<Types<>, Types<>, Types<bool>>(
      "FetchRowIndexedOp", "", "fetchRowIndexed", OperandKind::RowSlot, OperandKind::Index);
  static constexpr unsigned traits = handsOver | callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Gives the slot a fresh zeroed row of its table.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT ClearRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("ClearRowOp", "", "clearRow", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Puts the table's cursor on its first row; no slot changes.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT BeginOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("BeginOp", "", "begin", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Puts the table's cursor on the first row that is not less than the key row; no slot changes.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT LowerBoundOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("LowerBoundOp", "", "lowerBound", OperandKind::RowSlot);
  static constexpr OpTrait traits = callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As LowerBoundOp, under an index.
//   stack:  -> (nothing)
//   stream: handler, row, index
struct TAVRO_EXPORT LowerBoundIndexedOp {
  len_t row;
  len_t index;

  static constexpr auto shape = declareOp<Types<>, Types<>, Types<>>(
      "LowerBoundIndexedOp", "", "lowerBoundIndexed", OperandKind::RowSlot, OperandKind::Index);
  static constexpr OpTrait traits = callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Takes the cursor's row into the slot and moves the cursor; behind the last row the slot gets a null row.
//   stack:  -> found
//   stream: handler, row
struct TAVRO_EXPORT NextRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<bool>>("NextRowOp", "", "nextRow", OperandKind::RowSlot);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Emits the slot's row to the output table and clears the slot. When the table cannot take it the run is
// suspended, with the row still in its slot and the stack untouched, and this instruction runs again on
// resume.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT InsertRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("InsertRowOp", "", "insertRow", OperandKind::RowSlot);
  static constexpr OpTrait traits = callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Deletes the slot's row from the output table and clears the slot.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT DeleteRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("DeleteRowOp", "", "deleteRow", OperandKind::RowSlot);
  static constexpr OpTrait traits = callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// The same as DeleteRowOp: the index selects nothing.
//   stack:  -> (nothing)
//   stream: handler, row, index
struct TAVRO_EXPORT DeleteRowIndexedOp {
  len_t row;
  len_t index;

  static constexpr auto shape = declareOp<Types<>, Types<>, Types<>>(
      "DeleteRowIndexedOp", "", "deleteRowIndexed", OperandKind::RowSlot, OperandKind::Index);
  static constexpr OpTrait traits = callsClients;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Tells whether the slot holds a null row.
//   stack:  -> null
//   stream: handler, row
struct TAVRO_EXPORT IsNullRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<bool>>("IsNullRowOp", "", "isNullRow", OperandKind::RowSlot);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// The call as a part of a trace line: "FetchRowOp( 1 )" or "FetchRowIndexedOp( 1, 2 )".
template <typename Op>
struct CallText {
  Op op;

  void operator()(std::ostream& text) const {
    text << Op::shape.className << "( " << op.row;
    if constexpr (requires { op.index; }) text << ", " << op.index;
    text << " )";
  }
};

// Instructions that report a result trace after the work, so that the result is in the line.
template <typename Op, Trace trace, typename Work>
inline OpResult reportResult(Context& context, int line, const Work& work) {
  const Operands<Op, trace> operands(context);
  const StackValue<bool> result(work(*operands.operator->()), false);
  traceOp<trace>(rowOpsSource, line, CallText<Op>{*operands.operator->()}, " = ", result);
  // Whether the next instruction has to show, or to wait.
  if constexpr (has<Op>(callsClients))
    if (Kelpo::DebugHandler::anyLevelOn() || !context.isRunning()) [[unlikely]]
      return pushResult(context, operands, result, Types<>());
  return pushResult(context, operands, result, Branches());
}

// Instructions that change rows trace before the work, so that the line stands ahead of its failure.
template <typename Op, Trace trace, typename Work>
inline OpResult changeRows(Context& context, int line, const Work& work) {
  const Operands<Op, trace> operands(context);
  traceOp<trace>(rowOpsSource, line, CallText<Op>{*operands.operator->()});
  work(*operands.operator->());
  operands.step();
  return OpOk;
}

template <Trace trace>
OpResult FetchRowOp::op(Context& context) {
  return reportResult<FetchRowOp, trace>(context, __LINE__,
                                         [&](const FetchRowOp& o) { return context.fetchRow(o.row, 0); });
}

template <Trace trace>
OpResult FetchRowIndexedOp::op(Context& context) {
  return reportResult<FetchRowIndexedOp, trace>(
      context, __LINE__, [&](const FetchRowIndexedOp& o) { return context.fetchRow(o.row, o.index); });
}

template <Trace trace>
OpResult NextRowOp::op(Context& context) {
  return reportResult<NextRowOp, trace>(context, __LINE__,
                                        [&](const NextRowOp& o) { return context.nextRow(o.row); });
}

template <Trace trace>
OpResult IsNullRowOp::op(Context& context) {
  return reportResult<IsNullRowOp, trace>(
      context, __LINE__, [&](const IsNullRowOp& o) { return context.getRow(o.row).isNull(); });
}

template <Trace trace>
OpResult ClearRowOp::op(Context& context) {
  return changeRows<ClearRowOp, trace>(context, __LINE__,
                                       [&](const ClearRowOp& o) { context.clearRow(o.row); });
}

template <Trace trace>
OpResult BeginOp::op(Context& context) {
  return changeRows<BeginOp, trace>(context, __LINE__, [&](const BeginOp& o) { context.begin(o.row, 0); });
}

template <Trace trace>
OpResult LowerBoundOp::op(Context& context) {
  return changeRows<LowerBoundOp, trace>(context, __LINE__,
                                         [&](const LowerBoundOp& o) { context.lower_bound(o.row, 0); });
}

template <Trace trace>
OpResult LowerBoundIndexedOp::op(Context& context) {
  return changeRows<LowerBoundIndexedOp, trace>(
      context, __LINE__, [&](const LowerBoundIndexedOp& o) { context.lower_bound(o.row, o.index); });
}

template <Trace trace>
OpResult DeleteRowOp::op(Context& context) {
  return changeRows<DeleteRowOp, trace>(context, __LINE__,
                                        [&](const DeleteRowOp& o) { context.deleteRow(o.row, 0); });
}

template <Trace trace>
OpResult DeleteRowIndexedOp::op(Context& context) {
  return changeRows<DeleteRowIndexedOp, trace>(
      context, __LINE__, [&](const DeleteRowIndexedOp& o) { context.deleteRow(o.row, o.index); });
}

template <Trace trace>
OpResult InsertRowOp::op(Context& context) {
  try {
    return changeRows<InsertRowOp, trace>(context, __LINE__,
                                          [&](const InsertRowOp& o) { context.insertRow(o.row); });
  } catch (const TvMaxRowsExceeded&) {
    return OpSuspend;
  }
}

}  // namespace Tavro::TvRT
