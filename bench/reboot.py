"""A pass that decides about a reboot: every other minute of the week, and in its slot."""

from table import compare, row_of
from workshop import sample

FIGURES = ["reboot pass outside its slot", "reboot pass in its slot, refused"]


def measure(workshop):
    samples = workshop.run("bench_reboot")
    rows = []
    for figure in FIGURES:
        horad, floor = (row_of(sample(samples, who, figure)) for who in ("horad", "floor"))
        rows += [compare(horad, floor), floor]
    return rows
