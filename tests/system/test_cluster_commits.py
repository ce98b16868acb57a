"""Stores that share tables through real members: what is committed, what is refused, and what a failure in between leaves.

`--fire N` makes the tests under load N times as long.
"""

import itertools
import signal
import struct
import threading
import time

import pytest

from devices import UNKNOWN, UNREACHABLE, Device, Load, rows_of, wait_same
from house import DEADLINE, fast_clock, wait_until
from members import Members, cluster_schema
from wire import CONFLICT, DONE, INSERT, result_code, text

PROMISED = "is promised to another device"
SHARED_CALLS = "sendto,sendmsg,write,pwrite64,fsync,fdatasync"


@pytest.fixture
def members(house):
    return Members(house, cluster_schema(house))


@pytest.fixture
def devices(house, members):
    """One for each member, which it tries first."""
    return [Device(house, f"device{number}", members[number:] + members[:number]).start() for number in range(3)]


def freeze_majority(members):
    """Gives the member that is left."""
    alone, *others = members
    for member in others:
        member.freeze()
    return alone


def thaw(members):
    for member in members:
        if member.frozen:
            member.thaw()
    for member in members:
        member.wait_connected()


# --- what a person has ---


def test_a_plan_of_one_device_is_on_all_of_them_and_its_state_is_not(devices):
    first, second, third = devices
    plan = first.add("WlanTimePlans", TimePlanName="Evening")
    for device in devices:
        device.wait_name(plan, "Evening")
    second.set(f"WlanTimePlans.{plan}", TimePlanName="Night")
    third.set(f"WlanTimePlans.{plan}", TimePlanStatus=1)
    for device in devices:
        device.wait_name(plan, "Night")
    assert [device.get(f"WlanTimePlans.{plan}", "TimePlanStatus") for device in devices] == ["0", "0", "1"]
    third.cfgctl("remove", f"WlanTimePlans.{plan}")
    wait_until(lambda: all(device.names() == {} for device in devices), "the plan gone everywhere")


def test_a_change_of_both_kinds_is_refused_with_the_columns_and_leaves_nothing(devices):
    first, second, _ = devices
    err = first.refused("set", "WlanGlobals", "AlwaysEnable=1", "WlanEnable=1")
    assert "AlwaysEnable" in err and "WlanEnable" in err
    assert (first.get("WlanGlobals", "AlwaysEnable"), first.get("WlanGlobals", "WlanEnable")) == ("0", "0")
    second.set("WlanGlobals", AlwaysEnable=0, WlanEnable=1)  # only one of the two differs
    assert first.get("WlanGlobals", "WlanEnable") == "0"


def test_of_two_devices_that_change_one_row_the_second_is_told(devices):
    first, second, _ = devices
    plan = first.add("WlanTimePlans", TimePlanName="Evening")
    second.wait_name(plan, "Evening")
    client = first.client()
    client.begin()
    assert client.read("WlanTimePlans")[0]["Activate"] == 1
    client.update_switch("WlanTimePlans", plan, "Activate", 0)
    second.set(f"WlanTimePlans.{plan}", TimePlanName="Night", Activate=1)
    assert result_code(client.commit()) == CONFLICT
    client.close()
    first.wait_name(plan, "Night")
    assert first.get(f"WlanTimePlans.{plan}", "Activate") == "1"
    first.set(f"WlanTimePlans.{plan}", Activate=0)


def test_devices_that_insert_at_once_get_different_ids_and_a_taken_one_is_refused(devices):
    given = {}

    def insert(device):
        given[device] = [device.add("WlanTimePlans", TimePlanName=device.name) for _ in range(4)]

    threads = [threading.Thread(target=insert, args=(device,)) for device in devices]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    ids = sorted(itertools.chain(*given.values()))
    assert ids == list(range(1, 13))
    assert len(wait_same(devices)["WlanTimePlans"]) == 12
    for device in devices:
        assert "WlanTimePlans" in device.refused("add", "WlanTimePlans", "Id=7")
    assert len(devices[0].names()) == 12


# --- without a majority ---


def test_without_a_majority_a_change_is_refused_or_unknown_and_all_that_is_local_goes_on(devices, members):
    first = devices[0]
    plan = first.add("WlanTimePlans", TimePlanName="Evening")
    freeze_majority(members)
    asked = threading.Thread(target=lambda: first.run("set", f"WlanTimePlans.{plan}", "TimePlanName=Night"))
    asked.start()
    for value in ("1", "0", "1"):
        begin = time.monotonic()
        first.set("WlanGlobals", WlanEnable=value)
        assert time.monotonic() - begin < 4, "something local waited for the cluster"
    asked.join()
    err = first.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Later")
    assert UNREACHABLE in err or UNKNOWN in err
    thaw(members)
    first.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Again")
    assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == "Again" == rows_of(members)[plan]


