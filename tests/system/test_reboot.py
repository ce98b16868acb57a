"""The router reboots in its slot: real store, real daemon. The clock stands where the test sets it, so that a pass
falls where the test wants it, however busy the machine is."""

import os
import re
import signal

import pytest

from house import SOCKET, fast_clock, wait_until
from proxy import Proxy
from wire import BUSY, COMMIT, WRITE_SINGLE, Client, result_code

TZ = "Europe/Berlin"
MONDAY, TUESDAY = "2026-06-15", "2026-06-16"
SIP_CALLS = "/proc/kelvaro/ksn/udp/instance_count"
STORE = "/tmp/store.socket"  # behind a proxy
ARGUMENTS = ["-v", "-t", "WlanTimePlans"]
LONG_UP = 10 * 86400  # seconds
WAITS = 50  # times as short as usual: a pass every second
PASS_ENDS = r"(No auto reboot scheduled|Trigger auto reboot|Failed to start transaction)"
PASS_LINES = PASS_ENDS[:-1] + r"|System |Reboot allowed|Uptime is|Last auto reboot|Still waiting|Current time is)"
WRITTEN = 3  # so often a line is written within a minute, what follows is counted

IDLE = "System is idle, continue with auto reboot."
ALLOWED = "Reboot allowed, continue with auto reboot."
IN_CALL = "System is not idle => try reboot later."
STILL_IN_CALL = "System is still not idle => try reboot later."


class Pass(list):
    """The lines of a pass. Those that were written often may be there or be missing."""

    def __init__(self, lines, often):
        super().__init__(lines)
        self._often = often

    def __eq__(self, other):
        return self._seldom(self) == self._seldom(other)

    def _seldom(self, lines):
        return [line for line in lines if line not in self._often]


class Night:
    """A horad on its way through a night, and the store that it works with."""

    def __init__(self, house, path=SOCKET, uptime=LONG_UP):
        self.house, self.path = house, path
        house.booted(uptime)
        self.clock = house.clock(f"{MONDAY} 03:00:00", WAITS, TZ)
        self._seen = 0

    def plan(self, **cells):
        self._cfgctl("set", "AutoReboot", *(f"{name}={value}" for name, value in cells.items()))

    def begin(self):
        """A horad that has read its settings."""
        self.horad = self.house.horad(*ARGUMENTS, env=self.clock.env)
        self._seen = self.horad.err.wait(r"configChanged\(\"\"\) of handler 3 returned true")

    def come_to(self, time, day=MONDAY):
        """What the first pass from that time of day on logs, up to its end."""
        return self._pass_up_to(self.horad.err.wait(PASS_ENDS, self.reach(time, day)))

    def wait_triggered(self, time):
        """What the pass logs that triggers at that time of day."""
        return self._pass_up_to(self.horad.err.wait(re.escape(triggered(time)[-1]), self._seen))

    def _pass_up_to(self, last):
        lines = self.horad.err.seen
        if "Trigger" in lines[last]:
            self.clock.tick()  # in the same second the next pass would do it again
        begins = [i for i in range(last) if lines[i].endswith("debug horad: process") or re.search(PASS_ENDS, lines[i])]
        first = max(begins, default=-1) + 1
        self._seen = last + 1
        before = [self._text(line) for line in lines[:first]]
        often = {line for line in before if before.count(line) >= WRITTEN}
        return Pass((self._text(line) for line in lines[first:last + 1] if re.search(PASS_LINES, line)), often)

    @staticmethod
    def _text(line):
        return re.sub(r"^\S+ \w+ horad: ", "", line)

    def reach(self, time, day=MONDAY):
        """The line in which a pass knows that time of day."""
        self.clock.set(f"{day} {time}")
        return self.horad.err.wait(f"debug horad: Current time is '{re.escape(moment(time, day))}'$", self._seen)

    def cells(self):
        return tuple(self._cfgctl("get", row, column).rstrip("\n")
                     for row, column in (("Reboot", "Trigger"), ("AutoReboot", "LastReboot")))

    def wait_rebooted(self, when):
        wait_until(lambda: self.cells() == ("1", when), f"the reboot at {when}")

    def watch(self):
        watch = self.house.start("cfgctl", "-s", self.path, "watch", "--no-time", "Reboot", "AutoReboot")
        watch.err.wait("watching")
        return watch

    def client(self):
        return Client(self.house.path(self.path))

    def wait_refused(self):
        """Until the store has turned down who waits for half a second: it has this client wait for longer."""
        assert result_code(self.client().begin(1000)) == BUSY

    def _cfgctl(self, *words):
        return self.house.cfgctl("-s", self.path, *words)


