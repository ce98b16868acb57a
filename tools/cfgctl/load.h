#pragma once

#include "cfg/snapshot.h"
#include "tools/cfgctl/idset.h"
#include "tools/loadfile.h"
#include "tools/storetables.h"
#include "velta/valuelist.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// From what a file wants of a table to the writes that make it so.
namespace tools::cfgctl {

// A table that a file names, and what of its rows is kept from one reading of the file to the next.
struct WantedTable {
    Table table;
    IdSet ids;
    bool hasRowsWithoutId = false;
};

// The first reading of a file: refuses, with the place, what the store's tables can't hold. That is an
// unknown table or column, a value of the wrong kind, an Id that stands there twice, a list of rows for a
// single-row table.
class LoadCheck : public LoadVisitor {
public:
    using Describe = std::function<Table(const std::string& name)>;

    explicit LoadCheck(Describe describe) : describe_(std::move(describe)) {}

    void table(const std::string& name, bool list) override;
    void row(const LoadRow& row, const std::string& place) override;

    // By name.
    const std::map<std::string, WantedTable>& tables() const { return tables_; }
    bool hasRowsWithoutId() const;

private:
    Describe describe_;
    std::map<std::string, WantedTable> tables_;
    WantedTable* current_ = nullptr;
};

// The row with the values that the table's columns take. Throws Refused.
velta::ValueList wantedRow(const LoadRow& file, const Table& table);

struct Write {
    enum class Kind { WriteSingle, Update, Remove, Insert };

    Kind kind;
    std::uint32_t id = 0;   // of an update and a removal
    velta::ValueList cells; // of an update only those that differ
    std::string place;      // what asks for it, for an error text
};

// What to write so that a table holds the wanted rows: nothing where it does. The removals come first.
class LoadPlan {
public:
    using Sink = std::function<void(Write)>;

    // The rows are as they were before any of these writes. All but the sink outlive this.
    LoadPlan(const WantedTable& wanted, const orv::cfg::Snapshot& current, Sink sink);

    void removeOthers();
    // A row that has an Id, or the one of a single-row table.
    void write(const velta::ValueList& row, const std::string& place);

private:
    std::optional<std::size_t> find(std::uint32_t id);

    const WantedTable& wanted_;
    const orv::cfg::Snapshot& current_;
    Sink sink_;
    std::vector<std::uint32_t> ids_; // of the current rows, rising
    std::size_t next_ = 0;           // behind the row that was found last
};

} // namespace tools::cfgctl
