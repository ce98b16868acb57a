"""`horactl why` is right: a horad that is started on the same tables acts if and only if it says so, and it names what
decides. The clock stands, so that both see the same moment."""

import re
import time

import pytest

from asking import ask, ask_one
from test_timeframes import SIP_CALLS, STREAM, STREAMS

TZ = "Europe/Berlin"
PRESENT = "2026-06-15 03:00:05"  # a Monday
EPOCH = 1781485205  # the same
WAITS = 200  # times as short as usual
LONG_UP = 10 * 86400  # seconds
# Logged in the 25th iteration, which is long after horad is quiet.
QUIET = r"skipping process|No auto reboot scheduled|Trigger auto reboot"
INSIDE = {"StartMon": "02:00:00", "StopMon": "03:05:00"}
OUTSIDE = {"StartMon": "03:10:00", "StopMon": "04:00:00"}
ON, OFF = 1, 0  # what a plan does in its slots
IDLE, STARTED, RUNNING, DONE = 0, 1, 2, 5
READY = "service can be started"  # the last condition of a frame


class Fresh:
    """A horad that has never run before, and what is said of it."""

    def __init__(self, house):
        self.house = house
        self._env = house.clock(PRESENT, WAITS, TZ).env

    def why(self, subject):
        return ask_one(self.house, "-t", "TimePlans", "-t", "WlanTimePlans", "why", subject, env=self._env)

    def live(self):
        """Its log, once it is quiet."""
        horad = self.house.horad("-v", "-t", "TimePlans", "-t", "WlanTimePlans", env=self._env)
        horad.err.wait(QUIET)
        return horad.err


@pytest.fixture
def fresh(store):
    return Fresh(store)


def met(answer):
    """Up to the first condition that is not met, as horad asks them."""
    return {condition["name"]: condition["met"] for condition in answer["conditions"]}


# --- time frames ---

# The frame's cells, those of its service, whether horad starts it, and what decides.
FRAMES = {
    "an idle service": ({}, {"Status": IDLE}, True, READY),
    "one that failed": ({}, {"Status": DONE, "Result": 1}, True, READY),
    "one that succeeded": ({}, {"Status": DONE, "Result": 0}, False, "not succeeded"),
    "one that was started": ({}, {"Status": STARTED}, False, "not running"),
    "one that runs": ({}, {"Status": RUNNING}, False, "not running"),
    "one that is not there": ({"ServicetableId": 99}, {}, False, READY),
    "a table that is not there": ({"Servicetable": "Nowhere"}, {}, False, READY),
    "the frame is over": ({"TimeFrameEnd": EPOCH - 60}, {}, False, "not over"),
    "it ends later": ({"TimeFrameEnd": EPOCH + 60}, {}, True, READY),
    "it has not begun": ({"TimeFrameStart": EPOCH + 60}, {}, False, "has begun"),
    "it has just begun": ({"TimeFrameStart": EPOCH - 1}, {}, True, READY),
    "it begins as horad looks": ({"TimeFrameStart": EPOCH + 4}, {}, False, "due"),
    "the last retry": ({"MaxRetries": 3, "RunCounter": 3}, {}, True, READY),
    "retries used up": ({"MaxRetries": 3, "RunCounter": 4}, {}, False, "a run is left"),
    "retries without limit": ({"MaxRetries": -1, "RunCounter": 1000}, {}, True, READY),
    "mode 2": ({"WindowMode": 2}, {}, True, READY),
    "mode 3 and an idle line": ({"WindowMode": 3}, {}, True, READY),
}


def add_frame(house, cells, service):
    row = house.add("FileTransfer", **{"Status": IDLE, **service})
    frame = house.add("TimeFrame", **{"ServicetableId": row, "TimeFrameStart": EPOCH - 3600,
                                      "TimeFrameEnd": EPOCH + 3600, "MaxRetries": 3, **cells})
    return frame, row


