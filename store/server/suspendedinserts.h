#pragma once

#include "store/server/transactionqueue.h"
#include "store/server/transactionwork.h"
#include "store/storage/sharing.h"
#include "velta/namelist.h"
#include "velta/protocol/message.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace store {

// Insertions into shared tables that wait for their Ids, and then for another turn. Their transactions were
// rolled back meanwhile.
class SuspendedInserts {
public:
    using Result = velta::protocol::EResultCode;
    using Request = velta::protocol::Request;

    struct Suspended {
        Request insert;
        std::size_t table;
        TransactionWork work;      // before the insertion
        bool isOutdated = false;   // somebody has changed what it has read or written
        bool isInQueue = false;    // it waits for its turn, with its Id
        std::optional<Result> end; // of the reservation
        std::uint32_t id = 0;      // that was reserved
    };
    struct Failed {
        ClientId client;
        Suspended insert;
    };

    explicit SuspendedInserts(Sharing& sharing) : sharing_(sharing) {}

    // Takes the work unless it fails.
    Result begin(ClientId client, const Request& insert, std::size_t table, TransactionWork& work);
    bool has(ClientId client) const { return all_.count(client) != 0; }
    // A commit has changed these tables.
    void changed(const velta::NameList& tables);
    // Those that have their Ids wait in the queue from now on, until `until`.
    void enqueue(TransactionQueue& queue, Clock::time_point until, Clock::time_point now);
    // One whose reservation has failed.
    std::optional<Failed> takeFailed();
    Suspended take(ClientId client);
    // The client is gone.
    void forget(ClientId client);

private:
    using Pointer = std::shared_ptr<Suspended>; // shared with the function that waits for the Id

    Sharing& sharing_;
    std::map<ClientId, Pointer> all_;
};

} // namespace store
