// Follows a member that says anything. The input is a program: what it answers and tells, right or wrong, and
// what time passes meanwhile.
#include "fuzz/input.h"
#include "orv/sysloglevel.h"
#include "store/cluster/clusternews.h"
#include "store/cluster/follower.h"
#include "store/log.h"
#include "store/storage/cells.h"
#include "support/rawmember.h"
#include "support/temporarydirectory.h"

#include <stdexcept>

namespace {

using fuzz::Input;
using fuzz::require;
using store::Column;
using store::Json;

constexpr int stepsLimit = 60;
constexpr std::size_t complaintLimit = 1024; // bytes; a person reads it

constexpr const char* tables =
    "CREATE TABLE Plans (Id INTEGER PRIMARY KEY, Name TEXT NOT NULL DEFAULT '' SHARED, "
    "Day INTEGER(0, 7) NOT NULL DEFAULT 0 SHARED, At TIME NOT NULL DEFAULT '' SHARED);"
    "CREATE TABLE Globals (Enable SWITCH NOT NULL DEFAULT 0 SHARED, "
    "Runs COUNTER NOT NULL DEFAULT 0 SHARED);";

store::Schema schemaOf(const char* sql) {
    store::Schema schema;
    schema.add(sql, "of the fuzzer");
    return schema;
}

// Serves all runs.
struct House {
    House() {
        store::log::open(false, false);
        ORV_Sysloglevel_changeTracelevel("cfgserver", 0); // nothing
    }

    TemporaryDirectory directory;
    velta::net::EventDispatcher dispatcher;
    RawMember member{directory.path("member")};
    const store::Schema schema = schemaOf(tables);
    const Json answeredSchema = clusterSchemaOf(schema);
};

void checkCell(const Column& column, const velta::Value& value) {
    require(store::acceptable(column.type, value) && isWithin(column.kind, value),
            "a cell is what its column can hold");
}

void checkComplaint(const std::string& complaint) {
    require(!complaint.empty() && complaint.size() <= complaintLimit, "a complaint is short");
}

// One device, and the member that it follows.
class Run {
public:
    explicit Run(House& house)
        : house_(house),
          follower_(house.dispatcher, {house.member.remote()}, house.schema,
                    monitorRequests(house.schema, "device"), events(), pace()) {}
    ~Run() { house_.member.disconnect(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void step(Input& input) {
        switch (input.byte() % 8) {
        case 0:
            return answer(2, house_.answeredSchema.dump());
        case 1:
            return answer(3, R"({"Database":{"u":{"initial":{"connected":true,"index":5}}}})");
        case 2:
            return answer(4, R"([true,"t",)" + input.text(input.byte()) + ']');
        case 3:
            return say(R"({"method":"update3","id":null,"params":["tables","t",)" + input.text(input.byte()) +
                       "]}");
        case 4:
            return say(input.text(input.byte()));
        case 5:
            return pass(std::chrono::seconds(input.byte()));
        case 6:
            return say(R"({"method":"update2","params":["server",)" + input.text(input.byte()) + "]}");
        case 7:
            house_.member.disconnect();
            connected_ = false;
            return pass(std::chrono::seconds(0));
        }
    }

private:
    store::Follower::Events events() {
        return {[] { return store::SharedPosition(); },
                [this](const store::Follower::News& news) { return take(news); }, [](bool) {}};
    }

    store::Follower::Pace pace() {
        store::Follower::Pace pace;
        pace.random = [] { return 0.5; };
        pace.now = [this] { return now_; };
        return pace;
    }

    std::string take(const store::Follower::News& told) const {
        store::ClusterNews news;
        const std::string complaint = readNews(house_.schema, told.tables, news);
        for (const store::ClusterNews::Refusal& refused : news.refused)
            checkComplaint(refused.reason);
        for (const store::SharedUpdate& row : news.rows)
            checkRow(row);
        if (!complaint.empty())
            checkComplaint(complaint);
        return complaint;
    }

    void checkRow(const store::SharedUpdate& row) const {
        if (!row.values)
            return;
        const store::Table& table = house_.schema.tables().at(row.table);
        const velta::NameList columns = table.sharedColumns();
        require(row.values->cells.size() == columns.size(), "each shared column has its place");
        for (std::size_t i = 0; i < columns.size(); ++i)
            if (const std::optional<velta::Value>& cell = row.values->cells[i])
                checkCell(table.columns[table.indexOf(columns[i]).value()], *cell);
    }

    void answer(int id, const std::string& result) {
        say(R"({"id":)" + std::to_string(id) + R"(,"result":)" + result + R"(,"error":null})");
    }

    void say(const std::string& bytes) {
        connect();
        if (!connected_)
            return;
        try {
            house_.member.sendBytes(bytes);
        } catch (const std::runtime_error&) { // the device has left
            connected_ = false;
        }
        round();
    }

    void connect() {
        round();
        if (connected_ && house_.member.isLeft())
            connected_ = false;
        if (!connected_ && house_.member.isCalled()) {
            house_.member.accept();
            connected_ = true;
            round();
        }
    }

    void pass(store::Follower::Clock::duration time) {
        now_ += time;
        round();
    }

    void round() {
        house_.dispatcher.handleEvents(0);
        follower_.settle();
        (void)follower_.nextDeadline();
    }

    House& house_;
    store::Follower::Clock::time_point now_{std::chrono::hours(1)};
    bool connected_ = false;
    store::Follower follower_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static House house;
    while (house.member.isCalled()) // of the run before
        house.member.accept();
    Input input(data, size);
    Run run(house);
    for (int step = 0; step < stepsLimit && !input.atEnd(); ++step)
        run.step(input);
    return 0;
}
