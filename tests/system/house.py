"""A house of its own for each test: private /tmp, /run and /dev, with the real programs in it.

Nothing here sleeps to wait for a result: everything waits for an event, with a deadline.
"""

import contextlib
import copy
import datetime
import os
import queue
import re
import select
import signal
import socket
import subprocess
import threading
import time
import zoneinfo
from pathlib import Path

BIN = Path(os.environ.get("HORAD_BIN", Path(__file__).resolve().parents[2] / "build/dev/bin"))
DEADLINE = 20.0  # seconds: how long an event that must come may take on a loaded machine
SOCKET = "/tmp/cfgserver.socket"
COUNTING = "HORAD_COUNTING" in os.environ  # coverage: what is killed would not say what it reached

_FURNISH = r"""
set -e
mount -t tmpfs tmpfs /run
mkdir -p /run/bin /run/dev/shm
mount --bind "$1" /run/bin
for device in null zero full random urandom; do
    : > /run/dev/$device
    mount --bind /dev/$device /run/dev/$device
done
ln -s /proc/self/fd /run/dev/fd
mount --rbind /run/dev /dev
mount -t tmpfs tmpfs /tmp
chmod 1777 /tmp /dev/shm
echo furnished
exec cat
"""


# The libraries' own files are still there.
_OWN_PROC = r"""
set -e
mkdir /run/proc
mount --rbind /proc /run/proc
mount -t tmpfs tmpfs /proc
ln -s /run/proc/self /proc/self
mkdir -p /proc/kelvaro/ksn/udp /proc/net
"""


class Timeout(AssertionError):
    pass


def is_sanitized(program):
    return b"__asan_init" in (BIN / program).read_bytes()


def wait_until(condition, what, deadline=DEADLINE):
    """Polls for what no event tells of: the end of a process, a file of another process."""
    end = time.monotonic() + deadline
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise Timeout(f"{what} did not happen within {deadline} s")
        time.sleep(0.01)


class Lines:
    """The lines of a stream as they come. What was written before anything else that the test saw is always seen."""

    def __init__(self, stream):
        self._stream = stream
        self._lines = []
        self._begun = b""  # a line without its end
        self._changed = threading.Condition()
        self._ended = False
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    @property
    def seen(self):
        with self._changed:
            self._take()
            return self._lines  # it grows on

    def _read(self):
        with self._stream:
            while not self._ended:
                self._is_readable(timeout=None)
                with self._changed:
                    self._take()

    def _is_readable(self, timeout):
        poll = select.poll()
        poll.register(self._stream, select.POLLIN)
        return poll.poll(timeout)

    def _take(self):
        """What is there now: a pipe holds at most 1 MiB."""
        for _ in range(1 << 4):
            if self._ended or not self._is_readable(timeout=0):
                return
            taken = os.read(self._stream.fileno(), 1 << 16)
            *lines, self._begun = (self._begun + taken).split(b"\n")
            if not taken:
                self._ended = True
                lines = [self._begun] if self._begun else []
            self._lines += [line.decode(errors="replace") for line in lines]
            self._changed.notify_all()

    def wait(self, pattern, start=0, deadline=DEADLINE):
        """The index of the first line from start on that the pattern is found in."""
        end = time.monotonic() + deadline
        at = start
        with self._changed:
            while True:
                while at < len(self._lines):
                    if re.search(pattern, self._lines[at]):
                        return at
                    at += 1
                left = end - time.monotonic()
                if left <= 0 or self._ended:
                    why = "the stream ended" if self._ended else f"not within {deadline} s"
                    raise Timeout(f"no line {pattern!r} ({why}) in:\n" + "\n".join(self._lines))
                self._changed.wait(left)

    def wait_end(self, deadline=DEADLINE):
        self._thread.join(deadline)
        assert not self._thread.is_alive(), "the stream did not end"
        return self.seen

    def count(self, pattern):
        return sum(1 for line in self.seen if re.search(pattern, line))


class Program:
    def __init__(self, process):
        self.process = process
        self.out = Lines(process.stdout)
        self.err = Lines(process.stderr)

    @property
    def pid(self):
        return self.process.pid

    def send(self, number):
        self.process.send_signal(number)

    def wait(self, deadline=DEADLINE):
        """The exit status, with all output read."""
        try:
            status = self.process.wait(deadline)
        except subprocess.TimeoutExpired as late:
            raise Timeout(f"{self.process.args} did not end") from late
        self.out.wait_end()
        self.err.wait_end()
        return status

    def stop(self, number=signal.SIGTERM):
        self.send(number)
        return self.wait()

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()


