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
  prepareWrite(fdLen);
  // Keeps `bytes` alive when they lie in this row and the row has to grow.
  const TvPtr<TvRowBuf> source = row_;
  len_t dataOffset = 0;
  if (length != 0) {
    dataOffset = makeFreeSpace(offset, length, fdLen);
    std::memmove(row_->buffer + dataOffset, bytes, length);
  }
  unsigned char* const slot = row_->buffer + offset;
  storeBytes(slot, dataOffset);
  slot[2] = static_cast<unsigned char>(length);
  slot[3] = static_cast<unsigned char>(length >> 8 | 0x80U);
}

len_t BaseRow::makeFreeSpace(len_t offset, std::size_t length, len_t /*fdLen*/) {
  if (length > tv_maxPayloadLength) throw TvOutOfRange(sizeMessage("payload", length, tv_maxPayloadLength));
  const unsigned char* const start = rwRowBuf();
  const Payload present = payloadAt(offset);
  const auto presentOffset = static_cast<len_t>(present.bytes - start);
  const bool isLast = present.length != 0 && presentOffset + present.length == this->length();
  if (length <= present.length) {
    // The row ends with its last payload, or one that is now longer, now shorter would not be the last any
    // more when it grows, and the row would grow with every turn.
    if (isLast) storeBytes(rwRowBuf(), static_cast<len_t>(presentOffset + length));
    return presentOffset;
  }

  const len_t dataOffset = isLast ? presentOffset : this->length();
  const auto grown = static_cast<unsigned>(dataOffset + length);
  if (grown > tv_maxRowLength) throw TvOutOfRange(sizeMessage("row", grown, tv_maxRowLength));
  growTo(grown);
  return dataOffset;
}

void BaseRow::takePrivateBuffer() { growTo(length()); }

void BaseRow::growTo(unsigned length) {
  const auto newLength = static_cast<len_t>(length);
  TvPtr<TvRowBuf> grown = allocate(newLength);
  std::memcpy(grown->buffer, row_->buffer, this->length());
  storeBytes(grown->buffer, newLength);
  row_ = std::move(grown);
}

}  // namespace Tavro
