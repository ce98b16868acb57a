"""Passes of a program of ours that times them, or makes a number of them (see passes.h)."""

import re
import subprocess

from table import Row, compare, judge, row_of
from workshop import BIN, sample

FLAT = 2  # times the smallest of the sizes
MOST_COUNTED = 1000  # items: the count runs many times slower


def of_size(workshop, program, figure, size):
    """The rows of horad and its floor: first the times, then the instructions."""
    samples = workshop.run(program, size)
    times = [row_of(sample(samples, who), f"{figure} of {size:,} {samples[0]['unit'].split('/')[1]}s")
             for who in ("horad", "floor")]
    compare(*times)
    if size > MOST_COUNTED:
        return times
    counts = [Row(times[0].figure, row.who, instructions_an_item(workshop, program, size, row.who),
                  unit=row.unit.replace("ns", "instructions")) for row in times]
    compare(*counts)
    return times + counts


def flat(figure, rows):
    medians = [row.median for row in rows if row.who == "horad" and row.unit.startswith("ns/")]
    spread = max(medians) / min(medians)
    row = Row(f"{figure}, worst over best size", "horad", spread, unit="x")
    return judge(row, f"flat (< {FLAT}x)", spread < FLAT)


def instructions_an_item(workshop, program, size, who):
    """These repeat from run to run. What is not the passes is in both counts."""
    fewer, more = 1, 21
    return (instructions(workshop, program, size, more, who)
            - instructions(workshop, program, size, fewer, who)) / (more - fewer) / size


def instructions(workshop, program, size, passes, who):
    out = workshop.disk / "callgrind.out"
    subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", BIN / program, str(size),
                    str(passes), who], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return int(re.search(r"^(?:totals|summary): (\d+)", out.read_text(), re.MULTILINE).group(1))
