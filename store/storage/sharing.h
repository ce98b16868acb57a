#pragma once

#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"
#include "velta/value.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// What the store keeps in common with other devices: some columns of its schema, and the rows of the tables
// that have such columns. The server needs somebody who takes its shared changes to the other devices; who
// that is, it does not know.
namespace store {

// The shared cells of a row, in the order of Table::sharedColumns().
using SharedCells = std::vector<velta::Value>;

// A row of a shared table, by the table's index in the schema. A single-row table has the one Id 1.
struct SharedRow {
    std::size_t table = 0;
    std::int64_t id = 0;
    std::string uuid; // its name among the devices; empty for a row that they don't have yet
    SharedCells cells;
};

// What a transaction does to shared cells.
struct SharedChange {
    struct Row {
        SharedRow row;                    // as it was before; of a new row without cells
        std::optional<SharedCells> after; // none: the row is removed
        bool isNew = false;
    };
    std::vector<Row> rows; // those that differ, and those that were only read: `after` is as before then
    // Tables that were read as a whole or searched, with all rows as they were before.
    std::vector<std::pair<std::size_t, std::vector<SharedRow>>> tables;

    bool changesNothing() const;
};

// What became of a row on the devices' side.
struct SharedUpdate {
    std::size_t table = 0;
    std::string uuid;
    // None where the row is removed. A row that is new here has its Id and all cells; of another one, cells
    // that did not change may be missing.
    struct Values {
        std::optional<std::int64_t> id;
        std::vector<std::optional<velta::Value>> cells;
    };
    std::optional<Values> values;
};

// Up to where the cluster is followed. It is kept in the same commit as the rows.
struct SharedPosition {
    std::string cluster;         // its identity
    std::string lastTransaction; // empty: everything has to be read next time
    std::uint64_t index = 0;     // of the cluster's log
};

struct SharedUpdates {
    std::vector<SharedUpdate> rows;
    // `rows` is all that the devices share: other rows of shared tables are removed.
    bool complete = false;
    // With `complete`: a row here that has no name among the devices yet is taken for the one with its Id,
    // and keeps its state. Else it is replaced.
    bool adopt = false;
    SharedPosition position;
    // With `complete`: uuids of rows that came too, of which this device can't hold a cell. A row that is
    // known by that name stays as it was.
    std::vector<std::string> refused = {};
};

// Takes shared changes to the other devices, and brings theirs. For one thread; nothing in it waits.
class Sharing {
public:
    using Clock = std::chrono::steady_clock;
    using Result = velta::protocol::EResultCode;
    // Called once, from within settle() or apply() or a callback of the dispatcher, and never from within the
    // call that it was given to.
    using Committed = std::function<void(const Result& result)>;
    using Reserved = std::function<void(const Result& result, std::uint32_t id)>;

    virtual ~Sharing() = default;

    // A failure is the answer at once, and `done` is not called. With success the change is kept by the
    // cluster and applied here.
    [[nodiscard]] virtual Result commit(SharedChange change, Committed done) = 0;
    // The lowest free Id of the table, for a row that is about to be inserted. A failure as for commit().
    [[nodiscard]] virtual Result reserve(std::size_t table, Reserved done) = 0;
    // An Id that was reserved and is not used.
    virtual void giveBack(std::size_t table, std::uint32_t id) = 0;

    // Whether there is something to apply. While a transaction is open it waits.
    virtual bool hasUpdates() const = 0;
    // Applies it, in commits of its own, and returns the tables that changed. No transaction is open. Where
    // much has come, a part of it stays: hasUpdates() says so.
    virtual velta::NameList apply() = 0;

    // Does what is due.
    virtual void settle(Clock::time_point now) = 0;
    virtual Clock::time_point nextDeadline() const = 0;
};

} // namespace store
