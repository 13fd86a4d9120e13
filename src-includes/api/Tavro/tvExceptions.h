#pragma once

#include <string>
#include <utility>

#include "Tavro/Kelpo.h"
#include "Tavro/export.h"

namespace Tavro {

// Base of every failure that the system itself defines.
class TAVRO_EXPORT TvBaseException : public Kelpo::Exception {
 public:
  TvBaseException(std::string message, std::string name)
      : Kelpo::Exception(std::move(message), true), name_(std::move(name)) {}

  // The name of the failure's class, as the system spells it.
  virtual const std::string& name() const { return name_; }

 private:
  std::string name_;
};

// A null row was written to, or used as a key.
class TAVRO_EXPORT TvNullRow : public TvBaseException {
 public:
  TvNullRow() : TvBaseException("null row", "Tavro::TvNullRow") {}
};

// An operator cannot take a notification in its present state.
class TAVRO_EXPORT TvTableFull : public TvBaseException {
 public:
  explicit TvTableFull(std::string message) : TvBaseException(std::move(message), "Tavro::TvTableFull") {}
};

// A value lies outside of what its place can hold.
class TAVRO_EXPORT TvOutOfRange : public TvBaseException {
 public:
  explicit TvOutOfRange(std::string message) : TvBaseException(std::move(message), "Tavro::OutOfRange") {}
};

// Raised by a table that cannot take a row now. The writer is told through its block handler when it can.
class TAVRO_EXPORT TvMaxRowsExceeded : public TvBaseException {
 public:
  explicit TvMaxRowsExceeded(std::string message)
      : TvBaseException(std::move(message), "Tavro::TvMaxRowsExceeded") {}
};

namespace TvRT {

// A program text that cannot be assembled.
class TAVRO_EXPORT TvAssemblyException : public TvBaseException {
 public:
  explicit TvAssemblyException(std::string message)
      : TvBaseException(std::move(message), "Tavro::TvRT::TvAssemblyException") {}
};

}  // namespace TvRT
}  // namespace Tavro
