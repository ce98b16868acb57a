"""What the log says of clients that misbehave: who it was, and not a line for each time."""

import os
import re

import pytest

from crowd import lay_notes, serve_laid
from house import SOCKET, fast_clock
from wire import READ_TABLE, Client, text

TIMES = 1000
STRANGER = 54321
SPEED = 10  # times as fast: the 10 s for which a reading may hold its snapshot are one here

KNOCKS = f"""
import contextlib, socket
for _ in range({TIMES}):
    with socket.socket(socket.AF_UNIX) as client:
        client.connect({SOCKET!r})
        with contextlib.suppress(ConnectionError):  # it may be closed already
            client.sendall(bytes(4))  # no message has a length of 0
            while client.recv(100): pass
print("all were turned away")
"""


@pytest.mark.skipif(os.geteuid() != 0, reason="only root may act for another user")
@pytest.mark.parametrize("user, what", [
    (STRANGER, f"a client that is not permitted was turned away .*user {STRANGER}"),
    (0, "sent a frame with an impossible length, connection closed"),
], ids=["not-permitted", "broken"])
def test_a_thousand_clients_that_are_turned_away_are_one_line_and_one_with_their_number(house, user, what):
    server = house.cfgserver()
    os.chmod(house.path(SOCKET), 0o666)  # let the file's mode not be what keeps it out
    knocking = house.start("setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups",
                           "/usr/bin/python3", "-B", "-c", KNOCKS)
    assert knocking.wait() == 0 and knocking.out.seen == ["all were turned away"], knocking.err.seen
    assert server.stop() == 0
    lines = [line for line in server.err.seen if re.search(what, line)]
    assert len(lines) == 2, server.err.seen
    assert "warning cfgserver: " in lines[0] and f"process {knocking.pid}," in lines[0]
    assert lines[1].endswith(f" (the last of {TIMES - 1} such lines within a minute)")


def test_a_reader_that_is_closed_because_it_is_slow_is_named(house):
    rows = 6000  # 24 MB: more than there is room for in memory
    lay_notes(house, rows)
    server = serve_laid(house, env=fast_clock(SPEED))
    slow, other = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    slow.send((READ_TABLE, text("Notes")))
    server.err.wait(rf'warning cfgserver: client "wire.py" \(process {os.getpid()}, user {os.geteuid()}\) is too slow to '
                    "take its answer, and the rest is too large to be kept for it, connection closed")
    assert slow.closed()
    other.send((READ_TABLE, text("Notes")))
    assert other.take_rows() == rows
