#pragma once

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tavro/Kelpo.h"
#include "Tavro/TvRTDebug.h"
#include "Tavro/TvRTTypes.h"
#include "Tavro/export.h"

namespace Tavro::TvRT {

#pragma pack(push, 1)

// A value with its null state: one flag byte, of which bit 0 set means null, then the value, packed. The only
// form of a value on the stack, and in memory the same bytes. Nothing in it says what type it has.
template <typename T>
struct StackValue {
  // A byte that is neither 0 nor 1 may well stand where a `bool` is popped, so it is held as a byte.
  using Stored = std::conditional_t<std::is_same_v<T, bool>, unsigned char, T>;

  StackValue() = default;
  StackValue(const Stored& v, bool isNullValue) : flag(isNullValue ? 1 : 0), value(v) {}

  bool isNull() const { return (flag & 1U) != 0; }

  unsigned char flag = 0;
  Stored value{};
};

#pragma pack(pop)

// A slot's bytes, moved as flag and value: a slot that is written as one pair of stores and read as another,
// as a plain copy of its 9 bytes would be, stalls the processor.
template <typename T>
inline void loadSlot(const unsigned char* slot, StackValue<T>& entry) {
  typename StackValue<T>::Stored value;
  std::memcpy(static_cast<void*>(&value), slot + 1, sizeof(value));
  entry.flag = *slot;
  entry.value = value;
}
template <typename T>
inline void storeSlot(unsigned char* slot, const StackValue<T>& entry) {
  const auto value = entry.value;
  *slot = entry.flag;
  std::memcpy(slot + 1, static_cast<const void*>(&value), sizeof(value));
}

// A value as a trace shows it; unlike the packed slot it travels in registers.
template <typename T>
struct ShownValue {
  typename StackValue<T>::Stored value;
  bool isNull;
};

template <typename T>
inline ShownValue<T> tracePart(const StackValue<T>& entry) {
  return {entry.value, entry.isNull()};
}

// "NULL", or the value.
template <typename T>
std::ostream& operator<<(std::ostream& out, const ShownValue<T>& shown) {
  if (shown.isNull) return out << "NULL";
  if constexpr (std::is_same_v<T, bool>) {
    const bool value = shown.value != 0;
    return out << FMT<bool>{value};
  } else if constexpr (std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char> ||
                       std::is_same_v<T, StringValueReference>) {
    return out << FMT<T>{shown.value};
  } else {
    return out << shown.value;
  }
}
template <typename T>
std::ostream& operator<<(std::ostream& out, const StackValue<T>& entry) {
  return out << tracePart(entry);
}

// The evaluation stack of one context: a raw byte stack of fixed size that grows upward.
//
//   guard | base ... top ... limit | guard
//
// A pop names the type that it expects and only an empty stack refuses it, so a wide pop can take `top` below
// `base`; a push tests the width of the value without its flag, so it can end one byte behind `limit`. Both
// stay inside the guards, which belong to the block and start zeroed.
class TAVRO_EXPORT Stack {
 public:
  static constexpr std::size_t blockSize = 4000;
  static constexpr std::size_t guardSize = 32;

  class __kelpoDebug : public Kelpo::DebugSupport {
   public:
    __kelpoDebug() : Kelpo::DebugSupport(getHandler()) {}
    static Kelpo::DebugHandler* getHandler();
  };

  // Throws std::bad_alloc.
  Stack();
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;
  ~Stack();

  // Removes the top slot. Throws std::out_of_range when the stack is empty.
  template <typename T, Trace trace = Trace::On>
  StackValue<T> pop() {
    if (isTraced<trace>()) [[unlikely]]
      return popTraced<T>();
    return take<T>();
  }

  // Two slots: the topmost, and the one below it.
  template <typename Top, typename Next>
  struct Pair {
    StackValue<Top> top;
    StackValue<Next> next;
  };

  // Removes the two topmost slots, as two pops do, with one test and one update where nothing is traced.
  template <typename Top, typename Next, Trace trace = Trace::On>
  Pair<Top, Next> popPair() {
    Pair<Top, Next> pair;
    if (isTraced<trace>()) [[unlikely]] {
      pair.top = popTraced<Top>();
      pair.next = popTraced<Next>();
    } else {
      unsigned char* const behind = top;
      constexpr std::ptrdiff_t width = sizeof(StackValue<Top>);
      if (behind - base <= width) [[unlikely]]
        throwPairUnderflow(width);
      constexpr std::ptrdiff_t both = sizeof(Pair<Top, Next>);
      top = behind - both;
      loadSlot(behind - width, pair.top);
      loadSlot(behind - both, pair.next);
    }
    return pair;
  }

  // Places a slot on top. Throws std::out_of_range when there is no room; the stack is then as it was.
  template <Trace trace = Trace::On, typename T>
  void push(const StackValue<T>& value) {
    if (isTraced<trace>()) [[unlikely]]
      return pushTraced(value);
    put(value);
  }

