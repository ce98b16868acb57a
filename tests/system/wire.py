"""A client of the wire protocol that can misbehave; cfgserver.protocol(7) says what the bytes mean."""

import socket
import struct

MAGIC = 0x48524346
HELLO, TABLES, COLUMNS, READ_TABLE, READ_ROW, READ_KEY, SUBSCRIBE, BEGIN, COMMIT, ABORT = range(1, 11)
WRITE_SINGLE, UPDATE, INSERT, REMOVE = 11, 12, 13, 14
DESCRIBE, SHARED_COLUMNS = 15, 16
DONE, FAILED, COLUMNS_OF, ROWS, NOTICE, DESCRIPTION = 128, 129, 131, 132, 133, 134
SWITCH, INTEGER, COUNTER, TEXT = 1, 2, 3, 4
NOT_PERMITTED, TOO_LARGE, BUSY, NO_TRANSACTION, TRANSACTION_EXPIRED, STORAGE_FAILED, OUTCOME_UNKNOWN = 6, 8, 9, 10, 12, 20, 24
CONFLICT = 28


def text(value):
    raw = value.encode()
    return struct.pack(">I", len(raw)) + raw


def frame(message):
    return struct.pack(">I", len(message)) + message


def request(kind, sequence, body=b""):
    return frame(struct.pack(">BI", kind, sequence) + body)


def hello(name):
    """The body of a greeting."""
    return struct.pack(">I", MAGIC) + text(name) + struct.pack(">I", 1)


def single(table, column, number, kind=INTEGER):
    """The body of a WriteSingle of one number."""
    return text(table) + struct.pack(">II", 0, 1) + text(column) + struct.pack(">Bi", kind, number)


def result_code(answer):
    """0 for an answer that is not Failed."""
    kind, body = answer
    return struct.unpack(">I", body[:4])[0] if kind == FAILED else 0


class Fields:
    """Takes the fields of a message one by one."""

    def __init__(self, raw):
        self._raw, self._at = raw, 0

    def number(self, form=">I"):
        size = struct.calcsize(form)
        self._at += size
        return struct.unpack(form, self._raw[self._at - size:self._at])[0]

    def text(self):
        size = self.number()
        self._at += size
        return self._raw[self._at - size:self._at].decode()

    def names(self):
        return [self.text() for _ in range(self.number())]

    def value(self):
        kind = self.number(">B")
        return self.text() if kind == TEXT else self.number(">i" if kind == INTEGER else ">I") if kind else None

    def rows(self):
        """The rows of a Rows reply that is in one piece."""
        assert self.number(">B") == 1, "more pieces follow"
        self.number()
        count, columns = self.number(), self.names()
        return [{column: self.value() for column in columns} for _ in range(count)]


