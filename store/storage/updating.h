#pragma once

#include "store/storage/clustermemory.h"
#include "store/storage/sharedrows.h"
#include "store/storage/sharing.h"
#include "store/storage/tablewriter.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <optional>
#include <string>

namespace store {

// Writes what came from other devices, in the open transaction of the writer. Rows that the schema refuses
// are noted and left out.
class Updating {
public:
    using Result = velta::protocol::EResultCode;

    // All outlive it.
    Updating(const Schema& schema, TableWriter& writer, ClusterMemory& memory, SharedRows::Applied& applied)
        : schema_(schema), writer_(writer), memory_(memory), applied_(applied) {}

    // Fails for errors of the storage alone. Gives up once it finds that cells are missing.
    Result carryOut(const SharedUpdates& updates);

private:
    // What came for a row.
    struct Target {
        ConnectedTable& table;
        const SharedUpdate& update;
        velta::ValueList values; // the cells that came
        bool isWhole = false;    // all came
    };

    bool isShared(std::size_t table) const;
    Result removeOthers(std::size_t table, const SharedUpdates& updates);
    Result removeNamed(const SharedUpdate& update);
    Result take(const SharedUpdate& update, bool adopt);
    Result takeSingle(const Target& target, bool isKnown);
    Result change(const Target& target, std::int64_t id);
    Result add(const Target& target, bool adopt);
    Result put(const Target& target, std::int64_t id, bool adopt);
    Result replace(const Target& target, std::int64_t id);
    Result updateCells(const Target& target, std::int64_t id);
    Result remove(ConnectedTable& table, std::int64_t id);

    Result remember(const Target& target, std::int64_t id);
    Result forget(const ConnectedTable& table, std::int64_t id);
    void refuse(const SharedUpdate& update, std::string reason);
    // Notes a failure for which the schema is the reason; another one is returned.
    Result orRefused(const SharedUpdate& update, const Result& result);

    const Schema& schema_;
    TableWriter& writer_;
    ClusterMemory& memory_;
    SharedRows::Applied& applied_;
};

} // namespace store
