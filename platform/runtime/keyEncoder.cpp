#include "keyEncoder.h"

#include <type_traits>

#include "rowShape.h"

namespace Tavro {
namespace {

struct Payload {
  const unsigned char* bytes;
  unsigned length;
};

Payload payloadAt(const unsigned char* row, len_t offset) {
  const unsigned char* const slot = row + offset;
  return {row + loadBytes<std::uint16_t>(slot), slot[2] | (slot[3] & 0x7FU) << 8};
}

template <typename Unsigned>
constexpr Unsigned signBit = static_cast<Unsigned>(Unsigned{1} << (8 * sizeof(Unsigned) - 1));

template <typename Unsigned>
std::uint64_t signedNumber(const unsigned char* from) {
  return static_cast<Unsigned>(loadBytes<Unsigned>(from) ^ signBit<Unsigned>);
}

template <typename Float, typename Unsigned>
std::uint64_t floatNumber(const unsigned char* from) {
  const auto value = loadBytes<Float>(from);
  const auto bits = loadBytes<Unsigned>(from);
  if (value != value) return static_cast<Unsigned>(-1);
  if (value == 0) return signBit<Unsigned>;
  return (bits & signBit<Unsigned>) != 0 ? static_cast<Unsigned>(~bits) : bits | signBit<Unsigned>;
}

// A value of at most 8 bytes as a number of its width that orders as the values do.
std::uint64_t orderedNumber(unsigned short type, const unsigned char* from) {
  switch (type) {
    case TypeUint8:
      return *from;
    case TypeBool:
      return *from != 0 ? 1 : 0;
    case TypeUint16:
    case TypePort:
      return loadBytes<std::uint16_t>(from);
    case TypeUint32:
    case TypeTime:
      return loadBytes<std::uint32_t>(from);
    case TypeUint64:
      return loadBytes<std::uint64_t>(from);
    case TypeInt8:
      return signedNumber<std::uint8_t>(from);
    case TypeInt16:
      return signedNumber<std::uint16_t>(from);
    case TypeInt32:
      return signedNumber<std::uint32_t>(from);
    case TypeInt64:
      return signedNumber<std::uint64_t>(from);
    case TypeFloat:
      return floatNumber<float, std::uint32_t>(from);
    case TypeDouble:
      return floatNumber<double, std::uint64_t>(from);
    default:
      // An IPv4 address.
      return __builtin_bswap32(loadBytes<std::uint32_t>(from));
  }
}

// The same at the head of 8 bytes.
std::uint64_t headOf(unsigned short type, const unsigned char* from, unsigned width) {
  return orderedNumber(type, from) << 8 * (sizeof(std::uint64_t) - width);
}

void appendFixed(unsigned short type, const unsigned char* from, unsigned width, KeyBuffer& key) {
  if (width <= sizeof(std::uint64_t))
    key.appendFirst(headOf(type, from, width), width);
  else
    key.append(from, width);
}

void appendString(const Payload& text, KeyBuffer& key) {
  for (unsigned i = 0; i < text.length;) {
    const void* const zero = std::memchr(text.bytes + i, 0, text.length - i);
    const unsigned end = zero == nullptr
                             ? text.length
                             : static_cast<unsigned>(static_cast<const unsigned char*>(zero) - text.bytes);
    key.append(text.bytes + i, end - i);
    i = end;
    if (zero != nullptr) {
      key.append(0x00);
      key.append(0xFF);
      ++i;
    }
  }
  key.append(0x00);
  key.append(0x00);
}

// The family follows from the length; a payload of any other length is no address.
template <typename Reference>
void appendAddress(const Payload& payload, KeyBuffer& key) {
  const auto value = viewOfPayload<Reference>(payload.bytes, payload.length);
  key.append(value.family());
  key.append(payload.bytes, value.family() == NoAddress ? 0 : payload.length);
}

void appendVariable(unsigned short type, const Payload& payload, KeyBuffer& key) {
  if (type == TypeString)
    appendString(payload, key);
  else if (type == TypeIpGenAddr)
    appendAddress<IpGenAddrReference>(payload, key);
  else
    appendAddress<IpGenPrefixReference>(payload, key);
}

void appendArray(unsigned short type, const Payload& payload, KeyBuffer& key) {
  const unsigned count = payload.length == 0 ? 0U : loadBytes<std::uint16_t>(payload.bytes) & arrayMaxCount;
  const bool variable = isVariableWidth(type);
  const unsigned stride = variable ? 2U : getTavroTypeLength(type);
  const unsigned char* element = payload.bytes + arrayCountWidth;
  const unsigned char* const variablePart = element + std::size_t{2} * count;
  unsigned begin = 0;
  for (unsigned i = 0; i < count; ++i, element += stride) {
    key.append(0x01);
    if (variable) {
      const unsigned end = loadBytes<std::uint16_t>(element);
      appendVariable(type, {variablePart + begin, end - begin}, key);
      begin = end;
    } else {
      appendFixed(type, element, stride, key);
    }
  }
  key.append(0x00);
}

}  // namespace

KeyEncoder::KeyEncoder(const std::vector<tvMetadata::tvColumn>& columns) {
  for (const tvMetadata::tvColumn& column : columns)
    fields_.push_back(
        {column.tvType(), column.offset(), column.length(), column.isArray(), isVariableColumn(column)});
  const Field& first = fields_.front();
  isShort_ = fields_.size() == 1 && !first.isVariable && first.width <= sizeof(EncodedKey::high);
}

std::uint64_t KeyEncoder::shortKey(const BaseRow& row) const {
  const Field& field = fields_.front();
  return headOf(field.type, row.rowBuf() + field.offset, field.width);
}

void KeyEncoder::append(const BaseRow& row, KeyBuffer& key) const {
  const unsigned char* const bytes = row.rowBuf();
  for (const Field& field : fields_) {
    if (!field.isVariable)
      appendFixed(field.type, bytes + field.offset, field.width, key);
    else if (field.isArray)
      appendArray(field.type, payloadAt(bytes, field.offset), key);
    else
      appendVariable(field.type, payloadAt(bytes, field.offset), key);
  }
}

}  // namespace Tavro
