#pragma once

#include "velta/namelist.h"
#include "velta/protocol/resultcode.h"
#include "velta/valuelist.h"

#include <string>

namespace orv::cfg::common {

using velta::protocol::EResultCode;

// What a handler can do with the configuration store.
//
// Rows stand in Id order and count from 0. Every write needs a transaction. The store has one at a time, for
// all clients together. Its owner reads what it wrote, everybody else what was committed last. Nothing here
// throws: the result says what went wrong.
class IConfigClient {
public:
    // The number of rows. Fetches the rows as well: the selectRow() calls that follow read all of them as
    // they were at this moment.
    virtual EResultCode size(const std::string& table, unsigned& rows) = 0;
    // The cells of a row, or of the named columns of it; no name stands for all columns. `values` holds the
    // row and nothing else afterwards.
    virtual EResultCode selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                                  const velta::NameList& columns) = 0;
    // The first row whose key column holds the key, which is text or a number in decimal.
    virtual EResultCode selectRowByKey(const std::string& table, const std::string& keyColumn,
                                       const std::string& key, velta::ValueList& values) = 0;
    // Writes the given cells of the one row, 0, of a single-row table.
    virtual EResultCode writeSingleRow(const std::string& table, unsigned row,
                                       const velta::ValueList& values) = 0;
    // Writes the given cells of the first row whose key column holds the key.
    virtual EResultCode updateRow(const std::string& table, const std::string& keyColumn,
                                  const std::string& key, const velta::ValueList& values) = 0;
    // Whether this client holds a transaction. What others hold does not count.
    virtual bool isTransactionOpen() = 0;
    virtual EResultCode startTransaction() = 0;
    // Commits. The transaction is over afterwards, whether that went well or not.
    virtual EResultCode closeTransaction() = 0;
    virtual EResultCode abortTransaction() = 0;

    virtual ~IConfigClient() = default; // last: the order of the operations is fixed
};

} // namespace orv::cfg::common
