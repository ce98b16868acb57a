#include "handlers/wlanhandler.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "handlers/transaction.h"
#include "handlers/wlandecision.h"
#include "handlers/writefailure.h"
#include "log.h"

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::ValueList;
using velta::protocol::EResultCode;

void WlanHandler::getTables(std::list<std::string>& tables) {
    tables.emplace_back(dbm::WlanGlobals);
    tables.emplace_back(dbm::WlanTimePlans);
}

bool WlanHandler::configChanged(IConfigClient& client, const std::string& table) {
    bool result = false;
    if (table.empty() || table == dbm::WlanGlobals) {
        Logger::instance().debug("Table %s was changed", table.c_str());
        result = readGlobals(client);
    }
    if (table.empty() || table == dbm::WlanTimePlans) {
        Logger::instance().debug("Table %s was changed", table.c_str());
        result = readTimePlans(client);
    }
    return result;
}

bool WlanHandler::readGlobals(IConfigClient& client) {
    ValueList row;
    const EResultCode selected = client.selectRow(dbm::WlanGlobals, 0, row, velta::NameList());
    if (!selected.ok()) {
        Logger::instance().error("selectRow() failed: %s", selected.strerror().c_str());
        return false;
    }
    wlanEnabled_ = row.getValue(dbm::WlanGlobals_WlanEnable).getInteger() != 0;
    // The number is compared with the flag as 0 or 1: a 2 counts as a change each time it is read. C4: sic
    const int always = row.getValue(dbm::WlanGlobals_AlwaysEnable).getInteger();
    bool turnedOff = false;
    if (always != (alwaysEnabled_ ? 1 : 0)) {
        alwaysEnabled_ = always != 0;
        turnedOff = !alwaysEnabled_;
    }
    isRead_ = true;
    Logger::instance().debug("%s: %d, %s: %d", dbm::WlanGlobals_WlanEnable, wlanEnabled_ ? 1 : 0,
                             dbm::WlanGlobals_AlwaysEnable, alwaysEnabled_ ? 1 : 0);
    return turnedOff;
}

bool WlanHandler::readTimePlans(IConfigClient& client) {
    unsigned rows = 0;
    const EResultCode sized = client.size(dbm::WlanTimePlans, rows);
    if (!sized.ok()) {
        Logger::instance().error("size() failed: %s", sized.strerror().c_str());
        return false;
    }
    WlanDecision decision;
    for (unsigned i = 0; i < rows; ++i) {
        ValueList row;
        const EResultCode selected = client.selectRow(dbm::WlanTimePlans, i, row, velta::NameList());
        if (!selected.ok()) {
            Logger::instance().error("size() failed: %s", selected.strerror().c_str()); // C27: sic
            return false;
        }
        decision.hear(row.getValue(dbm::TimePlan_Activate).getInteger(),
                      row.getValue(dbm::TimePlan_Status).getInteger());
    }
    wantedStatus_ = decision.wanted();
    Logger::instance().debug("WLAN status: %d", wantedStatus_ ? 1 : 0);
    return true;
}

void WlanHandler::process(IConfigClient& client) {
    if (wlanActionOf(alwaysEnabled_, wlanEnabled_, wantedStatus_) != WlanAction::Switch)
        return;
    Logger::instance().debug(wlanEnabled_ ? "Switch WLAN off" : "Switch WLAN on");
    writeWlanEnable(client);
}

const char* WlanHandler::status() const {
    if (!isRead_)
        return nullptr;
    if (alwaysEnabled_)
        return wlanEnabled_ ? "WLAN on, AlwaysEnable" : "WLAN off, AlwaysEnable";
    return wlanEnabled_ ? "WLAN on" : "WLAN off";
}

void WlanHandler::writeWlanEnable(IConfigClient& client) {
    const ValueList values =
        oneCell(dbm::WlanGlobals_WlanEnable, velta::Value::Switch, wantedStatus_ ? 1 : 0);
    Transaction transaction(client);
    if (!transaction.started().ok()) {
        logStartFailure(transaction.started());
        return;
    }
    const EResultCode written = client.writeSingleRow(dbm::WlanGlobals, 0, values);
    if (!written.ok())
        logWriteFailure(written);
    (void)transaction.commit(); // what the store then holds comes back with its notice
}

} // namespace orv::horad
