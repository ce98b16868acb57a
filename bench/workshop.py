"""Where the real programs are measured: houses as in the system tests, and a folder on the disk."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release"
BIN = BUILD / "bin"
os.environ["HORAD_BIN"] = str(BIN)
sys.path.append(str(ROOT / "tests/system"))

from house import Lines  # noqa: E402  (it reads HORAD_BIN)

PATIENCE = 600  # seconds that a measurement may take


class Workshop:
    def __init__(self, quick):
        self.quick = quick
        self.disk = Path(tempfile.mkdtemp(prefix="bench-", dir=BUILD))  # a /tmp may be in memory
        self._programs = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop_programs()
        shutil.rmtree(self.disk)

    def times(self, usually, quickly):
        return quickly if self.quick else usually

    def filesystem(self):
        command = ["findmnt", "-n", "-o", "FSTYPE,SOURCE", "-T", str(self.disk)]
        return " on ".join(subprocess.run(command, capture_output=True, text=True, check=True).stdout.split())

    def start(self, *command, executable=None, env=None):
        """A program outside of any house, in the folder on the disk: sockets there have short names."""
        process = subprocess.Popen(command, executable=executable, cwd=self.disk, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env={**os.environ, **(env or {})})
        self._programs.append(process)
        process.lines = Lines(process.stderr)
        return process

    def stop_programs(self):
        for process in self._programs:
            process.terminate()
        for process in self._programs:
            process.wait(30)
        self._programs.clear()

    def cfgserver(self, *arguments, **environment):
        server = self.start(BIN / "cfgserver", *arguments, **environment)
        server.lines.wait(r"cfgserver: serves")
        return server

    def run(self, *command):
        """The samples that a program of ours prints."""
        return samples_of(subprocess.run([BIN / command[0], *map(str, command[1:])], cwd=self.disk,
                                         stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE))

    def run_in(self, house, *command):
        status, out, err = house.run(*command, deadline=PATIENCE)
        return samples_of(subprocess.CompletedProcess(command, status, out.encode(), err.encode()))


def samples_of(done):
    if done.returncode != 0:
        raise SystemExit(f"bench: {done.args} failed: {done.stderr.decode(errors='replace')[-2000:]}")
    return [json.loads(line) for line in done.stdout.splitlines()]


def sample(samples, who, figure=None):
    return next(s for s in samples if s["who"] == who and figure in (None, s["figure"]))
