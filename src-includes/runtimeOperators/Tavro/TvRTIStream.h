#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Tavro/Kelpo.h"
#include "Tavro/TvRTDebug.h"
#include "Tavro/TvRTHandlers.h"
#include "Tavro/export.h"
#include "Tavro/types.h"

namespace Tavro::TvRT {

// Label numbers that stand for something else in operands: a label whose number has to be looked up by its
// name, and no label.
inline constexpr len_t unresolvedLabel = 0xFFFF;
inline constexpr len_t noBranch = 32767;

inline constexpr const char* istreamSource = "../src-includes/runtimeOperators/Tavro/TvRTIStream.h";

// The instructions of one context: a growable byte buffer, the counter of the next instruction and the table
// of labels. An instruction is two runs of bytes, back to back, with no alignment of any kind:
//
//   handler slot    4 bytes       number of the handler
//   operand block   fixed width   the bytes of the instruction object
//
// Offsets are 16 bits wide and nothing tests for a program that is longer. Behind `capacity` stand zeroed
// bytes for a handler slot, the widest operand block and the slot behind it, so a stray `pc` reads zeros or
// bytes of the stream.
class TAVRO_EXPORT IStream {
 public:
  static constexpr len_t handlerSlotWidth = 4;
  static constexpr len_t widestOperands = 24;
  static constexpr std::size_t guardSize = 2 * handlerSlotWidth + widestOperands;

  class __kelpoDebug : public Kelpo::DebugSupport {
   public:
    __kelpoDebug() : Kelpo::DebugSupport(getHandler()) {}
    static Kelpo::DebugHandler* getHandler();
  };

  // Throws std::bad_alloc.
  IStream();
  IStream(const IStream&) = delete;
  IStream& operator=(const IStream&) = delete;
  ~IStream();

  // Copies `len` bytes to the end of the stream and returns the offset at which they begin. May move the
  // buffer. Throws std::bad_alloc, with nothing appended.
  len_t append(len_t len, const unsigned char* bytes) {
    const std::uint32_t need = std::uint32_t{length} + len;
    if (need > capacity) [[unlikely]]
      growTo(need > capacity + growBy ? need + growBy : capacity + growBy);
    if (len != 0) std::memcpy(code + length, bytes, len);
    const len_t offset = length;
    lengthIs(static_cast<len_t>(length + len));
    return offset;
  }

  // Moves `pc` over `n` operand bytes. When no whole handler slot follows, it says so on standard output and
  // leaves `pc` where it is.
  void stepPC(len_t n) { stepFrom(pc, n); }
  // The same for a caller who has read `pc` already.
  void stepFrom(std::size_t offset, len_t n) {
    const std::size_t target = offset + n;
    if (hasSlotAt(target)) [[likely]]
      pc = static_cast<len_t>(target);
    else
      reportBadStep();
  }

  // A whole handler slot lies at the offset and before the end of the stream.
  bool hasSlotAt(std::size_t offset) const { return static_cast<std::ptrdiff_t>(offset) <= lastSlot; }

  // Makes `offset` that of a label below `noBranch`, in one test of all that a label operand may hold; false,
  // and nothing done, for any other.
  bool findNamedPlace(len_t label, std::size_t& offset) const {
    if (label >= namedLabels) [[unlikely]]
      return false;
    offset = labels.data()[label];
    return true;
  }

  // Jumps to a label number; false, and nothing done, when there is no such number.
  template <Trace trace = Trace::On>
  bool gotoOp(len_t label) {
    const auto place = labels.begin() + label;
    if (place >= labels.end()) return false;
    pc = *place;
    if constexpr (trace == Trace::On)
      Kelpo::trace(debug.handler(), traceDetail, istreamSource, __LINE__, "gotoOp",
                   "bool Tavro::TvRT::IStream::gotoOp(Tavro::len_t)", " successfully goto label ", label,
                   " at ", pc);
    return true;
  }

  // Makes the next label number, for the present end of the stream.
  len_t addLabel();

  // Runs one instruction: fetches the handler at `pc`, steps over its slot and calls it.
  OpResult executeAtPC(Context& context) {
    const len_t ppc = programCounter();
    Kelpo::trace(debug.handler(), traceDetail, istreamSource, __LINE__, "executeAtPC",
                 "Tavro::TvRT::OpResult Tavro::TvRT::IStream::executeAtPC(Tavro::TvRT::Context&)",
                 " executing instruction at ", ppc);
    pc = static_cast<len_t>(ppc + handlerSlotWidth);
    return HandlerTable::at(handlerAt(ppc))(context);
  }

  // The same without trace sites, for an offset of which `isPlain` was true.
  PlainOutcome executePlain(Context& context, std::size_t ppc) {
    return HandlerTable::runPlain(plainNumberAt(ppc), context, ppc + handlerSlotWidth);
  }
  // Whether the run goes on where a slot begins within the capacity, and its operands within 16 bits.
  bool isPlain(const PlainOutcome& before) const { return before.goesOnUpTo(lastPlain); }
  // The bytes of such a slot.
  HandlerNumber plainNumberAt(std::size_t offset) const {
    HandlerNumber number;
    std::memcpy(&number, code + offset, sizeof number);
    return number;
  }

  // The bytes of the handler slot at an offset.
  HandlerNumber handlerAt(len_t offset) const {
    HandlerNumber number;
    std::memcpy(&number, at(offset), sizeof number);
    return number;
  }

  // The byte at an offset. One that lies beyond the capacity stands for the start of the stream.
  const unsigned char* at(std::size_t offset) const { return offset > capacity ? code : code + offset; }
  unsigned char* at(std::size_t offset) { return offset > capacity ? code : code + offset; }
  // The same for the operands of an instruction that a handler has been called for: a plain one is called
  // only where both lie within the buffer and its guard.
  template <Trace trace>
  unsigned char* operandsAt(std::size_t offset) {
    return trace == Trace::Off ? code + offset : at(offset);
  }

  len_t programCounter() const { return static_cast<len_t>(pc); }
  // The same, as wide as a part of an address.
  std::size_t counter() const { return pc; }
  // `offset` fits a len_t.
  void programCounterIs(std::size_t offset) { pc = offset; }
  len_t maxLoc() const { return length; }
  std::uint32_t capacityInBytes() const { return capacity; }
  const std::vector<len_t>& labelTable() const { return labels; }

  // Forgets the program: `pc`, length and label count become 0. Buffer and label table stay.
  void clear();

 private:
  void lengthIs(len_t newLength) {
    length = newLength;
    lastSlot = std::ptrdiff_t{length} - handlerSlotWidth;
  }
  void setLabel(std::size_t label);
  void growTo(std::uint32_t newCapacity);
  [[gnu::cold]] static void reportBadStep();

  len_t labelCount = 0;
  // Never more than a len_t holds.
  std::size_t pc = 0;
  unsigned char* code = nullptr;
  // The last offset at which an instruction can be carried out without minding where it reads.
  std::size_t lastPlain = 0;
  std::uint32_t capacity = 0;
  std::uint32_t growBy = 512;
  len_t length = 0;
  // The last offset at which a whole handler slot lies within `length`.
  std::ptrdiff_t lastSlot = -std::ptrdiff_t{handlerSlotWidth};
  // Bytes of memory at `code`.
  std::uint32_t allocated = 0;
  std::vector<len_t> labels;
  // The size of `labels`, but not more than `noBranch`.
  std::uint32_t namedLabels = 0;
  __kelpoDebug debug;
};

}  // namespace Tavro::TvRT
