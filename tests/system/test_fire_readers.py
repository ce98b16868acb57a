"""Clients that ask for large answers and hardly take them cost nobody else anything."""

import re
import threading

from crowd import serve_notes
from house import SOCKET, is_alive
from wire import READ_TABLE, Client, text

ROWS = 9000  # 36 MB
MEMORY = 128 * 1024 * 1024


def most_memory(pid):
    """Bytes that the process has had at most."""
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"VmHWM:\s+(\d+) kB", status.read())[1]) * 1024


class Sip(threading.Thread):
    """Takes a little of a large answer now and then."""

    def __init__(self, path, stop):
        super().__init__(daemon=True)
        self._client, self._stop_event = Client(path), stop
        self._client.send((READ_TABLE, text("Notes")))
        self._client.exactly(4)  # it is begun

    def run(self):
        while not self._stop_event.wait(1):
            self._client.exactly(12_000)


def test_slow_readers_do_not_make_the_readings_of_others_fail(house):
    server = serve_notes(house, ROWS, env={"ASAN_OPTIONS": "quarantine_size_mb=1"})
    stop = threading.Event()
    slow = [Sip(house.path(SOCKET), stop) for _ in range(3)]
    for each in slow:
        each.start()
    other = Client(house.path(SOCKET))
    for _ in range(8):
        other.send((READ_TABLE, text("Notes")))
        assert other.take_rows() == ROWS
    stop.set()
    assert most_memory(server.pid) < MEMORY
    assert is_alive(server.pid)


def test_many_that_take_nothing_of_a_large_answer_cost_little_memory(house):
    server = serve_notes(house, ROWS, env={"ASAN_OPTIONS": "quarantine_size_mb=1"})
    idle = [Client(house.path(SOCKET)) for _ in range(60)]
    for client in idle:
        client.send((READ_TABLE, text("Notes")))
    assert len(Client(house.path(SOCKET)).read("wexd")) == 1
    assert most_memory(server.pid) < MEMORY
