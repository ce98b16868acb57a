#pragma once

#include "store/storage/sharing.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace fakes {

// The other devices, which do what a test says.
class FakeSharing : public store::Sharing {
public:
    struct Commit {
        store::SharedChange change;
        Committed done;
    };
    struct Reservation {
        std::size_t table;
        Reserved done;
    };
    // Applies something and returns the tables that it changed.
    using Update = std::function<velta::NameList()>;

    Result commit(store::SharedChange change, Committed done) override {
        if (refusal.ok())
            commits.push_back({std::move(change), std::move(done)});
        return refusal;
    }
    Result reserve(std::size_t table, Reserved done) override {
        if (refusal.ok())
            reservations.push_back({table, std::move(done)});
        return refusal;
    }
    void giveBack(std::size_t, std::uint32_t id) override { givenBack.push_back(id); }
    bool hasUpdates() const override { return !updates.empty(); }
    velta::NameList apply() override {
        std::set<std::string> changed;
        for (std::size_t i = 0; i < atOnce && !updates.empty(); ++i)
            for (const std::string& table : take(updates)())
                changed.insert(table);
        return {changed.begin(), changed.end()};
    }
    void settle(Clock::time_point) override {
        for (const std::function<void()>& happening : std::exchange(due, {}))
            happening();
    }
    Clock::time_point nextDeadline() const override {
        return due.empty() ? Clock::time_point::max() : Clock::time_point::min();
    }

    // How the next ones end.
    void endCommit(const Result& result) {
        due.push_back([done = take(commits).done, result] { done(result); });
    }
    void endReservation(const Result& result, std::uint32_t id = 0) {
        due.push_back([done = take(reservations).done, result, id] { done(result, id); });
    }

    template <class Entry>
    static Entry take(std::deque<Entry>& entries) {
        Entry entry = std::move(entries.front());
        entries.pop_front();
        return entry;
    }

    Result refusal; // of each call, at once
    // Without an end so far.
    std::deque<Commit> commits;
    std::deque<Reservation> reservations;

    std::deque<Update> updates;
    std::size_t atOnce = 1000;             // that are applied
    std::deque<std::function<void()>> due; // happens in settle()
    std::vector<std::uint32_t> givenBack;
};

} // namespace fakes
