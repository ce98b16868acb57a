"""The WLAN follows its time plans: real store, real daemon, real clock."""

import time

import pytest

from plans import slot, slot_around_now, slot_later

WLAN = "WlanGlobals WlanEnable"


def test_the_wlan_goes_on_with_the_slot_and_off_with_its_end(store):
    watch = store.watch("WlanGlobals")
    horad = store.horad("-v", "-t", "WlanTimePlans")
    horad.err.wait("Initial reading of config")
    begin = int(time.time()) + 3
    end = begin + 4
    plan = store.add("WlanTimePlans", TimePlanName="soon", Activate=1, **slot(begin, end))

    on = watch.out.wait("WlanGlobals WlanEnable: 0 -> 1")
    assert begin <= time.time() < end
    off = watch.out.wait("WlanGlobals WlanEnable: 1 -> 0", on)
    assert time.time() >= end
    assert off == on + 1

    activated = horad.err.wait(r"debug horad: Activated timeplan: Id: %d Name: soon Status: 1 Mon: " % plan)
    switched_on = horad.err.wait("debug horad: Switch WLAN on$", activated)
    deactivated = horad.err.wait("debug horad: Deactivated timeplan: Id: %d " % plan, switched_on)
    horad.err.wait("debug horad: Switch WLAN off$", deactivated)
    assert horad.err.count("error") == 0


def test_each_switch_is_one_write(store):
    watch = store.watch("WlanGlobals")
    horad = store.horad("-v", "-t", "WlanTimePlans")
    store.add("WlanTimePlans", Activate=1, **slot_around_now())
    watch.out.wait("WlanEnable: 0 -> 1")
    horad.err.wait("WlanEnable: 1, AlwaysEnable: 0")  # the notice has brought it back
    store.set("WlanTimePlans.1", TimePlanName="renamed")
    horad.err.wait("Table WlanTimePlans was changed", horad.err.wait("WlanEnable: 1, AlwaysEnable: 0"))
    assert horad.err.count("Switch WLAN on") == 1


def test_a_wlan_that_stands_wrong_at_the_start_is_put_right(store):
    store.set("WlanGlobals", WlanEnable=1)
    horad = store.horad("-v", "-t", "WlanTimePlans")
    horad.err.wait("Switch WLAN off")
    store.wait_value(WLAN, 0)


def test_always_enable_leaves_the_wlan_alone_until_it_is_turned_off(store):
    store.set("WlanGlobals", WlanEnable=1, AlwaysEnable=1)
    horad = store.horad("-v", "-t", "WlanTimePlans")
    plan = store.add("WlanTimePlans", Activate=1, **slot_later())
    horad.err.wait("WlanEnable: 1, AlwaysEnable: 1")
    store.set(f"WlanTimePlans.{plan}", Activate=0)  # active outside its slot
    store.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)
    store.set(f"WlanTimePlans.{plan}", Activate=1)
    store.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 0)
    assert store.get(WLAN) == "1"
    assert horad.err.count("Switch WLAN") == 0
    store.set("WlanGlobals", AlwaysEnable=0)
    horad.err.wait("Switch WLAN off")
    store.wait_value(WLAN, 0)


def test_a_plan_of_the_deactivating_kind_keeps_the_wlan_on_outside_its_slot(store):
    store.horad("-t", "WlanTimePlans")
    plan = store.add("WlanTimePlans", Activate=0, **slot_later())
    store.wait_value(WLAN, 1)
    store.cfgctl("set", f"WlanTimePlans.{plan}", *(f"{k}={v}" for k, v in slot_around_now().items()))
    store.wait_value(WLAN, 0)


def test_without_plans_the_wlan_goes_off(store):
    plan = store.add("WlanTimePlans", Activate=1, TimePlanStatus=1, **slot_around_now())
    store.horad("-t", "WlanTimePlans")
    store.wait_value(WLAN, 1)
    store.cfgctl("remove", f"WlanTimePlans.{plan}")
    store.wait_value(WLAN, 0)


def test_the_last_deciding_plan_wins(store):
    store.horad("-t", "WlanTimePlans")
    store.add("WlanTimePlans", Activate=1, **slot_around_now())
    store.wait_value(WLAN, 1)
    store.add("WlanTimePlans", Activate=0, **slot_around_now())  # not active inside its slot: off
    store.wait_value(WLAN, 0)


@pytest.mark.parametrize(
    "moment, expected",
    [
        ("2026-11-21 21:59:50", "0"),  # Saturday, before the slot
        ("2026-11-21 22:30:00", "1"),
        ("2026-11-22 01:59:50", "1"),  # Sunday, carried over
        ("2026-11-22 02:00:30", "0"),
    ],
)
def test_a_saturday_slot_runs_into_sunday(store, moment, expected):
    store.add("WlanTimePlans", Activate=1, StartSat="22:00:00", StopSat="02:00:00", TimePlanStatus=1 - int(expected))
    store.set("WlanGlobals", WlanEnable=1 - int(expected))
    store.horad("-t", "WlanTimePlans", at=moment, tz="Europe/Berlin")
    store.wait_value(WLAN, expected)


def test_a_slot_begins_by_the_summer_clock(store):
    # In the night of 2027-03-28 the clocks of Berlin go from 02:00 to 03:00.
    store.add("WlanTimePlans", Activate=1, StartSun="03:00:00", StopSun="04:00:00")
    store.horad("-t", "WlanTimePlans", at="2027-03-28 01:59:55", tz="Europe/Berlin")
    store.wait_value(WLAN, 1)
