"""A Debian system of its own that is booted with systemd, and commands in it."""

import os
import shlex
import signal
import subprocess
import time
from pathlib import Path

BOOT = 60  # seconds


class NoContainer(Exception):
    """This machine can't boot a container."""


def await_true(condition, what, seconds=20):
    """Waits for an event that only a look can tell."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.05)


class Container:
    """The system in that folder. It has no network."""

    def __init__(self, root):
        self.root = Path(root)
        self.process = None
        self.leader = None

    def boot(self):
        command = ["systemd-nspawn", "-q", "-D", str(self.root), "--register=no", "--keep-unit", "--private-network",
                   "--console=pipe", "-b"]
        self.log = open(self.root.parent / "boot.log", "w")
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.log, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + BOOT
        while not self.is_up():
            if self.process.poll() is not None or time.monotonic() > deadline:
                said = (self.root.parent / "boot.log").read_text()[-2000:]
                raise NoContainer(f"no container can be booted here, as root and with systemd-nspawn: {said}")
            time.sleep(0.05)

    def is_up(self):
        self.leader = self.find_leader()
        if self.leader is None:
            return False
        return self.run("systemctl is-system-running", check=None)[1].strip() in ("running", "degraded")

    def find_leader(self):
        """PID 1 of the container, as this machine numbers it."""
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        for child in children.read_text().split() if children.exists() else []:
            if Path(f"/proc/{child}/comm").read_text().strip() == "systemd":
                return int(child)
        return None

    def enter(self):
        return ["nsenter", "-t", str(self.leader), "-a", "env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
                "LC_ALL=C.UTF-8"]

    def run(self, command, check=0, seconds=120, input=None):
        """Runs a command of the shell; (status, output, errors). It has to end with `check`, unless that is None."""
        done = subprocess.run(self.enter() + ["sh", "-c", command], input=input, capture_output=True, text=True,
                              timeout=seconds, cwd="/")
        if check is not None:
            assert done.returncode == check, f"{command}: {done.returncode}\n{done.stdout}{done.stderr}"
        return done.returncode, done.stdout, done.stderr

    def out(self, command, **options):
        return self.run(command, **options)[1].strip()

    def start(self, command):
        """A command that goes on; its output can be read."""
        return subprocess.Popen(self.enter() + shlex.split(command), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, bufsize=1, cwd="/")

    def property(self, unit, name):
        return self.out(f"systemctl show -P {name} {unit}")

    def kill(self, unit):
        pid = int(self.property(unit, "MainPID"))
        assert pid > 0, f"{unit} is not running"  # 0 would be this command's own process group
        self.run(f"kill -9 {pid}")
        return pid

    def power_off(self):
        if self.process is None:
            return
        if self.process.poll() is None and self.leader is not None:
            os.kill(self.leader, signal.SIGRTMIN + 4)  # systemd's poweroff.target
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()
        self.process = self.leader = None
        for name in ("payload", "supervisor"):  # nspawn leaves them
            for cgroup in Path("/sys/fs/cgroup").glob(f"**/{name}"):
                try:
                    cgroup.rmdir()
                except OSError:
                    pass
