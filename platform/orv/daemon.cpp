#include "orv/daemon.h"

#include "orv/standarderror.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the parent receives on success; anything else is the reason of a failure.
constexpr char success[] = "\n";

constexpr int lockAttempts = 500;
constexpr useconds_t lockPause = 10000; // microseconds

void closeOnce(int& descriptor) {
    const int savedErrno = errno;
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
    errno = savedErrno;
}

int fail(int& descriptor, int error) {
    closeOnce(descriptor);
    errno = error;
    return -1;
}

// The report goes over a socket pair and not a pipe: sending to a parent that was killed raises no SIGPIPE.
void tellParent(ORV_Daemon* daemon, const std::string& report) {
    const int savedErrno = errno;
    while (daemon->parentPipe >= 0 &&
           send(daemon->parentPipe, report.data(), report.size(), MSG_NOSIGNAL) < 0 && errno == EINTR) {
    }
    closeOnce(daemon->parentPipe);
    errno = savedErrno;
}

[[noreturn]] void waitForReport(int pipe) {
    std::array<char, 512> buffer{};
    ssize_t size = 0;
    while ((size = recv(pipe, buffer.data(), buffer.size(), 0)) < 0 && errno == EINTR) {
    }
    std::string report(buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    if (report == success)
        _exit(0);
    if (report.empty())
        report = "the daemon ended before it was ready";
    orv::writeErrorLine(report);
    _exit(1);
}

int failAt(ORV_Daemon* daemon, const char* step) {
    daemon->failedStep = step;
    return -1;
}

// Above the standard streams, which are replaced later, even where the caller has closed those.
int moveUp(int& descriptor) {
    if (descriptor > STDERR_FILENO)
        return 0;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    closeOnce(descriptor);
    descriptor = moved;
    return moved < 0 ? -1 : 0;
}

int makePair(int (&ends)[2]) {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return -1;
    if (moveUp(ends[0]) == 0 && moveUp(ends[1]) == 0)
        return 0;
    closeOnce(ends[0]);
    closeOnce(ends[1]);
    return -1;
}

int leaveSession(ORV_Daemon* daemon) {
    if (setsid() < 0)
        return failAt(daemon, "setsid");
    const pid_t child = fork(); // a process that leads no session can't get a terminal
    if (child < 0)
        return failAt(daemon, "fork");
    if (child > 0)
        _exit(0);
    return 0;
}

int leaveSurroundings(ORV_Daemon* daemon) {
    umask(S_IWGRP | S_IWOTH);
    if (chdir("/") != 0)
        return failAt(daemon, "/");
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null < 0 || moveUp(null) != 0)
        return failAt(daemon, "/dev/null");
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (dup2(null, stream) < 0) {
            closeOnce(null);
            return failAt(daemon, "/dev/null");
        }
    closeOnce(null);
    return 0;
}

// The open descriptors above the standard streams. If the kernel does not list them, all numbers that there
// may be.
std::vector<int> inheritedDescriptors() {
    std::vector<int> found;
    if (DIR* const list = opendir("/proc/self/fd")) {
        while (const dirent* entry = readdir(list))
            if (const int descriptor = std::atoi(entry->d_name); descriptor > STDERR_FILENO)
                found.push_back(descriptor);
        closedir(list); // the list contains its own descriptor
        return found;
    }
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    constexpr rlim_t most = 65536;
    for (int descriptor = STDERR_FILENO + 1; descriptor < static_cast<int>(std::min(limit.rlim_cur, most));
         ++descriptor)
        found.push_back(descriptor);
    return found;
}

int lockWithoutWaiting(int descriptor, int operation) {
    int result = 0;
    while ((result = flock(descriptor, operation | LOCK_NB)) != 0 && errno == EINTR) {
    }
    return result;
}

// Whether the path still leads to the file behind the descriptor.
bool leadsTo(const char* path, int descriptor) {
    struct stat named {};
    struct stat held {};
    return lstat(path, &named) == 0 && fstat(descriptor, &held) == 0 && named.st_dev == held.st_dev &&
           named.st_ino == held.st_ino;
}

