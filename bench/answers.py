"""Where the answers of the stores end. Each class is fed with the bytes of answers and counts the whole ones."""

import re

from wire import ROWS


class OfHorad:
    """Frames; the pieces of one reading are one answer."""

    KIND, LAST = 4, 9  # where they stand in a frame
    HEAD = LAST + 1

    def __init__(self):
        self.count = 0
        self._bytes = bytearray()

    def feed(self, more):
        self._bytes += more
        at = 0
        while len(self._bytes) - at >= self.HEAD:
            size = 4 + int.from_bytes(self._bytes[at:at + 4], "big")
            if len(self._bytes) - at < size:
                break
            more_pieces = self._bytes[at + self.KIND] == ROWS and self._bytes[at + self.LAST] == 0
            self.count += not more_pieces
            at += size
        del self._bytes[:at]


class OfRedis:
    """A line, a text behind the line with its length, or a list of texts."""

    LINE = re.compile(rb"([+:$*-])([^\r]*)\r\n")

    def __init__(self):
        self.count = 0
        self._items = 0  # of a list that are yet to come
        self._bytes = bytearray()

    def feed(self, more):
        self._bytes += more
        at = 0
        while found := self.LINE.match(self._bytes, at):
            kind, rest = found.groups()
            assert kind != b"-", f"redis: {rest.decode()}"
            end = found.end() + (int(rest) + 2 if kind == b"$" and int(rest) >= 0 else 0)
            if end > len(self._bytes):
                break
            self._items += int(rest) if kind == b"*" else -1 if self._items else 0
            self.count += self._items == 0
            at = end
        del self._bytes[:at]


class OfOvsdb:
    """Objects. No text in the answers has a brace."""

    def __init__(self):
        self.count = 0
        self._depth = 0

    def feed(self, more):
        for part in re.findall(rb"[{}]", more):
            self._depth += 1 if part == b"{" else -1
            self.count += self._depth == 0
        assert b'"error":{' not in more, f"ovsdb: {more[:500]}"
