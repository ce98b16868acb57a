"""An idle evaluation pass: no status has to change."""

from passes import flat, of_size
from table import judge

SIZES = [10, 1000, 100000]
MOST = 25  # ns a plan


def measure(workshop):
    rows = []
    for size in SIZES:
        horad, *others = of_size(workshop, "bench_evaluation", "evaluation", size)
        rows += [judge(horad, f"< {MOST}", horad.median < MOST), *others]
    return [*rows, flat("evaluation", rows)]
