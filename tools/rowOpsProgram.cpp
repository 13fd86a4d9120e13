#include "rowOpsProgram.h"

#include <exception>
#include <memory>
#include <utility>

#include "Tavro/TvRTIndexRowOps.h"
#include "failure.h"
#include "listing.h"

namespace Tavro::Tool {

namespace {

template <typename Work>
auto named(const std::string& path, const Work& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    throw RowOpsFailure(path + ": " + error.what());
  }
}

// Puts the program's name before what it raises.
class NamedRowOps final : public RowOpsBase {
 public:
  NamedRowOps(std::string path, TvPtr<RowOpsBase> rules) : path_(std::move(path)), rules_(std::move(rules)) {}

  unsigned int hash(const BaseRow& row) override {
    return named(path_, [&] { return rules_->hash(row); });
  }
  bool equals(const BaseRow& a, const BaseRow& b) override {
    return named(path_, [&] { return rules_->equals(a, b); });
  }
  bool less(const BaseRow& a, const BaseRow& b) override {
    return named(path_, [&] { return rules_->less(a, b); });
  }
  void autoUpdate(BaseRow& current, const BaseRow& incoming) override {
    named(path_, [&] { rules_->autoUpdate(current, incoming); });
  }
  bool unique() override { return rules_->unique(); }
  bool ordered() override { return rules_->ordered(); }
  unsigned short index() override { return rules_->index(); }
  long long getTotalInstructionsExecuted() override { return rules_->getTotalInstructionsExecuted(); }

 private:
  std::string path_;
  TvPtr<RowOpsBase> rules_;
};

ProgramTable operandOf(const TvRT::Context& context, len_t slot, const std::string& path) {
  const TvRT::TableBindInfo* const info = slot < boundTables(context) ? context.tableBindInfo(slot) : nullptr;
  if (info == nullptr) {
    const std::string number = std::to_string(slot);
    fail(path + ": the program binds no row of slot " + number + " (bindTable " + number + ", ...)");
  }
  return {info->name, info->alias, info->len};
}

}  // namespace

void RowOpsProgram::checkFits(const Table& table) const {
  for (std::size_t i = 0; i < operands.size(); ++i)
    if (operands[i].length != table.fixedLength())
      fail(path + ": bindTable " + std::to_string(i + 1) + " gives rows of " +
           std::to_string(operands[i].length) + " bytes, but those of table " + table.name() + " have " +
           std::to_string(table.fixedLength()));
}

RowOpsProgram inspectRowOps(const TvPtr<TavroDB>& database, const std::string& path) {
  const TvRT::OwnedContext context = assembleProgram(database, path);
  RowOpsProgram program{path, {operandOf(*context, 1, path)}, {}};
  for (const char* const name : {"hash", "equals", "less", "autoUpdate"})
    if (context->translateEntry(name) != 0) program.operations.insert(name);
  // A hash is of one row, all else of two.
  if (program.operations != std::set<std::string>{"hash"})
    program.operands.push_back(operandOf(*context, 2, path));
  return program;
}

TvPtr<RowOpsBase> loadRowOps(const RowOpsProgram& program, unsigned short index) {
  return named(program.path, [&] {
    return std::make_shared<NamedRowOps>(
        program.path, TvRT::genTvRtRowOps(index, program.operations.contains("autoUpdate"),
                                          program.operations.contains("less"), program.path));
  });
}

}  // namespace Tavro::Tool
