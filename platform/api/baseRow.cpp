#include "Tavro/baseRow.h"

#include <array>

namespace Tavro {

namespace {

std::string sizeMessage(const char* what, std::size_t length, unsigned limit) {
  return std::string(what) + " of " + std::to_string(length) + " bytes exceeds the limit of " +
         std::to_string(limit) + " bytes";
}

}  // namespace

void BaseRow::getColumn(len_t offset, IpGenPrefix& value) const {
  IpGenPrefixReference view;
  getColumn(offset, view);
  value = IpGenPrefix(view.family(), view.bytes(), view.mask());
}

void BaseRow::setColumn(len_t offset, const StringValueReference& value, len_t fdLen) {
  setPayload(offset, reinterpret_cast<const unsigned char*>(value.bytes()), value.length(), fdLen);
}

void BaseRow::setColumn(len_t offset, const IpGenAddrReference& value, len_t fdLen) {
  setPayload(offset, value.bytes(), encodeLength(value), fdLen);
}

void BaseRow::setColumn(len_t offset, const IpGenPrefixReference& value, len_t fdLen) {
  std::array<unsigned char, 17> payload;
  const unsigned short length = encodeLength(value);
  if (length != 0) {
    std::memcpy(payload.data(), value.bytes(), length - 1U);
    payload[length - 1U] = value.mask();
  }
  setPayload(offset, payload.data(), length, fdLen);
}

void BaseRow::setColumn(len_t offset, const std::string& value, len_t fdLen) {
  setPayload(offset, reinterpret_cast<const unsigned char*>(value.data()), value.size(), fdLen);
}

void BaseRow::setColumn(len_t offset, const IpGenAddr& value, len_t fdLen) {
  setColumn(offset, IpGenAddrReference(value.bytes(), value.family()), fdLen);
}

void BaseRow::setColumn(len_t offset, const IpGenPrefix& value, len_t fdLen) {
  setColumn(offset, IpGenPrefixReference(value.bytes(), value.family(), value.mask()), fdLen);
}

void BaseRow::setPayload(len_t offset, const unsigned char* bytes, std::size_t length, len_t fdLen) {
  checkWrite(fdLen);
  if (row_.use_count() != 1) takePrivateBuffer();
  // Keeps `bytes` alive when they lie in this row and the row has to grow.
  const TvPtr<TvRowBuf> source = row_;
  len_t dataOffset = 0;
  if (length != 0) {
    dataOffset = makeFreeSpace(offset, length, fdLen);
    std::memmove(row_->buffer + dataOffset, bytes, length);
  } else if (const PayloadRoom room = roomOf(offset); room.size != 0) {
    keepRoom(room);
  }
  unsigned char* const slot = row_->buffer + offset;
  storeBytes(slot, dataOffset);
  slot[2] = static_cast<unsigned char>(length);
  slot[3] = static_cast<unsigned char>(length >> 8 | 0x80U);
}

len_t BaseRow::makeFreeSpace(len_t offset, std::size_t length, len_t /*fdLen*/) {
  if (length > tv_maxPayloadLength) throw TvOutOfRange(sizeMessage("payload", length, tv_maxPayloadLength));
  rwRowBuf();
  const PayloadRoom room = roomOf(offset);
  const bool isLast = room.size != 0 && room.dataOffset + room.size == this->length();
  if (length <= room.size) {
    if (isLast) {
      // The row ends with its last payload.
      forgetRoom(offset);
      storeBytes(row_->buffer, static_cast<len_t>(room.dataOffset + length));
    } else if (length < room.size) {
      keepRoom(room);
    }
    return room.dataOffset;
  }

  const len_t dataOffset = isLast ? room.dataOffset : this->length();
  const auto grown = static_cast<unsigned>(dataOffset + length);
  if (grown > tv_maxRowLength) throw TvOutOfRange(sizeMessage("row", grown, tv_maxRowLength));
  growTo(grown);
  forgetRoom(offset);
  return dataOffset;
}

PayloadRoom BaseRow::roomOf(len_t offset) const {
  const Payload present = payloadAt(offset);
  const auto dataOffset = static_cast<len_t>(present.bytes - row_->buffer);
  if (row_->spacious != nullptr)
    for (const PayloadRoom& room : *row_->spacious)
      if (room.column == offset && (present.length == 0 || room.dataOffset == dataOffset)) return room;
  return {offset, dataOffset, present.length};
}

void BaseRow::keepRoom(const PayloadRoom& room) {
  if (row_->spacious == nullptr) row_->spacious = std::make_unique<std::vector<PayloadRoom>>();
  for (PayloadRoom& known : *row_->spacious) {
    if (known.column != room.column) continue;
    known = room;
    return;
  }
  row_->spacious->push_back(room);
}

void BaseRow::forgetRoom(len_t offset) noexcept {
  if (row_->spacious != nullptr)
    std::erase_if(*row_->spacious, [&](const PayloadRoom& room) { return room.column == offset; });
}

void BaseRow::storeInPrivate(len_t offset, const void* bytes, std::size_t width) {
  takePrivateBuffer();
  std::memcpy(row_->buffer + offset, bytes, width);
}

void BaseRow::takePrivateBuffer() { growTo(length()); }

void BaseRow::growTo(unsigned length) {
  const auto newLength = static_cast<len_t>(length);
  // An array may be indexed at its count, so a row that has payloads has room for one element more.
  TvPtr<TvRowBuf> grown = makeRowBuffer(newLength, rowType(), sizeof(Ip6Addr));
  std::memcpy(grown->buffer, row_->buffer, this->length());
  storeBytes(grown->buffer, newLength);
  if (row_->spacious != nullptr)
    grown->spacious = std::make_unique<std::vector<PayloadRoom>>(*row_->spacious);
  row_ = std::move(grown);
}

}  // namespace Tavro
