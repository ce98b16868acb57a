#pragma once

#include "store/server/transactionqueue.h"
#include "store/server/transactionwork.h"
#include "store/storage/sharing.h"
#include "velta/protocol/resultcode.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace store {

// The commits that are under way to the other devices. Nobody waits for them but their clients.
class SharedCommits {
public:
    using Result = velta::protocol::EResultCode;

    struct Finished {
        TransactionQueue::Turn turn; // the client, and its Commit
        Result result;
    };

    explicit SharedCommits(Sharing& sharing) : sharing_(sharing) {}

    // A failure is the end of it.
    Result begin(const TransactionQueue::Turn& turn, SharedChange change,
                 const std::vector<TransactionWork::ReservedId>& reserved);
    // The client is gone; its commit goes on.
    void forget(ClientId client);
    // One that has ended and whose client is there.
    std::optional<Finished> takeFinished();
    // Whether a client waits for one.
    bool isAwaited() const;

private:
    struct UnderWay {
        std::optional<TransactionQueue::Turn> turn; // none: the client is gone
        // Reserved Ids: those of its new rows, and those that it did not use.
        std::vector<TransactionWork::ReservedId> used;
        std::vector<TransactionWork::ReservedId> unused;
        std::optional<Result> result; // it has ended
    };
    using All = std::map<std::uint64_t, UnderWay>;

    void giveIdsBack(const UnderWay& commit, bool isKept);

    Sharing& sharing_;
    // Shared with the functions that wait for the ends, which may outlive this object.
    const std::shared_ptr<All> all_ = std::make_shared<All>();
    std::uint64_t next_ = 0;
};

} // namespace store
