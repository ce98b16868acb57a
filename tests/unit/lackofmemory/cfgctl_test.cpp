// A cfgctl that finds no memory leaves a store that serves on: see the end of its main().

#include "cfg/configclient.h"
#include "store/server/server.h"
#include "support/capturedlog.h"
#include "support/temporarydirectory.h"
#include "tools/cfgctl/commands.h"
#include "tools/cfgctl/diff.h"
#include "tools/storetables.h"
#include "unit/lackofmemory/expectations.h"

#include <atomic>
#include <thread>

#include <unistd.h>

namespace {

using namespace tools::cfgctl;
using failingplaces::expectAnEnd;
using failingplaces::expectNoHarm;
using orv::cfg::ConfigClient;

constexpr unsigned answerTimeout = 60;      // seconds
constexpr unsigned transactionWait = 10000; // milliseconds

constexpr const char* schema =
    "CREATE TABLE Plans (Id INTEGER PRIMARY KEY, Name TEXT NOT NULL DEFAULT '', Level INTEGER NOT NULL "
    "DEFAULT 1);"
    "CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 1, Start TIME NOT NULL DEFAULT '08:00')";

constexpr const char* file = R"({
    "Plans": [{"Id": 1, "Name": "a name that is longer than a short one"}, {"Id": 3, "Level": -1}],
    "Globals": {"Enable": 0}
})";

store::Schema schemaOf(const std::string& sql) {
    store::Schema tables;
    tables.add(sql, "test");
    return tables;
}

// A store that serves in a thread of its own, whose memory never fails.
class ServedStore {
public:
    ServedStore() : thread_([this] { run(); }) {
        while (!ready_)
            std::this_thread::yield();
    }
    ~ServedStore() {
        stop_ = true;
        thread_.join();
    }
    ServedStore(const ServedStore&) = delete;
    ServedStore& operator=(const ServedStore&) = delete;

    std::string socket() const { return directory_.path("socket"); }

private:
    void run() {
        velta::net::EventDispatcher dispatcher;
        store::Database database(schemaOf(schema), "");
        store::ListeningSocket listening(socket(), std::nullopt);
        store::Server server(dispatcher, database, listening, {});
        ready_ = true;
        while (!stop_)
            server.handleEvents(10);
    }

    const TemporaryDirectory directory_;
    std::atomic<bool> ready_{false};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

using Command = std::string (*)(ConfigClient&, const Arguments&);

class CfgctlWithoutMemory : public testing::Test {
protected:
    CfgctlWithoutMemory() {
        writeFile(arguments.file, file);
        (void)run(loadCommand);
    }

    std::string run(Command command) const {
        orv::cfg::Connection connection(store_.socket(), programName, answerTimeout);
        tools::connect(connection, store_.socket());
        ConfigClient client(connection, transactionWait);
        return command(client, arguments);
    }

    const ServedStore store_;
    const TemporaryDirectory directory_;
    Arguments arguments = [this] {
        Arguments all;
        all.file = directory_.path("file");
        return all;
    }();
};

TEST_F(CfgctlWithoutMemory, ShowsNothing) {
    for (const char* const target : {"Plans", "Plans.1", "Globals"}) {
        arguments.target = parseTarget(target);
        expectNoHarm([this] { return run(showCommand); }, 20);
    }
    arguments.column = "Start";
    expectNoHarm([this] { return run(getCommand); }, 20);
    expectNoHarm([this] { return run(columnsCommand); }, 20);
}

TEST_F(CfgctlWithoutMemory, EndsWhereItMakesJson) {
    expectAnEnd([this] { return run(listCommand); }, 20, 300);
    arguments.json = true;
    arguments.column = "Name";
    arguments.target = parseTarget("Plans");
    for (const Command command : {listCommand, showCommand, columnsCommand})
        expectAnEnd([this, command] { return run(command); }, 20, 300);
    arguments.target = parseTarget("Plans.1");
    for (const Command command : {showCommand, getCommand})
        expectAnEnd([this, command] { return run(command); }, 20, 300);
}

TEST_F(CfgctlWithoutMemory, SetsNothingOrAll) {
    arguments.target = parseTarget("Plans.3");
    for (const char* const name : {"a name that is set", "another name that is set"}) {
        arguments.cells = {{"Name", name}, {"Level", "7"}};
        expectNoHarm([this] { return run(setCommand); }, 20);
    }
}

TEST_F(CfgctlWithoutMemory, LoadsNothingOrAll) {
    const auto work = [this] {
        (void)run(loadCommand); // says how long it took where it changed something
        return std::string();
    };
    expectNoHarm(work, 50);
}

TEST_F(CfgctlWithoutMemory, DumpsNotAll) {
    const auto work = [this] {
        const fakes::CapturedOutput output(STDOUT_FILENO);
        (void)run(dumpCommand);
        return output.text();
    };
    expectNoHarm(work, 20);
}

TEST_F(CfgctlWithoutMemory, FindsNoDifferences) {
    const auto work = [this] {
        orv::cfg::Connection connection(store_.socket(), programName, answerTimeout);
        tools::connect(connection, store_.socket());
        ConfigClient client(connection, transactionWait);
        const tools::Rows rows = tools::readRows(client, "Plans");
        std::string lines;
        for (const Change& change : diff({"Plans", false}, {rows.front()}, {rows.back()}))
            lines += asLine(change) + '\n';
        for (const Change& change : diff({"Plans", false}, rows, {}))
            lines += asLine(change) + '\n';
        return lines;
    };
    expectNoHarm(work, 20);
}

} // namespace
