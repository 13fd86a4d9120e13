#include <array>
#include <charconv>
#include <concepts>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Tavro/tvMetadata.h"
#include "textForms.h"

namespace Tavro {

namespace {

// A text to be read and the name of the type that it has to be of.
struct Source {
  std::string_view text;
  std::string_view typeName;

  [[noreturn]] void refuse(const char* why) const {
    throw std::invalid_argument(quoteForMessage(text) + " " + why + " " + std::string(typeName));
  }
  [[noreturn]] void isNone() const { refuse("is no"); }
  [[noreturn]] void doesNotFit() const { refuse("does not fit"); }
};

// Calls `use` with the C++ type that columns of the type are read and written as.
template <typename Use>
decltype(auto) withColumnType(unsigned short type, Use&& use) {
  switch (static_cast<TavroTypes>(type)) {
    case TypeUint8:
      return use(std::type_identity<unsigned char>());
    case TypeUint16:
    case TypePort:
      return use(std::type_identity<unsigned short>());
    case TypeUint32:
    case TypeTime:
      return use(std::type_identity<unsigned int>());
    case TypeUint64:
      return use(std::type_identity<unsigned long long>());
    case TypeInt8:
      return use(std::type_identity<signed char>());
    case TypeInt16:
      return use(std::type_identity<short>());
    case TypeInt32:
      return use(std::type_identity<int>());
    case TypeInt64:
      return use(std::type_identity<long long>());
    case TypeFloat:
      return use(std::type_identity<float>());
    case TypeDouble:
      return use(std::type_identity<double>());
    case TypeBool:
      return use(std::type_identity<bool>());
    case TypeString:
      return use(std::type_identity<StringValueReference>());
    case TypeIpAddr:
      return use(std::type_identity<IpAddr>());
    case TypeIp6Addr:
      return use(std::type_identity<Ip6Addr>());
    case TypeIpGenAddr:
      return use(std::type_identity<IpGenAddrReference>());
    case TypeIpGenPrefix:
      return use(std::type_identity<IpGenPrefixReference>());
  }
  throw TvOutOfRange(noSuchType(type));
}

// ---- reading: readFixed gives the value of a fixed-width type, appendPayload the bytes of a variable one.

template <std::integral T>
void readFixed(const Source& source, T& value) {
  std::string_view digits = source.text;
  const bool negative = digits.starts_with('-');
  if (negative) digits.remove_prefix(1);
  const bool hex = digits.starts_with("0x") || digits.starts_with("0X");
  if (hex) digits.remove_prefix(2);

  unsigned long long magnitude = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, hex ? 16 : 10);
  if (error == std::errc::invalid_argument || stop != end) source.isNone();

  constexpr auto largest = static_cast<unsigned long long>(std::numeric_limits<T>::max());
  constexpr unsigned long long largestNegative = std::is_signed_v<T> ? largest + 1 : 0;
  if (error != std::errc() || magnitude > (negative ? largestNegative : largest)) source.doesNotFit();
  value = static_cast<T>(negative ? 0 - magnitude : magnitude);
}

template <std::floating_point T>
void readFixed(const Source& source, T& value) {
  const char* const end = source.text.data() + source.text.size();
  const auto [stop, error] = std::from_chars(source.text.data(), end, value);
  if (error == std::errc::invalid_argument || stop != end) source.isNone();
  if (error != std::errc()) source.doesNotFit();
}

void readFixed(const Source& source, bool& value) {
  value = source.text == "true";
  if (!value && source.text != "false") source.isNone();
}

template <typename T, AddressFamily family>
void readFixedAddress(const Source& source, T& value) {
  std::array<unsigned char, sizeof(T)> bytes;
  if (!readAddress(source.text, family, bytes.data())) source.isNone();
  value = loadBytes<T>(bytes.data());
}

void readFixed(const Source& source, IpAddr& value) { readFixedAddress<IpAddr, Ipv4Family>(source, value); }
void readFixed(const Source& source, Ip6Addr& value) { readFixedAddress<Ip6Addr, Ipv6Family>(source, value); }

void appendBytes(std::string& payload, const unsigned char* bytes, std::size_t length) {
  payload.append(reinterpret_cast<const char*>(bytes), length);
}

// What stands between the outer quotes.
std::string_view insideQuotes(const Source& source) {
  const std::string_view text = source.text;
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') source.isNone();
  return text.substr(1, text.size() - 2);
}

void appendPayload(const Source& source, std::string& payload, std::type_identity<StringValueReference>) {
  const std::string_view text = insideQuotes(source);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\');
    if (escape) ++i;
    payload += text[i];
  }
}

