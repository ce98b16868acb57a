"""The command line of horactl: what it prints, for persons and for programs, what it refuses, and that it only reads."""

import json
import os
import pty
import re
import socket
import subprocess


import pytest

from asking import ask, ask_one
from house import SOCKET, fast_clock, wait_until
from proxy import Proxy
from terminal import on_terminal
from wire import BEGIN, READ_TABLE

TZ = {"TZ": "Europe/Berlin"}
PRESENT = "2026-06-15 03:00"  # a Monday
EPOCH = 1781485200  # the same
AT = ["--at", PRESENT]
STORE = "/tmp/store.socket"  # behind a proxy
ALL_FOUND, FOUND, WRONG_USE, NO_LOOK = 0, 1, 2, 3
COMMANDS = [["now", "--json"], ["at", "23:00", "--json"], ["next", "-n", "3"], ["why", "wlan"], ["why", "reboot"],
            ["why", "TimeFrame.1"], ["why", "WlanTimePlans.1"], ["check"], ["simulate", "--for", "2h"]]


def names(commands):
    return [" ".join(command) for command in commands]


HOUSEHOLD = {
    "WlanTimePlans": [
        {"Id": 1, "TimePlanName": "Night", "Activate": 0, "TimePlanStatus": 1, "StartMon": "03:30:00", "StopMon": "06:00:00"},
        {"Id": 2, "TimePlanName": "Day", "Activate": 1, "StartMon": "04:30:00", "StopMon": "05:00:00"},
    ],
    "FileTransfer": [{"Id": 1, "Status": 0}],
    "TimeFrame": [{"Id": 1, "ServicetableId": 1, "TimeFrameStart": EPOCH + 600, "TimeFrameEnd": EPOCH + 7200, "MaxRetries": 3}],
    "AutoReboot": {"Enable": 1, "Time": "04:00:00"},
}


@pytest.fixture
def household(store):
    """A store with something of everything."""
    store.cfgctl("load", "-", input=json.dumps(HOUSEHOLD).encode())
    return store


def run(house, *words, input=None, **env):
    return house.run("horactl", *AT, *words, input=input, env={**TZ, **env}, deadline=60)


def shown(house, *words, **surroundings):
    """What a person sees: the lines."""
    status, out, err = run(house, *words, **surroundings)
    assert status in (ALL_FOUND, FOUND), err
    return out.splitlines()


def told(house, *words, **surroundings):
    """What a program reads."""
    return ask(house, *AT, *words, env=TZ, **surroundings)


def refused(house, wanted, *words, input=None):
    """The one line that it says."""
    status, _, err = run(house, *words, input=input)
    assert status == wanted, err
    lines = [line for line in err.splitlines() if "there is no table" not in line]
    assert len(lines) == 1 and lines[0].startswith("horactl: "), err
    return lines[0]


# --- what it prints ---

def test_simulate_tells_of_each_write(household):
    writes = told(household, "simulate", "--for", "75min")
    assert all(list(write) == ["time", "table", "row", "column", "old", "new"] for write in writes)
    assert [(write["time"][11:16], write["table"], write["row"], write["column"], write["old"], write["new"]) for write in writes] == [
        ("03:00", "WlanGlobals", None, "WlanEnable", "0", "1"),
        ("03:00", "wexd", None, "Enable", "0", "1"),
        ("03:10", "FileTransfer", 1, "Status", "0", "1"),
        ("03:10", "TimeFrame", 1, "RunCounter", "0", "1"),
        ("03:30", "WlanTimePlans", 1, "TimePlanStatus", "1", "0"),
        ("03:30", "WlanGlobals", None, "WlanEnable", "1", "0"),
        ("04:00", "Reboot", None, "Trigger", "0", "1"),
        ("04:00", "AutoReboot", None, "LastReboot", "", writes[-1]["time"]),
    ]
    lines = shown(household, "simulate", "--for", "75min")
    assert len(lines) == 1 + len(writes)
    assert re.fullmatch(r"Mon 2026-06-15 03:10:0\d CEST  FileTransfer\.1 Status: 0 -> 1", lines[3])


