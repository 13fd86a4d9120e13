#include "Tavro/TvRTStringTable.h"

#include <stdexcept>

namespace Tavro::TvRT {

unsigned int TvRTStringTable::add(const std::string& text) {
  const auto [entry, isNew] = toOid.try_emplace(text, 0U);
  if (!isNew) return entry->second;
  try {
    toString.push_back(&entry->first);
  } catch (...) {
    toOid.erase(entry);
    throw;
  }
  return entry->second = nextOid.fetch_add(1);
}

std::string TvRTStringTable::fetch(unsigned int oid) const {
  if (oid == 0) return "";
  if (oid < firstOid || oid - firstOid >= toString.size())
    throw std::domain_error("string table lookup failed");
  return *toString[oid - firstOid];
}

unsigned int TvRTStringTable::getOID(const std::string& text) const noexcept {
  const auto entry = toOid.find(text);
  return entry == toOid.end() ? 0 : entry->second;
}

void TvRTStringTable::clear() {
  toOid.clear();
  toString.clear();
  firstOid = nextOid;
}

}  // namespace Tavro::TvRT
