#include "cfg/watchedclient.h"

namespace orv::cfg {

using velta::protocol::EResultCode;

EResultCode WatchedClient::size(const std::string& table, unsigned& rows) {
    return noted(store_.size(table, rows));
}

EResultCode WatchedClient::selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                                     const velta::NameList& columns) {
    return noted(store_.selectRow(table, row, values, columns));
}

EResultCode WatchedClient::selectRowByKey(const std::string& table, const std::string& keyColumn,
                                          const std::string& key, velta::ValueList& values) {
    return noted(store_.selectRowByKey(table, keyColumn, key, values));
}

EResultCode WatchedClient::writeSingleRow(const std::string& table, unsigned row,
                                          const velta::ValueList& values) {
    return noted(store_.writeSingleRow(table, row, values));
}

EResultCode WatchedClient::updateRow(const std::string& table, const std::string& keyColumn,
                                     const std::string& key, const velta::ValueList& values) {
    return noted(store_.updateRow(table, keyColumn, key, values));
}

EResultCode WatchedClient::startTransaction() {
    return noted(store_.startTransaction());
}

EResultCode WatchedClient::closeTransaction() {
    return noted(store_.closeTransaction());
}

EResultCode WatchedClient::abortTransaction() {
    return noted(store_.abortTransaction());
}

EResultCode WatchedClient::noted(EResultCode result) {
    if (!result.ok())
        for (FailureProbe* probe = probe_; probe != nullptr; probe = probe->outer_)
            probe->failed_ = true;
    return result;
}

} // namespace orv::cfg
