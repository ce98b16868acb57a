"""There is a place for root whatever others do, and no other user takes all that are left."""

import os
import shutil
import signal
import subprocess
from pathlib import Path

import pytest

from house import SOCKET
from wire import DONE, HELLO, Client, hello

GROUP = 100
SOMEBODY, ANOTHER, THIRD = 54321, 54322, 54323  # users that nobody has named
TOO_MANY = 7

needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="only root may act for several users")


@pytest.fixture
def open_store(house):
    house.server = house.cfgserver("-g", str(GROUP))
    for name in ("wire.py", "guests.py"):
        shutil.copy(Path(__file__).with_name(name), house.path("/tmp"))
    return house


def come(house, user, count=200):
    """So many clients of a user at most: (how many came in, what the next was told). They stay."""
    process = house.start("setpriv", f"--reuid={user}", f"--regid={GROUP if user else 0}", "--clear-groups",
                          "/usr/bin/python3", "-B", "/tmp/guests.py", SOCKET, count, stdin=subprocess.PIPE)
    line = process.out.seen[process.out.wait("came in")]
    number, _, refusal = line.partition(" came in: ")
    return int(number), refusal


def test_root_may_have_all_places(open_store):
    number, refusal = come(open_store, 0)
    assert number == 128
    assert refusal.startswith(f"{TOO_MANY} ") and "all places are taken" in refusal


@needs_root
def test_another_user_has_56_at_most(open_store):
    number, refusal = come(open_store, SOMEBODY)
    assert number == 56
    assert refusal.startswith(f"{TOO_MANY} ") and "one user" in refusal
    open_store.server.err.wait(f"turned away .*user {SOMEBODY}.*one user")
    assert come(open_store, ANOTHER, 1)[0] == 1


@needs_root
def test_root_finds_a_place_when_the_others_have_taken_all_they_may(open_store):
    assert [come(open_store, user)[0] for user in (SOMEBODY, ANOTHER, THIRD)] == [56, 56, 0]
    assert open_store.get("WlanGlobals WlanEnable") == "0"
    assert come(open_store, 0)[0] == 16


def test_those_who_come_while_the_store_is_busy_come_in_together(open_store):
    """Their connections wait in line; each gets its answer, none is left there."""
    os.kill(open_store.server.pid, signal.SIGSTOP)  # nobody is taken
    guests = [Client(open_store.path(SOCKET), greet=False) for _ in range(100)]
    for guest in guests:
        guest.send((HELLO, hello("guest")))
    os.kill(open_store.server.pid, signal.SIGCONT)
    assert [guest.receive()[0] for guest in guests] == [DONE] * len(guests)
    assert [len(guest.read("wexd")) for guest in guests] == [1] * len(guests)
