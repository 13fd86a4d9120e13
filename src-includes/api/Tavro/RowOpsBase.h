#pragma once

#include "Tavro/baseRow.h"
#include "Tavro/export.h"

namespace Tavro {

// The rules of a programmed index. An index calls it from one thread at a time; every call may throw, and the
// index then leaves its table as it was.
class TAVRO_EXPORT RowOpsBase {
 public:
  virtual ~RowOpsBase() = default;

  virtual unsigned int hash(const BaseRow& row) = 0;
  virtual bool equals(const BaseRow& a, const BaseRow& b) = 0;
  virtual bool less(const BaseRow& a, const BaseRow& b) = 0;
  // Merges `incoming` into `current`, which gets a buffer of its own if the program writes to it.
  virtual void autoUpdate(BaseRow& current, const BaseRow& incoming) = 0;
  // The index admits one row per key.
  virtual bool unique() = 0;
  // The index keeps rows in the order of `less`; otherwise it finds them by `hash` and `equals`.
  virtual bool ordered() = 0;
  // The index's number in its table.
  virtual unsigned short index() = 0;
  // Reads and clears the counter.
  virtual long long getTotalInstructionsExecuted() = 0;
};

}  // namespace Tavro
