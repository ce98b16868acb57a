"""Every command of cfgctl against the real store, right and wrong."""

import datetime
import json
import os
import re
import signal
import subprocess

import pytest

from house import SOCKET
from refusals import refused_cfgctl as refused
from wire import DONE, FAILED, Client


def test_tables_lists_what_the_store_has(store):
    lines = [line.split() for line in store.cfgctl("tables").splitlines()]
    assert lines[0] == ["TABLE", "ROWS"]
    assert ["WlanGlobals", "single"] in lines and ["WlanTimePlans", "0"] in lines
    names = {table["table"] for table in json.loads(store.cfgctl("--json", "tables"))}
    assert names == {"WlanGlobals", "WlanTimePlans", "TimePlans", "TimeFrame", "FileTransfer",
                     "FirmwareUpdateTimePlan", "wexd", "AutoReboot", "Reboot"}


def test_set_get_and_show_of_a_single_row_table(store):
    store.set("WlanGlobals", WlanEnable=1)
    assert store.cfgctl("get", "WlanGlobals", "WlanEnable") == "1\n"
    assert store.cfgctl("show", "WlanGlobals") == "WlanEnable    1\nAlwaysEnable  0\n"
    assert json.loads(store.cfgctl("show", "WlanGlobals", "--json")) == {"WlanEnable": 1, "AlwaysEnable": 0}


def test_add_set_get_show_and_remove_of_a_row(store):
    assert store.cfgctl("add", "TimePlans", "TimePlanName=night", "StartMon=22:00") == "1\n"
    assert store.cfgctl("add", "TimePlans", "TimePlanName=day") == "2\n"
    store.set("TimePlans.2", TimePlanName="long day", StopTue="20:00")
    assert store.cfgctl("get", "TimePlans.2", "TimePlanName") == "long day\n"
    header, first, second = store.cfgctl("show", "TimePlans").splitlines()
    assert header.index("TimePlanName") == first.index("night") == second.index("long day")
    store.cfgctl("remove", "TimePlans.1")
    assert [row["Id"] for row in json.loads(store.cfgctl("--json", "show", "TimePlans"))] == [2]


def test_show_of_a_row_has_a_column_a_line(store):
    store.add("WlanTimePlans", TimePlanName="night", Activate=1)
    lines = dict(line.split(maxsplit=1) for line in store.cfgctl("show", "WlanTimePlans.1").splitlines() if " " in line)
    assert (lines["Id"], lines["TimePlanName"], lines["Activate"]) == ("1", "night", "1")
    row = json.loads(store.cfgctl("show", "WlanTimePlans.1", "--json"))
    assert row == json.loads(store.cfgctl("show", "WlanTimePlans", "--json"))[0]
    assert "no such row" in refused(store, "show", "WlanTimePlans.2")
    assert "single row" in refused(store, "show", "WlanGlobals.1")


def test_what_the_store_says_of_a_wrong_value_stands_alone(store):
    assert refused(store, "add", "TimePlans", "TimePlanName=" + "x" * 5000).startswith("cfgctl: TimePlans.TimePlanName takes ")


def test_values_keep_their_kind_and_range(store):
    store.cfgctl("add", "TimeFrame", "TimeFrameEnd=4294967295", "MaxRetries=-1", "UserMessage=a=b c\td")
    assert store.get("TimeFrame.1 TimeFrameEnd") == "4294967295"
    assert store.get("TimeFrame.1 MaxRetries") == "-1"
    assert store.get("TimeFrame.1 UserMessage") == "a=b c\td"
    store.cfgctl("set", "TimeFrame.1", "UserMessage=")
    assert store.get("TimeFrame.1 UserMessage") == ""