def test_simulate_shows_the_log_lines_at_their_own_time(household):
    lines = [line for line in told(household, "-v", "simulate", "--for", "40min") if "log" in line]
    assert all(list(line) == ["time", "level", "module", "log"] for line in lines)
    (switched,) = [line for line in lines if line["log"] == "Switch WLAN off"]
    assert (switched["time"][:16], switched["level"], switched["module"]) == ("2026-06-15T03:30", "debug", "horad")
    text = shown(household, "-v", "simulate", "--for", "40min")
    assert any(re.fullmatch(r"Mon 2026-06-15 03:30:0\d CEST  debug horad: Switch WLAN off", line) for line in text)
    assert run(household, "simulate", "--for", "40min")[2] == ""


def test_simulate_lets_happen_what_it_is_told(household):
    def columns(*words):
        return [write["column"] for write in told(household, "simulate", *words)]
    assert columns("--for", "75min").count("Trigger") == 1
    assert columns("--for", "75min", "--boot").count("Trigger") == 0  # up for too short
    assert columns("--for", "75min", "--call", "03:50..05:00").count("Trigger") == 0
    assert columns("--for", "75min", "--stream", "03:50..05:00").count("Trigger") == 1
    assert columns("--for", "75min", "--clock", "03:20=+1h").count("Trigger") == 0  # past it
    assert columns("--from", "04:10", "--for", "1h").count("Trigger") == 0
    assert columns("--for", "25min", "--service", "fail,5").count("RunCounter") == 4
    assert columns("--for", "25min", "--service", "succeed,5").count("RunCounter") == 1


def test_next_tells_of_each_event(household):
    events = told(household, "next", "-n", "5")
    assert all(list(event) == ["time", "what", "to", "rows"] for event in events)
    assert [(event["time"][11:16], event["what"], event["to"], event["rows"]) for event in events] == [
        ("03:00", "wlan", "1", ["WlanTimePlans.1"]),
        ("03:10", "service", "1", ["TimeFrame.1"]),
        ("03:30", "status", "0", ["WlanTimePlans.1"]),
        ("03:30", "wlan", "0", ["WlanTimePlans.1"]),
        ("04:00", "reboot", "1", ["AutoReboot"]),
    ]
    head, present, *lines = shown(household, "next", "-n", "3")
    assert head.startswith("no horad runs here: all plan tables, a repeat delay of 180 s, TZ Europe/Berlin")
    assert present.startswith("now Mon 2026-06-15 03:00:00 CEST") and "WLAN on" in present
    assert [re.search(r" 0\d:\d\d", line)[0] for line in lines] == [" 03:10", " 03:30", " 04:00"]
    assert "WLAN off" in lines[1] and "Night" in lines[1] and "in 30 min" in lines[1]


def test_next_knows_the_change_of_the_clock(house):
    (event,) = ask(house, "--at", "2026-10-24 12:00", "-f", "-", "next", "--days", "1", input=b"{}", env=TZ)
    assert event == {"time": "2026-10-25T02:00:00+0100", "what": "clock", "to": "+0100", "rows": []}
    assert ask(house, "--at", "2026-10-23 12:00", "-f", "-", "next", "--days", "1", input=b"{}", env=TZ) == []


def test_now_and_at_tell_of_the_present(household):
    statuses = {"WlanTimePlans.1": 1, "WlanTimePlans.2": 0}
    (now,) = told(household, "now")
    assert list(now) == ["time", "wlan", "wlan_by", "statuses"]
    assert now == {"time": "2026-06-15T03:00:00+0200", "wlan": 1, "wlan_by": "default", "statuses": statuses}
    (at,) = told(household, "at", "04:45")
    assert at == {"time": "2026-06-15T04:45:00+0200", "wlan": 1, "wlan_by": "WlanTimePlans.2",
                  "statuses": {"WlanTimePlans.1": 0, "WlanTimePlans.2": 1}}
    text = "\n".join(shown(household, "now"))
    for part in ("WLAN    on until Mon 2026-06-15 03:30:0", "WlanTimePlans.1 Night  active", "Reboot  Mon 2026-06-15 04:00",
                 "TimeFrame.1 for FileTransfer.1 (idle)"):
        assert part in text
    household.set("WlanGlobals", AlwaysEnable=1)
    assert told(household, "now")[0]["wlan_by"] == "AlwaysEnable"


