"""The log stays readable while the same goes wrong over and over."""

import contextlib
import re
import signal
import socket
import threading

import pytest

from house import SOCKET, fast_clock, wait_until
from wire import READ_TABLE, SUBSCRIBE, ScriptedStore

SPEED = 60  # times as fast as usual


def check_calm(lines, minutes):
    """Goes on like this for a day: 3,000 lines."""
    assert len(lines) <= 120 + 2 * minutes, "\n".join(lines[:200])


class ResettingStore:
    """Ends each connection with the first reading."""

    def __init__(self, path, answers):
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(path)
        self._listener.listen(8)
        self._answers = answers
        self.resets = 0
        threading.Thread(target=self._run, daemon=True).start()

    def _run(self):
        while True:
            with self._listener.accept()[0] as connection, contextlib.suppress(OSError):
                for kind in self._answers:
                    ScriptedStore(connection).answer_until(kind)
                connection.recv(65536)  # that one is not answered
            self.resets += 1


@pytest.mark.parametrize("answers", [[SUBSCRIBE], [SUBSCRIBE, READ_TABLE]], ids=["no reading", "one reading"])
def test_a_store_that_resets_each_connection_does_not_fill_the_log(house, answers):
    store = ResettingStore(house.path(SOCKET), answers)
    env = {**fast_clock(SPEED, "2026-03-02 12:00:00"), "TZ": "UTC"}
    horad = house.horad("-t", "WlanTimePlans", "-t", "TimePlans", env=env)
    after_five_minutes = horad.err.wait("T12:05:")
    check_calm(horad.err.seen[:after_five_minutes], 5)
    assert store.resets > 50
    assert horad.err.count(r"repeated \d+ times: .*not connected to the configuration store")


def waits(program):
    """How often it has waited for something."""
    with open(f"/proc/{program.pid}/status") as status:
        return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status.read(), re.M).group(1))


def test_a_store_that_is_away_does_not_fill_the_log(house):
    server = house.cfgserver()
    plans = [house.add("TimePlans", Activate=1, StartMon="08:00:00", StopMon="22:00:00") for _ in range(10)]
    clock = house.clock("2026-03-02 12:00:00", SPEED, "UTC")  # a Monday
    horad = house.horad("-t", "TimePlans", env=clock.env)
    for plan in plans:
        house.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    server.stop(signal.SIGKILL)
    horad.err.wait("connection lost")
    clock.set("2026-03-02 22:30:00")  # each plan is to be switched off from here on
    horad.err.wait("Could start transaction")
    passes = 100  # every two seconds
    before = waits(horad)
    wait_until(lambda: waits(horad) >= before + passes, f"{passes} passes")
    horad.kill()
    check_calm(horad.err.wait_end(), passes / 30)


def test_what_is_counted_is_told_when_the_daemon_stops(store):
    log = store.syslog()
    status, _, err = store.run("horad", "-d", "-t", "TimePlans")
    assert status == 0, err
    for _ in range(5):  # each a change of its own
        plan = store.add("TimePlans", Activate=0)
        store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    with open(store.path("/run/horad")) as file:
        pid = int(file.read())
    store.run("kill", str(pid))
    store.wait_gone(pid)
    told = log.wait("repeated ")
    assert re.fullmatch(rf"<30>horad\[{pid}\]: repeated \d+ times?: Table TimePlans was changed", told)
    assert sum(line.endswith("]: Table TimePlans was changed") for line in log.seen) == 3
