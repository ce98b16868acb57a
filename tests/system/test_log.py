"""The log lines of a daemon on a real /dev/log."""

import os
import re

import pytest


@pytest.fixture
def daemon(store):
    store.log = store.syslog()
    status, _, err = store.run("horad", "-d", "-v", "-t", "WlanTimePlans", "-t", "TimePlans")
    assert status == 0, err
    return store


def test_lines_arrive_as_datagrams_with_level_program_and_process(daemon):
    with open(daemon.path("/run/horad")) as file:
        pid = file.read().strip()
    line = daemon.log.wait("Initial reading of config")
    assert line == f"<30>horad[{pid}]: Initial reading of config"  # the daemon facility's info
    assert re.match(r"<31>horad\[", daemon.log.wait("returned true"))  # debug


def test_a_plan_of_many_lines_is_one_line_of_the_log(daemon):
    plan = daemon.add("TimePlans", TimePlanName="night", Activate=0, StartMon="22:00:00", StopMon="06:00")
    line = daemon.log.wait("Activated timeplan")
    assert f"Activated timeplan: Id: {plan} Name: night Status: 1 Mon: 22:0:0 - 6:0:0 Tue: 0:0:0 - 0:0:0" in line
    assert "\n" not in line


def test_text_from_outside_is_never_a_format_and_never_a_second_line(daemon):
    daemon.add("TimePlans", TimePlanName="%s%n%x\n<0>forged", Activate=0)
    line = daemon.log.wait("Activated timeplan")
    assert "Name: %s%n%x <0>forged" in line


def test_a_text_is_cut_at_1023_characters(daemon):
    daemon.add("TimePlans", TimePlanName="n" * 3000, Activate=0)
    line = daemon.log.wait("Activated timeplan")
    assert len(line.split("]: ", 1)[1]) == 1023


def test_a_restarted_system_log_is_found_again(daemon):
    daemon.log.wait("Initial reading of config")
    daemon.log.close()
    lost = daemon.add("TimePlans", Activate=0)  # while nobody listens
    daemon.wait_value(f"TimePlans.{lost} TimePlanStatus", 1)
    daemon.log = daemon.syslog()
    heard = daemon.add("TimePlans", Activate=0)
    daemon.log.wait(f"Activated timeplan: Id: {heard} ")


def test_without_a_system_log_the_daemon_works_all_the_same(store):
    assert not os.path.exists(store.path("/dev/log"))
    status, _, _ = store.run("horad", "-d", "-v", "-t", "TimePlans")
    assert status == 0
    plan = store.add("TimePlans", Activate=0)
    store.wait_value(f"TimePlans.{plan} TimePlanStatus", 1)
