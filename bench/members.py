"""Members of a cluster beside each other, on the disk of the workshop."""

import json
import os
import socket
import subprocess

from house import wait_until
from workshop import BIN

ADDRESS = "127.{}.{}.{}".format(128 + (os.getpid() >> 16 & 63), os.getpid() >> 8 & 255, os.getpid() & 255)
FIRST_PORT = 6641
ELECTION = 1000  # milliseconds


class Rfc7047:
    """A client that keeps its connection."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.connect(str(path))
        self._received = ""
        self._decoder = json.JSONDecoder()
        self._id = 0

    def transact(self, *operations):
        self._id += 1
        message = {"method": "transact", "params": ["horad", *operations], "id": self._id}
        self.socket.sendall(json.dumps(message).encode())
        while True:
            answer = self._next()
            if answer.get("id") == self._id and "result" in answer:
                assert not any("error" in (result or {}) for result in answer["result"]), answer
                return answer["result"]
            if answer.get("method") == "echo":
                self.socket.sendall(json.dumps({"result": answer["params"], "error": None, "id": answer["id"]}).encode())

    def _next(self):
        while True:
            try:
                message, end = self._decoder.raw_decode(self._received)
            except ValueError:
                self._received += self.socket.recv(1 << 20).decode()
                continue
            self._received = self._received[end:]
            return message


class Members:
    """Three of them; the first to start is asked to lead."""

    def __init__(self, workshop, count=3):
        self._workshop, self.paths = workshop, []
        schema = subprocess.run([BIN / "cfgserver", "--cluster-schema"], capture_output=True, check=True).stdout
        (workshop.disk / "cluster.json").write_bytes(schema)
        first = f"tcp:{ADDRESS}:{FIRST_PORT}"
        for number in range(count):
            here = f"tcp:{ADDRESS}:{FIRST_PORT + number}"
            if number == 0:
                self._tool(f"--election-timer={ELECTION}", "create-cluster", "member0.db", "cluster.json", here)
            else:
                self._tool("join-cluster", f"member{number}.db", "horad", here, first)
            self._start(number)

    def _tool(self, *arguments):
        subprocess.run(["ovsdb-tool", *arguments], cwd=self._workshop.disk, check=True)

    def _start(self, number):
        path = self._workshop.disk / f"member{number}.socket"
        self._workshop.start("ovsdb-server", f"--remote=punix:{path}", f"--remote=ptcp:{FIRST_PORT + 10 + number}:{ADDRESS}",
                             f"--unixctl={self._workshop.disk}/member{number}.ctl", f"member{number}.db")
        wait_until(lambda: self._is_connected(path), f"member {number}", 30)
        self.paths.append(path)

    def _is_connected(self, path):
        query = ["_Server", {"op": "select", "table": "Database", "where": [["name", "==", "horad"]]}]
        done = subprocess.run(["ovsdb-client", "--timeout=2", "transact", f"unix:{path}", json.dumps(query)],
                              capture_output=True, text=True)
        return done.returncode == 0 and '"connected":true' in done.stdout

    def _leads(self, number):
        done = subprocess.run(["ovs-appctl", "-t", f"{self._workshop.disk}/member{number}.ctl", "cluster/status", "horad"],
                              capture_output=True, text=True, check=True)
        return "Role: leader" in done.stdout

    def leader(self):
        return next(n for n in range(len(self.paths)) if self._leads(n))

    def follower(self):
        return next(n for n in range(len(self.paths)) if not self._leads(n))

    def remote(self, number):
        return f"unix:{self.paths[number]}"

    def tcp(self, number):
        return f"tcp:{ADDRESS}:{FIRST_PORT + 10 + number}"
