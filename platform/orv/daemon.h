#pragma once

// Turning a process into a daemon that holds a pid file.
//
// The file's name is the daemon's, its content the process id in decimal and a line end. It is locked (flock)
// for as long as the process lives, so it is the lock that tells a running instance from a file that one left
// behind.

struct ORV_Daemon {
    char path[256] = {};         // empty until constructed, and where it would not fit
    int lockedFile = -1;         // the pid file, while this process holds it
    int parentPipe = -1;         // where the parent of a daemonised process waits to hear how it went
    const char* failedStep = ""; // of daemonising, for whoever tells of it
};

// Fills the standard streams that the caller has closed with something that can't be used, so that no file or
// socket gets their numbers and with them what was meant for a stream. First of all in main().
void ORV_Daemon_occupyStandardStreams();

// Closes what the caller has left open beside the standard streams: a daemon that lives for months must not
// hold another program's pipe, lock or file system. Before the program opens anything of its own.
void ORV_Daemon_closeInheritedDescriptors();

// All that return an int return 0 for success, except for occupiedPidFile.

void ORV_Daemon_construct(ORV_Daemon* daemon, const char* name, const char* directory);
// Non-zero when a running instance holds the pid file. Removes and changes nothing.
int ORV_Daemon_occupiedPidFile(const ORV_Daemon* daemon);
// Returns in the daemon only, which has no terminal, "/" as its working directory and /dev/null as its
// standard streams. The calling process stays until ORV_Daemon_createPidFile() was called in the daemon, then
// exits with 0, or with 1 and the reason on its standard error; likewise when the daemon ends before that.
// Non-zero, with errno and the step that failed, where that can't be done: whichever process it returns in
// then has to report the failure.
int ORV_Daemon_daemonize(ORV_Daemon* daemon);
// Locks the file, writes it and lets the parent go. Non-zero when another instance holds the file (errno
// EWOULDBLOCK) or it can't be written; the parent then knows the reason.
int ORV_Daemon_createPidFile(ORV_Daemon* daemon);
// Tells whoever waits for the daemon that it ends before it was ready, and why: the parent, or the reader of
// standard error where there is no parent. Harmless in a daemon whose parent has heard how it went.
void ORV_Daemon_reportFailure(ORV_Daemon* daemon, const char* reason);
// Removes the file if this process holds it; harmless otherwise, also on an object that was never
// constructed.
void ORV_Daemon_deletePidFile(ORV_Daemon* daemon);
