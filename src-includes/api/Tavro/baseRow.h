#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "Tavro/arrayReference.h"
#include "Tavro/export.h"
#include "Tavro/tvAssert.h"
#include "Tavro/tvExceptions.h"
#include "Tavro/tvPtr.h"
#include "Tavro/types.h"
#include "Tavro/values.h"

// The row: a handle onto a shared byte buffer of a fixed format (little-endian, nothing aligned):
//
//   offset  width
//   0       u16    length of the buffer in bytes, fixed and variable part together
//   2       u16    row-type id of the table that the row belongs to
//   4       u32    class id; on a class's metadata row its row-type id
//   8       ...    fixed part: every column at its offset, up to the table's fixed length
//   ...     ...    variable part: the payloads of variable columns
//
// A fixed-width column stands in place. A variable column (string, general address, general prefix, any
// array) stands in place as a 4-byte slot:
//
//   byte 0, 1   u16, offset of the payload from the start of the buffer
//   byte 2      low 8 bits of the payload's length
//   byte 3      bits 0 to 6 high bits of the length; bit 7 is set by every write and ignored by every read
//
// A string's payload is its bytes, a general address's its 4 or 16 address bytes, a general prefix's the
// address bytes and one byte of mask length; no address and the empty string have none.
namespace Tavro {

inline constexpr len_t tv_contentOffset = 8;
inline constexpr len_t tv_rowTypeOffset = 2;
inline constexpr len_t tv_classIdOffset = 4;
inline constexpr unsigned tv_maxRowLength = 65535;
inline constexpr unsigned tv_maxPayloadLength = 32767;

// Unaligned access to bytes of rows.
template <typename T>
inline T loadBytes(const unsigned char* from) {
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}
template <>
inline bool loadBytes<bool>(const unsigned char* from) {
  return *from != 0;
}
template <typename T>
inline void storeBytes(unsigned char* to, const T& value) {
  std::memcpy(to, &value, sizeof(T));
}

// Bytes of a row that belong to one variable column: its payload, and what a shorter one leaves unused.
struct PayloadRoom {
  len_t column;
  len_t dataOffset;
  len_t size;
};

// The buffer of one row. Made by makeRowBuffer only.
struct TAVRO_EXPORT TvRowBuf {
  explicit TvRowBuf(unsigned char* bytes) : buffer(bytes) {}
  TvRowBuf(const TvRowBuf&) = delete;
  TvRowBuf& operator=(const TvRowBuf&) = delete;

  unsigned char* buffer;
  // The columns whose room is larger than their payload; null, as for most rows, when there are none. Without
  // it, a row whose payloads grow and shrink in turn would lose room with every turn.
  std::unique_ptr<std::vector<PayloadRoom>> spacious{};
};

// A buffer of `len` bytes, at least 8, with one owner: counts, object and bytes in one block. Length and row
// type stand in it, all else is zero, as are `beyond` more bytes behind it. Throws std::bad_alloc.
TAVRO_EXPORT TvPtr<TvRowBuf> makeRowBuffer(len_t len, len_t rowType, std::size_t beyond = 0);

// True for the column types that stand in place.
template <typename T>
inline constexpr bool isFixedColumn =
    std::is_arithmetic_v<T> || std::is_same_v<T, IpAddr> || std::is_same_v<T, Ip6Addr>;

// A handle onto a row. Copies share the buffer; the first write through a handle whose buffer is shared takes
// a private copy. A null row says that there is no row: it reads as the null value of every type and cannot
// be written to. Accessors test neither offsets nor types.
//
// The virtual operations are final: rows are held and read by value, and the accessors have to inline.
class TAVRO_EXPORT BaseRow {
 public:
  // The null row.
  BaseRow() : row_(static_cast<TvRowBuf*>(nullptr)) {}
  // A row of `len` bytes and a row type, zeroed otherwise. Asserts that `len` has room for the header.
  explicit BaseRow(len_t len, len_t rowType = 0) : row_(allocate(len, rowType)) {}
  BaseRow(const BaseRow&) = default;
  BaseRow(BaseRow&& other) noexcept : row_(std::move(other.row_)) {}
  BaseRow& operator=(const BaseRow&) = default;
  BaseRow& operator=(BaseRow&& other) noexcept {
    row_ = std::move(other.row_);
    return *this;
  }

  // The first byte of the buffer; null for a null row.
  virtual const unsigned char* rowBuf() const final { return row_ ? row_->buffer : nullptr; }
  // The first byte of the buffer, for writing, shared or not. Throws TvNullRow on a null row.
  virtual unsigned char* rwRowBuf() final {
    if (isNull()) [[unlikely]]
      throw TvNullRow();
    return row_->buffer;
  }
  virtual ~BaseRow() = default;
  virtual bool isNull() const final { return row_.get() == nullptr; }

  // Header fields. Must not be called on a null row.
  len_t length() const { return loadBytes<len_t>(row_->buffer); }
  len_t rowType() const { return loadBytes<len_t>(row_->buffer + tv_rowTypeOffset); }
  // Writes the row type straight into the buffer, shared or not. Throws TvNullRow on a null row.
  void rowTypeIs(len_t type) { storeBytes(rwRowBuf() + tv_rowTypeOffset, type); }

  // Has the buffer fetched into the cache, for a row that is read soon.
  void prefetch() const { __builtin_prefetch(row_.get()); }

