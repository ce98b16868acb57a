"""From a commit in one process to configChanged() in another."""

from house import SOCKET, House
from table import compare, judge, row_of
from workshop import sample

MOST = 2  # round trips


def measure(workshop):
    house = House()
    try:
        house.cfgserver()
        samples = workshop.run_in(house, "bench_notice", SOCKET, workshop.times(5000, 500))
    finally:
        house.close()
    floor = row_of(sample(samples, "socket"))
    answered, sent = (row_of(sample(samples, "horad", f"commit {moment} to configChanged"))
                      for moment in ("answered", "sent"))
    judge(compare(answered, floor), f"< {MOST}x", answered.over < MOST)
    return [answered, compare(sent, floor), floor]
