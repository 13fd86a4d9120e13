#pragma once

#include <cstddef>
#include <cstdint>

#include "Tavro/baseRow.h"

// Hashes of the indexes' own, which nobody outside sees.
namespace Tavro {

inline std::uint64_t mixHash(std::uint64_t hash, std::uint64_t word) {
  hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
  return hash ^ hash >> 32;
}

inline std::uint64_t hashBytes(const unsigned char* bytes, std::size_t length) {
  std::uint64_t hash = mixHash(0, length);
  for (; length >= sizeof hash; bytes += sizeof hash, length -= sizeof hash)
    hash = mixHash(hash, loadBytes<std::uint64_t>(bytes));
  std::uint64_t rest = 0;
  std::memcpy(&rest, bytes, length);
  return mixHash(hash, rest);
}

}  // namespace Tavro
