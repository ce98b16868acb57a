"""The store among clients that misbehave, crowd in or do not read."""

import re
import shutil
import signal
import subprocess
import threading
import time
from pathlib import Path

import pytest

from house import SOCKET, fast_clock, is_alive
from wire import (BEGIN, BUSY, COMMIT, DONE, NO_TRANSACTION, TABLES, TRANSACTION_EXPIRED, WRITE_SINGLE, Client, frame,
                  request, result_code, single)

# Milliseconds of a clock that runs so many times as fast: the server's 60 s for a transaction are 3 s here, the 10 s in
# which its owner has to send something while others wait are half a second.
SPEED = 20
LIMIT = 60_000
SILENCE = 10_000


@pytest.fixture
def holder(house):
    """Starts a process that holds the transaction and has written 7."""

    def start():
        for name in ("wire.py", "holder.py"):
            shutil.copy(Path(__file__).with_name(name), house.path("/tmp"))
        process = house.start("python3", "-B", "/tmp/holder.py", SOCKET, stdin=subprocess.PIPE)
        process.out.wait("holding")
        return process

    return start


def tell(process):
    process.process.stdin.write(b"commit\n")
    process.process.stdin.flush()


def test_a_client_killed_inside_its_transaction_lets_the_next_in_at_once(store, holder):
    killed = holder()
    other = Client(store.path(SOCKET))
    assert result_code(other.begin()) == BUSY
    killed.send(signal.SIGKILL)
    assert result_code(other.begin(15_000)) == 0
    assert other.read("wexd")[0]["Enable"] == 0
    assert result_code(other.write_single("wexd", "Enable", 1)) == result_code(other.commit()) == 0


