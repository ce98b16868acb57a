"""A server that takes connections and does not answer: the daemon gives each its 60 s, and goes on."""

import os
import signal
import socket
import struct
import time

import pytest

from house import SOCKET, fast_clock
from plans import slot
from wire import SUBSCRIBE, ScriptedStore

SPEED = 30  # times as fast as usual: the 60 s for an answer are 2 s here
TIMEOUT = 60 / SPEED
ARGUMENTS = ["-t", "WlanTimePlans"]


def greeted(connection):
    """Answers the greeting and the subscription, nothing else."""
    ScriptedStore(connection).answer_until(SUBSCRIBE)


def in_a_reading(connection):
    """Answers up to the first reading, and of that half a frame."""
    server = ScriptedStore(connection)
    server.answer_until(SUBSCRIBE)
    connection.recv(65536)
    connection.sendall(struct.pack(">I", 200) + b"\x84")


def mute(connection):
    """Says nothing at all."""


class Silence:
    """Accepts, says so much, and then nothing more: how long the client stays."""

    def __init__(self, house, speak):
        self._path, self._speak = house.path(SOCKET), speak
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.settimeout(20)
        self._listener.bind(self._path)
        self._listener.listen(1)

    def accept(self):
        connection = self._listener.accept()[0]
        connection.settimeout(20)
        self._speak(connection)
        return connection

    def endure(self):
        """Seconds until the next client gives up."""
        with self.accept() as connection:
            begin = time.monotonic()
            while connection.recv(65536):
                pass
            return time.monotonic() - begin

    def make_way(self):
        os.unlink(self._path)

    def close(self):
        self._listener.close()


@pytest.fixture(params=[mute, greeted, in_a_reading], ids=lambda speak: speak.__name__)
def silence(house, request):
    silent = Silence(house, request.param)
    yield silent
    silent.close()


def start_daemon(house):
    status, _, err = house.run("horad", "-d", *ARGUMENTS, env=fast_clock(SPEED))
    assert status == 0, err
    with open(house.path("/run/horad")) as file:
        return int(file.read())


def test_a_server_that_does_not_answer_is_tried_again_and_sigterm_ends_the_daemon(house, silence):
    pid = start_daemon(house)
    for _ in range(2):
        assert TIMEOUT * 0.9 <= silence.endure() < TIMEOUT * 3  # not at once, and not for ever
    with silence.accept():
        begin = time.monotonic()
        os.kill(pid, signal.SIGTERM)
        house.wait_gone(pid)
        assert time.monotonic() - begin < TIMEOUT * 1.9
    assert not os.path.exists(house.path("/run/horad"))


def test_a_real_server_in_the_place_of_a_silent_one_is_worked_with(house, silence):
    pid = start_daemon(house)
    silence.endure()
    silence.make_way()
    house.cfgserver()
    plan = house.add("WlanTimePlans", Activate=0)
    house.wait_value(f"WlanTimePlans.{plan} TimePlanStatus", 1)
    house.wait_value("WlanGlobals WlanEnable", 1)
    assert pid in house.processes()


def test_a_server_that_falls_silent_while_the_daemon_is_at_work_is_left_after_the_time_out(house):
    """The store is stopped before the moment at which a plan begins, and a new one takes its place."""
    log = house.syslog()
    stopped = house.cfgserver()
    begin = time.time()
    pid = start_daemon(house)
    log.wait("Initial reading of config")
    soon = begin + (time.time() - begin) * SPEED + 100  # by the daemon's clock
    house.add("WlanTimePlans", Activate=1, **slot(soon, soon + 3600))
    log.wait("Table WlanTimePlans was changed")
    stopped.send(signal.SIGSTOP)
    os.unlink(house.path(SOCKET))
    house.cfgserver()
    log.wait("connection lost: the configuration store did not answer in time")
    log.wait("Connected to the configuration store again")
    house.add("WlanTimePlans", Activate=0)
    house.wait_value("WlanGlobals WlanEnable", 1)
    assert pid in house.processes()
    log.close()
