#include "tools/horactl/household.h"

#include "handlers/dbm.h"
#include "handlers/onecell.h"
#include "simulation/schema.h"
#include "tools/cells.h"
#include "tools/errors.h"
#include "tools/loadfile.h"
#include "tools/storetables.h"
#include "tools/text.h"
#include "velta/celltype.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <variant>

namespace tools::horactl {

namespace dbm = orv::horad::dbm;
using orv::cfg::ConfigClient;
using orv::simulation::findShape;
using orv::simulation::TableShape;
using velta::Value;
using velta::ValueList;
using velta::protocol::ColumnInfo;
using velta::protocol::TableInfo;
using Rows = Household::Rows;

namespace {

// What every horad reads, whatever plan tables it follows.
constexpr const char* fixedTables[] = {
    dbm::WlanGlobals, dbm::WlanTimePlans, dbm::TimeFrame, dbm::FileTransfer, dbm::FirmwareUpdateTimePlan,
    dbm::Wexd,        dbm::AutoReboot,    dbm::Reboot,
};

// Whether a table's rows are plans whose status horad keeps.
template <typename HasColumn>
bool isPlanTable(const HasColumn& hasColumn) {
    const TableShape& plans = *findShape(dbm::WlanTimePlans);
    return std::all_of(plans.columns.begin(), plans.columns.end(),
                       [&](const auto& column) { return hasColumn(column.name); });
}

// The service tables that the frames name.
std::set<std::string> serviceTables(const Household& household) {
    std::set<std::string> names;
    for (const ValueList& frame : household.rows(dbm::TimeFrame))
        names.insert(frame.getValue(dbm::TimeFrame_Servicetable).getText());
    return names;
}

void note(Household& household, const std::string& table, const char* taken) {
    household.notes.push_back("there is no table " + inQuotes(table) + ": " + taken);
}

// What a table is taken for that nobody has.
void addMissing(Household& household) {
    std::vector<std::string> asked(household.planTables.begin(), household.planTables.end());
    asked.insert(asked.end(), std::begin(fixedTables), std::end(fixedTables));
    for (const std::string& table : asked) {
        if (household.tables.count(table) != 0)
            continue;
        const TableShape* const shape = findShape(table);
        const bool single = shape != nullptr && !shape->hasManyRows();
        household.tables[table] = single ? Rows{shape->newRow()} : Rows{};
        note(household, table, single ? "taken as that of a new store" : "taken as empty");
    }
}

// Takes what a horad needs out of a store.
class StoreReading {
public:
    StoreReading(ConfigClient& client, const std::list<std::string>& planTables)
        : client_(client), available_(listTables(client)) {
        household_.planTables = planTables;
    }

    Household read() {
        if (household_.planTables.empty())
            findPlanTables();
        for (const std::string& table : household_.planTables)
            take(table);
        for (const char* const table : fixedTables)
            take(table);
        for (const std::string& table : serviceTables(household_))
            take(table);
        addMissing(household_);
        return std::move(household_);
    }

private:
    bool has(const std::string& table) const {
        return std::any_of(available_.begin(), available_.end(),
                           [&](const TableInfo& info) { return info.name == table; });
    }

    void findPlanTables() {
        for (const TableInfo& info : available_) {
            std::vector<ColumnInfo> columns;
            require(client_.columns(info.name, columns));
            const auto hasColumn = [&](const std::string& name) {
                return std::any_of(columns.begin(), columns.end(),
                                   [&](const ColumnInfo& column) { return column.name == name; });
            };
            if (!info.singleRow && isPlanTable(hasColumn))
                household_.planTables.push_back(info.name);
        }
    }

    void take(const std::string& table) {
        if (has(table) && household_.tables.count(table) == 0)
            household_.tables[table] = readRows(client_, table);
    }

    ConfigClient& client_;
    std::vector<TableInfo> available_;
    Household household_;
};

Value cellOfUnknownColumn(const LoadCell& cell, const std::string& column) {
    if (const auto* const text = std::get_if<std::string>(&cell)) {
        Value value(Value::Text);
        value.setText(*text);
        return value;
    }
    const std::int64_t number = std::get<std::int64_t>(cell);
    return cellFromNumber({column, number < 0 || number <= INT32_MAX ? Value::Integer : Value::Counter},
                          number);
}

Value cellOf(const TableShape* shape, const std::string& column, const LoadCell& cell) {
    if (shape != nullptr)
        for (const auto& known : shape->columns)
            if (known.name == column) {
                const auto* const number = std::get_if<std::int64_t>(&cell);
                return number != nullptr
                           ? cellFromNumber({column, known.type}, *number)
                           : cellFromQuotedText({column, known.type}, std::get<std::string>(cell));
            }
    return cellOfUnknownColumn(cell, column);
}

// A dump's tables, each in the shape that a new store gives it where it has one.
class DumpReading : public LoadVisitor {
public:
    explicit DumpReading(const std::list<std::string>& planTables) { household_.planTables = planTables; }

