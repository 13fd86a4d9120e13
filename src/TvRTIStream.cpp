#include "Tavro/TvRTIStream.h"

#include <cstdlib>
#include <iostream>
#include <new>

namespace Tavro::TvRT {

Kelpo::DebugHandler* IStream::__kelpoDebug::getHandler() {
  static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("IStream");
  return hdl;
}

IStream::IStream() { growTo(512); }

IStream::~IStream() { std::free(code); }

len_t IStream::append(len_t len, const unsigned char* bytes) {
  const std::uint32_t need = std::uint32_t{length} + len;
  if (need > capacity) growTo(need > capacity + growBy ? need + growBy : capacity + growBy);
  if (len != 0) std::memcpy(code + length, bytes, len);
  const len_t offset = length;
  lengthIs(static_cast<len_t>(length + len));
  return offset;
}

len_t IStream::addLabel() {
  labelCount = static_cast<len_t>(labelCount + 1);
  const std::size_t label = labelCount;
  if (label >= labels.capacity()) labels.resize(2 * (label + 1));
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

// The guard behind the old capacity becomes part of the buffer, so what it holds is cleared as well.
void IStream::growTo(std::uint32_t newCapacity) {
  auto* const grown = static_cast<unsigned char*>(std::realloc(code, newCapacity + guardSize));
  if (grown == nullptr) throw std::bad_alloc();
  std::memset(grown + capacity, 0, newCapacity + guardSize - capacity);
  code = grown;
  capacity = newCapacity;
}

void IStream::reportBadStep() { std::cout << "bad stepPC parameter.  Too large." << std::endl; }

}  // namespace Tavro::TvRT
