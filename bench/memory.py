"""What horad keeps in memory."""

from house import SOCKET, House
from household import always, load, plan_tables
from processes import BareLoop, start_cron, status_of, wait_idle, wait_quiet
from table import Row, compare, judge, summary

MOST = 1.3  # times the bare loop
MOST_A_PLAN = 200  # bytes
TABLES = [f"Memory{letter}" for letter in "ABCDEFGHIJK"]
PLANS, A_TABLE = 10000, 999  # an Id has three digits at most
CRON_LINES = 1000


def measure(workshop):
    return at_rest(workshop) + with_plans(workshop) + of_cron()


def at_rest(workshop):
    """Of each start: horad and its floor share the libraries with the same others at the same moment."""
    sizes = {"Pss": {"horad": [], "bare loop": []}, "Private": {"horad": [], "bare loop": []}}
    for _ in range(workshop.times(5, 2)):
        house = House()
        try:
            house.cfgserver()
            horad, loop = house.horad("-t", "TimePlans"), BareLoop(house)
            horad.err.wait("Initial reading")
            wait_idle(horad.pid)
            wait_idle(loop.pid)
            for who, pid in (("horad", horad.pid), ("bare loop", loop.pid)):
                sizes["Pss"][who].append(status_of(pid, "Pss", "smaps_rollup"))
                sizes["Private"][who].append(private(pid))
            loop.stop()
        finally:
            house.close()
    pss, loop_pss = (summary("PSS at rest", who, "kB", of_each) for who, of_each in sizes["Pss"].items())
    own, loop_own = (summary("of it shared with nobody", who, "kB", of_each)
                     for who, of_each in sizes["Private"].items())
    return [judge(compare(pss, loop_pss), f"< {MOST}x", pss.over < MOST), loop_pss, compare(own, loop_own), loop_own]


def private(pid):
    return sum(status_of(pid, f"Private_{kind}", "smaps_rollup") for kind in ("Clean", "Dirty"))


def with_plans(workshop):
    house = House()
    try:
        socket = house.path(SOCKET)
        server = workshop.cfgserver("-s", socket, "--schema", plan_tables(workshop.disk, TABLES))
        words = [word for table in TABLES for word in ("-t", table)]
        none = own_memory(house, server, words)[0]
        load(all_plans("Evening plan"), socket)
        read, peak, horad = own_memory(house, server, words, keep=True)
        load(all_plans("Morning plan"), socket)
        wait_quiet([horad.pid, server.pid])
        wait_idle(horad.pid)
        again = status_of(horad.pid, "Private_Dirty", "smaps_rollup")
    finally:
        house.close()
        workshop.stop_programs()
    first = Row("memory a plan, of 10,000", "horad", (read - none) * 1024 / PLANS, unit="bytes")
    second = Row("the same after all were read again", "horad", (again - none) * 1024 / PLANS, unit="bytes")
    for row in (first, second):
        judge(row, f"< {MOST_A_PLAN}", row.median < MOST_A_PLAN)
    return [first, second, Row("peak with 10,000 plans", "horad", peak, unit="kB")]


def all_plans(name):
    numbers = [(table, number) for table in TABLES for number in range(1, A_TABLE + 1)][:PLANS]
    tables = {table: [] for table in TABLES}
    for table, number in numbers:
        tables[table].append(always(number, TimePlanName=name))
    return tables


def own_memory(house, server, words, keep=False):
    """Kilobytes that a fresh horad shares with nobody when it is at rest, and its peak."""
    horad = house.horad(*words)
    horad.err.wait("Initial reading")
    wait_quiet([horad.pid, server.pid])
    wait_idle(horad.pid)
    own, peak = status_of(horad.pid, "Private_Dirty", "smaps_rollup"), status_of(horad.pid, "VmHWM")
    if not keep:
        horad.kill()
    return own, peak, horad


def of_cron():
    sizes = {}
    for lines in (0, CRON_LINES):
        house = House()
        try:
            cron = start_cron(house, lines)
            wait_quiet([cron.pid])
            sizes[lines] = [status_of(cron.pid, name, "smaps_rollup") for name in ("Pss", "Private_Dirty")]
        finally:
            house.close()
    a_line = (sizes[CRON_LINES][1] - sizes[0][1]) * 1024 / CRON_LINES
    return [Row("PSS at rest", "cron", sizes[0][0], unit="kB"),
            Row(f"memory a line, of {CRON_LINES:,}", "cron", a_line, unit="bytes")]
