"""A table of 10,000 plans from the store into the daemon's plans."""

import shutil
import subprocess

from table import Row, compare, judge, row_of
from household import load, plan
from workshop import BIN, sample

PLANS = 10000
TABLE = "TimePlans"
MOST = 60  # ms


def measure(workshop):
    database, copy = workshop.disk / "reading.db", workshop.disk / "reading-copy.db"
    server = workshop.cfgserver("-s", "reading.socket", "-f", database)
    plans = {TABLE: [plan(number) for number in range(1, PLANS + 1)]}
    load(plans, workshop.disk / "reading.socket")
    server.terminate()
    server.wait(30)
    shutil.copy(database, copy)

    workshop.cfgserver("-s", "reading.socket", "-f", database)
    rows = read(workshop, copy, "file")
    exchanges = exchanges_a_reading(workshop)
    rows.append(judge(Row("exchanges a reading", "horad", exchanges), "1", exchanges == 1))
    workshop.stop_programs()

    workshop.cfgserver("-s", "memory.socket")
    load(plans, workshop.disk / "memory.socket")
    return rows + read(workshop, copy, "memory")


def read(workshop, copy, kind):
    socket = "reading.socket" if kind == "file" else "memory.socket"
    samples = workshop.run("bench_reading", socket, TABLE, workshop.times(101, 11), copy)
    floor = row_of(sample(samples, "SQLite"))
    rows = []
    for figure in ("reading for the first time", "reading again"):
        row = compare(row_of(sample(samples, "horad", figure)), floor)
        rows.append(judge(row, f"< {MOST}", row.median < MOST))
    rows += [floor, row_of(sample(samples, "socket"))]
    for row in rows:
        row.figure = row.figure.replace("reading", f"reading {PLANS:,} plans", 1)
        row.figure += f" ({kind})"
    return rows


def exchanges_a_reading(workshop):
    """Each request is sent with one call, whatever its size here."""
    readings = 5
    out = workshop.disk / "strace.out"
    subprocess.run(["strace", "-f", "-e", "trace=sendto", "-o", out, BIN / "bench_reading", "reading.socket", TABLE,
                    str(readings)], cwd=workshop.disk, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    greeting = 1
    return (sum("sendto(" in line for line in out.read_text().splitlines()) - greeting) / readings