void appendPayload(const Source& source, std::string& payload, std::type_identity<IpGenAddrReference>) {
  const std::optional<IpGenAddr> address = parseGenAddr(source.text);
  if (!address) source.isNone();
  appendBytes(payload, address->bytes(), addressLength(address->family()));
}

void appendPayload(const Source& source, std::string& payload, std::type_identity<IpGenPrefixReference>) {
  const std::optional<IpGenPrefix> prefix = parseGenPrefix(source.text);
  if (!prefix) source.isNone();
  if (prefix->family() == NoAddress) return;
  appendBytes(payload, prefix->bytes(), addressLength(prefix->family()));
  payload += static_cast<char>(prefix->mask());
}

// A value that stands alone: what is between the quotes of a string is taken as it is.
void appendScalar(const Source& source, std::string& payload, std::type_identity<StringValueReference>) {
  payload = insideQuotes(source);
}
template <typename T>
void appendScalar(const Source& source, std::string& payload, std::type_identity<T> type) {
  appendPayload(source, payload, type);
}

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return text.substr(text.size());
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// Where the string that begins with the quote at `begin` ends, one behind its closing quote; npos when
// nothing closes it.
std::size_t endOfString(std::string_view text, std::size_t begin) {
  for (std::size_t i = begin + 1; i < text.size(); ++i) {
    if (text[i] == '"') return i + 1;
    if (text[i] == '\\') ++i;
  }
  return std::string_view::npos;
}

// Hands out the element texts of an array text in turn.
class ElementTexts {
 public:
  ElementTexts(const Source& array, bool isString) : array_(array), isString_(isString), rest_(array.text) {
    const bool isQuoted = rest_ == "\"\"" || (rest_.starts_with("\"[") && rest_.ends_with("]\""));
    if (isString && isQuoted) rest_ = rest_.substr(1, rest_.size() - 2);
    if (rest_.empty()) return;
    if (rest_.size() < 2 || rest_.front() != '[' || rest_.back() != ']') array_.isNone();
    rest_ = withoutBlanks(rest_.substr(1, rest_.size() - 2));
    more_ = !rest_.empty();
  }

  bool more() const { return more_; }

  std::string_view next() {
    const std::size_t comma = rest_.find(',', isString_ ? stringEnd() : 0);
    const std::string_view element = withoutBlanks(rest_.substr(0, comma));
    more_ = comma != std::string_view::npos;
    rest_ = more_ ? rest_.substr(comma + 1) : std::string_view();
    return element;
  }

 private:
  // Behind the string that comes next; between it and the comma stand only blanks.
  std::size_t stringEnd() const {
    const std::size_t begin = rest_.find_first_not_of(' ');
    if (begin == std::string_view::npos || rest_[begin] != '"') array_.isNone();
    const std::size_t end = endOfString(rest_, begin);
    if (end == std::string_view::npos) array_.isNone();
    const std::size_t next = rest_.find_first_not_of(' ', end);
    if (next != std::string_view::npos && rest_[next] != ',') array_.isNone();
    return end;
  }

  const Source& array_;
  bool isString_;
  std::string_view rest_;
  bool more_ = false;
};

template <typename T>
void appendElement(const Source& source, std::string& payload) {
  if constexpr (isFixedColumn<T>) {
    T value;
    readFixed(source, value);
    std::array<unsigned char, sizeof(T)> bytes;
    storeBytes(bytes.data(), value);
    appendBytes(payload, bytes.data(), bytes.size());
  } else {
    constexpr bool isString = std::is_same_v<T, StringValueReference>;
    const bool isNoAddress = !isString && source.text == "\"\"";
    appendPayload(isNoAddress ? Source{{}, source.typeName} : source, payload, std::type_identity<T>());
  }
}

