#pragma once

// Turning a process into a daemon that holds a pid file.
//
// The file's name is the daemon's, its content the process id in decimal and a line end. It is locked (flock)
// for as long as the process lives, so it is the lock that tells a running instance from a file that one left
// behind.

struct ORV_Daemon {
    char path[256] = {};         // empty until constructed, and where it would not fit
    int lockedFile = -1;         // the pid file, while this process holds it
    int parentPipe = -1;         // where the parent waits to hear whether the daemon is up
    const char* failedStep = ""; // of daemonising, for the error text
};

// Opens /dev/null in the place of standard streams that the caller has closed, in a direction in which it
// can't be used. So no file or socket gets the number of a stream, and with it what was meant for the stream.
// To be called first in main().
void ORV_Daemon_occupyStandardStreams();

// Closes what the caller has left open beside the standard streams: a daemon that lives for months must not
// hold another program's pipe, lock or file system. One that was left open on purpose is kept; -1 stands for
// none. To be called before the program opens anything itself.
void ORV_Daemon_closeInheritedDescriptors(int kept = -1);

// All that return an int return 0 for success, except for occupiedPidFile.

void ORV_Daemon_construct(ORV_Daemon* daemon, const char* name, const char* directory);
// Non-zero when a running instance holds the pid file. Removes and changes nothing.
int ORV_Daemon_occupiedPidFile(const ORV_Daemon* daemon);
// Returns in the daemon only, which has no terminal, "/" as its working directory and /dev/null as its
// standard streams. The calling process waits until the daemon has called ORV_Daemon_createPidFile(). Then it
// exits with 0, or with 1 and the reason on its standard error; also with 1 if the daemon ends before that.
// Non-zero, with errno and the step that failed, where that can't be done: whichever process it returns in
// then has to report the failure.
int ORV_Daemon_daemonize(ORV_Daemon* daemon);
// Locks the file, writes it and lets the parent go. Non-zero when another instance holds the file (errno
// EWOULDBLOCK) or it can't be written; the parent then knows the reason.
int ORV_Daemon_createPidFile(ORV_Daemon* daemon);
// Reports why the daemon ends before it was ready: to the parent, or on standard error if there is no parent.
// Harmless in a daemon that has reported to its parent already.
void ORV_Daemon_reportFailure(ORV_Daemon* daemon, const char* reason);
// Removes the file if this process holds it; harmless otherwise, also on an object that was never
// constructed.
void ORV_Daemon_deletePidFile(ORV_Daemon* daemon);
