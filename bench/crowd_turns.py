"""What a read of one row, a greeting, the WLAN and the end wait for beside clients that want much, and the log."""

import time
from dataclasses import dataclass
from typing import Callable

from contenders import Horad, Ovsdb, Redis
from crowding import Household, Pouring, crowd, row_of_few
from table import Row, judge, summary

GREETING, END = 1000, 2000  # ms, each
LATE = 4  # seconds, each
LOG = 16  # MiB
WRITERS, BATCH = 3, 200
MOST_SAMPLES = 99  # so that the p99 is the worst


@dataclass
class Beside:
    """A crowd, made for a store."""

    name: str
    pouring: Callable
    read: int  # ms that a read of one row may wait, in the median


def crowds(workshop):
    scans = workshop.times(381, 60)  # so many of them are 16 KiB
    return [
        Beside(f"a burst of {scans} scans of 59 MB", lambda store: Pouring(store, 1, store.scan, scans), 300),
        Beside("readings of 59 MB", lambda store: Pouring(store, 1, store.whole("Notes"), 1), 300),
        Beside("three writers, 10 ms a sync",
               lambda store: Pouring(store, WRITERS, store.write(0) + store.write(1), BATCH // 2,
                                     2 * store.answers_a_write), 150),
    ]


def measure(workshop):
    with Household() as home:
        stores = [Horad(workshop, home.house), Redis(workshop), Ovsdb(workshop)]
        for store in stores:
            store.start(slow_sync=True)
            store.fill("Notes")
        rows = [row for beside in crowds(workshop) for row in waits(workshop, stores, beside)]
        home.start_horad()
        scans, _, writers = crowds(workshop)
        rows += [late(workshop, home, stores[0], beside) for beside in (scans, writers)]
        rows += [row for beside in (scans, writers) for row in ends(workshop, stores, beside)]
        workshop.stop_programs()
        stores[0].start()
        rows.append(log_size(workshop, stores[0]))
        workshop.stop_programs()
    return rows


def waits(workshop, stores, beside):
    rows = []
    for store in stores:
        reader = store.connect()
        with beside.pouring(store).going():
            rows.append(summary(f"one-row read beside {beside.name}", store.who, "ms",
                                samples(workshop, lambda: reader.ask(store.one_row))))
            rows.append(summary(f"greeting beside {beside.name}", store.who, "ms",
                                samples(workshop, lambda: greet(store))))
    rows.sort(key=lambda row: row.figure, reverse=True)  # the stores keep their order
    judge(rows[0], f"< {beside.read}", rows[0].median < beside.read)
    judge(rows[len(stores)], f"each < {GREETING}", rows[len(stores)].p99 < GREETING)
    return rows


def samples(workshop, seconds):
    """In milliseconds. Not for long: the first one takes as long as it does."""
    taken, end = [], time.monotonic() + workshop.times(3, 0.5)
    while len(taken) < MOST_SAMPLES and (not taken or time.monotonic() < end):
        taken.append(1000 * seconds())
    return taken


def greet(store):
    begin = time.monotonic()
    store.connect().close()
    return time.monotonic() - begin


def late(workshop, home, store, beside):
    pouring = beside.pouring(store)
    patience = workshop.times(60, 8)
    seconds = [home.lateness(lambda _: pouring.going(), patience) for _ in range(workshop.times(2, 1))]
    return row_of_few(f"WLAN late beside {beside.name}", "horad", f"s, of {patience}", seconds, LATE)


def ends(workshop, stores, beside):
    rows = []
    for store in stores:
        taken = []
        for _ in range(workshop.times(2, 1) if store is stores[0] else 1):
            with beside.pouring(store).going():
                taken.append(1000 * store.stop())
            store.start(slow_sync=True)
        rows.append(row_of_few(f"SIGTERM to gone beside {beside.name}", store.who, "ms", taken,
                               END if store is stores[0] else None))
    return rows


def log_size(workshop, store):
    commits, batch = workshop.times(20_000, 5000), 500
    log = store.database.with_name(store.database.name + "-wal")
    writer, largest = store.connect(), 0
    takes_nothing = (store.path, store.hello, store.whole("Notes"), 0, 1)
    with crowd(1, "sip", *takes_nothing):
        for _ in range(commits // batch):
            writer.ask((store.write(0) + store.write(1)) * (batch // 2), batch * store.answers_a_write)
            largest = max(largest, log.stat().st_size)
    row = Row(f"log with a pinned reading, {commits:,} commits", store.who, largest / 2**20, unit="MiB")
    return judge(row, f"< {LOG}", row.median < LOG)
