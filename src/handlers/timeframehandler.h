#pragma once

#include "cfg/iconfighandler.h"
#include "handlers/servicestates.h"
#include "handlers/timeframereader.h"
#include "log.h"
#include "orv/system.h"

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orv::horad {

// Starts services inside their time frames, again and again until they succeed, their runs are used up or the
// frame is over, and counts the runs.
class TimeframeHandler : public cfg::IConfigHandler {
public:
    // repeatInterval: seconds between two runs that fall due; 0 stands for 180. debug: debug lines are
    // logged. The system outlives the handler.
    TimeframeHandler(unsigned repeatInterval, bool debug, System& system = System::real());

    void getTables(std::list<std::string>& tables) override;
    // Reads the time frames and the states of the services, whichever of the tables changed. True when all of
    // it could be read.
    bool configChanged(cfg::common::IConfigClient& client, const std::string& table) override;
    // Starts the services of the frames that fell due and writes their counters, in one transaction. What
    // could not be committed is kept and written by the next call. Waits for its transaction until the system
    // is stopping.
    void process(cfg::common::IConfigClient& client) override;

    // Looks which frames are due, and has process() start their services. The first call only enables the
    // service daemon. Throws where the number of SIP calls can't be read.
    void checkTimeframes(cfg::common::IConfigClient& client);

private:
    using EResultCode = velta::protocol::EResultCode;
    class Situation;

    // A frame, and the state of its service: each pass asks for both, and looks up neither.
    struct Scheduled {
        int id;
        Timeframe& frame;
        const ServiceState& state;
    };

    void merge(Timeframes&& loaded);
    void mergeOne(int id, std::unique_ptr<Timeframe>& loaded);
    void schedule();
    [[nodiscard]] bool enableServiceDaemon(cfg::common::IConfigClient& client);
    void startServiceDaemon(cfg::common::IConfigClient& client);
    bool check(cfg::common::IConfigClient& client, const Scheduled& scheduled);
    bool countRun(cfg::common::IConfigClient& client, int id, Timeframe& frame);
    bool beginTransaction(cfg::common::IConfigClient& client);
    void startService(cfg::common::IConfigClient& client, const std::string& table, int id);
    void writeRunCounter(cfg::common::IConfigClient& client, int id, int runs);

    System& system_;
    Log log_;
    Timeframes timeframes_;
    std::map<int, std::string> servicesToStart_; // the table of each service, by its row's Id
    ServiceStates states_;
    std::vector<Scheduled> schedule_; // by Id
    std::list<int> executed_;         // the Ids of the frames whose run has to be written
    int repeatInterval_;              // seconds
    bool firstPass_ = true;
};

} // namespace orv::horad
