#pragma once

#include "store/storage/clustermemory.h"
#include "store/storage/sharing.h"
#include "store/storage/tablereader.h"
#include "velta/protocol/resultcode.h"

#include <vector>

namespace store {

// Appends all rows of a shared table as the reader sees them. Without a memory they have no names.
velta::protocol::EResultCode addSharedRows(TableReader& reader, std::size_t table, ClusterMemory* memory,
                                           std::vector<SharedRow>& rows);

} // namespace store
