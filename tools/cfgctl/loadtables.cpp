#include "tools/cfgctl/loadtables.h"

#include "cfg/pipeline.h"
#include "cfg/requests.h"
#include "tools/cfgctl/load.h"
#include "tools/loadsource.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <set>

namespace tools::cfgctl {

using orv::cfg::ConfigClient;
using orv::cfg::Pipeline;
using orv::cfg::Snapshot;
using velta::ValueList;
using velta::protocol::Request;
namespace requests = orv::cfg::requests;

namespace {

using Clock = std::chrono::steady_clock;

// Where devices share columns, a transaction may change those or the others, not both. Then a file is loaded
// in two parts.
enum class Part { Everything, Shared, Rest };

// By table, of those that share any.
using SharedColumns = std::map<std::string, std::set<std::string>>;

// What of the file is loaded in one transaction.
struct Scope {
    Part part = Part::Everything;
    SharedColumns shared;

    bool shares(const std::string& table) const { return shared.count(table) != 0; }
    bool isShared(const std::string& table, const std::string& column) const {
        return column == idColumn || shared.at(table).count(column) != 0;
    }
    bool hasTable(const std::string& table) const { return part != Part::Shared || shares(table); }
    // Whether rows are added and removed; else those that are there are changed.
    bool hasRows(const std::string& table) const { return part != Part::Rest || !shares(table); }
    // Those of this part: another device may have changed the others meanwhile.
    ValueList cellsOf(const std::string& table, const ValueList& row) const {
        if (part == Part::Everything || !shares(table))
            return row;
        ValueList cells;
        for (const auto& [column, value] : row)
            if (column == idColumn || isShared(table, column) == (part == Part::Shared))
                cells.add(column, value);
        return cells;
    }
};

Request requestFor(const std::string& table, const Write& write) {
    switch (write.kind) {
    case Write::Kind::WriteSingle:
        return requests::writeSingle(table, 0, write.cells);
    case Write::Kind::Update:
        return requests::update(table, idColumn, std::to_string(write.id), write.cells);
    case Write::Kind::Remove:
        return requests::remove(table, idColumn, std::to_string(write.id));
    case Write::Kind::Insert:
        break;
    }
    return requests::insert(table, write.cells);
}

// Sends writes, and knows for each that is on the way what asked for it.
class Writes {
public:
    Writes(ConfigClient& client, LoadOutcome& outcome) : pipeline_(client.writesAhead()), outcome_(outcome) {}

    void send(const std::string& table, const Write& write) {
        ++(write.kind == Write::Kind::Remove ? outcome_.removed : outcome_.written);
        places_.push_back(write.place);
        check(pipeline_.send(requestFor(table, write)));
    }

    void finish() { check(pipeline_.finish()); }

private:
    void check(const velta::protocol::EResultCode& result) {
        for (; told_ < pipeline_.done(); ++told_)
            places_.pop_front();
        if (!result.ok())
            throw Refused((places_.empty() ? "" : places_.front() + ": ") + failureText(result));
    }

    Pipeline pipeline_;
    LoadOutcome& outcome_;
    std::deque<std::string> places_; // of those that are on the way
    std::size_t told_ = 0;           // how many are not any more
};

// The second reading of a file, in the transaction: all but the rows that have no Id.
class RowsWithId : public LoadVisitor {
public:
    RowsWithId(ConfigClient& client, const LoadCheck& check, const Scope& scope, LoadOutcome& outcome)
        : client_(client), check_(check), scope_(scope), outcome_(outcome) {}

    void table(const std::string& name, bool) override {
        finish();
        const auto found = check_.tables().find(name);
        if (found == check_.tables().end())
            throw Refused("it changed while it was read");
        wanted_ = &found->second;
        if (!scope_.hasTable(name))
            return;
        require(client_.readTable(name, current_));
        writes_ = std::make_unique<Writes>(client_, outcome_);
        plan_ = std::make_unique<LoadPlan>(*wanted_, current_,
                                           [this, name](const Write& write) { send(name, write); });
        if (scope_.hasRows(name))
            plan_->removeOthers();
    }

    void row(const LoadRow& file, const std::string& place) override {
        if (!plan_)
            return; // of a table that is not loaded now
        const ValueList row = scope_.cellsOf(wanted_->table.name, wantedRow(file, wanted_->table));
        if (wanted_->table.singleRow || row.hasValue(idColumn))
            plan_->write(row, place);
    }

    void finish() {
        if (writes_)
            writes_->finish();
        plan_.reset();
        writes_.reset();
    }

private:
    void send(const std::string& table, const Write& write) {
        if (write.kind == Write::Kind::Insert && !scope_.hasRows(table))
            throw Refused(write.place + ": another device has removed the row meanwhile");
        writes_->send(table, write);
    }