@pytest.mark.parametrize(
    "arguments, reason",
    [
        (["get", "Typo", "X"], "unknown table: Typo"),
        (["show", "Typo"], "unknown table: Typo"),
        (["dump", "Typo"], "Typo"),
        (["watch", "Typo"], "Typo"),
        (["get", "WlanGlobals", "Typo"], "unknown column: WlanGlobals.Typo"),
        (["set", "WlanGlobals", "Typo=1"], "unknown column: WlanGlobals.Typo"),
        (["add", "TimePlans", "Typo=1"], "unknown column: TimePlans.Typo"),
        (["set", "WlanGlobals", "WlanEnable=2"], "WlanEnable"),
        (["set", "WlanGlobals", "WlanEnable=on"], "WlanEnable"),
        (["set", "wexd", "Enable=2147483648"], "Enable"),
        (["set", "wexd", "Enable="], "Enable"),
        (["add", "TimeFrame", "RunCounter=-1"], "RunCounter"),
        (["add", "TimePlans", "TimePlanName=" + "x" * 5000], "TimePlanName"),
        (["set", "TimePlans.7", "TimePlanName=x"], "no such row"),
        (["get", "TimePlans.7", "TimePlanName"], "no such row"),
        (["remove", "TimePlans.7"], "no such row"),
        (["set", "TimePlans", "TimePlanName=x"], "Id"),
        (["set", "WlanGlobals.1", "WlanEnable=1"], "single row"),
        (["add", "WlanGlobals", "WlanEnable=1"], "single-row"),
        (["set", "TimePlans.1", "Id=2"], "Id"),
        (["load", "/tmp/none.json"], "/tmp/none.json"),
    ],
)
def test_what_the_store_does_not_take_is_refused_with_the_reason(store, arguments, reason):
    before = store.cfgctl("dump")
    assert reason in refused(store, *arguments)
    assert store.cfgctl("dump") == before


def test_an_id_that_is_taken_is_refused(store):
    store.cfgctl("add", "TimePlans", "Id=5")
    assert "row exists already" in refused(store, "add", "TimePlans", "Id=5")
    assert store.cfgctl("add", "TimePlans", "TimePlanName=next") == "6\n"


@pytest.mark.parametrize(
    "arguments",
    [
        [], ["nonsense"], ["get"], ["get", "WlanGlobals"], ["set", "WlanGlobals"], ["set", "WlanGlobals", "WlanEnable"],
        ["set", "WlanGlobals", "=1"], ["set", "TimePlans.x", "TimePlanName=a"], ["remove", "TimePlans"],
        ["add", "TimePlans"], ["load"], ["--nonsense", "tables"], ["-s"],
    ],
)
def test_wrong_use_says_what_was_wrong_in_one_line_and_ends_with_2(store, arguments):
    status, out, err = store.run("cfgctl", *arguments)
    assert (status, out) == (2, "")
    assert re.fullmatch(r"cfgctl: .{10,} \(cfgctl -h shows the usage\)\n", err), err
    assert all(word in err for word in arguments if word in ("nonsense", "--nonsense", "-s", "TimePlans.x")), err


def test_the_version_is_that_of_the_project(house):
    project = open(os.path.join(os.path.dirname(__file__), "../../CMakeLists.txt")).read()
    version = re.search(r"project\(horad VERSION (\S+)", project).group(1)
    assert house.run("cfgctl", "--version") == (0, f"cfgctl {version}\n", "")


def test_help_ends_with_0(house):
    status, out, _ = house.run("cfgctl", "-h")
    assert status == 0 and out.startswith("Usage: cfgctl")


def test_without_a_server_it_says_so_in_one_line(house):
    for arguments in (["tables"], ["watch"], ["set", "WlanGlobals", "WlanEnable=1"]):
        assert f"no configuration store at {SOCKET}: No such file or directory" in refused(house, *arguments)
    assert "/tmp/other.socket" in refused(house, "-s", "/tmp/other.socket", "tables")


def test_dump_and_load_bring_everything_back(store):
    store.add("WlanTimePlans", TimePlanName="ünïcode \"quoted\"\n", Activate=0, StartMon="22:00")
    store.set("WlanGlobals", AlwaysEnable=1)
    dump = store.cfgctl("dump")
    document = json.loads(dump)
    assert document["WlanGlobals"] == {"WlanEnable": 0, "AlwaysEnable": 1}
    assert document["WlanTimePlans"][0]["TimePlanName"] == "ünïcode \"quoted\"\n"
    store.set("WlanGlobals", AlwaysEnable=0, WlanEnable=1)
    store.cfgctl("remove", "WlanTimePlans.1")
    store.add("TimePlans", TimePlanName="not in the dump")
    status, out, err = store.run("cfgctl", "load", "-", input=dump.encode())
    assert (status, out) == (0, "")
    assert re.fullmatch(r"cfgctl: 2 rows written, 1 row removed, the transaction was open for \d+\.\d s\n", err), err
    assert store.cfgctl("dump") == dump


