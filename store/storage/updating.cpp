#include "store/storage/updating.h"

#include "store/storage/cells.h"
#include "store/storage/rowcheck.h"
#include "store/storage/valuecheck.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace store {

namespace code = velta::protocol::code;
using Result = Updating::Result;

namespace {

// The Ids of all rows that the writer sees.
Result idsOf(TableReader& reader, ConnectedTable& table, std::vector<std::int64_t>& ids) {
    const int column = static_cast<int>(*table.description.indexOf(idColumn));
    Statement::Run run(table.statements.all());
    int step = run.step();
    for (; step == SQLITE_ROW; step = run.step())
        ids.push_back(run.number(column));
    return reader.resultOf(step);
}

// The rows of a table that came.
struct Present {
    std::set<std::string> uuids;
    std::set<std::int64_t> ids;

    Present(std::size_t table, const SharedUpdates& updates)
        : uuids(updates.refused.begin(), updates.refused.end()) {
        for (const SharedUpdate& update : updates.rows) {
            if (update.table != table || !update.values)
                continue;
            uuids.insert(update.uuid);
            if (update.values->id)
                ids.insert(*update.values->id);
        }
    }
};

std::string reasonOf(const Result& result) {
    return result.code() == code::wrongKind && !result.detail().empty() ? result.detail() : result.strerror();
}

bool isRefusal(const Result& result) {
    return result.code() == code::wrongKind || result.code() == code::tooLarge;
}

} // namespace

// Removals come first: a new row may take the Id of one that goes.
Result Updating::carryOut(const SharedUpdates& updates) {
    for (std::size_t table = 0; updates.complete && table < schema_.tables().size(); ++table)
        if (isShared(table))
            if (Result result = removeOthers(table, updates); !result.ok())
                return result;
    for (const SharedUpdate& update : updates.rows)
        if (!update.values && isShared(update.table))
            if (Result result = removeNamed(update); !result.ok())
                return result;
    for (const SharedUpdate& update : updates.rows)
        if (update.values)
            if (Result result = take(update, updates.adopt); !result.ok() || applied_.isIncomplete)
                return result;
    return {};
}

bool Updating::isShared(std::size_t table) const {
    return table < schema_.tables().size() && schema_.tables()[table].isShared();
}

// Removes what is not among the rows that came. A row that has no name goes even if one with its Id came,
// unless that is to be adopted: a new one with default state follows.
Result Updating::removeOthers(std::size_t table, const SharedUpdates& updates) {
    ConnectedTable& found = writer_.reader().at(table);
    std::map<std::int64_t, std::string> uuids;
    if (Result result = memory_.uuidsOf(found.description.name, uuids); !result.ok())
        return result;
    const Present present(table, updates);
    for (const auto& [id, uuid] : uuids)
        if (present.uuids.count(uuid) == 0)
            if (Result result = forget(found, id); !result.ok())
                return result;
    if (found.description.singleRow())
        return {};
    std::vector<std::int64_t> ids;
    if (Result result = idsOf(writer_.reader(), found, ids); !result.ok())
        return result;
    for (const std::int64_t id : ids) {
        const auto uuid = uuids.find(id);
        const bool stays = uuid == uuids.end() ? updates.adopt && present.ids.count(id) != 0
                                               : present.uuids.count(uuid->second) != 0;
        if (stays)
            continue;
        if (Result result = writer_.remove(found, id); !result.ok())
            return result;
    }
    return {};
}

Result Updating::removeNamed(const SharedUpdate& update) {
    ConnectedTable& table = writer_.reader().at(update.table);
    std::optional<std::int64_t> id;
    if (Result result = memory_.idOf(table.description.name, update.uuid, id); !result.ok() || !id)
        return result;
    if (!table.description.singleRow())
        if (Result result = remove(table, *id); !result.ok())
            return result;
    return forget(table, *id);
}

Result Updating::remove(ConnectedTable& table, std::int64_t id) {
    bool there = false;
    if (Result result = writer_.exists(table, id, there); !result.ok() || !there)
        return result;
    return writer_.remove(table, id);
}

