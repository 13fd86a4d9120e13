#include <cstring>
#include <memory>

#include "Tavro/baseRow.h"
#include "Tavro/blockPool.h"

namespace Tavro {

namespace {

// The row that is being made. An allocator with members of its own would stand in every block.
struct RowInTheMaking {
  std::size_t length;
  unsigned char* bytes;
};
[[gnu::tls_model("initial-exec")]] thread_local RowInTheMaking inTheMaking{};

// Allocates what a shared pointer needs with the row's bytes behind it, and notes where they are.
template <typename T>
struct RowBlockAllocator {
  using value_type = T;

  RowBlockAllocator() = default;
  template <typename U>
  RowBlockAllocator(const RowBlockAllocator<U>&) {}

  T* allocate(std::size_t count) {
    void* const block = takeBlock(count * sizeof(T) + inTheMaking.length);
    inTheMaking.bytes = static_cast<unsigned char*>(block) + count * sizeof(T);
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t) noexcept { giveBlockBack(block); }

  bool operator==(const RowBlockAllocator&) const { return true; }
};

}  // namespace

TvPtr<TvRowBuf> makeRowBuffer(len_t len, len_t rowType, std::size_t beyond) {
  inTheMaking.length = len + beyond;
  TvPtr<TvRowBuf> row = std::allocate_shared<TvRowBuf>(RowBlockAllocator<TvRowBuf>(), nullptr);
  unsigned char* const bytes = inTheMaking.bytes;
  row->buffer = bytes;
  std::memset(bytes, 0, inTheMaking.length);
  storeBytes(bytes, len);
  storeBytes(bytes + tv_rowTypeOffset, rowType);
  return row;
}

}  // namespace Tavro
