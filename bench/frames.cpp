// A scheduling pass in which nothing is due: every time frame is open, and its next run is a year away.
// The floor is a loop over plain numbers. See runPasses() for the arguments.

#include "bench/inprocessstore.h"
#include "bench/passes.h"
#include "handlers/dbm.h"
#include "handlers/timeframehandler.h"

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>

namespace {

using bench::number;
using bench::text;
using velta::Value;
namespace dbm = orv::horad::dbm;

constexpr unsigned year = 365 * 24 * 3600;
constexpr int mostRuns = 3;

// A table of frames that began a minute ago, and the idle service of each.
class FrameStore : public bench::InProcessStore {
public:
    explicit FrameStore(unsigned frames) : frames_(frames) {}

    EResultCode size(const std::string& table, unsigned& rows) override {
        rows = table == dbm::TimeFrame || table == dbm::FileTransfer ? frames_ : 0;
        return {};
    }
    EResultCode selectRow(const std::string& table, unsigned row, velta::ValueList& values,
                          const velta::NameList&) override {
        select(table, static_cast<int>(row) + 1, values);
        return {};
    }
    EResultCode selectRowByKey(const std::string& table, const std::string&, const std::string& key,
                               velta::ValueList& values) override {
        select(table, std::atoi(key.c_str()), values);
        return {};
    }

private:
    void select(const std::string& table, int id, velta::ValueList& values) const {
        values.clear();
        values.add(dbm::Id, number(id, Value::Counter));
        if (table == dbm::TimeFrame)
            addFrame(id, values);
        else
            addIdleService(values);
    }
    void addFrame(int id, velta::ValueList& values) const {
        values.add(dbm::TimeFrame_WindowMode, number(orv::horad::InWindow, Value::Integer));
        values.add(dbm::TimeFrame_Servicetable, text(dbm::FileTransfer));
        values.add(dbm::TimeFrame_ServicetableId, number(id, Value::Counter));
        values.add(dbm::TimeFrame_Start, number(static_cast<int>(start_), Value::Counter));
        values.add(dbm::TimeFrame_End, number(static_cast<int>(start_ + 2 * year), Value::Counter));
        values.add(dbm::TimeFrame_UserMessage, text("New firmware"));
        values.add(dbm::TimeFrame_MaxRetries, number(mostRuns, Value::Integer));
        values.add(dbm::TimeFrame_RunCounter, number(0, Value::Counter));
    }
    static void addIdleService(velta::ValueList& values) {
        values.add(dbm::Service_Status, number(orv::horad::ServiceIdle, Value::Integer));
        values.add(dbm::Service_Result, number(0, Value::Integer));
    }

    unsigned frames_;
    std::uint32_t start_ = static_cast<std::uint32_t>(std::time(nullptr)) - 60;
};

class HoradFrames {
public:
    explicit HoradFrames(unsigned frames) : store_(frames) {
        (void)handler_.configChanged(store_, dbm::TimeFrame);
        pass(); // enables the service daemon
        pass(); // each frame's first run
        warmUps_ = store_.transactions();
    }
    ~HoradFrames() {
        constexpr unsigned onePerWarmUp = 2;
        if (warmUps_ == onePerWarmUp && store_.transactions() == warmUps_)
            return;
        std::fputs("bench_frames: frames were due in the passes that were measured\n", stderr);
        std::_Exit(EXIT_FAILURE);
    }
    HoradFrames(const HoradFrames&) = delete;
    HoradFrames& operator=(const HoradFrames&) = delete;

    void pass() { handler_.checkTimeframes(store_); }

private:
    FrameStore store_;
    orv::horad::TimeframeHandler handler_{year, false};
    unsigned warmUps_ = 0;
};

// The floor answers the same questions, of one reading of the clock.
class PlainFrames {
public:
    explicit PlainFrames(unsigned frames) {
        const std::int64_t start = now() - 60'000'000;
        const std::int64_t step = std::int64_t{year} * 1'000'000;
        for (unsigned i = 1; i <= frames; ++i)
            frames_[static_cast<int>(i)] =
                std::make_unique<Frame>(Frame{start, start + 2 * step, start + step});
    }
    void pass() {
        const std::int64_t time = now();
        for (const auto& [id, frame] : frames_)
            if (frame->takeDue(time))
                starts_ = starts_ + 1;
    }

private:
    enum class State { Idle, Running, Succeeded };

    struct Frame {
        std::int64_t start; // microseconds
        std::int64_t end;
        std::int64_t execution;
        int runs = 1;
        State state = State::Idle;
        bool due = false;

        bool takeDue(std::int64_t time) {
            if (state == State::Succeeded)
                return false;
            const bool open = start <= time && time <= end && runs <= mostRuns;
            if (open && execution < time) {
                due = true;
                execution += std::int64_t{year} * 1'000'000;
            }
            if (state == State::Running || !open || !due)
                return false;
            due = false;
            return true;
        }
    };

    static std::int64_t now() {
        timespec time{};
        (void)clock_gettime(CLOCK_REALTIME, &time);
        return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_nsec / 1000;
    }

    std::map<int, std::unique_ptr<Frame>> frames_;
    volatile unsigned starts_ = 0;
};

} // namespace

int main(int argc, char* argv[]) {
    return bench::runPasses<HoradFrames, PlainFrames>(argc, argv, "frame", "scheduling");
}