// The locked file, or -1 with errno: EWOULDBLOCK when an instance holds it, EBUSY when it may be free a
// moment later.
int openLocked(const char* path) {
    constexpr mode_t ownersAlone = S_IRUSR | S_IWUSR; // who may open it may also lock it
    int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, ownersAlone);
    if (file < 0)
        return -1;
    if (lockWithoutWaiting(file, LOCK_EX) != 0) {
        // A process that only looks whether it is occupied holds a shared lock, for a moment.
        const bool held = lockWithoutWaiting(file, LOCK_SH) != 0;
        return fail(file, held ? errno : EBUSY);
    }
    if (!leadsTo(path, file)) // an instance that was just ending has removed it
        return fail(file, EBUSY);
    return file;
}

int openLockedPatiently(const char* path) {
    int file = openLocked(path);
    for (int attempt = 1; file < 0 && errno == EBUSY && attempt < lockAttempts; ++attempt) {
        usleep(lockPause);
        file = openLocked(path);
    }
    return file;
}

int writePid(int file) {
    const std::string text = std::to_string(getpid()) + '\n';
    if (ftruncate(file, 0) != 0)
        return -1;
    const ssize_t written = write(file, text.data(), text.size());
    if (written >= 0 && static_cast<std::size_t>(written) < text.size())
        errno = ENOSPC;
    return written == static_cast<ssize_t>(text.size()) ? 0 : -1;
}

int takePidFile(ORV_Daemon* daemon) {
    if (daemon->path[0] == '\0') {
        errno = ENAMETOOLONG;
        return -1;
    }
    int file = openLockedPatiently(daemon->path);
    if (file < 0)
        return -1;
    if (writePid(file) != 0) {
        const int reason = errno;
        (void)unlink(daemon->path); // a part of a process id would name another process
        return fail(file, reason);
    }
    daemon->lockedFile = file;
    return 0;
}

std::string reasonFor(const ORV_Daemon* daemon, int error) {
    const std::string path = daemon->path;
    if (error == EWOULDBLOCK)
        return path.substr(path.rfind('/') + 1) + " is already running";
    return "can't write " + (path.empty() ? "the pid file" : path) + ": " + std::strerror(error);
}

} // namespace

void ORV_Daemon_occupyStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY); // takes the lowest number
}

void ORV_Daemon_closeInheritedDescriptors(int kept) {
    for (const int descriptor : inheritedDescriptors())
        if (descriptor != kept)
            (void)close(descriptor);
}

void ORV_Daemon_construct(ORV_Daemon* daemon, const char* name, const char* directory) {
    *daemon = ORV_Daemon();
    const int length = std::snprintf(daemon->path, sizeof daemon->path, "%s/%s", directory, name);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof daemon->path)
        daemon->path[0] = '\0';
}

int ORV_Daemon_occupiedPidFile(const ORV_Daemon* daemon) {
    int file = open(daemon->path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (file < 0)
        return 0;
    const bool occupied = lockWithoutWaiting(file, LOCK_SH) != 0 && errno == EWOULDBLOCK;
    closeOnce(file);
    return occupied ? 1 : 0;
}

int ORV_Daemon_daemonize(ORV_Daemon* daemon) {
    int ends[2] = {-1, -1};
    if (makePair(ends) != 0)
        return failAt(daemon, "socketpair");
    (void)std::fflush(nullptr); // or both processes would hold what is still in the buffers
    const pid_t child = fork();
    if (child < 0) {
        closeOnce(ends[0]);
        closeOnce(ends[1]);
        return failAt(daemon, "fork");
    }
    if (child > 0) {
        closeOnce(ends[1]);
        while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
        waitForReport(ends[0]);
    }
    closeOnce(ends[0]);
    daemon->parentPipe = ends[1];
    return leaveSession(daemon) == 0 ? leaveSurroundings(daemon) : -1;
}

int ORV_Daemon_createPidFile(ORV_Daemon* daemon) {
    const int result = takePidFile(daemon);
    tellParent(daemon, result == 0 ? success : reasonFor(daemon, errno));
    return result;
}

void ORV_Daemon_reportFailure(ORV_Daemon* daemon, const char* reason) {
    if (daemon->parentPipe >= 0)
        tellParent(daemon, reason);
    else
        orv::writeErrorLine(reason);
}

void ORV_Daemon_deletePidFile(ORV_Daemon* daemon) {
    if (daemon->lockedFile >= 0 && leadsTo(daemon->path, daemon->lockedFile))
        (void)unlink(daemon->path);
    closeOnce(daemon->lockedFile);
}
