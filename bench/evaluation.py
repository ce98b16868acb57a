"""An idle evaluation pass: no status has to change."""

import re
import subprocess

from table import Row, compare, judge, row_of
from workshop import BIN, sample

SIZES = [10, 1000, 100000]
MOST = 25  # ns a plan
FLAT = 2  # times the smallest of the sizes
MOST_COUNTED = 1000  # plans: the count runs many times slower


def measure(workshop):
    rows = [row for size in SIZES for row in of_size(workshop, size)]
    medians = [row.median for row in rows if row.who == "horad" and row.unit == "ns/plan"]
    spread = max(medians) / min(medians)
    flat = Row("evaluation, worst over best size", "horad", spread, unit="x")
    return rows + [judge(flat, f"flat (< {FLAT}x)", spread < FLAT)]


def of_size(workshop, size):
    samples = workshop.run("bench_evaluation", size)
    horad, floor = (row_of(sample(samples, who), f"evaluation of {size:,} plans") for who in ("horad", "floor"))
    judge(compare(horad, floor), f"< {MOST}", horad.median < MOST)
    if size > MOST_COUNTED:
        return [horad, floor]
    instructions = [Row(horad.figure, who, instructions_a_plan(workshop, size, who), unit="instructions/plan")
                    for who in ("horad", "floor")]
    compare(*instructions)
    return [horad, floor, *instructions]


def instructions_a_plan(workshop, size, who):
    """These repeat from run to run. What is not the passes is in both counts."""
    fewer, more = 1, 21
    return (instructions(workshop, size, more, who) - instructions(workshop, size, fewer, who)) / (more - fewer) / size


def instructions(workshop, size, passes, who):
    out = workshop.disk / "callgrind.out"
    subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", BIN / "bench_evaluation", str(size),
                    str(passes), who], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return int(re.search(r"^(?:totals|summary): (\d+)", out.read_text(), re.MULTILINE).group(1))
