// Longest-prefix match: the cost of the longest route that holds an address.

#include <algorithm>
#include <array>
#include <compare>
#include <map>
#include <random>
#include <utility>

#include "Tavro/TvRTIndexRowOps.h"
#include "sqlite.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

// As in programs/routing.tva.
constexpr len_t idColumn = 8;
constexpr len_t hostColumn = 12;
constexpr len_t prefixColumn = 8;
constexpr len_t costColumn = 12;
constexpr len_t addressesLength = 16;
constexpr len_t routesLength = 20;
constexpr len_t hopsLength = 20;

// The bits of the address from the topmost on, those behind the prefix clear.
struct Prefix {
  unsigned char family;
  std::uint64_t high;
  std::uint64_t low;
  unsigned length;

  auto operator<=>(const Prefix&) const = default;
};

std::uint64_t topBits(unsigned count) { return count == 0 ? 0 : ~std::uint64_t{0} << (64 - count); }
std::uint64_t highMask(unsigned length) { return topBits(std::min(length, 64U)); }
std::uint64_t lowMask(unsigned length) { return topBits(length - std::min(length, 64U)); }
unsigned bitsOf(unsigned char family) { return 8 * addressLength(family); }

Prefix cut(const Prefix& prefix, unsigned length) {
  return {prefix.family, prefix.high & highMask(length), prefix.low & lowMask(length), length};
}

