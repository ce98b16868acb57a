"""Real members of a cluster in a test's house: they can be killed, frozen and started again, one by one.

The members speak to each other over addresses of 127.0.0.0/8 that no other test process uses at the same time.
"""

import itertools
import json
import os
import re
import signal

from house import DEADLINE, Timeout, wait_until

DATABASE = "horad"
ELECTION = 1000  # milliseconds without a word of the leader until the others elect one
_ANSWER = 5  # seconds that a running member may take to answer
_HOST = "127.{}.{}.{}".format(64 + (os.getpid() >> 16 & 63), os.getpid() >> 8 & 255, os.getpid() & 255)
_ports = itertools.count(6641)


class Unanswered(AssertionError):
    """Nothing came back in time: whether it was done is not known."""


class Server:
    """An ovsdb-server with sockets in a folder of its own. Its log is in `log`."""

    def __init__(self, house, name, source, tcp=None):
        """`source` is a database file or a relay's description; with `tcp` it listens at that HOST:PORT too."""
        self._house, self.name, self._source = house, name, source
        self.folder = f"/tmp/members/{name}"
        self.remote = f"unix:{self.folder}/db.sock"
        self.tcp = f"tcp:{tcp}" if tcp else None
        self._program, self.frozen = None, False

    @property
    def log(self):
        return self._program.err

    @property
    def pid(self):
        return self._program.pid

    @property
    def answers(self):
        """Whether it runs and is not frozen."""
        return self._program is not None and not self.frozen

    def start(self):
        assert self._program is None, f"{self.name} runs"
        self._house.run("mkdir", "-p", self.folder)
        remotes = [f"--remote=punix:{self.folder}/db.sock"]
        if self.tcp:
            host, port = self.tcp.removeprefix("tcp:").rsplit(":", 1)
            remotes.append(f"--remote=ptcp:{port}:{host}")
        self._program = self._house.start("ovsdb-server", "-vsyslog:off", f"--unixctl={self.folder}/member.ctl",
                                          *remotes, self._source)
        self._program.err.wait(r"ovsdb_server\|INFO\|ovsdb-server")
        return self

    def stop(self):
        """In an orderly way."""
        self.ask("exit")
        assert self._program.wait() == 0, f"{self.name} did not end well"
        self._program = None

    def kill(self):
        self._program.kill()
        self._program, self.frozen = None, False

    def freeze(self):
        """As if the network around it were cut: its peers and clients hear nothing, and no connection breaks."""
        self._program.send(signal.SIGSTOP)
        self.frozen = True

    def thaw(self):
        self._program.send(signal.SIGCONT)
        self.frozen = False

    def ask(self, command, *arguments, deadline=_ANSWER):
        """What ovs-appctl says."""
        status, out, err = self._house.run("ovs-appctl", "-T", deadline, "-t", f"{self.folder}/member.ctl", command,
                                           *arguments)
        assert status == 0, f"{self.name}: {command}: {err}"
        return out

    def transact(self, *operations, deadline=_ANSWER):
        """The results of the operations. Unanswered where none came in time: a reading waits, too, behind a commit that
        has no majority."""
        status, out, err = self._house.run("ovsdb-client", f"--timeout={deadline}", "transact", self.remote,
                                           json.dumps([DATABASE, *operations]))
        if status == -signal.SIGALRM or status == 128 + signal.SIGALRM:
            raise Unanswered(f"{self.name} did not answer within {deadline} s")
        assert status == 0, f"{self.name}: {err}"
        return json.loads(out)

    def commit(self, *operations, deadline=_ANSWER):
        """Like transact, of operations that are done, all of them, and on the disks of the majority."""
        results = self.transact(*operations, {"op": "commit", "durable": True}, deadline=deadline)
        errors = [result for result in results if result is None or "error" in result]
        assert not errors, f"{self.name}: {results}"
        return results[:-1]

    def dump(self, table):
        """The rows of a table, in an order that is the same on every member."""
        rows = self.transact({"op": "select", "table": table, "where": []})[0]["rows"]
        for row in rows:
            del row["_version"]  # each member has its own
        return sorted(rows, key=lambda row: json.dumps(row, sort_keys=True))

    def database(self):
        """What it says of its database: connected, index, leader, cid, sid. An empty cell is None; nothing is in there
        while it closes connections because it is about to serve the database."""
        select = {"op": "select", "table": "Database", "where": [["name", "==", DATABASE]]}
        status, out, err = self._house.run("ovsdb-client", f"--timeout={_ANSWER}", "transact", self.remote,
                                           json.dumps(["_Server", select]))
        if status != 0 and re.search(r"Connection reset|Broken pipe|End of file", err):
            return {}
        assert status == 0, f"{self.name}: {err}"
        rows = json.loads(out)[0]["rows"]
        return {name: _plain(cell) for name, cell in rows[0].items()} if rows else {}

    def wait_connected(self, deadline=DEADLINE):
        """Until it serves the database, and the majority is within reach."""
        try:
            wait_until(lambda: self.database().get("connected"), f"{self.name} connected", deadline)
        except Timeout as late:
            raise Timeout(f"{late}\n" + "\n".join(self.log.seen)) from late

    def wait_disconnected(self, deadline=DEADLINE):
        """Until it has found out that there is no majority."""
        wait_until(lambda: self.database().get("connected") is False, f"{self.name} disconnected", deadline)


