#pragma once

#include "cfg/iconfigclient.h"

#include <cstddef>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace fakes {

// A cell with a number or a text in it, for rows that stand in a test.
struct Cell {
    Cell(const std::string& column, int number);
    Cell(const std::string& column, unsigned number); // a counter
    Cell(const std::string& column, const std::string& text);
    Cell(const std::string& column, const char* text) : Cell(column, std::string(text)) {}

    std::string name;
    velta::Value value;
};

velta::ValueList row(std::initializer_list<Cell> cells);

// A configuration store in memory that records what was asked of it. It keeps the contract: no write without
// a transaction, one transaction at a time, and writes that are not committed are lost.
class FakeStore : public orv::cfg::common::IConfigClient {
public:
    using EResultCode = velta::protocol::EResultCode;
    using Rows = std::vector<velta::ValueList>;

    enum class Operation { Size, SelectRow, SelectRowByKey, WriteSingleRow, UpdateRow, Start, Close, Abort };

    // A table's rows, free to be changed; no journal line. Made empty on the first call.
    Rows& table(const std::string& name) { return tables_[name]; }
    int number(const std::string& table, std::size_t index, const std::string& column) const;
    void set(const std::string& table, std::size_t index, const Cell& cell);

    // From now on every call of the operation fails with that code, or only the nth one, counting from 1.
    void fail(Operation operation, int code) { failures_[operation] = Failure{code, 0}; }
    void failNth(Operation operation, unsigned nth, int code) { failures_[operation] = Failure{code, nth}; }
    void recover() { failures_.clear(); }

    // One line an operation, in order: "start", "size T", "select T 0", "select T Id=1", "abort", "close",
    // "update T Id=1 Status=1(type 1)", "write T 0 Status=1(type 1)", "is open". A failed one ends with its
    // code: "start -> 9".
    const std::vector<std::string>& journal() const { return journal_; }
    // The journal without what only reads.
    std::vector<std::string> writes() const;
    void clearJournal() { journal_.clear(); }

    EResultCode size(const std::string& table, unsigned& rows) override;
    EResultCode selectRow(const std::string& table, unsigned index, velta::ValueList& values,
                          const velta::NameList& columns) override;
    EResultCode selectRowByKey(const std::string& table, const std::string& keyColumn, const std::string& key,
                               velta::ValueList& values) override;
    EResultCode writeSingleRow(const std::string& table, unsigned index,
                               const velta::ValueList& values) override;
    EResultCode updateRow(const std::string& table, const std::string& keyColumn, const std::string& key,
                          const velta::ValueList& values) override;
    bool isTransactionOpen() override;
    EResultCode startTransaction() override;
    EResultCode closeTransaction() override;
    EResultCode abortTransaction() override;

private:
    struct Failure {
        int code;
        unsigned nth; // 0: every one
    };

    int injectedFailure(Operation operation);
    EResultCode record(const std::string& line, int code);
    int checkTable(Operation operation, const std::string& table);
    int checkWrite(Operation operation, const std::string& table);
    velta::ValueList* findRow(const std::string& table, std::size_t index);
    velta::ValueList* findRow(const std::string& table, const std::string& keyColumn, const std::string& key);

    std::map<std::string, Rows> tables_;
    std::map<std::string, Rows> committed_; // what an abort goes back to, while a transaction is open
    bool open_ = false;
    std::map<Operation, Failure> failures_;
    std::vector<std::string> journal_;
};

} // namespace fakes
