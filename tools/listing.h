#pragma once

#include <vector>

#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTHandlers.h"

namespace Tavro::Tool {

// One instruction as it stands in the stream of a loaded program.
struct ListedInstruction {
  len_t offset;
  TvRT::InstructionInfo info;
  const unsigned char* operands;  // in the stream

  len_t end() const {
    return static_cast<len_t>(offset + TvRT::IStream::handlerSlotWidth + info.operandWidth);
  }
};

// The program's instructions in their order. They refer to the context.
std::vector<ListedInstruction> listInstructions(const TvRT::Context& context);

// Where the instruction begins whose bytes end at or behind `pc`: the one that ran last, when a run has been
// left there by an exception.
len_t offsetOfInstructionBefore(const TvRT::Context& context, len_t pc);

}  // namespace Tavro::Tool
