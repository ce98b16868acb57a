"""cfgctl cluster: members are made, looked at and taken out, with the real tools of the database."""

import json
import os
import re
from pathlib import Path

import pytest

from house import wait_until
from members import Member, Members, cluster_schema
from refusals import refused_cfgctl as refused

FIRST = "tcp:127.0.0.1:6641"
SECOND = "tcp:127.0.0.1:6642"


def make(house, member, *command):
    return house.cfgctl("cluster", *command[:1], member.folder, member.address, *command[1:])


def status(house, member):
    return house.cfgctl("cluster", "status", member.folder)


def states(house, member):
    """What the member says of each of the others, and of itself, by address."""
    lines = status(house, member).splitlines()
    rows = [line.split(maxsplit=2) for line in lines[lines.index("") + 2:]]
    return {address: state for _, address, state in rows}


def say(house, member, pattern):
    """Waits until the status has it."""
    return wait_until(lambda: re.search(pattern, status(house, member)), f"{pattern!r} of member {member.name}")


@pytest.fixture
def schema(house):
    return cluster_schema(house)


@pytest.fixture
def members(house, schema):
    return Members(house, schema)


# --- making them ---


def test_members_that_it_makes_form_a_cluster(house):
    first, second = Member(house, 1), Member(house, 2)
    assert "first member of a new cluster" in make(house, first, "create")
    first.start().wait_connected()
    assert "joins a cluster once it runs" in make(house, second, "join", first.address)
    second.start().wait_connected()
    second.commit({"op": "insert", "table": "WlanTimePlans", "row": {"Id": 1}})
    assert len(first.dump("WlanTimePlans")) == 1
    assert states(house, first) == {first.address: "this member, leads", second.address: "follows, has everything"}
    assert states(house, second) == {first.address: "leads", second.address: "this member"}


def test_it_says_how_a_member_is_started_that_then_runs(house):
    said = house.cfgctl("cluster", "create", "/tmp/new", FIRST)
    command = said.splitlines()[-1].split()
    house.start(*command)
    wait_until(lambda: house.run("cfgctl", "cluster", "status", "/tmp/new")[0] == 0, "the start of the member")


def test_tables_of_another_schema_file_are_shared_too(house):
    Path(house.path("/tmp/more.sql")).write_text(
        "CREATE TABLE LightTimePlans (Id INTEGER PRIMARY KEY, TimePlanName TEXT NOT NULL DEFAULT '' SHARED);\n")
    member = Member(house, 1)
    house.cfgctl("cluster", "create", "--schema", "/tmp/more.sql", member.folder, member.address)
    member.start().wait_connected()
    assert member.dump("LightTimePlans") == []
    assert "/tmp/none.sql" in refused(house, "cluster", "create", "--schema", "/tmp/none.sql", "/tmp/members/2", SECOND)


def test_the_file_belongs_to_the_owner_of_the_folder(house):
    if os.geteuid() != 0:
        pytest.skip("only root can act as somebody else")
    house.run("install", "-d", "-o", "nobody", "-g", "nogroup", "/tmp/theirs")
    house.cfgctl("cluster", "create", "/tmp/theirs", FIRST)
    assert os.stat(house.path("/tmp/theirs/member.db")).st_uid == os.stat(house.path("/tmp/theirs")).st_uid != 0


@pytest.mark.parametrize("address", ["", "tcp:", "192.168.1.2:6641", "tcp:192.168.1.2", "tcp:192.168.1.2:", "tcp:192.168.1.2:0",
                                     "tcp:192.168.1.2:65536", "tcp:192.168.1:6641", "tcp:router:6641", "udp:192.168.1.2:6641",
                                     "tcp:0.0.0.0:6641", "tcp:[::]:6641", "tcp:fd00::2:6641", "tcp:[fd00::2:6641", "unix:/tmp/socket"])
def test_what_is_no_address_of_a_member_is_wrong_use(house, address):
    for command in (["create", "/tmp/member", address], ["join", "/tmp/member", address, FIRST],
                    ["join", "/tmp/member", FIRST, SECOND, address]):
        code, out, err = house.run("cfgctl", "cluster", *command)
        assert (code, out) == (2, "") and "is not the address of a member, as in tcp:192.168.1.2:6641" in err, err
    assert not os.path.exists(house.path("/tmp/member"))


def test_an_address_of_ipv6_is_taken(house):
    house.cfgctl("cluster", "create", "/tmp/member", "tcp:[fd00::2]:6641")


def test_a_member_does_not_ask_itself(house):
    code, _, err = house.run("cfgctl", "cluster", "join", "/tmp/member", FIRST, SECOND, FIRST)
    assert code == 2 and "is this member's own address" in err


def test_what_lies_in_the_place_of_a_member_stays_there(house):
    house.cfgctl("cluster", "create", "/tmp/member", FIRST)
    before = Path(house.path("/tmp/member/member.db")).read_bytes()
    for command in (["create", "/tmp/member", FIRST], ["join", "/tmp/member", SECOND, FIRST]):
        assert "/tmp/member/member.db is there already" in refused(house, "cluster", *command)
    assert Path(house.path("/tmp/member/member.db")).read_bytes() == before
    assert "/tmp/none/member: No such file or directory" in refused(house, "cluster", "create", "/tmp/none/member", FIRST)
    Path(house.path("/tmp/file")).write_text("")
    assert "/tmp/file is no folder" in refused(house, "cluster", "create", "/tmp/file", FIRST)


