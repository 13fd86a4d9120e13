#include "listing.h"

#include <cstring>

namespace Tavro::Tool {

std::vector<ListedInstruction> listInstructions(const TvRT::Context& context) {
  std::vector<ListedInstruction> listed;
  for (len_t at = 0; at < context.maxLoc(); at = listed.back().end()) {
    TvRT::HandlerNumber number;
    std::memcpy(&number, context.istream().at(at), sizeof number);
    const TvRT::Describe describe = TvRT::HandlerTable::describe(number);
    // A program beyond the stream's reach has lost its beginning.
    if (describe == nullptr) break;
    const auto operandsAt = static_cast<len_t>(at + TvRT::IStream::handlerSlotWidth);
    listed.push_back({at, describe(), context.istream().at(operandsAt)});
  }
  return listed;
}

len_t offsetOfInstructionBefore(const TvRT::Context& context, len_t pc) {
  for (const ListedInstruction& instruction : listInstructions(context))
    if (pc <= instruction.end()) return instruction.offset;
  return pc;
}

}  // namespace Tavro::Tool
