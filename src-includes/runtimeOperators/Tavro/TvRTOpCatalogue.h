#pragma once

#include <array>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Tavro/export.h"

namespace Tavro::TvRT {

// What the assembler knows of a statement.
struct opCat {
  unsigned int category;    // family of the operation, 1 to 7
  unsigned short opCode;    // number of the operation in its family
  bool typed;               // the statement must, or must not, carry a type list
  unsigned short argCount;  // exact number of arguments
};

// Families of operations.
enum OpCategory : unsigned int {
  BinaryOps = 1,
  UnaryOperators = 2,
  ExpressionOps = 3,
  ControlOps = 4,
  StackOperations = 5,
  ColumnOperations = 6,
  RowInstructions = 7,
};

// The codes of a family are less.
inline constexpr unsigned int codesOfFamily = 100;

// The key of an operation in the table of names.
constexpr int opKey(unsigned int category, unsigned int opCode) {
  return static_cast<int>(category * codesOfFamily + opCode);
}

// One row of the operation catalogue.
struct OpCatalogueRow {
  std::string_view name;
  opCat cat;
  // What the arguments mean, for people: one word each.
  std::string_view arguments;
  // The row's key in the table of names.
  int key;
};

constexpr OpCatalogueRow opRow(std::string_view name, unsigned int category, unsigned short opCode,
                               bool typed, unsigned short argCount, std::string_view arguments = "") {
  return {name, {category, opCode, typed, argCount}, arguments, opKey(category, opCode)};
}

// The vocabulary of the assembly language. `leftShift` and `pushAryCnst` are words without an instruction:
// they pass every check and are then reported as operations that nothing carries out.
inline constexpr std::array opCatalogue{
    opRow("noop", BinaryOps, 0, false, 0),
    opRow("add", BinaryOps, 1, true, 0),
    opRow("sub", BinaryOps, 2, true, 0),
    opRow("mul", BinaryOps, 3, true, 0),
    opRow("div", BinaryOps, 4, true, 0),
    opRow("eq", BinaryOps, 5, true, 0),
    opRow("lt", BinaryOps, 6, true, 0),
    opRow("shift", BinaryOps, 7, true, 0),
    opRow("bitAnd", BinaryOps, 8, true, 0),
    opRow("bitOr", BinaryOps, 9, true, 0),
    opRow("gt", BinaryOps, 10, true, 0),
    opRow("ge", BinaryOps, 11, true, 0),
    opRow("le", BinaryOps, 12, true, 0),
    opRow("ne", BinaryOps, 13, true, 0),
    opRow("boolAnd", BinaryOps, 14, false, 0),
    opRow("boolOr", BinaryOps, 15, false, 0),
    opRow("contains", BinaryOps, 16, true, 0),
    opRow("containsElement", BinaryOps, 17, true, 0),
    opRow("aryEq", BinaryOps, 18, true, 0),
    opRow("intersects", BinaryOps, 19, true, 0),
    opRow("leftShift", BinaryOps, 20, true, 0),
    opRow("neg", UnaryOperators, 1, true, 0),
    opRow("not", UnaryOperators, 2, false, 0),
    opRow("coerce", UnaryOperators, 3, true, 0),
    opRow("condExpr", ExpressionOps, 1, true, 0),
    opRow("hash", ExpressionOps, 2, true, 0),
    opRow("overlaps", ExpressionOps, 3, false, 4, "row column row column"),
    opRow("stepLess", ExpressionOps, 4, false, 4, "row column row column"),
    opRow("halt", ControlOps, 1, false, 0),
    opRow("branch", ControlOps, 2, false, 1, "label"),
    opRow("condBranch", ControlOps, 3, false, 1, "label"),
    opRow("compareBranch", ControlOps, 4, false, 2, "less-label greater-label"),
    opRow("invCondBranch", ControlOps, 5, false, 1, "label"),
    opRow("bindTable", ControlOps, 6, false, 6, "row length out-index name alias signature"),
    opRow("label", ControlOps, 7, false, 1, "label"),
    opRow("entry", ControlOps, 8, false, 1, "label"),
    opRow("name", ControlOps, 9, false, 0),
    opRow("end", ControlOps, 10, false, 0),
    opRow("src", ControlOps, 11, false, 1, "text"),
    opRow("queryHash", ControlOps, 12, false, 1, "text"),
    opRow("queryName", ControlOps, 13, false, 1, "text"),
    opRow("properties", ControlOps, 14, false, 1, "text"),
    opRow("call", ControlOps, 15, false, 1, "label"),
    opRow("return", ControlOps, 16, false, 0),
    opRow("bindParameters", ControlOps, 17, false, 2, "length declarations"),
    opRow("bindConstants", ControlOps, 18, false, 2, "length text"),
    opRow("iterCount", ControlOps, 19, false, 1, "count"),
    opRow("bindTemporaries", ControlOps, 20, false, 2, "length text"),
    opRow("pushCnst", StackOperations, 1, true, 1, "constant"),
    opRow("pushParam", StackOperations, 2, true, 1, "offset"),
    opRow("pushColumn", StackOperations, 3, true, 2, "row column"),
    opRow("popColumn", StackOperations, 4, true, 2, "row column"),
    opRow("pushAryCnst", StackOperations, 5, true, 1, "constant"),
    opRow("pushAryParam", StackOperations, 6, true, 1, "offset"),
    opRow("pushAryColumn", StackOperations, 7, true, 2, "row column"),
    opRow("popAryColumn", StackOperations, 8, true, 2, "row column"),
    opRow("discard", StackOperations, 9, true, 0),
    opRow("swap", StackOperations, 10, true, 0),
    opRow("nswap", StackOperations, 11, true, 0),
    opRow("copyColumn", ColumnOperations, 1, true, 4, "row column to-row to-column"),
    opRow("copyAryColumn", ColumnOperations, 2, true, 4, "row column to-row to-column"),
    opRow("equalColumn", ColumnOperations, 3, true, 4, "row column row column"),
    opRow("equalAryColumn", ColumnOperations, 4, true, 4, "row column row column"),
    opRow("compareColumn", ColumnOperations, 5, true, 4, "row column row column"),
    opRow("iterInit", ColumnOperations, 6, true, 3, "iterator row column"),
    opRow("nextValue", ColumnOperations, 7, true, 3, "iterator row column"),
    opRow("curValue", ColumnOperations, 8, true, 1, "iterator"),
    opRow("fetchRow", RowInstructions, 1, false, 1, "row"),
    opRow("fetchRowIndexed", RowInstructions, 2, false, 2, "row index"),
    opRow("clearRow", RowInstructions, 3, false, 1, "row"),
    opRow("begin", RowInstructions, 4, false, 1, "row"),
    opRow("lowerBound", RowInstructions, 5, false, 1, "row"),
    opRow("lowerBoundIndexed", RowInstructions, 6, false, 2, "row index"),
    opRow("nextRow", RowInstructions, 7, false, 1, "row"),
    opRow("insertRow", RowInstructions, 8, false, 1, "row"),
    opRow("deleteRow", RowInstructions, 9, false, 1, "row"),
    opRow("deleteRowIndexed", RowInstructions, 10, false, 2, "row index"),
    opRow("isNullRow", RowInstructions, 11, false, 1, "row"),
    // A typed twin of noop; its name is never looked up by number.
    OpCatalogueRow{"dummy", {BinaryOps, 0, true, 0}, "", -1},
};

// The catalogue by exact name, and the names by key. Complete before any program can be loaded, never
// changed.
TAVRO_EXPORT extern const std::unordered_map<std::string, opCat> opCatByName;
TAVRO_EXPORT extern const std::unordered_map<int, std::string> opNameByCode;

}  // namespace Tavro::TvRT
