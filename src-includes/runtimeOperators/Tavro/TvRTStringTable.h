#pragma once

#include <atomic>
#include <string>
#include <unordered_map>
#include <vector>

#include "Tavro/export.h"

namespace Tavro::TvRT {

// Interns the strings of one program: an instruction names a string by its OID, a number from 1. Filled by
// one thread while loading and only read afterwards.
class TAVRO_EXPORT TvRTStringTable {
 public:
  // The OID of the text, given out at its first appearance.
  unsigned int add(const std::string& text);
  // The text of an OID; OID 0 is the empty text. Throws std::domain_error for an OID that is not in the
  // table.
  std::string fetch(unsigned int oid) const;
  // The OID of a text, or 0 when it was never added.
  unsigned int getOID(const std::string& text) const noexcept;
  // Forgets all texts. Their OIDs are not given out again, so one that survives somewhere can never denote
  // another text.
  void clear();

 private:
  std::unordered_map<std::string, unsigned int> toOid;
  // The texts of the OIDs from `firstOid` on; they are the keys of `toOid`.
  std::vector<const std::string*> toString;
  unsigned int firstOid = 1;
  std::atomic<unsigned int> nextOid{1};
};

}  // namespace Tavro::TvRT
