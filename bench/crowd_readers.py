"""Clients that take little of a large answer: what they cost others, and the server."""

import contextlib
import time

from contenders import CARDS, CELL, Horad, Ovsdb, Redis
from crowding import crowd
from processes import status_of
from table import Row, judge

SLOW, SIP = 3, 300_000  # bytes
READINGS = 40
MEMORY = 128  # MiB


def measure(workshop):
    pause = workshop.times(25, 2)  # seconds
    stores = [Horad(workshop), Redis(workshop), Ovsdb(workshop)]
    for store in stores:
        store.start()
        store.fill("Letters", "Cards")
        store.stop()
        store.start()  # what the filling took is no part of its memory
    with contextlib.ExitStack() as crowds:
        for store in stores:
            crowds.enter_context(crowd(SLOW, "sip", store.path, store.hello, store.whole("Letters"), SIP, pause))
        failed = readings_that_fail(stores, 2 * pause)
    peaks = [status_of(store.server.pid, "VmHWM") / 1024 for store in stores]
    workshop.stop_programs()
    name = f"three that take 300 kB of 36 MB every {pause} s"
    rows = [Row(f"readings of 128 KiB beside {name}", store.who, failed[store.who], unit=f"fail, of {READINGS}")
            for store in stores]
    memory = [Row(f"peak memory beside {name}", store.who, peak, unit="MiB") for store, peak in zip(stores, peaks)]
    judge(rows[0], "0", rows[0].median == 0)
    judge(memory[0], f"< {MEMORY}", memory[0].median < MEMORY)
    return rows + memory


def readings_that_fail(stores, seconds):
    failed = {store.who: 0 for store in stores}
    links = [store.connect() for store in stores]
    for _ in range(READINGS):
        for store, link in zip(stores, links):
            before = link.received
            link.ask(store.whole("Cards"))
            failed[store.who] += link.received - before < CARDS * CELL
        time.sleep(seconds / READINGS)
    return failed
