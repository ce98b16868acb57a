"""A scheduling pass of time frames in which nothing is due, and what is asked before one starts a service."""

from passes import flat, of_size
from table import compare, row_of
from workshop import sample

SIZES = [10, 1000, 10000]
STREAMS = [0, 200]


def measure(workshop):
    rows = [row for size in SIZES for row in of_size(workshop, "bench_frames", "scheduling", size)]
    return [*rows, flat("scheduling", rows), *(row for streams in STREAMS for row in probe(workshop, streams))]


def probe(workshop, streams):
    samples = workshop.run("bench_idleprobe", streams)
    horad, floor = (row_of(sample(samples, who)) for who in ("horad", "floor"))
    return [compare(horad, floor), floor]
