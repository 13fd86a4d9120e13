#include "hostedOperator.h"

#include <stdexcept>
#include <utility>

#include "listing.h"

namespace Tavro::Tool {

namespace {

std::string textOf(const std::exception_ptr& cause) {
  try {
    std::rethrow_exception(cause);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

// The program has been loaded before: what is thrown now is what the run of its first entry throws.
TvPtr<TvRT::Proxy> started(const Operator& plan) {
  try {
    return TvRT::Proxy::factory(plan.path, plan.client, plan.standing);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("entry init: ") + error.what());
  }
}

}  // namespace

HostedOperator::HostedOperator(const Operator& plan, Database& database, FailureReport failed)
    : plan_(plan), client_(database, [this, report = std::move(failed)](const std::exception_ptr& cause) {
        hasFailed_ = true;
        report(plan_.path + ": " + placeOfRun() + textOf(cause));
      }) {
  client_.bind([&] {
    proxy_ = started(plan_);
    proxy_->enable();
  });
}

std::string HostedOperator::placeOfRun() const {
  const TvRT::Context& context = proxy_->program();
  if (context.runEntry() == 0) return "";
  const len_t offset = offsetOfInstructionBefore(context, context.istream().programCounter());
  return "entry " + context.entryName(context.runEntry()) + ", offset " + std::to_string(offset) + ": ";
}

}  // namespace Tavro::Tool