    void table(const std::string& name, bool list) override {
        finishTable();
        name_ = name;
        list_ = list;
        shape_ = findShape(name);
        if (shape_ == nullptr && isFollowed(name))
            shape_ = findShape(dbm::WlanTimePlans);
        if (shape_ != nullptr && shape_->hasManyRows() != list)
            throw Refused("table " + name + ": it has " +
                          (list ? "a single row, an object is expected, not a list"
                                : "many rows, a list is expected, not an object"));
        rows_ = &household_.tables[name];
    }

    void row(const LoadRow& file, const std::string& place) override {
        try {
            rows_->push_back(rowFrom(file));
        } catch (const Refused& refused) {
            throw Refused(place + ": " + refused.what());
        }
    }

    Household finish() {
        finishTable();
        if (household_.planTables.empty())
            findPlanTables();
        addMissing(household_);
        return std::move(household_);
    }

private:
    bool isFollowed(const std::string& table) const {
        return std::find(household_.planTables.begin(), household_.planTables.end(), table) !=
               household_.planTables.end();
    }

    ValueList rowFrom(const LoadRow& file) {
        ValueList cells;
        bool hasId = false;
        for (const auto& [column, cell] : file.cells) {
            cells.add(column, cellOf(shape_, column, cell));
            hasId = hasId || column == idColumn;
        }
        const int id = orv::simulation::idOf(cells);
        if (list_ && hasId && !ids_.insert(id).second)
            throw Refused("Id " + std::to_string(id) + " stands there twice");
        if (list_ && !hasId)
            withoutId_.push_back(rows_->size());
        return shape_ != nullptr ? orv::simulation::with(shape_->newRow(), cells) : cells;
    }

    // Rows without an Id come behind all others, as `cfgctl load` adds them.
    void finishTable() {
        std::int64_t next = ids_.empty() ? 1 : std::max<std::int64_t>(*ids_.rbegin(), 0) + 1;
        for (const std::size_t index : withoutId_) {
            if (next > INT32_MAX)
                throw Refused("table " + name_ + ": no Id is left for a row without one");
            const ValueList id = orv::horad::oneCell(idColumn, Value::Integer, static_cast<int>(next++));
            (*rows_)[index] = orv::simulation::with((*rows_)[index], id);
        }
        if (list_ && rows_ != nullptr) // in Id order, as a store has them
            std::stable_sort(rows_->begin(), rows_->end(), [](const ValueList& one, const ValueList& other) {
                return orv::simulation::idOf(one) < orv::simulation::idOf(other);
            });
        withoutId_.clear();
        ids_.clear();
        rows_ = nullptr;
    }

    void findPlanTables() {
        for (const auto& [name, rows] : household_.tables) {
            const TableShape* const shape = findShape(name);
            const ValueList first = !rows.empty()      ? rows.front()
                                    : shape != nullptr ? shape->newRow()
                                                       : ValueList();
            if (isPlanTable([&, &row = first](const std::string& column) { return row.hasValue(column); }))
                household_.planTables.push_back(name);
        }
    }

    Household household_;
    std::string name_; // of the table that is read, as all below
    const TableShape* shape_ = nullptr;
    bool list_ = false;
    Rows* rows_ = nullptr;
    std::set<int> ids_;
    std::vector<std::size_t> withoutId_;
};

} // namespace

const Rows& Household::rows(const std::string& table) const {
    static const Rows none;
    const auto found = tables.find(table);
    return found != tables.end() ? found->second : none;
}

const ValueList* Household::row(const std::string& table, int id) const {
    return orv::simulation::findRow(rows(table), id);
}

Household readStore(ConfigClient& client, const std::list<std::string>& planTables) {
    return StoreReading(client, planTables).read();
}

Household readDump(LoadSource& source, const std::list<std::string>& planTables) {
    DumpReading reading(planTables);
    LoadText text([&source](char* bytes, std::size_t size) { return source.read(bytes, size); });
    parseLoadFile(text, reading);
    return reading.finish();
}

} // namespace tools::horactl
