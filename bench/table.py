"""The rows of the table, and what stands between the samples and them."""

import math
from dataclasses import dataclass


@dataclass
class Row:
    figure: str
    who: str
    median: float
    p99: float | None = None
    unit: str = ""
    over: float | None = None  # the median over the floor's
    goal: str = ""
    met: bool | None = None


def row_of(sample, figure=None):
    """A row of what a program of ours printed."""
    return Row(figure or sample["figure"], sample["who"], sample["median"], sample["p99"], sample["unit"])


def summary(figure, who, unit, samples):
    ordered = sorted(samples)
    at = [ordered[max(math.ceil(part * len(ordered)), 1) - 1] for part in (0.5, 0.99)]
    return Row(figure, who, at[0], at[1], unit)


def compare(row, floor):
    row.over = row.median / floor.median if floor.median else None
    return row


def judge(row, goal, met):
    row.goal = f"{row.goal}, {goal}" if row.goal else goal
    row.met = bool(met) if row.met is None else row.met and bool(met)
    return row


def number(value):
    if value is None or isinstance(value, float) and math.isnan(value):
        return ""
    if math.isinf(value):
        return "never"
    if value == int(value) and abs(value) < 1e9:
        return f"{int(value):,}"
    return f"{value:,.{max(0, 2 - int(math.log10(max(abs(value), 0.01))))}f}"


HEADINGS = ["figure", "who", "median", "p99", "unit", "over floor", "goal", "met?"]
NUMBERS = {"median", "p99", "over floor"}


def cells_of(row):
    verdict = {None: "", True: "yes", False: "NO"}[row.met]
    over = f"{row.over:.2f}x" if row.over is not None else ""
    return [row.figure, row.who, number(row.median), number(row.p99), row.unit, over, row.goal, verdict]


def text_of(rows):
    lines = [HEADINGS] + [cells_of(row) for row in rows]
    for later in range(len(rows), 1, -1):  # a figure is named once
        if lines[later][0] == lines[later - 1][0]:
            lines[later][0] = ""
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS))]
    lines.insert(1, ["-" * width for width in widths])

    def aligned(line):
        cells = [cell.rjust(width) if heading in NUMBERS else cell.ljust(width)
                 for cell, width, heading in zip(line, widths, HEADINGS)]
        return "  ".join(cells).rstrip()

    return "\n".join(map(aligned, lines))
