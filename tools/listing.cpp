#include "listing.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <string_view>

namespace Tavro::Tool {

namespace {

using TvRT::OperandKind;

constexpr std::size_t labelOperandWidth = 8;

std::vector<ListedOperand> operandsOf(const TvRT::InstructionInfo& info, const unsigned char* at) {
  std::vector<ListedOperand> operands;
  for (const OperandKind kind : info.operands) {
    operands.push_back({kind, at});
    at += kind == OperandKind::Label ? labelOperandWidth : sizeof(len_t);
  }
  return operands;
}

}  // namespace

unsigned int ListedOperand::number() const {
  return kind == OperandKind::Label ? loadBytes<std::uint32_t>(bytes) : loadBytes<len_t>(bytes);
}

std::vector<ListedInstruction> listInstructions(const TvRT::Context& context) {
  std::vector<ListedInstruction> listed;
  for (len_t at = 0; at < context.maxLoc(); at = listed.back().end()) {
    TvRT::HandlerNumber number;
    std::memcpy(&number, context.istream().at(at), sizeof number);
    const TvRT::Describe describe = TvRT::HandlerTable::describe(number);
    // A program that is longer than a stream can hold has lost its beginning.
    if (describe == nullptr) break;
    const TvRT::InstructionInfo info = describe();
    const auto operandsAt = static_cast<len_t>(at + TvRT::IStream::handlerSlotWidth);
    listed.push_back({at, info, operandsOf(info, context.istream().at(operandsAt))});
  }
  return listed;
}

len_t offsetOfInstructionBefore(const TvRT::Context& context, len_t pc) {
  for (const ListedInstruction& instruction : listInstructions(context))
    if (pc <= instruction.end()) return instruction.offset;
  return pc;
}

bool ListedLabel::isEntry() const {
  constexpr std::array<std::string_view, 5> hostNames{"init", "hash", "equals", "less", "autoUpdate"};
  if (std::find(hostNames.begin(), hostNames.end(), name) != hostNames.end()) return true;
  constexpr std::array<std::string_view, 5> watchNames{"row.wc", "del.wc", "rdy.wc", "pru.wc", "prl.wc"};
  if (!name.starts_with('t')) return false;
  std::string_view rest = std::string_view(name).substr(1);
  const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  rest.remove_prefix(
      static_cast<std::size_t>(std::find_if_not(rest.begin(), rest.end(), isDigit) - rest.begin()));
  return rest.size() + 1 < name.size() &&
         std::find(watchNames.begin(), watchNames.end(), rest) != watchNames.end();
}

len_t boundTables(const TvRT::Context& context) {
  const bool hasPseudoRows = context.tempRowIndex() != 0;
  return hasPseudoRows ? context.keyRowIndex() : static_cast<len_t>(context.tbisSize());
}

std::vector<ListedLabel> listLabels(const TvRT::Context& context) {
  std::vector<ListedLabel> labels;
  const std::vector<len_t>& offsets = context.istream().labelTable();
  for (std::size_t number = 1; number < offsets.size(); ++number)
    if (const std::string name = context.entryName(static_cast<len_t>(number)); !name.empty())
      labels.push_back({name, offsets[number]});
  return labels;
}

}  // namespace Tavro::Tool
