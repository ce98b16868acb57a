"""What /proc says about processes, and those that horad is compared with."""

import contextlib
import os
import re
import socket
import time
from pathlib import Path

from house import wait_until


def cpu(pid):
    """Nanoseconds on a CPU so far."""
    return int(Path(f"/proc/{pid}/schedstat").read_text().split()[0])


@contextlib.contextmanager
def on_cores(number):
    """All that is started in it shares so many cores. Gives False where the machine has fewer; then nothing changes."""
    before = os.sched_getaffinity(0)
    available = len(before) >= number
    if available:
        os.sched_setaffinity(0, sorted(before)[-number:])
    try:
        yield available
    finally:
        os.sched_setaffinity(0, before)


def wait_quiet(pids, gap=0.4):
    """Waits until none of the processes uses a CPU for the seconds of the gap; the moment from which on none did."""
    last, since = None, time.monotonic()
    while time.monotonic() - since < gap:
        used = [cpu(pid) for pid in pids]
        if used != last:
            last, since = used, time.monotonic()
        time.sleep(0.001)
    return since


def wait_idle(pid):
    """Waits until a daemon is at rest: it may keep what it worked with until its next idle iteration."""
    wait_quiet([pid])
    sleeps = status_of(pid, "voluntary_ctxt_switches")
    wait_until(lambda: status_of(pid, "voluntary_ctxt_switches") >= sleeps + 2, "an idle iteration")


def status_of(pid, name, file="status"):
    """A number of a file in /proc."""
    return int(re.search(rf"^{name}:\s+(\d+)", Path(f"/proc/{pid}/{file}").read_text(), re.MULTILINE).group(1))


class BareLoop:
    """The floor of a waiting daemon, in a house, with somebody to be connected to."""

    def __init__(self, house):
        path = "/tmp/bareloop.socket"
        with contextlib.suppress(FileNotFoundError):
            os.unlink(house.path(path))
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(house.path(path))
        self._listener.listen(1)
        self.program = house.start("bench_bareloop", path)
        self.pid = self.program.pid
        self._connection = self._listener.accept()[0]
        self._connection.recv(1)  # it loops

    def stop(self):
        self.program.stop()
        self._connection.close()
        self._listener.close()


def start_cron(house, lines):
    """A cron with that many lines and no others, none of which is ever due."""
    furnish = """
        set -e
        mount -t tmpfs tmpfs /var/spool/cron
        mount -t tmpfs tmpfs /etc/cron.d
        mount --bind /dev/null /etc/crontab
        mkdir /var/spool/cron/crontabs
        umask 077
        i=0
        while [ $i -lt "$1" ]; do
            echo "$((i % 60)) $((i % 24)) 30 2 * /bin/true $i"
            i=$((i + 1))
        done >/var/spool/cron/crontabs/root
        exec cron -f
    """
    cron = house.start("sh", "-c", furnish, "sh", lines)
    wait_until(lambda: Path(f"/proc/{cron.pid}/comm").read_text() == "cron\n", "cron")
    return cron
