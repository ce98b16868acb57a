#include "store/server/suspendedinserts.h"

#include <utility>

namespace store {

using Result = SuspendedInserts::Result;

// The function that waits for the Id may outlive the client, and this object too. Then nobody holds the
// insertion any more, and the Id goes back.
Result SuspendedInserts::begin(ClientId client, const Request& insert, std::size_t table,
                               TransactionWork& work) {
    const auto suspended = std::make_shared<Suspended>();
    suspended->insert = insert;
    suspended->table = table;
    Result result =
        sharing_.reserve(table, [sharing = &sharing_, table, waiting = std::weak_ptr<Suspended>(suspended)](
                                    const Result& end, std::uint32_t id) {
            if (const Pointer waits = waiting.lock()) {
                waits->id = id;
                waits->end = end;
            } else if (end.ok()) {
                sharing->giveBack(table, id);
            }
        });
    if (!result.ok())
        return result;
    all_[client] = suspended;
    suspended->work = std::move(work);
    return result;
}

void SuspendedInserts::changed(const velta::NameList& tables) {
    for (auto& [client, suspended] : all_)
        suspended->isOutdated = suspended->isOutdated || suspended->work.usesAny(tables);
}

void SuspendedInserts::enqueue(TransactionQueue& queue, Clock::time_point until, Clock::time_point now) {
    for (auto& [client, suspended] : all_) {
        if (suspended->isInQueue || !suspended->end || !suspended->end->ok())
            continue;
        suspended->isInQueue = true;
        queue.ask(client, suspended->insert.sequence, until, now);
    }
}

std::optional<SuspendedInserts::Failed> SuspendedInserts::takeFailed() {
    for (const auto& [client, suspended] : all_)
        if (suspended->end && !suspended->end->ok())
            return Failed{client, take(client)};
    return std::nullopt;
}

SuspendedInserts::Suspended SuspendedInserts::take(ClientId client) {
    const auto place = all_.find(client);
    Suspended suspended = std::move(*place->second);
    all_.erase(place);
    if (suspended.end && suspended.end->ok())
        suspended.work.addReserved({suspended.table, suspended.id});
    return suspended;
}

void SuspendedInserts::forget(ClientId client) {
    if (has(client))
        giveBack(sharing_, take(client).work.reserved());
}

} // namespace store
