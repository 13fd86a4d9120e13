#include <cstdlib>
#include <memory>
#include <new>

#include "Tavro/baseRow.h"

namespace Tavro {

namespace {

// Allocates what a shared pointer needs with a row's bytes behind it, and says where they are.
template <typename T>
class RowBlockAllocator {
 public:
  using value_type = T;

  RowBlockAllocator(std::size_t rowBytes, unsigned char*& bytes) : rowBytes_(rowBytes), bytes_(&bytes) {}
  template <typename U>
  RowBlockAllocator(const RowBlockAllocator<U>& other) : rowBytes_(other.rowBytes_), bytes_(other.bytes_) {}

  T* allocate(std::size_t count) {
    auto* const block = static_cast<unsigned char*>(std::malloc(count * sizeof(T) + rowBytes_));
    if (block == nullptr) throw std::bad_alloc();
    *bytes_ = block + count * sizeof(T);
    std::memset(*bytes_, 0, rowBytes_);
    return reinterpret_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t) noexcept { std::free(block); }

  bool operator==(const RowBlockAllocator&) const { return true; }

 private:
  template <typename U>
  friend class RowBlockAllocator;

  std::size_t rowBytes_;
  // Valid while the block is being made.
  unsigned char** bytes_;
};

}  // namespace

TvPtr<TvRowBuf> makeRowBuffer(len_t len) {
  unsigned char* bytes = nullptr;
  TvPtr<TvRowBuf> row =
      std::allocate_shared<TvRowBuf>(RowBlockAllocator<TvRowBuf>(len + sizeof(Ip6Addr), bytes), nullptr);
  row->buffer = bytes;
  return row;
}

}  // namespace Tavro
