"""Services run inside their time frames, when the line is idle: real store, real daemon, a service of the test."""

import contextlib
import signal
import threading
import time

import pytest

from house import SOCKET, fast_clock, wait_until
from proxy import Proxy
from wire import BEGIN, COMMIT, READ_KEY, UPDATE, WRITE_SINGLE, Client, result_code

STARTED, RUNNING, ENDED = 1, 2, 5
SPEED = 4  # times as fast as usual: the loop looks every half second
SIP_CALLS = "/proc/kelvaro/ksn/udp/instance_count"
STREAMS = "/proc/net/ip_mr_cache"
STREAM = "Group    Origin   Iif     Pkts    Bytes    Wrong Oifs\n010203E1 0A000001 0 10 1000 0 1:1\n"


class Service(threading.Thread):
    """Answers each start of a row with running, and then ends with the next of its results; with the last for ever."""

    def __init__(self, path, *results):
        super().__init__(daemon=True)
        self._client = Client(path)
        self._client.subscribe("FileTransfer")
        self._results = list(results)
        self.runs = []  # the rows in the order of their starts
        self.start()

    def run(self):
        with contextlib.suppress(OSError):  # the end of the store, or of the test
            while True:
                for row in self._client.read("FileTransfer"):
                    if row["Status"] == STARTED:
                        self._serve(row["Id"])
                self._client.notice()

    def _serve(self, row):
        self.runs.append(row)
        result = self._results.pop(0) if len(self._results) > 1 else self._results[0]
        for cells in ({"Status": RUNNING}, {"Status": ENDED, "Result": result}):
            assert result_code(self._client.begin(10_000)) == 0
            self._client.update_integers("FileTransfer", row, **cells)
            assert result_code(self._client.commit()) == 0


class Windows:
    """A store with one row of the service, and what the tests do with its time frames."""

    def __init__(self, house, path=SOCKET):
        self.house, self._path = house, path
        self.row = self.add("FileTransfer", Status=0)

    def _cfgctl(self, *words, **cells):
        return self.house.cfgctl("-s", self._path, *words, *(f"{name}={value}" for name, value in cells.items()))

    def add(self, table, **cells):
        return int(self._cfgctl("add", table, **cells))

    def set(self, row, **cells):
        self._cfgctl("set", row, **cells)

    def remove(self, frame):
        self._cfgctl("remove", f"TimeFrame.{frame}")

    def get(self, row, column):
        return int(self._cfgctl("get", row, column))

    def wait_value(self, row, column, value):
        wait_until(lambda: self.get(row, column) == value, f"{row} {column} = {value}")

    def open(self, begin=0, length=3600, **cells):
        """A time frame that begins so many seconds from now."""
        start = int(time.time()) + begin
        return self.add("TimeFrame", **{"ServicetableId": self.row, "TimeFrameStart": start,
                                        "TimeFrameEnd": start + length, "MaxRetries": -1, **cells})

    def service(self, *results):
        return Service(self.house.path(self._path), *results)

    def client(self):
        return Client(self.house.path(self._path))

    def horad(self, interval=2):
        return self.house.horad("-v", "-t", "TimePlans", "-r", interval, env=fast_clock(SPEED))

    def wait_runs(self, frame, number):
        """At least so many: a fast clock can run on between two looks."""
        wait_until(lambda: self.runs(frame) >= number, f"run {number} of TimeFrame.{frame}")

    def runs(self, frame):
        return self.get(f"TimeFrame.{frame}", "RunCounter")

    def wait_ended(self, result):
        self.wait_value(f"FileTransfer.{self.row}", "Status", ENDED)
        self.wait_value(f"FileTransfer.{self.row}", "Result", result)


@pytest.fixture
def windows(store):
    return Windows(store)


def test_the_first_pass_enables_the_service_daemon_and_nothing_else(windows):
    frame = windows.open(-60)
    horad = windows.horad()
    first = horad.err.wait("debug timefrmhdl: First process: synchronise$")
    assert horad.err.wait("debug timefrmhdl: start wexd$", first) == first + 1
    windows.wait_runs(frame, 1)
    assert windows.get("wexd", "Enable") == 1
    assert horad.err.wait("executionRequired for Timeframe") > first + 1


