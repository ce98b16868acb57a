#include "store/server/sharedcommits.h"

#include <algorithm>
#include <utility>

namespace store {

using Result = SharedCommits::Result;

namespace {

bool isNewIn(const SharedChange& change, const TransactionWork::ReservedId& reserved) {
    return std::any_of(change.rows.begin(), change.rows.end(), [&reserved](const SharedChange::Row& row) {
        return row.isNew && row.row.table == reserved.table && row.row.id == reserved.id;
    });
}

} // namespace

Result SharedCommits::begin(const TransactionQueue::Turn& turn, SharedChange change,
                            const std::vector<TransactionWork::ReservedId>& reserved) {
    UnderWay commit;
    commit.turn = turn;
    for (const TransactionWork::ReservedId& id : reserved)
        (isNewIn(change, id) ? commit.used : commit.unused).push_back(id);
    const std::uint64_t number = next_++;
    const auto place = all_->emplace(number, std::move(commit)).first;
    Result result =
        sharing_.commit(std::move(change), [waiting = std::weak_ptr<All>(all_), number](const Result& end) {
            if (const std::shared_ptr<All> all = waiting.lock())
                all->at(number).result = end;
        });
    if (result.ok())
        return result;
    giveIdsBack(place->second, false);
    all_->erase(place);
    return result;
}

void SharedCommits::forget(ClientId client) {
    for (auto& [number, commit] : *all_)
        if (commit.turn && commit.turn->client == client)
            commit.turn.reset();
}

std::optional<SharedCommits::Finished> SharedCommits::takeFinished() {
    for (auto place = all_->begin(); place != all_->end();) {
        if (!place->second.result) {
            ++place;
            continue;
        }
        const UnderWay commit = std::move(place->second);
        place = all_->erase(place);
        giveIdsBack(commit, commit.result->ok());
        if (commit.turn)
            return Finished{*commit.turn, *commit.result};
    }
    return std::nullopt;
}

bool SharedCommits::isAwaited() const {
    return std::any_of(all_->begin(), all_->end(),
                       [](const auto& entry) { return entry.second.turn.has_value(); });
}

// The devices free the Ids of new rows by themselves when they keep the rows.
void SharedCommits::giveIdsBack(const UnderWay& commit, bool isKept) {
    giveBack(sharing_, commit.unused);
    if (!isKept)
        giveBack(sharing_, commit.used);
}

} // namespace store
