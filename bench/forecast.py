"""What an owner waits for who asks horactl about a household with ten plans, and the memory that it takes.

The peer, where it is installed, says when calendar expressions elapse next, as many as the plans have starts and stops.
"""

import json
import shutil

from household import plan
from plans import DAYS
from table import Row, compare, judge, row_of
from workshop import BIN, sample

ZONE = "Europe/Berlin"
PRESENT = "2026-11-22 12:00"
PLANS = 10
PEER = "systemd-analyze"
MOST_MEMORY = 32 * 1024  # kB


def measure(workshop):
    often, seldom = workshop.times(11, 3), workshop.times(3, 1)
    figures = [
        # the figure, its goal in seconds, how often, horactl's words, iterations of each of the peer's expressions
        ("next -n 10", 1, often, ["next", "-n", 10], 1),
        ("next of 8 days", 1, often, ["next", "-n", 10000], 2),
        ("check", 2, often, ["check"], None),
        ("simulate --for 365d", 20, seldom, ["simulate", "--for", "365d"], 53),
    ]
    household = workshop.disk / "forecast.json"
    household.write_text(json.dumps(tables()))
    rows, peaks = [], []
    for figure, goal, times, words, iterations in figures:
        own = costs(workshop, "horactl", times, BIN / "horactl", "-f", household, "--at", PRESENT, *words)
        judge(own[0], f"< {goal}", own[0].median < goal)
        peers = costs_of_peer(workshop, times, iterations)
        rows += named(figure, own[:2], peers[:2])
        peaks.append(own[2])
    peak = max(peaks, key=lambda row: row.median)
    peak.figure = "the most memory of these"
    return [*rows, judge(peak, f"< {MOST_MEMORY:,}", peak.median < MOST_MEMORY), *absence()]


def named(figure, own, peers):
    """Each row of ours with its peer's behind it, where there is one."""
    rows = []
    for place, row in enumerate(own):
        row.figure = figure if row.figure == "time" else f"{figure}, {row.figure}"
        rows.append(row)
        if peers:
            peers[place].figure = row.figure
            compare(row, peers[place])
            rows.append(peers[place])
    return rows


def costs(workshop, who, times, *command):
    """The time, that of the CPU, and the peak of memory."""
    samples = workshop.run("bench_process", who, times, "env", f"TZ={ZONE}", *command)
    return [row_of(sample(samples, who, figure)) for figure in ("time", "CPU", "peak")]


def costs_of_peer(workshop, times, iterations):
    if not iterations or not shutil.which(PEER):
        return []
    return costs(workshop, PEER, times, PEER, "calendar", f"--iterations={iterations}", *expressions())


def absence():
    return [] if shutil.which(PEER) else [Row(f"{PEER} calendar", "not installed", float("nan"))]


def plans():
    return [plan(number) for number in range(1, PLANS + 1)]


def tables():
    """Some plans switch the WLAN. Not a household that anybody has: each of them has a slot every day."""
    wlan = PLANS - 4
    return {
        "WlanGlobals": {"WlanEnable": 0, "AlwaysEnable": 0},
        "WlanTimePlans": plans()[:wlan],
        "TimePlans": plans()[wlan:],
        "FileTransfer": [{"Id": 1}],
        "FirmwareUpdateTimePlan": [{"Id": 1, "Enable": 1, "WeekDay": 0, "StartTimeHour": 2, "EndTimeHour": 5}],
        "TimeFrame": [{"Id": 1, "WindowMode": 3, "Servicetable": "FileTransfer", "ServicetableId": 1,
                       "TimeFrameStart": 1795300000, "TimeFrameEnd": 1827000000, "MaxRetries": 3}],
        "AutoReboot": {"Enable": 1, "WeekDay": 0, "Time": "03:30:00"},
        "Reboot": {"Trigger": 0},
        "wexd": {"Enable": 1},
    }


def expressions():
    return [f"{day} *-*-* {row[kind + day]}" for row in plans() for day in DAYS for kind in ("Start", "Stop")]
