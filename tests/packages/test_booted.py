"""The packages in a system that is booted with systemd, in the order in which an owner meets them."""

import json
import re
import shlex
import threading
from datetime import datetime, timedelta

import pytest

from container import await_true
from conftest import OURS

STORE, SOCKET, DAEMON = "cfgserver.service", "cfgserver.socket", "horad.service"
MEMBER = "horad-cluster.service"
INSTALLED = ["horad", "cfgserver", "cfgctl"]
APT = "DEBIAN_FRONTEND=noninteractive apt-get -q -y"
DATABASE = "/var/lib/cfgserver/store.db"


def files_of(system):
    """Every file that stays on the disk, but for what apt, dpkg and systemd write down of what was done."""
    kept = system.out("find / -xdev \\( -path /proc -o -path /sys -o -path /run -o -path /tmp -o -path /var/tmp "
                      "-o -path /var/log -o -path /var/cache -o -path /packages -o -path /older "
                      "-o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/lib/systemd/deb-systemd-helper-enabled "
                      "-o -path /var/lib/systemd/deb-systemd-helper-masked -o -path /var/lib/systemd/timers "
                      "-o -path /var/lib/private \\) -prune -o -print")
    return set(kept.splitlines())


class Watch:
    """cfgctl watch in the system, its lines as they come."""

    def __init__(self, system):
        self.process = system.start("cfgctl watch --no-time")
        self.lines = []
        self.begun = threading.Event()
        threading.Thread(target=self.read, daemon=True).start()
        assert self.begun.wait(10)

    def read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip())
            self.begun.set()  # its first line says that it watches

    def await_line(self, line, seconds=20):
        await_true(lambda: line in self.lines, f"{line!r} among {self.lines}", seconds)

    def end(self):
        self.process.terminate()
        self.process.wait()


@pytest.fixture
def watch(installed):
    watch = Watch(installed)
    yield watch
    watch.end()


@pytest.fixture(scope="module")
def before(system):
    """The files of the system before anything of ours was there."""
    return files_of(system)


@pytest.fixture(scope="module")
def installed(system, before):
    system.run(f"{APT} install /packages/*.deb")
    return system


def cells(**values):
    return " ".join(shlex.quote(f"{column}={value}") for column, value in values.items())


def day_of(moment):
    return moment.strftime("%a")


def now_in(system):
    return datetime.strptime(system.out("date '+%F %T'"), "%Y-%m-%d %H:%M:%S")


def slot_in(system, begin, seconds):
    """Columns of a plan whose slot begins in so many seconds, and is so long."""
    start = now_in(system) + timedelta(seconds=begin)
    stop = start + timedelta(seconds=seconds)
    day = day_of(start)
    return {f"Start{day}": start.strftime("%H:%M:%S"), f"Stop{day}": stop.strftime("%H:%M:%S")}


def answers(system, command="cfgctl get WlanGlobals WlanEnable"):
    return lambda: system.run(command, check=None)[0] == 0


def test_one_command_brings_up_store_and_daemon(installed):
    for unit in (STORE, DAEMON):
        assert installed.property(unit, "ActiveState") == "active"
        assert installed.property(unit, "UnitFileState") == "enabled"
    assert installed.out("cfgctl tables | wc -l") == "10"
    assert installed.out("readlink /tmp/cfgserver.socket") == "/run/horad-store/cfgserver.socket"
    assert installed.out(f"stat -c '%U %a' {DATABASE}") == "cfgserver 600"
    assert installed.out("stat -c '%U %a' /run/horad-store") == "root 755"
    assert installed.out("ps -o user= -C cfgserver || stat -c %U /proc/$(systemctl show -P MainPID cfgserver)") == "cfgserver"


def test_the_store_answers_as_soon_as_it_was_started(installed):
    for _ in range(10):
        installed.run("systemctl restart cfgserver.service && cfgctl get WlanGlobals WlanEnable")


def test_a_plan_switches_the_wlan_by_the_clock(installed, watch):
    await_true(lambda: installed.property(DAEMON, "StatusText") == "WLAN off", "horad's status")
    plan = installed.out(f"cfgctl add WlanTimePlans TimePlanName=Now Activate=1 {cells(**slot_in(installed, 3, 20))}")
    watch.await_line("WlanGlobals WlanEnable: 0 -> 1")
    await_true(lambda: installed.property(DAEMON, "StatusText") == "WLAN on", "horad's status")
    why = installed.out("horactl why wlan")
    assert "WLAN is ON" in why and "Now" in why
    assert "-t WlanTimePlans" in why.splitlines()[0] or "horad" in why.splitlines()[0]
    installed.run(f"cfgctl remove WlanTimePlans.{plan}")
    watch.await_line("WlanGlobals WlanEnable: 1 -> 0")


