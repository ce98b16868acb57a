"""A minute in which nothing happens."""

import time

from house import SOCKET, House
from household import always, load
from processes import BareLoop, cpu, start_cron, status_of, wait_idle, wait_quiet
from table import compare, judge, summary

MINUTE = 60  # seconds
MOST_WAKEUPS = 30  # a minute
MOST = 1.3  # times the bare loop's CPU
PLANS = 10
GAP = 0.1  # seconds between two starts, so that each finds the machine asleep
INSTANCES = 8  # of each: what one costs depends on what woke up just before it


def measure(workshop):
    seconds = workshop.times(MINUTE, MINUTE // 3)
    house = House()
    try:
        house.cfgserver()
        load({"TimePlans": [always(number) for number in range(1, PLANS + 1)]}, house.path(SOCKET))
        pids = {"horad": [], "bare loop": [], "cron": [start_cron(house, PLANS).pid]}
        loops = []
        for number in range(2 * INSTANCES):
            if number % 4 in (0, 3):  # either comes first as often
                horad = house.horad("-t", "TimePlans")
                horad.err.wait("Initial reading")
                pids["horad"].append(horad.pid)
            else:
                loops.append(BareLoop(house))
                pids["bare loop"].append(loops[-1].pid)
            time.sleep(GAP)
        for pid in pids["horad"]:
            wait_idle(pid)  # its first pass writes
        wait_quiet([pid for group in pids.values() for pid in group])
        spent = spend(pids, seconds)
        for loop in loops:
            loop.stop()
    finally:
        house.close()
    scale = MINUTE / seconds
    wakeups = {who: summary("wake-ups a minute", who, "times", [count * scale for count, _ in each])
               for who, each in spent.items()}
    used = {who: summary("CPU an idle minute", who, "us", [time * scale / 1000 for _, time in each])
            for who, each in spent.items()}
    for rows in (wakeups, used):
        compare(rows["horad"], rows["bare loop"])
    judge(wakeups["horad"], f"<= {MOST_WAKEUPS}", wakeups["horad"].median <= MOST_WAKEUPS)
    judge(used["horad"], f"< {MOST}x", used["horad"].over < MOST)
    return [*wakeups.values(), *used.values()]


def spend(pids, seconds):
    """Of each process: how often it went to sleep, and nanoseconds on a CPU."""
    before = {who: [state(pid) for pid in group] for who, group in pids.items()}
    time.sleep(seconds)
    return {who: [(now[0] - then[0], now[1] - then[1]) for now, then in zip(map(state, group), before[who])]
            for who, group in pids.items()}


def state(pid):
    return status_of(pid, "voluntary_ctxt_switches"), cpu(pid)
