#pragma once

#include "cfg/iconfigclient.h"
#include "log.h"

#include <map>
#include <set>
#include <string>
#include <utility>

namespace orv::cfg {

class FailureProbe;

// A client of the store that lets probes see which operations fail. It passes every call and result on
// unchanged.
//
// Commits that fail are logged here, because not every handler asks how its commit went: one error line when
// commits of a table begin to fail, and one info line when one went through again.
class WatchedClient : public common::IConfigClient {
public:
    using EResultCode = velta::protocol::EResultCode;

    // The store is not owned and outlives this object.
    WatchedClient(common::IConfigClient& store, const std::string& logModule)
        : store_(store), log_(logModule.c_str(), "watchedclient") {}

    EResultCode size(const std::string& table, unsigned& rows) override;
    EResultCode selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                          const velta::NameList& columns) override;
    EResultCode selectRowByKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                               velta::ValueList& values) override;
    EResultCode writeSingleRow(const std::string& table, unsigned row,
                               const velta::ValueList& values) override;
    EResultCode updateRow(const std::string& table, const std::string& keyColumn, const std::string& key,
                          const velta::ValueList& values) override;
    bool isTransactionOpen() override { return store_.isTransactionOpen(); }
    EResultCode startTransaction() override;
    EResultCode closeTransaction() override;
    EResultCode abortTransaction() override;

    // Whether a commit with a successful write went through since the last call.
    bool takeCommitted() { return std::exchange(committed_, false); }

private:
    friend class FailureProbe;

    EResultCode noted(EResultCode result, const std::string& table = {});
    EResultCode written(const std::string& table, EResultCode result);
    void noteFailedCommit(const EResultCode& result);
    void noteCommit();

    common::IConfigClient& store_;
    horad::Log log_;
    FailureProbe* probe_ = nullptr;       // the innermost
    std::map<std::string, bool> written_; // the transaction's tables; true where a write went through
    std::set<std::string> failing_;       // tables whose last commit failed
    bool committed_ = false;
};

// Tells whether an operation of the client failed since the probe was made. Probes of one client end in the
// reverse order of their beginnings; a failure counts for all that live.
class FailureProbe {
public:
    explicit FailureProbe(WatchedClient& client) : client_(client), outer_(client.probe_) {
        client_.probe_ = this;
    }
    ~FailureProbe() { client_.probe_ = outer_; }
    FailureProbe(const FailureProbe&) = delete;
    FailureProbe& operator=(const FailureProbe&) = delete;

    bool failed() const { return failedBeyondTables_ || !failedTables_.empty(); }
    // The tables that a failed operation named, each with the code of its last failure.
    const std::map<std::string, int>& failedTables() const { return failedTables_; }
    // Whether an operation failed that names no table.
    bool failedBeyondTables() const { return failedBeyondTables_; }
    // The tables of transactions whose commit failed.
    const std::set<std::string>& uncommittedTables() const { return uncommittedTables_; }

private:
    friend class WatchedClient;

    WatchedClient& client_;
    FailureProbe* outer_;
    std::map<std::string, int> failedTables_;
    bool failedBeyondTables_ = false;
    std::set<std::string> uncommittedTables_;
};

} // namespace orv::cfg
