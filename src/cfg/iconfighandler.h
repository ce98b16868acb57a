#pragma once

#include "cfg/iconfigclient.h"

#include <list>
#include <string>

namespace orv::cfg {

// Follows tables of the configuration store.
class IConfigHandler {
public:
    virtual ~IConfigHandler() = default;

    // Appends the names of the tables that it follows.
    virtual void getTables(std::list<std::string>& tables) = 0;
    // One of these tables changed; an empty name asks for a reading of all of them. The result is logged and
    // decides nothing.
    virtual bool configChanged(common::IConfigClient& client, const std::string& table) = 0;
    // The time to act on what the configChanged() calls before it have read.
    virtual void process(common::IConfigClient& client) = 0;
};

} // namespace orv::cfg
