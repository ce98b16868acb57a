"""horad's life: foreground and daemon, pid file, signals, the end."""

import os
import re
import signal
import socket
import struct
import time

import pytest

from house import SOCKET, is_alive, wait_until
from wire import BEGIN, HELLO, MAGIC, SUBSCRIBE, ScriptedStore, text

PID_FILE = "/var/run/horad"
ARGUMENTS = ["-t", "WlanTimePlans"]


def pid_in_file(house):
    with open(house.path("/run/horad")) as file:
        return int(file.read())


def start_daemon(house, *more):
    status, _, err = house.run("horad", "-d", *ARGUMENTS, *more)
    assert status == 0, err
    return pid_in_file(house)


def read(house, path):
    with open(house.path(path)) as file:
        return file.read()


def test_the_foreground_has_no_pid_file_and_sigterm_kills_at_once(store):
    horad = store.horad(*ARGUMENTS)
    horad.err.wait("Initial reading of config")
    assert not os.path.exists(store.path("/run/horad"))
    assert horad.stop(signal.SIGTERM) == -signal.SIGTERM


def test_the_foreground_has_no_sigpipe_handler(store):
    horad = store.horad(*ARGUMENTS)
    horad.err.wait("Initial reading of config")
    assert horad.stop(signal.SIGPIPE) == -signal.SIGPIPE


@pytest.mark.parametrize("closed", [">&- 2>&-", "<&- >&- 2>&-", "2>&-"])
def test_closed_streams_do_not_become_the_connection(store, closed):
    horad = store.start("sh", "-c", f"exec /run/bin/horad -v {' '.join(ARGUMENTS)} {closed}")
    plan = store.add("WlanTimePlans", Activate=0)
    store.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)
    store.wait_value("WlanGlobals WlanEnable", 1)
    assert is_alive(horad.pid) and store.server.err.count("warning") == 0


def test_the_foreground_keeps_off_the_system_log(store, log):
    horad = store.horad(*ARGUMENTS)
    horad.err.wait("info horad: Initial reading of config")
    horad.stop()
    store.run("horad", "-d", *ARGUMENTS)  # the first line on the system log is this one's
    assert str(pid_in_file(store)) in log.wait("Initial reading of config")
    assert len(log.seen) == 1


def test_the_pid_file_is_there_when_the_parent_returns(store):
    pid = start_daemon(store)
    assert is_alive(pid)
    assert os.readlink(f"/proc/{pid}/cwd") in ("/", store.path("/").rstrip("/"))
    assert os.getsid(pid) != os.getsid(0)
    for stream in (0, 1, 2):
        assert os.readlink(f"/proc/{pid}/fd/{stream}").endswith("/dev/null")


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGQUIT])
def test_a_stop_signal_ends_the_daemon_and_removes_the_pid_file(store, log, number):
    pid = start_daemon(store, "-v")
    log.wait("Initial reading of config")
    os.kill(pid, number)
    assert "horad" in log.wait("Signal received")
    store.wait_gone(pid)
    assert not os.path.exists(store.path("/run/horad"))


def test_without_verbose_the_signal_is_not_logged(store, log):
    pid = start_daemon(store)
    log.wait("Initial reading of config")
    os.kill(pid, signal.SIGPIPE)
    log.wait("Received SIGPIPE")
    os.kill(pid, signal.SIGTERM)
    store.wait_gone(pid)
    start_daemon(store)
    log.wait("Initial reading of config")
    assert not [line for line in log.seen if "Signal received" in line]


def test_sigpipe_is_logged_and_nothing_else(store, log):
    pid = start_daemon(store)
    log.wait("Initial reading of config")
    for _ in range(2):  # the handler stays
        os.kill(pid, signal.SIGPIPE)
        log.wait("SIGPIPE")
    os.kill(pid, signal.SIGPIPE)
    assert re.match(r"<28>horad\[\d+\]: Received SIGPIPE", log.wait("SIGPIPE"))  # daemon facility, warning
    plan = store.add("WlanTimePlans", Activate=0)
    store.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)
    assert is_alive(pid)


