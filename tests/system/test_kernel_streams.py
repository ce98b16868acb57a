"""Streams as the kernel itself tells of them: multicast routes between two pairs of interfaces, in a network of the test's
own. A run that waits for a quiet line is held by them and let go."""

import subprocess
import sys
import time

import pytest

from house import fast_clock, wait_until

SPEED = 4  # times as fast as usual: the loop looks every half second
HELD = "info timefrmhdl: system not idle, reschedule$"
IPV4, IPV6 = "/proc/net/ip_mr_cache", "/proc/net/ip6_mr_cache"
# Input, source, group. Without outputs the whole route is meant.
TELEVISION = ("in0", "10.1.0.9", "225.1.2.3")
LOCAL = ("in0", "10.1.0.9", "239.1.2.3")
TELEVISION6 = ("in0", "2001:db8::9", "ff3e::1:2")

_CONNECT = """
set -e
for pair in in out; do
    ip link add ${pair}0 type veth peer name ${pair}1
    ip link set ${pair}0 up
    ip link set ${pair}1 up
done
echo connected
exec cat
"""


class Router:
    """A network with a program in it that gives routes to the kernel."""

    def __init__(self, house):
        self.house = house
        keeper = house.start("unshare", "--net", "sh", "-c", _CONNECT, stdin=subprocess.PIPE)
        keeper.out.wait("connected")
        self._enter = ["nsenter", f"--net=/proc/{keeper.pid}/ns/net", "--"]
        routing = self.start("smcrouted", "-n", "-l", "debug", "-f", "/dev/null", "-P", "/run/smc.pid", "-u", "/run/smc")
        routing.err.wait("Ready")

    def start(self, *command, env=None):
        return self.house.start(*self._enter, *command, env=env)

    def run(self, *command):
        status, out, err = self.house.run(*self._enter, *command)
        assert status == 0, (command, out, err)
        return out

    def add(self, route):
        self.run("smcroutectl", "-u", "/run/smc", "add", *route, "out0")

    def remove(self, route):
        self.run("smcroutectl", "-u", "/run/smc", "remove", *route)

    def rows(self, cache):
        """What the kernel prints, without the header."""
        return self.run("cat", cache).splitlines()[1:]


def skip_where_there_is_no_multicast_routing(house):
    status, out, err = house.run("unshare", "--net", "sh", "-c", f"ls {IPV4} {IPV6}; ip link add in0 type veth peer name in1")
    if "unshare" in err:
        pytest.skip(f"no network namespace can be made here: {err.strip()}")
    if IPV4 not in out or IPV6 not in out:
        pytest.skip("this kernel routes no multicast of both versions")
    if status != 0:
        pytest.skip(f"this kernel has no pairs of interfaces: {err.strip()}")


@pytest.fixture
def router(store):
    skip_where_there_is_no_multicast_routing(store)
    return Router(store)


class Frames:
    """Two frames that fall due every two seconds, at the same moments: one for a quiet line only, and behind it one that
    runs always and so tells that the first one was asked for."""

    def __init__(self, router):
        self._house = router.house
        self._held, self._free = self._open(WindowMode=3), self._open(WindowMode=1)
        self.horad = router.start("/run/bin/horad", "-v", "-t", "TimePlans", "-r", 2, env=fast_clock(SPEED))

    def _open(self, **cells):
        now = int(time.time())
        # A table that the store does not have: the state of the service stays unknown, so each moment is a run.
        return self._house.add("TimeFrame", Servicetable="Nowhere", ServicetableId=1, TimeFrameStart=now - 1,
                               TimeFrameEnd=now + 3600, MaxRetries=-1, **cells)

    def _runs(self, frame):
        return int(self._house.get(f"TimeFrame.{frame} RunCounter"))

    def assert_held(self):
        """At the next moments too: the first one may have been decided before."""
        enough = self._runs(self._free) + 3
        wait_until(lambda: self._runs(self._free) >= enough, "runs of the other frame")
        assert self._runs(self._held) == 0

    def wait_let_go(self):
        wait_until(lambda: self._runs(self._held) >= 1, "the run")


def test_a_run_is_held_by_routes_of_the_kernel_and_let_go_when_they_are_gone(router):
    router.add(TELEVISION)
    frames = Frames(router)
    frames.assert_held()
    assert frames.horad.err.count(HELD) >= 1

    router.add(TELEVISION6)
    router.remove(TELEVISION)
    assert (len(router.rows(IPV4)), len(router.rows(IPV6))) == (0, 1)
    frames.assert_held()

    router.remove(TELEVISION6)
    assert router.rows(IPV6) == []
    frames.wait_let_go()


def test_a_route_of_the_local_network_holds_a_run_too(router):
    router.add(LOCAL)
    frames = Frames(router)
    frames.assert_held()
    router.remove(LOCAL)
    frames.wait_let_go()


def test_interfaces_without_a_route_hold_nothing(router):
    assert len(router.rows("/proc/net/ip_mr_vif")) == 4
    frames = Frames(router)
    frames.wait_let_go()
    assert frames.horad.err.count(HELD) == 0


@pytest.mark.parametrize("route, cache, group", [
    (TELEVISION, IPV4, {"little": "030201E1", "big": "E1010203"}[sys.byteorder]),  # a number of the machine
    (TELEVISION6, IPV6, "ff3e:0000:0000:0000:0000:0000:0001:0002"),
])
def test_the_kernel_prints_routes_as_the_other_tests_write_them(router, route, cache, group):
    router.add(route)
    (row,) = router.rows(cache)
    columns = row.split()
    interfaces = [line.split()[:2] for line in router.rows(cache.replace("cache", "vif"))]
    assert columns[0] == group
    assert [columns[2], "in0"] in interfaces
    assert [[pair.split(":")[0], "out0"] for pair in columns[6:]] in [[row] for row in interfaces]
