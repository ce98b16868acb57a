"""What horactl says of a minute is what a real horad does in it: the same writes in the same order."""

import datetime
import json
import re

import pytest

from asking import ask
from house import fast_clock, wait_until

TZ = "Europe/Berlin"
BEGIN = "2026-06-15 03:00:00"  # a Monday
EPOCH = 1781485200  # the same
SPEED = 10  # times as fast as usual: a minute takes six seconds
INTERVAL = 20  # seconds between two runs of a service
# In the order in which horad writes them, where it writes several in one go: a watch tells of a commit's tables in the order in which it was given them.
TABLES = ["TimePlans", "WlanTimePlans", "WlanGlobals", "FileTransfer", "wexd", "TimeFrame", "Reboot", "AutoReboot"]
SERVICE = "FileTransfer.1"
STARTED, RUNNING, ENDED = 1, 2, 5
# What horad logs of a write, and of no other.
WRITE_LINES = r"horad: (Activated|Deactivated) timeplan|horad: Switch WLAN|_startService|Trigger auto reboot now"
LOGGED = {"TimePlanStatus", "WlanEnable", "Status", "Trigger"}  # columns


def moment(line):
    """Of a line of horad's log, in seconds since the epoch."""
    time = line.split(" ")[0].replace("Z", "+00:00")
    return int(datetime.datetime.fromisoformat(time).timestamp())


def seconds(text):
    """Of a time as horad writes it."""
    return int(datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%S%z").timestamp())


def as_text(write):
    """As `simulate` tells of it. When the reboot was is compared as a time."""
    row, old, new = write.get("row", write.get("id")), str(write["old"]), str(write["new"])
    return write["table"], row, write["column"], old, "now" if write["column"] == "LastReboot" else new


class Minute:
    """A real horad that lives through a minute, and a watch that sees what it writes."""

    def __init__(self, house, *tables, result=0):
        self._house, self._result = house, result
        self.dump = house.cfgctl("dump").encode()
        self._watch = house.start("cfgctl", "watch", "--no-time", "--json", *TABLES)
        self._watch.err.wait("watching")
        arguments = [word for table in tables for word in ("-t", table)] + ["-r", INTERVAL]
        self.horad = house.horad("-v", *arguments, env={**fast_clock(SPEED, BEGIN), "TZ": TZ})
        self.begin = moment(self.horad.err.seen[self.horad.err.wait("Initial reading of config")])
        self._options = [*arguments, "-f", "-"]
        self._served = 0

    def forecast(self, *words):
        return ask(self._house, *self._options, "simulate", "--from", f"@{self.begin}", "--for", "60s", *words,
                   input=self.dump, env={"TZ": TZ})

    def writes(self, number):
        """The first so many of horad."""
        wait_until(lambda: len(self._seen()) >= number, f"{number} writes, and not only {self._seen()}")
        return self._seen()

    def _seen(self):
        """A service of the test answers each start; what it writes is not horad's."""
        changes = [json.loads(line) for line in self._watch.out.seen]
        starts = [write for write in changes if self._is_start(write)]
        for _ in starts[self._served:]:
            self._served += 1
            self._house.set(SERVICE, Status=RUNNING)
            self._house.set(SERVICE, Status=ENDED, Result=self._result)
        return [write for write in changes if write in starts or write["table"] != "FileTransfer"]

    @staticmethod
    def _is_start(write):
        return (write["table"], write["column"], write["new"]) == ("FileTransfer", "Status", STARTED)

    def moments(self):
        """Of the writes that it logs."""
        return [moment(line) for line in self.horad.err.seen if re.search(WRITE_LINES, line)]

    def assert_as(self, forecast):
        written = self.writes(len(forecast))
        assert [as_text(write) for write in written] == [as_text(write) for write in forecast]
        expected = [seconds(write["time"]) for write in forecast if write["column"] in LOGGED]
        late = [real - told for real, told in zip(self.moments(), expected, strict=True)]
        # An iteration takes two seconds; where the machine is busy, one of its own seconds is ten of the clock.
        assert all(-3 <= difference <= 12 for difference in late), late


def test_plans_that_switch_the_wlan(store):
    store.set("WlanGlobals", WlanEnable=1)
    store.add("WlanTimePlans", TimePlanName="Guests", Activate=1, StartMon="03:00:12", StopMon="03:00:47")
    store.add("WlanTimePlans", TimePlanName="Night", Activate=0, StartMon="03:00:24", StopMon="03:00:35")
    store.add("TimePlans", TimePlanName="Morning", Activate=1, StartMon="03:00:12", StopMon="09:00:00")
    minute = Minute(store, "TimePlans", "WlanTimePlans")
    forecast = minute.forecast()
    minute.assert_as(forecast)
    wlan = [write["new"] for write in forecast if write["column"] == "WlanEnable"]
    assert wlan == ["0", "1", "0", "1", "0"]
    statuses = [write["row"] for write in forecast if write["table"] == "WlanTimePlans"]
    assert statuses == [2, 1, 2, 2, 1]


@pytest.mark.parametrize("outcome, result, starts", [("succeed", 0, 1), ("fail", 1, 2)])
def test_a_service_in_its_time_frame(store, outcome, result, starts):
    store.add("FileTransfer", Status=0)
    store.add("TimeFrame", ServicetableId=1, TimeFrameStart=EPOCH + 8, TimeFrameEnd=EPOCH + 3600, MaxRetries=1)
    store.add("TimePlans", Activate=1, StartMon="03:00:56", StopMon="09:00:00")  # behind the last start
    minute = Minute(store, "TimePlans", result=result)
    forecast = minute.forecast("--service", f"{outcome},1")
    minute.assert_as(forecast)
    assert [write["new"] for write in forecast if write["table"] == "TimeFrame"] == [str(n + 1) for n in range(starts)]
    assert forecast[0]["table"] == "wexd"
    assert forecast[-1]["table"] == "TimePlans"


def test_a_reboot_in_its_slot(store):
    store.set("AutoReboot", Enable=1, Time="03:00:30", MinimumRuntime=1)
    minute = Minute(store, "TimePlans")
    forecast = minute.forecast()
    minute.assert_as(forecast)
    trigger, last = forecast[-2:]
    assert (trigger["table"], last["new"]) == ("Reboot", last["time"])
    assert -3 <= seconds(minute.writes(len(forecast))[-1]["new"]) - seconds(last["new"]) <= 12