def test_why_tells_of_each_condition(household):
    (why,) = told(household, "why", "TimeFrame.1")
    assert list(why) == ["subject", "acts", "decides", "conditions", "next"]
    assert all(list(condition) == ["name", "met", "value", "limit"] for condition in why["conditions"])
    assert (why["subject"], why["acts"], why["decides"]) == ("TimeFrame.1", False, "has begun")
    assert why["next"].startswith("2026-06-15T03:10:0")
    text = shown(household, "why", "TimeFrame.1")
    assert text[1].startswith("No start")
    assert any(re.match(r"  has begun +no ", line) for line in text)
    assert any(line.startswith("Next change: Mon 2026-06-15 03:10:0") for line in text)


def test_why_leaves_out_a_frame_of_an_unknown_mode(house):
    dump = b'{"TimeFrame": [{"Id": 1, "WindowMode": 9}]}'
    why = ask_one(house, "-f", "-", "why", "TimeFrame.1", input=dump, env=TZ)
    assert (why["acts"], why["decides"]) == (False, "mode is known")


def test_check_finds_something_and_ends_with_1(household):
    status, out, err = run(household, "--json", "check")
    assert (status, err) == (ALL_FOUND, ""), out
    household.set("AutoReboot", MinimumRuntime=0)
    status, out, err = run(household, "--json", "check")
    assert (status, err) == (FOUND, "")
    finding = json.loads(out)
    assert list(finding)[:2] == ["row", "column"] and finding["column"] == "MinimumRuntime"
    assert "AutoReboot MinimumRuntime: 0" in "\n".join(shown(household, "check"))


# --- where it reads ---

@pytest.mark.parametrize("command", COMMANDS, ids=names(COMMANDS))
def test_a_dump_says_the_same_as_the_store(household, command):
    dump = household.cfgctl("dump")
    with open(household.path("/tmp/dump.json"), "w") as file:
        file.write(dump)
    expected = run(household, *command)
    assert expected[0] == ALL_FOUND, expected
    assert run(household, "-f", "/tmp/dump.json", *command) == expected


def test_a_dump_may_come_over_standard_input(household):
    assert told(household, "-f", "-", "now", input=household.cfgctl("dump").encode()) == told(household, "now")


def test_another_store_is_asked_where_its_socket_is_named(house):
    house.cfgserver("-s", STORE)
    house.cfgctl("-s", STORE, "set", "WlanGlobals", "AlwaysEnable=1", "WlanEnable=1")
    assert told(house, "-s", STORE, "now")[0]["wlan_by"] == "AlwaysEnable"
    assert SOCKET in refused(house, NO_LOOK, "now")


def test_tables_that_are_not_there_are_named_and_taken_as_those_of_a_new_store(house):
    status, out, err = run(house, "-t", "Typo", "-f", "-", "--json", "why", "reboot", input=b'{"WlanTimePlans": []}')
    assert status == ALL_FOUND
    missing = ["Typo", "WlanGlobals", "TimeFrame", "FileTransfer", "FirmwareUpdateTimePlan", "wexd", "AutoReboot", "Reboot"]
    assert [re.search(r'^horactl: there is no table "(\w+)": taken as ', line)[1] for line in err.splitlines()] == missing
    (up,) = [condition for condition in json.loads(out)["conditions"] if condition["name"] == "up for long enough"]
    assert "1 h 30 min" in up["limit"]  # the default of a store


def test_only_plan_tables_that_are_named_are_followed(household):
    household.add("TimePlans", Activate=0, StartTue="08:00")
    assert set(told(household, "now")[0]["statuses"]) == {"TimePlans.1", "WlanTimePlans.1", "WlanTimePlans.2"}
    assert set(told(household, "-t", "TimePlans", "now")[0]["statuses"]) == {"TimePlans.1"}
    runs = [write["time"][14:16] for write in told(household, "-r", "600", "simulate", "--for", "45min", "--service", "fail,1")
            if write["column"] == "RunCounter"]
    assert runs == ["10", "20", "30", "40"]
    assert shown(household, "-t", "TimePlans", "-r", "600", "now")[0].startswith(
        "given: -t TimePlans, a repeat delay of 600 s; no horad runs here: TZ Europe/Berlin")


