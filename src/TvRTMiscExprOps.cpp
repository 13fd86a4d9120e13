#include "Tavro/TvRTMiscExprOps.h"

namespace Tavro::TvRT {

std::uint32_t hashBytes(const void* bytes, std::size_t length) {
  constexpr std::uint32_t seed = 0xc70f6907;
  constexpr std::uint32_t multiplier = 0x5bd1e995;
  const auto* const data = static_cast<const unsigned char*>(bytes);
  const std::size_t whole = length & ~std::size_t{3};
  std::uint32_t hash = seed ^ static_cast<std::uint32_t>(length);
  for (std::size_t i = 0; i != whole; i += 4) {
    std::uint32_t word = loadBytes<std::uint32_t>(data + i) * multiplier;
    word = (word ^ word >> 24) * multiplier;
    hash = hash * multiplier ^ word;
  }
  if (whole != length) {
    for (std::size_t i = length; i-- != whole;) hash ^= std::uint32_t{data[i]} << 8 * (i - whole);
    hash *= multiplier;
  }
  hash = (hash ^ hash >> 13) * multiplier;
  return hash ^ hash >> 15;
}

std::uint32_t combineBytes(const unsigned char* bytes, std::size_t length) {
  std::uint32_t state = 0;
  for (std::size_t i = 0; i != length; ++i) state = combineHash(state, bytes[i]);
  return state;
}

void MiscExprOps::installCondExprOp(Context& context, TavroTypes type) {
  const bool known =
      withColumnType(type, [&]<typename CT>() { CondExprOp<StackTypeOf<CT>>().install(context); });
  requireMember(known, "MiscExprOps::installCondExprOp", "Tavro::TavroTypes");
}

void MiscExprOps::installHashOp(Context& context, TavroTypes type) {
  const bool known = withColumnType(type, [&]<typename CT>() { HashOp<StackTypeOf<CT>>().install(context); });
  requireMember(known, "MiscExprOps::installHashOp", "Tavro::TavroTypes");
}

}  // namespace Tavro::TvRT