def test_the_shutdown_goes_connection_dispatcher_pid_file(store, log):
    trace = "/tmp/trace"
    calls_of_interest = "trace=close,unlink,unlinkat,exit_group"
    status, _, _ = store.run(
        "sh", "-c", f"exec strace -f -y -D -o {trace} -e {calls_of_interest} "
        f"/run/bin/horad -d {' '.join(ARGUMENTS)} >/dev/null 2>&1", env={"ASAN_OPTIONS": "detect_leaks=0"}
    )
    assert status == 0
    pid = pid_in_file(store)
    log.wait("Initial reading of config")
    os.kill(pid, signal.SIGTERM)
    store.wait_gone(pid)
    wait_until(lambda: "exited with 0" in read(store, trace).splitlines()[-1], "the end of the trace")
    calls = [line for line in read(store, trace).splitlines() if line.startswith(f"{pid} ")]
    order = [
        next(i for i, call in enumerate(calls) if re.search(what, call))
        for what in (r"close\(\d+<(UNIX|socket)", r"close\(\d+<anon_inode:\[eventpoll\]>", r"unlink", r"exit_group\(0\)")
    ]
    assert order == sorted(order), calls


def traced(house, calls, *arguments, more=()):
    """A horad under strace, whose trace of these calls goes to /tmp/trace."""
    return house.start("strace", "-f", "-o", "/tmp/trace", "-e", f"trace={calls}", *more, "/run/bin/horad",
                       *arguments, env={"ASAN_OPTIONS": "detect_leaks=0"})


def test_an_exception_is_logged_with_its_text_and_ends_with_0(house, log):
    refuse = ("-e", "inject=epoll_create1:error=EMFILE")
    horad = traced(house, "epoll_create1", *ARGUMENTS, more=refuse)
    assert horad.wait() == 0
    assert horad.err.count("error horad: epoll_create1: Too many open files") == 1
    daemon = traced(house, "epoll_create1", "-d", *ARGUMENTS, more=refuse)
    assert daemon.wait() == 0
    log.wait("<27>horad.*epoll_create1: Too many open files")
    assert not os.path.exists(house.path("/run/horad"))


def test_a_stop_signal_that_comes_with_the_pid_file_is_no_sudden_death(store, log):
    """It is there before the starter's caller knows of the daemon, and before the daemon has its handlers."""
    early = ("-e", "inject=sendto:signal=SIGTERM:when=1")  # the first message is that to the parent
    daemon = traced(store, "sendto", "-d", "-v", *ARGUMENTS, more=early)
    assert daemon.wait() == 0
    log.wait("Signal received")
    assert not os.path.exists(store.path("/run/horad"))


def test_an_idle_iteration_waits_for_two_seconds(store):
    horad = traced(store, "epoll_wait", *ARGUMENTS)
    horad.err.wait("Initial reading of config")
    wait_until(lambda: read(store, "/tmp/trace").count("= 0") >= 2, "two iterations without an event")
    waits = [line for line in read(store, "/tmp/trace").splitlines() if line.endswith("= 0")]
    assert all(", 2000) " in line for line in waits), waits


