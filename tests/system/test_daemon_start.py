"""How the two daemons come up with -d: what they leave behind, and what is said where they can't."""

import os

import pytest

from house import COUNTING

STARTS = {"horad": ["horad", "-d", "-t", "TimePlans"], "cfgserver": ["cfgserver", "-d"]}
NOT_A_DAEMON = {
    "horad": "Could not become a daemon: fork: Resource temporarily unavailable",
    "cfgserver": "cfgserver: can't become a daemon: fork: Resource temporarily unavailable",
}


def daemon_of(house, program):
    with open(house.path(f"/run/{program}")) as file:
        return int(file.read())


def open_files(pid):
    return [os.readlink(f"/proc/{pid}/fd/{name}") for name in os.listdir(f"/proc/{pid}/fd")]


@pytest.mark.parametrize("program", STARTS)
def test_a_daemon_keeps_nothing_open_of_what_its_starter_left_open(house, program):
    start = " ".join(STARTS[program])
    status, _, err = house.run("sh", "-c", f"exec 3</etc/passwd 7</etc/group 9>/tmp/lock; exec /run/bin/{start}")
    assert status == 0, err
    kept = [name for name in open_files(daemon_of(house, program)) if name.endswith(("/passwd", "/group", "/lock"))]
    assert kept == []


@pytest.mark.parametrize("program", STARTS)
def test_who_waits_for_the_end_of_an_inherited_pipe_does_not_wait_for_the_daemon(house, program):
    start = " ".join(STARTS[program])
    status, out, err = house.run("sh", "-c", f"exec 5>&1; /run/bin/{start}; echo started")  # reads until nobody writes
    assert (status, out) == (0, "started\n"), err
    assert daemon_of(house, program) in house.processes()


@pytest.mark.parametrize("processes", [1, 2], ids=["first", "second"])
@pytest.mark.parametrize("program", STARTS)
def test_a_fork_that_fails_is_told_to_the_starter_and_to_the_log(house, program, processes):
    """Each of the two forks, of a user who may have only so many processes."""
    if os.geteuid() != 0:
        pytest.skip("only root can be another user")
    if COUNTING:
        pytest.skip("another user can't write what is counted, and says so")
    nobody_elses = 0x10000000 + os.getpid()
    log = house.syslog()
    command, *arguments = STARTS[program]
    no_leak_check = "ASAN_OPTIONS=detect_leaks=0"  # the sanitizer's takes a process of its own
    status, _, err = house.run("env", no_leak_check, "setpriv", f"--reuid={nobody_elses}", "--clear-groups", "prlimit", f"--nproc={processes}",
                               f"/run/bin/{command}", *arguments)
    assert (status, err) == (1, NOT_A_DAEMON[program] + "\n")
    assert log.wait(f"<27>{program}.*become a daemon: fork: Resource temporarily unavailable")
    log.close()
