"""The store under every limit of memory and of descriptors, and with a flipped bit in every part of its file.

At each step it starts, or says in a line why not; it answers each request, with a code where it can't do it, or closes
that client; it ends when it is told to, never by a signal; and what it answered Done is in the database. A sample of each
sweep runs in every test, all of them with --sweep.
"""

import contextlib
import os
import random
import re
import select
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import tempfile

import pytest

from house import SOCKET, is_sanitized, wait_until
from wire import (COLUMNS, DONE, FAILED, HELLO, INSERT, MAGIC, OUTCOME_UNKNOWN, READ_TABLE, ROWS, SUBSCRIBE, TABLES, TEXT, Client,
                  Fields, request, result_code, text)

DATABASE = "/tmp/store.db"
PATIENCE = 15  # seconds: an answer that is later than this never comes
PLANS = 700  # rows of the table that is read as a whole, of 4 kB each
SAMPLES = 20
PARTS = 4  # that can run beside each other
MEMORY_STEP = 40  # kB
MEMORY_STEPS = 260
MEMORY_STEPS_OF_CLIENTS = 80
DESCRIPTORS = range(3, 43)
CLIENTS = 8
FLIPS = 300

GREETING = request(HELLO, 0, struct.pack(">I", MAGIC) + text("sweep") + struct.pack(">I", 1))

# A program with the sanitizers reserves terabytes of addresses, so that it can't have a limit of them.
SANITIZER = re.compile("ERROR: (Address|Leak)Sanitizer|runtime error: ")
# What a sanitizer says that has no descriptor left to look at an object with, which it then takes for a wrong one.
BLINDED = "<memory cannot be printed>"
SANITIZED = is_sanitized("cfgserver")


