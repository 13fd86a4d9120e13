#include "Tavro/values.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "textForms.h"

namespace Tavro {

static_assert(sizeof(IpAddr) == 4 && sizeof(Ip6Addr) == 16);

namespace {

void readOrThrow(const std::string& text, AddressFamily family, unsigned char* bytes, const char* type) {
  if (!readAddress(text, family, bytes))
    throw std::invalid_argument(quoteForMessage(text) + " is no " + type);
}

template <typename T>
T valueOrThrow(const std::optional<T>& parsed, const std::string& text, const char* type) {
  if (!parsed) throw std::invalid_argument(quoteForMessage(text) + " is no " + type);
  return *parsed;
}

// The bits of address byte `i` that belong to the first `bits` bits of the address.
unsigned char maskByte(unsigned bits, unsigned i) {
  const unsigned inByte = bits <= 8 * i ? 0U : std::min(bits - 8 * i, 8U);
  return static_cast<unsigned char>(0xFF00U >> inByte);
}

std::strong_ordering compareAddresses(const IpGenAddrReference& left, const IpGenAddrReference& right) {
  if (left.family() != right.family()) return left.family() <=> right.family();
  const unsigned length = addressLength(left.family());
  return length == 0 ? std::strong_ordering::equal : std::memcmp(left.bytes(), right.bytes(), length) <=> 0;
}

std::ostream& putAddress(std::ostream& out, unsigned char family, const unsigned char* bytes) {
  std::string text;
  appendAddress(text, family, bytes);
  return out << text;
}

}  // namespace

IpAddr::IpAddr(const std::string& text) { readOrThrow(text, Ipv4Family, bytes_.data(), "IpAddr"); }

IpAddr IpAddr::fromNumber(std::uint32_t number) {
  IpAddr address;
  for (unsigned i = 0; i < 4; ++i) address.bytes_[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
  return address;
}

Ip6Addr::Ip6Addr(const std::string& text) { readOrThrow(text, Ipv6Family, bytes_.data(), "Ip6Addr"); }

IpGenAddr::IpGenAddr(const std::string& text)
    : IpGenAddr(valueOrThrow(parseGenAddr(text), text, "IpGenAddr")) {}

IpGenAddr::IpGenAddr(unsigned char family, const unsigned char* bytes) : family_(family) {
  std::copy_n(bytes, addressLength(family), bytes_.begin());
}

IpGenPrefix::IpGenPrefix(const std::string& text)
    : IpGenPrefix(valueOrThrow(parseGenPrefix(text), text, "IpGenPrefix")) {}

IpGenPrefix::IpGenPrefix(unsigned char family, const unsigned char* bytes, unsigned char mask)
    : address_(family, bytes), mask_(mask) {}

bool IpGenPrefix::contains(const IpGenPrefix& other) const {
  const unsigned length = addressLength(family());
  if (length == 0 || other.family() != family() || other.mask() < mask()) return false;
  for (unsigned i = 0; i < length; ++i)
    if (((bytes()[i] ^ other.bytes()[i]) & maskByte(mask(), i)) != 0) return false;
  return true;
}

void IpGenPrefix::clearLowerAddrBits(unsigned short keep) {
  const unsigned length = addressLength(family());
  for (unsigned i = 0; i < length; ++i) address_.bytes()[i] &= maskByte(keep, i);
}

std::strong_ordering IpGenAddrReference::operator<=>(const IpGenAddrReference& other) const {
  return compareAddresses(*this, other);
}

std::strong_ordering IpGenPrefixReference::operator<=>(const IpGenPrefixReference& other) const {
  const auto byAddress = compareAddresses({bytes(), family()}, {other.bytes(), other.family()});
  return byAddress != 0 ? byAddress : mask() <=> other.mask();
}

std::ostream& operator<<(std::ostream& out, const IpAddr& value) {
  return putAddress(out, Ipv4Family, value.bytes());
}

std::ostream& operator<<(std::ostream& out, const Ip6Addr& value) {
  return putAddress(out, Ipv6Family, value.bytes());
}

std::ostream& operator<<(std::ostream& out, const IpGenPrefix& value) {
  return out << IpGenPrefixReference(value.bytes(), value.family(), value.mask());
}

std::ostream& operator<<(std::ostream& out, const StringValueReference& value) { return out << value.view(); }

std::ostream& operator<<(std::ostream& out, const IpGenAddrReference& value) {
  return putAddress(out, value.family(), value.bytes());
}

std::ostream& operator<<(std::ostream& out, const IpGenPrefixReference& value) {
  std::string text;
  appendPrefix(text, value);
  return out << text;
}

std::ostream& operator<<(std::ostream& out, const FMT<bool>& value) {
  return out << (value.value ? "true" : "false");
}

std::ostream& operator<<(std::ostream& out, const FMT<signed char>& value) { return out << int{value.value}; }

std::ostream& operator<<(std::ostream& out, const FMT<unsigned char>& value) {
  return out << int{value.value};
}

std::ostream& operator<<(std::ostream& out, const FMT<StringValueReference>& value) {
  std::string text;
  appendQuoted(text, value.value.view());
  return out << text;
}

}  // namespace Tavro
