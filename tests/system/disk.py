"""A system, and most of all a disk, that fails under a server at work."""

import signal

SYNCS = "fsync,fdatasync"


class FailingCalls:
    """These system calls of the server fail and nothing else does: each, or those that `when` chooses; on any file, or on
    that of a path."""

    def __init__(self, house, server, calls, when="", path=None, error="EIO"):
        self._strace = house.start("strace", "-f", "-o", "/dev/null", "-p", server.pid, "-e", f"trace={calls}",
                                   "-e", f"inject={calls}:error={error}{when}", *(["-P", path] if path else []))
        self._strace.err.wait("attached")

    def end(self):
        self._strace.stop(signal.SIGINT)


class FailingSyncs(FailingCalls):
    def __init__(self, house, server, when=""):
        super().__init__(house, server, SYNCS, when)


class FailingWrites(FailingCalls):
    def __init__(self, house, server, path, when=""):
        super().__init__(house, server, "pwrite64", when, path)