  // As push, for an instruction that has popped more bytes than the value has: there is room.
  template <Trace trace, typename T>
  void pushBack(const StackValue<T>& value) {
    if (isTraced<trace>()) [[unlikely]]
      return pushTraced(value);
    place(value);
  }

  // Whether the two topmost slots lie above `base`, all of them.
  template <typename Top, typename Next>
  bool hasPair() const {
    return top - base >= static_cast<std::ptrdiff_t>(sizeof(Pair<Top, Next>));
  }

  // Leaves the bytes that a push and a pop of the value would. There is room.
  template <typename T>
  void leaveBehindTop(const StackValue<T>& value) {
    storeSlot(top, value);
  }

  // Whether a pop finds something.
  bool hasEntry() const { return top > base; }
  // Whether a push of such an entry succeeds.
  template <typename Entry>
  bool hasRoomFor() const {
    return limit >= top + sizeof(Entry::value);
  }
  // Whether a push of such an entry succeeds, and a pop of it too: below `base` that finds an empty stack.
  template <typename Entry>
  bool canPushAndPop() const {
    return static_cast<std::size_t>(top - base) <= blockSize - sizeof(Entry::value);
  }
  // Bytes on the stack, not values.
  unsigned int depth() const { return static_cast<unsigned int>(top - base); }
  bool isEmpty() const { return top == base; }
  void clear() { top = base; }

  const unsigned char* topOfStack() const { return top; }
  const unsigned char* bottom() const { return base; }

 private:
  template <Trace trace>
  bool isTraced() const {
    return trace == Trace::On && debug.handler()->anyOn(1U << traceEvents | 1U << traceDetail);
  }

  template <typename T>
  void takeInto(StackValue<T>& value) {
    static_assert(sizeof(StackValue<T>) <= guardSize);
    unsigned char* const behind = top;
    if (behind <= base) [[unlikely]]
      throwUnderflow();
    top = behind - sizeof(StackValue<T>);
    loadSlot(behind - sizeof(StackValue<T>), value);
  }

  template <typename T>
  StackValue<T> take() {
    StackValue<T> value;
    takeInto(value);
    return value;
  }

  template <typename T>
  void put(const StackValue<T>& value) {
    if (!hasRoomFor<StackValue<T>>()) [[unlikely]]
      throwOverflow(sizeof(value.value));
    place(value);
  }

  template <typename T>
  void place(const StackValue<T>& value) {
    unsigned char* const to = top;
    storeSlot(to, value);
    top = to + sizeof value;
  }

  template <typename T>
  [[gnu::noinline, gnu::cold]] StackValue<T> popTraced();
  template <typename T>
  [[gnu::noinline, gnu::cold]] void pushTraced(StackValue<T> value);

  [[noreturn, gnu::cold]] static void throwUnderflow();
  // Of the second of two pops, or the first; `width` is that of the first.
  [[noreturn, gnu::cold]] void throwPairUnderflow(std::ptrdiff_t width);
  [[noreturn, gnu::cold]] void throwOverflow(std::size_t width) const;
  // Writes "@TOP/BASE".
  void writePosition(std::ostream& text) const;

  unsigned char* top;
  unsigned char* base;
  unsigned char* limit;
  __kelpoDebug debug;
};

inline constexpr const char* stackSource = "../src-includes/runtimeOperators/Tavro/TvRTStack.h";

template <typename T>
StackValue<T> Stack::popTraced() {
  const auto signature = [] {
    return "Tavro::TvRT::StackValue<T> Tavro::TvRT::Stack::pop() [with T = " + Spelling<T>::text() + "]";
  };
  Kelpo::trace(debug.handler(), traceDetail, stackSource, __LINE__, "pop",
               [&](std::ostream& text) { text << signature(); });
  const StackValue<T> value = take<T>();
  Kelpo::trace(debug.handler(), traceEvents, stackSource, __LINE__, "pop", [&](std::ostream& text) {
    text << signature();
    writePosition(text);
    text << " --> " << value;
  });
  return value;
}

template <typename T>
void Stack::pushTraced(StackValue<T> value) {
  const auto signature = [] {
    return "void Tavro::TvRT::Stack::push(Tavro::TvRT::StackValue<T>) [with T = " + Spelling<T>::text() + "]";
  };
  Kelpo::trace(debug.handler(), traceDetail, stackSource, __LINE__, "push",
               [&](std::ostream& text) { text << signature(); });
  put(value);
  Kelpo::trace(debug.handler(), traceEvents, stackSource, __LINE__, "push", [&](std::ostream& text) {
    text << signature();
    writePosition(text);
    text << " <-- " << value;
  });
}

}  // namespace Tavro::TvRT
