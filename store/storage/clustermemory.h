#pragma once

#include "store/storage/sharing.h"
#include "store/storage/sqlite.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace store {

// What the file remembers of a cluster: up to where it is followed, and the names that the rows of shared
// tables have among the devices. It lies in two tables of its own, whose names no schema can have.
class ClusterMemory {
public:
    using Result = velta::protocol::EResultCode;

    // On the writing connection, which outlives it.
    explicit ClusterMemory(Connection& connection);

    // Whether the tables are there.
    Result isThere(bool& there);
    Result read(std::string& device, SharedPosition& position);

    Result uuidOf(const std::string& table, std::int64_t id, std::string& uuid); // empty if it has none
    Result idOf(const std::string& table, const std::string& uuid, std::optional<std::int64_t>& id);
    // All of a table, by their Ids.
    Result uuidsOf(const std::string& table, std::map<std::int64_t, std::string>& uuids);

    // Statements that write, for TableWriter::writeOther().
    Statement& makeRows() { return makeRows_; }
    Statement& makeState() { return makeState_; }
    Statement& begin() { return begin_; } // parameter 1: the device's name; does nothing if there is one
    Statement& dropRows() { return dropRows_; }
    Statement& dropState() { return dropState_; }
    Statement& follow() { return follow_; }     // parameters: cluster, last transaction, index
    Statement& remember() { return remember_; } // parameters: table, Id, uuid
    Statement& forget() { return forget_; }     // parameters: table, Id

private:
    Connection& connection_;
    Statement isThere_;
    Statement makeRows_;
    Statement makeState_;
    Statement begin_;
    Statement dropRows_;
    Statement dropState_;
    Statement read_;
    Statement follow_;
    Statement uuidOf_;
    Statement idOf_;
    Statement uuidsOf_;
    Statement remember_;
    Statement forget_;
};

} // namespace store