  // Handles that share the buffer, this one included.
  long useCount() const { return row_.use_count(); }
  void swap(BaseRow& other) noexcept { row_.swap(other.row_); }

  // Reads the column at `offset`; on a null row `value` becomes the type's null value. Views stay valid as
  // long as the buffer lasts and no write moves their payload.
  template <typename T>
  void getColumn(len_t offset, T& value) const {
    static_assert(isFixedColumn<T> || isVariableType<T>);
    if (isNull()) {
      setToNull(value);
    } else if constexpr (isFixedColumn<T>) {
      value = loadBytes<T>(row_->buffer + offset);
    } else {
      const Payload found = payloadAt(offset);
      value = viewOfPayload<T>(found.bytes, found.length);
    }
  }
  template <typename T>
  void getColumn(len_t offset, ArrayReference<T>& value) const {
    value = ArrayReference<T>();
    if (isNull()) return;
    const Payload found = payloadAt(offset);
    if (found.length != 0) value = ArrayReference<T>(found.bytes, found.length);
  }
  void getColumn(len_t offset, IpGenPrefix& value) const;

  // Writes the column at `offset` after taking a private copy of a shared buffer. `fdLen`, the length of the
  // fixed part, must not be 0 (asserted). The value may be a view into this very row. Throws TvNullRow on a
  // null row and TvOutOfRange when a payload or the row would grow beyond its limit; the columns are then as
  // they were.
  template <typename T>
  void setColumn(len_t offset, const T& value, len_t fdLen) {
    static_assert(isFixedColumn<T>);
    checkWrite(fdLen);
    if (row_.use_count() == 1) [[likely]]
      storeBytes(row_->buffer + offset, value);
    else
      storeInPrivate(offset, &value, sizeof value);
  }
  // The same for a row that is known not to be null, and its buffer to have no other owner.
  template <typename T>
  void setOwnColumn(len_t offset, const T& value) {
    static_assert(isFixedColumn<T>);
    storeBytes(row_->buffer + offset, value);
  }
  template <typename T>
  void setColumn(len_t offset, const ArrayReference<T>& value, len_t fdLen) {
    setPayload(offset, value.payload(), value.length(), fdLen);
  }
  void setColumn(len_t offset, const StringValueReference& value, len_t fdLen);
  void setColumn(len_t offset, const IpGenAddrReference& value, len_t fdLen);
  void setColumn(len_t offset, const IpGenPrefixReference& value, len_t fdLen);
  void setColumn(len_t offset, const std::string& value, len_t fdLen);
  void setColumn(len_t offset, const IpGenAddr& value, len_t fdLen);
  void setColumn(len_t offset, const IpGenPrefix& value, len_t fdLen);

  // Writes a payload of `length` bytes (0 empties the column) as the array and string accessors do.
  void setPayload(len_t offset, const unsigned char* bytes, std::size_t length, len_t fdLen);

  // Makes room for a payload of `length` bytes, at least 1, for the variable column at `offset`, and returns
  // where it goes. A payload takes the place of the one before if that had the room, the last payload of the
  // row grows in place, any other goes behind the row's present end. A row that has to grow gets a new
  // buffer; whoever still reads the old one must hold a handle onto it. The row must not be shared. Throws
  // TvOutOfRange when the row would pass 65535 bytes or the payload 32767; the row is then as it was.
  len_t makeFreeSpace(len_t offset, std::size_t length, len_t fdLen);

  // Bytes that a value of the general types takes as a payload: 4, 16, 5, 17, or 0 for none.
  template <typename T>
  static unsigned short encodeLength(const T& value) {
    const unsigned address = addressLength(value.family());
    if constexpr (std::is_same_v<T, IpGenPrefixReference> || std::is_same_v<T, IpGenPrefix>)
      return static_cast<unsigned short>(address == 0 ? 0U : address + 1);
    else
      return static_cast<unsigned short>(address);
  }

  // The null value of a type: zero, no address, an empty view.
  template <typename T>
  static void setToNull(T& value) {
    value = T();
  }

 private:
  struct Payload {
    const unsigned char* bytes;
    std::uint16_t length;
  };

  static TvPtr<TvRowBuf> allocate(len_t len, len_t rowType) {
    assertThat(len >= tv_contentOffset, "len >= tv_contentOffset", "Tavro::BaseRow::BaseRow(Tavro::len_t)");
    return makeRowBuffer(len, rowType);
  }

  Payload payloadAt(len_t offset) const {
    const unsigned char* const slot = row_->buffer + offset;
    const auto length = static_cast<std::uint16_t>(slot[2] | (slot[3] & 0x7FU) << 8);
    return {row_->buffer + loadBytes<std::uint16_t>(slot), length};
  }

  void checkWrite(len_t fdLen) const {
    assertThat(fdLen != 0, "fdLen != 0", "Tavro::BaseRow::setColumn");
    if (isNull()) [[unlikely]]
      throw TvNullRow();
  }
  void takePrivateBuffer();
  // Takes a private buffer and copies the value's bytes into it. Out of line and done in one call, so that a
  // write into a row that nobody shares saves no registers for it.
  [[gnu::noinline, gnu::cold]] void storeInPrivate(len_t offset, const void* bytes, std::size_t width);
  void growTo(unsigned length);
  PayloadRoom roomOf(len_t offset) const;
  void keepRoom(const PayloadRoom& room);
  void forgetRoom(len_t offset) noexcept;

  TvPtr<TvRowBuf> row_;
};

}  // namespace Tavro
