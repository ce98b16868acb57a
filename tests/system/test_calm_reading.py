"""A table that is not there costs what it is: one table."""

import json
import os
import signal
import time

from house import SOCKET
from plans import slot_around_now

HIDDEN = "/tmp/hidden.socket"  # where horad does not look
HELD_BACK = 1  # seconds without a transaction while handlers know outdated rows
ARGUMENTS = ["-v", "-t", "Nope", "-t", "TimePlans"]
MISSING = "error horad: size.. failed: unknown table: Nope"


def test_a_change_is_delivered_as_a_change_while_another_table_is_not_there(store):
    horad = store.horad(*ARGUMENTS)
    horad.err.wait(MISSING, horad.err.wait("Table Nope was changed"))  # only this one is read again
    plan = store.add("TimePlans", Activate=1, **slot_around_now())
    horad.err.wait("info horad: Table TimePlans was changed")
    store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
    assert horad.err.count("Initial reading of config") == 1


def test_nobody_waits_for_a_table_that_is_not_there_after_a_reconnect(house):
    server = house.cfgserver("-f", "/tmp/store.db")
    horad = house.horad(*ARGUMENTS)
    horad.err.wait(MISSING, horad.err.wait(MISSING) + 1)  # the loop runs
    server.stop(signal.SIGKILL)
    os.unlink(house.path(SOCKET))
    horad.err.wait("connection lost")
    house.cfgserver("-f", "/tmp/store.db", "-s", HIDDEN)
    house.cfgctl("-s", HIDDEN, "load", "-", input=json.dumps(
        {"TimePlans": [{"Id": 1, "Activate": 1, **slot_around_now()}]}).encode())
    os.rename(house.path(HIDDEN), house.path(SOCKET))
    back = horad.err.wait("Connected to the configuration store again")
    begin = time.monotonic()
    horad.err.wait("Activated timeplan", back)
    assert time.monotonic() - begin < HELD_BACK * 0.9
    assert horad.err.count("Could start transaction") == 0
    house.wait_value("TimePlans.1 TimePlanStatus", 1)
