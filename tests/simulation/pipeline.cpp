#include "pipeline.h"

namespace Tavro::Simulation {
namespace {

constexpr unsigned maxOperators = 5;
constexpr unsigned maxSources = 3;

// Makes operators one by one, each behind the tables that are there, and so that the last contents of every
// table follow from the changes of the sources.
class Builder {
 public:
  explicit Builder(Random& random) : random_(random) {}

  Pipeline build() {
    made_.isBare = random_.oneIn(8);
    made_.startsQuietly = made_.isBare || random_.oneIn(2);
    endsSources_ = random_.oneIn(2);
    const unsigned sources = 1 + random_.below(maxSources);
    for (unsigned i = 0; i < sources; ++i) addSource(i, mayLackKey(made_.startsQuietly));
    for (unsigned left = 1 + random_.below(maxOperators); left > 0; --left) addOperator();
    return made_;
  }

 private:
  TablePlan& table(std::size_t number) { return made_.tables[number]; }
  std::size_t lastTable() const { return made_.tables.size() - 1; }

  bool mayLackKey(bool isExact) { return made_.isBare || (isExact && random_.oneIn(2)); }

  unsigned capacity() { return random_.oneIn(3) ? 0 : 1 + random_.below(random_.oneIn(3) ? 9 : 3); }

  void addSource(unsigned origin, bool lacksKey) {
    made_.tables.push_back({"t" + std::to_string(made_.tables.size()), !lacksKey, capacity(), true,
                            endsSources_ ? 1U : 0U, made_.startsQuietly, true, 1U << origin});
  }

  void addOperator() {
    OperatorPlan plan{};
    plan.in = random_.below(made_.tables.size());
    // Chains are longer where the last table is read.
    if (random_.oneIn(2)) plan.in = lastTable();
    if (table(plan.in).origins == 1U << lookupOrigin) plan.in = 0;
    plan.isOneShot = table(plan.in).fillers != 0 && !random_.oneIn(3);
    plan.kind = kindFor(plan);
    plan.constant = 1 + static_cast<int>(random_.below(20));
    plan.deletesRest = !made_.isBare && random_.oneIn(3);
    plan.makesRows = random_.oneIn(2);
    plan.scansFromBound = table(plan.in).hasKey && random_.oneIn(2);
    const bool isInOrder = table(plan.in).isOrdered && table(plan.in).isExact && plan.kind != Kind::join;
    if (isInOrder && !made_.isBare && random_.oneIn(6)) plan.poison = static_cast<int>(random_.below(16));
    plan.lookup = plan.kind == Kind::join ? lookupTable() : plan.in;
    plan.out = outputOf(plan);
    table(plan.in).isRead = true;
    made_.operators.push_back(plan);
  }

  Kind kindFor(const OperatorPlan& plan) {
    const Kind kind = static_cast<Kind>(random_.below(4));
    if (kind == Kind::expand && !plan.isOneShot && !table(plan.in).isExact) return Kind::project;
    if (kind == Kind::join && !table(plan.in).hasKey) return Kind::filter;
    return kind;
  }

  // Rows are inserted into it and never replaced or deleted.
  std::size_t lookupTable() {
    for (std::size_t i = 0; i <= lastTable(); ++i)
      if (table(i).origins == 1U << lookupOrigin) return i;
    addSource(lookupOrigin, false);
    return lastTable();
  }

  std::size_t outputOf(const OperatorPlan& plan) {
    const TablePlan& in = table(plan.in);
    const bool isExact = in.isExact && plan.kind != Kind::join;
    const bool isOrdered = in.isOrdered && plan.kind != Kind::join;
    for (std::size_t i = 0; i <= lastTable(); ++i)
      if (mayShare(i, plan, isExact) && random_.oneIn(2)) {
        TablePlan& out = table(i);
        out.fillers = out.fillers != 0 && plan.isOneShot ? out.fillers + 1 : 0;
        out.isExact &= isExact;
        out.isOrdered = false;
        out.origins |= in.origins;
        return i;
      }
    made_.tables.push_back({"t" + std::to_string(made_.tables.size()), !mayLackKey(isExact), capacity(),
                            false, plan.isOneShot ? 1U : 0U, isExact, isOrdered, in.origins});
    return lastTable();
  }

  // Two operators write one table, if they write rows of different origins.
  bool mayShare(std::size_t out, const OperatorPlan& plan, bool isExact) {
    const TablePlan& shared = table(out);
    return !shared.isSource && !shared.isRead && (shared.origins & table(plan.in).origins) == 0 &&
           (shared.hasKey || isExact);
  }

