#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace Tavro::TvRT {

// Finds a name among those of a table that is known to the compiler: `name` members of the rows, hashed by
// their length and three of their characters.
template <std::size_t Count>
class NameTable {
 public:
  template <typename Rows>
  constexpr explicit NameTable(const Rows& rows) {
    for (std::size_t row = 0; row != Count; ++row) {
      names_[row] = rows[row].name;
      std::size_t slot = slotOf(names_[row]);
      while (rows_[slot] != 0) slot = (slot + 1) % slotCount;
      rows_[slot] = static_cast<unsigned char>(row + 1);
    }
  }

  // The number of the row, or Count when there is none.
  constexpr std::size_t find(std::string_view name) const {
    if (name.empty()) return Count;
    for (std::size_t slot = slotOf(name); rows_[slot] != 0; slot = (slot + 1) % slotCount)
      if (names_[rows_[slot] - 1U] == name) return rows_[slot] - 1U;
    return Count;
  }

 private:
  static constexpr std::size_t slotCount = 512;
  static_assert(Count < 255 && 2 * Count < slotCount);

  static constexpr std::size_t slotOf(std::string_view name) {
    const auto at = [name](std::size_t i) { return static_cast<unsigned char>(name[i]); };
    return (name.size() * 67 + at(0) * 31 + at(name.size() / 2) * 7 + at(name.size() - 1)) % slotCount;
  }

  std::array<std::string_view, Count> names_{};
  // The number of a row and one, 0 for none.
  std::array<unsigned char, slotCount> rows_{};
};

}  // namespace Tavro::TvRT