@pytest.mark.parametrize("how", ["stopped", "silent"])
def test_a_client_that_is_silent_in_its_transaction_loses_it_after_10_seconds_if_another_waits(house, holder, how):
    server = house.cfgserver(env=fast_clock(SPEED))
    stuck = holder()
    begin = time.monotonic()
    if how == "stopped":
        stuck.send(signal.SIGSTOP)
        tell(stuck)  # it finds this when it goes on
    other = Client(house.path(SOCKET))

    assert result_code(other.begin(SILENCE // 4)) == BUSY
    assert time.monotonic() - begin >= SILENCE / 4 / 1000 / SPEED * 0.9
    assert other.read("wexd")[0]["Enable"] == 0

    waited = time.monotonic()
    assert result_code(other.begin(LIMIT)) == 0
    assert time.monotonic() - waited < LIMIT * 0.8 / 1000 / SPEED
    assert time.monotonic() - begin >= SILENCE / 1000 / SPEED * 0.9
    server.err.wait("held a transaction for too long, it is rolled back")
    assert other.read("wexd")[0]["Enable"] == 0
    assert result_code(other.write_single("wexd", "Enable", 1)) == result_code(other.commit()) == 0

    if how == "stopped":
        stuck.send(signal.SIGCONT)
    else:
        tell(stuck)
    first = stuck.out.wait(r"^\d+$")
    tell(stuck)
    stuck.out.wait(r"^\d+$", first + 1)
    assert stuck.out.seen[first:] == [str(TRANSACTION_EXPIRED), str(NO_TRANSACTION)]
    assert house.get("wexd Enable") == "1"


def test_a_client_that_goes_on_sending_loses_its_transaction_after_60_seconds(house):
    server = house.cfgserver(env=fast_clock(SPEED))
    owner, other = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    begin = time.monotonic()
    assert result_code(owner.begin()) == 0
    other.send((BEGIN, (2 * LIMIT).to_bytes(4, "big")))
    while (code := result_code(owner.write_single("wexd", "Enable", 7))) == 0:
        time.sleep(SILENCE / 4 / 1000 / SPEED)
    assert code == TRANSACTION_EXPIRED
    assert LIMIT * 0.9 / 1000 / SPEED <= time.monotonic() - begin
    assert other.receive()[0] == DONE
    server.err.wait("held a transaction for too long, it is rolled back")
    assert other.read("wexd")[0]["Enable"] == 0


def test_a_silent_client_alone_in_the_store_keeps_its_transaction(house):
    house.cfgserver(env=fast_clock(SPEED))
    owner = Client(house.path(SOCKET))
    assert result_code(owner.begin()) == 0
    time.sleep(2 * SILENCE / 1000 / SPEED)  # nothing is to happen
    assert result_code(owner.write_single("wexd", "Enable", 7)) == result_code(owner.commit()) == 0


def test_a_silent_client_whose_turn_comes_does_not_keep_those_behind_it(house):
    house.cfgserver(env=fast_clock(SPEED))
    first, last = Client(house.path(SOCKET)), Client(house.path(SOCKET))
    assert first.begin()[0] == DONE
    between = Client(house.path(SOCKET))
    between.socket.sendall(request(BEGIN, 99, LIMIT.to_bytes(4, "big")))  # and reads nothing from here on
    assert result_code(last.begin(1)) == BUSY  # the one between them is in line
    assert first.abort()[0] == DONE
    assert result_code(last.begin(LIMIT)) == 0


class Adder(threading.Thread):
    """Adds one to a shared number, several times over, a transaction each."""

    def __init__(self, path, barrier, times):
        super().__init__()
        self._path, self._barrier, self._times = path, barrier, times
        self.acknowledged = 0
        self.refused = []

    def run(self):
        client = Client(self._path)
        self._barrier.wait(20)
        for _ in range(self._times):
            answers = [client.begin(10_000)]
            number = client.read("wexd")[0]["Enable"]
            answers += [client.write_single("wexd", "Enable", number + 1), client.commit()]
            self.refused += [code for code in map(result_code, answers) if code != 0]
            self.acknowledged += result_code(answers[-1]) == 0
        client.close()


def test_sixty_clients_at_once_lose_no_commit_and_nobody_starves(house, fire):
    house.cfgserver("-f", "/tmp/store.db")
    times = 5 * fire
    barrier = threading.Barrier(60)
    adders = [Adder(house.path(SOCKET), barrier, times) for _ in range(60)]
    for adder in adders:
        adder.start()
    for adder in adders:
        adder.join()
    assert [adder.refused for adder in adders] == [[]] * 60
    assert sum(adder.acknowledged for adder in adders) == 60 * times
    assert house.get("wexd Enable") == str(60 * times)


CELLS = [("wexd", "Enable"), ("Reboot", "Trigger"), ("AutoReboot", "MinimumRuntime")]
LAST = ("WlanGlobals", "WlanEnable")


class Pipeline:
    """Commits many numbers to the tables in turn, without a wait for each answer."""

    BATCH = 1000
    REPLY = 13  # bytes of a Done in its frame

    def __init__(self, path):
        self._client = Client(path)
        self.commits = 0

    def run(self, count):
        for begin in range(self.commits, self.commits + count, self.BATCH):
            numbers = range(begin, min(begin + self.BATCH, self.commits + count))
            self._client.socket.sendall(b"".join(self._transaction(number) for number in numbers))
            answers = self._client.exactly(3 * len(numbers) * self.REPLY)
            assert answers == b"".join(self._done(number) * 3 for number in numbers)
        self.commits += count

    @staticmethod
    def _transaction(number):
        table, column = CELLS[number % len(CELLS)]
        value = number // len(CELLS) % 2 + 1  # another one each time
        return (request(BEGIN, number, bytes(4)) + request(WRITE_SINGLE, number, single(table, column, value))
                + request(COMMIT, number))

    @staticmethod
    def _done(number):
        return frame(bytes([DONE]) + number.to_bytes(4, "big") + bytes(4))


def resident(pid):
    """Bytes of memory of a process."""
    with open(f"/proc/{pid}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+) kB", status.read())[1]) * 1024


def test_a_subscriber_that_never_reads_costs_nothing_and_is_told_of_each_table_once(house, fire):
    server = house.cfgserver(env={"ASAN_OPTIONS": "quarantine_size_mb=1"})
    subscriber = Client(house.path(SOCKET))
    subscriber.subscribe(LAST[0], *(table for table, _ in CELLS))
    pipeline = Pipeline(house.path(SOCKET))
    pipeline.run(10_000)
    warm = resident(server.pid)
    pipeline.run(90_000 * fire)
    assert resident(server.pid) - warm < 1024 * 1024
    house.set(LAST[0], **{LAST[1]: 1})

    told = []
    while not told or LAST[0] not in told[-1]:
        told.append(subscriber.notice())
    # What the socket took while it could comes as it was committed; all behind it comes as one.
    assert told[:-1] == [[CELLS[number % len(CELLS)][0]] for number in range(len(told) - 1)]
    assert len(told) < 5_000
    assert told[-1] == sorted([LAST[0]] + [table for table, _ in CELLS])
    subscriber.socket.sendall(request(TABLES, 5))
    assert subscriber.receive()[1] == 5  # and no further notice before it
    assert is_alive(server.pid) and server.err.count("warning") == 0
