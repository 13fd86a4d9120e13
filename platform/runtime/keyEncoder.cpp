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
void appendBigEndian(Unsigned value, KeyBuffer& key) {
  unsigned char* const to = key.extend(sizeof(Unsigned));
  if constexpr (sizeof(Unsigned) == 1) {
    *to = value;
  } else if constexpr (sizeof(Unsigned) == 2) {
    storeBytes(to, __builtin_bswap16(value));
  } else if constexpr (sizeof(Unsigned) == 4) {
    storeBytes(to, __builtin_bswap32(value));
  } else {
    storeBytes(to, __builtin_bswap64(value));
  }
}

template <typename Unsigned>
constexpr Unsigned signBit = static_cast<Unsigned>(Unsigned{1} << (8 * sizeof(Unsigned) - 1));

template <typename Unsigned>
void appendSigned(const unsigned char* from, KeyBuffer& key) {
  appendBigEndian(static_cast<Unsigned>(loadBytes<Unsigned>(from) ^ signBit<Unsigned>), key);
}

template <typename Float, typename Unsigned>
void appendFloat(const unsigned char* from, KeyBuffer& key) {
  const auto value = loadBytes<Float>(from);
  auto bits = loadBytes<Unsigned>(from);
  if (value != value)
    bits = static_cast<Unsigned>(-1);
  else if (value == 0)
    bits = signBit<Unsigned>;
  else
    bits = (bits & signBit<Unsigned>) != 0 ? static_cast<Unsigned>(~bits) : bits | signBit<Unsigned>;
  appendBigEndian(bits, key);
}

void appendFixed(unsigned short type, const unsigned char* from, KeyBuffer& key) {
  switch (type) {
    case TypeUint8:
      return key.append(*from);
    case TypeBool:
      return key.append(*from != 0 ? 1 : 0);
    case TypeUint16:
    case TypePort:
      return appendBigEndian(loadBytes<std::uint16_t>(from), key);
    case TypeUint32:
    case TypeTime:
      return appendBigEndian(loadBytes<std::uint32_t>(from), key);
    case TypeUint64:
      return appendBigEndian(loadBytes<std::uint64_t>(from), key);
    case TypeInt8:
      return appendSigned<std::uint8_t>(from, key);
    case TypeInt16:
      return appendSigned<std::uint16_t>(from, key);
    case TypeInt32:
      return appendSigned<std::uint32_t>(from, key);
    case TypeInt64:
      return appendSigned<std::uint64_t>(from, key);
    case TypeFloat:
      return appendFloat<float, std::uint32_t>(from, key);
    case TypeDouble:
      return appendFloat<double, std::uint64_t>(from, key);
    default:
      return key.append(from, getTavroTypeLength(type));
  }
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
      appendFixed(type, element, key);
    }
  }
  key.append(0x00);
}

}  // namespace

KeyEncoder::KeyEncoder(const std::vector<tvMetadata::tvColumn>& columns) {
  for (const tvMetadata::tvColumn& column : columns)
    fields_.push_back({column.tvType(), column.offset(), column.isArray(), isVariableColumn(column)});
}

void KeyEncoder::append(const BaseRow& row, KeyBuffer& key) const {
  const unsigned char* const bytes = row.rowBuf();
  for (const Field& field : fields_) {
    if (!field.isVariable)
      appendFixed(field.type, bytes + field.offset, key);
    else if (field.isArray)
      appendArray(field.type, payloadAt(bytes, field.offset), key);
    else
      appendVariable(field.type, payloadAt(bytes, field.offset), key);
  }
}

}  // namespace Tavro
