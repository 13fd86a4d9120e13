#include "pipeline.h"

#include <algorithm>

#include "failure.h"

namespace Tavro::Tool {

namespace {

bool reads(const Operator& reader, const Table& table) {
  return std::find(reader.tables.begin() + 1, reader.tables.end(), &table) != reader.tables.end();
}

// Walks the operators depth first, from each to the readers of its output.
class FlowWalk {
 public:
  explicit FlowWalk(const std::vector<Operator>& operators)
      : operators_(operators), seen_(operators.size()) {}

  std::vector<std::size_t> order() {
    // From the last to the first, so that what does not depend on each other keeps its order.
    for (std::size_t i = operators_.size(); i-- > 0;) visit(i);
    std::reverse(left_.begin(), left_.end());
    return left_;
  }

 private:
  void visit(std::size_t number) {
    if (seen_[number]) return;
    seen_[number] = true;
    road_.push_back(number);
    for (std::size_t i = operators_.size(); i-- > 0;) {
      if (!reads(operators_[i], operators_[number].output())) continue;
      const auto entered = std::find(road_.begin(), road_.end(), i);
      if (entered != road_.end()) failOnCycle(static_cast<std::size_t>(entered - road_.begin()));
      visit(i);
    }
    road_.pop_back();
    left_.push_back(number);
  }

  [[noreturn]] void failOnCycle(std::size_t begin) const {
    std::string names;
    for (std::size_t i = begin; i < road_.size(); ++i) names += operators_[road_[i]].output().name() + " -> ";
    fail("the tables of the programs form a cycle: " + names + operators_[road_[begin]].output().name());
  }

  const std::vector<Operator>& operators_;
  std::vector<bool> seen_;
  std::vector<std::size_t> road_;
  std::vector<std::size_t> left_;
};

}  // namespace

std::vector<std::size_t> orderOfFlow(const std::vector<Operator>& operators) {
  return FlowWalk(operators).order();
}

}  // namespace Tavro::Tool
