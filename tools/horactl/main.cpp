// horactl: says what horad will do, and why. It only reads.

#include "cfg/configclient.h"
#include "cfg/connection.h"
#include "tools/commandline.h"
#include "tools/errors.h"
#include "tools/horactl/check.h"
#include "tools/horactl/circumstances.h"
#include "tools/horactl/commandline.h"
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

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <iterator>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace tools::horactl; // all of what this program is made of
using tools::exitDone;

constexpr const char* storeSocket = "/tmp/cfgserver.socket";

constexpr int exitFound = 1;  // `check` found something
constexpr int exitNoLook = 3; // the tables can't be read

constexpr unsigned transactionWait = 0; // nothing is written

void note(const std::string& text) {
    if (!text.empty())
        tools::complain(programName, text);
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

Household readFile(const std::string& path, const std::list<std::string>& planTables) {
    try {
        tools::LoadSource source(path);
        return readDump(source, planTables);
    } catch (const tools::Refused& refused) {
        throw tools::Refused((path == "-" ? "standard input" : path) + ": " + refused.what());
    }
}

Household readHousehold(const Arguments& arguments, const std::list<std::string>& planTables) {
    if (arguments.file)
        return readFile(*arguments.file, planTables);
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

struct Command {
    const char* name;
    int (*run)(Question&, const Arguments&); // gives the exit status
};

constexpr Command commands[] = {
    {"now", printNow}, {"at", printAt},       {"next", printNext},           {"week", printWeek},
    {"why", printWhy}, {"check", printCheck}, {"simulate", printSimulation},
};

int run(const Arguments& arguments) {
    const Setting setting = findSetting({arguments.tables, arguments.repeatDelay});
    useZone(setting.zone);
    Question question = questionFrom(arguments, setting);
    if (!arguments.json)
        tools::print(setting.origin + "\n");
    const auto command = std::find_if(std::begin(commands), std::end(commands),
                                      [&](const Command& known) { return arguments.command == known.name; });
    return command->run(question, arguments); // the parser lets no other through
}

} // namespace

int main(int argc, char* argv[]) {
    Arguments arguments;
    const auto defineArguments = [&](CLI::App& app) { define(app, arguments); };
    return tools::runTool({programName, usage, exitNoLook, defineArguments, [&] { return run(arguments); }},
                          argc, argv);
}
