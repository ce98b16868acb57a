// horad on tables of one's own: a store in memory behind IConfigClient, and the link through which horad
// meets it.

#include "cfg/deliveries.h"
#include "cfg/iconfigclient.h"
#include "horad.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using orv::cfg::common::IConfigClient;
using velta::NameList;
using velta::Value;
using velta::ValueList;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

class OwnStore : public IConfigClient {
public:
    using Tables = std::map<std::string, std::vector<ValueList>>; // rows in Id order
    using Name = const std::string&;

    explicit OwnStore(Tables tables) : tables_(std::move(tables)) {}

    // The tables that have changed since the last call, whoever changed them.
    std::set<std::string> takeChanges() { return std::exchange(changes_, {}); }

    EResultCode size(Name table, unsigned& rows) override {
        rows = static_cast<unsigned>(tables_[table].size());
        return code::success;
    }
    EResultCode selectRow(Name table, unsigned row, ValueList& values, const NameList& columns) override {
        values.clear();
        if (row >= tables_[table].size())
            return code::noSuchRow;
        for (const auto& [name, value] : tables_[table][row])
            if (columns.empty() || std::find(columns.begin(), columns.end(), name) != columns.end())
                values.add(name, value);
        return code::success;
    }
    EResultCode selectRowByKey(Name table, Name column, Name key, ValueList& values) override {
        return selectRow(table, rowOf(table, column, key), values, NameList());
    }
    EResultCode writeSingleRow(Name table, unsigned row, const ValueList& values) override {
        if (!before_ || row >= tables_[table].size())
            return before_ ? code::noSuchRow : code::noTransaction;
        ValueList written;
        for (const auto& [name, value] : tables_[table][row])
            written.add(name, values.hasValue(name) ? values.getValue(name) : value);
        tables_[table][row] = written;
        return code::success;
    }
    EResultCode updateRow(Name table, Name column, Name key, const ValueList& values) override {
        return writeSingleRow(table, rowOf(table, column, key), values);
    }
    bool isTransactionOpen() override { return before_.has_value(); }
    EResultCode startTransaction() override {
        if (before_)
            return code::transactionOpen;
        before_ = tables_;
        return code::success;
    }
    EResultCode closeTransaction() override {
        for (const auto& [name, rows] : tables_)
            if (before_ && rows != (*before_)[name])
                changes_.insert(name);
        return std::exchange(before_, std::nullopt) ? code::success : code::noTransaction;
    }
    EResultCode abortTransaction() override {
        tables_ = before_.value_or(tables_);
        return std::exchange(before_, std::nullopt) ? code::success : code::noTransaction;
    }

private:
    unsigned rowOf(Name table, Name column, Name key) {
        const auto isIt = [&](const ValueList& row) { return row.getValue(column).getText() == key; };
        const auto& rows = tables_[table];
        return static_cast<unsigned>(std::find_if(rows.begin(), rows.end(), isIt) - rows.begin());
    }

    Tables tables_;
    std::optional<Tables> before_; // the tables as they were when the open transaction started
    std::set<std::string> changes_;
};

class OwnLink : public orv::horad::StoreLink {
public:
    explicit OwnLink(OwnStore& store) : store_(store), deliveries_(store) {}

    void follow(orv::cfg::IConfigHandler* handler) { deliveries_.add(handler); }
    // The tables of which the store has to tell from now on. Everything is read with the next delivery.
    velta::NameList connect() {
        deliveries_.everythingChanged();
        return deliveries_.tables();
    }

    // Firmware waits for its own events here, for up to so many milliseconds.
    void wait(unsigned) override {}
    void deliver() override {
        for (const std::string& table : store_.takeChanges())
            deliveries_.changed(table);
        deliveries_.deliver();
    }
    void pass(const std::function<void(IConfigClient&)>& run) override { deliveries_.pass(run); }
    IConfigClient& client() override { return deliveries_.client(); }

private:
    OwnStore& store_;
    orv::cfg::Deliveries deliveries_;
};

Value text(const std::string& content) {
    Value value(Value::Text);
    value.setText(content);
    return value;
}

Value number(int content) {
    Value value(Value::Integer);
    value.setInteger(content);
    return value;
}

ValueList row(std::initializer_list<ValueList::Cell> cells) {
    ValueList result;
    for (const auto& [name, value] : cells)
        result.add(name, value);
    return result;
}

// The WLAN's plan is active on every day, from six in the morning to six the next morning.
OwnStore::Tables household() {
    ValueList plan = row({{"Id", number(1)}, {"TimePlanStatus", number(0)}, {"Activate", number(1)}});
    for (const std::string day : {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"}) {
        plan.add("Start" + day, text("06:00:00"));
        plan.add("Stop" + day, text("05:59:59"));
    }
    return {{"WlanGlobals", {row({{"WlanEnable", number(0)}, {"AlwaysEnable", number(0)}})}},
            {"WlanTimePlans", {plan}},
            {"AutoReboot", {row({{"Enable", number(0)}})}},
            {"wexd", {row({{"Enable", number(0)}})}}};
}

void live(orv::horad::Horad& horad, OwnLink& link, OwnStore& store) {
    constexpr int iterations = 3; // the plan becomes active, the WLAN follows, and that is read back
    for (int i = 0; i < iterations; ++i)
        horad.iterate(link);
    ValueList globals;
    const EResultCode read = store.selectRow("WlanGlobals", 0, globals, {"WlanEnable"});
    const bool on = read.ok() && globals.getValue("WlanEnable").getInteger() != 0;
    std::printf("the WLAN is %s\n", on ? "on" : "off");
}

} // namespace

int main() {
    OwnStore store(household());
    OwnLink link(store);
    std::list<std::string> planTables = {"WlanTimePlans"};
    orv::horad::Horad horad(planTables, 0, false,
                            [&link](orv::cfg::IConfigHandler* handler) { link.follow(handler); });
    (void)link.connect(); // this store tells of all of its tables
    live(horad, link, store);

    // From now on the plan keeps the WLAN off while it is active. A commit like any other: horad is told of
    // it.
    const bool done = store.startTransaction().ok() &&
                      store.updateRow("WlanTimePlans", "Id", "1", row({{"Activate", number(0)}})).ok() &&
                      store.closeTransaction().ok();
    live(horad, link, store);
    return done ? 0 : 1;
}
