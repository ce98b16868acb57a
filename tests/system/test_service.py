"""The programs under a service manager: what they tell it, the socket that it passes, lines for its journal."""

import contextlib
import json
import os
import re
import select
import signal
import socket
import subprocess
import sys
from pathlib import Path

import pytest

from house import DEADLINE, SOCKET, Syslog, untouched, wait_until

NOTIFY = "/tmp/notify"
TOLD = {"NOTIFY_SOCKET": NOTIFY}
ACTIVATED = f"/tmp/activated.{os.getpid()}.socket"  # ss sees the sockets of other tests as well
# The program finds its standard error to be the journal.
JOURNAL = ["sh", "-c", 'JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec "$@"', "sh"]
# The program finds itself to have been passed what is its descriptor 3.
PASSED = ["sh", "-c", 'LISTEN_PID=$$ exec "$@"', "sh"]


@pytest.fixture
def manager(house):
    """Takes what the programs tell; a datagram each."""
    listener = Syslog(house.path(NOTIFY))
    yield listener
    listener.close()


class DeafManager:
    """Lets a full queue stand until the test reads it."""

    def __init__(self, house):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(house.path(NOTIFY))
        self._socket.setblocking(False)
        filler = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        filler.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while True:
                filler.sendto(b"ballast", house.path(NOTIFY))

    def hear(self):
        """Reads on until something was told."""
        poll = select.poll()
        poll.register(self._socket, select.POLLIN)
        while poll.poll(DEADLINE * 1000):
            text = self._socket.recv(4096).decode()
            if text != "ballast":
                return text
        raise AssertionError("nothing was told")


class Activator:
    def __init__(self, house, path=ACTIVATED):
        self._house = house
        program = Path(__file__).parent / "activator.py"
        self.holder = house.start(sys.executable, program, path, stdin=subprocess.PIPE)
        self.holder.out.wait("listening")

    def start(self, *arguments, env=None):
        """The process of a store that serves the socket; its lines come on the holder's standard error."""
        variables = [f"{name}={value}" for name, value in (env or {}).items()]
        command = ["env", *variables, "/run/bin/cfgserver", *(str(word) for word in arguments)]
        seen = len(self.holder.out.seen)
        self.holder.process.stdin.write(json.dumps(command).encode() + b"\n")
        self.holder.process.stdin.flush()
        line = self.holder.out.wait(r"started \d+", seen)
        return int(self.holder.out.seen[line].split()[1])

    def serve(self, *arguments, env=None):
        seen = len(self.holder.err.seen)
        pid = self.start(*arguments, env=env)
        self.holder.err.wait("serves", seen)
        return pid


@pytest.fixture
def activator(house):
    return Activator(house)


def daemon_of(house, program):
    with open(house.path(f"/run/{program}")) as file:
        return int(file.read())


# --- what horad tells ---


def test_horad_tells_what_the_wlan_is_and_only_what_has_changed(store, manager):
    assert store.run("horad", "-d", "-t", "WlanTimePlans", env=TOLD)[0] == 0
    manager.wait("WLAN off")
    plan = store.add("WlanTimePlans", Activate=0)  # is active at once, and the WLAN goes on
    manager.wait("WLAN on")
    store.set("WlanGlobals", AlwaysEnable=1)
    manager.wait("AlwaysEnable")
    store.set(f"WlanTimePlans.{plan}", Activate=1)
    store.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 0)  # the WLAN stays on
    store.set("WlanGlobals", AlwaysEnable=0)
    store.wait_value("WlanGlobals WlanEnable", 0)
    manager.wait("^STATUS=WLAN off$")
    pid = daemon_of(store, "horad")
    os.kill(pid, signal.SIGTERM)
    manager.wait("STOPPING")
    store.wait_gone(pid)
    *shown, last, stopping = manager.seen
    assert shown[:4] == ["STATUS=waiting for the store", "STATUS=WLAN off", "STATUS=WLAN on", "STATUS=WLAN on, AlwaysEnable"]
    assert shown[4:] in ([], ["STATUS=WLAN on"]) and last == "STATUS=WLAN off" and stopping == "STOPPING=1"


