#include "tools/cfgctl/childprocess.h"

#include "tools/errors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tools::cfgctl {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t outputLimit = std::size_t{4} << 20U; // bytes; a schema may be large
constexpr int exitNotStarted = 127;
constexpr int lookInterval = 20; // milliseconds between two looks whether it has ended

class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0)
            refuseByErrno("pipe");
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readingEnd() const { return ends_[0]; }
    int writingEnd() const { return ends_[1]; }
    void closeWritingEnd() { closeEnd(1); }
    void closeReadingEnd() { closeEnd(0); }

    // What is there now. False once there will be no more.
    [[nodiscard]] bool readInto(std::string& text) const {
        std::array<char, 1U << 16U> bytes{};
        const ssize_t count = read(readingEnd(), bytes.data(), bytes.size());
        if (count > 0)
            text.append(bytes.data(), static_cast<std::size_t>(count));
        return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
    }

private:
    void closeEnd(std::size_t end) {
        if (const int descriptor = std::exchange(ends_[end], -1); descriptor >= 0)
            close(descriptor);
    }

    std::array<int, 2> ends_{-1, -1};
};

// The folder of this program; empty where it isn't known.
std::string ownFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

// Where the program lies: beside this one, as where both were just built, in PATH, or where what serves lies,
// which a user's PATH often lacks.
std::string find(const std::string& name, const std::string& package) {
    const char* const path = std::getenv("PATH");
    std::string folders =
        ownFolder() + ":" + (path != nullptr ? std::string(path) : "/usr/bin:/bin") + ":/usr/sbin:";
    while (!folders.empty()) {
        const std::size_t colon = folders.find(':');
        const std::string file = folders.substr(0, colon) + "/" + name;
        folders.erase(0, colon + 1);
        if (file.size() > name.size() + 1 && access(file.c_str(), X_OK) == 0)
            return file;
    }
    throw Refused(name + " is not installed (it comes with the package " + package + ")");
}

bool becomeOwner(const Owner& owner) {
    return setgroups(0, nullptr) == 0 && setgid(owner.group) == 0 && setuid(owner.user) == 0;
}

// In the child. Only what is safe between fork and exec.
[[noreturn]] void become(const char* file, char* const* arguments, const ChildRules& rules,
                         const Pipe& output, const Pipe& errors) {
    const int nothing = open("/dev/null", O_RDONLY);
    const bool ready = nothing >= 0 && dup2(nothing, STDIN_FILENO) == STDIN_FILENO &&
                       dup2(output.writingEnd(), STDOUT_FILENO) == STDOUT_FILENO &&
                       dup2(errors.writingEnd(), STDERR_FILENO) == STDERR_FILENO &&
                       (!rules.owner || becomeOwner(*rules.owner));
    if (ready)
        execv(file, arguments);
    const char* const reason = std::strerror(errno);
    (void)!write(errors.writingEnd(), reason, std::strlen(reason)); // nobody else could be told
    _exit(exitNotStarted);
}

class Child {
public:
    Child(const std::vector<std::string>& command, const ChildRules& rules)
        : name_(command.front()), deadline_(Clock::now() + rules.time) {
        const std::string file = find(name_, rules.package);
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const std::string& word : command)
            arguments.push_back(const_cast<char*>(word.c_str())); // execv does not change them
        arguments.push_back(nullptr);
        process_ = fork();
        if (process_ < 0)
            refuseByErrno(name_);
        if (process_ == 0)
            become(file.c_str(), arguments.data(), rules, output_, errors_);
        output_.closeWritingEnd();
        errors_.closeWritingEnd();
    }
    ~Child() {
        if (process_ > 0)
            end();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ChildEnd wait() {
        while (!hasEnded()) {
            if (Clock::now() >= deadline_) {
                end();
                said_.late = true;
                return said_;
            }
            listen(lookInterval);
        }
        while (listen(0)) {
        }
        return said_;
    }

private:
    // Takes what it says within so many milliseconds. False where that is nothing.
    bool listen(int milliseconds) {
        std::array<pollfd, 2> ends{{{output_.readingEnd(), POLLIN, 0}, {errors_.readingEnd(), POLLIN, 0}}};
        if (poll(ends.data(), ends.size(), milliseconds) <= 0)
            return false;
        if (ends[0].revents != 0 && !output_.readInto(said_.output))
            output_.closeReadingEnd();
        if (ends[1].revents != 0 && !errors_.readInto(said_.errors))
            errors_.closeReadingEnd();
        if (std::max(said_.output.size(), said_.errors.size()) > outputLimit)
            throw Refused(name_ + " prints more than it should");
        return true;
    }

    bool hasEnded() {
        int status = 0;
        if (waitpid(process_, &status, WNOHANG) != process_)
            return false;
        process_ = 0;
        if (WIFEXITED(status))
            said_.exitStatus = WEXITSTATUS(status);
        return true;
    }

    void end() {
        (void)kill(process_, SIGKILL); // it may just have ended
        (void)waitpid(process_, nullptr, 0);
        process_ = 0;
    }

    std::string name_;
    Clock::time_point deadline_;
    Pipe output_;
    Pipe errors_;
    pid_t process_ = 0;
    ChildEnd said_;
};

} // namespace

ChildEnd runChild(const std::vector<std::string>& command, const ChildRules& rules) {
    return Child(command, rules).wait();
}

std::string complaintOf(const ChildEnd& end) {
    std::string text = end.errors;
    text.erase(text.find_last_not_of(" \n") + 1);
    if (const std::size_t last = text.rfind('\n'); last != std::string::npos)
        text.erase(0, last + 1);
    if (!text.empty())
        return text;
    return end.exitStatus ? "it ended with " + std::to_string(*end.exitStatus) : "a signal ended it";
}

} // namespace tools::cfgctl
