// A server of which any allocation fails: it answers each request or closes that client, keeps what it
// answered Done, and serves on.

#include "orv/sysloglevel.h"
#include "store/server/server.h"
#include "support/rawclient.h"
#include "support/temporarydirectory.h"
#include "unit/server/allocations/failingmemory.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <set>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using velta::protocol::Reply;
using velta::protocol::ReplyKind;
using velta::protocol::RequestKind;

constexpr auto patience = std::chrono::seconds(3);
constexpr std::uint32_t turn = 300; // milliseconds
constexpr std::size_t complaintsToShow = 5;
constexpr std::chrono::milliseconds usual = std::chrono::seconds(10);
constexpr std::chrono::milliseconds none(0);

constexpr std::size_t piece = 1000; // bytes of cells, so that a table of a few rows is read in several

// How long a reading may hold a snapshot. Without such a time, what was not sent at once is kept in memory.
store::ServerOptions optionsWith(std::chrono::milliseconds snapshot) {
    store::ServerOptions options;
    options.readings.piece = piece;
    options.readings.snapshot = snapshot;
    return options;
}

// A store of its own, and a session of two clients on it.
class Session {
public:
    explicit Session(std::chrono::milliseconds snapshot)
        : server_(dispatcher_, database_, listening_, optionsWith(snapshot)) {
        addRows();
        first_ = enter();
        second_ = enter();
    }

    void run() {
        ask(second_, ask::subscribe({"Globals", "Plans"}));
        readAround();
        changeAndCommit("one");
        changeAndAbort();
        takeTurns();
        first_.reset();
        serveFor(std::chrono::milliseconds(1));
    }

    // What happened against the rules; empty when nothing did.
    std::string complaint() {
        if (complaint_.empty())
            checkThatItServesOn();
        return complaint_;
    }

private:
    using Client = std::unique_ptr<RawClient>;

    void addRows() {
        std::uint32_t id = 0;
        velta::NameList changed;
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(database_.transaction()
                            .insert("Plans", cell("Name", textValue(std::string(piece, 'x'))), id)
                            .ok());
        EXPECT_TRUE(database_.transaction().commit(changed).ok());
    }

    Client enter() {
        auto client = std::make_unique<RawClient>(path_);
        ask(client, ask::hello());
        return client;
    }

    void readAround() {
        ask(first_, ask::plain(RequestKind::Tables));
        ask(first_, ask::ofTable(RequestKind::Columns, "Plans"));
        ask(first_, ask::readTable("Plans"));
        ask(first_, ask::ofTable(RequestKind::ReadRow, "Globals"));
        ask(first_, ask::readTable("Unknown"));
    }

    void changeAndCommit(const std::string& text) {
        if (!isDone(ask(first_, ask::begin(0))))
            return;
        ask(first_, ask::insert("Plans", cell("Name", textValue(std::string(3000, 'x')))));
        ask(first_, ask::readTable("Plans"));
        commit(first_, text);
        ask(first_, ask::readTable("Plans"));
    }

    void changeAndAbort() {
        if (!isDone(ask(first_, ask::begin(0))))
            return;
        ask(first_, ask::writeSingle("Globals", cell("Text", textValue("aborted"))));
        ask(first_, ask::plain(RequestKind::Abort));
    }

    // The second client waits until the first one has committed.
    void takeTurns() {
        if (!isDone(ask(first_, ask::begin(0))) || !send(second_, ask::begin(turn)))
            return;
        commit(first_, "two");
        if (isDone(answerTo(second_)))
            commit(second_, "three");
    }

    void commit(Client& client, const std::string& text) {
        const bool written = isDone(ask(client, ask::writeSingle("Globals", cell("Text", textValue(text)))));
        const std::set<std::string> before = kept_;
        if (written)
            kept_.insert(text); // nobody knows until it is answered
        const std::optional<Reply> answer = ask(client, ask::plain(RequestKind::Commit));
        if (isDone(answer) && written)
            kept_ = {text};
        else if (answer && answer->kind == ReplyKind::Failed)
            kept_ = before;
    }

    // Nothing once the client is closed.
    std::optional<Reply> ask(Client& client, const velta::protocol::Request& request) {
        if (!send(client, request))
            return std::nullopt;
        return answerTo(client);
    }

    // False for a client that is closed, or was just found to be.
    bool send(Client& client, const velta::protocol::Request& request) {
        if (!client || !complaint_.empty())
            return false;
        if (client->isHungUp())
            client.reset();
        else
            client->send(request);
        return client != nullptr;
    }

