"""The store's connection breaks behind every single byte of a delivery."""

import re
import signal
import struct

import pytest

from house import SOCKET, fast_clock, is_alive, wait_until
from proxy import ByteProxy
from wire import READ_ROW, Client, result_code, text

STORE = "/tmp/store.socket"
PARTS = 6  # shares of the bytes, for as many processes
SPEED = 80  # times as fast as usual: an iteration of the loop takes 25 ms at most
UNLIMITED = 10**9

# Frames of the store up to the end of the plan's transaction: a notice stands before the commit's answer.
READINGS = 2
TRANSACTION = 4
A_NOTICE = 1 + READINGS + TRANSACTION
SERVICES = 2 + 2  # their readings, and a transaction in which there is nothing to do
REBOOT = 1
A_CONNECTION = 2 + 1 + READINGS + SERVICES + REBOOT + TRANSACTION

SANE = [
    r"info horad: (Initial reading of config|Table WlanTimePlans was changed)$",
    r"info horad: Connected to the configuration store again$",
    r"debug (horad|timefrmhdl): ",
    r"warning horad: .*: connection lost: ",
    r"warning horad: .*: the configuration store sent the end of the connection within a frame, connection closed$",
    r"error horad: (size|selectRow)\(\) failed: .*(not connected|did not answer|end of the connection within a frame)",
    r"error horad: Failed to read AutoReboot table: .*(not connected|did not answer|end of the connection within a frame)",
    r"error timefrmhdl: (load time frames|start wexd failed|size\(\) failed|close dababase transaction failed): ",
    r"error horad: Could start transaction: \d+$",
    r"error horad: Could not set status: \d+$",
    r"error horad: Could not commit changes of \w+(, \w+)*: .*(not connected|did not answer|end of the connection within a frame)",
    r"info horad: Changes of \w+(, \w+)* are committed again$",
]


class Household:
    """A store behind a proxy, a daemon that keeps one plan in it, and a client that sees what it makes of it."""

    def __init__(self, house):
        house.cfgserver("-s", STORE)
        house.cfgctl("-s", STORE, "add", "WlanTimePlans", "Activate=1")  # without a slot: at rest, and the WLAN off
        self._client = Client(house.path(STORE))
        self._client.subscribe("WlanTimePlans", "WlanGlobals", "wexd")
        self._wanted = 0
        self.proxy = ByteProxy(house.path(SOCKET), house.path(STORE))
        self.horad = house.horad("-v", "-t", "WlanTimePlans", env=fast_clock(SPEED))
        while self._client.read("wexd")[0]["Enable"] != 1:  # the first pass ends with that
            self._client.notice()

    def toggle(self):
        """Turns the plan into one of the other kind: its status and the WLAN have to follow."""
        self._wanted = 1 - self._wanted
        assert result_code(self._client.begin(5000)) == 0
        self._client.update_switch("WlanTimePlans", 1, "Activate", 1 - self._wanted)
        assert result_code(self._client.commit()) == 0

    def wait_agreed(self):
        """The store shows what the daemon has to make of the plan, and the daemon knows it."""
        while not self._agreed():
            self._client.notice()
        row = self._client.ask(READ_ROW, text("WlanGlobals") + struct.pack(">I", 0))[1]
        wait_until(lambda: self.proxy.has_passed(row), "the reading of what was switched")

    def _agreed(self):
        status = self._client.read("WlanTimePlans")[0]["TimePlanStatus"]
        wlan = self._client.read("WlanGlobals")[0]["WlanEnable"]
        return status == wlan == self._wanted

    def wait_cut(self):
        assert self.proxy.is_cut.wait(20), self.horad.err.seen[-20:]

    def check_end(self, cuts):
        assert cuts > 0
        wait_until(lambda: self._warnings() >= cuts, "a warning for each cut")
        lines = [re.sub(r"repeated \d+ times?: ", "", line) for line in self.horad.err.seen]
        insane = [line for line in lines if not any(re.search(sane, line) for sane in SANE)]
        assert insane == []
        assert is_alive(self.horad.pid)
        assert self.horad.stop() == -signal.SIGTERM

    def _warnings(self):
        """How many there were; most are counted in the lines of others."""
        warnings = re.findall(r"warning horad: (?:repeated (\d+) times?)?", "\n".join(list(self.horad.err.seen)))
        return sum(int(count or 1) for count in warnings)


@pytest.fixture
def household(house):
    return Household(house)


@pytest.mark.parametrize("part", range(PARTS))
def test_a_notice_and_the_reading_behind_it_cut_at_every_byte(household, part):
    household.proxy.cut_after(UNLIMITED)
    household.toggle()
    household.wait_agreed()
    cuts = range(part, household.proxy.frames(A_NOTICE) + 1, PARTS)
    for size in cuts:
        household.proxy.cut_after(size)
        household.toggle()
        household.wait_cut()
        household.wait_agreed()
    household.check_end(len(cuts))


@pytest.mark.parametrize("part", range(PARTS))
def test_a_new_connection_and_its_first_reading_cut_at_every_byte(household, part):
    household.proxy.cut_after(UNLIMITED)
    with household.proxy.outage():
        household.toggle()
    household.wait_agreed()
    cuts = range(part, household.proxy.frames(A_CONNECTION) + 1, PARTS)
    for size in cuts:
        with household.proxy.outage():
            household.proxy.cut_after(size)
            household.toggle()
        household.wait_cut()
        household.wait_agreed()
    household.check_end(len(cuts))