class Member(Server):
    def __init__(self, house, number, host=_HOST):
        super().__init__(house, str(number), f"/tmp/members/{number}/member.db", f"{host}:{next(_ports)}")
        self.number = number
        self.address = f"tcp:{host}:{next(_ports)}"
        self.file = self._source
        _done(house.run("mkdir", "-p", self.folder))

    def create(self, schema):
        """The file of a cluster's first member."""
        _done(self._house.run("ovsdb-tool", f"--election-timer={ELECTION}", "create-cluster", self.file, schema,
                              self.address))

    def join(self, *others):
        """The file of a further member."""
        _done(self._house.run("ovsdb-tool", "join-cluster", self.file, DATABASE, self.address,
                              *(other.address for other in others)))

    def damage(self, behind):
        """One flipped bit in its file, some way behind that text."""
        with open(self._house.path(self.file), "r+b") as file:
            raw = file.read()
            at = raw.index(behind.encode()) + len(behind) + 100
            file.seek(at)
            file.write(bytes([raw[at] ^ 1]))

    def status(self):
        """The fields of cluster/status that stand on a line of their own."""
        return dict(re.findall(r"^(\w[\w ]*): (.*)$", self.ask("cluster/status", DATABASE), re.MULTILINE))


class Members:
    """A cluster of so many members that run and are connected. `schema` is a text or a dictionary. With `homes`, each
    (house, host), there is one member in each of them."""

    def __init__(self, house, schema, count=3, homes=None):
        self._house = house
        self.all = [Member(*home) for home in
                    ([(home, number, host) for number, (home, host) in enumerate(homes, 1)] if homes else
                     [(house, number) for number in range(1, count + 1)])]
        self.schema = write_schema(house, schema)
        first, *others = self.all
        first.create(self.schema)
        for member in others:
            member.join(first)
        for member in self.all:
            member.start()
            member.wait_connected()

    def __iter__(self):
        return iter(self.all)

    def __getitem__(self, index):
        return self.all[index]

    @property
    def remotes(self):
        """As --cluster takes them."""
        return ",".join(member.remote for member in self.all)

    def leader(self, deadline=DEADLINE):
        """The one that leads a majority. Members that are down or frozen are not asked."""
        return wait_until(self._leader, "an election", deadline)

    def followers(self):
        leader = self.leader()
        return [member for member in self.all if member.answers and member is not leader]

    def _leader(self):
        claims = []
        for member in self.all:
            if member.answers:
                status = member.status()
                if status["Role"] == "leader" and status["Status"] == "cluster member":
                    claims.append((int(status["Term"]), member))
        if not claims:
            return None
        leader = max(claims, key=lambda claim: claim[0])[1]
        return leader if leader.database().get("connected") else None

    def wait_equal(self, *tables, deadline=DEADLINE):
        """Until the members that answer hold the same rows; gives what one of them holds, by table."""
        members = [member for member in self.all if member.answers]

        def equal():
            copies = [{table: member.dump(table) for table in tables} for member in members]
            return copies[0] if all(copy == copies[0] for copy in copies) else None

        return wait_until(equal, "the same rows on all members", deadline)


def standalone(house, schema, name="standalone"):
    """A server without a cluster around it; it runs."""
    folder = f"/tmp/members/{name}"
    _done(house.run("mkdir", "-p", folder))
    _done(house.run("ovsdb-tool", "create", f"{folder}/member.db", write_schema(house, schema)))
    return Server(house, name, f"{folder}/member.db", f"{_HOST}:{next(_ports)}").start()


def relay(house, members, name="relay"):
    """A server without a disk that passes on what members, or other relays, hold; it runs."""
    return Server(house, name, f"relay:{DATABASE}:" + ",".join(member.remote for member in members),
                  f"{_HOST}:{next(_ports)}").start()


def cluster_schema(house, *arguments):
    """The schema that a cluster for the store's shared tables has."""
    status, out, err = house.run("cfgserver", "--cluster-schema", *arguments)
    assert status == 0, err
    return out


def write_schema(house, schema):
    path = "/tmp/members/schema"
    _done(house.run("mkdir", "-p", "/tmp/members"))
    with open(house.path(path), "w") as file:
        file.write(schema if isinstance(schema, str) else json.dumps(schema))
    return path


def _done(result):
    status, _, err = result
    assert status == 0, err


def _plain(cell):
    """A cell of a column that may be empty, and a uuid as its text."""
    if isinstance(cell, list) and cell[0] == "set":
        return _plain(cell[1][0]) if cell[1] else None
    return cell[1] if isinstance(cell, list) else cell
