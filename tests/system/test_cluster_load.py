"""A household is loaded into a store that shares tables: what is shared first, the rest in a transaction of its own."""

import json

import pytest

from devices import Device, rows_of, wait_same
from house import DEADLINE, wait_until
from members import Members, cluster_schema
from proxy import Proxy
from wire import BEGIN

REST = 3  # which of its transactions: the first tried all at once, the second changed what is shared
HOUSEHOLD = {"WlanTimePlans": [{"Id": number, "TimePlanName": f"Plan {number}", "TimePlanStatus": 1} for number in (1, 2)]}
HALF = "what is shared with the other devices is loaded, the rest is not: "


@pytest.fixture
def members(house):
    return Members(house, cluster_schema(house))


@pytest.fixture
def device(house, members):
    return Device(house, "device", members).start()


@pytest.fixture
def other(house, members):
    return Device(house, "other", members).start()


class HalfLoad:
    """A load that has changed what is shared, and not yet the rest."""

    def __init__(self, house, device):
        self._proxy = Proxy(house.path("/tmp/between.socket"), house.path(device.socket))
        self._proxy.pause_at(BEGIN, REST)
        with open(house.path("/tmp/household.json"), "w") as file:
            json.dump(HOUSEHOLD, file)
        self._load = house.start("cfgctl", "-s", "/tmp/between.socket", "load", "/tmp/household.json")
        assert self._proxy.is_paused.wait(DEADLINE)

    def go_on(self):
        """Its end: (status, errors)."""
        self._proxy.go_on()
        status = self._load.wait()
        return status, "\n".join(self._load.err.seen)


def states(device):
    rows = json.loads(device.cfgctl("--json", "show", "WlanTimePlans"))
    return {row["Id"]: row["TimePlanStatus"] for row in rows}


def test_what_another_device_has_changed_meanwhile_stays_and_the_rest_is_loaded(house, members, device, other):
    load = HalfLoad(house, device)
    assert rows_of(members) == {1: "Plan 1", 2: "Plan 2"} and states(device) == {1: 0, 2: 0}
    other.wait_name(1, "Plan 1")
    other.set("WlanTimePlans.1", TimePlanName="Theirs")
    device.wait_name(1, "Theirs")
    assert load.go_on()[0] == 0
    assert states(device) == {1: 1, 2: 1} and states(other) == {1: 0, 2: 0}
    assert rows_of(members) == {1: "Theirs", 2: "Plan 2"}


def test_a_row_that_another_device_has_removed_meanwhile_is_named_and_the_rest_is_as_before(house, members, device, other):
    load = HalfLoad(house, device)
    other.wait_name(2, "Plan 2")
    other.cfgctl("remove", "WlanTimePlans.2")
    wait_until(lambda: 2 not in device.names(), "the removal")
    status, err = load.go_on()
    assert status == 1 and HALF in err and ": another device has removed the row meanwhile" in err, err
    assert states(device) == {1: 0} and rows_of(members) == {1: "Plan 1"}
    assert wait_same([device, other])


def test_a_store_that_ends_meanwhile_has_what_is_shared(house, members, device):
    load = HalfLoad(house, device)
    device.kill()
    status, err = load.go_on()
    assert status != 0 and HALF in err, err
    device.start()
    assert device.names() == {1: "Plan 1", 2: "Plan 2"} and states(device) == {1: 0, 2: 0}


def load(device, household):
    return device.run("load", "-", input=json.dumps(household).encode())


def test_tables_that_are_not_shared_are_loaded_with_the_rest(device, other):
    household = {**HOUSEHOLD, "Reboot": {"Trigger": 1}, "TimeFrame": [{"Id": 4}]}
    status, _, err = load(device, household)
    assert status == 0, err
    assert states(device) == {1: 1, 2: 1} and device.get("Reboot", "Trigger") == "1"
    other.wait_name(2, "Plan 2")
    assert other.get("Reboot", "Trigger") == "0" and json.loads(other.cfgctl("--json", "show", "TimeFrame")) == []


def test_a_row_without_an_id_has_only_cells_that_are_shared(device):
    plans = [{"TimePlanName": "Added"}, {"Id": 5, "TimePlanName": "Named"}]
    both = {"WlanTimePlans": plans, "WlanGlobals": {"WlanEnable": 1}}
    assert load(device, both)[0] == 0
    assert sorted(device.names().values()) == ["Added", "Named"] and device.get("WlanGlobals", "WlanEnable") == "1"
    plans[0]["TimePlanStatus"] = 1
    status, _, err = load(device, both)
    assert status == 1 and "TimePlanStatus is not shared with the other devices, so the row needs an Id" in err, err