def test_a_service_that_fails_twice_and_then_succeeds_is_started_three_times(windows):
    service = windows.service(1, 1, 0)
    frame = windows.open(1)
    horad = windows.horad()
    windows.wait_runs(frame, 3)
    windows.wait_ended(0)
    horad.err.wait(r"Skip service FileTransfer\(Id=%d\), already successfull finished" % windows.row)
    assert (len(service.runs), windows.runs(frame)) == (3, 3)
    assert horad.err.count("error") == 0


def test_three_retries_allow_four_runs(windows):
    other = windows.add("FileTransfer", Status=0)
    service = windows.service(1)
    limited = windows.open(1, MaxRetries=3)
    unlimited = windows.open(1, ServicetableId=other)
    windows.horad()
    windows.wait_runs(unlimited, 8)  # the same moments fall due for both
    assert windows.runs(limited) == 4
    assert service.runs.count(windows.row) == 4


def test_nothing_runs_before_the_window_or_behind_it(windows):
    windows.service(1)
    later, over = windows.open(3600), windows.open(-7200)
    now = windows.open(1)
    windows.horad()
    windows.wait_runs(now, 3)
    assert (windows.runs(later), windows.runs(over)) == (0, 0)


@pytest.mark.parametrize("path, busy, idle", [(SIP_CALLS, "1\n", "0\n"), (STREAMS, STREAM, "Group Origin\n")],
                         ids=["call", "stream"])
def test_mode_3_is_held_by_what_goes_on_on_the_line_and_let_go(windows, path, busy, idle):
    kernel = windows.house.kernel_files()
    kernel.write(path, busy)
    windows.service(0)
    held, free = windows.open(1, WindowMode=3), windows.open(1, ServicetableId=windows.add("FileTransfer", Status=0))
    horad = windows.horad()
    again = horad.err.wait("info timefrmhdl: system not idle, reschedule$")
    horad.err.wait("info timefrmhdl: system not idle, reschedule$", again + 1)
    windows.wait_runs(free, 1)
    assert windows.runs(held) == 0

    kernel.write(path, idle)
    windows.wait_runs(held, 1)
    windows.wait_ended(0)


def test_mode_3_waits_for_the_users_time_plan(windows):
    windows.house.kernel_files()
    today = time.localtime().tm_wday + 1
    plan = windows.add("FirmwareUpdateTimePlan", Enable=1, WeekDay=today % 7 + 1, EndTimeHour=24)
    windows.service(1)
    held, free = windows.open(1, WindowMode=3), windows.open(1, ServicetableId=windows.add("FileTransfer", Status=0))
    windows.horad()
    windows.wait_runs(free, 3)
    assert windows.runs(held) == 0

    windows.set(f"FirmwareUpdateTimePlan.{plan}", Enable=0)  # counts from the next change of a watched table on
    windows.wait_runs(held, 1)


def test_two_frames_for_one_service_start_it_once_and_count_both(windows):
    service = windows.service(0)
    frames = [windows.open(-1), windows.open(-1)]
    horad = windows.horad()
    for frame in frames:
        windows.wait_runs(frame, 1)
    windows.wait_ended(0)
    horad.err.wait("already successfull finished")
    assert service.runs == [windows.row]
    assert horad.err.count("_startService") == 1


def test_a_number_of_calls_that_is_none_ends_the_run_with_0(windows):
    windows.house.kernel_files().write(SIP_CALLS, "many\n")
    windows.open(-60)
    horad = windows.horad()
    assert horad.wait() == 0
    assert horad.err.seen[-1].endswith("error horad: stol")


