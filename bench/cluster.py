"""Tables that devices share through three members of a cluster, all on this machine: what a change costs, how long it takes
to reach the last device, and what a device costs that has nothing to do."""

import select
import shutil
import struct
import subprocess
import tempfile
import time
from pathlib import Path

import wire
from house import wait_until
from members import Members, Rfc7047
from processes import status_of
from table import Row, compare, judge, summary
from workshop import BIN

MOST_OVER_OVSDB = 1.3  # times a commit by RFC 7047 itself, beside one local sync
MOST_OF_FAN_OUT = 1000  # milliseconds, of 300 devices
CROWDS = [3, 30, 300]
MILLISECONDS = 1000


def measure(workshop):
    members = Members(workshop)
    try:
        return commits(workshop, members) + fan_outs(workshop, members) + idle(workshop, members)
    finally:
        workshop.stop_programs()


def commits(workshop, members):
    device = workshop.cfgserver("-s", "alone.socket", "-f", "alone.db")
    local = summary("commit of a local cell", "horad", "ms",
                    timed(workshop, changes_of(workshop.disk / "alone.socket", "WlanEnable")))
    device.terminate()
    # A device has a disk of its own. Here its sync would wait for those of three members, so it stands in memory once;
    # then it costs no sync, and none is allowed for it.
    with tempfile.TemporaryDirectory(prefix="bench-", dir="/dev/shm") as memory:
        rows = shared_commits(workshop, members, Path(memory), "in memory", 0)
    return [local, *rows, *shared_commits(workshop, members, workshop.disk, "on the members' disk", local.median)]


def shared_commits(workshop, members, folder, where, sync):
    places = [(members.leader(), "leader"), (members.follower(), "follower")]
    devices = {name: start_device(workshop, members.remote(number), folder / f"{name}.db") for number, name in places}
    watchers = Watchers(path for _, path in devices.values())
    rows = []
    for number, name in places:
        shared, bare = alternating(workshop, watchers, changes_of(devices[name][1], "AlwaysEnable"),
                                   changes_by_rfc7047(members.paths[number]))
        floor = summary(f"commit of a shared cell at the {name}, {where}", "RFC 7047", "ms", bare)
        horad = compare(summary(floor.figure, "horad", "ms", shared), floor)
        most = MOST_OVER_OVSDB * floor.median + sync
        rows += [judge(horad, f"< {MOST_OVER_OVSDB}x" + (" and a local commit" if sync else ""), horad.median < most),
                 floor]
    for store, _ in devices.values():
        store.terminate()
        store.wait(30)
    return rows


def start_device(workshop, remote, database):
    path = workshop.disk / f"{database.stem}.socket"
    store = workshop.cfgserver("-s", path, "-f", database, "--cluster", remote)
    store.lines.wait("follows")
    return store, path


def timed(workshop, change):
    return [change() for _ in range(workshop.times(100, 20))]


def alternating(workshop, watchers, *changes):
    """One after the other in turn: both see the same disk. The next one begins when the one before is in force everywhere:
    else the time in which a store applies what came past it would count as its own."""
    def timed_alone(change):
        duration = change()
        watchers.wait()
        return duration

    samples = [[timed_alone(change) for change in changes] for _ in range(workshop.times(100, 20) + 3)][3:]
    return zip(*samples)


class Watchers:
    """One on each store, who is told of each change of the tables that are changed here."""

    def __init__(self, paths):
        self._clients = [wire.Client(str(path)) for path in paths]
        for client in self._clients:
            client.subscribe("WlanGlobals", "AutoReboot")

    def wait(self):
        for client in self._clients:
            client.notice()


def changes_of(path, column):
    """Each call changes a switch of WlanGlobals, in one exchange, and gives the milliseconds."""
    client = wire.Client(str(path))
    value = [client.read("WlanGlobals")[0][column]]

    def change():
        value[0] = 1 - value[0]
        body = wire.single("WlanGlobals", column, value[0], wire.SWITCH)
        begin = time.monotonic()
        first, *_, last = client.send((wire.BEGIN, struct.pack(">I", 0)), (wire.WRITE_SINGLE, body), (wire.COMMIT, b""))
        for sequence in range(first, last + 1):
            kind, answered, body = client.receive()
            assert (kind, answered) == (wire.DONE, sequence), body
        return (time.monotonic() - begin) * MILLISECONDS

    return change


