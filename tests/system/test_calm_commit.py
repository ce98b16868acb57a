"""A commit that failed is made up for when the disk takes it again."""

import signal

import pytest

DATABASE = "/tmp/store.db"
WLAN = "WlanGlobals WlanEnable"
WRITES = "pwrite64,ftruncate,fsync,fdatasync"
MONDAY = "2026-03-02"


@pytest.fixture
def disk(house):
    """A store with a file."""
    house.server = house.cfgserver("-f", DATABASE)
    return house


def fill(house):
    """The disk has no place left until what is returned is stopped."""
    full = house.start("strace", "-f", "-o", "/dev/null", "-p", house.server.pid, "-e", f"trace={WRITES}",
                       "-e", f"inject={WRITES}:error=ENOSPC")
    full.err.wait("attached")
    return full


def evening_with_a_full_disk(house):
    """A plan's slot has ended while nothing could be committed, three passes long: (horad, full disk)."""
    plan = house.add("WlanTimePlans", Activate=1, StartMon="18:00:00", StopMon="22:00:00")
    clock = house.clock(f"{MONDAY} 21:59:00", 4, "UTC")
    horad = house.horad("-v", "-t", "WlanTimePlans", env=clock.env)
    house.wait_value(WLAN, 1)
    full = fill(house)
    clock.set(f"{MONDAY} 22:00:01")
    seen = 0
    for _ in range(3):
        seen = horad.err.wait("Deactivated timeplan", seen) + 1
    assert house.get(WLAN) == "1" and house.get(f"WlanTimePlans.{plan} TimePlanStatus") == "1"
    return horad, full


def test_the_wlan_goes_off_within_two_passes_of_the_disk_s_return(disk):
    horad, full = evening_with_a_full_disk(disk)
    full.stop(signal.SIGINT)
    passes = horad.err.count("Deactivated timeplan")
    disk.wait_value(WLAN, 0)
    assert horad.err.count("Deactivated timeplan") <= passes + 2


def test_the_log_says_once_that_commits_fail_and_once_that_they_go_through_again(disk):
    horad, full = evening_with_a_full_disk(disk)
    full.stop(signal.SIGINT)
    horad.err.wait("info horad: Changes of WlanTimePlans are committed again$")
    assert horad.err.count("error horad: Could not commit changes of WlanTimePlans: storage (is full|failed)") == 1
    assert horad.err.count("error") == 1
    assert horad.err.count("committed again") == 1
