"""What stands at the socket's path is not the store's: what the clients do about it."""

import os
import socket

import pytest

from house import SOCKET, untouched, wait_until
from refusals import refused_cfgctl as refused

TRACE = "/tmp/trace"


def start_traced(house):
    """A horad whose attempts to connect are written down."""
    return house.start("strace", "-f", "-o", TRACE, "-e", "trace=connect", "/run/bin/horad", "-t", "WlanTimePlans",
                       env={"ASAN_OPTIONS": "detect_leaks=0"})


def wait_attempts(house, count):
    def made():
        with open(house.path(TRACE)) as file:
            return file.read().count(SOCKET) >= count

    wait_until(lambda: os.path.exists(house.path(TRACE)) and made(), f"{count} attempts to connect")


def check_at_work(house):
    plan = house.add("WlanTimePlans", Activate=0)
    house.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)
    house.wait_value("WlanGlobals WlanEnable", 1)


def a_file(house):
    with open(house.path(SOCKET), "w") as file:
        file.write("precious")


def a_directory(house):
    os.mkdir(house.path(SOCKET))


def a_link_to_nothing(house):
    os.symlink("/tmp/nowhere", house.path(SOCKET))


def a_link_to_itself(house):
    os.symlink(SOCKET, house.path(SOCKET))


def a_stale_socket(house):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as dead:
        dead.bind(house.path(SOCKET))


def a_socket_of_datagrams(house):
    house.datagrams = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    house.datagrams.bind(house.path(SOCKET))


OBSTACLES = [
    (a_file, "Connection refused"),
    (a_directory, "Connection refused"),
    (a_link_to_nothing, "No such file or directory"),
    (a_link_to_itself, "Too many levels of symbolic links"),
    (a_stale_socket, "Connection refused"),
    (a_socket_of_datagrams, "Protocol wrong type for socket"),
]


@pytest.mark.parametrize("obstacle, reason", OBSTACLES, ids=[obstacle.__name__ for obstacle, _ in OBSTACLES])
def test_what_is_no_store_is_named_by_the_tool_and_outlasted_by_the_daemon(house, obstacle, reason):
    obstacle(house)
    before = untouched(house.path(SOCKET))
    for command in (["tables"], ["watch"], ["set", "WlanGlobals", "WlanEnable=1"]):
        assert refused(house, *command) == f"cfgctl: no configuration store at {SOCKET}: {reason}\n"
    horad = start_traced(house)
    wait_attempts(house, 3)
    assert untouched(house.path(SOCKET)) == before
    os.rename(house.path(SOCKET), house.path("/tmp/aside"))
    house.cfgserver()
    horad.err.wait("Initial reading of config")
    assert horad.err.seen[0].endswith("Initial reading of config"), horad.err.seen  # and not a word before
    check_at_work(house)


def test_a_link_to_the_store_elsewhere_is_as_good_as_the_store(house):
    house.cfgserver("-s", "/tmp/elsewhere")
    os.symlink("/tmp/elsewhere", house.path(SOCKET))
    house.horad("-t", "WlanTimePlans")
    check_at_work(house)


@pytest.mark.parametrize("linked", [False, True], ids=["at the path", "behind a link"])
def test_a_server_of_another_user_is_refused_until_the_right_one_is_there(house, linked):
    if os.geteuid() != 0:
        pytest.skip("only root can be another user")
    place = "/tmp/elsewhere" if linked else SOCKET
    stranger = house.start("setpriv", "--reuid=65534", "--clear-groups", "/run/bin/cfgserver", "-s", place)
    stranger.err.wait("cfgserver: serves")
    if linked:
        os.symlink(place, house.path(SOCKET))
    for command in (["tables"], ["watch"], ["set", "WlanGlobals", "WlanEnable=1"]):
        assert "permitted" in (err := refused(house, *command)) and "65534" in err, err
    horad = start_traced(house)
    wait_attempts(house, 3)
    os.unlink(house.path(SOCKET))
    house.cfgserver()
    horad.err.wait("Initial reading of config")
    assert horad.err.count("run by user 65534") == 1, horad.err.seen
    check_at_work(house)
    assert not [line for line in stranger.err.seen if "cfgserver: client" in line]
