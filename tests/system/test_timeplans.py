"""The statuses of generic time plan tables."""

import time

from house import fast_clock
from plans import slot, slot_around_now, slot_later


def test_every_table_of_the_command_line_is_kept_and_no_other(store):
    first = store.add("TimePlans", Activate=1, **slot_around_now())
    other = store.add("WlanTimePlans", Activate=1, **slot_around_now())
    horad = store.horad("-v", "-t", "TimePlans")
    store.wait_value(f"TimePlans.{first} TimePlanStatus", 1)
    horad.err.wait("Activated timeplan")
    assert store.get(f"WlanTimePlans.{other} TimePlanStatus") == "0"


def test_a_table_named_twice_is_read_twice_and_kept_once(store):
    watch = store.watch("TimePlans")
    horad = store.horad("-v", "-t", "TimePlans", "-t", "TimePlans")
    horad.err.wait("Initial reading of config")
    plan = store.add("TimePlans", Activate=1, **slot_around_now())
    watch.out.wait(f"TimePlans.{plan} TimePlanStatus: 0 -> 1")
    store.set(f"TimePlans.{plan}", Activate=0)
    watch.out.wait(f"TimePlans.{plan} TimePlanStatus: 1 -> 0")
    horad.err.wait("Deactivated timeplan")
    assert horad.err.count("Activated timeplan") == 1
    assert horad.err.count("Deactivated timeplan") == 1


def test_a_changed_table_is_read_again_with_its_name_in_the_log(store):
    horad = store.horad("-t", "TimePlans")
    horad.err.wait("info horad: Initial reading of config")
    store.add("TimePlans", TimePlanName="new")
    horad.err.wait("info horad: Table TimePlans was changed")


def test_a_row_removed_is_forgotten(store):
    plan = store.add("TimePlans", Activate=0, TimePlanStatus=1, **slot_later())
    horad = store.horad("-v", "-t", "TimePlans")
    horad.err.wait("Initial reading of config")
    store.cfgctl("remove", f"TimePlans.{plan}")
    horad.err.wait("Table TimePlans was changed")
    again = store.add("TimePlans", Activate=0, **slot_later())
    store.wait_value(f"TimePlans.{again} TimePlanStatus", 1)
    assert horad.err.count("error") == 0


def test_a_row_of_more_than_three_digits_addresses_another(store):
    store.cfgctl("add", "TimePlans", "Id=123", "Activate=1")
    store.cfgctl("add", "TimePlans", "Id=1234", "Activate=0")
    horad = store.horad("-v", "-t", "TimePlans")
    horad.err.wait("Activated timeplan: Id: 1234 ")
    horad.err.wait("Deactivated timeplan: Id: 123 ")  # its status was written, its own plan puts it right
    assert store.get("TimePlans.1234 TimePlanStatus") == "0"


def test_a_row_that_cannot_be_updated_is_logged_with_the_reason(store):
    store.cfgctl("add", "TimePlans", "Id=1234", "Activate=0")
    horad = store.horad("-v", "-t", "TimePlans")
    error = horad.err.wait(r"error horad: Could not set status: \d+$")
    assert horad.err.wait("debug horad: .*no such row", error) == error + 1
    horad.err.wait("Activated timeplan: Id: 1234 ")


def test_an_unknown_table_is_an_error_line_and_the_others_go_on(store):
    plan = store.add("TimePlans", Activate=0)
    horad = store.horad("-t", "Typo", "-t", "TimePlans")
    horad.err.wait(r"error horad: size\(\) failed: unknown table: Typo")
    store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)


def set_zone(house, name):
    status, _, err = house.run("mount", "--bind", f"/usr/share/zoneinfo/Etc/{name}", "/etc/localtime")
    assert status == 0, err


def test_a_time_zone_that_is_set_while_it_runs_counts_within_a_minute(store):
    half_a_day_on = time.time() + 12 * 3600
    set_zone(store, "GMT+6")
    plan = store.add("TimePlans", **slot(half_a_day_on - 9 * 3600, half_a_day_on - 3 * 3600, time.gmtime))
    at_any_time = store.add("TimePlans", Activate=0)
    horad = store.start("env", "-u", "TZ", "/run/bin/horad", "-v", "-t", "TimePlans", env=fast_clock(20))
    horad.err.wait("Activated timeplan: Id: %d " % at_any_time)
    assert store.get(f"TimePlans.{plan} TimePlanStatus") == "0"

    set_zone(store, "GMT-6")
    horad.err.wait("Activated timeplan: Id: %d " % plan)