def test_the_reboot_is_triggered(installed, watch):
    # horad looks 50 seconds after its start, and that is within a slot that begins earlier.
    await_true(lambda: 12 <= now_in(installed).second < 55, "the slot near enough")
    slot = now_in(installed) + timedelta(minutes=1)
    installed.run(f"systemctl restart {DAEMON}; cfgctl set AutoReboot Enable=1 WeekDay=0 Time={slot.strftime('%H:%M')} MinimumRuntime=0")
    assert "reboot" in installed.out("horactl next").lower()
    watch.await_line("Reboot Trigger: 0 -> 1", seconds=120)
    installed.run("cfgctl set AutoReboot Enable=0 && cfgctl set Reboot Trigger=0")


@pytest.mark.parametrize("unit", [STORE, DAEMON])
def test_killed_it_comes_back_and_the_plans_go_on(installed, unit, watch):
    killed = installed.kill(unit)
    await_true(lambda: installed.property(unit, "ActiveState") == "active"
               and installed.property(unit, "MainPID") not in ("0", str(killed)), f"{unit} back")
    assert installed.run("cfgctl get WlanGlobals WlanEnable")[0] == 0
    second = Watch(installed)
    plan = installed.out(f"cfgctl add WlanTimePlans Activate=1 {cells(**slot_in(installed, 0, 60))}")
    second.await_line("WlanGlobals WlanEnable: 0 -> 1")
    installed.run(f"cfgctl remove WlanTimePlans.{plan}")
    second.await_line("WlanGlobals WlanEnable: 1 -> 0")
    second.end()


def test_ten_kills_of_the_store_leave_it_running(installed):
    killed = {"0"}
    for _ in range(10):
        await_true(lambda: installed.property(STORE, "MainPID") not in killed, "the store")
        killed.add(str(installed.kill(STORE)))
    await_true(answers(installed), "the store answers")


def test_a_stop_is_the_orderly_one(installed):
    installed.run(f"systemctl stop {DAEMON}")
    assert installed.property(DAEMON, "Result") == "success"
    assert installed.run("test -e /run/horad", check=None)[0] == 1
    installed.run(f"systemctl start {DAEMON}")
    assert installed.out("cat /run/horad") == installed.property(DAEMON, "MainPID")


def test_a_damaged_database_comes_up_unaided_once_it_is_repaired(installed):
    installed.run(f"systemctl stop {SOCKET} {STORE}")
    installed.run(f"cp -p {DATABASE} /root/whole.db && printf damaged | dd of={DATABASE} conv=notrunc 2>/dev/null")
    installed.run(f"systemctl start --no-block {SOCKET} {STORE}")
    await_true(lambda: int(installed.property(STORE, "NRestarts")) >= 3, "attempts")
    assert "is not a database" in installed.out("journalctl -u cfgserver -o cat --since=-1min")
    attempts = int(installed.property(STORE, "NRestarts"))
    begin = now_in(installed)
    await_true(lambda: int(installed.property(STORE, "NRestarts")) > attempts + 1, "two more attempts")
    assert (now_in(installed) - begin).total_seconds() >= 2, "it is tried again without a pause"
    assert installed.property(DAEMON, "ActiveState") == "active"
    assert installed.property(DAEMON, "StatusText") == "waiting for the store"
    installed.run(f"cp -p /root/whole.db {DATABASE}")
    await_true(answers(installed), "the store answers")
    await_true(lambda: installed.property(DAEMON, "StatusText").startswith("WLAN"), "horad's status")
    installed.run("rm /root/whole.db")


def test_journal_lines_have_their_priority_and_one_time_stamp(installed):
    lines = [json.loads(line) for line in installed.out("journalctl -u cfgserver -o json").splitlines()]
    ours = [line for line in lines if line.get("_COMM") == "cfgserver"]
    assert {line["PRIORITY"] for line in ours if "serves 9 tables" in line["MESSAGE"]} == {"6"}
    assert {line["PRIORITY"] for line in ours if "is not a database" in line["MESSAGE"]} == {"3"}
    assert not [line for line in ours if re.search(r"\d\d:\d\d:\d\dZ", line["MESSAGE"])]


def test_a_member_of_a_cluster_waits_until_it_was_made(installed):
    assert installed.property(MEMBER, "UnitFileState") == "enabled"
    assert installed.property(MEMBER, "ActiveState") == "inactive" and installed.property(MEMBER, "Result") == "success"
    assert installed.out("stat -c '%U %G %a' /var/lib/horad-cluster") == "horad-cluster cfgserver 700"


