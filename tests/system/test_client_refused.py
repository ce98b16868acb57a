"""What the system refuses a client is told in a line that says what, with its exit status, and changes nothing."""

import os
import signal

import pytest

from house import SOCKET, is_sanitized, wait_until

NO_STORE = f"no configuration store at {SOCKET}: "
LOST = "the connection to the configuration store is lost"
DUMP = b'{"WlanGlobals": {"WlanEnable": 1}}'

# The system call that fails, with what error, which of its times, in what command, and what is said.
REFUSED = {
    "socket": ("socket", "EMFILE", 1, ["cfgctl", "tables"], NO_STORE + "socket: Too many open files"),
    "limit": ("setsockopt", "ENOMEM", 1, ["cfgctl", "tables"], NO_STORE + "SO_SNDTIMEO: Cannot allocate memory"),
    "connect": ("connect", "EACCES", 1, ["cfgctl", "tables"], NO_STORE + "Permission denied"),
    "peer": ("getsockopt", "ENOMEM", 1, ["cfgctl", "tables"], NO_STORE + "SO_PEERCRED: Cannot allocate memory"),
    "send": ("sendto", "ENOMEM", 2, ["cfgctl", "tables"], LOST),
    "write": ("sendto", "ENOMEM", 4, ["cfgctl", "set", "WlanGlobals", "WlanEnable=1"], LOST),
    "receive": ("recvfrom", "ENOMEM", 2, ["cfgctl", "tables"], LOST),
    "wait": ("?poll,?ppoll", "ENOMEM", 2, ["cfgctl", "tables"], LOST),
    "kept": ("write", "ENOSPC", 1, ["cfgctl", "load", "-"], "standard input: can't be kept for the second reading: "
                                                            "No space left on device"),
    "calls": ("memfd_create", "EMFILE", 1, ["horactl", "now"],
              "no file in memory for the calls and streams: Too many open files"),
    "streams": ("ftruncate", "ENOSPC", 1, ["horactl", "now"],
                "no file in memory for the calls and streams: No space left on device"),
}


def run(house, calls, how, command):
    tracer = ["strace", "-f", "-o", "/dev/null", "-e", f"trace={calls}", "-e", f"inject={calls}:{how}"]
    program, *arguments = command
    return house.run(*tracer, f"/run/bin/{program}", *arguments, input=DUMP, env={"ASAN_OPTIONS": "detect_leaks=0"})


@pytest.mark.parametrize("what", REFUSED)
def test_what_the_system_refuses_a_tool_is_one_line(store, what):
    calls, error, number, command, said = REFUSED[what]
    if calls == "write" and is_sanitized(command[0]):
        pytest.skip("the sanitizers try with a write whether memory is there")
    status, _, err = run(store, calls, f"error={error}:when={number}", command)
    lines = [line for line in err.splitlines() if not line.startswith("strace: ")]
    assert status == (3 if command[0] == "horactl" else 1) and lines == [f"{command[0]}: {said}"], err
    assert store.get("WlanGlobals WlanEnable") == "0"


# A signal may come in the middle of any of these: it is asked once more.
@pytest.mark.parametrize("command, calls", [
    (["cfgctl", "tables"], call) for call in ("connect", "sendto", "recvfrom", "?poll,?ppoll")
] + [
    (["cfgctl", "load", "-"], call) for call in ("write", "sendto", "recvfrom")
])
def test_a_call_that_a_signal_interrupts_is_made_again(store, command, calls):
    usual = store.run(*command, input=DUMP)
    assert usual[0] == 0
    for number in (1, 2, 3):
        interrupted = run(store, calls, f"error=EINTR:when={number}", command)
        assert interrupted[:2] == usual[:2], interrupted


def test_where_nothing_can_be_kept_for_a_second_reading_it_says_so(store):
    status, _, err = store.run("cfgctl", "load", "-", input=DUMP, env={"TMPDIR": "/proc"})
    assert status == 1 and err.startswith("cfgctl: standard input: /proc/cfgctl."), err


@pytest.mark.parametrize("calls", ["sendto", "recvfrom", "?waitpid,wait4", "flock", "?poll,?ppoll",
                                   "?epoll_wait,epoll_pwait"])
@pytest.mark.parametrize("program", ["horad", "cfgserver"])
def test_a_daemon_starts_works_and_ends_whatever_a_signal_interrupts(house, program, calls):
    tracer = ["strace", "-f", "-o", "/dev/null", "-e", f"trace={calls}", "-e", f"inject={calls}:error=EINTR:when=1"]
    programs = {"cfgserver": [], "horad": ["-t", "TimePlans"]}
    for name, arguments in programs.items():
        traced = house.start(*(tracer if name == program else []), f"/run/bin/{name}", "-d", *arguments,
                             env={"ASAN_OPTIONS": "detect_leaks=0"})
        wait_until(lambda: os.path.exists(house.path(f"/run/{name}")), f"the pid file of {name}")
        if name == program:
            tracing = traced
        else:
            assert traced.wait() == 0
    plan = house.add("TimePlans", Activate=0)
    house.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    with open(house.path(f"/run/{program}")) as file:
        os.kill(int(file.read()), signal.SIGTERM)
    assert tracing.wait() == 0
