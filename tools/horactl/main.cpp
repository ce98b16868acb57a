// horactl: says what horad will do, and why. It only reads.

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "log.h"
#include "orv/daemon.h"
#include "orv/lackofmemory.h"
#include "orv/sysloglevel.h"
#include "tools/commandline.h"
#include "tools/errors.h"
#include "tools/horactl/check.h"
#include "tools/horactl/circumstances.h"
#include "tools/horactl/localtime.h"
#include "tools/horactl/next.h"
#include "tools/horactl/now.h"
#include "tools/horactl/question.h"
#include "tools/horactl/setting.h"
#include "tools/horactl/simulate.h"
#include "tools/horactl/timetext.h"
#include "tools/horactl/weekcommand.h"
#include "tools/horactl/why.h"
#include "tools/loadsource.h"
#include "tools/output.h"
#include "tools/storetables.h"
#include "tools/terminal.h"
#include "tools/text.h"

#include <CLI/CLI.hpp>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>
#include <list>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace tools::horactl; // all of what this program is made of

constexpr const char* programName = "horactl";
constexpr const char* storeSocket = "/tmp/cfgserver.socket";

constexpr int exitDone = 0;
constexpr int exitFound = 1; // `check` found something
constexpr int exitWrongUse = 2;
constexpr int exitNoLook = 3; // the tables can't be read

constexpr unsigned transactionWait = 0;      // nothing is written
constexpr std::size_t complaintLimit = 2000; // bytes; a file may hold names of any length

constexpr const char* usage =
    R"(Usage: horactl [-v] [-s SOCKET | -f FILE] [-t TABLE]... [-r SECONDS] [--at TIME] [--json] COMMAND

  now                      The WLAN, the plans, the frames and the reboot, and until when
  at TIME                  The same at another time
  next [-n N] [--days D]   The next N events (10), within D days (8)
  week [--from TIME] [--svg FILE] [--html FILE]
                           Seven days as bars, or as a picture or page in a file
  why wlan | reboot | TABLE.ID
                           Every condition, and the one that decides
  check                    What is likely meant otherwise
  simulate [--from TIME] [--for DURATION] [--boot] [--call FROM..TO]... [--stream FROM..TO]...
           [--service succeed|fail|hang[,SECONDS]] [--clock TIME=+DURATION]...
                           Every write of horad in that time (a day), -v with its log lines

  -s, --socket SOCKET       Where the store listens (/tmp/cfgserver.socket)
  -f, --file FILE           Tables as "cfgctl dump" wrote them, instead of a store ("-" is standard input)
  -t, --table TABLE         A table of time plans, as horad has it (those of the horad that runs here, or all)
  -r, --repeatdelay SECONDS Between two runs of a service (that of the horad that runs here, or 180)
      --at TIME             The present for every command
  -v, --verbose             Log lines of horad, at their own time
      --json                Print JSON, an object a line
      --version             Print the version
  -h, --help                Print this help

  TIME      "2026-11-29 02:30", "Tue 23:00", "23:00" (the next one), "+3h" or "@SECONDS"
  DURATION  90s, 45min, 3h, 14d

It speaks for a horad that starts at the present, and never writes anything. Exit status: 0; 1 if check found
something; 2 wrong use; 3 if the tables can't be read.
)";

// The command line as it was given: what its times mean depends on the zone, which comes later.
struct Arguments {
    std::optional<std::string> socket;
    std::optional<std::string> file;
    std::list<std::string> tables;
    std::optional<std::uint32_t> repeatDelay;
    std::optional<std::string> at;
    bool verbose = false;
    bool json = false;

    std::size_t most = 10;
    unsigned days = 8;
    std::string subject;
    std::string time;
    std::optional<std::string> from;
    std::string duration = "1d";
    std::optional<std::string> svg;
    std::optional<std::string> html;
    bool boot = false;
    std::vector<std::string> calls;
    std::vector<std::string> streams;
    std::string service = "hang";
    std::vector<std::string> clockSteps;
};

// Gives the exit status.
using Command = std::function<int(Question&, const Arguments&)>;

void note(const std::string& text) {
    if (!text.empty())
        std::cerr << programName << ": " << tools::printable(text.substr(0, complaintLimit)) << std::endl;
}

std::time_t timeIn(const std::string& text, std::time_t present) {
    const ParsedTime time = parseTime(text, present);
    note(time.note);
    return time.moment;
}

int printNow(Question& question, const Arguments&) {
    tools::print(nowCommand(question));
    return exitDone;
}

int printAt(Question& question, const Arguments& arguments) {
    question.present = timeIn(arguments.time, question.present);
    question.real = false;
    return printNow(question, arguments);
}

int printNext(Question& question, const Arguments& arguments) {
    constexpr std::int64_t day = 24 * 3600;
    tools::print(nextCommand(question, arguments.most, arguments.days * day));
    return exitDone;
}

int printWhy(Question& question, const Arguments& arguments) {
    tools::print(whyCommand(question, arguments.subject));
    return exitDone;
}

int printCheck(Question& question, const Arguments&) {
    const std::vector<Finding> findings = check(question.household, {question.present, question.repeatDelay});
    tools::print(question.json ? findingsAsJson(findings) : findingsAsText(findings));
    return findings.empty() ? exitDone : exitFound;
}

int printWeek(Question& question, const Arguments& arguments) {
    const std::time_t from = arguments.from ? timeIn(*arguments.from, question.present) : question.present;
    weekCommand(question, from, arguments.svg, arguments.html);
    return exitDone;
}

std::vector<Span> spansIn(const std::vector<std::string>& texts, std::time_t from) {
    std::vector<Span> spans;
    for (const std::string& text : texts) {
        const ParsedSpan span = parseSpan(text, from);
        note(span.from.note);
        note(span.to.note);
        spans.push_back({span.from.moment, span.to.moment});
    }
    return spans;
}