def test_a_store_shares_its_plans_through_the_member_of_its_router(installed):
    installed.run("cfgctl cluster create /var/lib/horad-cluster tcp:127.0.0.1:6641")
    installed.run(f"systemctl start {MEMBER}")
    assert installed.property(MEMBER, "StatusText") == "leader, cluster member"
    assert "this member, leads" in installed.out("cfgctl cluster status")
    ask = "ovsdb-client list-dbs unix:/run/horad-cluster/db.sock"
    assert "horad" in installed.out(f"setpriv --reuid cfgserver --regid cfgserver --clear-groups {ask}")
    installed.run(f"setpriv --reuid nobody --regid nogroup --clear-groups {ask}", check=1)
    settings = "/etc/default/cfgserver"
    installed.run(f"cp -p {settings} /root/settings; "
                  f"echo 'CFGSERVER_OPTIONS=\"--cluster unix:/run/horad-cluster/db.sock\"' >> {settings}; systemctl restart {STORE}")
    await_true(answers(installed, "cfgctl add WlanTimePlans TimePlanName=Shared"), "a plan is shared")
    plans = installed.out("ovsdb-client dump unix:/run/horad-cluster/db.sock horad WlanTimePlans TimePlanName")
    assert "Shared" in plans
    installed.run(f"mv /root/settings {settings}; systemctl restart {STORE}")


def test_a_member_that_answers_nobody_is_started_again(installed):
    folder = f"/run/systemd/system/{MEMBER}.d"
    installed.run(f"mkdir -p {folder} && printf '[Service]\\nWatchdogSec=4\\n' > {folder}/short.conf && "
                  f"systemctl daemon-reload && systemctl restart {MEMBER}")
    frozen = installed.property(MEMBER, "MainPID")
    installed.run(f"kill -STOP {frozen}")
    await_true(lambda: installed.property(MEMBER, "MainPID") not in ("0", frozen)
               and installed.property(MEMBER, "ActiveState") == "active", "the member back", 60)
    assert "Watchdog timeout" in installed.out(f"journalctl -u {MEMBER} -o cat")
    installed.run(f"rm -r {folder}; systemctl daemon-reload; systemctl stop {MEMBER}")


@pytest.mark.parametrize("unit", [STORE, DAEMON, MEMBER])
def test_the_sandbox_is_tight(installed, unit):
    installed.run(f"systemd-analyze security --no-pager --threshold=20 {unit} >/dev/null")


def test_the_units_are_well_formed(installed):
    assert installed.run(f"systemd-analyze verify --man=no {STORE} {SOCKET} {DAEMON} {MEMBER} 2>&1")[1] == ""


def test_horad_sees_the_files_that_tell_of_calls_and_streams(installed):
    pid = installed.property(DAEMON, "MainPID")
    inside = installed.out(f"nsenter -t {pid} -m cat /proc/{pid}/net/ip_mr_vif")
    assert inside == installed.out("cat /proc/net/ip_mr_vif") and inside
    assert installed.out(f"readlink /proc/{pid}/ns/net") == installed.out("readlink /proc/1/ns/net")
    installed.run(f"nsenter -t {pid} -m test -e /proc/sys/kernel/hostname")  # more than the processes' own folders


def test_the_tables_survive_a_boot(installed):
    plan = installed.out("cfgctl add TimePlans TimePlanName=Kept")
    installed.power_off()
    installed.boot()
    await_true(answers(installed), "the store after a boot")
    assert installed.out(f"cfgctl get TimePlans.{plan} TimePlanName") == "Kept"
    await_true(lambda: installed.property(DAEMON, "StatusText").startswith("WLAN"), "horad after a boot")
    installed.run(f"cfgctl remove TimePlans.{plan}")


def test_the_shell_completes_tables_of_the_store(installed):
    script = ("source /usr/share/bash-completion/bash_completion; source /usr/share/bash-completion/completions/cfgctl; "
              "COMP_WORDS=(cfgctl show Wlan) COMP_CWORD=2 COMP_LINE='cfgctl show Wlan' COMP_POINT=16; "
              "\"$(complete -p cfgctl | sed 's/.*-F \\([^ ]*\\).*/\\1/')\" cfgctl Wlan show; printf '%s\\n' \"${COMPREPLY[@]}\"")
    found = installed.out("bash --norc -i -c " + shlex.quote(script) + " 2>/dev/null").split()
    assert "WlanTimePlans" in [word.rstrip(".") for word in found]