    std::optional<Reply> answerTo(Client& client) {
        if (!client || !complaint_.empty())
            return std::nullopt;
        const auto end = std::chrono::steady_clock::now() + patience;
        for (bool last = false; !last;) {
            serve();
            client->receive();
            if (!complaint_.empty())
                return std::nullopt;
            if (!client->answers.empty()) {
                Reply reply = client->answers.front().reply;
                client->answers.pop_front();
                last = reply.kind != ReplyKind::Rows || reply.rows.last;
                if (last)
                    return reply;
            } else if (client->atEnd) {
                client.reset();
                last = true;
            } else if (std::chrono::steady_clock::now() > end) {
                complain("a request was not answered");
                client.reset();
                last = true;
            }
        }
        return std::nullopt;
    }

    static bool isDone(const std::optional<Reply>& reply) { return reply && reply->kind == ReplyKind::Done; }

    void serve() {
        try {
            const failingmemory::Armed armed;
            server_.handleEvents(1);
        } catch (const std::exception& error) {
            complain(std::string("an exception left the server: ") + error.what());
        }
    }

    void serveFor(std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end)
            serve();
    }

    void checkThatItServesOn() {
        failingmemory::failAt(0, 0);
        second_.reset();
        Client client = enter();
        const std::string found = textIn(client);
        if (kept_.count(found) == 0)
            complain("what was answered Done is not there, but " + found);
        const std::optional<Reply> begun = ask(client, ask::begin(5000));
        if (begun && !isDone(begun))
            complain("it grants no transaction: " + begun->result.strerror());
        commit(client, "afterwards");
        if (textIn(client) != "afterwards")
            complain("it does not serve on");
    }

    std::string textIn(Client& client) {
        if (!send(client, ask::readTable("Globals")))
            return "no client that is let in";
        const auto end = std::chrono::steady_clock::now() + patience;
        while (client->answers.empty() && !client->atEnd && std::chrono::steady_clock::now() < end) {
            serve();
            client->receive();
        }
        if (client->answers.empty() || client->answers.front().rows.empty())
            return "no row";
        std::string text = client->answers.front().rows.front().getValue("Text").getText();
        client->answers.pop_front();
        return text;
    }

    void complain(const std::string& text) {
        if (complaint_.empty())
            complaint_ = text;
    }

    const TemporaryDirectory directory_;
    const std::string path_ = directory_.path("socket");
    velta::net::EventDispatcher dispatcher_;
    store::Database database_{schemaOf(testTables), ""};
    store::ListeningSocket listening_{path_, std::nullopt};
    store::Server server_;
    Client first_;
    Client second_;
    std::set<std::string> kept_{"it's"}; // what the one text may be in the end
    std::string complaint_;
};

// Ends the test where the server does not return: no deadline of the test's own comes to pass then.
class Watchdog {
public:
    Watchdog() { (void)std::signal(SIGALRM, bite); }
    ~Watchdog() { (void)alarm(0); }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    static void watch() { (void)alarm(secondsForASession); }

private:
    static constexpr unsigned secondsForASession = 60;

    static void bite(int) {
        std::array<char, 100> text{};
        const int size =
            std::snprintf(text.data(), text.size(), "the server does not return: allocation %lld\n",
                          static_cast<long long>(failingmemory::failing()));
        (void)!write(STDERR_FILENO, text.data(), static_cast<std::size_t>(size));
        _exit(1);
    }
};

struct Course {
    const char* name;
    int failing; // allocations, one after the other
    std::chrono::milliseconds snapshot;
};

class FailingAllocationTest : public testing::TestWithParam<Course> {
protected:
    FailingAllocationTest() {
        (void)ORV_Sysloglevel_registerModul("cfgserver");
        ORV_Sysloglevel_changeTracelevel("cfgserver", 0); // each failure would be a line
    }
};

TEST_P(FailingAllocationTest, CostsOneRequestOrOneClient) {
    failingmemory::failAt(0, 0);
    { Session(GetParam().snapshot).run(); }
    const std::int64_t allocations = failingmemory::counted();
    ASSERT_GT(allocations, 300);
    std::size_t complaints = 0;
    const Watchdog watchdog;
    for (std::int64_t n = 1; n <= allocations && complaints < complaintsToShow; ++n) {
        failingmemory::failAt(n, GetParam().failing);
        Watchdog::watch();
        Session session(GetParam().snapshot);
        session.run();
        const std::string complaint = session.complaint();
        complaints += complaint.empty() ? 0 : 1;
        EXPECT_EQ(complaint, "") << "allocation " << n << " of " << allocations;
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, FailingAllocationTest,
                         testing::Values(Course{"OneAlone", 1, usual},
                                         Course{"ATimeWithoutMemory", 50, usual},
                                         Course{"OneAloneAndRestsInMemory", 1, none}),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
