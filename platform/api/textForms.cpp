#include "textForms.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>

namespace Tavro {

std::string quoteForMessage(std::string_view text) {
  constexpr std::string_view hexDigits = "0123456789abcdef";
  std::string out = "'";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F)
      out += c;
    else
      (out.append("\\x") += hexDigits[byte >> 4]) += hexDigits[byte & 0x0F];
  }
  return out += '\'';
}

std::string noSuchType(int code) { return "no column type has code " + std::to_string(code); }

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

bool readAddress(std::string_view text, AddressFamily family, unsigned char* bytes) {
  std::array<char, INET6_ADDRSTRLEN> terminated{};
  if (text.size() >= terminated.size() || text.find('\0') != std::string_view::npos) return false;
  text.copy(terminated.data(), text.size());
  return inet_pton(family == Ipv4Family ? AF_INET : AF_INET6, terminated.data(), bytes) == 1;
}

std::optional<IpGenAddr> parseGenAddr(std::string_view text) {
  if (text.empty()) return IpGenAddr();
  const AddressFamily family = text.find(':') == std::string_view::npos ? Ipv4Family : Ipv6Family;
  std::array<unsigned char, 16> bytes;
  if (!readAddress(text, family, bytes.data())) return std::nullopt;
  return IpGenAddr(family, bytes.data());
}

std::optional<IpGenPrefix> parseGenPrefix(std::string_view text) {
  if (text.empty()) return IpGenPrefix();
  const std::size_t slash = text.find('/');
  const std::optional<IpGenAddr> address = parseGenAddr(text.substr(0, slash));
  if (!address || address->family() == NoAddress) return std::nullopt;
  const unsigned width = 8 * addressLength(address->family());
  unsigned mask = width;
  if (slash != std::string_view::npos) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, mask);
    if (error != std::errc() || stop != end || mask > width) return std::nullopt;
  }
  return IpGenPrefix(address->family(), address->bytes(), static_cast<unsigned char>(mask));
}

// inet_ntop writes IPv6 addresses as RFC 5952 asks for: lower case, the first longest run of two or more zero
// groups shortened, and the last 32 bits behind zeros alone, or zeros and ffff, as a dotted quad.
void appendAddress(std::string& out, unsigned char family, const unsigned char* bytes) {
  if (addressLength(family) == 0) return;
  std::array<char, INET6_ADDRSTRLEN> text;
  out += inet_ntop(family == Ipv4Family ? AF_INET : AF_INET6, bytes, text.data(), text.size());
}

void appendPrefix(std::string& out, const IpGenPrefixReference& prefix) {
  if (addressLength(prefix.family()) == 0) return;
  appendAddress(out, prefix.family(), prefix.bytes());
  out.append("/").append(std::to_string(prefix.mask()));
}

}  // namespace Tavro
