"""A client of the wire protocol that can misbehave; doc/protocol.md says what the bytes mean."""

import socket
import struct

MAGIC = 0x48524346
HELLO, TABLES, COLUMNS, READ_TABLE, READ_ROW, READ_KEY, SUBSCRIBE, BEGIN, COMMIT, ABORT = range(1, 11)
DONE, FAILED = 128, 129


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

    def close(self):
        self.socket.close()
