#pragma once

#include "cfg/configclient.h"
#include "simulation/tables.h"
#include "tools/loadsource.h"

#include <list>
#include <map>
#include <string>
#include <vector>

namespace tools::horactl {

// The tables that a horad works with, as they were read once, and how far they can be trusted.
struct Household {
    using Rows = orv::simulation::Tables::Rows;

    std::map<std::string, Rows> tables;
    std::list<std::string> planTables; // of the generic time plans, in the order in which they are followed
    std::vector<std::string> notes;    // what a person should know of it: tables that are not there

    // No row where the table is not there.
    const Rows& rows(const std::string& table) const;
    // The row of that Id, or the one of a single-row table for 0; nothing where there is none.
    const velta::ValueList* row(const std::string& table, int id = 0) const;
    // The tables as a store of their own, for a horad or for parts of one.
    orv::simulation::Tables inMemory() const {
        orv::simulation::Tables store;
        for (const auto& [table, itsRows] : tables)
            store.edit(table, itsRows);
        return store;
    }
};

// These read every table that a horad with those plan tables asks for; where none is named, all tables are
// followed that have the columns of a plan. What is not there is noted, and taken as empty, a single-row
// table as a new store has it. Both throw Refused where it can't be read.
Household readStore(orv::cfg::ConfigClient& client, const std::list<std::string>& planTables);
// What `cfgctl dump` wrote. A row without a cell has the one of a new row; a row without an Id the next free
// one.
Household readDump(LoadSource& source, const std::list<std::string>& planTables);

} // namespace tools::horactl
