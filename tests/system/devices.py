"""Devices whose stores share tables through a cluster, all in one house: each has a socket and a database of its own."""

import itertools
import json
import re
import threading
import time

from house import DEADLINE, Timeout, wait_until
from wire import Client

UNREACHABLE = "the cluster can't be reached"
UNKNOWN = "outcome unknown"
CHANGED = "it was changed meanwhile"
TABLES = ("WlanTimePlans", "WlanGlobals", "TimePlans", "AutoReboot", "FirmwareUpdateTimePlan")
# What is shared of them: all but what each device knows for itself.
STATE = {"TimePlanStatus", "WlanEnable", "LastReboot"}


class Device:
    """A store that follows the members, the first of them first; each is a Server or a remote. It is not started yet."""

    def __init__(self, house, name, members, *arguments):
        self._house, self.name, self._arguments = house, name, arguments
        self.turn_to(*members)
        self.socket, self.database = f"/tmp/{name}.socket", f"/tmp/{name}.db"
        self.server = None

    def start(self, following=True, env=None):
        remotes = [word for remote in self._remotes for word in ("--cluster", remote)]
        self.server = self._house.cfgserver("-s", self.socket, "-f", self.database, *remotes, *self._arguments, env=env)
        return self.follow() if following else self

    def follow(self, start=0):
        """Until it follows a member, from the line `start` of its log on."""
        self.server.err.wait("cfgserver: follows the cluster at", start)
        return self

    def turn_to(self, *members):
        """Which members it has from its next start on."""
        self._remotes = [getattr(member, "remote", member) for member in members]

    def stop(self):
        assert self.server.stop() == 0

    def kill(self):
        self.server.kill()

    def run(self, *arguments, input=None):
        return self._house.run("cfgctl", "-s", self.socket, *arguments, input=input)

    def cfgctl(self, *arguments, input=None):
        status, out, err = self.run(*arguments, input=input)
        assert status == 0, f"{self.name}: cfgctl {arguments}: {err}"
        return out.rstrip("\n")

    def refused(self, *arguments):
        """The line that says why."""
        status, out, err = self.run(*arguments)
        assert (status, out) == (1, "") and len(err.splitlines()) == 1, (self.name, arguments, status, out, err)
        return err

    def add(self, table, **cells):
        return int(self.cfgctl("add", table, *(f"{name}={value}" for name, value in cells.items())))

    def set(self, row, **cells):
        self.cfgctl("set", row, *(f"{name}={value}" for name, value in cells.items()))

    def get(self, row, column):
        return self.cfgctl("get", row, column)

    def names(self, table="WlanTimePlans"):
        """The plans' names by their Ids."""
        return {row["Id"]: row["TimePlanName"] for row in json.loads(self.cfgctl("--json", "show", table))}

    def shared(self):
        """All that it shares with the others."""
        def cells(row):
            return {name: value for name, value in row.items() if name not in STATE}

        tables = json.loads(self.cfgctl("dump", *TABLES))
        return {name: [cells(row) for row in rows] if isinstance(rows, list) else cells(rows)
                for name, rows in tables.items()}

    def client(self):
        return Client(self._house.path(self.socket))

    def wait_name(self, row, name, deadline=DEADLINE):
        wait_until(lambda: self.names().get(row) == name, f"plan {row} = {name} on {self.name}", deadline)

    def eventually(self, *arguments, deadline=DEADLINE):
        """Until it takes the change. Meanwhile it says that the cluster can't be reached, is not known to have taken it, or
        holds something else, as where an earlier change of this device was applied late."""
        refusals = []

        def taken():
            status, _, err = self.run(*arguments)
            assert status == 0 or any(text in err for text in (UNREACHABLE, UNKNOWN, CHANGED)), err
            refusals.append(f"{time.monotonic() - begin:.1f} s: {err}")
            return status == 0

        begin = time.monotonic()
        try:
            wait_until(taken, f"{arguments} on {self.name}", deadline)
        except Timeout as late:
            raise Timeout(f"{late}\n" + "".join(refusals[-20:]) + "\n".join(self.server.err.seen[-20:])) from late

    def logged(self, pattern):
        return any(re.search(pattern, line) for line in self.server.err.seen)


def wait_same(devices, deadline=DEADLINE):
    """Until all devices hold the same of what they share; gives it."""
    def same():
        first, *others = [device.shared() for device in devices]
        return first if all(other == first for other in others) else None

    return wait_until(same, "the same shared tables on all devices", deadline)


def rows_of(members, table="WlanTimePlans"):
    """Names by Ids as the cluster holds them, on every member that answers."""
    rows = members.wait_equal(table)[table]
    return {row["Id"]: row["TimePlanName"] for row in rows}


class Load:
    """Devices that add plans as fast as they can, until it is over. check() then says whether what they were told is true,
    and removes the plans."""

    STAGE = 50  # plans of a device from one wait_progress() to the next: Ids end at 999

    def __init__(self, devices):
        self._devices, self._over = devices, threading.Event()
        self._done, self._unknown = {device: [] for device in devices}, []
        self._most = {device: self.STAGE for device in devices}
        self._errors = []
        self._threads = [threading.Thread(target=self._add, args=(device,)) for device in devices]

    def __enter__(self):
        for thread in self._threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        for thread in self._threads:
            thread.join()

    def _add(self, device):
        for number in itertools.count():
            while len(self._done[device]) >= self._most[device] and not self._over.wait(0.01):
                pass
            if self._over.is_set() or self._errors:
                return
            name = f"{device.name} {number}"
            status, out, err = device.run("add", "WlanTimePlans", f"TimePlanName={name}")
            if status == 0:
                self._done[device].append((int(out), name))
            elif UNKNOWN in err:
                self._unknown.append(name)
            elif UNREACHABLE not in err:
                self._errors.append(f"{device.name}: {err}")

    def wait_progress(self, devices=None):
        """Until each of them has added some more plans."""
        devices = devices or self._devices
        before = {device: len(self._done[device]) for device in devices}
        self._most = {device: len(self._done[device]) + self.STAGE for device in self._devices}
        wait_until(lambda: self._errors or all(len(self._done[device]) > before[device] + 3 for device in devices),
                   "further plans of " + ", ".join(device.name for device in devices), 60)
        assert not self._errors, self._errors

    def check(self, members):
        assert not self._errors, self._errors
        kept = {row["Id"]: row["TimePlanName"] for row in wait_same(self._devices, 60)["WlanTimePlans"]}
        assert kept == rows_of(members)
        acknowledged = [plan for device in self._devices for plan in self._done[device]]
        assert [plan for plan in acknowledged if kept.get(plan[0]) != plan[1]] == [], "an acknowledged plan was lost"
        assert len(set(kept.values())) == len(kept), "something was applied twice"
        assert set(kept.values()) - {name for _, name in acknowledged} <= set(self._unknown), "nobody was told of it"
        for plan in kept:
            self._devices[0].eventually("remove", f"WlanTimePlans.{plan}")
        wait_same(self._devices)
        return len(acknowledged)
