#pragma once

#include "store/cluster/rpcmessage.h"
#include "store/storage/schema.h"

#include <string>

// How the shared tables are declared in a cluster, and the cluster's own tables beside them:
//   Devices   a row for each device that ever changed something: its name, and the numbers by which a
//             transaction is neither applied twice nor late
//   Cluster   one row, once the shared tables were filled for the first time
//   Reserved  Ids that a device is about to use
namespace store {

inline constexpr const char* clusterDatabase = "horad";

// For `ovsdb-tool create`. complaintOfSharedTables() has been asked before.
Json clusterSchemaOf(const Schema& schema);

// What keeps the schema's tables from being shared in any cluster; empty if nothing does.
std::string complaintOfSharedTables(const Schema& schema);

// What is missing in the schema of a cluster, which a member answered to "get_schema", or is of another type,
// for people; empty if nothing is. What it has beyond is not heeded.
std::string complaintOfSchema(const Schema& schema, const Json& answer);

} // namespace store