def test_a_load_leaves_tables_alone_that_it_does_not_name(store):
    store.add("TimePlans", TimePlanName="stays")
    store.cfgctl("load", "-", input=b'{"WlanGlobals": {"WlanEnable": 1}}')
    assert store.get("TimePlans.1 TimePlanName") == "stays"
    assert store.get("WlanGlobals WlanEnable") == "1"


@pytest.mark.parametrize(
    "text, reason",
    [
        ("", "parse error"),
        ('{"WlanGlobals": {"WlanEnable": 1}', "parse error"),
        ('{"WlanGlobals": {"WlanEnable": 1}}\n\0 nonsense', "line 2, column 1: a NUL byte"),
        ('[1, 2]', "object"),
        ('{"Typo": []}', "unknown table: Typo"),
        ('{"WlanGlobals": []}', "WlanGlobals"),
        ('{"TimePlans": {}}', "TimePlans"),
        ('{"WlanGlobals": {"WlanEnable": 1, "Typo": 1}}', "WlanGlobals.Typo"),
        ('{"WlanGlobals": {"WlanEnable": 1.5}}', "WlanEnable"),
        ('{"WlanGlobals": {"WlanEnable": 7}}', "WlanEnable"),
        ('{"WlanGlobals": {"WlanEnable": 1}, "TimePlans": [{"Id": 1}, {"Id": 1}]}', "TimePlans, row 2"),
        ('{"WlanGlobals": {"WlanEnable": 1}, "TimePlans": [{"Id": 0}]}', "Id"),
        ('{"TimePlans": [' + "[" * 100000 + "]}", "TimePlans|parse error|deep"),
        ('{"WlanGlobals": {"WlanEnable": 1}, "TimePlans": [{"TimePlanName": "\xff"}]}', "UTF-8|parse error"),
    ],
)
def test_a_bad_load_changes_nothing_and_says_where(store, text, reason):
    before = store.cfgctl("dump")
    err = refused(store, "load", "-", input=text.encode("latin-1"))
    assert "standard input" in err and re.search(reason, err), err
    assert store.cfgctl("dump") == before


def test_a_load_of_what_is_there_wakes_nobody(store):
    store.add("TimePlans", TimePlanName="one")
    watch = store.watch()
    store.cfgctl("load", "-", input=store.cfgctl("dump").encode())
    store.set("WlanGlobals", WlanEnable=1)
    watch.out.wait("WlanGlobals")
    assert watch.out.seen == ["WlanGlobals WlanEnable: 0 -> 1"]


def test_watch_prints_one_line_a_change(store):
    watch = store.watch("TimePlans", "WlanGlobals")
    store.add("TimePlans", TimePlanName="night", Activate=1)
    store.set("TimePlans.1", TimePlanName="late night", Activate=0)
    store.add("FileTransfer", Status=1)  # not watched
    store.cfgctl("remove", "TimePlans.1")
    store.set("WlanGlobals", AlwaysEnable=1)
    watch.out.wait("AlwaysEnable")
    assert watch.out.seen == [
        "TimePlans.1 added TimePlanName=night Activate=1",
        'TimePlans.1 TimePlanName: night -> "late night"',
        "TimePlans.1 Activate: 1 -> 0",
        "TimePlans.1 removed",
        "WlanGlobals AlwaysEnable: 0 -> 1",
    ]


def test_watch_for_a_program_prints_an_object_a_line(store):
    watch = store.start("cfgctl", "--json", "watch")
    watch.err.wait("watching")
    store.set("WlanGlobals", WlanEnable=1)
    line = watch.out.seen[watch.out.wait("WlanEnable")]
    change = json.loads(line)
    assert is_now(change["time"]) and list(change)[0] == "time"
    assert change == {"time": change["time"], "table": "WlanGlobals", "column": "WlanEnable", "old": 0, "new": 1}


