#include "orv/sysloglevel.h"

#include "orv/standarderror.h"
#include "orv/utf8.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

struct ORV_Sysloglevel_Modul {
    char name[32] = {};
    std::atomic<unsigned> mask{0};
};

static_assert(std::atomic<unsigned>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
                  std::atomic<bool>::is_always_lock_free,
              "signal handlers read these");

namespace {

constexpr std::size_t roomForModules = 16;
constexpr unsigned normalLevel = 113;
constexpr unsigned daemonFacility = 3 << 3;
constexpr sockaddr_un systemLog = {AF_UNIX, "/dev/log"};

struct LevelInfo {
    unsigned mask;
    unsigned severity; // as syslog counts
    const char* name;
};

constexpr LevelInfo errorLevel = {ORV_Sysloglevel_Error, 3, "error"};
constexpr LevelInfo warningLevel = {ORV_Sysloglevel_Warning, 4, "warning"};
constexpr LevelInfo infoLevel = {ORV_Sysloglevel_Info, 6, "info"};
constexpr LevelInfo debugLevel = {ORV_Sysloglevel_Debug, 7, "debug"};

std::array<ORV_Sysloglevel_Modul, roomForModules> modules;
std::size_t moduleCount = 0;
char textPrefix[64] = {};
char programName[32] = {};
std::atomic<int> toSystemLog{0};
std::atomic<bool> toJournal{false}; // what goes to standard error
std::atomic<int> systemLogSocket{-1};
std::atomic<unsigned> missingLines{0}; // that standard error did not take, and nobody was told of yet

template <std::size_t Size>
void copyCut(char (&target)[Size], const char* text) {
    const std::size_t length = strnlen(text, Size - 1);
    std::memcpy(target, text, length);
    target[length] = '\0';
}

// One line in the making, on the stack. What does not fit is cut off. No control character gets in, and no
// byte that a terminal could take for one: it is plain UTF-8 whatever was put in.
class Line {
public:
    Line& add(std::string_view text) {
        while (!text.empty())
            (void)addCharacter(text);
        return *this;
    }

    Line& addNumber(std::int64_t number, int leastDigits = 1) {
        char digits[20];
        int count = 0;
        for (; number > 0 || count < leastDigits; number /= 10)
            digits[count++] = static_cast<char>('0' + number % 10);
        while (count > 0)
            put({&digits[--count], 1});
        return *this;
    }

    // The text without the line ends and other control characters behind it.
    Line& addText(std::string_view text) {
        std::size_t end = size_;
        while (!text.empty())
            if (addCharacter(text))
                end = size_;
        size_ = end;
        return *this;
    }

    void end() { bytes_[size_++] = '\n'; }

    std::string_view bytes() const { return {bytes_, size_}; }

private:
    // Takes one character off the text's front. False for a control character, which becomes a blank.
    bool addCharacter(std::string_view& text) {
        const std::size_t size = orv::utf8::characterSize(text);
        const std::string_view character = text.substr(0, size != 0 ? size : 1);
        text.remove_prefix(character.size());
        const bool control = size != 0 && orv::utf8::isControl(character);
        put(control ? " " : size == 0 ? "?" : character);
        return !control;
    }

    void put(std::string_view character) {
        if (size_ + character.size() > room_) {
            room_ = size_; // nothing that is shorter gets in behind what did not fit
            return;
        }
        std::memcpy(bytes_ + size_, character.data(), character.size());
        size_ += character.size();
    }