# --- the present ---

@pytest.mark.parametrize("text, moment", [
    ("2026-11-29 02:30", "2026-11-29T02:30:00+0100"),
    ("2026-11-29 02:30:15", "2026-11-29T02:30:15+0100"),
    ("Tue 23:00", "2026-06-16T23:00:00+0200"),
    ("Mon 02:59", "2026-06-22T02:59:00+0200"),
    ("23:00", "2026-06-15T23:00:00+0200"),
    ("02:59:59", "2026-06-16T02:59:59+0200"),
    ("+3h", "2026-06-15T06:00:00+0200"),
    ("+1d", "2026-06-16T03:00:00+0200"),
    ("@0", "1970-01-01T01:00:00+0100"),
])
def test_a_time_has_many_forms(house, text, moment):
    clock = house.clock("2026-06-15 03:00:00", 1, TZ["TZ"]).env
    assert ask_one(house, "-f", "-", "--at", text, "now", input=b"{}", env=clock)["time"] == moment
    assert ask_one(house, "-f", "-", "at", text, input=b"{}", env=clock)["time"] == moment


def test_a_time_that_the_zone_does_not_have_is_refused_and_one_that_comes_twice_is_noted(house):
    line = refused(house, WRONG_USE, "-f", "-", "at", "2027-03-28 02:30", input=b"{}")
    assert "01:59:59 CET" in line and "03:00:00 CEST" in line
    status, out, err = run(house, "-f", "-", "--json", "at", "2026-10-25 02:30", input=b"{}")
    assert (status, json.loads(out)["time"]) == (ALL_FOUND, "2026-10-25T02:30:00+0200")
    assert "comes twice" in err and "2026-10-25T02:30:00+0100" in err


# --- what it refuses ---

@pytest.mark.parametrize("words", [
    [], ["what"], ["--what", "now"], ["now", "more"], ["now", "next"], ["why"], ["why", "what"], ["why", "Typo.1"],
    ["why", "TimeFrame.x"], ["next", "-n", "0"], ["next", "-n", "x"], ["next", "--days", "0"], ["-r", "-1", "now"],
    ["-r", "4294967296", "now"], ["-s", SOCKET, "-f", "x", "now"], ["at"], ["at", "25:00"], ["at", "31st"], ["at", ""],
    ["at", "@-1"], ["at", "@99999999999999"], ["simulate", "--for", "-1d"], ["simulate", "--for", "200000d"],
    ["simulate", "--service", "what"], ["simulate", "--service", "fail,-1"], ["simulate", "--call", "23:00"],
    ["simulate", "--clock", "+1h=2h"], ["--at", "1:00", "now"], ["why", "\x1b[2J.1"], ["at", "\x1b[2J"],
], ids=lambda words: " ".join(words).replace("\x1b", "ESC"))
def test_wrong_use_ends_with_2_and_says_why(store, words):
    line = refused(store, WRONG_USE, *words)
    assert line.endswith("(horactl -h shows the usage)")
    assert line.isprintable()


def test_the_usage_names_every_command(house):
    status, out, err = house.run("horactl", "-h")
    assert (status, err) == (ALL_FOUND, "")
    for words in [*COMMANDS, ["week"], ["--at"], ["--json"], ["--table"], ["--repeatdelay"], ["--socket"], ["--file"], ["--service"]]:
        assert re.search(rf"(^|\W){words[0]}\W", out), words
    assert house.run("horactl", "--version")[1].startswith("horactl ")


@pytest.mark.parametrize("words", [["-h"], ["--version"], ["now"]])
def test_a_reader_that_has_gone_is_no_failure_where_no_signal_tells_of_it(store, words):
    reader, writer = os.pipe()
    os.close(reader)
    ended = subprocess.run([*store.enter(), "/run/bin/horactl", *words], stdout=writer, stderr=subprocess.PIPE, restore_signals=False)
    os.close(writer)
    assert (ended.returncode, ended.stderr) == (0, b"")