def changes_by_rfc7047(path):
    client = Rfc7047(path)
    found, = client.transact({"op": "select", "table": "AutoReboot", "where": []})
    value = [found["rows"][0]["Enable"]]

    def change():
        value[0] = 1 - value[0]
        begin = time.monotonic()
        client.transact({"op": "update", "table": "AutoReboot", "where": [], "row": {"Enable": value[0]}},
                        {"op": "commit", "durable": True})
        return (time.monotonic() - begin) * MILLISECONDS

    return change


def fan_outs(workshop, members):
    folder = Path(tempfile.mkdtemp(prefix="bench-", dir="/dev/shm"))  # as many disks as devices are not to be had
    rows, devices = [], Devices(workshop, members, folder)
    try:
        for count in CROWDS[:workshop.times(3, 2)]:
            devices.start(count)
            row = summary(f"commit to the last `cfgctl watch` line of {count} devices", "horad", "ms",
                          [devices.change() for _ in range(workshop.times(20, 5))])
            if count == CROWDS[-1]:
                judge(row, f"< {MOST_OF_FAN_OUT}", row.median < MOST_OF_FAN_OUT)
            rows.append(row)
        rows.append(summary("memory of a device that follows (PSS)", "horad", "kB", devices.memory()))
    finally:
        devices.stop()
        shutil.rmtree(folder)
    return rows


class Devices:
    """Stores that follow, spread over the members, each with somebody who watches it."""

    def __init__(self, workshop, members, folder):
        self._workshop, self._members, self._folder = workshop, members, folder
        self._stores, self._watchers, self._value = [], [], 0

    def start(self, count):
        begun = []
        for number in range(len(self._stores), count):
            place = self._folder / str(number)
            remote = self._members.remote(number % len(self._members.paths))
            begun.append(self._workshop.start(BIN / "cfgserver", "-s", f"{place}.socket", "-f", f"{place}.db", "--cluster",
                                              remote))
        for store in begun:
            store.lines.wait("follows")
        for number in range(len(self._stores), count):
            self._watchers.append(self._watcher(self._folder / f"{number}.socket"))
        self._stores += begun

    def _watcher(self, path):
        watcher = subprocess.Popen([BIN / "cfgctl", "-s", path, "watch", "--no-time", "WlanTimePlans"],
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert watcher.stdout.readline(), "cfgctl watch has ended"
        return watcher

    def change(self):
        """Milliseconds until all of them have shown it."""
        self._value += 1
        waiting = {watcher.stdout: b"" for watcher in self._watchers}
        wanted = f"Change {self._value}".encode()
        command = [BIN / "cfgctl", "-s", self._folder / "0.socket"]
        target = ["set", "WlanTimePlans.1"] if self._value > 1 else ["add", "WlanTimePlans"]
        begin = time.monotonic()
        subprocess.run([*command, *target, f"TimePlanName={wanted.decode()}"], check=True, stdout=subprocess.DEVNULL)
        while waiting:
            ready, _, _ = select.select(list(waiting), [], [], 60)
            assert ready, f"{len(waiting)} devices have not shown it"
            for stream in ready:
                waiting[stream] += stream.read1(65536)
                if wanted in waiting[stream]:
                    del waiting[stream]
        return (time.monotonic() - begin) * MILLISECONDS

    def stop(self):
        for store in self._stores:
            store.terminate()
        for watcher in self._watchers:
            watcher.kill()
        for program in self._watchers + self._stores:
            program.wait(30)

    def memory(self):
        return [status_of(store.pid, "Pss", "smaps_rollup") for store in self._stores]


def idle(workshop, members):
    """What the connection of a device carries that has nothing to do; the member asks every five seconds whether it is there."""
    seconds = workshop.times(60, 15)
    workshop.cfgserver("-s", "idle.socket", "-f", "idle.db", "--cluster", members.tcp(0)).lines.wait("follows")
    port = members.tcp(0).rsplit(":", 1)[1]
    wait_until(lambda: traffic(port), "the connection")
    before = traffic(port)
    time.sleep(seconds)
    return [Row("traffic of an idle device", "horad", (traffic(port) - before) / seconds, unit="bytes/s")]


def traffic(port):
    """Bytes both ways of the connections to that port, as their clients count them."""
    out = subprocess.run(["ss", "-tinH", "dport", "=", f":{port}"], capture_output=True, text=True, check=True).stdout
    words = [word.split(":") for word in out.split() if word.startswith(("bytes_acked:", "bytes_received:"))]
    return sum(int(number) for _, number in words)
