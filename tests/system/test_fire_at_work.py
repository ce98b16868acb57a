"""The store goes away at each step of a daemon at work, and comes back with its rows removed and changed."""

import json
import re

import pytest

from house import SOCKET, fast_clock, wait_until
from proxy import Proxy
from wire import BEGIN, COMMIT, READ_ROW, READ_TABLE, UPDATE, WRITE_SINGLE

STORE = ("-s", "/tmp/store.socket")
SPEED = 4  # times as fast as usual: half a second between two attempts

# What follows a notice of two plans that have to change.
STEPS = [
    (READ_TABLE, "the WLAN reads"),
    (READ_TABLE, "the plans are read"),
    (BEGIN, "first begin"),
    (UPDATE, "first update"),
    (COMMIT, "first commit"),
    (BEGIN, "second begin"),
    (UPDATE, "second update"),
    (COMMIT, "second commit"),
    (READ_TABLE, "the WLAN reads the statuses"),
    (READ_TABLE, "the statuses are read"),
    (BEGIN, "begin of the switch"),
    (WRITE_SINGLE, "write of the switch"),
    (COMMIT, "commit of the switch"),
    (READ_ROW, "the WLAN reads its switch"),
]

# After a change while it was away, and what the daemon says where it acts on the rows before that.
AGREEMENT = {("WlanTimePlans.3", "TimePlanStatus"): "1", ("WlanTimePlans.2", "TimePlanStatus"): "0",
             ("WlanGlobals", "WlanEnable"): "0"}
STALE = "Activated timeplan: Id: [12] |Switch WLAN on|Could not set status: 15$"


class Plant:
    """A daemon that has nothing to do, over a proxy, and two plans at rest."""

    def __init__(self, house):
        self._house = house
        house.cfgserver(*STORE)
        self.load({"Id": 1, "Activate": 1}, {"Id": 2, "Activate": 1})
        self.proxy = Proxy(house.path(SOCKET), house.path("/tmp/store.socket"))
        self.horad = house.horad("-v", "-t", "WlanTimePlans", env=fast_clock(SPEED))
        wait_until(lambda: self.get("wexd", "Enable") == "1", "the end of the first pass")  # nothing is asked behind it

    def load(self, *plans):
        """Makes these the plans, in one commit."""
        self._house.cfgctl(*STORE, "load", "-", input=json.dumps({"WlanTimePlans": plans}).encode())

    def get(self, *cell):
        return self._house.cfgctl(*STORE, "get", *cell).rstrip()

    def change_while_away(self):
        """The first plan goes, the second is to rest again, a third has to become active."""
        assert self.proxy.is_cut.wait(20), self.horad.err.seen
        watch = self._house.start("cfgctl", *STORE, "watch", "--no-time")
        watch.err.wait("watching")
        self.load({"Id": 2, "Activate": 1}, {"Id": 3, "Activate": 0})
        self.proxy.resume()
        return watch

    def check_agreement(self, watch):
        for cell, value in AGREEMENT.items():
            wait_until(lambda: self.get(*cell) == value, f"{cell} = {value}")
        log = self.horad.err
        again = log.wait("Connected to the configuration store again")
        active = log.wait("Activated timeplan: Id: 3 ", again)
        since = log.seen[again:]
        assert [line for line in since if re.search(STALE, line)] == []
        assert "WlanTimePlans.2 TimePlanStatus: 0 -> 1" not in watch.out.seen
        assert "WlanGlobals WlanEnable: 0 -> 1" not in watch.out.seen
        readings = [line for line in log.seen[again:active] if "of handler 1 returned" in line]
        assert len(readings) == 1, since  # the first pass after its return


@pytest.fixture
def plant(house):
    return Plant(house)


@pytest.mark.parametrize("vanish", [False, True], ids=["hung", "gone"])
@pytest.mark.parametrize("after", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("step", range(len(STEPS)), ids=[name.replace(" ", "-") for _, name in STEPS])
def test_a_store_gone_at_any_step_leaves_nothing_stale_behind(plant, step, after, vanish):
    plant.proxy.arm(step + 1, after, vanish)
    plant.load({"Id": 1, "Activate": 0}, {"Id": 2, "Activate": 0})
    watch = plant.change_while_away()
    assert plant.proxy.cut_kind == STEPS[step][0]
    plant.check_agreement(watch)


@pytest.mark.parametrize("vanish", [False, True], ids=["hung", "gone"])
def test_a_store_gone_under_an_idle_daemon_leaves_nothing_stale_behind(plant, vanish):
    plant.proxy.arm(None, False, vanish)
    plant.proxy.hang_up()
    plant.check_agreement(plant.change_while_away())