def test_horad_tells_while_it_waits_for_the_store(house, manager):
    assert house.run("horad", "-d", "-t", "TimePlans", "-t", "WlanTimePlans", env=TOLD)[0] == 0
    assert manager.wait("") == "STATUS=waiting for the store"
    server = house.cfgserver()
    assert manager.wait("") == "STATUS=WLAN off"
    server.stop(signal.SIGKILL)
    assert manager.wait("") == "STATUS=waiting for the store"
    house.cfgserver()
    assert manager.wait("") == "STATUS=WLAN off"


def test_horad_tells_that_it_waits_for_a_store_that_accepts_nobody(house, manager):
    activator = Activator(house, SOCKET)
    server = activator.serve()
    assert house.run("horad", "-d", "-t", "WlanTimePlans", env=TOLD)[0] == 0
    manager.wait("WLAN off")
    os.kill(server, signal.SIGKILL)  # the socket goes on taking connections
    assert manager.wait("") == "STATUS=waiting for the store"
    activator.serve()
    assert manager.wait("") == "STATUS=WLAN off"


@pytest.mark.parametrize("tables, shown", [(["TimePlans"], "1 table"), (["TimePlans", "FirmwareUpdateTimePlan"], "2 tables")])
def test_horad_without_the_plans_of_the_wlan_tells_how_many_tables_it_follows(store, manager, tables, shown):
    options = [word for table in tables for word in ("-t", table)]
    store.run("horad", "-d", *options, env=TOLD)
    manager.wait("waiting")
    assert manager.wait("") == f"STATUS=following {shown}"


def test_horad_in_the_foreground_says_once_that_it_is_ready(house, manager):
    horad = house.horad("-t", "WlanTimePlans", env=TOLD)
    assert manager.wait("") == "STATUS=waiting for the store"
    house.cfgserver()
    assert manager.wait("") == "READY=1\nSTATUS=WLAN off"
    house.set("WlanGlobals", AlwaysEnable=1)
    assert manager.wait("") == "STATUS=WLAN off, AlwaysEnable"
    assert horad.stop() == -signal.SIGTERM


def test_a_manager_that_does_not_read_holds_horad_up_in_nothing_and_hears_later(store):
    manager = DeafManager(store)
    assert store.run("horad", "-d", "-t", "WlanTimePlans", env=TOLD)[0] == 0
    plan = store.add("WlanTimePlans", Activate=0)
    store.wait_value("WlanGlobals WlanEnable", 1)
    while (told := manager.hear()) != "STATUS=WLAN on":
        assert told == "STATUS=WLAN off"  # the first text is lost
    store.set(f"WlanTimePlans.{plan}", Activate=1)
    assert manager.hear() == "STATUS=WLAN off"


def test_nobody_at_the_managers_socket_is_no_loss(house):
    house.cfgserver(env=TOLD)
    assert house.run("horad", "-d", "-t", "WlanTimePlans", env=TOLD)[0] == 0
    house.add("WlanTimePlans", Activate=0)
    house.wait_value("WlanGlobals WlanEnable", 1)


# --- what the store tells ---


def tables_of(line):
    return re.search(r"serves \d+ tables", line)[0]


def test_the_store_tells_that_it_serves_and_that_it_ends(house, manager):
    server = house.cfgserver(env=TOLD)
    serving = tables_of(server.err.seen[-1])
    assert manager.wait("") == f"READY=1\nSTATUS={serving} at {SOCKET}"
    assert house.get("WlanGlobals WlanEnable") == "0"
    assert server.stop() == 0
    assert manager.wait("") == "STOPPING=1"


def test_the_store_is_ready_only_when_clients_are_served(house, manager):
    house.start("cfgserver", env=TOLD)
    manager.wait("READY=1")
    assert house.get("WlanGlobals WlanEnable") == "0"  # at the first attempt


def test_the_store_tells_as_a_daemon_too(house, manager):
    assert house.run("cfgserver", "-d", env=TOLD)[0] == 0
    assert re.match(r"READY=1\nSTATUS=serves \d+ tables at /tmp/cfgserver.socket$", manager.wait(""))
    os.kill(daemon_of(house, "cfgserver"), signal.SIGTERM)
    assert manager.wait("") == "STOPPING=1"


