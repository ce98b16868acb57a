#include "cfg/watchedclient.h"

namespace orv::cfg {

using velta::protocol::EResultCode;

namespace {

std::string listOf(const std::set<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

} // namespace

EResultCode WatchedClient::size(const std::string& table, unsigned& rows) {
    return noted(store_.size(table, rows), table);
}

EResultCode WatchedClient::selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                                     const velta::NameList& columns) {
    return noted(store_.selectRow(table, row, values, columns), table);
}

EResultCode WatchedClient::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                          const std::string& key, velta::ValueList& values) {
    return noted(store_.selectRowByKey(table, keyColumn, key, values), table);
}

EResultCode WatchedClient::writeSingleRow(const std::string& table, unsigned row,
                                          const velta::ValueList& values) {
    return written(table, store_.writeSingleRow(table, row, values));
}

EResultCode WatchedClient::updateRow(const std::string& table, const std::string& keyColumn,
                                     const std::string& key, const velta::ValueList& values) {
    return written(table, store_.updateRow(table, keyColumn, key, values));
}

EResultCode WatchedClient::startTransaction() {
    return noted(store_.startTransaction());
}

EResultCode WatchedClient::closeTransaction() {
    EResultCode result = noted(store_.closeTransaction());
    if (result.ok())
        noteCommit();
    else
        noteFailedCommit(result);
    written_.clear();
    return result;
}

EResultCode WatchedClient::abortTransaction() {
    written_.clear();
    return noted(store_.abortTransaction());
}

// An empty name: the operation concerns no table.
EResultCode WatchedClient::noted(EResultCode result, const std::string& table) {
    if (result.ok())
        return result;
    for (FailureProbe* probe = probe_; probe != nullptr; probe = probe->outer_)
        if (table.empty())
            probe->failedBeyondTables_ = true;
        else
            probe->failedTables_[table] = result.code();
    return result;
}

EResultCode WatchedClient::written(const std::string& table, EResultCode result) {
    bool& wentThrough = written_[table];
    wentThrough = wentThrough || result.ok();
    return noted(std::move(result), table);
}

// Includes tables whose writes were refused: the handler may believe that they are written.
void WatchedClient::noteFailedCommit(const EResultCode& result) {
    std::set<std::string> begin;
    for (const auto& [table, wentThrough] : written_) {
        for (FailureProbe* probe = probe_; probe != nullptr; probe = probe->outer_)
            probe->uncommittedTables_.insert(table);
        if (failing_.insert(table).second)
            begin.insert(table);
    }
    if (!begin.empty())
        log_.error("Could not commit changes of %s: %s", listOf(begin).c_str(), result.strerror().c_str());
}

// A commit without a write succeeds even on a full disk, so it proves nothing.
void WatchedClient::noteCommit() {
    std::set<std::string> again;
    for (const auto& [table, wentThrough] : written_) {
        committed_ = committed_ || wentThrough;
        if (wentThrough && failing_.erase(table) != 0)
            again.insert(table);
    }
    if (!again.empty())
        log_.info("Changes of %s are committed again", listOf(again).c_str());
}

} // namespace orv::cfg
