"""From exec to the first status, and from SIGTERM to the end."""

from house import SOCKET, House
from household import always, load
from table import compare, row_of
from workshop import sample


def measure(workshop):
    house = House()
    try:
        house.cfgserver()
        load({"TimePlans": [always(1)]}, house.path(SOCKET))
        samples = workshop.run_in(house, "bench_startstop", SOCKET, "/run/bin/horad", "/run/bin/bench_bareloop",
                                  workshop.times(20, 5))
    finally:
        house.close()
    rows = []
    for figure in ("start to first status", "SIGTERM to gone"):
        horad, floor = (row_of(sample(samples, who, figure)) for who in ("horad", "bare loop"))
        rows += [compare(horad, floor), floor]
    return rows
