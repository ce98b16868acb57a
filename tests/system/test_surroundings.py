"""What the surroundings do to the programs: a pipe that nobody reads, a terminal that goes away, a socket that is removed."""

import contextlib
import os
import pwd
import re
import signal
import socket
from pathlib import Path

import pytest

from house import SOCKET, is_alive, wait_until


class Pipe:
    """A pipe of the house, which is full until the test reads it."""

    PATH = "/tmp/pipe"

    def __init__(self, house):
        os.mkfifo(house.path(self.PATH))
        self._end = os.open(house.path(self.PATH), os.O_RDWR | os.O_NONBLOCK)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(self._end, b"ballast\n" * 512)

    def empty(self):
        """What it held."""
        held = b""
        with contextlib.suppress(BlockingIOError):
            while True:
                held += os.read(self._end, 65536)
        return held.decode().replace("ballast\n", "")

    def start(self, house, program, *arguments):
        """The program, with the pipe as its standard error."""
        return house.start("sh", "-c", f'exec /run/bin/{program} "$@" 2>{self.PATH}', "sh", *arguments)


@pytest.fixture
def pipe(house):
    return Pipe(house)


def test_a_store_whose_standard_error_is_a_full_pipe_goes_on_serving(house, pipe):
    pipe.start(house, "cfgserver", "-v")
    wait_until(lambda: os.path.exists(house.path(SOCKET)), "the store's start")
    for value in ("1", "0"):
        house.set("WlanGlobals", WlanEnable=value)
        assert house.get("WlanGlobals WlanEnable") == value
    assert pipe.empty() == ""  # all lines were lost
    house.set("WlanGlobals", WlanEnable=1)
    assert re.match(r"\S+ warning cfgserver: \d\d? lines before this one could not be written\n", pipe.empty())


def test_a_horad_whose_standard_error_is_a_full_pipe_goes_on_working(store, pipe):
    pipe.start(store, "horad", "-v", "-t", "TimePlans")
    for _ in range(3):
        plan = store.add("TimePlans", Activate=0)
        store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    assert pipe.empty() == ""
    plan = store.add("TimePlans", Activate=0)
    store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    assert re.match(r"\S+ warning horad: \d+ lines before this one could not be written\n", pipe.empty())


def test_a_daemon_that_cannot_start_does_not_wait_for_the_reader_of_its_standard_error(store, pipe):
    os.mkdir(store.path("/run/horad"))  # in place of the pid file: the daemon fails and its parent tells
    assert pipe.start(store, "horad", "-d", "-t", "TimePlans").wait() == 1
    os.rmdir(store.path("/run/horad"))
    assert store.run("horad", "-d", "-t", "TimePlans")[0] == 0
    assert pipe.start(store, "horad", "-d", "-t", "TimePlans").wait() == 1  # the first one runs
    assert pipe.empty() == ""


def daemon_of(house, program):
    with open(house.path(f"/run/{program}")) as file:
        return int(file.read())


@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGUSR1])
def test_signals_that_daemons_are_sent_in_general_end_neither_daemon(house, number):
    log = house.syslog()
    assert house.run("cfgserver", "-d")[0] == 0
    assert house.run("horad", "-d", "-v", "-t", "TimePlans")[0] == 0
    log.wait("Initial reading of config")
    store, horad = daemon_of(house, "cfgserver"), daemon_of(house, "horad")
    for pid in (store, horad):
        os.kill(pid, number)
    plan = house.add("TimePlans", Activate=0)
    house.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    for pid in (horad, store):
        assert is_alive(pid)
        os.kill(pid, signal.SIGTERM)
        house.wait_gone(pid)


def test_a_terminal_that_goes_away_ends_a_store_in_the_foreground(store):
    assert store.server.stop(signal.SIGHUP) == 0
    assert not os.path.exists(store.path(SOCKET))


