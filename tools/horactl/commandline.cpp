#include "tools/horactl/commandline.h"

namespace tools::horactl {

const char* const usage =
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

namespace {

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

void defineSimulation(CLI::App& simulate, Arguments& arguments) {
    simulate.add_option("--from", arguments.from);
    simulate.add_option("--for", arguments.duration);
    simulate.add_flag("--boot", arguments.boot);
    simulate.add_option("--call", arguments.calls)->allow_extra_args(false);
    simulate.add_option("--stream", arguments.streams)->allow_extra_args(false);
    simulate.add_option("--service", arguments.service);
    simulate.add_option("--clock", arguments.clockSteps)->allow_extra_args(false);
}

} // namespace

void define(CLI::App& app, Arguments& arguments) {
    defineOptions(app, arguments);
    const auto add = [&](const char* name) {
        CLI::App* const command = app.add_subcommand(name);
        command->callback([&arguments, name] { arguments.command = name; });
        return command;
    };
    add("now");
    add("at")->add_option("TIME", arguments.time)->required();
    CLI::App* const next = add("next");
    next->add_option("-n", arguments.most)->check(CLI::Range(1, 1000000));
    next->add_option("--days", arguments.days)->check(CLI::Range(1, 3660));
    CLI::App* const week = add("week");
    week->add_option("--from", arguments.from);
    week->add_option("--svg", arguments.svg);
    week->add_option("--html", arguments.html);
    add("why")->add_option("SUBJECT", arguments.subject)->required();
    add("check");
    defineSimulation(*add("simulate"), arguments);
}

} // namespace tools::horactl