def starts(fresh, frames):
    """Which of the frames (frame, service row) horad starts, in the order in which they are given."""
    before = [fresh.house.get(f"FileTransfer.{row} Status") for _, row in frames]
    fresh.live()
    after = [fresh.house.get(f"FileTransfer.{row} Status") for _, row in frames]
    return [(old, new) != (new, old) and new == str(STARTED) for old, new in zip(before, after)]


def test_a_frame_starts_its_service_if_and_only_if_it_says_so(fresh):
    fresh.house.kernel_files()
    frames = [add_frame(fresh.house, cells, service) for cells, service, *_ in FRAMES.values()]
    answers = [fresh.why(f"TimeFrame.{frame}") for frame, _ in frames]
    real = starts(fresh, frames)

    said = {name: (answer["acts"], answer["decides"]) for name, answer in zip(FRAMES, answers)}
    assert said == {name: (acts, decides) for name, (_, _, acts, decides) in FRAMES.items()}
    assert dict(zip(FRAMES, real)) == {name: acts for name, (acts, _) in said.items()}
    for answer in answers:
        conditions = met(answer)
        assert answer["decides"] == next((name for name, is_met in conditions.items() if not is_met), READY)


@pytest.mark.parametrize("path, content, busy", [
    (SIP_CALLS, "1\n", True), (SIP_CALLS, "0\n", False), (STREAMS, STREAM, True), (STREAMS, "Group Origin\n", False),
], ids=["call", "no call", "stream", "no stream"])
def test_only_mode_3_waits_for_the_line(fresh, path, content, busy):
    fresh.house.kernel_files().write(path, content)
    waiting, any_time = frames = [add_frame(fresh.house, {"WindowMode": mode}, {}) for mode in (3, 1)]
    answers = [fresh.why(f"TimeFrame.{frame}") for frame, _ in frames]
    assert [(answer["acts"], answer["decides"]) for answer in answers] == \
        [(not busy, "line idle" if busy else READY), (True, READY)]
    assert starts(fresh, frames) == [not busy, True]


@pytest.mark.parametrize("cells, inside", [
    ({"Enable": 1, "WeekDay": 1, "StartTimeHour": 2, "EndTimeHour": 5}, True),
    ({"Enable": 1, "WeekDay": 0, "StartTimeHour": 3, "StartTimeMinute": 10, "EndTimeHour": 5}, False),
    ({"Enable": 0, "WeekDay": 1, "StartTimeHour": 4, "EndTimeHour": 5}, True),
], ids=["inside", "outside", "switched off"])
def test_only_mode_3_waits_for_the_users_plan(fresh, cells, inside):
    fresh.house.kernel_files()
    fresh.house.add("FirmwareUpdateTimePlan", **cells)
    frames = [add_frame(fresh.house, {"WindowMode": mode}, {}) for mode in (3, 1)]
    answers = [fresh.why(f"TimeFrame.{frame}") for frame, _ in frames]
    assert [(answer["acts"], answer["decides"]) for answer in answers] == \
        [(inside, READY if inside else "user's time plan"), (True, READY)]
    assert starts(fresh, frames) == [inside, True]


def test_it_knows_when_the_frame_starts_its_service(fresh):
    frame, row = add_frame(fresh.house, {"TimeFrameStart": EPOCH + 600}, {})
    next_start = fresh.why(f"TimeFrame.{frame}")["next"]
    begin = time.strftime("%FT%T+0200", time.gmtime(EPOCH + 600 + 7200))
    end = time.strftime("%FT%T+0200", time.gmtime(EPOCH + 603 + 7200))
    assert begin < next_start <= end
    writes = ask(fresh.house, "simulate", "--from", f"@{EPOCH}", "--for", "15min", env={"TZ": TZ})
    assert [write["time"] for write in writes if write["table"] == "FileTransfer"] == [next_start]


# --- the WLAN ---

def plan(activate, slot):
    return {"Activate": activate, "TimePlanStatus": int((slot is INSIDE) == bool(activate)), **slot}