def moment(time, day=MONDAY):
    return f"{day}T{time}+0200"


def nothing_due(time, day=MONDAY):
    return [f"Current time is '{moment(time, day)}'", f"No auto reboot scheduled for now  ({moment(time, day)}) "]


def triggered(time, day=MONDAY):
    return [IDLE, ALLOWED, f"Current time is '{moment(time, day)}'",
            f"Trigger auto reboot now at '{moment(time, day)}'"]


def refused(why, time):
    return [IDLE, why, *nothing_due(time)]


NOTHING = ("0", "")


@pytest.fixture
def night(store):
    """The night before a daily reboot at half past three."""
    night = Night(store)
    night.plan(Enable=1, WeekDay=0, Time="03:30:00")
    return night


@pytest.fixture
def disk(house):
    """A house with a store that can be stopped and started again."""
    house.server = house.cfgserver("-f", "/tmp/store.db")
    return house


def test_the_daily_slot_triggers_once_and_both_cells_come_in_one_commit(night):
    night.begin()
    watch = night.watch()
    subscriber = night.client()
    subscriber.subscribe("Reboot", "AutoReboot")
    assert night.come_to("03:29:59") == nothing_due("03:29:59")
    assert night.come_to("03:30:05") == triggered("03:30:05")
    assert set(subscriber.notice()) == {"Reboot", "AutoReboot"}
    assert (subscriber.read("Reboot")[0]["Trigger"], subscriber.read("AutoReboot")[0]["LastReboot"]) == \
        (1, moment("03:30:05"))

    late = night.come_to("03:30:59")  # the last second of the slot
    assert late == refused("Last auto reboot was only 54 seconds ago, skipping reboot.", "03:30:59")
    for time in ("03:31:00", "05:30:00"):
        assert night.come_to(time) == nothing_due(time)
    assert night.horad.err.count("info horad: Trigger auto reboot now at") == 1
    watch.out.wait("LastReboot")
    assert watch.out.seen == ["Reboot Trigger: 0 -> 1", f"AutoReboot LastReboot: \"\" -> {moment('03:30:05')}"]

    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)
    night.wait_rebooted(moment("03:30:05", TUESDAY))
    assert night.horad.err.count("error|warning") == 0


def test_a_running_clock_reaches_the_slot_and_the_first_pass_comes_in_the_25th_iteration(store):
    store.booted(LONG_UP)
    store.set("AutoReboot", Enable=1, WeekDay=0, Time="03:30:00")
    clock = {**fast_clock(10, f"{MONDAY} 03:29:30"), "TZ": TZ}  # a pass is due about the middle of the slot
    horad = store.horad(*ARGUMENTS, env=clock)
    read = horad.err.wait("Auto reboot enabled")
    first = horad.err.wait("debug horad: process$")
    trigger = horad.err.wait(r"Trigger auto reboot now at '2026-06-15T03:30:\d\d\+0200'", first)
    # 24 whole iterations at least
    assert second_of_day(horad.err.seen[first]) - second_of_day(horad.err.seen[read]) >= 48
    store.wait_value("Reboot Trigger", 1)
    assert store.get("AutoReboot LastReboot") == horad.err.seen[trigger].split("'")[1]


def second_of_day(line):
    hours, minutes, seconds = re.search(r"T(\d\d):(\d\d):(\d\d)Z", line).groups()
    return int(hours) * 3600 + int(minutes) * 60 + int(seconds)


def test_a_call_puts_the_reboot_off_to_its_end_long_after_the_slot(night):
    kernel = night.house.kernel_files()
    kernel.write(SIP_CALLS, "1\n")
    night.begin()
    assert night.come_to("03:30:05") == [IN_CALL, *nothing_due("03:30:05")]
    waiting = "Still waiting for system idle, waited 1200 seconds so far."
    assert night.come_to("03:50:05") == [STILL_IN_CALL, waiting, *nothing_due("03:50:05")]
    assert night.cells() == NOTHING

    night.clock.set(f"{MONDAY} 03:51:00")
    kernel.write(SIP_CALLS, "0\n")
    lines = night.wait_triggered("03:51:00")
    assert lines == ["System is now idle, continue with auto reboot.", *triggered("03:51:00")[1:]]
    night.wait_rebooted(moment("03:51:00"))
    assert night.horad.err.count("info horad: " + IN_CALL) == 1


