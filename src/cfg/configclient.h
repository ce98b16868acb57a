#pragma once

#include "cfg/connection.h"
#include "cfg/iconfigclient.h"
#include "cfg/pipeline.h"
#include "cfg/snapshot.h"
#include "velta/protocol/message.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace orv::cfg {

// The store's operations over one connection.
class ConfigClient : public common::IConfigClient {
public:
    using EResultCode = velta::protocol::EResultCode;
    // Asked before a transaction starts: brings a lost connection back, or says why none may start.
    using BeforeTransaction = std::function<EResultCode()>;

    // The connection is not owned and outlives the client. A start of a transaction waits its turn for up to
    // `transactionWait` milliseconds.
    ConfigClient(Connection& connection, unsigned transactionWait, BeforeTransaction before = nullptr);

    EResultCode size(const std::string& table, unsigned& rows) override;
    EResultCode selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                          const velta::NameList& columns) override;
    EResultCode selectRowByKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                               velta::ValueList& values) override;
    EResultCode writeSingleRow(const std::string& table, unsigned row,
                               const velta::ValueList& values) override;
    EResultCode updateRow(const std::string& table, const std::string& keyColumn, const std::string& key,
                          const velta::ValueList& values) override;
    bool isTransactionOpen() override { return transactionOpen_; }
    // On a lost connection it tries to connect first: its caller may stand in a loop until this succeeds.
    EResultCode startTransaction() override;
    EResultCode closeTransaction() override;
    EResultCode abortTransaction() override;

    // What only a tool needs.
    EResultCode tables(std::vector<velta::protocol::TableInfo>& tables);
    EResultCode columns(const std::string& table, std::vector<velta::protocol::ColumnInfo>& columns);
    // The same in full. A store that does not know the request closes the connection.
    EResultCode describe(const std::string& table, std::vector<velta::protocol::ColumnDescription>& columns);
    // Those that the store shares with other devices. A store that does not know the request closes the
    // connection.
    EResultCode sharedColumns(const std::string& table, std::vector<velta::protocol::ColumnInfo>& columns);
    // All rows, for the caller to keep: they do not change, whatever is written later.
    EResultCode readTable(const std::string& table, Snapshot& rows);
    // For many writes of the open transaction; see Pipeline.
    Pipeline writesAhead();
    // One write in a transaction of its own, in one exchange instead of three. The request is a write. Fails
    // with the first of the beginning, the write and the end that failed; nothing is changed then, unless the
    // end failed with outcomeUnknown.
    EResultCode commitWrite(velta::protocol::Request write);
    // A row without an "Id" gets the next free one; `id` says which it has.
    EResultCode insertRow(const std::string& table, const velta::ValueList& values, std::uint32_t& id);
    EResultCode removeRow(const std::string& table, const std::string& keyColumn, const std::string& key);

    // Forgets the rows that size() fetched.
    void dropSnapshots() { snapshots_.clear(); }
    // The connection closed: its transaction is gone, and its snapshots may be stale.
    void connectionLost();

private:
    velta::protocol::Request beginning() const;
    EResultCode readSnapshot(velta::protocol::Request& request, Snapshot& snapshot);
    EResultCode readOneRow(velta::protocol::Request request, const velta::NameList& columns,
                           velta::ValueList& values);
    EResultCode write(velta::protocol::Request request, std::uint32_t* id = nullptr);
    EResultCode endTransaction(velta::protocol::RequestKind how);
    EResultCode ask(velta::protocol::Request request, velta::protocol::Reply& reply,
                    velta::protocol::ReplyKind expected = velta::protocol::ReplyKind::Done);
    EResultCode noted(EResultCode result);
    void setTransactionOpen(bool open);

    Connection& connection_;
    unsigned transactionWait_;
    BeforeTransaction before_;
    std::map<std::string, Snapshot> snapshots_; // by table
    bool transactionOpen_ = false;
};

} // namespace orv::cfg