def test_it_introduces_itself_and_waits_half_a_second_for_a_transaction(house):
    """A server that takes everything: what the daemon's client sends."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.settimeout(20)
        listener.bind(house.path(SOCKET))
        listener.listen(1)
        house.horad(*ARGUMENTS)
        server = ScriptedStore(listener.accept()[0])
        hello, _ = server.answer_until(HELLO)
        assert hello == struct.pack(">I", MAGIC) + text("horad") + struct.pack(">I", 1)
        subscription, _ = server.answer_until(SUBSCRIBE)
        tables = ("AutoReboot", "FileTransfer", "TimeFrame", "WlanGlobals", "WlanTimePlans")
        assert subscription == struct.pack(">II", 0, len(tables)) + b"".join(text(table) for table in tables)
        begin, tables = server.answer_until(BEGIN)
        assert begin == struct.pack(">I", 500)
        # In the order of the handlers.
        assert tables == ["WlanGlobals", "WlanTimePlans", "WlanTimePlans", "TimeFrame", "FileTransfer", "AutoReboot"]


def test_the_handlers_read_in_the_order_of_their_registration(store):
    horad = store.horad("-v", *ARGUMENTS)
    wlan = horad.err.wait("Table  was changed")
    first = horad.err.wait("of handler 0 returned", wlan)
    plans = horad.err.wait("Initial reading of config", first)
    horad.err.wait("of handler 1 returned", plans)


def test_a_second_daemon_says_so_and_leaves_the_first_alone(store, log):
    pid = start_daemon(store)
    status, _, err = store.run("horad", "-d", *ARGUMENTS)
    assert (status, err) == (1, "horad is already running\n")
    log.wait("<27>horad.*horad is already running")
    assert is_alive(pid) and pid_in_file(store) == pid


def test_a_stale_pid_file_does_not_count(store):
    with open(store.path("/run/horad"), "w") as file:
        file.write(f"{os.getpid()}\n")  # a living process, but no horad
    assert start_daemon(store) != os.getpid()


def test_of_starts_at_the_same_moment_one_wins(store):
    starts = [store.start("horad", "-d", *ARGUMENTS) for _ in range(8)]
    assert sorted(start.wait() for start in starts) == [0] + [1] * 7
    wait_until(lambda: sorted(store.processes()) == sorted([store.server.pid, pid_in_file(store)]), "one daemon")


def test_a_daemon_that_cannot_write_its_pid_file_says_so_and_returns_1(store):
    os.mkdir(store.path("/run/horad"))
    status, _, err = store.run("horad", "-d", *ARGUMENTS)
    assert status == 1
    assert "/var/run/horad" in err
    wait_until(lambda: store.processes() == [store.server.pid], "the end of the child")


def test_a_killed_daemon_is_followed_by_a_new_one(store):
    first = start_daemon(store)
    os.kill(first, signal.SIGKILL)
    store.wait_gone(first)
    assert start_daemon(store) != first


def test_without_a_store_it_goes_on_connecting_and_stays_silent(house):
    horad = house.horad(*ARGUMENTS)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.settimeout(20)
        listener.bind(house.path(SOCKET))
        listener.listen(1)
        attempts = []
        for _ in range(6):  # each turned away without an answer
            connection, _ = listener.accept()
            attempts.append(time.monotonic())
            connection.close()
    assert all(later - earlier >= 0.09 for earlier, later in zip(attempts, attempts[1:])), attempts
    assert attempts[-1] - attempts[0] < 3, attempts  # five intervals of 100 ms, on a loaded machine
    os.unlink(house.path(SOCKET))
    house.server = house.cfgserver()
    horad.err.wait("Initial reading of config")
    assert horad.err.seen[0].endswith("Initial reading of config"), horad.err.seen


def test_a_stop_signal_ends_the_daemon_that_waits_for_the_store(house):
    pid = start_daemon(house)
    os.kill(pid, signal.SIGTERM)
    house.wait_gone(pid)
    assert not os.path.exists(house.path("/run/horad"))


def test_a_server_of_another_user_is_refused(house):
    if os.geteuid() != 0:
        pytest.skip("only root can be another user")
    server = house.start("setpriv", "--reuid=65534", "--clear-groups", "/run/bin/cfgserver")
    server.err.wait("cfgserver: .*(serv|listen)")
    horad = house.horad(*ARGUMENTS)
    horad.err.wait("run by user 65534")
    status, _, err = house.run("cfgctl", "tables")
    assert status == 1 and "65534" in err


def test_garbage_from_the_server_is_logged_once_and_the_daemon_goes_on(house):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.settimeout(20)
        listener.bind(house.path(SOCKET))
        listener.listen(1)
        horad = house.horad(*ARGUMENTS)
        for _ in range(3):
            connection, _ = listener.accept()
            with connection:
                connection.sendall(struct.pack(">I", 0xFFFFFFFF))
                while connection.recv(4096):
                    pass
    os.unlink(house.path(SOCKET))
    house.server = house.cfgserver()
    horad.err.wait("Initial reading of config")
    assert horad.err.count("warning") == 1, horad.err.seen
