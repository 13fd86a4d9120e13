#pragma once

#include <string>
#include <vector>

#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTHandlers.h"

namespace Tavro::Tool {

// How many slots the program has for tables: the pseudo rows stand behind them, once there was an `end`.
len_t boundTables(const TvRT::Context& context);

// One operand of an instruction in the stream.
struct ListedOperand {
  TvRT::OperandKind kind;
  const unsigned char* bytes;

  // Of every kind but constants. A label's number is that of the string that names it.
  unsigned int number() const;
};

// One instruction as it stands in the stream of a loaded program. Refers to the program's context.
struct ListedInstruction {
  len_t offset;
  TvRT::InstructionInfo info;
  std::vector<ListedOperand> operands;

  // Where the next one begins.
  len_t end() const {
    return static_cast<len_t>(offset + TvRT::IStream::handlerSlotWidth + info.operandWidth);
  }
};

// The program's instructions in their order.
std::vector<ListedInstruction> listInstructions(const TvRT::Context& context);

// Where the instruction begins whose bytes end at or behind `pc`: the one that ran last, when a run has been
// left there by an exception.
len_t offsetOfInstructionBefore(const TvRT::Context& context, len_t pc);

// A label of a program and the offset that it stands for.
struct ListedLabel {
  std::string name;
  len_t offset;

  // True for the names by which tables and indexes start a run.
  bool isEntry() const;
};

// The program's labels in the order of their making.
std::vector<ListedLabel> listLabels(const TvRT::Context& context);

}  // namespace Tavro::Tool
