#include <iostream>

#include "Tavro/TvRTBinOp.h"
#include "Tavro/TvRTOpCatalogue.h"
#include "Tavro/tvAssert.h"

namespace Tavro::TvRT {

namespace {

struct Entry {
  Handler handler = nullptr;
  HandlerNumber (*number)() = nullptr;
};

template <typename Op>
constexpr Entry entryOf() {
  return {handlersOf<Op>.traced, &handlerNumber<Op>};
}

class Table {
 public:
  constexpr const Entry& at(int opcode, int type) const { return entries_[indexOf(opcode, type)]; }

  constexpr void set(std::string_view operation, std::initializer_list<int> types, Entry entry) {
    for (const int type : types) entries_[indexOf(opcodeOf(operation), type)] = entry;
  }

 private:
  static constexpr std::size_t indexOf(int opcode, int type) {
    return static_cast<std::size_t>(opcode) * BinOpDispatch::typeCount + static_cast<std::size_t>(type);
  }
  static constexpr int opcodeOf(std::string_view operation) {
    for (const OpCatalogueRow& row : opCatalogue)
      if (row.name == operation) return row.cat.opCode;
    return -1;
  }

  std::array<Entry, BinOpDispatch::opcodeCount * BinOpDispatch::typeCount> entries_{};
};

using Unsigned = unsigned long long;
using Signed = long long;

template <template <typename> typename Op>
constexpr void setArithmetic(Table& table, std::string_view operation) {
  table.set(operation, {0, 1, 2, 3, TypeTime, TypePort}, entryOf<Op<Unsigned>>());
  table.set(operation, {4, 5, 6, 7}, entryOf<Op<Signed>>());
  table.set(operation, {TypeFloat}, entryOf<Op<float>>());
  table.set(operation, {TypeDouble}, entryOf<Op<double>>());
}

template <template <typename> typename Op>
constexpr void setBits(Table& table, std::string_view operation) {
  table.set(operation, {0, 1, 2, 3}, entryOf<Op<Unsigned>>());
  table.set(operation, {4, 5, 6, 7}, entryOf<Op<Signed>>());
}

template <template <typename> typename Op>
constexpr void setComparison(Table& table, std::string_view operation) {
  table.set(operation, {0, 1, 2, 3, TypeTime, TypePort}, entryOf<Op<Unsigned>>());
  table.set(operation, {4, 5, 6, 7}, entryOf<Op<Signed>>());
  table.set(operation, {TypeFloat, TypeDouble}, entryOf<Op<double>>());
  table.set(operation, {TypeBool}, entryOf<Op<bool>>());
  table.set(operation, {TypeString}, entryOf<Op<StringValueReference>>());
  table.set(operation, {TypeIpAddr}, entryOf<Op<IpAddr>>());
  table.set(operation, {TypeIp6Addr}, entryOf<Op<Ip6Addr>>());
  table.set(operation, {TypeIpGenAddr}, entryOf<Op<IpGenAddrReference>>());
  table.set(operation, {TypeIpGenPrefix}, entryOf<Op<IpGenPrefixReference>>());
}

template <template <typename, typename> typename Op>
constexpr void setArrayOperator(Table& table, std::string_view operation) {
  for (const TypeRow& row : typeTable)
    withColumnType(row.code, [&]<typename CT>() {
      table.set(operation, {row.code}, entryOf<Op<CT, StackTypeOf<CT>>>());
    });
}

constexpr Table makeTable() {
  Table table;
  setArithmetic<tv_noOperation>(table, "noop");
  table.set("noop", {TypeBool}, entryOf<tv_noOperation<bool>>());
  table.set("noop", {TypeString}, entryOf<tv_noOperation<StringValueReference>>());
  setArithmetic<tv_plusOperation>(table, "add");
  setArithmetic<tv_minusOperation>(table, "sub");
  setArithmetic<tv_mulOperation>(table, "mul");
  setArithmetic<tv_divOperation>(table, "div");
  setComparison<tv_eqOperation>(table, "eq");
  setComparison<tv_ltOperation>(table, "lt");
  setBits<tv_shiftOperation>(table, "shift");
  setBits<tv_bitAndOperation>(table, "bitAnd");
  setBits<tv_bitOrOperation>(table, "bitOr");
  setComparison<tv_gtOperation>(table, "gt");
  setComparison<tv_geOperation>(table, "ge");
  setComparison<tv_leOperation>(table, "le");
  setComparison<tv_neOperation>(table, "ne");
  table.set("boolAnd", {TypeBool}, entryOf<tv_boolAndOperation<bool>>());
  table.set("boolOr", {TypeBool}, entryOf<tv_boolOrOperation<bool>>());
  setArrayOperator<tv_containsOperation>(table, "contains");
  setArrayOperator<tv_containsElementOperation>(table, "containsElement");
  setArrayOperator<tv_aryEqOperation>(table, "aryEq");
  setArrayOperator<tv_intersectsOperation>(table, "intersects");
  return table;
}

constexpr Table table = makeTable();

std::string operationName(int opcode) {
  const auto name = opNameByCode.find(opKey(BinaryOps, static_cast<unsigned>(opcode)));
  return name == opNameByCode.end() ? "" : name->second;
}

}  // namespace

Handler BinOpDispatch::fetchBinOp(int opcode, int type) { return table.at(opcode, type).handler; }

bool BinOpDispatch::dispatchBinOp(int opcode, int type, Context& context) {
  return fetchBinOp(opcode, type)(context) != OpOk;
}

void BinOpDispatch::installBinOp(Context& context, int opcode, int type) {
  const Entry& entry = table.at(opcode, type);
  if (entry.handler == nullptr) {
    std::cerr << "installBinOp failed installing op " << operationName(opcode) << "<"
              << typeNameOrUnknown(static_cast<TavroTypes>(type)) << ">" << std::endl;
    assertionFailed("false",
                    "static void Tavro::TvRT::BinOpDispatch::installBinOp(Tavro::TvRT::Context&, int, int)");
  }
  Kelpo::trace(
      tvRtOpKelpoDebugHandler_, traceDetail, binOpSource, __LINE__, "installBinOp", [&](std::ostream& text) {
        text << "static void Tavro::TvRT::BinOpDispatch::installBinOp(Tavro::TvRT::Context&, int, int)"
             << " installing bindOp " << operationName(opcode) << "<"
             << typeNameOrUnknown(static_cast<TavroTypes>(type)) << ">";
      });
  appendHandler(context, entry.number());
}

}  // namespace Tavro::TvRT
