"""cfgctl cluster: members are made, looked at and taken out, with the real tools of the database."""

import json
import os
import re
from pathlib import Path

import pytest

from house import is_sanitized, wait_until
from members import Member, Members, cluster_schema
from refusals import refused_cfgctl as refused

FIRST = "tcp:127.0.0.1:6641"
SECOND = "tcp:127.0.0.1:6642"
NO_LEAK_CHECK = {"ASAN_OPTIONS": "detect_leaks=0"}  # it can't be made under a tracer


def make(house, member, *command):
    return house.cfgctl("cluster", *command[:1], member.folder, member.address, *command[1:])


def status(house, member):
    return house.cfgctl("cluster", "status", member.folder)


def script(house, path, lines):
    """A program that stands in for another one."""
    file = Path(house.path(path))
    file.unlink(missing_ok=True)
    file.write_text(f"#!/bin/sh\n{lines}\n")
    file.chmod(0o755)


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


def test_a_slash_behind_the_folder_changes_nothing(house):
    said = house.cfgctl("cluster", "create", "/tmp/member/", FIRST)
    assert "/tmp/member/db.sock" in said and "//" not in said
    assert "does not run" in refused(house, "cluster", "status", "/tmp/member//")


def test_the_member_in_the_usual_folder_is_started_by_its_unit(house):
    assert house.run("mount", "-t", "tmpfs", "tmpfs", "/var/lib")[0] == 0
    said = house.cfgctl("cluster", "create", "/var/lib/horad-cluster", FIRST)
    assert said.endswith(" Start it:\n  systemctl enable --now horad-cluster\n")


def test_a_folder_that_leads_nowhere_is_told(house):
    house.run("ln", "-s", "/tmp/nowhere", "/tmp/link")
    assert "/tmp/link: No such file or directory" in refused(house, "cluster", "create", "/tmp/link", FIRST)


@pytest.mark.parametrize("first, second, reason", [("mystery", "", "mystery"), ("unknown cluster", "a further mystery", "a further mystery")])
def test_what_a_member_says_that_nobody_expects_is_passed_on(house, first, second, reason):
    house.cfgctl("cluster", "create", "/tmp/member", FIRST)
    script(house, "/tmp/ovs-appctl",
           f'case "$*" in *cluster/status*) echo "{first}" ;; *) echo "{second}" ;; esac >&2\nexit 2')
    status, _, err = house.run("cfgctl", "cluster", "status", "/tmp/member", env={"PATH": "/tmp:/run/bin:/usr/bin:/bin"})
    assert (status, err) == (1, f"cfgctl: {reason}\n")


def test_a_disk_that_is_full_leaves_no_half_of_a_file(house):
    house.run("sh", "-c", "mkdir /tmp/full && mount -t tmpfs -o size=4k tmpfs /tmp/full && cat /dev/zero > /tmp/full/zeros")
    assert "No space left on device" in refused(house, "cluster", "create", "/tmp/full", FIRST)
    assert not os.path.exists(house.path("/tmp/full/member.db"))


@pytest.mark.parametrize("call, error, said", [
    ("memfd_create", "EMFILE", "the schema: Too many open files"), ("?pipe,pipe2", "EMFILE", "pipe: Too many open files"),
    ("?fork,clone", "EAGAIN", "cfgserver: Resource temporarily unavailable")])
def test_what_the_system_refuses_is_told_and_nothing_is_made(house, call, error, said):
    if "pipe" in call and is_sanitized("cfgctl"):
        pytest.skip("the sanitizers look at an exception with a pipe")
    status, out, err = house.run("strace", "-o", "/dev/null", "-e", f"trace={call}", "-e", f"inject={call}:error={error}",
                                 "/run/bin/cfgctl", "cluster", "create", "/tmp/member", FIRST, env=NO_LEAK_CHECK)
    assert (status, out, err) == (1, "", f"cfgctl: {said}\n")
    assert os.listdir(house.path("/tmp/member")) == []


@pytest.mark.parametrize("program, lines, said", [
    ("cfgserver", "exec sleep 1000", "cfgserver does not say the schema"),
    ("ovsdb-tool", 'echo half > "$2"; exec sleep 1000', "/tmp/member/member.db: it was not made in time")])
def test_a_program_that_comes_to_no_end_is_told_and_nothing_is_left(house, program, lines, said):
    assert house.run("sh", "-c", "mkdir /tmp/bin && cp /run/bin/cfgctl /run/bin/cfgserver /tmp/bin")[0] == 0
    script(house, f"/tmp/bin/{program}", lines)
    status, out, err = house.run("/tmp/bin/cfgctl", "cluster", "create", "/tmp/member", FIRST)
    assert (status, out, err) == (1, "", f"cfgctl: {said}\n")
    assert os.listdir(house.path("/tmp/member")) == []


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


# Two people leave with it, say: the second one waits for what the first one has begun.
def test_a_member_that_is_leaving_already_is_waited_for(house):
    house.cfgctl("cluster", "create", "/tmp/member", FIRST)
    leaving = "\n".join(["Server ID: f904 (f904f904)", "Cluster ID: 5595 (55955595)", f"Address: {FIRST}", "Status: leaving cluster",
                         "Role: leader", "Term: 3", "Leader: self", "Log: [2, 15]", "Election timer: 1000", "Entries not yet committed: 1",
                         "Entries not yet applied: 0", "Connections: ", "Servers:", f"    f904 (f904 at {FIRST}) (self)"])
    script(house, "/tmp/ovs-appctl", f"""echo "$*" >> /tmp/asked
case "$*" in
*cluster/status*) [ $(grep -c cluster/status /tmp/asked) -gt 3 ] && echo "unknown cluster" >&2 && exit 2; echo f904; echo "{leaving}" ;;
*list-dbs*) echo _Server ;;
*) echo "leaves already" >&2; exit 2 ;;
esac""")
    status, out, err = house.run("cfgctl", "cluster", "leave", "/tmp/member", env={"PATH": "/tmp:/run/bin:/usr/bin:/bin"})
    assert (status, err) == (0, "") and f"The member at {FIRST} has left its cluster." in out
    asked = Path(house.path("/tmp/asked")).read_text().splitlines()
    assert [line.split()[2] for line in asked] == ["cluster/status"] * 4 + ["ovsdb-server/list-dbs"]


# --- the words ---


@pytest.mark.parametrize("command, words", [
    ([], "a command is required behind cluster"), (["mak"], "unknown command: cluster mak"), (["create"], "DIR is required"),
    (["create", "/tmp/x"], "LOCAL is required"), (["join", "/tmp/x", FIRST], "REMOTE"), (["leave"], "DIR is required")])
def test_wrong_use_is_told(house, command, words):
    code, out, err = house.run("cfgctl", "cluster", *command)
    assert (code, out) == (2, "") and words in err, err
