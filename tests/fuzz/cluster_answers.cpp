// A device's transactions and reservations, and a cluster that answers them truly, with anything, late or
// never.
#include "fuzz/input.h"
#include "orv/sysloglevel.h"
#include "store/cluster/guardedtransactions.h"
#include "store/cluster/reservations.h"
#include "store/cluster/sharedoperations.h"
#include "store/log.h"
#include "support/fakeovsdb.h"

#include <deque>
#include <memory>
#include <set>

namespace {

using fuzz::Input;
using fuzz::require;
using store::GuardedTransactions;
using store::Json;
using store::Reservations;

constexpr int stepsLimit = 100;
constexpr std::size_t mostSentInAStep = 8;
constexpr std::size_t plans = 0; // the index of the table

store::Schema schemaOfPlans() {
    store::log::open(false, false);
    ORV_Sysloglevel_changeTracelevel("cfgserver", 0); // nothing
    store::Schema schema;
    schema.add("CREATE TABLE Plans (Id INTEGER PRIMARY KEY, Name TEXT NOT NULL DEFAULT '' SHARED)",
               "of the fuzzer");
    return schema;
}

class Run {
public:
    explicit Run(const store::Schema& schema)
        : guarded_("device", now()), reservations_(schema, "device", guarded_, sending(), now()) {
        cluster_.addIndex("Devices", {"Name"});
        cluster_.addIndex("Plans", {"Id"});
        cluster_.addIndex("Reserved", {"Table", "Id"});
        connect();
    }

    void step(Input& input) {
        sentInThisStep_ = 0;
        take(input);
        guarded_.settle();
        reservations_.settle(isConnected_);
        (void)guarded_.nextDeadline();
        (void)reservations_.nextDeadline();
    }

    // Once nothing more is answered, all that was begun ends.
    void finish() {
        time_ += std::chrono::minutes(1);
        reservations_.settle(false);
        guarded_.settle();
        guarded_.settle();
        require(begun_ == ended_.size(), "each one ends");
    }

private:
    void take(Input& input) {
        switch (input.byte() % 10) {
        case 0:
            return run(input.byte());
        case 1:
            return reservations_.reserve(plans, time_ + std::chrono::seconds(5), ending());
        case 2:
            return answerTruly();
        case 3:
            return answer(Json::parse(input.text(input.byte()), nullptr, false));
        case 4: // what was sent is lost, or carried out without an answer
            if (!sent_.empty() && input.byte() % 2 == 0)
                (void)cluster_.transact(sent_.front().operations);
            if (!sent_.empty())
                sent_.pop_front();
            return;
        case 5:
            time_ += std::chrono::milliseconds(input.number(2));
            return;
        case 6:
            isConnected_ ? disconnect() : connect();
            return;
        case 7:
            return guarded_.deviceSeen(static_cast<std::int64_t>(input.number(8)),
                                       static_cast<std::int64_t>(input.number(8)));
        case 8:
            if (isConnected_)
                reservations_.meetStrangers(plans);
            return;
        case 9:
            return reservations_.giveBack(plans, input.byte() % 4);
        }
    }

    void run(std::int64_t id) {
        Json operations =
            Json::array({reservations_.waitForFreedom(plans, id), store::insertInto("Plans", {{"Id", id}})});
        if (reservations_.holds(plans, id))
            operations.push_back(reservations_.removal(plans, id));
        guarded_.run(std::move(operations), time_ + std::chrono::seconds(5),
                     [end = ending()](const GuardedTransactions::Report&) { end({}, 0); });
    }

    // What it returns must be called once.
    store::Sharing::Reserved ending() {
        return [this, number = begun_++](const auto&, std::uint32_t) {
            require(ended_.insert(number).second, "each one ends once");
        };
    }

    GuardedTransactions::Now now() {
        return [this] { return time_; };
    }

    GuardedTransactions::Transact sending() {
        return [this](Json operations, GuardedTransactions::Answer answer) {
            require(isConnected_, "nothing is sent without a connection");
            require(++sentInThisStep_ <= mostSentInAStep, "an answer does not make many questions");
            sent_.push_back({std::move(operations), std::move(answer)});
        };
    }

    void connect() {
        isConnected_ = true;
        guarded_.connected(sending());
    }

    void disconnect() {
        sent_.clear();
        isConnected_ = false;
        guarded_.disconnected();
        reservations_.disconnected();
    }

    void answerTruly() {
        if (!sent_.empty())
            answer(cluster_.transact(sent_.front().operations));
    }

    void answer(const Json& result) {
        if (sent_.empty())
            return;
        const GuardedTransactions::Answer then = std::move(sent_.front().answer);
        sent_.pop_front();
        then(result.is_discarded() ? Json() : result, nullptr);
    }

    struct Sent {
        Json operations;
        GuardedTransactions::Answer answer;
    };

    GuardedTransactions::Clock::time_point time_{std::chrono::hours(1)};
    test::FakeOvsdb cluster_{{{"Devices", {{"Token", 0}, {"Done", 0}, {"Probe", 0}}}}};
    std::deque<Sent> sent_;
    std::size_t sentInThisStep_ = 0;
    bool isConnected_ = false;
    std::size_t begun_ = 0;
    std::set<std::size_t> ended_;
    GuardedTransactions guarded_;
    Reservations reservations_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const store::Schema schema = schemaOfPlans();
    Input input(data, size);
    Run run(schema);
    for (int step = 0; step < stepsLimit && !input.atEnd(); ++step)
        run.step(input);
    run.finish();
    return 0;
}
