#include "Tavro/TvRTStack.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <sstream>
#include <stdexcept>

namespace Tavro::TvRT {

namespace {

std::uintptr_t number(const unsigned char* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

}  // namespace

Kelpo::DebugHandler* Stack::__kelpoDebug::getHandler() {
  static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("Stack");
  return hdl;
}

Stack::Stack() {
  auto* const block = static_cast<unsigned char*>(std::malloc(blockSize + 2 * guardSize));
  if (block == nullptr) throw std::bad_alloc();
  std::memset(block, 0, blockSize + 2 * guardSize);
  base = block + guardSize;
  top = base;
  limit = base + blockSize;
}

Stack::~Stack() { std::free(base - guardSize); }

void Stack::throwUnderflow() { throw std::out_of_range("stack underflow"); }

void Stack::throwPairUnderflow(std::ptrdiff_t width) {
  if (top > base) top -= width;
  throwUnderflow();
}

void Stack::throwOverflow(std::size_t width) const {
  std::ostringstream text;
  text << "stack overflow " << number(base) << " " << number(top) << " " << number(limit) << " " << width;
  throw std::out_of_range(text.str());
}

void Stack::writePosition(std::ostream& text) const { text << "@" << number(top) << "/" << number(base); }

}  // namespace Tavro::TvRT
