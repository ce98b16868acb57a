"""One cell, changed and on the disk: on one core, as a router has it, and on two.

The store answers three requests for it: one begins, one writes, one commits. "horad" waits for each answer, as the
daemon does, which has to know what was refused before it goes on; "redis in 3" is redis asked so, with MULTI, SET and
EXEC. "horad at once" sends the three together, as cfgctl does; the peers take theirs in one exchange too.
"""

import json
import subprocess

from household import copied_database
from house import wait_until
from processes import on_cores
from table import compare, judge, row_of

MOST_OF_REDIS = 1.2  # on two cores, where each answer first wakes a core that sleeps
MOST = 1.5  # times SQLite's own
PEERS = ["redis", "ovsdb"]
PEERS_IN_THREE = ["redis in 3"]


def measure(workshop):
    return on(workshop, 1, "one core") + on(workshop, 2, "two cores")


def on(workshop, cores, where):
    with on_cores(cores) as available:
        if not available:
            return []
        samples = run(workshop)
    rows = []
    for figure in dict.fromkeys(s["figure"] for s in samples):
        rows += judged(samples, figure, alone=cores == 1)
    for row in rows:
        row.figure += f" ({where})"
    return rows


def run(workshop):
    database, copy = copied_database(workshop)
    workshop.cfgserver("-s", "commit.socket", "-f", database)
    start_redis(workshop)
    start_ovsdb(workshop)
    places = ["horad=commit.socket", "horad at once=commit.socket", f"SQLite={copy}", "fdatasync=bare", "redis=redis.socket",
              "redis in 3=redis.socket", "ovsdb=ovsdb.socket"]
    samples = workshop.run("bench_commit", 20, workshop.times(100, 60), *places)
    workshop.stop_programs()
    return samples


def judged(samples, figure, alone):
    rows = {s["who"]: row_of(s) for s in samples if s["figure"] == figure}
    for row in rows.values():
        compare(row, rows["SQLite"])
    judge_beside(rows["horad at once"], rows, PEERS, alone)
    judge_beside(rows["horad"], rows, PEERS_IN_THREE, alone)
    return list(rows.values())


def judge_beside(horad, rows, peers, alone):
    if alone:
        judge(horad, f"< {MOST}x", horad.over < MOST)
        judge(horad, "before " + " and ".join(peers), all(horad.median < rows[peer].median for peer in peers))
    else:
        judge(horad, f"< {MOST_OF_REDIS}x {peers[0]}", horad.median < MOST_OF_REDIS * rows[peers[0]].median)


def start_redis(workshop, *options, **environment):
    # The checker is the server by another name; Debian has it without the server's service.
    (workshop.disk / "redis.socket").unlink(missing_ok=True)
    server = workshop.start("redis-server", "--port", "0", "--unixsocket", "redis.socket", "--save", "", "--appendonly",
                            "yes", "--appendfsync", "always", "--daemonize", "no", *options,
                            executable="/usr/bin/redis-check-rdb", **environment)
    wait_until(lambda: (workshop.disk / "redis.socket").exists(), "redis")
    return server


def start_ovsdb(workshop, tables={"TimePlans": {"Status": "integer"}}, **environment):
    """With tables of columns of the types that are given."""
    here = workshop.disk
    if not (here / "ovsdb.db").exists():
        described = {table: {"columns": {name: {"type": kind} for name, kind in columns.items()}, "isRoot": True}
                     for table, columns in tables.items()}
        schema = {"name": "Bench", "version": "1.0.0", "tables": described}
        (here / "ovsdb.schema").write_text(json.dumps(schema))
        subprocess.run(["ovsdb-tool", "create", "ovsdb.db", "ovsdb.schema"], cwd=here, check=True)
    (here / "ovsdb.socket").unlink(missing_ok=True)
    server = workshop.start("/usr/sbin/ovsdb-server", f"--remote=punix:{here}/ovsdb.socket",
                            f"--unixctl={here}/ovsdb.ctl", "--no-chdir", "ovsdb.db", **environment)
    wait_until(lambda: (here / "ovsdb.socket").exists(), "ovsdb")
    return server
