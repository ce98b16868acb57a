"""A table can't outgrow its readers: what its limit refuses, and what a table above it may still do."""

import struct

import pytest

from crowd import NOTE, lay_notes, serve_laid
from house import SOCKET
from wire import DONE, FAILED, INSERT, READ_TABLE, REMOVE, TEXT, TOO_LARGE, UPDATE, Client, Fields, text

LIMIT = 64 * 1024 * 1024
EMPTY = 5 + 5 + 5  # bytes of the cells of a note without a text
ROW = EMPTY + NOTE
FULL = LIMIT // ROW  # rows


def note(length):
    """The values of a note with a text of so many bytes."""
    return struct.pack(">I", 1) + text("Text") + struct.pack(">B", TEXT) + text("y" * length)


def insert(client, length=NOTE):
    return client.ask(INSERT, text("Notes") + note(length))


def update(client, row, length):
    return client.ask(UPDATE, text("Notes") + text("Id") + text(str(row)) + note(length))


def remove(client, row):
    return client.ask(REMOVE, text("Notes") + text("Id") + text(str(row)))


def check_refused(answer):
    fields = Fields(answer[1])
    assert answer[0] == FAILED
    assert (fields.number(), fields.text()) == (TOO_LARGE, "Notes: a table holds at most 64 MiB of cells")


def rows_of(client):
    client.send((READ_TABLE, text("Notes")))
    return client.take_rows()


@pytest.fixture
def writer(house):
    """Serves a table of so many rows, to a client in a transaction."""
    def serve(rows):
        lay_notes(house, rows)
        serve_laid(house)
        client = Client(house.path(SOCKET))
        assert client.begin()[0] == DONE
        return client

    return serve


def test_a_write_that_takes_a_table_over_64_mib_is_refused_with_the_limit(house, writer):
    client = writer(FULL)
    check_refused(insert(client))
    assert insert(client, LIMIT % ROW - EMPTY - 10)[0] == DONE  # 10 bytes are left
    check_refused(update(client, 1, NOTE + 11))
    assert update(client, 1, NOTE + 10)[0] == DONE
    check_refused(insert(client, 0))
    assert client.write_single("wexd", "Enable", 1)[0] == DONE  # what was refused costs the transaction nothing
    assert client.commit()[0] == DONE
    assert rows_of(Client(house.path(SOCKET))) == FULL + 1


def test_what_a_removal_leaves_free_is_taken_back_by_a_rollback(house, writer):
    client = writer(FULL)
    assert remove(client, 1)[0] == client.abort()[0] == DONE
    assert client.begin()[0] == DONE
    check_refused(insert(client))
    assert remove(client, 1)[0] == client.commit()[0] == DONE
    assert client.begin()[0] == DONE
    assert insert(client)[0] == DONE
    check_refused(insert(client))


def test_a_table_that_is_over_the_limit_is_read_as_a_whole_and_may_only_shrink(house, writer):
    client = writer(FULL + 300)
    assert rows_of(Client(house.path(SOCKET))) == FULL + 300
    check_refused(insert(client, 0))
    check_refused(update(client, 1, NOTE + 1))
    assert update(client, 1, NOTE)[0] == update(client, 2, 1)[0] == remove(client, 3)[0] == DONE
    check_refused(insert(client, 0))
    assert client.commit()[0] == DONE
    assert rows_of(Client(house.path(SOCKET))) == FULL + 299
