"""Whatever a start asks of the system may be refused: then one line says what, the exit status is 1, and nothing is left."""

import os
import re

import pytest

from house import SOCKET, wait_until

PID_FILE = "/run/cfgserver"

# The system calls that fail (? where only some machines have it), with what error, on which path, and what is said.
IN_FOREGROUND = {
    "signals": ("signalfd4", "EMFILE", None, "signalfd: Too many open files"),
    "memory": ("?mkdir,mkdirat", "EROFS", None, "no place in memory for the database: .*: Read-only file system"),
    "socket": ("socket", "EMFILE", None, f"socket {SOCKET}: can't be made: Too many open files"),
    "bind": ("bind", "EACCES", None, f"socket {SOCKET}: can't be made: Permission denied"),
    "look": ("?lstat,newfstatat", "EACCES", SOCKET, f"socket {SOCKET}: can't be looked at: Permission denied"),
    "group": ("?lchown,fchownat", "EPERM", None, f"socket {SOCKET}: can't be given to the group: Operation not permitted"),
    "listen": ("listen", "EOPNOTSUPP", None, f"socket {SOCKET}: can't be listened on: Operation not supported"),
    "poll": ("?epoll_create,epoll_create1", "EMFILE", None, ".*: Too many open files"),
}
AS_DAEMON = {
    "pair": ("socketpair", "EMFILE", None, "can't become a daemon: socketpair: Too many open files"),
    "child": ("?fork,clone", "EAGAIN", None, "can't become a daemon: fork: Resource temporarily unavailable"),
    "session": ("setsid", "EPERM", None, "can't become a daemon: setsid: Operation not permitted"),
    "root": ("chdir", "EACCES", None, "can't become a daemon: /: Permission denied"),
    "null": ("?open,openat", "ENXIO", "/dev/null", "can't become a daemon: /dev/null: No such device or address"),
    "streams": ("?dup2,dup3", "EMFILE", None, "can't become a daemon: /dev/null: Too many open files"),
    "signals": ("signalfd4", "EMFILE", None, "signalfd: Too many open files"),
    "pid": ("ftruncate", "EIO", PID_FILE, f"can't write /var{PID_FILE}: Input/output error"),
    "disk": ("write", "ENOSPC", PID_FILE, f"can't write /var{PID_FILE}: No space left on device"),
}


def check_refusal(house, failing, *arguments):
    calls, error, path, said = failing
    tracer = ["strace", "-f", "-o", "/dev/null", "-e", f"trace={calls}", "-e", f"inject={calls}:error={error}"]
    status, out, err = house.run(*tracer, *(["-P", path] if path else []), "/run/bin/cfgserver", *arguments,
                                 env={"ASAN_OPTIONS": "detect_leaks=0"})  # they can't be looked for under a tracer
    lines = [line for line in err.splitlines() if not line.startswith("strace: ")]
    assert (status, out) == (1, "") and len(lines) == 1 and re.fullmatch(f"(cfgserver: )?{said}", lines[0]), err
    wait_until(lambda: house.processes() == [], "the end of all")
    assert not os.path.exists(house.path(SOCKET)) and not os.path.exists(house.path(PID_FILE))


@pytest.mark.parametrize("what", IN_FOREGROUND)
def test_a_refusal_in_the_foreground_is_one_line(house, what):
    check_refusal(house, IN_FOREGROUND[what], "-g", "daemon")


@pytest.mark.parametrize("what", AS_DAEMON)
def test_a_refusal_on_the_way_to_a_daemon_is_one_line_of_who_started_it(house, what):
    check_refusal(house, AS_DAEMON[what], "-d")