def test_what_can_not_be_looked_at_ends_with_3(store):
    assert "no row TimeFrame.7" in refused(store, NO_LOOK, "why", "TimeFrame.7")
    assert "/nowhere" in refused(store, NO_LOOK, "-s", "/nowhere", "now")
    assert "/nowhere: No such file" in refused(store, NO_LOOK, "-f", "/nowhere", "now")
    assert "/tmp: " in refused(store, NO_LOOK, "-f", "/tmp", "now")
    status, _, err = store.run("sh", "-c", "/run/bin/horactl now > /dev/full")
    assert (status, err) == (NO_LOOK, "horactl: standard output: No space left on device\n")


DAMAGED = {
    "nothing": b"",
    "cut off": b'{"WlanTimePlans": [{"Id": 1,',
    "two": b"{}{}",
    "a list": b"[]",
    "deep lists": b"[" * 100_000,
    "deep objects": b'{"a":' * 100_000,
    "deep in a row": b'{"a":[{"b":' + b"[" * 100_000,
    "a NUL byte": b'{"Wlan\0Globals": {}}',
    "no UTF-8": b'{"WlanTimePlans": [{"Id": 1, "TimePlanName": "\xff\x1b"}]}',
    "a list for a row": b'{"WlanGlobals": [{}]}',
    "a row for a list": b'{"WlanTimePlans": {"Id": 1}}',
    "a text for a switch": b'{"WlanGlobals": {"WlanEnable": "on"}}',
    "a fraction": b'{"WlanGlobals": {"WlanEnable": 0.5}}',
    "null": b'{"WlanGlobals": {"WlanEnable": null}}',
    "true": b'{"WlanGlobals": {"WlanEnable": true}}',
    "no switch": b'{"WlanGlobals": {"WlanEnable": 7}}',
    "a huge number": b'{"WlanGlobals": {"WlanEnable": 1' + b"0" * 5000 + b"}}",
    "a huge Id": b'{"WlanTimePlans": [{"Id": 99999999999}]}',
    "an Id twice": b'{"WlanTimePlans": [{"Id": 1}, {"Id": 1}]}',
    "a table twice": b'{"wexd": {}, "wexd": {}}',
    "a column twice": b'{"wexd": {"Enable": 1, "Enable": 1}}',
    "control characters": b'{"\\u001b[2J": 7}',
    "a long name": b'{"' + b"x" * 1_000_000 + b'": 7}',
}


@pytest.mark.parametrize("dump", DAMAGED.values(), ids=DAMAGED)
def test_a_damaged_dump_is_one_clear_line(house, dump):
    line = refused(house, NO_LOOK, "-f", "-", "now", input=dump)
    assert line.startswith("horactl: standard input: ") and line.isprintable()
    assert len(line) < 3000


EVIL = "\x1b[2J\x07\u009b31m\u202e\r"
STRANGE = {
    "control characters": {
        "WlanTimePlans": [{"Id": 1, "TimePlanName": EVIL, "StartMon": EVIL, "StopMon": "09:00:00"}],
        "TimeFrame": [{"Id": 1, "Servicetable": EVIL, "ServicetableId": 1, "UserMessage": EVIL,
                       "TimeFrameStart": 0, "TimeFrameEnd": 4294967295}],
        "AutoReboot": {"Enable": 1, "Time": EVIL, "LastReboot": EVIL},
        EVIL: [{"Id": 1, "TimePlanName": EVIL, "TimePlanStatus": 0, "Activate": 1}],
    },
    "numbers at their limits": {
        "WlanTimePlans": [{"Id": id, "StartMon": "99:99:99", "StopMon": "x"} for id in (-2147483648, 0, 1, 1_000_000_000, 2147483647)],
        "TimeFrame": [{"Id": 1, "WindowMode": 3, "ServicetableId": -1, "TimeFrameStart": 4294967295, "TimeFrameEnd": 0,
                       "MaxRetries": -2147483648, "RunCounter": 4294967295}],
        "FirmwareUpdateTimePlan": [{"Id": 1, "Enable": 1, "WeekDay": 2147483647, "StartTimeHour": -2147483648,
                                    "EndTimeHour": 2147483647, "EndTimeMinute": -1}],
        "FileTransfer": [{"Id": -1, "Status": -2147483648, "Result": 2147483647}],
        "AutoReboot": {"Enable": 1, "Time": "-1:-1:-1", "WeekDay": -2147483648, "MinimumRuntime": -1, "LastReboot": "x" * 5000},
    },
}
QUICK = [["now", "--json"], ["next", "--days", "1"], ["next", "--days", "1", "--json"], ["why", "wlan"], ["why", "wlan", "--json"],
         ["why", "reboot"], ["why", "TimeFrame.1"], ["check"], ["check", "--json"], ["simulate", "-v", "--for", "1h"],
         ["simulate", "-v", "--for", "1h", "--json"]]