def busybox(system, command, check=0):
    """A command of the shell with busybox's programs alone."""
    return system.run(f"env -i PATH=/bb /bb/sh -c {shlex.quote(command)}", check=check)[1]


def test_the_init_scripts_run_under_busybox(installed):
    installed.run(f"systemctl stop {DAEMON} {SOCKET} {STORE}; mkdir -p /bb && busybox --install -s /bb")
    for name in ("cfgserver", "horad"):
        script = f"/etc/init.d/{name}"
        busybox(installed, f"{script} status", check=3)
        assert f"{name} started" in busybox(installed, f"{script} start")
        assert f"{name} is running" in busybox(installed, f"{script} status")
        assert "already running" in busybox(installed, f"{script} start")
        assert f"{name} stopped" in busybox(installed, f"{script} restart")
        assert f"{name} started" in busybox(installed, f"{script} force-reload")
        busybox(installed, f"{script} nonsense", check=2)
    assert installed.out("cfgctl tables | wc -l") == "10"
    for name in ("horad", "cfgserver"):
        installed.run(f"kill -9 $(cat /run/{name})")
        await_true(lambda: installed.run(f"kill -0 $(cat /run/{name})", check=None)[0] != 0, f"{name} gone")
        assert "pid file is there" in busybox(installed, f"/etc/init.d/{name} status", check=1)
        busybox(installed, f"/etc/init.d/{name} start")
        assert f"{name} stopped" in busybox(installed, f"/etc/init.d/{name} stop")
        busybox(installed, f"/etc/init.d/{name} status", check=3)
    installed.run(f"rm -r /bb; systemd-tmpfiles --create; systemctl start {SOCKET} {STORE} {DAEMON}")
    await_true(answers(installed), "the store")
    assert installed.out(f"stat -c %U {DATABASE}") == "cfgserver"


def test_it_waits_for_a_clock_that_is_not_set_but_not_for_long(installed):
    wait = "/usr/lib/horad/wait-for-clock"
    installed.run(f"{wait} 0")
    installed.run("touch -d 2200-01-01 /root/future")
    begin = now_in(installed)
    installed.run(f"{wait} 1 /root/future", check=1)
    assert (now_in(installed) - begin).total_seconds() <= 3
    installed.run(f"({wait} 30 /root/future && touch /root/was-set) & touch -d 2000-01-01 /root/future; wait; "
                  "test -e /root/was-set")
    installed.run("rm /root/future /root/was-set")


def test_removed_it_leaves_the_database_and_purged_nothing(installed, before):
    installed.run(f"{APT} remove {' '.join(OURS)}")
    assert installed.run(f"test -e {DATABASE}", check=None)[0] == 0
    assert installed.run("test -e /tmp/cfgserver.socket -o -L /tmp/cfgserver.socket", check=None)[0] == 1
    installed.run(f"dpkg --purge {' '.join(OURS)}")
    assert files_of(installed) - before == set()
    assert installed.run("id cfgserver", check=None)[0] != 0
    assert installed.run("ls -d /run/horad* /run/cfgserver* 2>/dev/null", check=None)[1] == ""


def test_an_upgrade_keeps_rows_and_edited_settings(system, before):
    """From a package of a lower version, with a database of before times of day were checked."""
    system.run(f"{APT} install /older/*.deb")
    assert system.out("dpkg-query -W -f '${Version}' horad") == "0.0.1"
    system.run(f"systemctl stop {SOCKET} {STORE}; rm -f {DATABASE}*; "
               f"install -m 600 -o cfgserver -g cfgserver /fixtures/before-times.db {DATABASE}; "
               f"systemctl start {SOCKET} {STORE}")
    rows = system.out("cfgctl dump")
    assert "Unreadable" in rows and "2230" in rows
    system.run("echo 'HORAD_OPTIONS=\"-t WlanTimePlans -r 777\"' >> /etc/default/horad; systemctl restart horad")

    system.run(f"{APT} install /packages/*.deb")

    assert system.out("dpkg-query -W -f '${Version}' horad") != "0.0.1"
    await_true(answers(system), "the store after the upgrade")
    now = json.loads(system.out("cfgctl dump"))
    for table, wanted in json.loads(rows).items():
        if table not in ("WlanGlobals", "wexd"):  # which horad writes when it starts
            assert now[table] == wanted
    for unit in (STORE, DAEMON):
        assert system.property(unit, "ActiveState") == "active"
    pid = system.property(DAEMON, "MainPID")
    assert "-r 777" in system.out(f"tr '\\0' ' ' < /proc/{pid}/cmdline")
    system.run(f"{APT} purge {' '.join(OURS)}")
    assert files_of(system) - before == set()
