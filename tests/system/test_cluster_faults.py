"""Stores of a cluster that is cut off, stale, another one, seeded twice, changed, damaged or full."""

import json
import threading

import pytest

from devices import UNKNOWN, UNREACHABLE, Device, rows_of, wait_same
from disk import FailingCalls
from house import wait_until
from members import Member, Members, cluster_schema
from test_cluster_commits import thaw


@pytest.fixture
def schema(house):
    return cluster_schema(house)


@pytest.fixture
def members(house, schema):
    return Members(house, schema)


@pytest.fixture
def devices(house, members):
    """One for each member, which it tries first."""
    return [Device(house, f"device{number}", members[number:] + members[:number]).start() for number in range(3)]


# --- cut off ---


def test_a_device_that_is_cut_off_goes_on_by_its_plans_for_a_week_and_then_has_what_the_others_have(house, members):
    other = Device(house, "other", members).start()
    alone = Device(house, "alone", [members[0]])
    alone.socket = "/tmp/cfgserver.socket"  # where horad looks
    alone.start()
    evening = alone.add("WlanTimePlans", TimePlanName="Evening", StartFri="18:00", StopFri="23:00")
    gone = alone.add("WlanTimePlans", TimePlanName="Gone", StartSat="08:00", StopSat="09:00")
    other.wait_name(gone, "Gone")
    members[0].kill()
    other.follow(1)
    other.eventually("remove", f"WlanTimePlans.{gone}")
    other.eventually("set", f"WlanTimePlans.{evening}", "StopFri=22:00")
    added = other.add("TimePlans", TimePlanName="Added")

    alone.kill()
    alone.start(following=False)
    daemon = house.horad("-t", "WlanTimePlans", at="2026-12-04 17:59:58", tz="Europe/Berlin")
    wait_until(lambda: alone.get("WlanGlobals", "WlanEnable") == "1", "the WLAN on a Friday evening")
    daemon.stop()
    daemon = house.horad("-t", "WlanTimePlans", at="2026-12-11 22:59:58", tz="Europe/Berlin")
    wait_until(lambda: alone.get("WlanGlobals", "WlanEnable") == "0", "the WLAN off a week later")
    assert alone.get(f"WlanTimePlans.{evening}", "TimePlanStatus") == "0"
    for change in (["set", f"WlanTimePlans.{evening}", "Activate=0"], ["add", "TimePlans", "TimePlanName=x"],
                   ["remove", f"WlanTimePlans.{gone}"]):
        assert UNREACHABLE in alone.refused(*change)

    members[0].start()
    alone.follow()
    same = wait_same([alone, other])
    assert [row["Id"] for row in same["WlanTimePlans"]] == [evening] and same["WlanTimePlans"][0]["StopFri"] == "22:00"
    assert [row["Id"] for row in same["TimePlans"]] == [added]
    alone.set(f"WlanTimePlans.{evening}", Activate=0)


# --- the wrong member ---


def test_a_stale_member_is_not_followed_and_the_next_one_is_tried(house, members):
    device = Device(house, "device", members[:1] + members[2:]).start()
    plan = device.add("WlanTimePlans", TimePlanName="Old")
    members.wait_equal("WlanTimePlans")
    stale = members[1]
    stale.kill()
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=New")
    device.stop()
    members[0].kill()
    members[2].kill()
    stale.start()  # alone: it can't catch up
    device.turn_to(stale, members[0])
    device.start(following=False)
    device.server.err.wait("the cluster can't be followed at " + stale.remote)
    assert device.names() == {plan: "New"}
    members[0].start()
    device.follow()
    assert device.names() == {plan: "New"} == rows_of(members)


def test_another_cluster_is_refused_and_the_tables_stay(house, members, schema):
    device = Device(house, "device", members).start()
    plan = device.add("WlanTimePlans", TimePlanName="Ours")
    device.stop()
    strange = Member(house, "strange")
    strange.create("/tmp/members/schema")
    strange.start().wait_connected()
    other = Device(house, "other", [strange]).start()
    for _ in range(5):  # it has come further than ours
        other.add("WlanTimePlans", TimePlanName="Theirs")
    device.turn_to(strange)
    device.start(following=False)
    device.server.err.wait("is of another cluster than the one that this device follows")
    assert device.names() == {plan: "Ours"}
    assert UNREACHABLE in device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=x")
    assert set(other.names().values()) == {"Theirs"}


# --- seeding ---


def household_of(name):
    return json.dumps({"WlanTimePlans": [{"Id": number, "TimePlanName": f"{name} {number}"} for number in range(1, 6)],
                       "WlanGlobals": {"WlanEnable": 1}})


