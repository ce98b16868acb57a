#pragma once

#include "store/storage/tablereader.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <optional>
#include <string>

// What depends on the row that is written to, for cells that checkCells() has taken.
namespace store {

// Whether each value is one of its column's kind: within its range, a time of day. A value that the row holds
// already passes, so that what an older store took can be written over itself. Without a row id the row is a
// new one.
velta::protocol::EResultCode checkKinds(TableReader& reader, ConnectedTable& table,
                                        std::optional<std::int64_t> rowId, const velta::ValueList& values);

// Bytes of cells of a new row.
std::int64_t sizeOfNew(const Table& table, const velta::ValueList& values);
// Bytes of cells of a row that is there.
velta::protocol::EResultCode sizeOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                    std::int64_t& bytes);
// How many bytes the row gains by the values. Numbers alone cost no reading.
velta::protocol::EResultCode growthBy(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                      const velta::ValueList& values, std::int64_t& bytes);

// Whether a cell of the row is not as in the values. Without the row none is.
velta::protocol::EResultCode differsFrom(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                         const velta::ValueList& values, bool& differs);

// A row's cells, one behind the other; nothing where there is no such row.
using RowImage = std::optional<std::string>;

velta::protocol::EResultCode imageOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                     RowImage& image);

} // namespace store
