"""SIGTERM ends a daemon soon, whatever the store does, and takes nothing apart that was begun."""

import json
import os
import signal
import time

import pytest

from house import SOCKET
from proxy import Proxy
from test_fire_silent_server import Silence, greeted, in_a_reading, mute
from wire import BEGIN, DONE, Client

DATABASE = "/tmp/store.db"
STORE = "/tmp/store.socket"  # where a proxy stands between it and the daemon
SOON = 5  # seconds
PLANS = 200
TABLE = "TimePlans"


def start_daemon(house):
    status, _, err = house.run("horad", "-v", "-d", "-t", TABLE)
    assert status == 0, err
    with open(house.path("/run/horad")) as file:
        return int(file.read())


def assert_stops(house, pid):
    begin = time.monotonic()
    os.kill(pid, signal.SIGTERM)
    house.wait_gone(pid)
    assert time.monotonic() - begin < SOON
    assert not os.path.exists(house.path("/run/horad"))


def add_plans(house):
    """All of them are to flip at once."""
    plans = [{"Id": number, "Activate": 0} for number in range(1, PLANS + 1)]
    house.cfgctl("load", "-", input=json.dumps({TABLE: plans}).encode())


def slow_disk(house, server, seconds):
    """Each commit takes so long from here on."""
    slow = house.start("strace", "-f", "-o", "/dev/null", "-p", server.pid, "-e", "trace=fdatasync,fsync",
                       "-e", f"inject=fdatasync,fsync:delay_enter={int(seconds * 1e6)}")
    slow.err.wait("attached")
    return slow


def flipped(house):
    return sum(row["TimePlanStatus"] for row in json.loads(house.cfgctl("dump", TABLE))[TABLE])


@pytest.mark.parametrize("speak", [mute, greeted, in_a_reading], ids=lambda speak: speak.__name__)
def test_a_store_that_is_mute_from_the_start(house, speak):
    silence = Silence(house, speak)
    pid = start_daemon(house)
    with silence.accept():
        assert_stops(house, pid)
    silence.close()


def test_a_disk_that_hangs_in_a_commit(house, log):
    server = house.cfgserver("-f", DATABASE)
    pid = start_daemon(house)
    log.wait("start wexd")
    os.kill(pid, signal.SIGSTOP)
    add_plans(house)
    hanging = slow_disk(house, server, 60)
    os.kill(pid, signal.SIGCONT)
    log.wait("Table TimePlans was changed")
    assert_stops(house, pid)
    hanging.kill()


def test_a_transaction_that_another_one_holds_while_many_plans_flip(house, log):
    house.cfgserver()
    pid = start_daemon(house)
    log.wait("start wexd")
    os.kill(pid, signal.SIGSTOP)
    add_plans(house)
    holder = Client(house.path(SOCKET))
    assert holder.begin()[0] == DONE
    os.kill(pid, signal.SIGCONT)
    log.wait("Could start transaction")
    assert_stops(house, pid)


def test_a_store_that_is_away_when_a_service_is_to_start(house, log):
    """This start of a transaction is tried for as long as it takes."""
    house.cfgserver("-s", STORE)
    proxy = Proxy(house.path(SOCKET), house.path(STORE))
    pid = start_daemon(house)
    log.wait("start wexd")
    service = int(house.cfgctl("-s", STORE, "add", "FileTransfer", "Status=2"))
    log.wait("Load service states from FileTransfer .size=1")
    proxy.arm_at(BEGIN, 2, after=False)
    now = int(time.time())
    house.cfgctl("-s", STORE, "add", "TimeFrame", f"ServicetableId={service}", f"TimeFrameStart={now - 60}",
                 f"TimeFrameEnd={now + 3600}", "MaxRetries=-1")
    house.cfgctl("-s", STORE, "set", f"FileTransfer.{service}", "Status=0")
    assert proxy.is_cut.wait(20)
    assert_stops(house, pid)


def test_many_plans_that_flip_on_a_slow_disk(house, log):
    """It ends between two of them, and none is half done."""
    server = house.cfgserver("-f", DATABASE)
    pid = start_daemon(house)
    log.wait("start wexd")
    slow = slow_disk(house, server, 0.2)
    add_plans(house)
    log.wait("Activated timeplan")
    assert_stops(house, pid)
    slow.stop(signal.SIGINT)
    assert 0 < flipped(house) < PLANS
