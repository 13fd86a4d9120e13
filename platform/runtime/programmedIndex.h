#pragma once

#include <memory>
#include <vector>

#include "Tavro/RowOpsBase.h"
#include "Tavro/tvMetadata.h"
#include "Tavro/tvPtr.h"
#include "index.h"

namespace Tavro {

// Index number `number` over rows with these columns, by the rules of a program. It checks what a program
// reads: a row that an index takes has all columns of the table.
std::unique_ptr<IndexBase> makeProgrammedIndex(unsigned number,
                                               const std::vector<tvMetadata::tvColumn>& columns,
                                               len_t fixedLength, TvPtr<RowOpsBase> rules);

}  // namespace Tavro
