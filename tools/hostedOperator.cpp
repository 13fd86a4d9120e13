#include "hostedOperator.h"

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

}  // namespace

HostedOperator::HostedOperator(const Operator& plan, Database& database, FailureReport failed)
    : plan_(plan), client_(database, [this, report = std::move(failed)](const std::exception_ptr& cause) {
        hasFailed_ = true;
        report(plan_.path + ": " + placeOfRun() + textOf(cause));
      }) {
  client_.bind([&] {
    proxy_ = TvRT::Proxy::factory(plan_.path, plan_.client, plan_.standing);
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
