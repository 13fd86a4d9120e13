#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Tavro/export.h"
#include "Tavro/types.h"

// The values of columns that are no plain numbers. All of them are trivially copyable and unaligned: they
// travel through rows, streams and stacks by byte copy.
namespace Tavro {

// One IPv4 address, in network byte order.
class TAVRO_EXPORT IpAddr {
 public:
  IpAddr() = default;
  // From dotted quad. Throws std::invalid_argument on any other text.
  explicit IpAddr(const std::string& text);
  // From the address as a number in the machine's byte order.
  static IpAddr fromNumber(std::uint32_t number);

  std::uint32_t number() const {
    return std::uint32_t{bytes_[0]} << 24 | std::uint32_t{bytes_[1]} << 16 | std::uint32_t{bytes_[2]} << 8 |
           bytes_[3];
  }
  const unsigned char* bytes() const { return bytes_.data(); }

  bool operator==(const IpAddr&) const = default;
  std::strong_ordering operator<=>(const IpAddr& other) const { return number() <=> other.number(); }

 private:
  std::array<unsigned char, 4> bytes_{};
};

// One IPv6 address, in network byte order.
class TAVRO_EXPORT Ip6Addr {
 public:
  Ip6Addr() = default;
  // From any text form of an IPv6 address. Throws std::invalid_argument on any other text.
  explicit Ip6Addr(const std::string& text);

  const unsigned char* bytes() const { return bytes_.data(); }

  bool operator==(const Ip6Addr& other) const { return std::memcmp(bytes(), other.bytes(), 16) == 0; }
  std::strong_ordering operator<=>(const Ip6Addr& other) const {
    return std::memcmp(bytes(), other.bytes(), 16) <=> 0;
  }

 private:
  std::array<unsigned char, 16> bytes_{};
};

// The forms of a general address.
enum AddressFamily : unsigned char { NoAddress = 0, Ipv4Family = 1, Ipv6Family = 2 };

// Bytes of an address of the family: 0, 4 or 16. Any number that is no family has none.
constexpr unsigned addressLength(unsigned char family) {
  return family == Ipv4Family ? 4U : family == Ipv6Family ? 16U : 0U;
}

// An address of either family, or no address; owns its bytes.
class TAVRO_EXPORT IpGenAddr {
 public:
  IpGenAddr() = default;
  // From a dotted quad or an IPv6 text; the empty text is no address. Throws std::invalid_argument otherwise.
  explicit IpGenAddr(const std::string& text);
  IpGenAddr(unsigned char family, const unsigned char* bytes);

  unsigned char family() const { return family_; }
  const unsigned char* bytes() const { return bytes_.data(); }
  unsigned char* bytes() { return bytes_.data(); }

 private:
  unsigned char family_ = NoAddress;
  std::array<unsigned char, 3> unused_{};
  std::array<unsigned char, 16> bytes_{};
};
static_assert(sizeof(IpGenAddr) == 20);

// An address of either family with a mask length, or no prefix; owns its bytes.
class TAVRO_EXPORT IpGenPrefix {
 public:
  IpGenPrefix() = default;
  // From "address/length"; the empty text is no prefix, an address alone has the full length of its family.
  // Throws std::invalid_argument otherwise. Bits below the mask are kept as they are given.
  explicit IpGenPrefix(const std::string& text);
  IpGenPrefix(unsigned char family, const unsigned char* bytes, unsigned char mask);

  unsigned char family() const { return address_.family(); }
  const unsigned char* bytes() const { return address_.bytes(); }
  // Mask length in bits, 0 to 32 or 0 to 128.
  unsigned char mask() const { return mask_; }

  // True when `other` is of the same family, no shorter than this prefix, and agrees with it in this prefix's
  // bits. No prefix contains nothing and is contained in nothing.
  bool contains(const IpGenPrefix& other) const;
  // Clears every address bit behind the first `keep` bits.
  void clearLowerAddrBits(unsigned short keep);
  void maskIs(unsigned int mask) { mask_ = static_cast<unsigned char>(mask); }

 private:
  IpGenAddr address_;
  unsigned char mask_ = 0;
  std::array<unsigned char, 3> unused_{};
};
static_assert(sizeof(IpGenPrefix) == 24);

#pragma pack(push, 1)

// A view of a string in a row's buffer. Valid as long as the buffer lasts and no write moves the payload.
class TAVRO_EXPORT StringValueReference {
 public:
  StringValueReference() = default;
  StringValueReference(const char* bytes, std::uint16_t length) : bytes_(bytes), length_(length) {}

  const char* bytes() const { return bytes_; }
  std::uint16_t length() const { return length_; }
  std::string_view view() const { return {bytes_, length_}; }

  bool operator==(const StringValueReference& other) const { return view() == other.view(); }
  // By unsigned bytes, the shorter first where one begins the other.
  std::strong_ordering operator<=>(const StringValueReference& other) const {
    return view() <=> other.view();
  }

 private:
  const char* bytes_ = nullptr;
  std::uint16_t length_ = 0;
};

// A view of a general address in a row's buffer.
class TAVRO_EXPORT IpGenAddrReference {
 public:
  IpGenAddrReference() = default;
  IpGenAddrReference(const unsigned char* bytes, unsigned char family) : bytes_(bytes), family_(family) {}

  const unsigned char* bytes() const { return bytes_; }
  unsigned char family() const { return family_; }

  bool operator==(const IpGenAddrReference& other) const { return (*this <=> other) == 0; }
  // By family, then bytes.
  std::strong_ordering operator<=>(const IpGenAddrReference& other) const;

 private:
  const unsigned char* bytes_ = nullptr;
  unsigned char family_ = NoAddress;
};

// A view of a general prefix in a row's buffer.
class TAVRO_EXPORT IpGenPrefixReference {
 public:
  IpGenPrefixReference() = default;
  IpGenPrefixReference(const unsigned char* bytes, unsigned char family, unsigned char mask)
      : bytes_(bytes), family_(family), mask_(mask) {}

  const unsigned char* bytes() const { return bytes_; }
  unsigned char family() const { return family_; }
  unsigned char mask() const { return mask_; }

  bool operator==(const IpGenPrefixReference& other) const { return (*this <=> other) == 0; }
  // By family, then address bytes, then mask length.
  std::strong_ordering operator<=>(const IpGenPrefixReference& other) const;

 private:
  const unsigned char* bytes_ = nullptr;
  unsigned char family_ = NoAddress;
  unsigned char mask_ = 0;
};

#pragma pack(pop)

// Addresses print as dotted quad or in the form of RFC 5952, prefixes with "/length" behind, no address and
// no prefix as nothing, strings as their bytes.
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const IpAddr& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const Ip6Addr& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const IpGenPrefix& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const StringValueReference& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const IpGenAddrReference& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const IpGenPrefixReference& value);

// Holds a value that the stream's own output would print wrongly: bytes print as numbers, `bool` as true or
// false, a string within double quotes, with \" and \\ for those two characters.
template <typename T>
struct FMT {
  T value;
};
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const FMT<bool>& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const FMT<signed char>& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const FMT<unsigned char>& value);
TAVRO_EXPORT std::ostream& operator<<(std::ostream& out, const FMT<StringValueReference>& value);

}  // namespace Tavro
