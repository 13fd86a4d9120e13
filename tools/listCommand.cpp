#include "listCommand.h"

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "Tavro/TvRTStack.h"
#include "Tavro/TvRTTypes.h"
#include "failure.h"
#include "listing.h"
#include "program.h"
#include "tablePrinter.h"
#include "trialLoad.h"

namespace Tavro::Tool {

namespace {

using TvRT::Context;
using TvRT::InstructionInfo;
using TvRT::OperandKind;
using TvRT::StackEntry;

constexpr const char* command = "tvop list";

void print(const std::string& line) { std::puts(line.c_str()); }

// "row 1 in": the slot with the name by which the program knows it.
std::string rowText(const Context& context, unsigned int slot) {
  const TvRT::TableBindInfo* const info = context.tableBindInfo(static_cast<len_t>(slot));
  std::string text = "row " + std::to_string(slot);
  if (info == nullptr) return text;
  // The pseudo rows have one alias, and each its name in a namespace of theirs.
  if (slot >= boundTables(context)) return text + " " + info->name.substr(info->name.rfind(':') + 1);
  return text + " " + (info->alias.empty() ? info->name : info->alias);
}

std::string parameterText(const Context& context, unsigned int offset) {
  std::set<std::string> names;
  for (const auto& [name, column] : context.parameterColumns())
    if (column.offset() == offset) names.insert(name);
  if (names.empty()) return "parameter at " + std::to_string(offset);
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "parameter " : " or ") + name;
  return text;
}

std::string constantText(const InstructionInfo& info, const unsigned char* bytes) {
  std::ostringstream text;
  TvRT::withColumnType(info.arguments[0].code, [&]<typename T>() {
    T value;
    std::memcpy(static_cast<void*>(&value), bytes, sizeof value);
    text << TvRT::StackValue<TvRT::StackTypeOf<T>>(TvRT::widen<T>(value), false);
  });
  return oneLine(text.str());
}

std::string operandText(const Context& context, const InstructionInfo& info, const ListedOperand& operand) {
  switch (operand.kind) {
    case OperandKind::RowSlot:
      return rowText(context, operand.number());
    case OperandKind::Column:
      return "column " + std::to_string(operand.number());
    case OperandKind::Index:
      return "index " + std::to_string(operand.number());
    case OperandKind::ParameterOffset:
      return parameterText(context, operand.number());
    case OperandKind::IteratorSlot:
      return "iterator " + std::to_string(operand.number());
    case OperandKind::Label:
      return "to " + context.fetchString(operand.number());
    case OperandKind::Constant:
      return constantText(info, operand.bytes);
    case OperandKind::Unused:
      break;
  }
  return "";
}

std::string operandsText(const Context& context, const ListedInstruction& instruction) {
  std::string text;
  for (const ListedOperand& operand : instruction.operands) {
    const std::string one = operandText(context, instruction.info, operand);
    if (!one.empty()) text += (text.empty() ? "" : ", ") + one;
  }
  return text;
}

std::string entryText(const StackEntry& entry) {
  return getTavroTypeName(entry.type) + (entry.isArray ? "[]" : "");
}

// "int64_t int64_t -> bool", the topmost on the right of each side.
std::string effectText(const InstructionInfo& info) {
  std::string text;
  for (std::size_t i = info.pops.size(); i-- > 0;) text += entryText(info.pops[i]) + " ";
  text += "->";
  for (const StackEntry& entry : info.pushes) text += " " + entryText(entry);
  return text;
}

void printTables(const Context& context) {
  for (len_t slot = 0; slot < boundTables(context); ++slot) {
    const TvRT::TableBindInfo* const info = context.tableBindInfo(slot);
    if (info == nullptr) continue;
    print((slot == 0 ? "output     row " : "input      row ") + std::to_string(slot) + "  " + info->name +
          (info->alias.empty() ? "" : "  as " + info->alias) + ", " + std::to_string(info->len) + " bytes");
  }
}

void printParameters(const Context& context) {
  std::set<std::pair<len_t, std::string>> lines;
  for (const auto& [name, column] : context.parameterColumns())
    lines.emplace(column.offset(), name + "  " + getTavroTypeName(static_cast<TavroTypes>(column.tvType())) +
                                       (column.isArray() ? "[]" : "") + " at " +
                                       std::to_string(column.offset()));
  for (const auto& [offset, line] : lines) print("parameter  " + line);
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

// One line of the listing, in columns that are as wide as their widest cell.
struct Line {
  std::string offset;
  std::string label;
  std::string statement;
  std::string operands;
  std::string effect;
};

std::vector<Line> linesOf(const Context& context) {
  std::map<len_t, std::string> labels;
  for (const ListedLabel& label : listLabels(context)) {
    std::string& text = labels[label.offset];
    text += (text.empty() ? "" : ", ") + label.name;
  }
  std::vector<Line> lines;
  for (const ListedInstruction& instruction : listInstructions(context))
    lines.push_back({std::to_string(instruction.offset), labels[instruction.offset],
                     instruction.info.statementText(), operandsText(context, instruction),
                     effectText(instruction.info)});
  // A label may stand behind the last instruction.
  if (labels.contains(context.maxLoc()))
    lines.push_back({std::to_string(context.maxLoc()), labels[context.maxLoc()], "", "", ""});
  return lines;
}

void printLines(const std::vector<Line>& lines) {
  Line widest;
  const auto widen = [](std::string& width, const std::string& cell) {
    if (cell.size() > width.size()) width = cell;
  };
  for (const Line& line : lines) {
    widen(widest.offset, line.offset);
    widen(widest.label, line.label);
    widen(widest.statement, line.statement);
    widen(widest.operands, line.operands);
  }
  for (const Line& line : lines) {
    std::string text = std::string(widest.offset.size() - line.offset.size(), ' ') + line.offset + "  " +
                       padded(line.label, widest.label.size()) + "  " +
                       padded(line.statement, widest.statement.size()) + "  " +
                       padded(line.operands, widest.operands.size()) + "  " + line.effect;
    text.erase(text.find_last_not_of(' ') + 1);
    print(text);
  }
}

}  // namespace

CLI::App* addListCommand(CLI::App& app, ListOptions& options) {
  CLI::App* const list = app.add_subcommand("list", "Print what a program is when it is loaded");
  list->add_option("PROGRAM", options.program, "The program, a .tva file")->required()->option_text(" ");
  list->footer(
      R"(First the tables, parameters and entries, one a line; behind an empty line the instructions: offset, label,
statement, operands, and what it takes from the stack and leaves there, with the topmost value on the right.

Example
  tvop list above.tva)");
  return list;
}

void listProgram(const ListOptions& options) {
  requireProgramName(options.program, command);
  bufferOutput();
  const TvRT::OwnedContext context = assembleProgram(getTavroDb(), options.program);
  if (!context->queryName().empty()) print("query      " + context->queryName());
  printTables(*context);
  printParameters(*context);
  for (const ListedLabel& label : listLabels(*context))
    if (label.isEntry()) print("entry      " + label.name + "  at " + std::to_string(label.offset));
  print("");
  printLines(linesOf(*context));
  flushOutput();
}

}  // namespace Tavro::Tool
