#include "graphCommand.h"

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "listing.h"
#include "program.h"
#include "tablePrinter.h"
#include "trialLoad.h"

namespace Tavro::Tool {

namespace {

using TvRT::OperandKind;

constexpr const char* command = "tvop graph";

// An input of an operator: how its program reaches the table.
struct InputNode {
  std::string table;
  std::string alias;
  std::set<std::string> uses;  // statements, such as "begin"
  std::set<unsigned int> indexes;
};

struct OperatorNode {
  std::string program;
  std::string query;
  bool isOneShot;
  std::string output;
  std::vector<InputNode> inputs;
  std::vector<std::string> entries;
};

// The index that an instruction on a table's rows goes by, which has its number as an operand or goes by the
// first.
unsigned int indexOf(const ListedInstruction& instruction) {
  for (const ListedOperand& operand : instruction.operands)
    if (operand.kind == OperandKind::Index) return operand.number();
  return 0;
}

// True for the instructions that look into a table, and not just at a row.
bool goesByIndex(const ListedInstruction& instruction) {
  static const std::set<std::string> statements{"fetchRow", "fetchRowIndexed", "begin", "lowerBound",
                                                "lowerBoundIndexed"};
  return statements.contains(instruction.info.statementText());
}

void addUses(const TvRT::Context& context, const std::map<unsigned int, std::size_t>& inputOfSlot,
             OperatorNode& node) {
  for (const ListedInstruction& instruction : listInstructions(context)) {
    if (!goesByIndex(instruction)) continue;
    const auto input = inputOfSlot.find(instruction.operands[0].number());
    if (input == inputOfSlot.end()) continue;
    node.inputs[input->second].uses.insert(instruction.info.statementText());
    node.inputs[input->second].indexes.insert(indexOf(instruction));
  }
}

OperatorNode inspect(const std::string& path) {
  const TvRT::OwnedContext context = assembleHostedProgram(getTavroDb(), path);
  OperatorNode node{path, context->queryName(), context->oneShot(), context->outTable()->name, {}, {}};
  std::map<unsigned int, std::size_t> inputOfSlot;
  for (auto info = context->inputTablesBegin(); info != context->inputTablesEnd(); ++info) {
    if (*info == nullptr) continue;
    inputOfSlot[(*info)->index] = node.inputs.size();
    node.inputs.push_back({(*info)->name, (*info)->alias, {}, {}});
  }
  addUses(*context, inputOfSlot, node);
  for (const ListedLabel& label : listLabels(*context))
    if (label.isEntry()) node.entries.push_back(label.name);
  return node;
}

// Within double quotes; "\n" stands for a line end.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return result + '"';
}

std::string joined(const auto& words, const char* separator) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

void printDot(const std::vector<OperatorNode>& operators) {
  std::set<std::string> tables;
  std::string text = "digraph pipeline {\n  rankdir=LR;\n";
  for (std::size_t i = 0; i < operators.size(); ++i) {
    const OperatorNode& node = operators[i];
    const std::string name = "op" + std::to_string(i + 1);
    const std::string label = node.program + (node.query.empty() ? "" : "\n" + node.query) + "\n" +
                              joined(node.entries, ", ") + (node.isOneShot ? "\none-shot" : "");
    text += "  " + name + " [shape=box, label=" + quoted(label) + "];\n";
    for (const InputNode& input : node.inputs) {
      tables.insert(input.table);
      std::vector<std::string> uses(input.uses.begin(), input.uses.end());
      for (const unsigned int index : input.indexes)
        if (index != 0) uses.push_back("index " + std::to_string(index));
      text += "  " + quoted(input.table) + " -> " + name + " [label=" + quoted(joined(uses, "\n")) + "];\n";
    }
    tables.insert(node.output);
    text += "  " + name + " -> " + quoted(node.output) + ";\n";
  }
  for (const std::string& table : tables) text += "  " + quoted(table) + " [shape=cylinder];\n";
  std::fputs((text + "}\n").c_str(), stdout);
}

void printJson(const std::vector<OperatorNode>& operators) {
  std::set<std::string> tables;
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const OperatorNode& node : operators) {
    nlohmann::ordered_json inputs = nlohmann::ordered_json::array();
    for (const InputNode& input : node.inputs) {
      tables.insert(input.table);
      inputs.push_back(
          {{"table", input.table}, {"alias", input.alias}, {"uses", input.uses}, {"indexes", input.indexes}});
    }
    tables.insert(node.output);
    list.push_back({{"program", node.program},
                    {"query", node.query},
                    {"oneShot", node.isOneShot},
                    {"entries", node.entries},
                    {"inputs", inputs},
                    {"output", node.output}});
  }
  const nlohmann::ordered_json graph{{"tables", tables}, {"operators", list}};
  // Programs hold any bytes, JSON only text.
  constexpr int indent = 2;
  const std::string text = graph.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  std::puts(text.c_str());
}

}  // namespace

CLI::App* addGraphCommand(CLI::App& app, GraphOptions& options) {
  CLI::App* const graph =
      app.add_subcommand("graph", "Print which tables programs join, as a Graphviz graph");
  graph->add_option("PROGRAM", options.programs, "The operators' programs, .tva files")
      ->required()
      ->option_text("...");
  graph->add_flag("--json", options.json, "Print JSON instead");
  graph->footer(
      R"(Boxes are operators, with their query's name and entries; an arrow from a table says by which statements and
indexes the program looks into it.

Example
  tvop graph route.tva country.tva | dot -Tsvg >pipeline.svg)");
  return graph;
}

void printGraph(const GraphOptions& options) {
  for (const std::string& path : options.programs) requireProgramName(path, command);
  std::vector<OperatorNode> operators;
  for (const std::string& path : options.programs) operators.push_back(inspect(path));
  bufferOutput();
  if (options.json)
    printJson(operators);
  else
    printDot(operators);
  flushOutput();
}

}  // namespace Tavro::Tool
