#pragma once

#include "fuzz/server/client.h"
#include "fuzz/server/tables.h"
#include "store/server/server.h"

#include <array>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace fuzz {

// Checks the answers to clients against what the store promises: there is one transaction at a time, it is
// all or nothing, its owner reads its own writes, and everybody else reads the last commit.
class Observer {
public:
    static constexpr std::size_t places = 4;
    using Clients = std::array<std::unique_ptr<Client>, places>;
    using Time = Client::Time;

    Observer(Clients& clients, const store::ServerOptions& options, Version committed)
        : clients_(clients), options_(options), committed_(std::move(committed)) {}

    // To be called when something was done to the store and it has come to rest. Drops clients that the store
    // disconnected.
    void look(store::Database& database);
    // The client disconnects.
    void leave(std::size_t place);
    // From now on the order of events can't be told from outside: only what each client sees for itself
    // counts.
    void loseTrack() { tracking_ = false; }
    std::size_t connected() const;

private:
    struct Reading { // of the last commit; which one that was comes out at the end of a look
        velta::protocol::Request request;
        Answer answer;
    };

    void expireOwner();
    void takeAnswers();
    bool takeAnswersOf(std::size_t place);
    void takeOne(std::size_t place);
    bool grantNext();
    void own(std::size_t place);
    void judge(std::size_t place, const velta::protocol::Request& request, const Answer& answer);
    void judgeGreeting(Client& client, const velta::protocol::Request& request, const Answer& answer);
    void judgeRead(bool own, const velta::protocol::Request& request, const Answer& answer);
    void judgeColumns(const velta::protocol::Request& request, const Answer& answer) const;
    void judgeSharedColumns(const velta::protocol::Request& request, const Answer& answer) const;
    void judgeDescription(const velta::protocol::Request& request, const Answer& answer) const;
    void judgeSubscribe(Client& client, const velta::protocol::Request& request);
    void judgeRefusedBegin(std::size_t place, const velta::protocol::Request& request, const Answer& answer);
    bool anotherKeepsItsPlace(std::size_t place) const;
    void judgeEnd(std::size_t place, const velta::protocol::Request& request, const Answer& answer);
    void judgeWrite(bool own, const velta::protocol::Request& request, const Answer& answer);
    bool drop(std::size_t place);
    void checkDropped(const Client& client) const;
    void checkReadings() const;
    void checkNotices(std::size_t place, const Tables& before);
    void checkAtRest(std::size_t place);
    void checkWaiting(std::size_t place);

    Clients& clients_;
    const store::ServerOptions options_;
    bool tracking_ = true;
    std::uint64_t looks_ = 0;
    Version committed_;
    Tables working_; // the owner's
    std::optional<std::size_t> owner_;
    Time ownedUntil_;

    // Since the last look.
    std::vector<Version> versions_;       // that were the last commit
    std::vector<std::size_t> committers_; // who made them
    std::set<std::size_t> owners_;
    std::vector<std::size_t> busy_; // who was told so
    std::vector<Reading> readings_;
};

} // namespace fuzz
