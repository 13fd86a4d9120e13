#include "Tavro/TvRTIStream.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <new>

namespace Tavro::TvRT {

Kelpo::DebugHandler* IStream::__kelpoDebug::getHandler() {
  static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("IStream");
  return hdl;
}

IStream::IStream() { growTo(512); }

IStream::~IStream() { std::free(code); }

len_t IStream::addLabel() {
  labelCount = static_cast<len_t>(labelCount + 1);
  const std::size_t label = labelCount;
  if (label >= labels.capacity()) labels.resize(2 * (label + 1));
  namedLabels = static_cast<std::uint32_t>(std::min(labels.size(), std::size_t{noBranch}));
  setLabel(label);
  return labelCount;
}

void IStream::setLabel(std::size_t label) {
  Kelpo::trace(debug.handler(), traceDetail, istreamSource, __LINE__, "setLabel", [&](std::ostream& text) {
    text << "void Tavro::TvRT::IStream::setLabel(size_t)"
         << " creating label " << label << " at " << length;
  });
  labels.at(label) = length;
}

void IStream::clear() {
  pc = 0;
  lengthIs(0);
  labelCount = 0;
}

// The memory is doubled, since a program that is loaded grows by many small steps. The guard behind the old
// capacity becomes part of the buffer, so what it holds is cleared as well.
void IStream::growTo(std::uint32_t newCapacity) {
  const auto needed = static_cast<std::uint32_t>(newCapacity + guardSize);
  if (needed > allocated) {
    const std::uint32_t size = std::max(needed, 2 * allocated);
    auto* const grown = static_cast<unsigned char*>(std::realloc(code, size));
    if (grown == nullptr) throw std::bad_alloc();
    code = grown;
    allocated = size;
  }
  std::memset(code + capacity, 0, needed - capacity);
  capacity = newCapacity;
  constexpr std::uint32_t lastWithOperands =
      std::numeric_limits<len_t>::max() - handlerSlotWidth - widestOperands;
  lastPlain = std::min(newCapacity, lastWithOperands);
}

void IStream::reportBadStep() { std::cout << "bad stepPC parameter.  Too large." << std::endl; }

}  // namespace Tavro::TvRT
