#pragma once

#include "store/storage/tablereader.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <optional>
#include <string>

// Checks that depend on the row that is written to. checkCells() has accepted the values before.
namespace store {

// Whether each value fits its column's kind: it is within the range, or a time of day. A value that the row
// holds already always passes, so that a value which an older store accepted can be written back. Without a
// row id the row is a new one.
velta::protocol::EResultCode checkKinds(TableReader& reader, ConnectedTable& table,
                                        std::optional<std::int64_t> rowId, const velta::ValueList& values);

// Bytes of cells of a new row.
std::int64_t sizeOfNew(const Table& table, const velta::ValueList& values);
// Bytes of cells of an existing row.
velta::protocol::EResultCode sizeOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                    std::int64_t& bytes);
// How many bytes the row grows by when the values are written. If all are numbers, the row is not read.
velta::protocol::EResultCode growthBy(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                      const velta::ValueList& values, std::int64_t& bytes);

// Whether a cell of the row differs from its value in the list. False if there is no such row.
velta::protocol::EResultCode differsFrom(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                         const velta::ValueList& values, bool& differs);

// A row's cells, one after the other; none if there is no such row.
using RowImage = std::optional<std::string>;

velta::protocol::EResultCode imageOf(TableReader& reader, ConnectedTable& table, std::int64_t rowId,
                                     RowImage& image);

} // namespace store
