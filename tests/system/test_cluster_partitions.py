"""Three households with a member and a store each, and a network between them that fails.

`--fire N` makes the test under load N times as long.
"""

import pytest

from devices import UNKNOWN, UNREACHABLE, Device, Load, rows_of, wait_same
from house import wait_until
from members import Members, cluster_schema
from network import Network

LATE = 60  # seconds: connections that were cut off without a word are tried again in pauses


class Household:
    def __init__(self, home, address, member, others):
        self.address, self.member = address, member
        self.device = Device(home, f"device{member.number}", [member.remote, *(other.tcp for other in others)])


@pytest.fixture
def network(house):
    return Network(house)


@pytest.fixture
def homes(network):
    return [network.home(f"home{number}") for number in range(1, 4)]


@pytest.fixture
def members(house, homes):
    return Members(house, cluster_schema(house), homes=homes)


@pytest.fixture
def households(homes, members):
    """The one whose member leads is the first."""
    leader = members.leader()
    found = [Household(*home, member, [other for other in members if other is not member])
             for home, member in zip(homes, members)]
    for household in found:
        household.device.start()
    return sorted(found, key=lambda household: household.member is not leader)


def mend(network, members):
    network.mend()
    for member in members:
        member.wait_connected(LATE)


def test_a_household_that_is_cut_off_goes_on_alone_and_then_has_what_the_others_have(network, members, households):
    cut, *others = households
    plan = cut.device.add("WlanTimePlans", TimePlanName="Evening")
    network.cut_off(cut.address)
    for household in others:
        household.device.eventually("set", f"WlanTimePlans.{plan}", f"TimePlanName=By {household.address}")
    cut.member.wait_disconnected()
    wait_until(lambda: UNREACHABLE in cut.device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Lost"),
               "the refusal")
    cut.device.set("WlanGlobals", WlanEnable=1)  # its own
    assert cut.device.names() == {plan: "Evening"}
    assert network.lost() > 0
    mend(network, members)
    cut.device.wait_name(plan, f"By {others[1].address}", LATE)
    assert rows_of(members) == {plan: f"By {others[1].address}"}
    cut.device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Back", deadline=LATE)
    assert {row["TimePlanName"] for row in wait_same([each.device for each in households], LATE)["WlanTimePlans"]} == {"Back"}


def test_a_device_whose_member_does_not_answer_any_more_takes_another_one(homes, network, members, households):
    """Its own network is well; that of the member that it follows is not."""
    far, near, _ = households
    far.device.stop()
    device = Device(homes[households[1].member.number - 1][0], "client", [far.member.tcp, near.member.remote]).start()
    plan = device.add("WlanTimePlans", TimePlanName="Evening")
    network.cut_off(far.address)
    followed = len(device.server.err.seen)
    err = device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Night")
    assert UNKNOWN in err or UNREACHABLE in err
    device.server.err.wait(f"can't be followed at {far.member.tcp}: it has sent nothing for", followed, LATE)
    device.follow(followed)
    device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Morning", deadline=LATE)
    mend(network, members)
    assert rows_of(members) == {plan: "Morning"}


def test_a_change_whose_answer_is_lost_is_made_once_and_never_behind_a_later_one(network, members, households):
    """The leader hears the others, and they don't hear it."""
    mute, *others = households
    plan = mute.device.add("WlanTimePlans", TimePlanName="Evening")
    others[0].device.wait_name(plan, "Evening")
    network.lose_from(mute.address)
    err = mute.device.refused("set", f"WlanTimePlans.{plan}", "TimePlanName=Lost")
    assert UNKNOWN in err or UNREACHABLE in err
    others[0].device.eventually("set", f"WlanTimePlans.{plan}", "TimePlanName=Later", deadline=LATE)
    mend(network, members)
    mute.device.wait_name(plan, "Later", LATE)
    mute.device.eventually("set", f"WlanTimePlans.{plan}", "Activate=0", deadline=LATE)  # behind a fence
    assert rows_of(members) == {plan: "Later"}


def test_a_network_that_fails_under_load_loses_nothing_that_was_acknowledged(network, members, households, fire):
    devices = [household.device for household in households]
    for turn in range(fire):
        with Load(devices) as load:
            load.wait_progress()
            for number, fail in enumerate((network.cut_off, network.lose_from)):
                cut = households[(turn + number) % 3]
                fail(cut.address)
                load.wait_progress([household.device for household in households if household is not cut])
                mend(network, members)
                load.wait_progress()
        assert load.check(members) > 10