def test_a_disk_that_is_full_leaves_no_half_of_a_file(house):
    house.run("sh", "-c", "mkdir /tmp/full && mount -t tmpfs -o size=4k tmpfs /tmp/full && cat /dev/zero > /tmp/full/zeros")
    assert "No space left on device" in refused(house, "cluster", "create", "/tmp/full", FIRST)
    assert not os.path.exists(house.path("/tmp/full/member.db"))


def test_what_is_not_installed_is_told_with_its_package(house):
    for command, program in ((["create", "/tmp/a", FIRST], "ovsdb-tool"), (["join", "/tmp/b", FIRST, SECOND], "ovsdb-tool")):
        status, _, err = house.run("cfgctl", "cluster", *command, env={"PATH": "/run/bin"})
        assert status == 1 and f"{program} is not installed (it comes with the package openvswitch-common)" in err
    house.cfgctl("cluster", "create", "/tmp/member", FIRST)
    status, _, err = house.run("cfgctl", "cluster", "status", "/tmp/member", env={"PATH": "/run/bin"})
    assert status == 1 and "ovs-appctl is not installed" in err


# --- looking at them ---


def test_the_leader_says_who_is_not_connected(house, members):
    leader, lost = members.leader(), members.followers()[0]
    lost.kill()
    say(house, leader, rf"{re.escape(lost.address)} +not connected, silent for \d+ s")
    told = {row["address"]: row for row in json.loads(house.cfgctl("cluster", "status", leader.folder, "--json"))["members"]}
    assert told[lost.address]["connected"] is False
    assert sum(row["connected"] for row in told.values()) == 2


def test_without_a_majority_it_says_that_nothing_can_be_changed(house, members):
    alone, *others = members
    for member in others:
        member.kill()
    say(house, alone, "can't reach a majority: what is there is read on, and nothing can be changed")
    assert "can't reach a majority, which would have to agree" in refused(house, "cluster", "leave", alone.folder)


def test_a_member_that_does_not_run_or_does_not_answer_is_told(house, members):
    stopped, frozen, _ = members
    stopped.stop()
    frozen.freeze()
    assert f"the member of {stopped.folder} does not run" in refused(house, "cluster", "status", stopped.folder)
    assert f"the member of {frozen.folder} runs, and does not answer" in refused(house, "cluster", "status", frozen.folder)
    assert "/tmp/none/member.db: No such file or directory" in refused(house, "cluster", "status", "/tmp/none")


def test_a_member_whose_disk_is_full_is_told(house, schema):
    member = Member(house, 1)
    assert house.run("mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", member.folder)[0] == 0
    make(house, member, "create")
    member.start().wait_connected()
    house.run("sh", "-c", f"cat /dev/zero > {member.folder}/zeros")
    house.start("ovsdb-client", "transact", member.remote,
                json.dumps(["horad", {"op": "insert", "table": "WlanTimePlans",
                                      "row": {"Id": 1, "TimePlanName": "x" * 5000}}]))
    member.log.wait("No space left on device")
    for command in ("status", "leave"):
        assert "could not write and answers nobody: its log says why. Is the disk full?" in refused(
            house, "cluster", command, member.folder)


# --- taking them out ---


def test_a_member_leaves_and_the_others_go_on(house, members):
    leader = members.leader()
    assert f"The member at {leader.address} has left its cluster" in house.cfgctl("cluster", "leave", leader.folder)
    for command in ("status", "leave"):
        assert "has left its cluster" in refused(house, "cluster", command, leader.folder)
    others = [member for member in members if member is not leader]
    for member in others:
        say(house, member, "(leads|follows .*)[.]\n")
        assert set(states(house, member)) == {other.address for other in others}
        member.commit({"op": "insert", "table": "WlanTimePlans", "row": {"Id": member.number}})


def test_the_only_member_cant_leave(house):
    member = Member(house, 1)
    make(house, member, "create")
    member.start().wait_connected()
    assert "it is the only member" in refused(house, "cluster", "leave", member.folder)
    assert states(house, member) == {member.address: "this member, leads"}


def test_a_member_that_joins_says_whom_it_asks(house):
    member = Member(house, 1)
    make(house, member, "join", FIRST)
    member.start()
    assert f"waits to be let into a cluster by {FIRST}." in status(house, member)
    assert "has not joined yet" in refused(house, "cluster", "leave", member.folder)


# --- the words ---


@pytest.mark.parametrize("command, words", [
    ([], "a command is required behind cluster"), (["mak"], "unknown command: cluster mak"), (["create"], "DIR is required"),
    (["create", "/tmp/x"], "LOCAL is required"), (["join", "/tmp/x", FIRST], "REMOTE"), (["leave"], "DIR is required")])
def test_wrong_use_is_told(house, command, words):
    code, out, err = house.run("cfgctl", "cluster", *command)
    assert (code, out) == (2, "") and words in err, err
