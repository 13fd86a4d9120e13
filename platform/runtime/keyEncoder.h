#pragma once

#include <vector>

#include "Tavro/baseRow.h"
#include "Tavro/tvMetadata.h"
#include "encodedKey.h"

namespace Tavro {

// Encodes columns of a row, in turn, into bytes that order as the columns do:
//
//   integers        big-endian, the sign bit of signed ones flipped
//   floats          big-endian bits, flipped so that they ascend; -0.0 as 0.0, every NaN as the one greatest
//   bool            0 or 1
//   IpAddr, Ip6Addr their bytes
//   general address family, bytes; a prefix has its mask length behind them
//   strings         bytes, with 00 as 00 FF, and 00 00 behind the last
//   arrays          01 before each element, 00 behind the last
//
// Equal values have equal bytes, and no encoding begins another.
class KeyEncoder {
 public:
  explicit KeyEncoder(const std::vector<tvMetadata::tvColumn>& columns);

  // Appends the key of `row`, which must have the columns (RowShape). Throws std::bad_alloc only.
  void append(const BaseRow& row, KeyBuffer& key) const;

  // The key is one column of at most 8 bytes.
  bool isShort() const { return isShort_; }
  // The same key, as the first 8 bytes that it has, or 0 behind it, make a number.
  std::uint64_t shortKey(const BaseRow& row) const;

 private:
  struct Field {
    unsigned short type;
    len_t offset;
    len_t width;
    bool isArray;
    bool isVariable;
  };
  std::vector<Field> fields_;
  bool isShort_ = false;
};

}  // namespace Tavro