  Random& random_;
  Pipeline made_{};
  bool endsSources_ = false;
};

std::string bind(unsigned slot, const TablePlan& table) {
  return "bindTable " + std::to_string(slot) + ", 16, 0, \"" + table.name + "\", a" + std::to_string(slot) +
         ", s\n";
}

std::string push(int number) { return "pushCnst<int32_t> " + std::to_string(number) + "\n"; }

constexpr const char* copyKey = "pushColumn<int32_t> 1, 8\npopColumn<int32_t> 0, 8\n";
constexpr const char* copyValue = "pushColumn<int32_t> 1, 12\npopColumn<int32_t> 0, 12\n";
constexpr const char* takeLookupValue = "pushColumn<int32_t> 2, 12\npopColumn<int32_t> 0, 12\n";

std::string emission(const OperatorPlan& plan) {
  const std::string copy = std::string(copyKey) + copyValue + "insertRow 0\n";
  switch (plan.kind) {
    case Kind::filter:
      return "pushColumn<int32_t> 1, 12\n" + push(plan.constant) + "lt<int32_t>\ninvCondBranch rest\n" +
             (plan.makesRows ? copy : "insertRow 1\n") + "return\nlabel rest\n" +
             (plan.deletesRest ? "deleteRow 1\n" : "");
    case Kind::project:
      return copyKey + ("pushColumn<int32_t> 1, 12\n" + push(plan.constant)) + "add<int32_t>\n" +
             push(values - 1) + "bitAnd<int32_t>\npopColumn<int32_t> 0, 12\ninsertRow 0\n";
    case Kind::expand:
      return copy + copyValue + "pushColumn<int32_t> 1, 8\n" + push(copyDistance) +
             "add<int32_t>\npopColumn<int32_t> 0, 8\ninsertRow 0\n";
    default:
      return "copyColumn<int32_t> 1, 12, 3, 8\nfetchRow 2\ninvCondBranch rest\n" +
             (std::string(copyKey) + takeLookupValue) + "insertRow 0\nlabel rest\n";
  }
}

}  // namespace

Pipeline makePipeline(Random& random) { return Builder(random).build(); }

std::string programOf(const Pipeline& pipeline, const OperatorPlan& plan) {
  const auto table = [&](std::size_t number) { return pipeline.tables[number]; };
  const bool isJoin = plan.kind == Kind::join;
  const std::string keySlot = std::to_string(isJoin ? 3 : 2);
  const std::string start =
      plan.scansFromBound ? push(0) + "popColumn<int32_t> " + keySlot + ", 8\nlowerBound 1\n" : "begin 1\n";
  std::string text = bind(0, table(plan.out)) + bind(1, table(plan.in));
  if (isJoin) text += bind(2, table(plan.lookup));
  text += "end\nentry init\nhalt\nentry t1rdy.wc\n" + start +
          "label next\nnextRow 1\ninvCondBranch done\ncall emit\nbranch next\nlabel done\nhalt\n"
          "entry t1row.wc\ncall emit\nhalt\nlabel emit\n";
  if (plan.poison != none)
    text += "pushColumn<int32_t> 1, 12\n" + push(plan.poison) +
            "eq<int32_t>\ninvCondBranch good\ndiscard<int32_t>\nlabel good\n";
  text += emission(plan) + "return\n";
  if (isJoin)
    text += "entry t2row.wc\n" + start +
            "label scan\nnextRow 1\ninvCondBranch scanned\nequalColumn<int32_t> 1, 12, 2, 8\n"
            "invCondBranch scan\n" +
            copyKey + takeLookupValue + "insertRow 0\nbranch scan\nlabel scanned\nhalt\n";
  return text;
}

std::string describe(const Pipeline& pipeline) {
  std::string text = std::string(pipeline.startsQuietly ? "quiet" : "any") + " start" +
                     (pipeline.isBare ? ", without clients" : "") + "\n";
  for (const TablePlan& table : pipeline.tables)
    text += "table " + table.name + (table.hasKey ? " with key" : "") + ", capacity " +
            std::to_string(table.capacity) + ", fillers " + std::to_string(table.fillers) + "\n";
  for (std::size_t i = 0; i < pipeline.operators.size(); ++i)
    text += "operator " + std::to_string(i) +
            (pipeline.operators[i].isOneShot ? ", one-shot" : ", standing") + ":\n" +
            programOf(pipeline, pipeline.operators[i]);
  return text;
}

}  // namespace Tavro::Simulation
