"""Stores under a crowd: horad's and its peers, each with the same tables and asked for the same in its own words."""

import json
import select
import socket
import struct
import time

import answers
import wire
from commit import start_ovsdb, start_redis
from house import SOCKET, wait_until
from workshop import BIN, PATIENCE

CELL = 4096  # bytes of a text
NOTES = 14_400  # rows: 59 MB
LETTERS = 8_790  # rows: 36 MB
CARDS = 32  # rows: 128 KiB
TABLES = {"Notes": NOTES, "Letters": LETTERS, "Cards": CARDS}
NO_SUCH_TEXT = "no such text!"
SYNC = 10_000  # microseconds that a sync takes on a router's flash
SLOW_SYNC = {"LD_PRELOAD": str(BIN / "slowsync.so"), "SLOWSYNC": str(SYNC)}


def texts(table):
    return [f"{table} {number:06} ".ljust(CELL, "x") for number in range(TABLES[table])]


class Link:
    """A connection that counts its answers."""

    def __init__(self, path, counter):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(path)
        self._counter = counter
        self.received = 0  # bytes

    def send(self, requests):
        self.socket.sendall(requests)

    def answers(self):
        """So many answers were received up to now."""
        while select.select([self.socket], [], [], 0)[0]:
            self._receive()
        return self._counter.count

    def ask(self, requests, count=1):
        """Returns when all of them are answered: the seconds it took."""
        begin, wanted = time.monotonic(), self._counter.count + count
        self.send(requests)
        while self._counter.count < wanted:
            self._receive()
        return time.monotonic() - begin

    def _receive(self):
        more = self.socket.recv(1 << 20)
        if not more:
            raise ConnectionError("closed by the server")
        self.received += len(more)
        self._counter.feed(more)

    def close(self):
        self.socket.close()


class Contender:
    """A store and its requests: `hello`, `one_row`, `scan` (of Notes, in vain), `whole(table)` and `write(value)`, one
    durable change. `launch(env)` starts the server, `fill_table` puts texts into a table."""

    answers_a_write = 1

    def __init__(self, workshop):
        self.workshop = workshop
        self.path = str(workshop.disk / f"{self.who}.socket")
        self.server = None

    def start(self, slow_sync=False):
        self.server = self.launch(SLOW_SYNC if slow_sync else {})

    def stop(self):
        """The seconds that it takes."""
        begin = time.monotonic()
        self.server.terminate()
        self.server.wait(PATIENCE)
        return time.monotonic() - begin

    def connect(self):
        link = Link(self.path, self.counter())
        link.ask(self.hello)
        return link

    def fill(self, *tables):
        link = self.connect()
        for table in tables:
            self.fill_table(link, table, texts(table))
        link.close()


class Horad(Contender):
    who = "horad"
    counter = answers.OfHorad
    answers_a_write = 3
    hello = wire.request(wire.HELLO, 1, struct.pack(">I", wire.MAGIC) + wire.text("crowd") + struct.pack(">I", 1))
    one_row = wire.request(wire.READ_TABLE, 1, wire.text("WlanGlobals"))
    scan = wire.request(wire.READ_KEY, 1, wire.text("Notes") + wire.text("Text") + wire.text(NO_SUCH_TEXT))

    def __init__(self, workshop, house=None):
        super().__init__(workshop)
        self.database = workshop.disk / "crowd.db"
        self.schema = workshop.disk / "crowd.sql"
        columns = "(Id INTEGER PRIMARY KEY, Text TEXT NOT NULL DEFAULT '')"
        self.schema.write_text("".join(f"CREATE TABLE {table} {columns};\n" for table in TABLES))
        if house:
            self.path = house.path(SOCKET)

    def launch(self, env):
        return self.workshop.cfgserver("-s", self.path, "-f", self.database, "--schema", self.schema, env=env)

    @staticmethod
    def whole(table):
        return wire.request(wire.READ_TABLE, 1, wire.text(table))

    @staticmethod
    def write(value):
        return (wire.request(wire.BEGIN, 1, struct.pack(">I", 60_000))
                + wire.request(wire.WRITE_SINGLE, 1, wire.single("wexd", "Enable", value))
                + wire.request(wire.COMMIT, 1))

    def fill_table(self, link, table, cells):
        link.ask(wire.request(wire.BEGIN, 1, bytes(4)))
        for begin in range(0, len(cells), 30):  # what the socket takes without being read
            rows = [wire.text(table) + struct.pack(">I", 1) + wire.text("Text") + struct.pack(">B", wire.TEXT)
                    + wire.text(cell) for cell in cells[begin:begin + 30]]
            link.ask(b"".join(wire.request(wire.INSERT, 1, row) for row in rows), len(rows))
        link.ask(wire.request(wire.COMMIT, 1))


def redis_command(*words):
    raw = [word if isinstance(word, bytes) else str(word).encode() for word in words]
    return b"*%d\r\n" % len(raw) + b"".join(b"$%d\r\n%s\r\n" % (len(word), word) for word in raw)


class Redis(Contender):
    who = "redis"
    counter = answers.OfRedis
    hello = redis_command("PING")
    one_row = redis_command("GET", "one")
    scan = redis_command("LPOS", "Notes", NO_SUCH_TEXT)

    def launch(self, env):
        server = start_redis(self.workshop, "--save", "", env=env)
        wait_until(self._is_loaded, "redis with its data", PATIENCE)
        return server

    def _is_loaded(self):
        try:
            self.connect().ask(self.one_row)
        except (AssertionError, ConnectionError):  # it says that it is loading
            return False
        return True

    @staticmethod
    def whole(table):
        return redis_command("LRANGE", table, 0, -1)

    @staticmethod
    def write(value):
        return redis_command("SET", "one", value)

    def fill_table(self, link, table, cells):
        for begin in range(0, len(cells), 1000):
            link.ask(redis_command("RPUSH", table, *cells[begin:begin + 1000]))


def ovsdb_transaction(*operations):
    return json.dumps({"method": "transact", "id": 1, "params": ["Bench", *operations]}).encode()


class Ovsdb(Contender):
    who = "ovsdb"
    counter = answers.OfOvsdb
    hello = json.dumps({"method": "echo", "id": 1, "params": []}).encode()
    one_row = ovsdb_transaction({"op": "select", "table": "TimePlans", "where": [], "columns": ["Status"]})
    scan = ovsdb_transaction({"op": "select", "table": "Notes", "where": [["Text", "==", NO_SUCH_TEXT]],
                              "columns": ["Text"]})

    def launch(self, env):
        server = start_ovsdb(self.workshop, {"TimePlans": {"Status": "integer"},
                                             **{table: {"Text": "string"} for table in TABLES}}, env=env)
        self.connect().close()
        return server

    @staticmethod
    def whole(table):
        return ovsdb_transaction({"op": "select", "table": table, "where": [], "columns": ["Text"]})

    @staticmethod
    def write(value):
        return ovsdb_transaction({"op": "update", "table": "TimePlans", "where": [], "row": {"Status": value}},
                                 {"op": "commit", "durable": True})

    def fill(self, *tables):
        link = self.connect()
        link.ask(ovsdb_transaction({"op": "insert", "table": "TimePlans", "row": {"Status": 0}}))
        link.close()
        super().fill(*tables)

    def fill_table(self, link, table, cells):
        for begin in range(0, len(cells), 1000):
            link.ask(ovsdb_transaction(*({"op": "insert", "table": table, "row": {"Text": cell}}
                                         for cell in cells[begin:begin + 1000])))