# What the store says, the plans, whether horad switches, and what decides.
WLAN = {
    "always on": ({"AlwaysEnable": 1, "WlanEnable": 0}, [plan(ON, INSIDE)], False, "AlwaysEnable"),
    "always on and it is off by its plan": ({"AlwaysEnable": 1, "WlanEnable": 1}, [plan(OFF, INSIDE)], False, "AlwaysEnable"),
    "on by its plan": ({"WlanEnable": 0}, [plan(ON, INSIDE)], True, "WlanTimePlans.1"),
    "on already": ({"WlanEnable": 1}, [plan(ON, INSIDE)], False, "WlanTimePlans.1"),
    "off by its plan": ({"WlanEnable": 1}, [plan(OFF, INSIDE)], True, "WlanTimePlans.1"),
    "off already": ({"WlanEnable": 0}, [plan(OFF, INSIDE)], False, "WlanTimePlans.1"),
    "the later plan, on": ({"WlanEnable": 0}, [plan(ON, OUTSIDE), plan(OFF, INSIDE), plan(ON, INSIDE)], True, "WlanTimePlans.3"),
    "the later plan, off": ({"WlanEnable": 1}, [plan(ON, INSIDE), plan(OFF, INSIDE), plan(ON, OUTSIDE)], True, "WlanTimePlans.2"),
    "the later plan is silent": ({"WlanEnable": 0}, [plan(ON, INSIDE), plan(OFF, OUTSIDE)], True, "WlanTimePlans.1"),
    "the default, off": ({"WlanEnable": 1}, [plan(ON, OUTSIDE)], True, "default"),
    "the default, off already": ({"WlanEnable": 0}, [plan(ON, OUTSIDE)], False, "default"),
    "the default, on": ({"WlanEnable": 0}, [plan(OFF, OUTSIDE)], True, "default"),
    "no plan": ({"WlanEnable": 1}, [], True, "default"),
    "no plan, off already": ({"WlanEnable": 0}, [], False, "default"),
}


@pytest.mark.parametrize("cells, plans, acts, decides", WLAN.values(), ids=WLAN)
def test_the_wlan_is_switched_if_and_only_if_it_says_so(fresh, cells, plans, acts, decides):
    fresh.house.set("WlanGlobals", **cells)
    for row in plans:
        fresh.house.add("WlanTimePlans", **row)
    answer = fresh.why("wlan")
    assert (answer["acts"], answer["decides"]) == (acts, decides)
    assert fresh.live().count("Switch WLAN") == int(acts)
    assert fresh.house.get("WlanGlobals WlanEnable") == str(cells["WlanEnable"] ^ acts)


def test_a_status_that_is_old_is_said_to_switch_the_wlan_for_a_moment(fresh):
    fresh.house.set("WlanGlobals", WlanEnable=0)
    fresh.house.add("WlanTimePlans", **{**plan(ON, OUTSIDE), "TimePlanStatus": 1})
    assert not fresh.why("wlan")["acts"]
    status, text, _ = fresh.house.run("horactl", "--at", PRESENT, "why", "wlan", env={"TZ": TZ})
    assert status == 0
    assert "for a moment" in text
    log = fresh.live()
    assert [log.count("Switch WLAN on"), log.count("Switch WLAN off")] == [1, 1]
    assert fresh.house.get("WlanGlobals WlanEnable") == "0"


# --- plans ---

def test_a_plans_status_is_written_if_and_only_if_it_says_so(fresh):
    slots = {"inside": INSIDE, "outside": OUTSIDE, "since yesterday": {"StartSun": "22:00:00", "StopSun": "03:05:00"},
             "behind yesterday's": {"StartSun": "22:00:00", "StopSun": "03:00:00", **OUTSIDE}}
    cases = [(name, activate, status) for name in slots for activate in (ON, OFF) for status in (0, 1)]
    rows = [fresh.house.add("TimePlans", Activate=activate, TimePlanStatus=status, **slots[name])
            for name, activate, status in cases]
    answers = {case: fresh.why(f"TimePlans.{row}") for case, row in zip(cases, rows)}
    log = fresh.live()
    written = [int(line.split(": Id: ")[1].split(" ")[0]) for line in log.seen if "ctivated timeplan: Id: " in line]
    inside = {"inside", "since yesterday"}
    for case, row in zip(cases, rows):
        name, activate, status = case
        wanted = int((name in inside) == bool(activate))
        answer = answers[case]
        assert (answer["acts"], answer["decides"]) == (wanted != status, "slot"), case
        assert met(answer)["inside a slot"] == (name in inside), case
        assert (row in written) == answer["acts"], case
        assert fresh.house.get(f"TimePlans.{row} TimePlanStatus") == str(wanted), case