void appendWord(std::string& payload, std::size_t word) {
  payload += static_cast<char>(word & 0xFF);
  payload += static_cast<char>(word >> 8 & 0xFF);
}

// The payload of the array; empty for an array without elements.
template <typename T>
std::string readArray(const Source& array, std::string_view elementTypeName) {
  std::string elements;
  std::vector<std::size_t> ends;
  ElementTexts texts(array, std::is_same_v<T, StringValueReference>);
  unsigned count = 0;
  for (; texts.more(); ++count) {
    if (count == arrayMaxCount)
      throw std::invalid_argument("more than " + std::to_string(arrayMaxCount) + " elements for " +
                                  std::string(array.typeName));
    appendElement<T>({texts.next(), elementTypeName}, elements);
    if constexpr (isVariableType<T>) ends.push_back(elements.size());
  }
  if (count == 0) return {};

  std::string payload;
  payload.reserve(arrayCountWidth + 2 * ends.size() + elements.size());
  appendWord(payload, count);
  for (const std::size_t end : ends) appendWord(payload, end);
  return payload += elements;
}

void storePayload(BaseRow& row, len_t offset, const std::string& payload, len_t fdLen) {
  row.setPayload(offset, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), fdLen);
}

// ---- printing

template <typename T>
requires std::is_arithmetic_v<T>
void print(std::string& out, T value) {
  if constexpr (std::is_floating_point_v<T>) {
    if (value != value) {
      out += "nan";
      return;
    }
  }
  std::array<char, 32> text;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
  out.append(text.data(), end);
}

void print(std::string& out, bool value) { out += value ? "true" : "false"; }
void print(std::string& out, const IpAddr& value) { appendAddress(out, Ipv4Family, value.bytes()); }
void print(std::string& out, const Ip6Addr& value) { appendAddress(out, Ipv6Family, value.bytes()); }
void print(std::string& out, const StringValueReference& value) { appendQuoted(out, value.view()); }
void print(std::string& out, const IpGenAddrReference& value) {
  appendAddress(out, value.family(), value.bytes());
}
void print(std::string& out, const IpGenPrefixReference& value) { appendPrefix(out, value); }

template <typename T>
std::string arrayText(const ArrayReference<T>& array) {
  std::string out = "[";
  const unsigned count = array.count();
  for (unsigned i = 0; i < count; ++i) {
    if (i != 0) out += ',';
    print(out, array[i]);
  }
  // A single element without text would read back as no element.
  if (count == 1 && out.size() == 1) out += "\"\"";
  return out += ']';
}

}  // namespace

void storeColumnFromString(BaseRow& row, unsigned short offset, unsigned short type,
                           unsigned int /*structType*/, bool isArray, const std::string& text,
                           unsigned short fdLen) {
  withColumnType(type, [&]<typename T>(std::type_identity<T>) {
    const std::string& typeName = getTavroTypeName(static_cast<TavroTypes>(type));
    if (isArray) {
      const std::string arrayName = typeName + "[]";
      storePayload(row, offset, readArray<T>({text, arrayName}, typeName), fdLen);
    } else if constexpr (isFixedColumn<T>) {
      T value;
      readFixed({text, typeName}, value);
      row.setColumn(offset, value, fdLen);
    } else {
      std::string payload;
      appendScalar({text, typeName}, payload, std::type_identity<T>());
      storePayload(row, offset, payload, fdLen);
    }
  });
}

std::string columnToString(const BaseRow& row, unsigned short offset, unsigned short type, bool isArray,
                           bool quoted) {
  return withColumnType(type, [&]<typename T>(std::type_identity<T>) {
    if (isArray) {
      ArrayReference<T> array;
      row.getColumn(offset, array);
      return arrayText(array);
    }
    T value;
    row.getColumn(offset, value);
    if constexpr (std::is_same_v<T, StringValueReference>) {
      const std::string text(value.view());
      return quoted ? '"' + text + '"' : text;
    }
    std::string out;
    print(out, value);
    return out;
  });
}

}  // namespace Tavro
