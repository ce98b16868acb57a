"""Clients that ask for much at once, each in a thread of its own until the test is over with them."""

import contextlib
import struct
import threading
from pathlib import Path

from house import SOCKET
from wire import (ABORT, BEGIN, COMMIT, INSERT, READ_KEY, TEXT, WRITE_SINGLE, Client, result_code, single, text)

NOTES = "CREATE TABLE Notes (Id INTEGER PRIMARY KEY, Text TEXT NOT NULL DEFAULT '', Number INTEGER NOT NULL DEFAULT 0);"
NOTE = 4000  # bytes of the text of a row


def serve_notes(house, rows, *arguments, env=None):
    """A store with a table of so many rows of 4 kB."""
    Path(house.path("/tmp/notes.sql")).write_text(NOTES)
    server = house.cfgserver("--schema", "/tmp/notes.sql", *arguments, env=env)
    client = Client(house.path(SOCKET))
    values = struct.pack(">I", 1) + text("Text") + struct.pack(">B", TEXT) + text("x" * NOTE)
    assert result_code(client.begin()) == 0
    for begin in range(0, rows, 200):
        for _ in client.send(*[(INSERT, text("Notes") + values)] * min(200, rows - begin)):
            kind, _, body = client.receive()
            assert result_code((kind, body)) == 0
    assert result_code(client.commit()) == 0
    client.close()
    return server


def lay_notes(house, rows):
    """Lays a database with so many of these rows where a store with serve_laid() finds it."""
    Path(house.path("/tmp/notes.sql")).write_text(NOTES)
    assert serve_laid(house).stop() == 0
    status, _, err = house.run("sqlite3", "/tmp/store.db", f"""PRAGMA synchronous = OFF;
        WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < {rows})
        INSERT INTO Notes(Text) SELECT printf('%.*c', {NOTE}, 'x') FROM n""")
    assert status == 0, err


def serve_laid(house, env=None):
    return house.cfgserver("--schema", "/tmp/notes.sql", "-f", "/tmp/store.db", env=env)


class Busy(threading.Thread):
    """Does something over and over until it is stopped, which has to go well."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self._client = Client(path)
        self._stopping = threading.Event()
        self._under_way = threading.Event()
        self.failure = None

    def run(self):
        try:
            while not self._stopping.is_set():
                self.once(self._client)
                self._under_way.set()
        except (OSError, AssertionError) as failure:  # the store is gone, or says no
            self.failure = failure
            self._under_way.set()
        finally:
            self._client.close()

    def once(self, client):
        raise NotImplementedError

    def wait_under_way(self):
        assert self._under_way.wait(20) and self.failure is None, self.failure

    def end(self):
        """This time is the last."""
        self._stopping.set()

    def stop(self):
        self.end()
        self.join(30)
        assert not self.is_alive()


class Scans(Busy):
    """Sends bursts of requests each of which goes through the whole table of notes."""

    BURST = 300

    def once(self, client):
        body = text("Notes") + text("Text") + text("not there")
        numbers = client.send(*[(READ_KEY, body)] * self.BURST)
        for _ in numbers:
            client.receive()
            self._under_way.set()
            if self._stopping.is_set():
                return  # it would take long


class Commits(Busy):
    """Sends bursts of transactions, each of which counts up in one cell."""

    BURST = 300

    def __init__(self, path, table, column):
        super().__init__(path)
        self._table, self._column, self._number = table, column, 0

    def once(self, client):
        requests = []
        for _ in range(self.BURST):
            self._number += 1
            requests += [(BEGIN, struct.pack(">I", 60_000)), (WRITE_SINGLE, self._write()), (COMMIT, b"")]
        for _ in client.send(*requests):
            kind, _, body = client.receive()
            assert result_code((kind, body)) == 0
            self._under_way.set()

    def _write(self):
        return single(self._table, self._column, self._number)


class Holds(Busy):
    """Holds the transaction for 0.3 s, time and again."""

    def once(self, client):
        assert result_code(client.begin(60_000)) == 0
        self._stopping.wait(0.3)
        assert result_code(client.ask(ABORT)) == 0


@contextlib.contextmanager
def crowd(*busy):
    """They are all under way inside, and were all served to the end."""
    for each in busy:
        each.start()
    try:
        for each in busy:
            each.wait_under_way()
        yield
        assert [each.failure for each in busy] == [None] * len(busy)
    finally:
        for each in busy:
            each.end()
        for each in busy:
            each.stop()


CELLS = [("wexd", "Enable"), ("Reboot", "Trigger"), ("AutoReboot", "MinimumRuntime")]


def commits(path):
    """Three that commit without a pause."""
    return [Commits(path, *cell) for cell in CELLS]