    ConfigClient& client_;
    const LoadCheck& check_;
    const Scope& scope_;
    LoadOutcome& outcome_;
    const WantedTable* wanted_ = nullptr;
    Snapshot current_;
    std::unique_ptr<Writes> writes_;
    std::unique_ptr<LoadPlan> plan_;
};

// The third one, of files that have them. These rows come last: an Id that the store gives can't be a wanted
// one then.
class RowsWithoutId : public LoadVisitor {
public:
    RowsWithoutId(ConfigClient& client, const LoadCheck& check, const Scope& scope, LoadOutcome& outcome)
        : check_(check), scope_(scope), writes_(client, outcome) {}

    void table(const std::string& name, bool) override {
        const auto found = check_.tables().find(name);
        if (found == check_.tables().end())
            throw Refused("it changed while it was read");
        table_ = &found->second.table;
    }

    void row(const LoadRow& file, const std::string& place) override {
        const std::string& table = table_->name;
        if (table_->singleRow || !scope_.hasTable(table) || !scope_.hasRows(table))
            return;
        const ValueList row = wantedRow(file, *table_);
        if (row.hasValue(idColumn))
            return;
        if (scope_.part == Part::Shared)
            checkShared(row, place);
        writes_.send(table, Write{Write::Kind::Insert, 0, row, place});
    }

    void finish() { writes_.finish(); }

private:
    // The other part could not find the row.
    void checkShared(const ValueList& row, const std::string& place) const {
        for (const auto& [column, value] : row)
            if (!scope_.isShared(table_->name, column))
                throw Refused(place + ": " + column +
                              " is not shared with the other devices, so the row needs an Id");
    }

    const LoadCheck& check_;
    const Scope& scope_;
    const Table* table_ = nullptr;
    Writes writes_;
};

void read(LoadSource& source, LoadVisitor& visitor) {
    LoadText text([&](char* bytes, std::size_t size) { return source.read(bytes, size); });
    parseLoadFile(text, visitor);
}

template <class Rows>
void writeRows(ConfigClient& client, LoadSource& source, const LoadCheck& check, const Scope& scope,
               LoadOutcome& outcome) {
    Rows rows(client, check, scope, outcome);
    source.rewind();
    read(source, rows);
    rows.finish();
}

// One transaction. Its failure to commit is the result, everything else is thrown.
velta::protocol::EResultCode loadPart(ConfigClient& client, LoadSource& source, const LoadCheck& check,
                                      const Scope& scope, LoadOutcome& outcome) {
    Transaction transaction(client);
    const Clock::time_point begin = Clock::now();
    writeRows<RowsWithId>(client, source, check, scope, outcome);
    if (check.hasRowsWithoutId())
        writeRows<RowsWithoutId>(client, source, check, scope, outcome);
    const velta::protocol::EResultCode result = transaction.tryCommit();
    outcome.open += std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    return result;
}

SharedColumns sharedColumns(ConfigClient& client, const LoadCheck& check) {
    SharedColumns shared;
    for (const auto& [name, wanted] : check.tables()) {
        std::vector<velta::protocol::ColumnInfo> columns;
        require(client.sharedColumns(name, columns));
        for (const velta::protocol::ColumnInfo& column : columns)
            shared[name].insert(column.name);
    }
    return shared;
}

LoadOutcome loadInTwoParts(ConfigClient& client, LoadSource& source, const LoadCheck& check) {
    LoadOutcome outcome;
    Scope scope{Part::Shared, sharedColumns(client, check)};
    require(loadPart(client, source, check, scope, outcome));
    scope.part = Part::Rest;
    try {
        require(loadPart(client, source, check, scope, outcome));
    } catch (const Refused& refused) {
        throw Refused(std::string("what is shared with the other devices is loaded, the rest is not: ") +
                      refused.what());
    }
    return outcome;
}

} // namespace

LoadOutcome loadTables(ConfigClient& client, const std::string& path) {
    LoadSource source(path);
    LoadCheck check([&](const std::string& name) { return describeTable(client, name); });
    read(source, check);

    LoadOutcome outcome;
    const velta::protocol::EResultCode result = loadPart(client, source, check, Scope(), outcome);
    if (result.code() == velta::protocol::code::mixedChange)
        return loadInTwoParts(client, source, check);
    require(result);
    return outcome;
}

std::string LoadOutcome::text() const {
    if (written == 0 && removed == 0)
        return {};
    std::string counts;
    if (written > 0)
        counts = std::to_string(written) + (written == 1 ? " row written, " : " rows written, ");
    if (removed > 0)
        counts += std::to_string(removed) + (removed == 1 ? " row removed, " : " rows removed, ");
    std::array<char, 32> seconds;
    (void)std::snprintf(seconds.data(), seconds.size(), "%.1f", static_cast<double>(open.count()) / 1000);
    return counts + "the transaction was open for " + seconds.data() + " s";
}

} // namespace tools::cfgctl
