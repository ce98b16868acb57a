"""Crowds that come and go, and how late the WLAN switches beside them."""

import contextlib
import math
import socket
import subprocess
import sys
import time
from pathlib import Path

import wire
from house import SOCKET, House, Lines, wait_until
from plans import slot
from table import judge, summary
from workshop import PATIENCE

CLIENT = Path(__file__).with_name("crowdclient.py")
CLIENT_ENV = {"PYTHONPATH": str(Path(wire.__file__).parent)}
REMOVE = 14  # a kind of request
LEAD = 2  # seconds from the making of a plan to its start


@contextlib.contextmanager
def crowd(number, action, *words):
    """So many processes that do this to a store (see crowdclient.py)."""
    programs = []
    try:
        for _ in range(number):
            program = subprocess.Popen([sys.executable, "-B", CLIENT, action], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, env=CLIENT_ENV)
            programs.append(program)
            program.stdin.write(f"{words!r}\n".encode())
            program.stdin.close()
            program.lines = Lines(program.stdout)
        for program in programs:
            program.lines.wait("under way", deadline=PATIENCE)
        yield
    finally:
        for program in programs:
            program.kill()
        for program in programs:
            program.wait()


class Pouring:
    """So many clients that send the requests, so many times at once, over and over, and take what comes."""

    def __init__(self, store, clients, requests, times, answers=1):
        link = store.connect()
        hello = link.received
        link.ask(requests, answers)
        self._clients = clients
        self._words = (store.path, store.hello, hello, requests * times, (link.received - hello) * times)
        link.close()

    def going(self):
        return crowd(self._clients, "pour", *self._words)


def row_of_few(figure, who, unit, samples, most=None):
    """A goal holds for each of a few samples. Their p99 is the worst of them."""
    row = summary(figure, who, unit, samples)
    return row if most is None else judge(row, f"each <= {most}", max(samples) <= most)


class Household:
    """A house with a horad that serves the WLAN's plans of a store."""

    def __init__(self):
        self.house = House()
        self.horad = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.house.close()

    def start_horad(self):
        self.horad = self.house.horad("-t", "WlanTimePlans")
        self.horad.err.wait("Initial reading")

    def lateness(self, coming, patience):
        """Seconds from a plan's start to the commit of the WLAN, beside the crowd that `coming(moment)` makes in time.

        It is infinite where nothing happens within the seconds of the patience."""
        watcher, plan, start = self._plan()
        with coming(start):
            switched = switches(watcher, start + patience)
        watcher.close()
        self._take_back(plan)
        return switched - start

    def _plan(self):
        """Made while there is no crowd, and known to horad."""
        client, readings = wire.Client(self.house.path(SOCKET)), len(self.horad.err.seen)
        start = int(time.time()) + LEAD
        cells = slot(start, start + 3600)
        assert wire.result_code(client.begin(1000)) == 0
        values = b"".join(wire.text(name) + bytes([wire.TEXT]) + wire.text(text) for name, text in cells.items())
        kind, body = client.ask(wire.INSERT, wire.text("WlanTimePlans") + len(cells).to_bytes(4, "big") + values)
        assert kind == wire.DONE and wire.result_code(client.commit()) == 0, body
        self.horad.err.wait("WlanTimePlans was changed", readings)
        client.subscribe("WlanGlobals")
        return client, int.from_bytes(body, "big"), start

    def _take_back(self, plan):
        client = wire.Client(self.house.path(SOCKET))
        client.socket.settimeout(PATIENCE)
        wait_for_wlan(client, 1)  # however late
        assert wire.result_code(client.begin(60_000)) == 0
        client.ask(REMOVE, wire.text("WlanTimePlans") + wire.text("Id") + wire.text(str(plan)))
        assert wire.result_code(client.commit()) == 0
        wait_for_wlan(client, 0)
        client.close()


def wait_for_wlan(client, state):
    wait_until(lambda: client.read("WlanGlobals")[0]["WlanEnable"] == state, f"WlanEnable = {state}", PATIENCE)


def switches(watcher, until):
    """The moment at which the WLAN's commit was told of."""
    watcher.socket.settimeout(max(until - time.time(), 0.001))
    try:
        watcher.notice()
    except socket.timeout:
        return math.inf
    return time.time()
