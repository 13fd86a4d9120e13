#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Tavro/baseRow.h"

// Keys are byte strings whose unsigned byte order is the order of the rows. The first 16 bytes of a key
// travel as two numbers, so that short keys are compared without touching memory.
namespace Tavro {

inline constexpr unsigned keyHeadLength = 16;

inline std::uint64_t toBigEndian(std::uint64_t value) {
  static_assert(std::endian::native == std::endian::little);
  return __builtin_bswap64(value);
}

struct EncodedKey {
  // The first 16 bytes as big-endian numbers; zeros stand behind a shorter key.
  std::uint64_t high;
  std::uint64_t low;
  // Of the whole key, in bytes.
  std::uint32_t length;
  // The bytes behind the first 16.
  const unsigned char* tail;
};

// Less, equal or greater than 0. Keys that one encoder made are equal or differ before the end of either.
inline int compareTails(const EncodedKey& left, const EncodedKey& right) {
  const std::uint32_t common = std::min(left.length, right.length);
  if (common > keyHeadLength) {
    const int order = std::memcmp(left.tail, right.tail, common - keyHeadLength);
    if (order != 0) return order;
  }
  return left.length < right.length ? -1 : left.length > right.length ? 1 : 0;
}

inline bool operator==(const EncodedKey& left, const EncodedKey& right) {
  return left.high == right.high && left.low == right.low && compareTails(left, right) == 0;
}

// Takes up the bytes of one key. Short keys need no allocation.
class KeyBuffer {
 public:
  KeyBuffer() = default;
  KeyBuffer(const KeyBuffer&) = delete;
  KeyBuffer& operator=(const KeyBuffer&) = delete;

  // Room for `length` bytes, which become part of the key.
  unsigned char* extend(std::size_t length) {
    if (length > capacity_ - size_) [[unlikely]]
      grow(size_ + length);
    unsigned char* const place = bytes_ + size_;
    size_ += length;
    return place;
  }
  void append(unsigned char byte) { *extend(1) = byte; }
  void append(const unsigned char* bytes, std::size_t length) {
    if (length != 0) std::memcpy(extend(length), bytes, length);
  }
  // The first bytes of a big-endian number, 8 at most.
  void appendFirst(std::uint64_t number, std::size_t length) {
    if (sizeof number > capacity_ - size_) [[unlikely]]
      grow(size_ + sizeof number);
    storeBytes(bytes_ + size_, toBigEndian(number));
    size_ += length;
  }
  void appendNumber(std::uint64_t number) { storeBytes(extend(sizeof number), toBigEndian(number)); }
  // Overwrites the number that was appended last.
  void lastNumberIs(std::uint64_t number) { storeBytes(bytes_ + size_ - sizeof number, toBigEndian(number)); }

  const unsigned char* bytes() const { return bytes_; }
  std::size_t size() const { return size_; }

  // Valid until the buffer changes.
  EncodedKey key() {
    if (size_ < keyHeadLength) std::memset(bytes_ + size_, 0, keyHeadLength - size_);
    return {toBigEndian(loadBytes<std::uint64_t>(bytes_)), toBigEndian(loadBytes<std::uint64_t>(bytes_ + 8)),
            static_cast<std::uint32_t>(size_), bytes_ + keyHeadLength};
  }

 private:
  void grow(std::size_t needed) {
    std::vector<unsigned char> larger(std::max(needed, 2 * capacity_));
    std::memcpy(larger.data(), bytes_, size_);
    heap_.swap(larger);
    bytes_ = heap_.data();
    capacity_ = heap_.size();
  }

  // Not initialised: nothing is read before it was written.
  std::array<unsigned char, 64> inline_;
  std::vector<unsigned char> heap_;
  unsigned char* bytes_ = inline_.data();
  std::size_t size_ = 0;
  std::size_t capacity_ = inline_.size();
};

}  // namespace Tavro
