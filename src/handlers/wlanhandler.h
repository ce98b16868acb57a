#pragma once

#include "cfg/iconfighandler.h"

#include <list>
#include <string>

namespace orv::horad {

// Switches the WLAN: derives the wanted state from the statuses of "WlanTimePlans" and writes "WlanEnable" of
// "WlanGlobals" where it differs, unless the WLAN is always enabled.
class WlanHandler : public cfg::IConfigHandler {
public:
    void getTables(std::list<std::string>& tables) override;
    // True when the plans were read, or when "AlwaysEnable" was just turned off.
    bool configChanged(cfg::common::IConfigClient& client, const std::string& table) override;
    // Writes again with every call until the store's notice has brought the written value back.
    void process(cfg::common::IConfigClient& client) override;

    // The WLAN as the store says it is, for people: "WLAN on". Null before "WlanGlobals" was read.
    const char* status() const;

private:
    bool readGlobals(cfg::common::IConfigClient& client);
    bool readTimePlans(cfg::common::IConfigClient& client);
    void writeWlanEnable(cfg::common::IConfigClient& client);

    bool isRead_ = false;      // whether the two below are of the store
    bool wlanEnabled_ = false; // what the store says, not what was written
    bool alwaysEnabled_ = false;
    bool wantedStatus_ = false;
};

} // namespace orv::horad