def test_a_slot_of_yesterday_that_goes_on_is_shown(fresh):
    row = fresh.house.add("TimePlans", StartSun="22:00:00", StopSun="06:00:00", **OUTSIDE)
    slot = fresh.why(f"TimePlans.{row}")["conditions"][0]
    assert slot["met"]
    assert "Sun: 22:00:00 to 06:00:00" in slot["limit"] and "Mon: 03:10:00 to 04:00:00" in slot["limit"]


# --- the reboot ---

DUE = {"Enable": 1, "Time": "03:00:00"}
LAST = "last reboot long enough ago"


def ago(seconds):
    return time.strftime("%FT%T+0200", time.gmtime(EPOCH + 7200 - seconds))


# The settings, the line, the uptime, whether the router reboots, and what decides.
REBOOT = {
    "in the slot": (DUE, {}, LONG_UP, True, LAST),
    "switched off": ({**DUE, "Enable": 0}, {}, LONG_UP, False, "auto reboot is on"),
    "no time": ({**DUE, "Time": ""}, {}, LONG_UP, False, "a time is set"),
    "before the slot": ({**DUE, "Time": "03:00:06"}, {}, LONG_UP, False, "in the slot"),
    "in its last second": ({**DUE, "Time": "02:59:06"}, {}, LONG_UP, True, LAST),
    "behind the slot": ({**DUE, "Time": "02:59:05"}, {}, LONG_UP, False, "in the slot"),
    "on another day": ({**DUE, "WeekDay": 2}, {}, LONG_UP, False, "in the slot"),
    "on its day": ({**DUE, "WeekDay": 1}, {}, LONG_UP, True, LAST),
    "a call": (DUE, {SIP_CALLS: "1\n"}, LONG_UP, False, "no call"),
    "a stream, which nobody minds": (DUE, {SIP_CALLS: "0\n", STREAMS: STREAM}, LONG_UP, True, LAST),
    "up for too short": (DUE, {}, 5000, False, "up for long enough"),
    "up for long enough": ({**DUE, "MinimumRuntime": 4000}, {}, 5000, True, LAST),
    "rebooted just now": ({**DUE, "LastReboot": ago(60)}, {}, LONG_UP, False, LAST),
    "rebooted as long ago as it must be": ({**DUE, "LastReboot": ago(5400)}, {}, LONG_UP, False, LAST),
    "rebooted a second longer ago": ({**DUE, "LastReboot": ago(5401)}, {}, LONG_UP, True, LAST),
    "rebooted in the future": ({**DUE, "LastReboot": ago(-3600)}, {}, LONG_UP, True, LAST),
    "rebooted nobody knows when": ({**DUE, "LastReboot": "yesterday"}, {}, LONG_UP, True, LAST),
}


@pytest.mark.parametrize("cells, files, uptime, acts, decides", REBOOT.values(), ids=REBOOT)
def test_the_router_reboots_if_and_only_if_it_says_so(fresh, cells, files, uptime, acts, decides):
    fresh.house.booted(uptime)
    kernel = fresh.house.kernel_files()
    for path, content in files.items():
        kernel.write(path, content)
    fresh.house.set("AutoReboot", **cells)
    answer = fresh.why("reboot")
    assert (answer["acts"], answer["decides"]) == (acts, decides)
    log = fresh.live()
    assert re.search(QUIET, log.seen[log.wait(QUIET)])[0].startswith("Trigger") == acts
    assert acts == (fresh.house.get("Reboot Trigger") == "1")