def test_the_wlan_switches_while_a_shared_change_hangs(house, members):
    device = Device(house, "device", [members[0]])
    device.socket = "/tmp/cfgserver.socket"  # where horad looks
    device.start()
    plan = device.add("WlanTimePlans", TimePlanName="Evening", StartFri="18:00", StopFri="23:00")
    horad = house.horad("-v", "-t", "WlanTimePlans", at="2026-12-04 17:59:59", tz="Europe/Berlin")
    horad.err.wait("Initial reading")
    freeze_majority(members)
    asked = threading.Thread(target=lambda: device.run("set", f"WlanTimePlans.{plan}", "TimePlanName=Night"))
    begin = time.monotonic()
    asked.start()
    wait_until(lambda: device.get("WlanGlobals", "WlanEnable") == "1", "the WLAN at 18:00")
    assert asked.is_alive() and time.monotonic() - begin < 4
    asked.join()
    thaw(members)


def test_a_change_whose_outcome_is_unknown_is_never_applied_behind_a_later_one(devices, members, fire):
    """It may be applied once the majority is back: before the next one of this device, or not at all."""
    first = devices[0]
    plan = first.add("WlanTimePlans", TimePlanName="Evening")
    for turn in range(2 * fire):
        freeze_majority(members)
        err = first.refused("set", f"WlanTimePlans.{plan}", f"TimePlanName=Unknown {turn}")
        assert UNKNOWN in err or UNREACHABLE in err
        thaw(members)
        first.eventually("set", f"WlanTimePlans.{plan}", f"TimePlanName=Known {turn}")
        assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == f"Known {turn}"
        first.set(f"WlanTimePlans.{plan}", Activate=turn % 2)  # behind this one, nothing of before can come any more
        assert rows_of(members)[plan] == f"Known {turn}"


# --- killed ---


def test_a_leader_that_is_killed_under_load_loses_nothing_that_was_acknowledged(devices, members, fire):
    for _ in range(fire):
        with Load(devices) as load:
            for _ in range(2):
                leader = members.leader()
                leader.kill()
                load.wait_progress()
                leader.start()
                leader.wait_connected()
        assert load.check(members) > 10


@pytest.mark.parametrize("first", [1, 2, 3, 5])
def test_a_store_that_is_killed_at_any_step_of_a_commit_has_afterwards_what_the_cluster_has(house, devices, members, fire, first):
    """The kernel kills it at the n-th of its calls that write, sync or send: some are of its client, some of the member,
    some of its database."""
    device, other, _ = devices
    plan = device.add("WlanTimePlans", TimePlanName="Before")
    for step in range(first, first + 7 * fire, 7):
        killer = house.start("strace", "-f", "-o", "/dev/null", "-p", device.server.pid, "-e", f"trace={SHARED_CALLS}",
                             "-e", f"inject={SHARED_CALLS}:signal=KILL:when={step}")
        killer.err.wait("attached")
        status, _, _ = device.run("set", f"WlanTimePlans.{plan}", f"TimePlanName=Step {step}")
        if status == 0:  # it took fewer calls
            device.kill()
        assert device.server.process.wait(DEADLINE) == -signal.SIGKILL
        device.start()
        held = wait_same(devices)["WlanTimePlans"][0]["TimePlanName"]
        assert held == rows_of(members)[plan]
        assert held == f"Step {step}" or status != 0, "an acknowledged change was lost"
        other.set(f"WlanTimePlans.{plan}", TimePlanName=f"After {step}")
        device.wait_name(plan, f"After {step}")
        device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Before")


def promise(client, table):
    """The Id of a row that the client inserts, and does not commit."""
    assert client.begin()[0] == DONE
    kind, body = client.ask(INSERT, text(table) + struct.pack(">I", 0))
    return struct.unpack(">I", body[:4])[0]


def reserved(member):
    return {row["Id"] for row in member.dump("Reserved")}


def test_an_id_that_was_promised_before_the_store_was_killed_is_kept_from_the_others_until_it_is_back(devices, members):
    device, other, _ = devices
    client = device.client()
    promised = promise(client, "WlanTimePlans")
    device.kill()
    client.close()
    assert reserved(members[1]) == {promised}
    assert other.add("WlanTimePlans", TimePlanName="Next") == promised + 1
    assert PROMISED in other.refused("add", "WlanTimePlans", f"Id={promised}")
    assert reserved(members[1]) == {promised}
    device.start()
    assert device.add("WlanTimePlans", TimePlanName="Own") == promised
    members.wait_equal("Reserved")
    assert reserved(members[1]) == set()
    assert wait_same(devices)["WlanTimePlans"][0]["TimePlanName"] == "Own"


def test_an_id_that_was_promised_before_the_store_was_killed_is_free_a_minute_after_another_device_met_it(devices, members):
    device, other, _ = devices
    other.stop()
    other.start(env=fast_clock(20))  # its minute is three seconds
    client = device.client()
    promised = promise(client, "WlanTimePlans")
    device.kill()
    client.close()
    assert PROMISED in other.refused("add", "WlanTimePlans", f"Id={promised}")
    wait_until(lambda: reserved(members[1]) == set(), "the end of the reservation")
    other.eventually("add", "WlanTimePlans", f"Id={promised}")
    assert set(rows_of(members)) == {promised}
