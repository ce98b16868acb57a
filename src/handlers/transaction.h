#pragma once

#include "cfg/iconfigclient.h"

namespace orv::horad {

// A transaction of the store, from its start to its commit. One that is left open is aborted at its end: no
// way out of a handler leaves the store waiting for it.
class Transaction {
public:
    using EResultCode = velta::protocol::EResultCode;

    // Starts one; started() says how that went. The client is not owned.
    explicit Transaction(cfg::common::IConfigClient& client);
    // Takes over one that was started already.
    static Transaction takeOver(cfg::common::IConfigClient& client) { return Transaction(client, {}); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    const EResultCode& started() const { return started_; }
    // It is over afterwards, whether that went well or not.
    EResultCode commit();
    // The same; what could not be committed is taken back as well.
    [[nodiscard]] EResultCode commitOrAbort();

private:
    Transaction(cfg::common::IConfigClient& client, EResultCode started);

    cfg::common::IConfigClient& client_;
    EResultCode started_;
    bool open_;
};

} // namespace orv::horad