    char bytes_[2048];
    std::size_t size_ = 0;
    std::size_t room_ = sizeof bytes_ - 1; // one is kept for end()
};

// Date and time in UTC from the seconds since 1970. gmtime_r() may take a lock, so it is no choice here.
// Years are counted from March on: the leap day is then the last of its year.
void addTime(Line& line, std::int64_t clock) {
    constexpr std::int64_t endOfYear9999 = 253402300799;
    const std::int64_t now = clock < 0 ? 0 : clock > endOfYear9999 ? endOfYear9999 : clock;
    constexpr std::int64_t secondsBefore1970 = 719468LL * 86400; // since 1 March of the year 0
    constexpr std::int64_t daysOf400Years = 146097;
    const std::int64_t second = (now + secondsBefore1970) % 86400;
    const std::int64_t days = (now + secondsBefore1970) / 86400;
    const std::int64_t day = days % daysOf400Years;
    const std::int64_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const std::int64_t dayOfYear = day - (365 * year + year / 4 - year / 100);
    const std::int64_t marchMonth = (5 * dayOfYear + 2) / 153;
    const std::int64_t month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    line.addNumber(year + days / daysOf400Years * 400 + (month <= 2 ? 1 : 0), 4).add("-");
    line.addNumber(month, 2).add("-").addNumber(dayOfYear - (153 * marchMonth + 2) / 5 + 1, 2).add("T");
    line.addNumber(second / 3600, 2).add(":").addNumber(second / 60 % 60, 2).add(":");
    line.addNumber(second % 60, 2).add("Z");
}

// The module, where it is not named as the program is: every line of the system log and the journal says
// which program it is from.
Line& addModule(Line& line, const char* program, const char* module) {
    if (std::strcmp(program, module) != 0)
        line.add(module).add(": ");
    return line.add(textPrefix);
}

Line& begin(Line& line, const LevelInfo& level, const char* module) {
    if (toJournal) {
        line.add("<").addNumber(level.severity).add(">");
        return addModule(line, programName, module);
    }
    addTime(line, time(nullptr));
    return line.add(" ").add(level.name).add(" ").add(module).add(": ").add(textPrefix);
}

// True where no line is missing, or where that was told.
bool tellMissing(const char* module) {
    const unsigned missing = missingLines.exchange(0);
    if (missing == 0)
        return true;
    Line line;
    begin(line, warningLevel, module).addNumber(missing);
    line.add(missing == 1 ? " line" : " lines").add(" before this one could not be written").end();
    if (orv::writeToStandardError(line.bytes()))
        return true;
    missingLines += missing;
    return false;
}

void writeToStandardError(const LevelInfo& level, const char* module, const char* text) {
    Line line;
    begin(line, level, module).addText(text).end();
    if (!tellMissing(module) || !orv::writeToStandardError(line.bytes()))
        ++missingLines;
}

// The address goes with every line, so that a log daemon that was started again is found.
void sendToSystemLog(const LevelInfo& level, const char* module, const char* text) {
    const char* program = programName[0] != '\0' ? programName : module;
    Line line;
    line.add("<").addNumber(daemonFacility + level.severity).add(">");
    line.add(program).add("[").addNumber(getpid()).add("]: ");
    addModule(line, program, module).addText(text);
    (void)sendto(systemLogSocket, line.bytes().data(), line.bytes().size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&systemLog), sizeof systemLog);
}

void log(const ORV_Sysloglevel_Modul* module, const LevelInfo& level, const char* text) {
    if ((module->mask & level.mask) == 0)
        return;
    const int savedErrno = errno;
    if (toSystemLog != 0)
        sendToSystemLog(level, module->name, text);
    else
        writeToStandardError(level, module->name, text);
    errno = savedErrno;
}

ORV_Sysloglevel_Modul* find(const char* name) {
    for (std::size_t i = 0; i < moduleCount; ++i)
        if (std::strncmp(modules[i].name, name, sizeof modules[i].name - 1) == 0)
            return &modules[i];
    return nullptr;
}

// Above the standard streams, which daemonising replaces.
int openSystemLog() {
    const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0 || made > STDERR_FILENO)
        return made;
    const int moved = fcntl(made, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(made);
    return moved;
}

} // namespace

void ORV_Sysloglevel_construct2(const char* prefix, const char* program) {
    copyCut(textPrefix, prefix);
    copyCut(programName, program);
    toJournal = orv::isJournalOnStandardError();
}

ORV_Sysloglevel_Modul* ORV_Sysloglevel_registerModul(const char* name) {
    if (ORV_Sysloglevel_Modul* known = find(name))
        return known;
    if (moduleCount == roomForModules)
        return &modules.back();
    ORV_Sysloglevel_Modul& module = modules[moduleCount++];
    copyCut(module.name, name);
    module.mask = normalLevel;
    return &module;
}

void ORV_Sysloglevel_changeTracelevel(const char* module, unsigned mask) {
    if (ORV_Sysloglevel_Modul* known = find(module))
        known->mask = mask;
}

void ORV_Sysloglevel_set(int useSyslog) {
    if (useSyslog != 0 && systemLogSocket < 0)
        systemLogSocket = openSystemLog();
    toSystemLog = useSyslog;
}

void ORV_Sysloglevel_error(const ORV_Sysloglevel_Modul* module, const char* /*file*/, int /*line*/,
                           const char* text) {
    log(module, errorLevel, text);
}

void ORV_Sysloglevel_warning(const ORV_Sysloglevel_Modul* module, const char* /*file*/, int /*line*/,
                             const char* text) {
    log(module, warningLevel, text);
}

void ORV_Sysloglevel_info(const ORV_Sysloglevel_Modul* module, const char* /*file*/, int /*line*/,
                          const char* text) {
    log(module, infoLevel, text);
}

void ORV_Sysloglevel_debug(const ORV_Sysloglevel_Modul* module, const char* /*file*/, int /*line*/,
                           const char* text) {
    log(module, debugLevel, text);
}

std::string VAStr(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    va_start(arguments, format);
    (void)std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    va_end(arguments);
    return text;
}
