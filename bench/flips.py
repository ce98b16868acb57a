"""Plans that all flip in one pass, until the store and horad are at rest."""

import time

import wire
from house import SOCKET, House
from household import always, copied_database, dump, load, plan_tables, start_loading
from processes import on_cores, wait_quiet
from table import Row, compare, judge, summary
from workshop import sample

TABLES = ["FlipA", "FlipB", "FlipC", "FlipD"]  # an Id has three digits at most
SIZES = [250, 500, 1000, 2000]
LINEAR = 1.25  # the time of a plan at the largest size over that at the smallest


def measure(workshop):
    # A round trip between two cores that sleep costs several times as much, and the programs may part at any moment.
    with on_cores(1):
        return of_kind(workshop, "file") + of_kind(workshop, "memory")


def of_kind(workshop, kind):
    rows, a_plan = [], {}
    for size in SIZES:
        times, reloads, floor = flips(workshop, kind, size)
        row = summary(f"{size:,} flips to rest ({kind})", "horad", "ms", times)
        count = summary(row.figure, "horad", "reloads", reloads)
        floor.figure = row.figure
        rows += [compare(row, floor), floor, judge(count, f"merged (< {size // 10})", max(reloads) < size // 10)]
        a_plan[size] = row.median / size
    growth = a_plan[SIZES[-1]] / a_plan[SIZES[0]]
    figure = f"a flip of {SIZES[-1]:,} over one of {SIZES[0]:,} ({kind})"
    return rows + [judge(Row(figure, "horad", growth, unit="x"), f"linear (< {LINEAR}x)", growth < LINEAR)]


def flips(workshop, kind, size):
    """Milliseconds to rest and readings of tables on the way, of each time; and the floor of the time."""
    house = House()
    try:
        socket = house.path(SOCKET)
        database = workshop.disk / f"flips-{size}.db"
        where = ["-f", database] if kind == "file" else []
        server = workshop.cfgserver("-s", socket, "--schema", plan_tables(workshop.disk, TABLES), *where)
        load(tables(size, activate=1, status=1), socket)
        horad = house.horad(*(word for table in TABLES for word in ("-t", table)))
        horad.err.wait("Initial reading")
        times, reloads = [], []
        for turn in range(workshop.times(5, 2)):
            wait_quiet([horad.pid, server.pid])
            milliseconds, readings = flip(horad, server, socket, size, turn % 2)
            times.append(milliseconds)
            reloads.append(readings)
        return times, reloads, floor_of(workshop, kind, socket, size)
    finally:
        house.close()
        workshop.stop_programs()


def flip(horad, server, socket, size, activate):
    """The owner turns all plans around, in one commit."""
    watcher = wire.Client(socket)
    names = b"".join(wire.text(table) for table in TABLES)
    watcher.ask(wire.SUBSCRIBE, (0).to_bytes(4, "big") + len(TABLES).to_bytes(4, "big") + names)
    readings = horad.err.count("was changed")
    loading = start_loading(tables(size, activate, status=1 - activate), socket)
    watcher.receive()
    begin = time.monotonic()
    watcher.close()
    assert loading.wait(60) == 0
    while True:
        rest = wait_quiet([horad.pid, server.pid])
        plans = [plan for rows in dump(TABLES, socket).values() for plan in rows]
        if all(plan["TimePlanStatus"] == activate for plan in plans):
            return (rest - begin) * 1000, horad.err.count("was changed") - readings


def tables(size, activate, status):
    each = size // len(TABLES)
    plans = [always(number, Activate=activate, TimePlanStatus=status) for number in range(1, each + 1)]
    return {table: plans for table in TABLES}


def floor_of(workshop, kind, socket, size):
    """As many durable commits of SQLite alone, or the bare round trips of as many transactions."""
    if kind == "file":
        samples = workshop.run("bench_commit", 2, size // 2, f"SQLite={copied_database(workshop)[1]}")
        each, who, milliseconds = sample(samples, "SQLite"), "SQLite", 1e-3
    else:
        samples = workshop.run("bench_notice", socket, 1000)
        each, who, milliseconds = sample(samples, "socket"), "socket, 3 round trips each", 3e-3
    return Row("", who, each["median"] * milliseconds * size, each["p99"] * milliseconds * size, "ms")