def test_a_path_of_several_lines_is_one_status(house, manager):
    house.start("cfgserver", "-s", "/tmp/a\nSTOPPING=1", env=TOLD)
    assert manager.wait("READY").endswith("at /tmp/a STOPPING=1")


def test_a_store_that_cannot_start_is_never_ready(house, manager):
    os.mkdir(house.path(SOCKET))
    assert house.run("cfgserver", env=TOLD)[0] == 1
    os.rmdir(house.path(SOCKET))
    house.cfgserver(env=TOLD)
    manager.wait("READY")
    assert len(manager.seen) == 1


def test_a_manager_that_does_not_read_holds_the_store_up_in_nothing_and_hears_later(house):
    manager = DeafManager(house)
    server = house.cfgserver(env=TOLD)
    house.set("WlanGlobals", WlanEnable=1)
    assert manager.hear().startswith("READY=1\nSTATUS=serves ")
    assert server.stop() == 0
    assert manager.hear() == "STOPPING=1"


# --- the socket that the manager passes ---


def test_a_passed_socket_is_served_and_stays_as_it_is(house, activator, manager):
    os.chmod(house.path(ACTIVATED), 0o620)
    before = untouched(house.path(ACTIVATED))
    server = activator.serve(env=TOLD)
    assert manager.wait("READY").endswith(f"at {ACTIVATED}")
    house.cfgctl("-s", ACTIVATED, "set", "WlanGlobals", "WlanEnable=1")
    os.kill(server, signal.SIGTERM)
    manager.wait("STOPPING")
    house.wait_gone(server)
    assert untouched(house.path(ACTIVATED)) == before
    assert not os.path.exists(house.path(SOCKET))


def test_clients_that_come_while_the_store_is_dead_are_served_by_the_next(house, activator):
    database = ["-f", "/tmp/household.db"]
    first = activator.serve(*database)
    house.cfgctl("-s", ACTIVATED, "set", "WlanGlobals", "WlanEnable=1")
    os.kill(first, signal.SIGKILL)
    house.wait_gone(first)
    waiting = [house.start("cfgctl", "-s", ACTIVATED, "get", "WlanGlobals", "WlanEnable") for _ in range(5)]
    wait_until(lambda: len(queued(house)) == len(waiting), "the connections")
    activator.serve(*database)
    for client in waiting:
        assert client.wait() == 0
        assert client.out.seen == ["1"]


def queued(house):
    """The connections to the socket that nobody has accepted yet."""
    _, out, _ = house.run("ss", "-xlH", "src", ACTIVATED)
    return range(int(out.split()[2]))


def test_horad_follows_a_store_that_is_started_again_on_its_socket(house):
    activator = Activator(house, SOCKET)
    server = activator.serve("-f", "/tmp/household.db")
    horad = house.horad("-v", "-t", "WlanTimePlans")
    horad.err.wait("Initial reading")
    os.kill(server, signal.SIGKILL)
    house.wait_gone(server)
    activator.serve("-f", "/tmp/household.db")
    house.add("WlanTimePlans", Activate=0)
    house.wait_value("WlanGlobals WlanEnable", 1)


def test_a_daemon_serves_a_passed_socket_too(house, activator, log):
    activator.start("-d")
    log.wait(f"serves .* at {ACTIVATED} ")
    assert house.cfgctl("-s", ACTIVATED, "get", "WlanGlobals", "WlanEnable") == "0\n"


def test_a_second_store_at_the_path_of_a_passed_socket_is_refused(house, activator):
    activator.serve()
    status, _, err = house.run("cfgserver", "-s", ACTIVATED)
    assert status == 1 and f"{ACTIVATED}: another server holds it (process {activator.holder.pid}, " in err, err
    assert house.cfgctl("-s", ACTIVATED, "get", "WlanGlobals", "WlanEnable") == "0\n"


def test_a_socket_that_is_held_while_no_store_runs_is_not_taken_away(house, activator):
    before = untouched(house.path(ACTIVATED))
    status, _, err = house.run("cfgserver", "-s", ACTIVATED)
    assert status == 1 and "another server holds it" in err, err
    assert untouched(house.path(ACTIVATED)) == before


def test_a_passed_socket_that_is_removed_is_logged(house, activator):
    activator.serve()
    os.unlink(house.path(ACTIVATED))
    activator.holder.err.wait(f"no new client finds the socket {ACTIVATED}: it was removed or moved away")


