"""The store goes away under a running horad and comes back."""

import os
import signal

import pytest

from house import SOCKET
from plans import slot_around_now
from wire import DONE, Client

WLAN = "WlanGlobals WlanEnable"


@pytest.fixture
def disk(house):
    """A store with a file, which can be stopped and started again."""
    house.server = house.cfgserver("-f", "/tmp/store.db")
    return house


def restart(house, number):
    house.server.stop(number)
    house.server = house.cfgserver("-f", "/tmp/store.db")


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM])
def test_horad_goes_on_when_the_store_is_back(disk, number):
    plan = disk.add("WlanTimePlans", Activate=0)
    horad = disk.horad("-v", "-t", "WlanTimePlans")
    disk.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)  # the loop runs, the first reading is long over
    restart(disk, number)
    lost = horad.err.wait("warning horad: .*connection lost")
    back = horad.err.wait("info horad: Connected to the configuration store again", lost)
    horad.err.wait("Initial reading of config", back)
    disk.cfgctl("remove", f"WlanTimePlans.{plan}")
    disk.wait_value(WLAN, 0)


def test_what_changed_meanwhile_is_seen(disk):
    plan = disk.add("WlanTimePlans", Activate=1, **slot_around_now())
    horad = disk.horad("-v", "-t", "WlanTimePlans")
    disk.wait_value(WLAN, 1)
    os.kill(horad.pid, signal.SIGSTOP)
    restart(disk, signal.SIGKILL)
    disk.cfgctl("remove", f"WlanTimePlans.{plan}")
    os.kill(horad.pid, signal.SIGCONT)
    disk.wait_value(WLAN, 0)
    assert horad.err.count("Deactivated timeplan") == 0  # nothing was done with the row that is gone


def test_a_busy_store_does_not_leave_the_wlan_as_it_is(store):
    """Somebody else holds the transaction at the moment when the WLAN has to go on."""
    horad = store.horad("-v", "-t", "WlanTimePlans")
    store.wait_value("wexd Enable", 1)  # the first pass is over, the loop at rest
    horad.send(signal.SIGSTOP)
    store.add("WlanTimePlans", Activate=1, TimePlanStatus=1, **slot_around_now())
    holder = Client(store.path(SOCKET))
    assert holder.begin()[0] == DONE
    horad.send(signal.SIGCONT)
    error = horad.err.wait(r"error horad: Could start transaction: \d+$")
    assert horad.err.wait("debug horad: .*another transaction is open", error) == error + 1
    assert store.get(WLAN) == "0"
    holder.abort()  # nothing changes with it that anybody would be told of
    store.wait_value(WLAN, 1)