def test_a_socket_that_is_moved_away_and_back_is_logged_and_clients_are_served_on(store):
    watch = store.watch()
    os.rename(store.path(SOCKET), store.path("/tmp/elsewhere"))
    gone = store.server.err.wait(f"error cfgserver: no new client finds the socket {SOCKET}: it was removed or moved")
    store.cfgctl("-s", "/tmp/elsewhere", "set", "WlanGlobals", "WlanEnable=1")
    watch.out.wait("WlanEnable: 0 -> 1")
    os.rename(store.path("/tmp/elsewhere"), store.path(SOCKET))
    store.server.err.wait(f"info cfgserver: the socket {SOCKET} is back in its place", gone)
    assert store.get("WlanGlobals WlanEnable") == "1"


def test_a_socket_in_whose_place_something_else_is_put_is_logged_with_its_owner_and_left_alone(store):
    with open(store.path("/tmp/other"), "w") as file:
        file.write("precious")
    os.rename(store.path("/tmp/other"), store.path(SOCKET))
    store.server.err.wait(rf"something else is in its place, of user {owner_of(store, SOCKET)}")
    assert store.server.stop() == 0
    with open(store.path(SOCKET)) as file:
        assert file.read() == "precious"


def owner_of(house, path):
    """As the store names it; it sees the users of its own name space."""
    user = 0 if os.geteuid() != 0 else os.lstat(house.path(path)).st_uid
    try:
        return rf"{pwd.getpwuid(user).pw_name} \({user}\)"
    except KeyError:
        return str(user)


@pytest.mark.parametrize("user", [0, 65534, 54321])
def test_what_stands_in_the_sockets_way_is_named_with_its_owner(house, user):
    if os.geteuid() != 0:
        pytest.skip("only root can give a file away")
    with open(house.path(SOCKET), "w") as file:
        file.write("precious")
    os.chown(house.path(SOCKET), user, -1)
    status, _, err = house.run("cfgserver")
    assert status == 1 and re.search(rf"{SOCKET}: there is something else at this path, of user {owner_of(house, SOCKET)},", err)


def test_a_server_that_holds_the_socket_is_named_with_its_process_and_user(store):
    status, _, err = store.run("cfgserver")
    holder = rf"process {store.server.pid}, user {owner_of(store, SOCKET)}"
    assert status == 1 and re.search(rf"{SOCKET}: another server holds it \({holder}\)", err), err


def test_a_stale_socket_of_another_user_in_a_sticky_folder_is_named_with_its_owner(house):
    if os.geteuid() != 0:
        pytest.skip("only root can be another user")
    with socket.socket(socket.AF_UNIX) as stale:
        stale.bind(house.path(SOCKET))
    os.chmod(house.path(SOCKET), 0o666)
    stranger = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "/run/bin/cfgserver"]
    status, _, err = house.run(*stranger)
    assert status == 1 and "a stale socket of user root (0) can't be removed: Operation not permitted" in err, err


def test_the_version_is_that_of_the_project(house):
    project = (Path(__file__).parents[2] / "CMakeLists.txt").read_text()
    version = re.search(r"project\(horad VERSION (\S+)", project)[1]
    assert house.run("cfgserver", "--version") == (0, f"cfgserver {version}\n", "")



def scratch_folders(house):
    return [name for name in os.listdir(house.path("/dev/shm")) if name.startswith("cfgserver.")]


def test_the_next_start_removes_what_a_store_that_was_killed_while_starting_left_in_memory(house):
    killed = house.start("strace", "-f", "-o", "/dev/null", "-e", "trace=unlink", "-e", "inject=unlink:signal=SIGKILL",
                         "/run/bin/cfgserver", env={"ASAN_OPTIONS": "detect_leaks=0"})
    assert killed.wait() != 0
    assert len(scratch_folders(house)) == 1
    foreign = Path(house.path("/dev/shm/cfgserver.notours"))  # a name that no store makes
    foreign.mkdir()

    house.cfgserver()

    assert scratch_folders(house) == [foreign.name]
