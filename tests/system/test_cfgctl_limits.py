"""cfgctl where there is a lot: rows, clients, or too little memory and width."""

import json
import re
import socket
import struct
import threading
from pathlib import Path

import pytest

from house import COUNTING, is_sanitized, wait_until
from refusals import refused_cfgctl as refused
from terminal import on_terminal
from wire import COLUMNS_OF, DESCRIBE, DESCRIPTION, DONE, HELLO, INTEGER, SHARED_COLUMNS, TEXT, Client, frame, text

SOCKET = "/tmp/scripted.socket"


def listener(house, backlog=8):
    listening = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    listening.bind(house.path(SOCKET))
    listening.listen(backlog)
    return listening


def serve_once(listening, answers):
    """Answers one client: from each kind of request to the kind and the body of its reply. Others end it."""
    def serve():
        client = Client.__new__(Client)
        client.socket = listening.accept()[0]
        client.socket.settimeout(20)
        try:
            while True:
                kind, sequence, _ = client.receive()
                if kind not in answers:
                    break
                answer, body = answers[kind]
                client.socket.sendall(frame(struct.pack(">BI", answer, sequence) + body))
        except ConnectionError:
            pass
        client.close()

    thread = threading.Thread(target=serve, daemon=True)
    thread.start()
    return thread


HELLO_ANSWER = (DONE, struct.pack(">I", 1))


def number(value):
    return struct.pack(">Bi", INTEGER, value)


ONE_COLUMN = (struct.pack(">I", 1)
              + text("Start") + struct.pack(">B", TEXT) + text("TIME") + b"\0\0" + struct.pack(">B", TEXT) + text(""))


def test_columns_shows_types_ranges_and_defaults(house):
    listening = listener(house)
    columns = (struct.pack(">I", 2)
               + text("Id") + struct.pack(">B", INTEGER) + text("INTEGER") + number(1) + number(2147483647) + b"\0"
               + text("Start") + struct.pack(">B", TEXT) + text("TIME") + b"\0\0" + struct.pack(">B", TEXT) + text("08:00"))
    shared = (COLUMNS_OF, struct.pack(">I", 1) + text("Start") + struct.pack(">B", TEXT))
    answers = {HELLO: HELLO_ANSWER, DESCRIBE: (DESCRIPTION, columns), SHARED_COLUMNS: shared}
    thread = serve_once(listening, answers)
    assert house.cfgctl("-s", SOCKET, "columns", "Plans").splitlines() == [
        "COLUMN  TYPE     RANGE            DEFAULT  SHARED",
        "Id      INTEGER  1 to 2147483647",
        "Start   TIME                      08:00    yes",
    ]
    thread.join()
    serve_once(listening, answers)
    assert json.loads(house.cfgctl("-s", SOCKET, "--json", "columns", "Plans")) == [
        {"column": "Id", "type": "INTEGER", "least": 1, "most": 2147483647, "shared": False},
        {"column": "Start", "type": "TIME", "default": "08:00", "shared": True},
    ]


def test_nothing_is_shared_in_a_store_that_does_not_know_the_question(house):
    thread = serve_once(listener(house), {HELLO: HELLO_ANSWER, DESCRIBE: (DESCRIPTION, ONE_COLUMN)})
    assert json.loads(house.cfgctl("-s", SOCKET, "--json", "columns", "Plans")) == [
        {"column": "Start", "type": "TIME", "default": "", "shared": False},
    ]
    thread.join()


def test_columns_of_an_older_store_is_refused_with_the_reason(house):
    serve_once(listener(house), {HELLO: HELLO_ANSWER})
    assert "older than this cfgctl" in refused(house, "-s", SOCKET, "columns", "Plans")


def test_a_full_queue_is_told_from_a_store_that_is_not_there(house):
    listening = listener(house, backlog=0)
    waiting = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    waiting.connect(house.path(SOCKET))
    err = refused(house, "-s", SOCKET, "tables")
    assert "too many clients" in err and "no configuration store" not in err
    waiting.close()
    listening.close()


def test_a_queue_that_frees_within_a_second_is_waited_for(house):
    listening = listener(house, backlog=0)
    waiting = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    waiting.connect(house.path(SOCKET))
    command = house.start("cfgctl", "-s", SOCKET, "columns", "Plans")
    sleeps_at = Path(f"/proc/{command.pid}/wchan")
    wait_until(lambda: sleeps_at.read_text() == "unix_wait_for_peer", "a full queue in cfgctl's way")
    listening.accept()[0].close()
    thread = serve_once(listening, {HELLO: HELLO_ANSWER, DESCRIBE: (DESCRIPTION, struct.pack(">I", 0))})
    assert command.wait() == 0 and command.err.seen == []
    thread.join()
    waiting.close()


