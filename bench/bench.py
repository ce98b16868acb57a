#!/usr/bin/env python3
"""What horad costs, one table; started by bench/run. Each figure stands beside a floor or a peer of the same run."""

import argparse
import importlib
import platform
import subprocess
import sys
import time
from pathlib import Path

from table import text_of
from workshop import BUILD, Workshop

GROUPS = ["evaluation", "frames", "reboot", "reading", "commit", "notice", "flips", "memory", "idle", "startstop",
          "crowd", "forecast", "cluster"]


def arguments():
    parser = argparse.ArgumentParser(prog="bench/run", description=__doc__)
    parser.add_argument("--only", action="append", choices=GROUPS, metavar="NAME",
                        help="this figure, may be given several times: " + ", ".join(GROUPS))
    parser.add_argument("--quick", action="store_true", help="fewer repetitions, to see that it works")
    return parser.parse_args()


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def cached(name):
    lines = Path(BUILD, "CMakeCache.txt").read_text().splitlines()
    return next(line.split("=", 1)[1] for line in lines if line.startswith(name + ":"))


def header(workshop):
    cpus = [line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")]
    load = open("/proc/loadavg").read().split()[0]
    build = cached("CMAKE_BUILD_TYPE")
    return "\n".join([
        f"CPU       {len(cpus) or '?'} x {cpus[0] if cpus else platform.machine()}, load {load} at the start",
        f"kernel    {platform.system()} {platform.release()}",
        f"compiler  {first_line(cached('CMAKE_CXX_COMPILER'), '--version')}",
        f"build     {build}, {cached(f'CMAKE_CXX_FLAGS_{build.upper()}')}",
        f"disk      {workshop.filesystem()}",
        f"date      {time.strftime('%Y-%m-%d %H:%M %Z')}",
    ])


def main():
    chosen = arguments()
    rows = []
    with Workshop(chosen.quick) as workshop:
        head = header(workshop)
        for group in chosen.only or GROUPS:
            print(f"bench: {group}", file=sys.stderr, flush=True)
            rows += importlib.import_module(group).measure(workshop)
    print(f"{head}\n\n{text_of(rows)}")


if __name__ == "__main__":
    main()
