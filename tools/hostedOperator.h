#pragma once

#include <exception>
#include <functional>
#include <string>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"
#include "pipeline.h"

namespace Tavro::Tool {

// An operator at work, as a client of the database of its own: what it raises ends it alone.
class HostedOperator {
 public:
  using FailureReport = std::function<void(const std::string& text)>;

  // Loads the program and connects it to its tables. `failed` is called once, from the scheduler's loop, with
  // the program, the place in it and the cause, when a run has raised something. `plan` is not owned. Throws
  // what loading, initialising and connecting throw.
  HostedOperator(const Operator& plan, Database& database, FailureReport failed);
  HostedOperator(const HostedOperator&) = delete;
  HostedOperator& operator=(const HostedOperator&) = delete;
  ~HostedOperator() = default;

  bool hasFailed() const { return hasFailed_; }

 private:
  std::string placeOfRun() const;

  const Operator& plan_;
  bool hasFailed_ = false;
  Client client_;
  TvPtr<TvRT::Proxy> proxy_;
};

}  // namespace Tavro::Tool
