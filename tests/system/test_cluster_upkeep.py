"""What the owner of a cluster does with it: a member is replaced, the schema grows, relays stand in between."""

import json

import pytest

from devices import UNKNOWN, UNREACHABLE, Device, rows_of, wait_same
from house import wait_until
from members import Members, cluster_schema, relay, write_schema

ROOMS = "CREATE TABLE Rooms (Id INTEGER PRIMARY KEY, Room TEXT NOT NULL DEFAULT '' SHARED{});\n"
DEGREES = ", Degrees INTEGER(0, 30) NOT NULL DEFAULT 20 SHARED"


# --- a member is replaced ---


def seen(house, member):
    """The members that this one tells of: their names in the cluster, by address."""
    told = json.loads(house.cfgctl("cluster", "status", "--json", member.folder))
    return {row["address"]: row["member"] for row in told["members"]}


def test_a_member_that_is_lost_is_kicked_and_its_place_joins_anew(house):
    members = Members(house, cluster_schema(house))
    lost = members.leader()
    others = members.followers()
    devices = [Device(house, "near", [lost, *others]).start(), Device(house, "far", others).start()]
    plan = devices[0].add("WlanTimePlans", TimePlanName="Before")
    members.wait_equal("WlanTimePlans")
    lost.kill()
    lost.damage("OVSDB CLUSTER")
    devices[0].eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Without")

    leader, (asked,) = members.leader(), members.followers()
    name = seen(house, asked)[lost.address]
    status, _, err = house.run("ovs-appctl", "-t", f"{asked.folder}/member.ctl", "cluster/kick", "horad", name)
    assert status == 0, err
    wait_until(lambda: all(lost.address not in seen(house, member) for member in others), "the end of the lost member")
    assert house.run("rm", lost.file)[0] == 0
    house.cfgctl("cluster", "join", lost.folder, lost.address, *(member.address for member in others))
    lost.start()
    lost.wait_connected()

    assert members.wait_equal("WlanTimePlans") and rows_of(members) == {plan: "Without"}
    leader.kill()  # the new one counts: without it there is no majority now
    for device in devices:
        device.eventually("set", f"WlanTimePlans.{plan}", f"TimePlanName=By {device.name}")
    leader.start()
    leader.wait_connected()
    assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == "By far"
    assert rows_of(members) == {plan: "By far"}


# --- rows that a device refuses ---


def test_a_row_that_a_device_refuses_blocks_nothing_and_can_be_replaced(house):
    """As a device of another firmware, or a hand with ovsdb-client, may have left it in the cluster."""
    members = Members(house, cluster_schema(house), count=1)
    device = Device(house, "old", list(members)).start()
    plan = device.add("WlanTimePlans", TimePlanName="Night")
    household = device.cfgctl("dump")
    members[0].commit({"op": "insert", "table": "WlanTimePlans", "row": {"Id": 77, "StartMon": "99:99:99"}},
                      {"op": "update", "table": "AutoReboot", "where": [], "row": {"WeekDay": 9}})
    device.server.err.wait('WlanTimePlans.77 StartMon: "99:99:99" is not a time of day')
    device.server.err.wait("AutoReboot WeekDay: 9 is not")

    device.set(f"WlanTimePlans.{plan}", TimePlanName="Late")
    device.cfgctl("load", "-", input=household.encode())  # it waits for the whole table
    assert device.get(f"WlanTimePlans.{plan}", "TimePlanName") == "Night"
    device.set("AutoReboot", WeekDay=3)

    assert members[0].dump("AutoReboot")[0]["WeekDay"] == 3
    assert sorted(row["Id"] for row in members[0].dump("WlanTimePlans")) == [plan, 77]
    assert device.names() == {plan: "Night"}


# --- the schema grows ---


