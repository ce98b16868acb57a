"""One cell, changed and on the disk."""

import json
import subprocess

from household import copied_database
from house import wait_until
from table import compare, judge, row_of

MOST = 1.5  # times SQLite's own
PEERS = ["redis", "ovsdb"]


def measure(workshop):
    database, copy = copied_database(workshop)
    workshop.cfgserver("-s", "commit.socket", "-f", database)
    start_redis(workshop)
    start_ovsdb(workshop)
    places = ["horad=commit.socket", f"SQLite={copy}", "fdatasync=bare", "redis=redis.socket",
              "ovsdb=ovsdb.socket"]
    samples = workshop.run("bench_commit", 20, workshop.times(100, 60), *places)
    workshop.stop_programs()
    return [row for figure in dict.fromkeys(s["figure"] for s in samples) for row in judged(samples, figure)]


def judged(samples, figure):
    rows = {s["who"]: row_of(s) for s in samples if s["figure"] == figure}
    for row in rows.values():
        compare(row, rows["SQLite"])
    horad = rows["horad"]
    judge(horad, f"< {MOST}x", horad.over < MOST)
    judge(horad, "before " + " and ".join(PEERS), all(horad.median < rows[peer].median for peer in PEERS))
    return list(rows.values())


def start_redis(workshop):
    # The checker is the server by another name; Debian has it without the server's service.
    workshop.start("redis-server", "--port", "0", "--unixsocket", "redis.socket", "--save", "", "--appendonly", "yes",
                   "--appendfsync", "always", "--daemonize", "no", executable="/usr/bin/redis-check-rdb")
    wait_until(lambda: (workshop.disk / "redis.socket").exists(), "redis")


def start_ovsdb(workshop):
    schema = {"name": "Bench", "version": "1.0.0",
              "tables": {"TimePlans": {"columns": {"Status": {"type": "integer"}}, "isRoot": True}}}
    (workshop.disk / "ovsdb.schema").write_text(json.dumps(schema))
    subprocess.run(["ovsdb-tool", "create", "ovsdb.db", "ovsdb.schema"], cwd=workshop.disk, check=True)
    here = workshop.disk
    workshop.start("/usr/sbin/ovsdb-server", f"--remote=punix:{here}/ovsdb.socket", f"--unixctl={here}/ovsdb.ctl",
                   "--no-chdir", "ovsdb.db")
    wait_until(lambda: (workshop.disk / "ovsdb.socket").exists(), "ovsdb")