def test_a_call_of_over_an_hour_puts_the_reboot_off_to_the_next_night(night):
    kernel = night.house.kernel_files()
    kernel.write(SIP_CALLS, "2\n")
    night.begin()
    night.come_to("03:30:05")
    waiting = "Still waiting for system idle, waited 3600 seconds so far."
    assert night.come_to("04:30:05") == [STILL_IN_CALL, waiting, *nothing_due("04:30:05")]
    given_up = "System never became idle, postpone auto reboot to next scheduled time."
    assert night.come_to("04:30:06") == [STILL_IN_CALL, given_up, *nothing_due("04:30:06")]
    assert night.horad.err.count("info horad: " + given_up) == 1

    kernel.write(SIP_CALLS, "0\n")
    assert night.come_to("04:31:00") == nothing_due("04:31:00")
    assert night.come_to("03:29:59", TUESDAY) == nothing_due("03:29:59", TUESDAY)
    assert night.cells() == NOTHING
    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)
    night.wait_rebooted(moment("03:30:05", TUESDAY))


def test_a_router_that_is_up_for_less_than_the_minimum_does_not_reboot(store):
    night = Night(store, uptime=5000)  # 5400 are further away than the end of any test
    night.plan(Enable=1, WeekDay=0, Time="03:30:00")
    night.begin()
    idle, why, *rest = night.come_to("03:30:05")
    assert (idle, rest) == (IDLE, nothing_due("03:30:05"))
    uptime = re.fullmatch(r"Uptime is only (\d+) seconds, skipping reboot\.", why).group(1)
    assert 5000 <= int(uptime) < 5400
    assert night.cells() == NOTHING

    night.clock.set(f"{MONDAY} 03:31:00")
    night.plan(MinimumRuntime=4000)
    night.horad.err.wait("Auto reboot enabled", night.horad.err.wait("Uptime is only"))
    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)


def test_a_horad_that_is_started_again_in_the_slot_knows_of_the_reboot(night):
    watch = night.watch()
    night.begin()
    night.come_to("03:30:05")
    night.wait_rebooted(moment("03:30:05"))
    assert night.horad.stop(signal.SIGKILL) == -signal.SIGKILL

    night.begin()
    lines = night.come_to("03:30:25")
    assert lines == refused("Last auto reboot was only 20 seconds ago, skipping reboot.", "03:30:25")
    watch.out.wait("LastReboot")
    assert watch.out.count("Trigger") == 1


def test_a_store_that_is_back_within_the_minute_gets_the_reboot_once(disk):
    night = Night(disk)
    night.plan(Enable=1, WeekDay=0, Time="03:30:00")
    night.begin()
    night.come_to("03:29:00")
    disk.server.stop(signal.SIGKILL)
    lost = night.horad.err.wait("warning horad: .*connection lost")
    tries = night.reach("03:30:05")
    night.clock.pace(10)  # the second in which a new connection waits for its reading is a real one
    disk.server = disk.cfgserver("-f", "/tmp/store.db")
    back = night.horad.err.wait("Connected to the configuration store again", tries)
    assert night.wait_triggered("03:30:05") == triggered("03:30:05")
    night.clock.pace(WAITS)
    night.wait_rebooted(moment("03:30:05"))
    assert lost < tries < back
    watch = night.watch()
    lines = night.come_to("03:30:40")
    assert lines == refused("Last auto reboot was only 35 seconds ago, skipping reboot.", "03:30:40")
    assert (night.horad.err.count("Trigger auto"), watch.out.seen) == (1, [])


def test_a_store_that_is_gone_for_longer_gets_no_reboot_and_the_loop_goes_on(disk):
    night = Night(disk)
    night.plan(Enable=1, WeekDay=0, Time="03:30:00")
    plan = disk.add("WlanTimePlans", Activate=1, StartSun="12:00:00", StopSun="13:00:00")
    night.begin()
    night.come_to("03:29:00")
    disk.server.stop(signal.SIGKILL)
    night.horad.err.wait("warning horad: .*connection lost")
    lines = night.come_to("03:30:05")
    assert lines == [IDLE, ALLOWED, f"Current time is '{moment('03:30:05')}'",
                     "Failed to start transaction for auto reboot."]
    night.clock.set(f"{MONDAY} 03:31:00")
    disk.server = disk.cfgserver("-f", "/tmp/store.db")
    disk.set(f"WlanTimePlans.{plan}", Activate=0)  # on outside its slot
    disk.wait_value("WlanGlobals WlanEnable", 1)
    assert night.come_to("03:31:30") == nothing_due("03:31:30")
    assert night.cells() == NOTHING
    assert night.horad.err.count("error horad: Failed to start transaction for auto reboot.") == 1
    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)


