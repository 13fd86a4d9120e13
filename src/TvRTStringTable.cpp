#include "Tavro/TvRTStringTable.h"

#include <stdexcept>

namespace Tavro::TvRT {

unsigned int TvRTStringTable::add(const std::string& text) {
  const auto [entry, isNew] = toOid.try_emplace(text, 0U);
  if (!isNew) return entry->second;
  const unsigned int oid = nextOid.fetch_add(1);
  entry->second = oid;
  toString.emplace(oid, text);
  return oid;
}

std::string TvRTStringTable::fetch(unsigned int oid) const {
  if (oid == 0) return "";
  const auto entry = toString.find(oid);
  if (entry == toString.end()) throw std::domain_error("string table lookup failed");
  return entry->second;
}

unsigned int TvRTStringTable::getOID(const std::string& text) const noexcept {
  const auto entry = toOid.find(text);
  return entry == toOid.end() ? 0 : entry->second;
}

void TvRTStringTable::clear() {
  toOid.clear();
  toString.clear();
}

}  // namespace Tavro::TvRT