class Syslog:
    """A system log: the datagrams that arrive at /dev/log. Somebody takes them all the time, since the kernel keeps ten."""

    def __init__(self, path):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._path = path
        self._socket.bind(path)
        os.chmod(path, 0o666)
        self._socket.settimeout(0.1)
        self.seen = []
        self._arrived = queue.Queue()
        self._closed = False
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while not self._closed:
            with contextlib.suppress(socket.timeout):
                self._arrived.put(self._socket.recv(65536).decode(errors="replace"))

    def wait(self, pattern):
        """Reads on until a line that the pattern is found in."""
        while True:
            try:
                self.seen.append(self._arrived.get(timeout=DEADLINE))
            except queue.Empty as late:
                raise Timeout(f"no line {pattern!r} in:\n" + "\n".join(self.seen)) from late
            if re.search(pattern, self.seen[-1]):
                return self.seen[-1]

    def close(self):
        self._closed = True
        self._thread.join()
        self._socket.close()
        os.unlink(self._path)


class KernelFiles:
    def __init__(self, house):
        self._house = house

    def write(self, path, text):
        """In one go: nobody sees half of it."""
        Path(self._house.path(path + ".new")).write_text(text)
        os.rename(self._house.path(path + ".new"), self._house.path(path))


class Clock:
    """A clock that stands where the test sets it, for programs that wait so many times as short as usual. How busy the
    machine is does not change what they find; how long they wait for the store's answers is not faked."""

    def __init__(self, house, moment, waits, tz):
        self._path, self._waits, self._zone = house.path("/tmp/clock"), waits, zoneinfo.ZoneInfo(tz)
        self.set(moment)
        self.env = {**_faketime(), "FAKETIME_TIMESTAMP_FILE": "/tmp/clock", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
                    "TZ": tz}

    def set(self, moment):
        """To a local time; gives the same in UTC."""
        self._moment = datetime.datetime.fromisoformat(moment)
        Path(self._path + ".new").write_text(f"{self._moment} x{self._waits}\n")
        os.rename(self._path + ".new", self._path)
        return self._moment.replace(tzinfo=self._zone).astimezone(datetime.timezone.utc)

    def tick(self):
        """A second further."""
        self.set(str(self._moment + datetime.timedelta(seconds=1)))

    def pace(self, waits):
        """From here on they wait so many times as short."""
        self._waits = waits
        self.set(str(self._moment))