Result Updating::take(const SharedUpdate& update, bool adopt) {
    if (!isShared(update.table)) {
        refuse(update, "the table is not shared here");
        return {};
    }
    Target target{writer_.reader().at(update.table), update, {}, true};
    const velta::NameList columns = target.table.description.sharedColumns();
    const auto& cells = update.values->cells;
    if (cells.size() != columns.size()) {
        refuse(update, "it has other columns");
        return {};
    }
    for (std::size_t i = 0; i < cells.size(); ++i) {
        target.isWhole = target.isWhole && cells[i].has_value();
        if (cells[i])
            target.values.add(columns[i], *cells[i]);
    }
    if (const Result result = checkCells(target.table.description, target.values, Id::Fixed); !result.ok()) {
        refuse(update, reasonOf(result));
        return {};
    }
    std::optional<std::int64_t> known;
    if (Result result = memory_.idOf(target.table.description.name, update.uuid, known); !result.ok())
        return result;
    if (target.table.description.singleRow())
        return takeSingle(target, known.has_value());
    return known ? change(target, *known) : add(target, adopt);
}

Result Updating::takeSingle(const Target& target, bool isKnown) {
    if (!isKnown && !target.isWhole) {
        applied_.isIncomplete = true;
        return {};
    }
    if (Result result = updateCells(target, singleRowId); !result.ok())
        return orRefused(target.update, result);
    return isKnown ? Result() : remember(target, singleRowId);
}

Result Updating::change(const Target& target, std::int64_t id) {
    if (target.update.values->id.value_or(id) != id) {
        refuse(target.update, "its Id changed from " + std::to_string(id));
        return {};
    }
    bool there = false;
    if (Result result = writer_.exists(target.table, id, there); !result.ok())
        return result;
    if (there)
        return orRefused(target.update, updateCells(target, id));
    if (Result result = forget(target.table, id); !result.ok()) // somebody else removed it from the file
        return result;
    return add(target, false);
}

Result Updating::add(const Target& target, bool adopt) {
    const SharedUpdate::Values& values = *target.update.values;
    if (!values.id || !target.isWhole) {
        applied_.isIncomplete = true;
        return {};
    }
    const velta::Range ids{leastId, velta::rangeOf(velta::Value::Integer).most};
    if (!fits(ids, *values.id)) {
        refuse(target.update, "its Id is not from 1 to " + std::to_string(ids.most));
        return {};
    }
    std::string other;
    if (Result result = memory_.uuidOf(target.table.description.name, *values.id, other); !result.ok())
        return result;
    if (!other.empty()) {
        refuse(target.update, "another row has its Id already");
        return {};
    }
    return put(target, *values.id, adopt);
}

Result Updating::put(const Target& target, std::int64_t id, bool adopt) {
    bool there = false;
    if (Result result = writer_.exists(target.table, id, there); !result.ok())
        return result;
    const Result result = there && adopt ? updateCells(target, id) : replace(target, id);
    return result.ok() ? remember(target, id) : orRefused(target.update, result);
}

Result Updating::replace(const Target& target, std::int64_t id) {
    if (Result result = remove(target.table, id); !result.ok())
        return result;
    if (Result result = writer_.mayInsert(target.table, target.values); !result.ok())
        return result;
    return writer_.insert(target.table, id, target.values);
}

// Most rows of a complete reading are what they were.
Result Updating::updateCells(const Target& target, std::int64_t id) {
    bool differs = false;
    if (Result result = differsFrom(writer_.reader(), target.table, id, target.values, differs);
        !result.ok() || !differs)
        return result;
    return writer_.update(target.table, id, target.values);
}

Result Updating::remember(const Target& target, std::int64_t id) {
    Statement::Run run(memory_.remember());
    run.bind(1, target.table.description.name);
    run.bind(2, id);
    run.bind(3, target.update.uuid);
    return writer_.writeOther(run);
}

Result Updating::forget(const ConnectedTable& table, std::int64_t id) {
    Statement::Run run(memory_.forget());
    run.bind(1, table.description.name);
    run.bind(2, id);
    return writer_.writeOther(run);
}

void Updating::refuse(const SharedUpdate& update, std::string reason) {
    applied_.refused.push_back({update, std::move(reason)});
}

Result Updating::orRefused(const SharedUpdate& update, const Result& result) {
    if (!isRefusal(result))
        return result;
    refuse(update, reasonOf(result));
    return {};
}

} // namespace store
