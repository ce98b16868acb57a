"""Whether root gets in beside another user who takes all places."""

import math
import os
import shutil
import subprocess
import time
from pathlib import Path

from crowding import CLIENT, CLIENT_ENV
from house import SOCKET, House
from table import Row, judge, summary

PLACES = 128
NOBODY = 65534  # a user and a group


def measure(workshop):
    if os.geteuid() != 0:  # a user name space of one's own has one user only
        return []
    times = workshop.times(20, 5)
    house = House()
    try:
        house.cfgserver("-g", NOBODY)
        for file in (CLIENT, Path(CLIENT_ENV["PYTHONPATH"], "wire.py")):
            shutil.copy(file, house.path("/tmp"))
        crowd = house.start("setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", "python3", "-B",
                            "/tmp/crowdclient.py", "occupy", stdin=subprocess.PIPE)
        crowd.process.stdin.write(f"{(SOCKET, PLACES)!r}\n".encode())
        crowd.process.stdin.close()
        crowd.out.wait("under way")
        taken = [cfgctl(house) for _ in range(times)]
    finally:
        house.close()
    failures = taken.count(math.inf)
    name = f"root's cfgctl beside {PLACES} connections of another user"
    return [judge(Row(name, "horad", failures, unit=f"fail, of {times}"), "0", failures == 0),
            summary(f"{name}, until done", "horad", "ms", taken)]


def cfgctl(house):
    """Milliseconds; infinite where it fails."""
    begin = time.monotonic()
    status, _, _ = house.run("cfgctl", "get", "wexd", "Enable")
    return 1000 * (time.monotonic() - begin) if status == 0 else math.inf