@pytest.fixture
def rooms(house):
    """The files of a schema and of the next one, which shares a column more."""
    paths = {"old": ROOMS.format(""), "new": ROOMS.format(DEGREES)}
    for name, text in paths.items():
        with open(house.path(f"/tmp/{name}.sql"), "w") as file:
            file.write(text)
    return [("--schema", f"/tmp/{name}.sql") for name in paths]


def test_a_cluster_is_converted_before_a_firmware_that_shares_a_column_more(house, rooms):
    old, new = rooms
    members = Members(house, cluster_schema(house, *old))
    older = Device(house, "older", members, *old).start()
    room = older.add("Rooms", Room="Kitchen")
    updated = Device(house, "updated", members, *new).start(following=False)
    updated.server.err.wait("can't be followed.*there is no column Rooms.Degrees")
    assert UNREACHABLE in updated.refused("add", "Rooms", "Room=Hall")

    path = write_schema(house, cluster_schema(house, *new))
    remotes = ",".join(member.remote for member in members)
    status, _, err = house.run("ovsdb-client", "convert", remotes, path)
    assert status == 0, err
    updated.follow()
    assert updated.get(f"Rooms.{room}", "Room") == "Kitchen" and updated.get(f"Rooms.{room}", "Degrees") == "0"
    updated.eventually("set", f"Rooms.{room}", "Degrees=22", "Room=Bath")
    wait_until(lambda: older.get(f"Rooms.{room}", "Room") == "Bath", "the change at the older device")
    older.eventually("set", f"Rooms.{room}", "Room=Cellar")
    wait_until(lambda: updated.get(f"Rooms.{room}", "Room") == "Cellar", "the older device's change")
    assert updated.get(f"Rooms.{room}", "Degrees") == "22"
    added = older.add("Rooms", Room="Attic")
    wait_until(lambda: updated.run("get", f"Rooms.{added}", "Room")[1] == "Attic\n", "the older device's row")
    assert updated.get(f"Rooms.{added}", "Degrees") == "0"


# --- a relay in between ---


def test_a_store_that_follows_through_a_relay_follows_again_when_the_relay_was_started_anew(house):
    members = Members(house, cluster_schema(house))
    between = relay(house, members)
    between.wait_connected()
    device, other = Device(house, "device", members).start(), Device(house, "other", members).start()
    plan = device.add("WlanTimePlans", TimePlanName="Before")
    device.stop()
    device.turn_to(between)
    device.start()
    device.set(f"WlanTimePlans.{plan}", TimePlanName="Through")
    other.wait_name(plan, "Through")
    assert rows_of(members) == {plan: "Through"}

    between.kill()
    other.set(f"WlanTimePlans.{plan}", TimePlanName="Meanwhile")
    assert UNREACHABLE in device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Refused")
    assert device.names() == {plan: "Through"}
    followed = len(device.server.err.seen)
    between.start()
    device.follow(followed)
    device.wait_name(plan, "Meanwhile")
    other.set(f"WlanTimePlans.{plan}", TimePlanName="Arrives")
    device.wait_name(plan, "Arrives")
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Back")
    other.wait_name(plan, "Back")
    assert rows_of(members) == {plan: "Back"}


def test_a_relay_that_is_behind_takes_a_device_back_until_it_has_caught_up_and_no_change_of_a_newer_row_is_taken(house):
    members = Members(house, cluster_schema(house))
    behind = members.followers()[0]
    between = relay(house, [behind])
    between.wait_connected()
    device = Device(house, "device", [member for member in members if member is not behind]).start()
    plan = device.add("WlanTimePlans", TimePlanName="Older")
    wait_until(lambda: [row["TimePlanName"] for row in between.dump("WlanTimePlans")] == ["Older"], "the plan at the relay")
    behind.freeze()
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Newer")
    device.stop()
    device.turn_to(between)
    device.start()
    assert device.names() == {plan: "Older"}
    err = device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=On the old one")
    assert UNKNOWN in err or UNREACHABLE in err
    behind.thaw()
    device.wait_name(plan, "Newer")
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Newest")
    assert rows_of(members) == {plan: "Newest"}
