"""One client's turn comes whatever others ask for: requests in bursts, and a transaction that others want too."""

import os
import signal
import statistics
import struct
import time

import pytest

from crowd import CELLS, Commits, Holds, Scans, commits, crowd, lay_notes, serve_laid, serve_notes
from house import SOCKET, fast_clock
from plans import slot
from wire import (BEGIN, BUSY, DONE, INTEGER, READ_KEY, READ_TABLE, UPDATE, Client, result_code, text)

ROWS = 2500  # 10 MB: a look at all of them takes a while


def scans(path):
    return [Scans(path) for _ in range(3)]


CROWDS = {"scans": scans, "commits": commits}


@pytest.fixture(params=CROWDS, ids=str)
def busy_store(house, request):
    """A store among clients that leave it no rest."""
    house.server = serve_notes(house, ROWS, "-f", "/tmp/store.db")
    with crowd(*CROWDS[request.param](house.path(SOCKET))):
        yield house


def test_one_read_is_answered_before_a_burst_of_scans_is(house):
    serve_notes(house, ROWS)
    burst, other = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    numbers = burst.send(*[(READ_KEY, text("Notes") + text("Text") + text("not there"))] * 300)
    burst.receive()
    assert len(other.read("wexd")) == 1
    burst.socket.setblocking(False)
    answered = 0
    try:
        while burst.socket.recv(1, 0x2):  # MSG_PEEK: is there one more
            burst.receive()
            answered += 1
    except BlockingIOError:
        pass
    assert answered < len(numbers) / 10


def test_a_reader_sees_the_commits_of_others_one_by_one(house):
    house.cfgserver()
    reader = Client(house.path(SOCKET))
    with crowd(*commits(house.path(SOCKET))):
        seen = [reader.read("wexd")[0]["Enable"] for _ in range(300)]
    steps = [later - earlier for earlier, later in zip(seen, seen[1:])]
    assert statistics.median(steps) <= 20, steps
    assert max(steps) <= 150, max(steps)  # in one burst are 300


def test_a_new_client_is_greeted(busy_store):
    for _ in range(5):
        begin = time.monotonic()
        client = Client(busy_store.path(SOCKET))
        assert len(client.read("wexd")) == 1
        assert time.monotonic() - begin < 2.5
        client.close()


def test_the_wlan_switches(busy_store):
    horad = busy_store.horad("-v", "-t", "WlanTimePlans")
    horad.err.wait("Initial reading of config")
    begin = time.monotonic()
    busy_store.add("WlanTimePlans", Activate=0)
    horad.err.wait("Switch WLAN on$", deadline=20)
    busy_store.wait_value("WlanGlobals WlanEnable", 1, deadline=20)
    assert time.monotonic() - begin < 20


@pytest.mark.parametrize("who", CROWDS)
def test_it_ends_on_a_signal(house, who):
    server = serve_notes(house, ROWS, "-f", "/tmp/store.db")
    busy = CROWDS[who](house.path(SOCKET))
    for each in busy:
        each.start()
        each.wait_under_way()
    begin = time.monotonic()
    assert server.stop(signal.SIGTERM) == 0
    assert time.monotonic() - begin < 3
    for each in busy:
        each.stop()


def test_an_answer_that_is_begun_comes_to_its_end_when_the_store_ends(house):
    server = serve_notes(house, ROWS)
    client = Client(house.path(SOCKET))
    client.send((READ_TABLE, text("Notes")))
    pieces = client.pieces()
    rows = len(next(pieces)[1])
    server.send(signal.SIGTERM)
    server.err.wait("ends on signal")
    assert rows + sum(len(piece) for _, piece in pieces) == ROWS
    assert client.closed() and server.wait() == 0


def test_what_is_asked_for_behind_a_long_reading_does_not_keep_the_store_from_its_end(house):
    rows = 250  # 1 MB: more than the sockets take
    lay_notes(house, rows)
    server = serve_laid(house)
    waiting = [(READ_KEY, text("Notes") + text("Text") + text("not there"))] * 300
    takes, idle = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    for client in (takes, idle):
        client.send((READ_TABLE, text("Notes")), *waiting)
    first = next(takes.pieces())[1]
    begin = time.monotonic()
    server.send(signal.SIGTERM)
    server.err.wait("ends on signal")
    assert len(first) + takes.take_rows() == rows
    with pytest.raises(ConnectionError):  # the reading was the last that is answered
        takes.receive()
    assert server.wait() == 0
    assert time.monotonic() - begin < 2