def racing(house, members, **how):
    """Three devices with rows of their own, on a cluster that is empty."""
    devices = [Device(house, f"device{number}", members[number:] + members[:number]) for number in range(3)]
    for device in devices:
        device._remotes, kept = [], device._remotes
        device.start(following=False)
        device.cfgctl("load", "-", input=household_of(device.name).encode())
        device.stop()
        device._remotes = kept
    return devices


def test_of_three_devices_that_seed_at_once_one_wins_and_the_others_keep_a_copy_of_what_they_had(house, members):
    devices = racing(house, members)
    starts = [threading.Thread(target=device.start) for device in devices]
    for start in starts:
        start.start()
    for start in starts:
        start.join()
    names = {row["TimePlanName"].split()[0] for row in wait_same(devices)["WlanTimePlans"]}
    assert len(names) == 1
    for device in devices:
        kept = house.run("test", "-e", f"{device.database}.before-cluster")[0] == 0
        assert kept == (device.name not in names)
        assert device.get("WlanGlobals", "WlanEnable") == "1"  # each one's own
    loser = next(device for device in devices if device.name not in names)
    house.run("cp", f"{loser.database}.before-cluster", "/tmp/copy.db")
    copy = Device(house, "copy", []).start(following=False)
    assert {name.split()[0] for name in copy.names().values()} == {loser.name}


@pytest.mark.parametrize("step", [5, 10, 15, 20])
def test_a_seeder_that_is_killed_leaves_all_of_its_rows_or_none(house, members, step):
    seeder, second, _ = racing(house, members)
    house.start("strace", "-f", "-o", "/dev/null", "-e", "trace=sendto,pwrite64,fdatasync", "-e",
                f"inject=sendto,pwrite64,fdatasync:signal=KILL:when={step}", "/run/bin/cfgserver", "-s", seeder.socket, "-f",
                seeder.database, "--cluster", members[0].remote).wait()
    second.start()
    assert len(second.names()) == 5 and len({name.split()[0] for name in second.names().values()}) == 1
    seeder.start()
    assert len(wait_same([seeder, second])["WlanTimePlans"]) == 5


# --- the schema ---


def test_a_schema_that_grows_during_commits_is_followed_by_a_device_that_does_not_know_it(house, members, devices, schema):
    device, other, _ = devices
    plan = device.add("WlanTimePlans", TimePlanName="Before")
    grown = json.loads(schema)
    grown["version"] = "1.1.0"
    grown["tables"]["WlanTimePlans"]["columns"]["Colour"] = {"type": "string"}
    grown["tables"]["LightTimePlans"] = {"columns": {"Id": {"type": "integer", "mutable": False}}, "isRoot": True}
    with open(house.path("/tmp/grown"), "w") as file:
        json.dump(grown, file)
    over = threading.Event()
    answers = []

    def load():
        while not over.is_set():
            answers.append(device.run("set", f"WlanTimePlans.{plan}", f"TimePlanName=Name {len(answers)}"))

    loading = threading.Thread(target=load)
    loading.start()
    wait_until(lambda: len(answers) > 3, "commits")
    status, _, err = house.run("ovsdb-client", "convert", members.leader().remote, "/tmp/grown")
    before = len(answers)
    wait_until(lambda: any(answer[0] == 0 for answer in answers[before + 1:]), "commits again")
    over.set()
    loading.join()
    assert status == 0, err
    assert all(code == 0 or UNREACHABLE in err or UNKNOWN in err for code, _, err in answers), answers
    assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == rows_of(members)[plan]
    other.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=After")
    device.wait_name(plan, "After")


def test_a_member_whose_schema_lacks_a_column_is_not_followed_and_the_line_says_which(house, schema):
    older = json.loads(schema)
    del older["tables"]["WlanTimePlans"]["columns"]["Activate"]
    members = Members(house, older, 1)
    device = Device(house, "device", members).start(following=False)
    device.server.err.wait("can't be followed.*Activate")
    assert UNREACHABLE in device.refused("add", "WlanTimePlans", "TimePlanName=x")
    device.set("WlanGlobals", WlanEnable=1)


# --- disks ---


def test_a_member_whose_disk_is_full_is_left_for_another_one(house, members, schema):
    full = members.leader()
    others = [member for member in members if member is not full]
    device = Device(house, "device", [full, *others]).start()
    plan = device.add("WlanTimePlans", TimePlanName="Before")
    failing = FailingCalls(house, full, "write,pwrite64,writev", path=full.file, error="ENOSPC")
    device.run("set", f"WlanTimePlans.{plan}", "TimePlanName=During")
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=After")
    assert all({row["TimePlanName"] for row in member.dump("WlanTimePlans")} == {"After"} for member in others)
    failing.end()
    full.kill()
    full.start()
    full.wait_connected()
    assert rows_of(members) == {plan: "After"} == device.names()