@pytest.mark.parametrize("after", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("number, kind", [(2, WRITE_SINGLE), (3, WRITE_SINGLE), (4, COMMIT)],
                         ids=["trigger", "moment", "commit"])
def test_a_store_lost_in_the_transaction_has_both_cells_or_none_and_one_reboot_in_the_end(house, number, kind, after):
    house.cfgserver("-s", STORE)
    proxy = Proxy(house.path(SOCKET), house.path(STORE))
    night = Night(house, STORE)
    night.plan(Enable=1, WeekDay=0, Time="03:30:00")
    watch = night.watch()
    night.begin()
    night.come_to("03:29:00")  # nothing is asked from here on
    proxy.arm(number, after, vanish=True)
    night.come_to("03:30:05")
    night.horad.err.wait(r"error horad: Failed to commit auto reboot transaction\.$")
    assert proxy.is_cut.wait(20) and proxy.cut_kind == kind
    done = kind == COMMIT and after
    assert night.cells() == (("1", moment("03:30:05")) if done else NOTHING)

    lines = night.come_to("03:30:20")  # with no store to read of it from
    assert lines == refused("Last auto reboot was only 15 seconds ago, skipping reboot.", "03:30:20")
    night.clock.set(f"{MONDAY} 03:30:40")
    proxy.resume()
    night.horad.err.wait("Auto reboot enabled", night.horad.err.wait("Connected to the configuration store again"))
    if done:
        lines = night.come_to("03:30:50")
        assert lines == refused("Last auto reboot was only 45 seconds ago, skipping reboot.", "03:30:50")
    else:
        assert night.wait_triggered("03:30:40") == triggered("03:30:40")
        night.wait_rebooted(moment("03:30:40"))
    watch.out.wait("LastReboot")
    assert (watch.out.count("Trigger"), watch.out.count("LastReboot")) == (1, 1)


def test_another_clients_transaction_delays_the_reboot_and_its_changes_are_delivered(night):
    plan = night.house.add("WlanTimePlans", Activate=1, StartSun="12:00:00", StopSun="13:00:00")
    night.begin()
    night.come_to("03:29:00")
    holder = night.client()
    assert result_code(holder.begin()) == 0
    held = night.reach("03:30:05")
    holder.update_switch("WlanTimePlans", plan, "Activate", 0)  # on outside its slot
    holder.write_single("AutoReboot", "WeekDay", 2)
    night.clock.set(f"{MONDAY} 03:40:00")
    night.wait_refused()
    assert night.cells() == NOTHING
    assert result_code(holder.commit()) == 0

    assert night.wait_triggered("03:30:05") == triggered("03:30:05")
    night.wait_rebooted(moment("03:30:05"))
    night.horad.err.wait("Auto reboot enabled: true, time: '03:30:00', day: 'Tu'", held)
    night.house.wait_value("WlanGlobals WlanEnable", 1)


def test_sigterm_while_another_client_holds_the_transaction_ends_the_daemon_without_a_reboot(night):
    log = night.house.syslog()
    status, _, err = night.house.run("horad", "-d", *ARGUMENTS, env=night.clock.env)
    assert status == 0, err
    pid_file = night.house.path("/run/horad")
    with open(pid_file) as file:
        pid = int(file.read())
    log.wait("No auto reboot scheduled")
    holder = night.client()
    assert result_code(holder.begin()) == 0
    night.clock.set(f"{MONDAY} 03:30:05")
    log.wait("Current time is '%s'" % re.escape(moment("03:30:05")))
    os.kill(pid, signal.SIGTERM)
    log.wait("Failed to start transaction for auto reboot")
    night.house.wait_gone(pid)
    assert not os.path.exists(pid_file)
    assert result_code(holder.abort()) == 0  # it was held all the time
    assert night.cells() == NOTHING
    log.close()


def test_switched_off_before_the_slot_nothing_happens(night):
    night.begin()
    night.come_to("03:29:00")
    night.plan(Enable=0)
    night.horad.err.wait("debug horad: Auto reboot disabled")
    utc = night.clock.set(f"{MONDAY} 03:30:05")
    skipped = night.horad.err.wait(f"{utc:%FT%TZ} debug horad: Auto reboot is disabled, skipping process.")
    assert night.horad.err.seen[skipped - 1].endswith("debug horad: process")
    assert night.cells() == NOTHING

    night.clock.set(f"{MONDAY} 03:31:00")
    night.plan(Enable=1)
    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)


def test_only_the_slot_of_the_weekday_counts(night):
    night.plan(WeekDay=2)
    night.begin()
    assert night.come_to("03:30:05") == nothing_due("03:30:05")
    assert night.cells() == NOTHING
    assert night.come_to("03:30:05", TUESDAY) == triggered("03:30:05", TUESDAY)
    night.wait_rebooted(moment("03:30:05", TUESDAY))