def test_a_wide_table_is_not_wider_than_the_terminal(store):
    store.add("WlanTimePlans", TimePlanName="n" * 100, Activate=1, StartSun="12:34:56")
    for columns in (40, 80, 132):
        out = on_terminal(store, columns, "/run/bin/cfgctl", "show", "WlanTimePlans")
        bands = [band.splitlines() for band in out.split("\n\n")]
        assert max(len(line) for band in bands for line in band) <= columns
        assert all(band[0].startswith("Id") and band[1].startswith("1") and len(band) == 2 for band in bands)
        assert ("n..." in out) == (columns < 110) and "12:34:56" in out
    wide = on_terminal(store, 2000, "/run/bin/cfgctl", "show", "WlanTimePlans")
    assert wide == store.cfgctl("show", "WlanTimePlans") and len(wide.splitlines()) == 2


def test_a_value_does_not_drive_a_terminal(store):
    store.add("TimePlans", TimePlanName="\x9b2J\x7f\x1b")
    for command in (["get", "TimePlans.1", "TimePlanName"], ["--json", "get", "TimePlans.1", "TimePlanName"],
                    ["show", "TimePlans"], ["show", "TimePlans.1"], ["dump"], ["--json", "show", "TimePlans"]):
        assert not re.search("[\x00-\x09\x0b-\x1f\x7f-\x9f]", on_terminal(store, 80, "/run/bin/cfgctl", *command)), command


# 20 MB either way; the form with many rows takes longer.
def test_a_large_dump_is_loaded_and_only_what_differs_is_written(store, fire):
    count, name = (8000, "n" * 2200) if fire == 1 else (100000, "plan")
    plans = [{"Id": i, "TimePlanName": f"{name} {i}", "StartMon": "08:00", "StopMon": "18:00"}
             for i in range(1, count + 1)]
    status, _, err = store.run("cfgctl", "load", "-", input=json.dumps({"WlanTimePlans": plans}).encode(), deadline=240)
    assert status == 0 and f"{count} rows written, the transaction was open for" in err
    _, dump, _ = store.run("cfgctl", "dump", deadline=240)
    assert len(dump) > 20 * 1000 * 1000 and len(json.loads(dump)["WlanTimePlans"]) == count
    assert store.run("cfgctl", "load", "-", input=dump.encode(), deadline=240) == (0, "", "")
    store.cfgctl("set", "WlanTimePlans.7777", "TimePlanName=other")
    status, _, err = store.run("cfgctl", "load", "-", input=dump.encode(), deadline=240)
    assert status == 0 and err.startswith("cfgctl: 1 row written,")


def test_a_load_that_fails_at_its_last_row_says_which_and_changes_nothing(store):
    plans = [{"Id": i} for i in range(1, 3001)] + [{"Id": 0}]
    before = store.cfgctl("dump")
    err = refused(store, "load", "-", input=json.dumps({"WlanTimePlans": plans}).encode())
    assert "table WlanTimePlans, row 3001: " in err
    assert store.cfgctl("dump") == before


def test_rows_without_an_id_come_behind_those_that_have_one(store):
    plans = [{"TimePlanName": "free"}, {"Id": 1, "TimePlanName": "one"}, {"TimePlanName": "free too"}]
    store.cfgctl("load", "-", input=json.dumps({"TimePlans": plans}).encode())
    rows = json.loads(store.cfgctl("--json", "show", "TimePlans"))
    assert [(row["Id"], row["TimePlanName"]) for row in rows] == [(1, "one"), (2, "free"), (3, "free too")]


@pytest.mark.skipif(is_sanitized("cfgctl"), reason="with the sanitizers no program starts under a limit of memory")
@pytest.mark.skipif(COUNTING, reason="what counts the lines that are reached needs memory of its own, when it ends")
def test_little_memory_is_one_line_and_never_a_signal(store):
    plans = [{"Id": i, "TimePlanName": "x" * 4000} for i in range(1, 101)]
    with open(store.path("/tmp/plans.json"), "w") as file:
        json.dump({"TimePlans": plans}, file)
    store.cfgctl("load", "/tmp/plans.json")
    commands = ["tables", "dump", "show TimePlans", "load /tmp/plans.json", "watch nonsense", "--nonsense"]
    script = SWEEP.replace("COMMANDS", " ".join(f"'{command}'" for command in commands))
    status, out, err = store.run("bash", "-c", script, deadline=90)
    assert status == 0, err
    lines = out.splitlines()
    assert len(lines) == 40 * len(commands), out
    assert not [line for line in lines if not re.match(r"(0 ?$|1 (\S+ error )?cfgctl: |2 cfgctl: |127 )", line)], out
    assert any(line.startswith("1 ") and "cfgctl: out of memory" in line for line in lines), out
    assert all(line.count("cfgctl: ") == 1 for line in lines if line[:2] in ("1 ", "2 ")), out
    assert lines[-6:-4] == ["0 "] * 2, out  # tables and dump, in the end


# From the least limit under which there is a program, for each limit and command: the exit status and what was said.
# 127 is the loader's, which needs memory before there is a program.
SWEEP = """
least=3000
until (ulimit -v $least && exec /run/bin/cfgctl --version) >/dev/null 2>&1 || [ $? -ne 127 ]; do
    least=$((least + 200))
done
for step in $(seq 0 39); do
    for command in COMMANDS; do
        said=$( (ulimit -v $((least - 200 + 100 * step)) && exec /run/bin/cfgctl $command) 2>&1 >/dev/null)
        echo "$? $said"
    done
done
"""
