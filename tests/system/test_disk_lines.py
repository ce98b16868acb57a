"""What a disk that fails at work costs, what the log says of it, and who hears of it when it is over."""

import re
import signal

from crowd import CELLS, Commits
from disk import FailingSyncs, FailingWrites
from house import SOCKET, fast_clock
from wire import FAILED, OUTCOME_UNKNOWN, STORAGE_FAILED, TABLES, Client, result_code

DATABASE = "/tmp/store.db"
LOG = DATABASE + "-wal"
SPEED = 30  # times as fast: a minute is 2 s here

CHECKPOINT = "error cfgserver: the log can't be brought into the database: disk I/O error"


class Writer:
    """Commits a number higher each time."""

    def __init__(self, house):
        self._client = Client(house.path(SOCKET))
        self.number = 0

    def commit(self):
        """The result code of the commit."""
        self.number += 1
        assert result_code(self._client.begin(1000)) == 0
        assert result_code(self._client.write_single("wexd", "Enable", self.number)) == 0
        return result_code(self._client.commit())


def test_a_failed_write_is_refused_as_storage_failed_and_the_store_goes_on(house):
    server = house.cfgserver("-f", DATABASE)
    writer = Writer(house)
    assert writer.commit() == 0
    disk = FailingWrites(house, server, LOG)
    assert [writer.commit(), writer.commit()] == [STORAGE_FAILED] * 2
    assert house.get("wexd Enable") == "1"
    disk.end()

    assert writer.commit() == 0
    assert house.get("wexd Enable") == "4"
    server.stop(signal.SIGKILL)
    house.cfgserver("-f", DATABASE)
    assert house.get("wexd Enable") == "4"


def test_a_checkpoint_that_fails_again_and_again_is_one_line_a_minute_with_the_count(house):
    server = house.cfgserver("-f", DATABASE, env=fast_clock(SPEED))
    FailingWrites(house, server, DATABASE)
    committing = Commits(house.path(SOCKET), *CELLS[0])
    committing.start()
    counted = server.err.seen[server.err.wait(rf"{CHECKPOINT}.* \(the last of \d+ such lines within a minute\)")]
    assert int(re.search(r"last of (\d+)", counted)[1]) > 1
    assert server.err.count(CHECKPOINT) == 2
    committing.stop()
    assert committing.failure is None  # a checkpoint is nobody's answer


def test_who_was_not_told_of_a_commit_whose_outcome_is_unknown_hears_of_it_when_it_is_known(house):
    server = house.cfgserver("-f", DATABASE)
    writer, subscriber = Writer(house), Client(house.path(SOCKET))
    assert writer.commit() == 0
    subscriber.subscribe("wexd", "Reboot")
    disk = FailingSyncs(house, server)
    assert writer.commit() == OUTCOME_UNKNOWN
    assert subscriber.ask(TABLES)[0] != FAILED and subscriber.untold()
    disk.end()

    assert subscriber.notice() == ["wexd"]
    assert server.err.count("info cfgserver: the database was opened anew: /tmp/store.db") == 1
    assert house.get("wexd Enable") in ("1", "2")