IpGenPrefix toValue(const Prefix& prefix) {
  std::array<unsigned char, 16> bytes;
  for (unsigned i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>((i < 8 ? prefix.high : prefix.low) >> (56 - 8 * (i % 8)));
  return {prefix.family, bytes.data(), static_cast<unsigned char>(prefix.length)};
}

// How many routes in a hundred have which length of prefix.
struct Share {
  unsigned percent;
  unsigned length;
};
constexpr Share ipv4Shares[] = {{60, 24}, {12, 22}, {11, 23}, {5, 21}, {5, 20},
                                {3, 19},  {2, 18},  {1, 17},  {1, 16}};
constexpr Share ipv6Shares[] = {{43, 48}, {13, 32}, {12, 44}, {10, 40}, {6, 36},
                                {5, 46},  {5, 47},  {3, 42},  {3, 29}};

class Draw {
 public:
  explicit Draw(const Scale& scale) : random_(scale.seed) {
    while (routes_.size() < scale.items) addRoute();
    for (std::size_t i = 0; i < scale.items; ++i) hosts_.push_back(newHost());
  }

  const std::map<Prefix, double>& routes() const { return routes_; }
  const std::vector<Prefix>& hosts() const { return hosts_; }

 private:
  // Half of the routes lie inside of a shorter one, where the one drawn is shorter.
  void addRoute() {
    const unsigned char family = random_() % 6 == 0 ? Ipv6Family : Ipv4Family;
    const unsigned length = newLength(family);
    const bool nests = random_() % 2 == 0 && !drawn_.empty();
    const Prefix outer = nests ? anyRoute() : Prefix{};
    const bool fits = outer.family == family && outer.length < length;
    const Prefix route = cut(inside(fits ? outer : anywhere(family)), length);
    const double cost = static_cast<double>(random_() % 1000) + 0.5;
    if (routes_.emplace(route, cost).second) drawn_.push_back(route);
  }

  // One address in twenty is drawn from all there are.
  Prefix newHost() {
    const Prefix route = anyRoute();
    return inside(random_() % 20 == 0 ? anywhere(route.family) : route);
  }

  // A prefix that all addresses of the family have which are given out.
  static Prefix anywhere(unsigned char family) {
    return family == Ipv4Family ? Prefix{family, 0, 0, 0} : Prefix{family, std::uint64_t{0x2a} << 56, 0, 12};
  }

  Prefix inside(const Prefix& outer) {
    const Prefix any{outer.family, newBits(), outer.family == Ipv6Family ? newBits() : 0, 0};
    const unsigned bits = bitsOf(outer.family);
    return cut({outer.family, outer.high | (any.high & ~highMask(outer.length)),
                outer.low | (any.low & ~lowMask(outer.length)), 0},
               bits);
  }

  unsigned newLength(unsigned char family) {
    unsigned percent = static_cast<unsigned>(random_() % 100);
    const Share* share = family == Ipv4Family ? ipv4Shares : ipv6Shares;
    for (; percent >= share->percent; ++share) percent -= share->percent;
    return share->length;
  }

  std::uint64_t newBits() { return std::uint64_t{random_()} << 32 | random_(); }
  const Prefix& anyRoute() { return drawn_[random_() % drawn_.size()]; }

  std::mt19937 random_;
  std::map<Prefix, double> routes_;
  std::vector<Prefix> drawn_;
  std::vector<Prefix> hosts_;
};

class OverHosts : public Contestant {
 public:
  explicit OverHosts(const Draw& draw) {
    Writer writer(addresses_);
    unsigned int id = 0;
    for (const Prefix& host : draw.hosts()) {
      BaseRow row = addresses_.newRow();
      row.setColumn(idColumn, id++, addressesLength);
      row.setColumn(hostColumn, toValue(host), addressesLength);
      writer.rowIs(row);
    }
  }
  Answer answer() override { return answerOf(hops_); }

 protected:
  Table& addresses_ =
      database().createTable("bench::addresses", {{"id", TypeUint32}, {"host", TypeIpGenPrefix}});
  Table& hops_ = database().createTable("bench::hops", {{"id", TypeUint32}, {"cost", TypeDouble}});
};

class OverRoutes : public OverHosts {
 public:
  explicit OverRoutes(const Draw& draw) : OverHosts(draw) {
    Writer writer(routes_);
    for (const auto& [prefix, cost] : draw.routes()) {
      BaseRow row = routes_.newRow();
      row.setColumn(prefixColumn, toValue(prefix), routesLength);
      row.setColumn(costColumn, cost, routesLength);
      writer.rowIs(row);
    }
  }
  void run() override { runUntilIdle(); }

 protected:
  Table& routes_ = database().createTable("bench::routes",
                                          {{"prefix", TypeIpGenPrefix, false, true}, {"cost", TypeDouble}});
};

class TvopShortening : public OverRoutes {
 public:
  explicit TvopShortening(const Scale& scale)
      : OverRoutes(Draw(scale)), proxy_(enabledProgram("routing.tva", false)) {}

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

class TvopNeighbours : public OverRoutes {
 public:
  explicit TvopNeighbours(const Scale& scale) : OverRoutes(Draw(scale)) {
    routes_.addIndex(TvRT::genTvRtRowOps(1, false, true, programPath("routingOrder.tva")));
    proxy_ = enabledProgram("routingNeighbours.tva", false);
  }

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

class NativeShortening : public OverHosts {
 public:
  explicit NativeShortening(const Scale& scale) : NativeShortening(Draw(scale)) {}
  void run() override {
    const Reader addresses(addresses_);
    Writer hops(hops_);
    const TvRowIterator end = addresses.end(0);
    for (TvRowIterator at = addresses.begin(0); at != end; ++at) {
      const BaseRow address = *at;
      IpGenPrefixReference host;
      address.getColumn(hostColumn, host);
      const double* const cost = costOf(toPrefix(host));
      if (cost == nullptr) continue;
      unsigned int id = 0;
      address.getColumn(idColumn, id);
      BaseRow out = hops_.newRow();
      out.setColumn(idColumn, id, hopsLength);
      out.setColumn(costColumn, *cost, hopsLength);
      hops.rowIs(std::move(out));
    }
  }

 private:
  explicit NativeShortening(const Draw& draw) : OverHosts(draw), routes_(draw.routes()) {}

  static Prefix toPrefix(const IpGenPrefixReference& value) {
    Prefix prefix{value.family(), 0, 0, value.mask()};
    for (unsigned i = 0; i < addressLength(value.family()); ++i)
      (i < 8 ? prefix.high : prefix.low) |= std::uint64_t{value.bytes()[i]} << (56 - 8 * (i % 8));
    return prefix;
  }

  const double* costOf(Prefix prefix) const {
    for (;; prefix = cut(prefix, prefix.length - 1)) {
      const auto found = routes_.find(prefix);
      if (found != routes_.end()) return &found->second;
      if (prefix.length == 0) return nullptr;
    }
  }

  std::map<Prefix, double> routes_;
};

// SQLite's integers have 64 bits and a sign, which is no matter where they are compared for equality.
std::int64_t integer(std::uint64_t bits) { return static_cast<std::int64_t>(bits); }

class SqliteRouting : public Contestant {
 public:
  explicit SqliteRouting(const Scale& scale) {
    const Draw draw(scale);
    sqlite_.execute("BEGIN");
    Sqlite::Statement newRoute = sqlite_.prepare("INSERT INTO routes VALUES(?, ?, ?, ?, ?)");
    for (const auto& [prefix, cost] : draw.routes())
      newRoute.run(std::int64_t{prefix.family}, std::int64_t{prefix.length}, integer(prefix.high),
                   integer(prefix.low), cost);
    Sqlite::Statement newMask = sqlite_.prepare("INSERT INTO masks VALUES(?, ?, ?, ?)");
    for (const unsigned char family : {Ipv4Family, Ipv6Family})
      for (unsigned length = 0; length <= bitsOf(family); ++length)
        newMask.run(std::int64_t{family}, std::int64_t{length}, integer(highMask(length)),
                    integer(lowMask(length)));
    Sqlite::Statement newAddress = sqlite_.prepare("INSERT INTO addresses VALUES(?, ?, ?, ?)");
    std::int64_t id = 0;
    for (const Prefix& host : draw.hosts())
      newAddress.run(id++, std::int64_t{host.family}, integer(host.high), integer(host.low));
    sqlite_.execute("COMMIT");
  }
  void run() override {
    sqlite_.execute("BEGIN");
    query_.run();
    sqlite_.execute("COMMIT");
  }
  Answer answer() override { return sqlite_.answerOf("SELECT id, cost FROM hops WHERE cost IS NOT NULL"); }

 private:
  static Sqlite withTables() {
    Sqlite sqlite;
    sqlite.execute(
        "CREATE TABLE routes(family INTEGER, length INTEGER, high INTEGER, low INTEGER, cost REAL, "
        "PRIMARY KEY(family, length, high, low)) WITHOUT ROWID;"
        "CREATE TABLE masks(family INTEGER, length INTEGER, high INTEGER, low INTEGER, "
        "PRIMARY KEY(family, length)) WITHOUT ROWID;"
        "CREATE TABLE addresses(id INTEGER, family INTEGER, high INTEGER, low INTEGER);"
        "CREATE TABLE hops(id INTEGER, cost REAL)");
    return sqlite;
  }

  Sqlite sqlite_ = withTables();
  // Shortens bit by bit as the others do, and stops at the first route.
  Sqlite::Statement query_ = sqlite_.prepare(
      "INSERT INTO hops SELECT id, (SELECT cost FROM masks CROSS JOIN routes "
      "WHERE masks.family = addresses.family AND routes.family = masks.family "
      "AND routes.length = masks.length AND routes.high = addresses.high & masks.high "
      "AND routes.low = addresses.low & masks.low ORDER BY masks.length DESC LIMIT 1) FROM addresses");
};

}  // namespace

std::vector<Entrant> routingEntrants() {
  return {{"tvop", "routing", make<TvopShortening>},
          {"order", "routing-order", make<TvopNeighbours>},
          {"SQLite", "routing", make<SqliteRouting>},
          {"C++", "routing-native", make<NativeShortening>}};
}

}  // namespace Tavro::Bench