@pytest.mark.parametrize("behind", ["OVSDB CLUSTER", '"TimePlanName":"Second"'])
def test_a_member_whose_file_is_damaged_takes_nothing_from_the_others(house, members, devices, behind):
    """Where the log is damaged it starts without what follows, and is told that again; where the beginning is, it does
    not start."""
    damaged = members.followers()[0]
    for name in ("First", "Second", "Third"):
        devices[0].add("WlanTimePlans", TimePlanName=name)
    members.wait_equal("WlanTimePlans")
    damaged.kill()
    damaged.damage(behind)
    for device in devices:
        device.eventually("add", "WlanTimePlans", f"TimePlanName={device.name}")
    if behind == "OVSDB CLUSTER":
        status, _, err = house.run("ovsdb-server", "-vsyslog:off", f"--unixctl={damaged.folder}/other.ctl", damaged.file)
        assert status != 0 and "SHA-1" in err, err
    else:
        damaged.start()
        damaged.log.wait("SHA-1")
        damaged.wait_connected()
    names = {row["TimePlanName"] for row in wait_same(devices)["WlanTimePlans"]}
    assert names == {"First", "Second", "Third", *(device.name for device in devices)} == set(rows_of(members).values())


def test_a_device_whose_disk_is_full_keeps_nothing_half_and_catches_up(house, members, devices):
    device, other, _ = devices
    plan = other.add("WlanTimePlans", TimePlanName="Before")
    device.wait_name(plan, "Before")
    failing = FailingCalls(house, device.server, "pwrite64", path=device.database + "-wal", error="ENOSPC")
    for number in range(5):
        other.set(f"WlanTimePlans.{plan}", TimePlanName=f"During {number}")
    device.server.err.wait("can't be applied, it is tried again")
    assert device.names() == {plan: "Before"}
    err = device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Own")
    failing.end()
    wait_until(lambda: device.names()[plan] in ("During 4", "Own"), "what came meanwhile")
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=After")
    assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == "After", err


# --- left ---


def device_names(members):
    return {row["Name"] for row in members[0].dump("Devices")}


def leave(house, device, *members):
    device.stop()
    remotes = [word for member in members for word in ("--cluster", member.remote)]
    return house.run("cfgserver", "--leave-cluster", "-f", device.database, *remotes)


def test_a_device_that_leaves_keeps_its_tables_and_nothing_of_it_stays_behind(house, members):
    device, other = (Device(house, name, members).start() for name in ("device", "other"))
    plan = device.add("WlanTimePlans", TimePlanName="Evening")
    name, = device_names(members)
    other.wait_name(plan, "Evening")
    other.set(f"WlanTimePlans.{plan}", TimePlanName="Night")
    members[0].commit({"op": "insert", "table": "Reserved", "row": {"Table": "WlanTimePlans", "Id": 7, "Device": name}})
    others = device_names(members) - {name}
    assert len(others) == 1
    status, out, err = leave(house, device, *members)
    assert (status, out) == (0, "") and "has left the cluster" in err, err
    assert device_names(members) == others
    assert members[0].dump("Reserved") == []

    device.turn_to()
    device.start(following=False)
    assert device.names() == {plan: "Night"} and not device.logged("follows no cluster any more")
    device.set(f"WlanTimePlans.{plan}", TimePlanName="Alone")
    device.stop()
    assert rows_of(members) == {plan: "Night"}
    device.turn_to(*members)
    device.start()
    assert device.names() == {plan: "Night"}


def test_leaving_is_refused_while_the_cluster_is_away_and_can_be_tried_again(house, members):
    device = Device(house, "device", members).start()
    plan = device.add("WlanTimePlans", TimePlanName="Evening")
    for member in members[1:]:
        member.freeze()
    status, out, err = leave(house, device, *members)
    assert (status, out) == (1, "") and "can't leave the cluster: the cluster can't be reached" in err, err
    thaw(members)
    device.start()  # as a device of the cluster
    assert leave(house, device, *members)[0] == 0
    assert device_names(members) == set()
    assert rows_of(members) == {plan: "Evening"}


def test_who_follows_no_cluster_can_leave_none_and_makes_no_row_there(house, members):
    device = Device(house, "device", []).start(following=False)
    device.add("WlanTimePlans", TimePlanName="Own")
    status, out, err = leave(house, device, *members)
    assert (status, out) == (1, "") and "can't leave the cluster: this device follows none" in err, err
    assert device_names(members) == set() and rows_of(members) == {}
    device.start(following=False)
    assert set(device.names().values()) == {"Own"} and not device.logged("follows no cluster any more")


def test_a_store_that_runs_is_not_taken_out(house, members):
    device = Device(house, "device", members).start()
    status, out, err = house.run("cfgserver", "--leave-cluster", "-f", device.database, "--cluster", members[0].remote)
    assert (status, out) == (1, "") and device.database in err, err
    device.add("WlanTimePlans", TimePlanName="Evening")