@pytest.fixture(params=range(PARTS), ids=lambda part: f"part {part + 1} of {PARTS}")
def share(request):
    """Picks this test's share of a sweep's steps."""
    whole = request.config.getoption("--sweep")

    def pick(steps):
        steps = list(steps)
        chosen = steps if whole else steps[::max(1, len(steps) // SAMPLES)]
        return chosen[request.param::PARTS]

    return pick


class Template:
    """A database with much in one table, and the same as a killed store leaves it, with commits in its log."""

    FILES = ("", "-wal")

    def __init__(self, house):
        self._house = house
        server = house.cfgserver("-f", DATABASE)
        client = Client(house.path(SOCKET))
        client.begin()
        for _ in range(PLANS):
            assert insert_plan(client)[0] == DONE
        assert client.commit()[0] == DONE
        assert server.stop() == 0
        self._keep("stopped")
        server = house.cfgserver("-f", DATABASE)
        for number in range(1, 6):
            assert write_number(Client(house.path(SOCKET)), number)
        server.stop(signal.SIGKILL)
        os.unlink(house.path(SOCKET))
        self._keep("killed")

    def _keep(self, name):
        for suffix in self.FILES:
            if os.path.exists(self._house.path(DATABASE + suffix)):
                shutil.copy(self._house.path(DATABASE + suffix), self._house.path(f"/tmp/{name}{suffix}"))

    def size(self, name, suffix=""):
        return os.path.getsize(self._house.path(f"/tmp/{name}{suffix}"))

    def lay(self, name):
        """Puts it in the database's place."""
        for suffix in ("", "-wal", "-shm"):
            path = self._house.path(DATABASE + suffix)
            if os.path.exists(path):
                os.unlink(path)
            if os.path.exists(self._house.path(f"/tmp/{name}{suffix}")):
                shutil.copy(self._house.path(f"/tmp/{name}{suffix}"), path)


@pytest.fixture
def template(house):
    return Template(house)


# --- one store ---


def insert_plan(client):
    values = struct.pack(">I", 1) + text("TimePlanName") + struct.pack(">B", TEXT) + text("x" * 4000)
    return client.ask(INSERT, text("TimePlans") + values)


def write_number(client, number):
    """Whether a commit of that number was answered Done."""
    return (client.begin(1000)[0] == DONE and client.write_single("wexd", "Enable", number)[0] == DONE
            and client.commit()[0] == DONE)


def read_all(client, table):
    """All pieces of an answer; the kind of the last."""
    kind, body = client.ask(READ_TABLE, text(table))
    while kind == ROWS and body[0] == 0:
        kind, _, body = client.receive()
    return kind


class Sample:
    """One run of the store. What it does against the rules is told with the step that it happened at."""

    def __init__(self, house, limit="", kept=frozenset({0})):
        self._house = house
        self.kept = set(kept)  # what the database may hold in the end
        self.program = house.start("sh", "-c", f"{limit} exec /run/bin/cfgserver -f {DATABASE}")
        self.up = wait_until(lambda: self._ended() or self._listens(), "the start or the end") == "listens"

    def _ended(self):
        return "ended" if self.program.process.poll() is not None else None

    def _listens(self):
        return "listens" if self.program.err.count("serves") else None

    def connect(self):
        client = Client(self._house.path(SOCKET), greet=False)
        client.socket.settimeout(PATIENCE)
        return client

    def talk(self, number):
        """Every kind of request. A client that is closed, or not let in, asks no more."""
        try:
            client = self.connect()
            client.socket.sendall(GREETING)
            if self._admits(client) and client.receive()[0] == DONE:
                self.ask_everything(client, number)
        except socket.timeout:
            return f"no answer in {PATIENCE} s"
        except (ConnectionError, FileNotFoundError):
            pass
        return None

    def _admits(self, client):
        """False once the store has said that it takes nobody now; its clients wait in line."""
        def answered():
            return select.select([client.socket], [], [], 0)[0]

        wait_until(lambda: answered() or self.program.err.count("no further client can be taken"), "an answer", PATIENCE)
        return answered()

    def ask_everything(self, client, number):
        for kind, body in ((TABLES, b""), (COLUMNS, text("TimePlans")), (SUBSCRIBE, struct.pack(">II", 0, 0))):
            client.ask(kind, body)
        read_all(client, "TimePlans")
        self.commit(client, number)
        if client.begin(1000)[0] == DONE:
            for _ in range(3):
                insert_plan(client)
            client.commit()
        read_all(client, "wexd")

    def number(self):
        """What a client reads; None where it can't."""
        with contextlib.suppress(ConnectionError):
            client = self.connect()
            client.socket.sendall(GREETING)
            assert client.receive()[0] == DONE
            kind, body = client.ask(READ_TABLE, text("wexd"))
            return Fields(body).rows()[0]["Enable"] if kind == ROWS else None
        return None

    def commit(self, client, number):
        """From here on the database holds this number, or the one before where the commit failed."""
        before = set(self.kept)
        if client.begin(1000)[0] != DONE:
            return
        self.kept = before | {number}  # nobody knows until it is answered
        written = client.write_single("wexd", "Enable", number)[0] == DONE
        answer, body = client.commit()
        if answer == DONE:
            self.kept = {number} if written else before
        elif answer == FAILED and result_code((answer, body)) != OUTCOME_UNKNOWN:
            self.kept = before

    def stop(self):
        """What was wrong with its end, if anything was."""
        early = self.up and self.program.process.poll() is not None
        if not early:
            self.program.send(signal.SIGTERM)
        try:
            status = self.program.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.program.kill()
            return "did not end"
        finally:
            lines = self.program.err.wait_end()
        if status < 0:
            return f"ended by {signal.Signals(-status).name}: {lines}"
        if BLINDED in lines:
            return None  # without a descriptor the sanitizer takes what it can't look at for a defect, and ends it
        if early:
            return f"ended with {status} while it served: {lines}"
        if any(SANITIZER.search(line) for line in lines):
            return f"{lines}"
        if self.up and status != 0:
            return f"ended with {status} when it was told to: {lines}"
        if status != 0 and not any(re.search(r"cfgserver: \w+", line) for line in lines):
            return f"ended with {status} and no line: {lines}"
        return None


def held(house):
    """The number in the database, after SQLite's own check of it. SQLite leads paths of another name space back into
    its own, so that it looks at a copy."""
    with tempfile.TemporaryDirectory() as folder:
        for suffix in Template.FILES:
            if os.path.exists(house.path(DATABASE + suffix)):
                shutil.copy(house.path(DATABASE + suffix), f"{folder}/database{suffix}")
        with contextlib.closing(sqlite3.connect(f"{folder}/database")) as database:
            assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
            return database.execute("SELECT Enable FROM wexd").fetchone()[0]


def run(house, limit="", clients=1):
    """The complaint about one run under a limit; the database was in order before."""
    sample = Sample(house, limit)
    complaint = None
    if sample.up:
        others = open_clients(sample, clients - 1)
        complaint = sample.talk(77)
        for client in others:
            client.close()
        complaint = complaint or sample.talk(78)
    complaint = sample.stop() or complaint
    if complaint is None and (number := held(house)) not in sample.kept:
        complaint = f"the database holds {number}, not one of {sample.kept}"
    return complaint


def open_clients(sample, count):
    """Clients that are there, and served or in line."""
    clients = []
    for _ in range(count):
        client = sample.connect()
        client.socket.sendall(GREETING)
        clients.append(client)
    return clients


# --- the sweeps ---


def assert_none(complaints):
    assert not complaints, "\n".join(f"{step}: {complaint}" for step, complaint in complaints.items())


def memory_to_load(house, program="cfgserver"):
    """kB from which on the libraries can be loaded; below it the program's own code does not run."""
    limit = 2000
    while house.run("sh", "-c", f"ulimit -v {limit}; exec /run/bin/{program} -h")[0] in (127, -11, -9):
        limit += 200
    return limit


@pytest.mark.skipif(SANITIZED, reason="the sanitizers need more addresses than any limit leaves them")
def test_little_memory_ends_in_a_line_or_refused_requests(house, template, share):
    least = memory_to_load(house)
    complaints = {}
    for limit in share(range(least, least + MEMORY_STEPS * MEMORY_STEP, MEMORY_STEP)):
        template.lay("stopped")
        complaint = run(house, f"ulimit -v {limit};")
        if complaint:
            complaints[limit] = complaint
    assert_none(complaints)


@pytest.mark.skipif(SANITIZED, reason="the sanitizers need more addresses than any limit leaves them")
def test_the_memory_goes_from_too_little_to_enough(house, template):
    least = memory_to_load(house)
    for limit, all_done in ((least, False), (least + MEMORY_STEPS * MEMORY_STEP, True)):
        template.lay("stopped")
        sample = Sample(house, f"ulimit -v {limit};")
        if sample.up:
            client = Client(house.path(SOCKET))
            assert (read_all(client, "TimePlans") == ROWS) == all_done
            assert sample.talk(77) is None
        assert sample.stop() is None
        assert (sample.kept == {77}) == all_done


def test_few_descriptors_end_in_a_line_or_refused_requests(house, template, share):
    complaints = {}
    for limit in share(DESCRIPTORS):
        template.lay("stopped")
        complaint = run(house, f"ulimit -n {limit};", CLIENTS)
        if complaint:
            complaints[limit] = complaint
    assert_none(complaints)


@pytest.mark.skipif(SANITIZED, reason="the sanitizers need more addresses than any limit leaves them")
def test_little_memory_for_horad_or_cfgctl_ends_in_a_line_or_in_what_was_asked_for(house, share):
    house.cfgserver()
    for plan in range(20):
        house.add("TimePlans", TimePlanName="x" * 4000, Activate=0)
    complaints = {}
    for program in ("horad -t TimePlans", "cfgctl dump"):
        least = memory_to_load(house, program.split()[0])
        enough = least + MEMORY_STEPS_OF_CLIENTS * MEMORY_STEP
        for limit in [*share(range(least, enough, MEMORY_STEP)), enough]:
            started = house.start("sh", "-c", f"ulimit -v {limit}; exec /run/bin/{program}")
            wait_until(lambda: started.process.poll() is not None or started.err.count("Initial reading"), program)
            started.send(signal.SIGTERM)
            status = started.wait()
            if status not in (0, -signal.SIGTERM) and (status < 0 or not started.err.seen):
                complaints[program, limit] = f"ended with {status}: {started.err.seen}"
        assert len(started.out.seen) > 100 or started.err.count("Initial reading"), "more is needed"
    assert_none(complaints)


def flips(template):
    """(what is laid, suffix, byte, bit): in the file's header, its schema, its pages, and the log beside it."""
    draw = random.Random(20261121)
    size, log = template.size("killed"), template.size("killed", "-wal")
    spread = [("", range(100), 60), ("", range(100, 16 * 2048), 110), ("", range(size), 100), ("-wal", range(log), 30)]
    found = [(suffix, draw.choice(places), draw.randrange(8)) for suffix, places, count in spread for _ in range(count)]
    assert len(found) == FLIPS
    return found


def test_a_flipped_bit_ends_in_a_line_or_refused_requests(house, template, share):
    complaints = {}
    for suffix, place, bit in share(flips(template)):
        template.lay("killed")
        with open(house.path(DATABASE + suffix), "r+b") as file:
            file.seek(place)
            byte = file.read(1)[0]
            file.seek(place)
            file.write(bytes([byte ^ 1 << bit]))
        complaint = run_twice(house)
        if complaint:
            complaints[DATABASE + suffix, place, bit] = complaint
    assert_none(complaints)


def run_twice(house):
    """The complaint about a run on a database that is not in order, and about what the next one finds."""
    first = Sample(house, kept=range(6))  # the template's log may be cut short
    complaint = first.talk(77) if first.up else None
    complaint = first.stop() or complaint
    if complaint:
        return complaint
    second = Sample(house)
    number = second.number() if second.up else None
    if number is not None and number not in first.kept:
        complaint = f"the next start finds {number}, not one of {first.kept}"
    return second.stop() or complaint


# --- what such sweeps found first ---


def test_a_word_of_the_schema_that_is_misspelt_ends_in_a_line(house, template):
    template.lay("stopped")
    with open(house.path(DATABASE), "r+b") as file:
        raw = file.read()
        assert raw.count(b"DEFAULT") > 20
        file.seek(0)
        file.write(raw.replace(b"DEFAULT", b"DEFAQLT"))
    sample = Sample(house)
    assert not sample.up
    assert sample.stop() is None
    assert DATABASE in sample.program.err.seen[0] and "malformed" in sample.program.err.seen[0]


def test_a_table_that_another_program_drops_costs_its_own_requests_only(house):
    server = house.cfgserver("-f", DATABASE)
    client = Client(house.path(SOCKET))
    drop = f"import sqlite3; sqlite3.connect('{DATABASE}').execute('DROP TABLE AutoReboot')"
    assert house.run("python3", "-c", drop) == (0, "", "")
    for _ in range(2):
        assert read_all(client, "AutoReboot") == FAILED
        assert client.begin()[0] == DONE
        assert client.write_single("AutoReboot", "WeekDay", 1)[0] == FAILED
        assert client.commit()[0] == DONE
    house.set("WlanGlobals", WlanEnable=1)
    assert house.get("WlanGlobals WlanEnable") == "1"
    assert server.stop() == 0
