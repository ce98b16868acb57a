#include "tools/horactl/runninghorads.h"

#include "tools/horactl/scanner.h"

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>
#include <system_error>

#include <getopt.h>
#include <sys/stat.h>

namespace tools::horactl {

namespace {

constexpr std::string_view nameInProc = "horad\n";
constexpr std::string_view zoneVariable = "TZ=";

// While one lives, the daemon's parser begins anew, and what it prints goes nowhere.
class QuietParsing {
public:
    QuietParsing()
        : output_(std::cout.rdbuf(nullptr)), errors_(std::cerr.rdbuf(nullptr)), printsErrors_(opterr) {
        opterr = 0;
        optind = 0;
    }
    ~QuietParsing() {
        std::cout.rdbuf(output_); // and is good again
        std::cerr.rdbuf(errors_);
        opterr = printsErrors_;
        optind = 1;
    }
    QuietParsing(const QuietParsing&) = delete;
    QuietParsing& operator=(const QuietParsing&) = delete;

private:
    std::streambuf* output_;
    std::streambuf* errors_;
    int printsErrors_;
};

std::string fileOf(int pid, const std::string& proc, const char* name) {
    return proc + '/' + std::to_string(pid) + '/' + name;
}

// Of a text in which each part ends with a zero byte.
std::vector<std::string> partsOf(const std::string& text) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

// What the horad with that command line does; nothing where it ends at once. A process that has ended has
// none.
std::optional<orv::horad::Options> optionsOf(std::vector<std::string> arguments) {
    if (arguments.empty())
        return std::nullopt;
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    orv::horad::Options options;
    const QuietParsing quiet;
    const orv::horad::OptionsResult result =
        orv::horad::parseOptions(static_cast<int>(arguments.size()), pointers.data(), options);
    if (result != orv::horad::OptionsResult::Run || options.tables.empty())
        return std::nullopt;
    return options;
}

// Who may not look into another's tree takes it to be his own.
bool seesSameFolder(int pid, const std::string& proc, const std::string& folder) {
    struct stat theirs {};
    struct stat ours {};
    if (stat(fileOf(pid, proc, ("root" + folder).c_str()).c_str(), &theirs) != 0 ||
        stat(folder.c_str(), &ours) != 0)
        return true;
    return theirs.st_dev == ours.st_dev && theirs.st_ino == ours.st_ino;
}

std::vector<int> pidsIn(const std::string& proc) {
    std::vector<int> pids;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(proc, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const std::string name = entry->path().filename();
        Scanner scanner(name);
        const std::optional<std::int64_t> pid = scanner.takeNumber();
        if (pid && *pid <= INT_MAX && scanner.atEnd())
            pids.push_back(static_cast<int>(*pid));
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

} // namespace

// Processes come and go meanwhile: what can't be read any more is no horad any more.
std::vector<RunningHorad> runningHorads(const std::string& proc, const std::string& storeFolder) {
    std::vector<RunningHorad> found;
    for (const int pid : pidsIn(proc)) {
        if (textOfFile(fileOf(pid, proc, "comm")) != nameInProc || !seesSameFolder(pid, proc, storeFolder))
            continue;
        const std::string line = textOfFile(fileOf(pid, proc, "cmdline")).value_or("");
        if (std::optional<orv::horad::Options> options = optionsOf(partsOf(line)))
            found.push_back({pid, std::move(*options)});
    }
    return found;
}

RunningZone zoneOf(int pid, const std::string& proc) {
    const std::optional<std::string> environment = textOfFile(fileOf(pid, proc, "environ"));
    if (!environment)
        return {};
    for (const std::string& variable : partsOf(*environment))
        if (variable.compare(0, zoneVariable.size(), zoneVariable) == 0)
            return {true, variable.substr(zoneVariable.size())};
    return {true, std::nullopt};
}

std::optional<std::string> textOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        return std::nullopt;
    std::string text;
    std::array<char, 4096> bytes;
    while (file.read(bytes.data(), bytes.size()) || file.gcount() > 0)
        text.append(bytes.data(), static_cast<std::size_t>(file.gcount()));
    return file.bad() ? std::nullopt : std::optional(text);
}

} // namespace tools::horactl