Circumstances circumstancesIn(const Arguments& arguments, std::time_t from) {
    Circumstances circumstances;
    if (arguments.boot)
        circumstances.uptime = 0;
    circumstances.calls = spansIn(arguments.calls, from);
    circumstances.streams = spansIn(arguments.streams, from);
    circumstances.service = parseService(arguments.service);
    for (const std::string& text : arguments.clockSteps)
        circumstances.clockSteps.push_back(parseClockStep(text, from));
    return circumstances;
}

int printSimulation(Question& question, const Arguments& arguments) {
    const std::time_t from = arguments.from ? timeIn(*arguments.from, question.present) : question.present;
    simulateCommand(question, from, parseDuration(arguments.duration), circumstancesIn(arguments, from));
    return exitDone;
}

void defineCommands(CLI::App& app, Arguments& arguments, Command& command) {
    const auto add = [&](const char* name, const Command& function) {
        CLI::App* const definition = app.add_subcommand(name);
        definition->callback([&command, function] { command = function; });
        return definition;
    };
    add("now", printNow);
    add("at", printAt)->add_option("TIME", arguments.time)->required();
    CLI::App* const next = add("next", printNext);
    next->add_option("-n", arguments.most)->check(CLI::Range(1, 1000000));
    next->add_option("--days", arguments.days)->check(CLI::Range(1, 3660));
    CLI::App* const week = add("week", printWeek);
    week->add_option("--from", arguments.from);
    week->add_option("--svg", arguments.svg);
    week->add_option("--html", arguments.html);
    add("why", printWhy)->add_option("SUBJECT", arguments.subject)->required();
    add("check", printCheck);
    CLI::App* const simulate = add("simulate", printSimulation);
    simulate->add_option("--from", arguments.from);
    simulate->add_option("--for", arguments.duration);
    simulate->add_flag("--boot", arguments.boot);
    simulate->add_option("--call", arguments.calls)->allow_extra_args(false);
    simulate->add_option("--stream", arguments.streams)->allow_extra_args(false);
    simulate->add_option("--service", arguments.service);
    simulate->add_option("--clock", arguments.clockSteps)->allow_extra_args(false);
}

void defineOptions(CLI::App& app, Arguments& arguments) {
    app.require_subcommand(1);
    app.fallthrough(); // options may stand behind the command too
    CLI::Option* const socket = app.add_option("-s,--socket", arguments.socket);
    app.add_option("-f,--file", arguments.file)->excludes(socket);
    app.add_option("-t,--table", arguments.tables)->allow_extra_args(false);
    app.add_option("-r,--repeatdelay", arguments.repeatDelay);
    app.add_option("--at", arguments.at);
    app.add_flag("-v,--verbose", arguments.verbose);
    app.add_flag("--json", arguments.json);
    app.set_version_flag("--version", std::string(programName) + " " HORAD_VERSION "\n");
}

Household readHousehold(const Arguments& arguments, const std::list<std::string>& planTables) {
    if (arguments.file) {
        tools::LoadSource source(*arguments.file);
        return readDump(source, planTables);
    }
    const std::string socket = arguments.socket.value_or(storeSocket);
    orv::cfg::Connection connection(socket, programName, tools::answerTimeout);
    tools::connect(connection, socket);
    orv::cfg::ConfigClient client(connection, transactionWait);
    return readStore(client, planTables);
}

Question questionFrom(const Arguments& arguments, const Setting& setting) {
    Question question;
    question.repeatDelay = setting.repeatDelay;
    question.json = arguments.json;
    question.verbose = arguments.verbose;
    question.width = tools::terminalWidth();
    question.present = std::time(nullptr);
    question.real = !arguments.at && !arguments.file;
    if (arguments.at)
        question.present = timeIn(*arguments.at, question.present);
    question.household = readHousehold(arguments, setting.tables);
    for (const std::string& text : question.household.notes)
        note(text);
    return question;
}

int run(const Command& command, const Arguments& arguments) {
    (void)ORV_Sysloglevel_registerModul(programName);
    ORV_Sysloglevel_changeTracelevel(programName, 0); // what goes wrong is told here, once
    const Setting setting = findSetting({arguments.tables, arguments.repeatDelay});
    useZone(setting.zone);
    Question question = questionFrom(arguments, setting);
    if (!arguments.json)
        tools::print(setting.origin + "\n");
    return command(question, arguments);
}

int wrongUse(const std::string& text) {
    note(text + " (" + programName + " -h shows the usage)");
    return exitWrongUse;
}

int runProgram(int argc, char* argv[]) {
    Arguments arguments;
    Command command;
    CLI::App app;
    try {
        defineOptions(app, arguments);
        defineCommands(app, arguments, command);
        app.parse(argc, argv);
        return run(command, arguments);
    } catch (const CLI::CallForHelp&) {
        tools::print(usage);
        return exitDone;
    } catch (const CLI::CallForVersion& version) {
        tools::print(version.what());
        return exitDone;
    } catch (const tools::ReaderGone&) {
        return exitDone;
    } catch (const CLI::Error& error) {
        return wrongUse(tools::describe(app, error));
    } catch (const tools::WrongUse& error) {
        return wrongUse(error.what());
    }
}

} // namespace

int main(int argc, char* argv[]) {
    orv::error::endOnLackOfMemory(programName);
    ORV_Daemon_occupyStandardStreams();
    try {
        return runProgram(argc, argv);
    } catch (const std::bad_alloc&) {
        note("out of memory");
    } catch (const std::exception& error) {
        note(error.what());
    }
    return exitNoLook;
}