def test_a_frame_that_is_removed_runs_no_more_and_a_changed_one_starts_afresh(windows):
    windows.service(1)
    removed, changed, kept = windows.open(1), windows.open(1), windows.open(1)
    horad = windows.horad()
    windows.wait_runs(kept, 2)
    windows.remove(removed)
    horad.err.wait("debug timefrmhdl: Delete removed Timefames Id=%d$" % removed)
    windows.set(f"TimeFrame.{changed}", TimeFrameEnd=int(time.time()) + 7200, RunCounter=50)
    update = horad.err.wait("debug timefrmhdl: Update entry from Database Id=%d$" % changed)
    wait_until(lambda: windows.runs(changed) > 50, "the changed frame goes on from its row")
    windows.wait_runs(kept, 5)

    assert horad.err.count("Update entry") == 1
    assert horad.err.count("New entry from Database Id=%d$" % kept) == 1
    assert [line for line in horad.err.seen[update:] if f"executionRequired for Timeframe(Id={removed})" in line] == []


def test_a_frame_whose_row_is_read_again_unchanged_keeps_its_next_execution_time(windows):
    windows.service(1)
    frame = windows.open(1)
    horad = windows.horad(interval=3600)
    windows.wait_runs(frame, 1)
    for _ in range(3):  # a fresh frame would be due at once
        seen = len(horad.err.seen)
        windows.add("TimeFrame", WindowMode=2)
        horad.err.wait("load .* entries from TimeFrame", seen)
        horad.err.wait("Load service states", seen)
    windows.wait_runs(windows.open(0), 1)
    assert windows.runs(frame) == 1


def test_a_restart_in_the_middle_of_a_window_goes_on_with_the_stored_counter(windows):
    windows.service(1, 1, 0)
    frame = windows.open(1, MaxRetries=2)
    horad = windows.horad(interval=3600)
    windows.wait_runs(frame, 1)
    windows.wait_ended(1)
    horad.stop(signal.SIGKILL)

    windows.horad(interval=3600)
    windows.wait_runs(frame, 2)
    windows.wait_ended(1)
    assert windows.runs(frame) == 2


def test_another_clients_transaction_delays_a_start_and_no_more(windows):
    windows.service(0)
    holder = windows.client()
    frame = windows.open(2)
    horad = windows.horad()
    horad.err.wait("start wexd")
    assert result_code(holder.begin(10_000)) == 0
    horad.err.wait(r"Timeframes \(%d\) active -> perform Action" % frame)
    assert windows.runs(frame) == 0
    assert result_code(holder.commit()) == 0
    windows.wait_runs(frame, 1)
    windows.wait_ended(0)


STORE = "/tmp/store.socket"


# The requests of a start from its transaction on; one that fails before it waits for the next moment. The transaction before it is that of the reading, in which there was nothing to do.
START = [(BEGIN, 2, "begin"), (READ_KEY, 2, "service"), (UPDATE, 1, "status"),
         (WRITE_SINGLE, 1, "wexd"), (UPDATE, 2, "counter"), (COMMIT, 2, "commit")]


@pytest.mark.parametrize("after", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("kind, number", [step[:2] for step in START], ids=[step[2] for step in START])
def test_a_store_lost_at_a_start_comes_back_to_one_start_and_one_count(house, kind, number, after):
    house.cfgserver("-s", STORE)
    windows = Windows(house, STORE)
    windows.open(-1, ServicetableId=windows.add("FileTransfer", Status=ENDED))
    proxy = Proxy(house.path(SOCKET), house.path(STORE))
    horad = windows.horad(interval=3600)
    horad.err.wait("already successfull finished")  # nothing is asked from here on
    proxy.arm_at(kind, number, after)
    frame = windows.open(-1)
    assert proxy.is_cut.wait(20), "\n".join(horad.err.seen)

    watch = house.start("cfgctl", "-s", STORE, "watch", "TimeFrame", "FileTransfer")
    watch.err.wait("watching")
    proxy.resume()
    windows.wait_runs(frame, 1)
    windows.wait_value(f"FileTransfer.{windows.row}", "Status", STARTED)
    horad.err.wait(r"Skip service FileTransfer\(Id=%d\), already running" % windows.row)
    changes = [line for line in watch.out.seen if "RunCounter" in line or "Status" in line]
    assert len(changes) in (0, 2), watch.out.seen  # both at once, or both before
    assert windows.runs(frame) == 1