def test_an_option_s_may_lead_to_the_passed_socket_by_a_link(house, activator):
    os.symlink(ACTIVATED, house.path(SOCKET))
    activator.serve("-s", SOCKET)
    assert house.get("WlanGlobals WlanEnable") == "0"


def test_an_option_s_that_leads_elsewhere_is_refused(house, activator):
    activator.start("-s", "/tmp/other")
    activator.holder.err.wait(
        f"cfgserver: -s names /tmp/other, but the service manager has passed the socket {ACTIVATED}: leave out -s, or"
    )


@pytest.mark.parametrize("count", ["x", "-1", "2", "0", ""])
def test_a_damaged_count_of_sockets_is_refused(house, count):
    status, _, err = house.run(*PASSED, "/run/bin/cfgserver", env={"LISTEN_FDS": count})
    assert (status, err) == (
        1,
        f"cfgserver: the service manager has to pass one listening Unix stream socket, but LISTEN_FDS is '{count}'\n",
    )
    assert not os.path.exists(house.path(SOCKET))


@pytest.mark.parametrize("redirection, wrong", [("3<&-", "is not open"), ("3</dev/null", "is no socket")])
@pytest.mark.parametrize("daemon", [[], ["-d"]])
def test_a_descriptor_that_is_no_socket_is_refused(house, redirection, wrong, daemon):
    command = ["sh", "-c", f'LISTEN_PID=$$ LISTEN_FDS=1 exec "$@" {redirection}', "sh", "/run/bin/cfgserver", *daemon]
    status, _, err = house.run(*command)
    assert status == 1 and err.endswith(f", but descriptor 3 {wrong}\n"), err


def test_what_was_passed_to_another_process_is_no_business_of_the_store(house):
    server = house.cfgserver(env={"LISTEN_PID": "1", "LISTEN_FDS": "7"})
    assert house.get("WlanGlobals WlanEnable") == "0"
    assert server.stop() == 0


# --- lines for the journal ---


def test_lines_of_the_store_for_the_journal_begin_with_their_severity(house):
    server = house.start(*JOURNAL, "/run/bin/cfgserver", "-v")
    server.err.wait("^<6>serves ")
    house.get("WlanGlobals WlanEnable")
    server.err.wait("^<7>client .* is gone")
    assert server.stop() == 0
    assert server.err.seen[-1] == "<6>ends on signal 15"
    assert all(re.match(r"<[3-7]>\D", line) for line in server.err.seen)


def test_lines_of_horad_for_the_journal_begin_with_their_severity(store):
    horad = store.start(*JOURNAL, "/run/bin/horad", "-v", "-t", "TimePlans")
    horad.err.wait("^<6>Initial reading of config$")
    horad.err.wait("^<7>timefrmhdl: ")
    assert all(re.match(r"<[3-7]>\D", line) for line in horad.err.seen)


@pytest.mark.parametrize(
    "command, status, line",
    [
        (["cfgserver", "-s", "/none/socket"], 1, "<3>cfgserver: socket /none/socket: can't be made: No such file or directory"),
        (["cfgserver", "--nonsense"], 2, "<3>cfgserver: The following argument was not expected: --nonsense (cfgserver -h shows the usage)"),
        (["horad"], 1, "<3>You have to specify at least one table (with -t TABLE)"),
    ],
)
def test_the_reason_why_a_program_cannot_start_is_an_error_of_the_journal(house, command, status, line):
    program, *arguments = command
    assert house.run(*JOURNAL, f"/run/bin/{program}", *arguments) == (status, "", line + "\n")


def test_a_daemon_that_cannot_start_tells_the_journal_of_its_starter(store):
    assert store.run("horad", "-d", "-t", "TimePlans")[0] == 0
    status, _, err = store.run(*JOURNAL, "/run/bin/horad", "-d", "-t", "TimePlans")
    assert (status, err) == (1, "<3>horad is already running\n")


def test_lines_that_go_elsewhere_than_to_the_journal_are_as_ever(house):
    server = house.cfgserver(env={"JOURNAL_STREAM": "8:15"})
    assert re.match(r"\d{4}-\d\d-\d\dT\S+Z info cfgserver: serves ", server.err.seen[-1])
