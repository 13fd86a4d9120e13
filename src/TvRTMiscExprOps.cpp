#include "Tavro/TvRTMiscExprOps.h"

namespace Tavro::TvRT {

namespace {

IpGenPrefix prefixAt(Context& context, len_t row, len_t column) {
  IpGenPrefix prefix;
  context.getRow(row).getColumn(column, prefix);
  return prefix;
}

void storePrefix(Context& context, len_t row, len_t column, const IpGenPrefix& prefix) {
  BaseRow& to = context.getRow(row);
  to.setColumn(column, prefix, context.fixedLength(row));
}

}  // namespace

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

OpResult OverlapsOp::op(Context& context) {
  const Operands<OverlapsOp> operands(context);
  const IpGenPrefix a = prefixAt(context, operands->row, operands->column);
  const IpGenPrefix b = prefixAt(context, operands->otherRow, operands->otherColumn);
  const StackValue<bool> result(a.mask() < b.mask() ? a.contains(b) : b.contains(a), false);
  context.stackR().push(result);
  traceOp(miscExprOpsSource, __LINE__,
          "static Tavro::TvRT::OpResult Tavro::TvRT::OverlapsOp::op(Tavro::TvRT::Context&)", a, " & ", b,
          " --> ", result);
  operands.step();
  return OpOk;
}

OpResult StepLessOp::op(Context& context) {
  const Operands<StepLessOp> operands(context);
  const IpGenPrefix before = prefixAt(context, operands->row, operands->column);
  IpGenPrefix after = before;
  const StackValue<bool> result(before.mask() != 0, false);
  if (result.value != 0) {
    const auto mask = static_cast<unsigned short>(before.mask() - 1);
    after.clearLowerAddrBits(mask);
    after.maskIs(mask);
    storePrefix(context, operands->row, operands->column, after);
    storePrefix(context, operands->toRow, operands->toColumn, after);
  }
  context.stackR().push(result);
  traceOp(miscExprOpsSource, __LINE__,
          "static Tavro::TvRT::OpResult Tavro::TvRT::StepLessOp::op(Tavro::TvRT::Context&)", before, " --> ",
          after, " --> ", result);
  operands.step();
  return OpOk;
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
