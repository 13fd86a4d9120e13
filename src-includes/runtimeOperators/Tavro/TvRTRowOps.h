#pragma once

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

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

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
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

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
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
  static OpResult op(Context& context);
};

// Puts the table's cursor on the first row that is not less than the key row; no slot changes.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT LowerBoundOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("LowerBoundOp", "", "lowerBound", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
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

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  static OpResult op(Context& context);
};

// Takes the cursor's row into the slot and moves the cursor; behind the last row the slot gets a null row.
//   stack:  -> found
//   stream: handler, row
struct TAVRO_EXPORT NextRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<bool>>("NextRowOp", "", "nextRow", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
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

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  static OpResult op(Context& context);
};

// Deletes the slot's row from the output table and clears the slot.
//   stack:  -> (nothing)
//   stream: handler, row
struct TAVRO_EXPORT DeleteRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<>>("DeleteRowOp", "", "deleteRow", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
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

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  static OpResult op(Context& context);
};

// Tells whether the slot holds a null row.
//   stack:  -> null
//   stream: handler, row
struct TAVRO_EXPORT IsNullRowOp {
  len_t row;

  static constexpr auto shape =
      declareOp<Types<>, Types<>, Types<bool>>("IsNullRowOp", "", "isNullRow", OperandKind::RowSlot);

  len_t install(Context& context) const { return installInstruction(context, *this, rowOpsSource, __LINE__); }
  static OpResult op(Context& context);
};

}  // namespace Tavro::TvRT
