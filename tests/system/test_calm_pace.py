"""Rows that make a horad's own commits wake it: after a burst, the loop keeps its rhythm of two seconds."""

import re
import time

from plans import slot_around_now
from wire import COMMIT

RHYTHM = 2  # seconds of an iteration
BURST = 400  # iterations, more than a loop that is calm may ever take in a row
MOST_COMMITS = 100_000 * RHYTHM / (24 * 3600)  # an iteration
ITERATION = r"^epoll_wait\("
COMMIT_SENT = rf'^sendto\(\d+, "(\\x..){{4}}\\x{COMMIT:02x}'


def traced_horad(house, *arguments, env=None):
    """One that tells each iteration, and what it sends."""
    return house.start("strace", "-xx", "-e", "trace=epoll_wait,sendto", "/run/bin/horad", *arguments,
                       env={"ASAN_OPTIONS": "detect_leaks=0", **(env or {})})


def assert_calm(horad, rounds=3):
    """Waits until so many iterations in a row took their whole time, and then looks at what they committed."""
    horad.err.wait(COMMIT_SENT)
    at, calm, begin = 0, 0, 0
    last = time.monotonic()
    for _ in range(BURST):
        at = horad.err.wait(ITERATION, at) + 1
        now = time.monotonic()
        calm, begin = (calm + 1, begin) if now - last > RHYTHM * 0.9 else (0, at)
        last = now
        commits = sum(1 for line in horad.err.seen[begin:at] if re.search(COMMIT_SENT, line))
        if calm >= rounds and commits > 0:
            assert commits <= MOST_COMMITS * calm, horad.err.seen[begin:at]
            return
    raise AssertionError(f"{BURST} iterations without a rest")


def test_rows_that_are_taken_for_one_another(store):
    store.cfgctl("add", "TimePlans", "Id=123", "Activate=1")
    store.cfgctl("add", "TimePlans", "Id=1234", "Activate=0")
    horad = traced_horad(store, "-v", "-t", "TimePlans")
    horad.err.wait("Deactivated timeplan: Id: 123 ")
    assert_calm(horad)


def test_a_frame_of_two_minutes_whose_service_is_not_there(store):
    now = int(time.time())
    store.add("TimeFrame", ServicetableId=999, TimeFrameStart=now - 5, TimeFrameEnd=now + 115, MaxRetries=-1)
    horad = traced_horad(store, "-t", "TimePlans")
    horad.err.wait('read service table "FileTransfer" failed: no such row')
    assert_calm(horad)


def test_two_at_odds_about_a_plan(store):
    """They live in different time zones."""
    store.add("WlanTimePlans", Activate=1, **slot_around_now())
    here = traced_horad(store, "-v", "-t", "WlanTimePlans")
    there = traced_horad(store, "-v", "-t", "WlanTimePlans", env={"TZ": "UTC+9"})
    here.err.wait("Activated timeplan")
    there.err.wait("Deactivated timeplan")
    assert_calm(here)
    assert_calm(there)
