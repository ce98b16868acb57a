#pragma once

#include "store/cluster/jsonaccess.h"
#include "store/storage/schema.h"
#include "store/storage/sharing.h"
#include "velta/protocol/resultcode.h"

#include <map>
#include <string>
#include <vector>

namespace store {

// Operations of a transaction in the cluster, and what it means if one of them fails.
struct SharedOperations {
    using Result = velta::protocol::EResultCode;

    Json list = Json::array();
    std::vector<Result> failures; // of each operation
    Result failure;               // of the whole

    void add(Json operation, Result failed);
    // The result if the operation with that index failed.
    const Result& failed(std::size_t index) const {
        return index < failures.size() ? failures[index] : failure;
    }
};

// Rows that this device does not hold as the cluster does, because its schema refuses them: their names
// there, and the index of their table.
using UnheldRows = std::map<std::string, std::size_t>;

// Waits for what a change relies upon, and makes it. Fails for a text that the cluster can't hold. Nothing is
// waited for of rows that are not held: no change of their table would ever be possible here.
velta::protocol::EResultCode appendChange(const Schema& schema, const SharedChange& change,
                                          const UnheldRows& unheld, SharedOperations& operations);
// The rows of an empty cluster: all that this device has.
velta::protocol::EResultCode appendSeed(const Schema& schema, const std::vector<SharedRow>& rows,
                                        const std::string& device, SharedOperations& operations);

// A condition of the rows of an operation.
Json equals(const char* column, Json value);
// "wait" for exactly these rows, where `where` holds; at once.
Json waitFor(const std::string& table, Json where, Json columns, Json rows);
Json insertInto(const std::string& table, Json row);
Json removeFrom(const std::string& table, Json where);

} // namespace store
