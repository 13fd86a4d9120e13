#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>
#include <type_traits>
#include <vector>

#include "Tavro/tvExceptions.h"
#include "Tavro/values.h"

// An array's payload: a 2-byte count word (bits 0 to 11 count, the others without meaning), then
// - for types of fixed width the elements, packed;
// - for strings, general addresses and general prefixes one u16 end offset per element, counted from the
//   first byte behind the offsets, then the elements' bytes. An element's bytes are its payload as a column.
namespace Tavro {

inline constexpr unsigned arrayMaxCount = 4095;
inline constexpr unsigned arrayCountWidth = 2;

// True for the types whose elements have no fixed width.
template <typename T>
inline constexpr bool isVariableType =
    std::is_same_v<T, StringValueReference> || std::is_same_v<T, IpGenAddrReference> ||
    std::is_same_v<T, IpGenPrefixReference>;

// The view of a variable type onto its payload of `length` bytes.
template <typename T>
inline T viewOfPayload(const unsigned char* payload, unsigned length) {
  if constexpr (std::is_same_v<T, StringValueReference>) {
    return {reinterpret_cast<const char*>(payload), static_cast<std::uint16_t>(length)};
  } else if constexpr (std::is_same_v<T, IpGenAddrReference>) {
    const unsigned char family = length == 4 ? Ipv4Family : length == 16 ? Ipv6Family : NoAddress;
    return family == NoAddress ? T() : T(payload, family);
  } else {
    const unsigned char family = length == 5 ? Ipv4Family : length == 17 ? Ipv6Family : NoAddress;
    return family == NoAddress ? T() : T(payload, family, payload[length - 1]);
  }
}

#pragma pack(push, 1)

// A view of an array in a row's buffer. Elements are those of the column type `T`.
template <typename T>
class ArrayReference {
 public:
  using Index = std::multimap<T, unsigned short>;

  ArrayReference() = default;
  ArrayReference(const unsigned char* payload, std::uint16_t length, const Index* prebuilt = nullptr)
      : payload_(payload), length_(length), prebuilt_(prebuilt) {}

  const unsigned char* payload() const { return payload_; }
  // Bytes of the payload with its count word; 0 for an empty or null array, whose payload is never read.
  std::uint16_t length() const { return length_; }

  unsigned count() const {
    return length_ == 0 ? 0U : payload_[0] | static_cast<unsigned>(payload_[1] & 0x0F) << 8;
  }

  // The element at `index`. An index equal to the count is let through and reads what lies behind the last
  // element; one above it throws TvOutOfRange. Must not be called on an array of length 0.
  T operator[](unsigned int index) const;

  // Same count and equal elements; arrays without elements are equal.
  bool operator==(const ArrayReference& other) const;

  // True when every element of `other` stands in this array, as often as it stands in `other`. An empty
  // `other` is contained in nothing. Allocates.
  bool contains(const ArrayReference& other) const;

  // True when one element at least stands in both. Allocates.
  bool intersects(const ArrayReference& other) const;

 private:
  static Index indexOf(const ArrayReference& array);
  static bool anyIn(const Index& index, const ArrayReference& probe);

  const unsigned char* payload_ = nullptr;
  std::uint16_t length_ = 0;
  const Index* prebuilt_ = nullptr;
};

#pragma pack(pop)

template <typename T>
T ArrayReference<T>::operator[](unsigned int index) const {
  const unsigned size = count();
  if (index > size) throw TvOutOfRange("Invalid Index");
  if constexpr (isVariableType<T>) {
    if (index == size) return T();
    const unsigned char* const ends = payload_ + arrayCountWidth;
    const unsigned char* const bytes = ends + std::size_t{2} * size;
    const auto endOf = [ends](unsigned i) {
      return ends[2 * i] | static_cast<unsigned>(ends[2 * i + 1]) << 8;
    };
    const unsigned begin = index == 0 ? 0U : endOf(index - 1);
    return viewOfPayload<T>(bytes + begin, endOf(index) - begin);
  } else if constexpr (std::is_same_v<T, bool>) {
    return payload_[arrayCountWidth + index] != 0;
  } else {
    T element;
    std::memcpy(&element, payload_ + arrayCountWidth + std::size_t{index} * sizeof(T), sizeof(T));
    return element;
  }
}

template <typename T>
bool ArrayReference<T>::operator==(const ArrayReference& other) const {
  const unsigned size = count();
  if (size != other.count()) return false;
  for (unsigned i = 0; i < size; ++i)
    if ((*this)[i] != other[i]) return false;
  return true;
}

template <typename T>
typename ArrayReference<T>::Index ArrayReference<T>::indexOf(const ArrayReference& array) {
  Index index;
  const unsigned size = array.count();
  for (unsigned i = 0; i < size; ++i) index.emplace(array[i], static_cast<unsigned short>(i));
  return index;
}

template <typename T>
bool ArrayReference<T>::contains(const ArrayReference& other) const {
  const unsigned wanted = other.count();
  const unsigned size = count();
  if (size < wanted) return false;
  Index scratch;
  if (other.prebuilt_ == nullptr) scratch = indexOf(other);
  const Index& index = other.prebuilt_ == nullptr ? scratch : *other.prebuilt_;
  std::vector<bool> used(wanted);
  unsigned found = 0;
  for (unsigned i = 0; i < size; ++i) {
    const auto [first, last] = index.equal_range((*this)[i]);
    for (auto entry = first; entry != last; ++entry) {
      if (used[entry->second]) continue;
      if (++found == wanted) return true;
      used[entry->second] = true;
      break;
    }
  }
  return false;
}

template <typename T>
bool ArrayReference<T>::anyIn(const Index& index, const ArrayReference& probe) {
  const unsigned size = probe.count();
  for (unsigned i = 0; i < size; ++i)
    if (index.find(probe[i]) != index.end()) return true;
  return false;
}

template <typename T>
bool ArrayReference<T>::intersects(const ArrayReference& other) const {
  const Index* const mine = prebuilt_;
  const Index* const theirs = other.prebuilt_;
  if (length_ != 0 && other.count() < count()) {
    if (theirs != nullptr) return anyIn(*theirs, *this);
    if (mine != nullptr) return anyIn(*mine, other);
    return anyIn(indexOf(other), *this);
  }
  if (mine != nullptr) return anyIn(*mine, other);
  if (theirs != nullptr) return anyIn(*theirs, *this);
  return anyIn(indexOf(*this), other);
}

// "[", the elements separated by ",", and "]".
template <typename T>
std::ostream& operator<<(std::ostream& out, const ArrayReference<T>& array) {
  out << '[';
  const unsigned size = array.count();
  for (unsigned i = 0; i < size; ++i) {
    if (i != 0) out << ',';
    const T element = array[i];
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, signed char> ||
                  std::is_same_v<T, unsigned char> || std::is_same_v<T, StringValueReference>)
      out << FMT<T>{element};
    else
      out << element;
  }
  return out << ']';
}

}  // namespace Tavro
