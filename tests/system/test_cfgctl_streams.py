"""cfgctl and what it reads from and writes to: pipes, files and disks that are gone, full or no files at all."""

import json
import os
import re
from pathlib import Path

import pytest

from house import SOCKET, wait_until
from wire import DONE, Client

PLANS = {"TimePlans": [{"Id": i, "TimePlanName": "x" * 1000} for i in range(1, 201)]}


@pytest.fixture
def full_store(store):
    store.cfgctl("load", "-", input=json.dumps(PLANS).encode())
    return store


def shell(house, script, **options):
    status, out, err = house.run("sh", "-c", script, **options)
    return status, out, err.splitlines()


@pytest.mark.parametrize("command", ["dump", "show TimePlans", "--json show TimePlans", "get TimePlans.1 TimePlanName"])
def test_a_full_disk_behind_the_output_is_said_in_a_line(full_store, command):
    status, _, err = shell(full_store, f"/run/bin/cfgctl {command} > /dev/full")
    assert (status, err) == (1, ["cfgctl: standard output: No space left on device"])


def test_a_reader_that_has_enough_ends_it_without_a_word_where_it_hears_no_signal(full_store):
    status, out, err = shell(full_store, "trap '' PIPE; { /run/bin/cfgctl dump; echo ended with $? >&2; } | head -c 10")
    assert (status, len(out), err) == (0, 10, ["ended with 0"])


def test_watch_writes_into_a_file(store):
    watch = store.start("sh", "-c", "exec /run/bin/cfgctl watch --no-time > /tmp/changes")
    watch.err.wait("watching")
    store.set("WlanGlobals", WlanEnable=1)
    with open(store.path("/tmp/changes")) as file:
        wait_until(lambda: file.seek(0) or file.read() == "WlanGlobals WlanEnable: 0 -> 1\n", "the line")
    store.server.stop()
    assert watch.wait() == 1


def watch_refused(house, times):
    """A watch whose connections are refused so often, behind the one by which it learns the tables."""
    return house.start("strace", "-f", "-o", "/dev/null", "-e", "trace=connect", "-e",
                       f"inject=connect:error=ECONNREFUSED:when={times}", "/run/bin/cfgctl", "watch", "--no-time", "WlanGlobals",
                       env={"ASAN_OPTIONS": "detect_leaks=0"})  # which can't be looked for under a tracer


def test_watch_waits_for_a_store_that_lets_it_in_a_moment_later(store):
    watch = watch_refused(store, "2..4")
    watch.err.wait("watching")
    store.set("WlanGlobals", AlwaysEnable=1)
    watch.out.wait("AlwaysEnable")


def test_watch_of_a_store_that_does_not_let_it_in_ends_and_says_so(store):
    watch = watch_refused(store, "2+")
    assert watch.wait() == 1
    assert watch.err.seen == ["cfgctl: the connection to the configuration store is lost"]


def test_watch_of_a_table_that_cannot_be_read_says_so_and_ends(house):
    house.cfgserver("-f", "/tmp/store.db")
    assert house.run("sqlite3", "/tmp/store.db", "DROP TABLE TimePlans")[0] == 0
    status, out, err = house.run("cfgctl", "watch")
    assert (status, out) == (1, "")
    assert re.fullmatch(r"cfgctl: .*no such table: TimePlans.*\n", err.splitlines(keepends=True)[-1]), err


@pytest.mark.parametrize("script, said", [
    ("/run/bin/cfgctl load - < /tmp", "standard input: Is a directory"),
    ("/run/bin/cfgctl load /tmp", "/tmp: Is a directory"),
    ("/run/bin/cfgctl load - <&-", "standard input: Bad file descriptor"),
    ("cat /tmp/plans.json | TMPDIR=/proc /run/bin/cfgctl load -", "/proc/cfgctl.*: No such file or directory"),
    ("cat /tmp/plans.json | TMPDIR=/tmp/small /run/bin/cfgctl load -",
     "standard input: can't be kept for the second reading: No space left on device"),
])
def test_what_cannot_be_loaded_is_named_with_the_reason_and_changes_nothing(store, script, said):
    with open(store.path("/tmp/plans.json"), "w") as file:
        json.dump(PLANS, file)
    assert store.run("sh", "-c", "mkdir /tmp/small && mount -t tmpfs -o size=64k tmpfs /tmp/small")[0] == 0
    before = store.cfgctl("dump")
    status, out, err = shell(store, script)
    assert (status, out) == (1, "") and len(err) == 1 and re.search(said, err[0]), err
    assert store.cfgctl("dump") == before


def test_a_file_that_becomes_another_one_while_it_is_loaded_changes_nothing(store):
    """It is checked first, and written to the store once it is this client's turn."""
    file = Path(store.path("/tmp/plans.json"))
    file.write_text(json.dumps({"WlanTimePlans": [{"Id": 1, "TimePlanName": "weekend"}]}))
    size, before = file.stat().st_size, store.cfgctl("dump")
    holder = Client(store.path(SOCKET))
    assert holder.begin()[0] == DONE
    load = store.start("cfgctl", "load", "/tmp/plans.json")
    wait_until(lambda: position_in(load.pid, "plans.json") == size, "the first reading")
    file.write_text(json.dumps({"TimePlans": [{"Id": 1}]}))
    holder.abort()
    assert load.wait() == 1
    assert load.err.seen == ["cfgctl: /tmp/plans.json: it changed while it was read"]
    assert store.cfgctl("dump") == before


def position_in(pid, name):
    """How far the process has come in its file of that name; none where it has not opened it."""
    for link in Path(f"/proc/{pid}/fd").iterdir():
        try:
            if os.path.basename(os.readlink(link)) == name:
                return int(re.search(r"pos:\s+(\d+)", Path(f"/proc/{pid}/fdinfo/{link.name}").read_text())[1])
        except FileNotFoundError:  # it was closed meanwhile
            pass
    return None


def test_without_a_folder_of_its_own_for_it_a_pipe_is_loaded_by_way_of_tmp(store):
    status, _, err = shell(store, "TMPDIR=/nowhere /run/bin/cfgctl load -", input=json.dumps(PLANS).encode())
    assert status == 0, err
    assert store.get("TimePlans.200 TimePlanName") == "x" * 1000


def test_columns_of_a_table_of_the_store_are_shown_with_types_ranges_and_defaults(store):
    lines = [line.split() for line in store.cfgctl("columns", "FirmwareUpdateTimePlan").splitlines()]
    assert lines[0] == ["COLUMN", "TYPE", "RANGE", "DEFAULT", "SHARED"]
    assert ["Id", "INTEGER", "1", "to", "2147483647"] in lines
    assert ["WeekDay", "INTEGER", "0", "to", "7", "0", "yes"] in lines
    plan = {column["column"]: column for column in json.loads(store.cfgctl("--json", "columns", "WlanTimePlans"))}
    assert plan["StartMon"] == {"column": "StartMon", "type": "TIME", "default": "", "shared": True}
    assert plan["TimePlanStatus"]["shared"] is False
    assert (plan["Activate"]["type"], plan["Activate"]["least"], plan["Activate"]["most"]) == ("SWITCH", 0, 1)
    status, _, err = store.run("cfgctl", "columns", "Typo")
    assert status == 1 and err == "cfgctl: unknown table: Typo\n"
