"""The daemon as the router runs it, 32-bit and big-endian, on a store of this machine."""

import itertools
import os
import shutil
import time

import pytest

from house import wait_until
from plans import slot

HORAD = os.environ.get("HORAD_MIPS")
pytestmark = pytest.mark.skipif(not HORAD, reason="HORAD_MIPS names no horad built for the router")


def test_the_wlan_switches(store):
    shutil.copy(HORAD, store.path("/tmp/horad"))
    watch = store.watch("WlanGlobals")
    horad = store.start("qemu-mips", "-L", "/usr/mips-linux-gnu", "/tmp/horad", "-v", "-t", "WlanTimePlans")
    horad.err.wait("Initial reading of config")
    begin = int(time.time()) + 4
    plan = store.add("WlanTimePlans", TimePlanName="f\u00fcr heute", Activate=1, **slot(begin, begin + 4))
    on = watch.out.wait("WlanGlobals WlanEnable: 0 -> 1")
    assert time.time() >= begin
    watch.out.wait("WlanGlobals WlanEnable: 1 -> 0", on)
    assert time.time() >= begin + 4
    horad.err.wait(f"Deactivated timeplan: Id: {plan} Name: f\u00fcr heute Status: 0 ")
    assert horad.err.count("error|warning") == 0


def test_numbers_keep_their_sign_and_their_32_bits(store):
    shutil.copy(HORAD, store.path("/tmp/horad"))
    store.cfgctl("add", "TimePlans", "Id=2147483647", "Activate=0")  # its key is cut to 214
    store.cfgctl("add", "TimePlans", "Id=214", "Activate=1")
    horad = store.start("qemu-mips", "-L", "/usr/mips-linux-gnu", "/tmp/horad", "-v", "-t", "TimePlans")
    horad.err.wait("Activated timeplan: Id: 2147483647 ")
    horad.err.wait("Deactivated timeplan: Id: 214 ")


def test_a_service_is_repeated_in_a_frame_that_ends_after_2038(store):
    shutil.copy(HORAD, store.path("/tmp/horad"))
    row = store.add("FileTransfer", Status=0)
    window = {"TimeFrameStart": int(time.time()) + 1, "TimeFrameEnd": 4_000_000_000}
    number = store.add("TimeFrame", ServicetableId=row, MaxRetries=-1, **window)
    service, frame = f"FileTransfer.{row}", f"TimeFrame.{number}"
    horad = store.start("qemu-mips", "-L", "/usr/mips-linux-gnu", "/tmp/horad", "-v", "-t", "TimePlans", "-r", "2")
    store.wait_value(f"{service} Status", 1)
    store.wait_value(f"{frame} RunCounter", 1)
    store.set(service, Status=5, Result=1)
    store.wait_value(f"{frame} RunCounter", 2)
    store.set(service, Status=5, Result=0)
    horad.err.wait("already successfull finished")
    assert horad.err.count("error|warning") == 0


def test_the_reboot_is_triggered_in_its_slot(store):
    shutil.copy(HORAD, store.path("/tmp/horad"))
    begin = time.time()
    store.set("AutoReboot", Enable=1, WeekDay=0, MinimumRuntime=1,
              Time=time.strftime("%H:%M:%S", time.localtime(begin)))
    horad = store.start("qemu-mips", "-L", "/usr/mips-linux-gnu", "/tmp/horad", "-v", "-t", "TimePlans")
    horad.err.wait("Initial reading of config")
    plan = store.add("TimePlans", Activate=1)
    changes = itertools.count()

    def triggered_after_a_change():  # each ends the wait of an iteration; the pass is one of every 25
        store.set(f"TimePlans.{plan}", TimePlanName=f"change {next(changes)}")
        return horad.err.count("Trigger auto reboot now at")

    wait_until(triggered_after_a_change, "the reboot")
    store.wait_value("Reboot Trigger", 1)
    written = time.strptime(store.get("AutoReboot LastReboot"), "%Y-%m-%dT%H:%M:%S%z")
    assert begin - 1 < time.mktime(written) < begin + 59
    assert horad.err.count("Trigger auto reboot now at") == 1
    assert horad.err.count("error|warning") == 0
