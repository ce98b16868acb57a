"""A client of the wire protocol that can misbehave; doc/protocol.md says what the bytes mean."""

import socket
import struct

MAGIC = 0x48524346
HELLO, TABLES, COLUMNS, READ_TABLE, READ_ROW, READ_KEY, SUBSCRIBE, BEGIN, COMMIT, ABORT = range(1, 11)
WRITE_SINGLE = 11
DONE, FAILED, ROWS = 128, 129, 132
SWITCH, INTEGER = 1, 2


def text(value):
    raw = value.encode()
    return struct.pack(">I", len(raw)) + raw


def frame(message):
    return struct.pack(">I", len(message)) + message


class Client:
    def __init__(self, path, greet=True):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(20)
        self.socket.connect(path)
        self._sequence = 0
        if greet:
            assert self.ask(HELLO, struct.pack(">I", MAGIC) + text("wire.py") + struct.pack(">I", 1))[0] == DONE

    def ask(self, kind, body=b""):
        """Sends a request and returns (kind, body) of its answer."""
        self._sequence += 1
        self.socket.sendall(frame(struct.pack(">BI", kind, self._sequence) + body))
        while True:
            answer, sequence, rest = self.receive()
            if sequence == self._sequence:
                return answer, rest

    def receive(self):
        size = struct.unpack(">I", self._exactly(4))[0]
        message = self._exactly(size)
        kind, sequence = struct.unpack(">BI", message[:5])
        return kind, sequence, message[5:]

    def _exactly(self, size):
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
        values = struct.pack(">I", 1) + text(column) + struct.pack(">Bi", INTEGER, number)
        return self.ask(WRITE_SINGLE, text(table) + struct.pack(">I", 0) + values)

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
