#include "Tavro/TvRTOpCatalogue.h"

namespace Tavro::TvRT {

namespace {

std::unordered_map<std::string, opCat> byName() {
  std::unordered_map<std::string, opCat> map;
  for (const OpCatalogueRow& row : opCatalogue) map.emplace(row.name, row.cat);
  return map;
}

std::unordered_map<int, std::string> byCode() {
  std::unordered_map<int, std::string> map;
  for (const OpCatalogueRow& row : opCatalogue) map.emplace(row.key, row.name);
  return map;
}

}  // namespace

const std::unordered_map<std::string, opCat> opCatByName = byName();
const std::unordered_map<int, std::string> opNameByCode = byCode();

}  // namespace Tavro::TvRT
