#include "Tavro/TvRTRowOps.h"
#include "Tavro/tvExceptions.h"

namespace Tavro::TvRT {

namespace {

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
template <typename Op, typename Work>
inline OpResult reportResult(Context& context, int line, const Work& work) {
  const Operands<Op> operands(context);
  const StackValue<bool> result(work(*operands.operator->()), false);
  traceOp(rowOpsSource, line, CallText<Op>{*operands.operator->()}, " = ", result);
  context.stackR().push(result);
  operands.step();
  return OpOk;
}

// Instructions that change rows trace before the work, so that the line stands ahead of its failure.
template <typename Op, typename Work>
inline OpResult changeRows(Context& context, int line, const Work& work) {
  const Operands<Op> operands(context);
  traceOp(rowOpsSource, line, CallText<Op>{*operands.operator->()});
  work(*operands.operator->());
  operands.step();
  return OpOk;
}

}  // namespace

OpResult FetchRowOp::op(Context& context) {
  return reportResult<FetchRowOp>(context, __LINE__,
                                  [&](const FetchRowOp& o) { return context.fetchRow(o.row, 0); });
}

OpResult FetchRowIndexedOp::op(Context& context) {
  return reportResult<FetchRowIndexedOp>(
      context, __LINE__, [&](const FetchRowIndexedOp& o) { return context.fetchRow(o.row, o.index); });
}

OpResult NextRowOp::op(Context& context) {
  return reportResult<NextRowOp>(context, __LINE__,
                                 [&](const NextRowOp& o) { return context.nextRow(o.row); });
}

OpResult IsNullRowOp::op(Context& context) {
  return reportResult<IsNullRowOp>(context, __LINE__,
                                   [&](const IsNullRowOp& o) { return context.getRow(o.row).isNull(); });
}

OpResult ClearRowOp::op(Context& context) {
  return changeRows<ClearRowOp>(context, __LINE__, [&](const ClearRowOp& o) { context.clearRow(o.row); });
}

OpResult BeginOp::op(Context& context) {
  return changeRows<BeginOp>(context, __LINE__, [&](const BeginOp& o) { context.begin(o.row, 0); });
}

OpResult LowerBoundOp::op(Context& context) {
  return changeRows<LowerBoundOp>(context, __LINE__,
                                  [&](const LowerBoundOp& o) { context.lower_bound(o.row, 0); });
}

OpResult LowerBoundIndexedOp::op(Context& context) {
  return changeRows<LowerBoundIndexedOp>(
      context, __LINE__, [&](const LowerBoundIndexedOp& o) { context.lower_bound(o.row, o.index); });
}

OpResult DeleteRowOp::op(Context& context) {
  return changeRows<DeleteRowOp>(context, __LINE__,
                                 [&](const DeleteRowOp& o) { context.deleteRow(o.row, 0); });
}

OpResult DeleteRowIndexedOp::op(Context& context) {
  return changeRows<DeleteRowIndexedOp>(
      context, __LINE__, [&](const DeleteRowIndexedOp& o) { context.deleteRow(o.row, o.index); });
}

OpResult InsertRowOp::op(Context& context) {
  try {
    return changeRows<InsertRowOp>(context, __LINE__,
                                   [&](const InsertRowOp& o) { context.insertRow(o.row); });
  } catch (const TvMaxRowsExceeded&) {
    return OpSuspend;
  }
}

}  // namespace Tavro::TvRT
