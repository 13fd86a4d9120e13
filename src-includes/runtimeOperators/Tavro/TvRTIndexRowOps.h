#pragma once

#include <cstdint>
#include <string>

#include "Tavro/RowOpsBase.h"
#include "Tavro/TvRTContext.h"
#include "Tavro/export.h"
#include "Tavro/tavroDb.h"
#include "Tavro/tvPtr.h"

namespace Tavro::TvRT {

// The rules of a programmed index: a program with the entries "hash", "equals", "less" and "autoUpdate", each
// run on demand in a context of its own. Operands stand in row slots 1 and 2, results are left on the stack,
// except for autoUpdate, whose result is the row left in slot 1. The program must not touch tables.
//
// Every operation passes on what its run throws; the slots then keep their rows and the stack what it held.
class TAVRO_EXPORT RowOps : public RowOpsBase {
 public:
  // Loads the program at `path` and runs its "init" entry. Throws what Loader::load and the run throw.
  RowOps(unsigned short index, bool unique, bool ordered, const std::string& path, TvPtr<TavroDB> db);
  RowOps(const RowOps&) = delete;
  RowOps& operator=(const RowOps&) = delete;
  ~RowOps() override;

  // The low 32 bits of the value that the program leaves.
  unsigned int hash(const BaseRow& row) override;
  bool equals(const BaseRow& a, const BaseRow& b) override;
  bool less(const BaseRow& a, const BaseRow& b) override;
  // `current` moves into its slot and comes back as the program left it, with a buffer of its own if the
  // program wrote to one that was shared.
  void autoUpdate(BaseRow& current, const BaseRow& incoming) override;
  bool unique() override { return uniqueFlag; }
  bool ordered() override { return orderedFlag; }
  unsigned short index() override { return indexNum; }
  long long getTotalInstructionsExecuted() override;

  void snapshotStats();

 private:
  bool compare(const char* name, const char* function, int line, len_t entry, const BaseRow& a,
               const BaseRow& b);
  void run(len_t entry);

  Context* context;
  len_t hashEntry = 0;
  len_t equalsEntry = 0;
  len_t lessEntry = 0;
  len_t autoUpdateEntry = 0;
  unsigned short indexNum;
  bool uniqueFlag;
  bool orderedFlag;
  std::uint64_t totalInstructions = 0;
};

// The rules of index number `index` by the program at `path`, over the process's database.
TAVRO_EXPORT TvPtr<RowOpsBase> genTvRtRowOps(unsigned short index, bool unique, bool ordered,
                                             const std::string& path);

}  // namespace Tavro::TvRT