SLOW = [["week"]]
FOR_PROGRAMS = [command for command in QUICK if "--json" in command] + [["why", "reboot"], ["why", "TimeFrame.1"]]


@pytest.mark.parametrize("tables, commands", [(STRANGE["control characters"], QUICK + SLOW), (STRANGE["numbers at their limits"], FOR_PROGRAMS)],
                         ids=STRANGE)
def test_strange_tables_are_lived_with_and_nothing_of_them_drives_a_terminal(house, tables, commands):
    dump = json.dumps(tables).encode()
    for command in commands:
        status, out, err = run(house, "-f", "-", *command, input=dump)
        assert status in (ALL_FOUND, FOUND), (command, err)
        for line in (out + err).split("\n"):
            assert not re.search("[\x00-\x1f\x7f-\x9f]", line), (command, line)
            assert "\u202e" not in line or "--json" in command, (command, line)


# --- a store that goes away, or says nothing ---

@pytest.mark.parametrize("after", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("number", [1, 2, 3, 8])
def test_a_store_that_goes_away_is_one_clear_line(house, number, after):
    house.cfgserver("-s", STORE)
    proxy = Proxy(house.path(SOCKET), house.path(STORE), cut=number, after=after)
    line = refused(house, NO_LOOK, "now")
    assert proxy.is_cut.wait(5)
    assert "store" in line or "connection" in line, line


def test_a_mute_store_is_not_waited_for_for_ever(house):
    mute = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    mute.bind(house.path(SOCKET))
    mute.listen(8)
    status, out, err = house.run("horactl", "now", env=fast_clock(30), deadline=20)
    assert (status, out) == (NO_LOOK, "")
    assert len(err.splitlines()) == 1 and err.startswith("horactl: "), err
    mute.close()


# --- it only reads ---

def test_no_command_writes_or_opens_a_transaction(house):
    house.cfgserver("-s", STORE)
    house.cfgctl("-s", STORE, "load", "-", input=json.dumps(HOUSEHOLD).encode())
    before = house.cfgctl("-s", STORE, "dump")
    proxy = Proxy(house.path(SOCKET), house.path(STORE))
    proxy.resume()  # one connection after the other
    proxy.arm_at(BEGIN, 1, after=False)
    for command in COMMANDS:
        assert run(house, *command)[0] == ALL_FOUND, command
    assert proxy.cut_kind is None
    assert house.cfgctl("-s", STORE, "dump") == before
    proxy.arm_at(READ_TABLE, 1, after=False)  # it would have been seen
    refused(house, NO_LOOK, "now")
    assert proxy.cut_kind == READ_TABLE


# --- the horad that runs here ---

def origin(house, *words, **env):
    status, out, err = house.run("horactl", *AT, *words, "why", "reboot", env=env)
    assert status == ALL_FOUND, err
    return out.splitlines()[0]


def test_what_is_not_given_comes_from_the_horad_that_runs(store):
    plan = store.add("TimePlans", Activate=0)
    store.add("WlanTimePlans", Activate=0)
    horad = store.horad("-v", "-t", "TimePlans", "-r", "77", tz="Asia/Tokyo")
    horad.err.wait("Initial reading of config")
    as_it_runs = f"as horad {horad.pid} runs"
    assert origin(store, TZ="UTC") == f"{as_it_runs}: -t TimePlans, a repeat delay of 77 s, TZ Asia/Tokyo"
    assert origin(store, "-r", "5") == f"given: a repeat delay of 5 s; {as_it_runs}: -t TimePlans, TZ Asia/Tokyo"
    assert origin(store, "-t", "WlanTimePlans") == \
        f"given: -t WlanTimePlans; {as_it_runs}: a repeat delay of 77 s, TZ Asia/Tokyo"
    now = ask_one(store, *AT, "now", env={"TZ": "UTC"})
    assert now["time"] == "2026-06-15T03:00:00+0900"
    assert list(now["statuses"]) == [f"TimePlans.{plan}"]
    horad.stop()
    assert origin(store, TZ="UTC") == "no horad runs here: all plan tables, a repeat delay of 180 s, TZ UTC"


def test_of_several_horads_the_one_of_the_pid_file_counts(store):
    other = store.horad("-t", "WlanTimePlans", "-v")
    other.err.wait("Initial reading of config")
    status, _, err = store.run("horad", "-d", "-t", "TimePlans")
    assert status == 0, err
    with open(wait_until(lambda: os.path.exists(store.path("/run/horad")) and store.path("/run/horad"), "a pid file")) as file:
        pid = int(file.read())
    assert origin(store).startswith(f"as horad {pid} runs (which /var/run/horad names; not as {other.pid}): -t TimePlans, ")


# --- the zone of the machine ---

ETC = """
mkdir /tmp/etc && cp -a /etc/. /tmp/etc && rm -f /tmp/etc/localtime && mount --bind /tmp/etc /etc
"$@" /etc/localtime && unset TZ && exec /run/bin/horactl --at @1781485200 -f - week
"""


@pytest.mark.parametrize("made, named", [
    (["ln", "-s", "../usr/share/zoneinfo/Asia/Tokyo"], "Asia/Tokyo"),
    (["ln", "-s", "/etc/zone"], "this machine's time zone"),
    (["cp", "/usr/share/zoneinfo/Asia/Tokyo"], "this machine's time zone"),
], ids=["a link to the zone", "a link to elsewhere", "a copy of the zone"])
def test_the_machines_zone_is_named_where_a_link_tells_it(house, made, named):
    status, out, err = house.run("unshare", "--mount", "sh", "-ec", ETC, "sh", *made, input=b"{}")
    assert status == ALL_FOUND, err
    assert f"Mon 15 Jun 2026 to Sun 21 Jun 2026, {named}" in out.splitlines()


# --- the terminal ---

def with_terminal(house, *words):
    """What a simulation writes to a terminal that is its standard error."""
    ours, its = pty.openpty()
    try:
        done = subprocess.run([*house.enter(), "env", "TZ=UTC", "/run/bin/horactl", *AT, "-f", "-", "--json", *words], input=b"{}",
                              stdout=subprocess.PIPE, stderr=its, timeout=30)
        os.set_blocking(ours, False)
        return done.returncode, done.stdout, os.read(ours, 65536).decode()
    finally:
        os.close(ours)
        os.close(its)


def test_progress_is_shown_on_a_terminal_and_nowhere_else(house):
    status, out, err = with_terminal(house, "simulate", "--for", "4d")
    assert status == ALL_FOUND
    assert re.search(r"\r50 %.*\r75 %", err) and err.endswith("\r\x1b[K"), err
    assert b"%" not in out
    status, _, err = run(house, "-f", "-", "--json", "simulate", "--for", "4d", input=b"{}")
    assert status == ALL_FOUND and "%" not in err


def bars_on_terminal(house, **environment):
    return on_terminal(house, 80, "/run/bin/horactl", *AT, "week", **TZ, **environment)


@pytest.mark.parametrize("environment, coloured", [({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False)])
def test_bars_have_colours_on_a_terminal_where_nobody_forbids_them(household, environment, coloured):
    assert ("\x1b[" in bars_on_terminal(household, **environment)) == coloured


@pytest.mark.parametrize("locale, plain", [("C.UTF-8", False), ("C", True), ("no_SUCH.UTF-8", True)])
def test_bars_are_made_of_what_the_locale_can_show(household, locale, plain):
    bars = bars_on_terminal(household, LC_ALL=locale, NO_COLOR="1")
    assert bars.isascii() == plain
    assert "WLAN on" in bars
