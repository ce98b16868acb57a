#pragma once

#include "store/cluster/jsonaccess.h"
#include "store/storage/schema.h"
#include "store/storage/sharing.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace store {

// What a member told, translated.
struct ClusterNews {
    std::vector<SharedUpdate> rows;
    // A row that the schema refuses.
    struct Refusal {
        std::size_t table; // its index in the schema
        std::string uuid;
        std::string reason; // for people
    };
    std::vector<Refusal> refused;
    // Of the table Cluster: there is a row once the shared tables were filled for the first time.
    struct Seed {
        std::string uuid; // tells this cluster from every other one
        std::string by;   // the device
    };
    std::optional<Seed> seed;
    // Of this device's row among Devices; what did not change may be missing.
    std::optional<std::int64_t> token;
    std::optional<std::int64_t> done;
};

// Of <table-updates2> as in RFC 7047. Fails with a complaint where it is malformed. Tables and columns that
// the schema does not share are not heeded.
std::string readNews(const Schema& schema, const Json& tables, ClusterNews& news);

// What a member is to tell: all shared columns, and of the cluster's own tables what concerns this device.
Json monitorRequests(const Schema& schema, const std::string& device);

} // namespace store
