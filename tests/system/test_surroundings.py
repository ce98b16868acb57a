"""What the surroundings do to the programs: a pipe that nobody reads, a terminal that goes away, a socket that is removed."""

import contextlib
import os
import re

import pytest

from house import SOCKET, wait_until


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