class House:
    def __init__(self):
        command = ["unshare", "--mount", "--propagation", "private"]
        if os.geteuid() != 0:
            command += ["--user", "--map-root-user"]
        command += ["sh", "-c", _FURNISH, "sh", str(BIN)]
        self._holder = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        line = self._holder.stdout.readline()
        assert line == b"furnished\n", "the private file systems could not be made"
        self._namespace = os.readlink(f"/proc/{self._holder.pid}/ns/mnt")
        self._programs = []
        self._env = {}
        self._time = []
        self._network = []

    # Where a path of the house is seen from outside.
    def path(self, path):
        return f"/proc/{self._holder.pid}/root{path}"

    def enter(self):
        enter = ["nsenter", f"--mount=/proc/{self._holder.pid}/ns/mnt", "--wd=/tmp", *self._time, *self._network]
        if os.geteuid() != 0:
            enter += [f"--user=/proc/{self._holder.pid}/ns/user", "--preserve-credentials"]
        return enter + ["--"]

    def start(self, *command, env=None, stdin=subprocess.DEVNULL):
        """Starts a program of the house; a bare name is one of ours."""
        process = subprocess.Popen(
            self._command(command, env),
            stdin=stdin,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env={**os.environ, **self._env},
        )
        program = Program(process)
        self._programs.append(program)
        return program

    def run(self, *command, env=None, input=None, deadline=DEADLINE):
        """Runs a program to its end: (status, output, errors)."""
        done = subprocess.run(
            self._command(command, env),
            input=input if input is not None else b"",
            capture_output=True,
            timeout=deadline,
            env={**os.environ, **self._env},
        )
        return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")

    def _command(self, command, env):
        """What is preloaded begins in the house: it finds its files there, and leaves what it leaves there."""
        variables = [f"{name}={value}" for name, value in (env or {}).items()]
        return self.enter() + (["env", *variables] if variables else []) + self._resolve(command)

    @staticmethod
    def _resolve(command):
        program, *arguments = (str(word) for word in command)
        return [f"/run/bin/{program}" if "/" not in program and (BIN / program).exists() else program, *arguments]

    # --- our three programs ---

    def cfgserver(self, *arguments, env=None):
        server = self.start("cfgserver", *arguments, env=env)
        server.err.wait(r"cfgserver: .*(serv|listen)")
        return server

    def cfgctl(self, *arguments, input=None):
        """The output of a cfgctl that has to succeed."""
        status, out, err = self.run("cfgctl", *arguments, input=input)
        assert status == 0, f"cfgctl {arguments}: {status}\n{err}"
        return out

    def horad(self, *arguments, at=None, tz=None, env=None):
        """A horad in the foreground; `at` sets its clock, which then goes on as usual."""
        env = dict(env or {})
        command = ["horad", *arguments]
        if tz:
            env["TZ"] = tz
        if at:
            env.update(faketime(at))
        return self.start(*command, env=env)

    def watch(self, *arguments):
        watch = self.start("cfgctl", "watch", "--no-time", *arguments)
        watch.err.wait("watching")
        return watch

    def get(self, cell):
        row, column = cell.split(" ")
        return self.cfgctl("get", row, column).rstrip("\n")

    def add(self, table, **cells):
        return int(self.cfgctl("add", table, *(f"{name}={value}" for name, value in cells.items())))

    def set(self, row, **cells):
        self.cfgctl("set", row, *(f"{name}={value}" for name, value in cells.items()))

    def wait_value(self, cell, value, deadline=DEADLINE):
        wait_until(lambda: self.get(cell) == str(value), f"{cell} = {value}", deadline)

    def wait_gone(self, pid):
        wait_until(lambda: not is_alive(pid), f"the end of process {pid}")

    def kernel_files(self):
        """From here on a program that is started finds the test's files where the kernel's would be."""
        status, _, err = self.run("sh", "-c", _OWN_PROC)
        assert status == 0, err
        self._env["LSAN_OPTIONS"] = "detect_leaks=0"  # it would look for /proc/PID
        return KernelFiles(self)

    def booted(self, seconds):
        """From here on a program that is started finds the machine up for so long, and longer by and by."""
        offset = seconds - int(time.clock_gettime(time.CLOCK_BOOTTIME))
        keeper = self.start("unshare", "--time", "--boottime", offset, "sh", "-c", "echo booted; exec cat",
                            stdin=subprocess.PIPE)
        keeper.out.wait("booted")
        self._time = [f"--time=/proc/{keeper.pid}/ns/time_for_children"]

    def in_network(self, name):
        """The same house; what is started through this has the network of that name, of `ip netns`."""
        home = copy.copy(self)
        home._network = [f"--net={self.path('/run/netns/' + name)}"]
        return home

    def clock(self, moment, waits, tz):
        return Clock(self, moment, waits, tz)

    def syslog(self):
        return Syslog(self.path("/dev/log"))

    def processes(self):
        """The processes that live in this house, the holder left out."""
        found = []
        for entry in os.listdir("/proc"):
            if entry.isdigit() and int(entry) != self._holder.pid:
                with contextlib.suppress(OSError):
                    if os.readlink(f"/proc/{entry}/ns/mnt") == self._namespace and is_alive(int(entry)):
                        found.append(int(entry))
        return found

    def close(self):
        if COUNTING:
            self._send_all(signal.SIGTERM)
            with contextlib.suppress(Timeout, subprocess.TimeoutExpired):
                for program in self._programs:
                    program.process.wait(3)
                wait_until(lambda: not self.processes(), "the end of the daemons", deadline=3)
        self._send_all(signal.SIGKILL)
        for program in self._programs:
            program.kill()
        self._holder.stdin.close()
        self._holder.wait()

    def _send_all(self, number):
        for pid in self.processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, number)


def untouched(path):
    """What stays the same while nobody changes the file. Following a link may change its access time."""
    status = os.lstat(path)
    return status.st_ino, status.st_mode, status.st_uid, status.st_size, status.st_mtime_ns


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat", "rb") as stat:
            return stat.read().rsplit(b")", 1)[1].split()[0] not in (b"Z", b"X")
    except OSError:
        return False


def faketime(moment):
    """The environment in which a program's clock starts at the moment, local time, and goes on as usual."""
    return {**_faketime(f"@{moment}"), "FAKETIME_DONT_FAKE_MONOTONIC": "1"}


def fast_clock(times, at=None):
    """The environment in which a program's clocks run so many times as fast, from a moment or from now on, and it waits
    as much shorter."""
    return _faketime(f"@{at} x{times}" if at else f"+0 x{times}")


def _faketime(clock=None):
    libraries = list(Path("/usr/lib").glob("*/faketime/libfaketime.so.1"))
    assert libraries, "faketime is not installed"
    return {
        "LD_PRELOAD": str(libraries[0]),
        **({"FAKETIME": clock} if clock else {}),
        "FAKETIME_NO_CACHE": "1",
        "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0",
    }