class Client:
    def __init__(self, path, greet=True):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(20)
        self.socket.connect(path)
        self._sequence = 0
        self._notices = []  # that came before an answer
        if greet:
            assert self.ask(HELLO, hello("wire.py"))[0] == DONE

    def ask(self, kind, body=b""):
        """Sends a request and returns (kind, body) of its answer."""
        self._sequence += 1
        self.socket.sendall(frame(struct.pack(">BI", kind, self._sequence) + body))
        while True:
            answer, sequence, rest = self.receive()
            if sequence == self._sequence:
                return answer, rest
            if answer == NOTICE:
                self._notices.append(Fields(rest).names())

    def send(self, *requests):
        """Sends requests, each (kind, body), in one go and waits for no answer; gives their sequence numbers."""
        first = self._sequence + 1
        self._sequence += len(requests)
        self.socket.sendall(b"".join(request(kind, first + i, body) for i, (kind, body) in enumerate(requests)))
        return range(first, first + len(requests))

    def receive(self):
        size = struct.unpack(">I", self.exactly(4))[0]
        message = self.exactly(size)
        kind, sequence = struct.unpack(">BI", message[:5])
        return kind, sequence, message[5:]

    def exactly(self, size):
        data = b""
        while len(data) < size:
            more = self.socket.recv(size - len(data))
            if not more:
                raise ConnectionError("closed by the server")
            data += more
        return data

    def closed(self):
        """True once the server has closed the connection."""
        try:
            while self.socket.recv(65536):
                pass
        except ConnectionResetError:
            pass
        return True

    def begin(self, wait=0):
        return self.ask(BEGIN, struct.pack(">I", wait))

    def abort(self):
        return self.ask(ABORT)

    def write_single(self, table, column, number):
        """Writes an integer into the one row of a table."""
        return self.ask(WRITE_SINGLE, single(table, column, number))

    def update_switch(self, table, row, column, number):
        values = struct.pack(">I", 1) + text(column) + struct.pack(">BI", SWITCH, number)
        return self.ask(UPDATE, text(table) + text("Id") + text(str(row)) + values)

    def update_integers(self, table, row, **cells):
        values = b"".join(text(column) + struct.pack(">Bi", INTEGER, number) for column, number in cells.items())
        return self.ask(UPDATE, text(table) + text("Id") + text(str(row)) + struct.pack(">I", len(cells)) + values)

    def commit(self):
        return self.ask(COMMIT)

    def subscribe(self, *tables):
        names = struct.pack(">I", len(tables)) + b"".join(text(table) for table in tables)
        return self.ask(SUBSCRIBE, struct.pack(">I", 0) + names)

    def read(self, table):
        kind, body = self.ask(READ_TABLE, text(table))
        assert kind == ROWS, body
        return Fields(body).rows()

    def pieces(self):
        """The pieces of the rows that come next, in several frames: (rows of all, [{column: value}]) each."""
        last = False
        while not last:
            kind, _, body = self.receive()
            assert kind == ROWS, body
            fields = Fields(body)
            last, total, count = fields.number(">B") == 1, fields.number(), fields.number()
            columns = fields.names()
            yield total, [{column: fields.value() for column in columns} for _ in range(count)]

    def read_large(self, table):
        """All rows of a table, however many pieces they come in."""
        self.send((READ_TABLE, text(table)))
        return [row for _, rows in self.pieces() for row in rows]

    def take_rows(self):
        """Takes the rows that come next and gives their number; not at what is in them."""
        rows, last = 0, False
        while not last:
            kind, _, body = self.receive()
            assert kind == ROWS, body[:100]
            last, rows = body[0] == 1, rows + struct.unpack(">I", body[5:9])[0]
        return rows

    def notice(self):
        """The tables of the next notice; nothing else may come before it."""
        if self._notices:
            return self._notices.pop(0)
        kind, _, body = self.receive()
        assert kind == NOTICE, kind
        return Fields(body).names()

    def untold(self):
        """Whether no notice came before the last answer."""
        return not self._notices

    def close(self):
        self.socket.close()


class ScriptedStore:
    """The store's end of one connection: every table has one row of switches, all of them 1."""

    COLUMNS = ["Id", "WlanEnable", "Activate"]

    def __init__(self, connection):
        self._client = Client.__new__(Client)
        self._client.socket = connection
        connection.settimeout(20)

    def answer_until(self, last):
        """Answers requests up to one of that kind: its body, and the tables that were read on the way."""
        read = []
        while True:
            kind, sequence, body = self._client.receive()
            if kind in (READ_TABLE, READ_ROW):
                size = struct.unpack(">I", body[:4])[0]
                read.append(body[4:4 + size].decode())
                self._send(ROWS, sequence, self._one_row())
            else:
                self._send(DONE, sequence, struct.pack(">I", 1))
            if kind == last:
                return body, read

    def _send(self, kind, sequence, body):
        self._client.socket.sendall(frame(struct.pack(">BI", kind, sequence) + body))

    def _one_row(self):
        names = struct.pack(">I", len(self.COLUMNS)) + b"".join(text(name) for name in self.COLUMNS)
        return struct.pack(">BII", 1, 1, 1) + names + struct.pack(">BI", SWITCH, 1) * len(self.COLUMNS)