def is_now(text):
    then = datetime.datetime.fromisoformat(text)
    return then.tzinfo and abs(datetime.datetime.now(datetime.timezone.utc) - then) < datetime.timedelta(minutes=1)


def test_watch_says_when_a_change_came(store):
    watch = store.start("cfgctl", "watch", env={"TZ": "XYZ-3:30"})
    watch.err.wait("watching")
    store.set("WlanGlobals", WlanEnable=1)
    time, change = watch.out.seen[watch.out.wait("WlanEnable")].split(" ", 1)
    assert is_now(time) and time.endswith("+03:30")
    assert change == "WlanGlobals WlanEnable: 0 -> 1"


def test_watch_ends_with_one_line_when_the_store_goes(store):
    watch = store.watch()
    store.server.stop(signal.SIGKILL)
    assert watch.wait() == 1
    assert [line for line in watch.err.seen if line.startswith("cfgctl: ")] == watch.err.seen[1:]
    assert len(watch.err.seen) == 2


def test_a_set_waits_for_its_turn(house):
    house.cfgserver()
    holder = Client(house.path(SOCKET))
    assert holder.begin()[0] == DONE
    waiting = house.start("cfgctl", "set", "WlanGlobals", "WlanEnable=1")
    assert Client(house.path(SOCKET)).begin(wait=50)[0] == FAILED
    assert house.get("WlanGlobals WlanEnable") == "0"
    holder.abort()
    assert waiting.wait() == 0
    assert house.get("WlanGlobals WlanEnable") == "1"


def test_a_reader_that_goes_away_is_no_error(store):
    for _ in range(50):
        store.add("TimePlans", TimePlanName="x" * 4000)
    enter = store.enter() + ["/run/bin/cfgctl", "dump"]
    dump = subprocess.Popen(enter, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    dump.stdout.close()
    assert dump.stderr.read() == b""
    assert dump.wait() in (0, -signal.SIGPIPE)


def test_a_value_does_not_drive_the_terminal(store):
    store.add("TimePlans", TimePlanName="\x1b[2Jgone")
    assert "\x1b" not in store.cfgctl("show", "TimePlans")
    watch = store.watch()
    store.set("TimePlans.1", TimePlanName="\x1b[31m")
    watch.out.wait("TimePlanName")
    assert "\x1b" not in watch.out.seen[0]


@pytest.mark.parametrize("command", [["show", "TimePlans"], ["show", "TimePlans.1"], ["dump", "TimePlans"],
                                     ["--json", "show", "TimePlans"], ["--json", "show", "TimePlans.1"],
                                     ["--json", "get", "TimePlans.1", "TimePlanName"]])
def test_no_control_character_comes_out_as_it_is(store, command):
    name = "a\x7fb\x80c\x9bd\x9fe\xa0"
    store.add("TimePlans", TimePlanName=name)
    out = store.cfgctl(*command)
    assert not re.search("[\x00-\x09\x0b-\x1f\x7f-\x9f]", out) and "\xa0" in out
    if command[0] == "dump":
        store.cfgctl("set", "TimePlans.1", "TimePlanName=")
        store.cfgctl("load", "-", input=out.encode())
        assert store.get("TimePlans.1 TimePlanName") == name


def test_an_error_text_holds_no_control_character(store):
    for arguments in (["show", "T\x9b\x7f"], ["get", "WlanGlobals", "\x9b"], ["dump", "\x80"], ["set", "wexd", "Enable=\x9b"]):
        assert not re.search("[\x7f-\x9f]", refused(store, *arguments))
    _, _, err = store.run("cfgctl", "\x9b\x7f")
    assert not re.search("[\x7f-\x9f]", err)


def test_sixty_clients_commit_at_once(store):
    clients = [store.start("cfgctl", "add", "TimePlans", f"TimePlanName=n{i}") for i in range(60)]
    assert [client.wait() for client in clients] == [0] * 60
    assert sorted(int(client.out.seen[0]) for client in clients) == list(range(1, 61))
    assert os.path.exists(store.path(SOCKET))