def both_ends(number):
    """A transaction that writes the number into the first and into the last row."""
    def update(row):
        values = struct.pack(">I", 1) + text("Number") + struct.pack(">Bi", INTEGER, number)
        return UPDATE, text("Notes") + text("Id") + text(str(row)) + values

    return (BEGIN, struct.pack(">I", 60_000)), update(1), update(ROWS), (9, b"")


def test_a_large_table_is_read_as_it_was_at_one_moment(house):
    serve_notes(house, ROWS)
    reader, writer = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    written = 0
    for _ in range(3):
        reader.send((READ_TABLE, text("Notes")))
        pieces = reader.pieces()
        rows = next(pieces)[1]  # the rest is still with the store
        for written in range(written + 1, written + 20):
            for _ in writer.send(*both_ends(written)):
                kind, _, body = writer.receive()
                assert result_code((kind, body)) == 0
        rows += [row for _, piece in pieces for row in piece]
        assert len(rows) == ROWS
        assert rows[0]["Number"] == rows[-1]["Number"] < written


def test_a_reading_that_nobody_takes_does_not_let_the_log_grow(house):
    serve_notes(house, ROWS, "-f", "/tmp/store.db")
    idle = Client(house.path(SOCKET))
    idle.send((READ_TABLE, text("Notes")))
    idle.exactly(4)
    writer = Commits(house.path(SOCKET), *CELLS[0])
    for _ in range(30):
        writer.once(writer._client)
        assert os.stat(house.path("/tmp/store.db-wal")).st_size < 16 * 1024 * 1024


def test_readers_that_take_nothing_and_those_behind_them_do_not_let_the_log_grow(house):
    rows = 500  # 2 MB: what all of them are owed has room in memory
    lay_notes(house, rows)
    serve_laid(house)
    idle = [Client(house.path(SOCKET)) for _ in range(7)]  # four have a snapshot at a time
    for client in idle:
        client.send((READ_TABLE, text("Notes")))
    writer = Commits(house.path(SOCKET), *CELLS[0])
    longest = 0
    for _ in range(40):
        writer.once(writer._client)
        longest = max(longest, os.stat(house.path("/tmp/store.db-wal")).st_size)
    assert longest < 16 * 1024 * 1024
    for client in idle:
        assert client.take_rows() == rows


# --- the transaction ---


def slice_wait(client):
    """Seconds in which a client that asks for half a second every two seconds gets the transaction."""
    begin = time.monotonic()
    while True:
        asked = time.monotonic()
        answer = client.begin(500)
        if answer[0] == DONE:
            assert client.abort()[0] == DONE
            return time.monotonic() - begin
        assert result_code(answer) == BUSY
        assert time.monotonic() - begin < 15, "it never has its turn"
        time.sleep(max(0.0, asked + 2 - time.monotonic()))  # its rhythm


def holders(house, count):
    return crowd(*(Holds(house.path(SOCKET)) for _ in range(count)))


def test_who_asks_in_slices_gets_in_beside_others_that_hold_it(house):
    house.cfgserver()
    client = Client(house.path(SOCKET))
    with holders(house, 3):
        for _ in range(3):
            assert slice_wait(client) < 10


def switches_on(house, horad, deadline):
    """The seconds until the WLAN is on; the plan that wants it is there already."""
    begin = time.monotonic()
    horad.err.wait("Switch WLAN on$", deadline=deadline)
    client = Client(house.path(SOCKET))
    while client.read("WlanGlobals")[0]["WlanEnable"] != 1:
        assert time.monotonic() - begin < deadline
    return time.monotonic() - begin


def test_the_wlan_switches_beside_sixteen_that_hold_the_transaction(house):
    house.cfgserver()
    horad = house.horad("-v", "-t", "WlanTimePlans")
    horad.err.wait("First process: synchronise")
    begin = int(time.time()) + 4
    house.add("WlanTimePlans", Activate=1, **slot(begin, begin + 3600))
    with holders(house, 16):
        switches_on(house, horad, deadline=20)
        assert time.time() - begin < 12


SPEED = 4  # times as fast runs the clock of both


def test_the_wlan_switches_beside_one_that_holds_the_transaction_and_is_silent(house):
    server = house.cfgserver(env=fast_clock(SPEED))
    house.add("WlanTimePlans", Activate=0)
    silent = Client(house.path(SOCKET))
    assert result_code(silent.begin()) == 0
    horad = house.horad("-v", "-t", "WlanTimePlans", env=fast_clock(SPEED))
    assert switches_on(house, horad, deadline=30 / SPEED) < 30 / SPEED  # 60 s is what it may have alone
    assert server.err.wait("held a transaction for too long, it is rolled back") >= 0
