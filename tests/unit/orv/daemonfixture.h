#pragma once

#include "orv/daemon.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline std::string ownPidLine() {
    return std::to_string(getpid()) + "\n";
}

class DaemonTest : public ::testing::Test {
protected:
    DaemonTest() {
        std::string name = (std::filesystem::temp_directory_path() / "daemon_test.XXXXXX").string();
        directory_ = mkdtemp(name.data()) != nullptr ? name : std::string("/nonexistent");
        file_ = directory_ / "horad";
    }
    ~DaemonTest() override { std::filesystem::remove_all(directory_); }

    ORV_Daemon daemonHere() const {
        ORV_Daemon daemon;
        ORV_Daemon_construct(&daemon, "horad", directory_.c_str());
        return daemon;
    }

    // Runs in a process of its own, which is ended with what `body` returns; gives its pid.
    static pid_t inChild(const std::function<int()>& body) {
        const pid_t child = fork();
        if (child == 0)
            _exit(body());
        return child;
    }

    static int exitStatusOf(pid_t child) {
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::filesystem::path directory_;
    std::filesystem::path file_;
};

} // namespace test
