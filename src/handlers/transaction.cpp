#include "handlers/transaction.h"

#include <utility>

namespace orv::horad {

using cfg::common::IConfigClient;
using velta::protocol::EResultCode;

Transaction::Transaction(IConfigClient& client) : Transaction(client, client.startTransaction()) {}

Transaction::Transaction(IConfigClient& client, EResultCode started)
    : client_(client), started_(std::move(started)), open_(started_.ok()) {}

Transaction::~Transaction() {
    if (open_)
        (void)client_.abortTransaction(); // an exception leaves its handler, there is nobody to tell
}

EResultCode Transaction::commit() {
    open_ = false;
    return client_.closeTransaction();
}

EResultCode Transaction::commitOrAbort() {
    EResultCode result = commit();
    if (!result.ok())
        (void)client_.abortTransaction(); // what could not be committed is gone either way
    return result;
}

} // namespace orv::horad
