#pragma once

#include "store/storage/clustermemory.h"
#include "store/storage/sharedreads.h"
#include "store/storage/sharing.h"
#include "store/storage/tablewriter.h"
#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace store {

// Finds out what the open transaction changes of shared cells, and that it changes no others.
class ChangeFinder {
public:
    using Result = velta::protocol::EResultCode;

    // All outlive it.
    ChangeFinder(TableWriter& writer, ClusterMemory& memory) : writer_(writer), memory_(memory) {}

    // To be called once. `change` stays empty where only cells that are not shared change. tooLarge if more
    // rows of a shared table were written than can be followed, mixedChange if both kinds change.
    Result find(const SharedReads& reads, SharedChange& change);

private:
    using Cells = std::vector<velta::Value>; // in the order of the table's columns
    // A row before the transaction and now.
    struct Row {
        std::optional<Cells> before;
        std::optional<Cells> now;
    };

    Result findWritten(SharedChange& change);
    Result addWritten(ConnectedTable& table, const TouchedRows::OfTable& touched, SharedChange& change);
    Result addWrittenRow(ConnectedTable& table, std::int64_t id, SharedChange& change);
    Result readRow(std::size_t table, std::int64_t id, Row& row);
    void compare(const Table& table, std::int64_t id, const Row& row);
    Result addRead(const SharedReads& reads, SharedChange& change);
    Result addReadRows(std::size_t table, SharedReads::OfTable reads, SharedChange& change);
    Result addWhole(std::size_t table, SharedChange& change);
    Result nameRow(SharedRow& row);
    Result mixed() const;

    TableWriter& writer_;
    ClusterMemory& memory_;
    bool isNamed_ = false; // rows have names among the devices
    // What differs, for people.
    velta::NameList shared_;
    velta::NameList local_;
    std::set<std::pair<std::size_t, std::int64_t>> found_; // rows in `change` already
};

} // namespace store
