"""Done means kept, and refused means gone: what the database's files hold after a kill, whatever happened to them."""

import os
import re
import signal
import subprocess

import pytest

from disk import FailingSyncs
from house import wait_until

DATABASE = "/tmp/store.db"
LOG = DATABASE + "-wal"
INDEX = DATABASE + "-shm"


def remove(house, path):
    os.unlink(house.path(path))


def replace(house, path):
    with open(house.path(path + ".new"), "wb") as file:
        file.write(b"no such file")
    os.rename(house.path(path + ".new"), house.path(path))


def replace_by_an_older_one(house, path):
    with open(house.path(path), "rb") as file:
        older = file.read()
    house.set("WlanGlobals", AlwaysEnable=1)
    with open(house.path(path + ".new"), "wb") as file:
        file.write(older)
    os.chmod(house.path(path + ".new"), 0o600)
    os.rename(house.path(path + ".new"), house.path(path))


@pytest.mark.parametrize("path", [LOG, INDEX])
@pytest.mark.parametrize("accident", [remove, replace, replace_by_an_older_one])
def test_what_was_answered_as_done_is_there_after_a_kill_though_the_log_was_taken_away(house, path, accident):
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    accident(house, path)
    ids = [house.add("TimePlans", TimePlanName=f"plan {i}") for i in range(40)]
    assert server.err.count("error cfgserver: the log of the database was removed, replaced or cut by another hand") == 1
    server.stop(signal.SIGKILL)

    house.cfgserver("-f", DATABASE)
    assert house.get("WlanGlobals WlanEnable") == "1"
    assert [house.get(f"TimePlans.{i} TimePlanName") for i in ids] == [f"plan {i}" for i in range(40)]


def test_a_log_that_is_removed_between_commits_is_noticed_at_once(house):
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    remove(house, LOG)
    server.err.wait("info cfgserver: the database was opened anew: /tmp/store.db")
    server.stop(signal.SIGKILL)

    house.cfgserver("-f", DATABASE)
    assert house.get("WlanGlobals WlanEnable") == "1"


def refused(house, *arguments):
    status, _, err = house.run("cfgctl", *arguments)
    assert status != 0
    return err


def test_a_commit_whose_sync_failed_is_refused_and_not_there_after_a_kill(house):
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    disk = FailingSyncs(house, server, ":when=1")
    assert "storage failed: disk I/O error" in refused(house, "set", "WlanGlobals", "WlanEnable=0", "AlwaysEnable=1")
    assert house.get("WlanGlobals AlwaysEnable") == "0"
    disk.end()
    server.stop(signal.SIGKILL)

    server = house.cfgserver("-f", DATABASE)
    assert house.get("WlanGlobals WlanEnable") == "1" and house.get("WlanGlobals AlwaysEnable") == "0"


def test_where_no_sync_gets_through_the_outcome_is_unknown_and_commits_are_refused_until_one_does(house):
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    disk = FailingSyncs(house, server)
    assert "outcome unknown" in refused(house, "set", "WlanGlobals", "AlwaysEnable=1")
    assert "storage failed: commits are refused until the database could be opened anew" in refused(
        house, "set", "WlanGlobals", "WlanEnable=0")
    disk.end()

    wait_until(lambda: house.run("cfgctl", "set", "WlanGlobals", "WlanEnable=0")[0] == 0, "a commit")
    known = house.get("WlanGlobals AlwaysEnable")
    server.stop(signal.SIGKILL)
    house.cfgserver("-f", DATABASE)
    assert house.get("WlanGlobals WlanEnable") == "0" and house.get("WlanGlobals AlwaysEnable") == known


def test_a_log_that_is_damaged_in_the_middle_is_an_error_line_with_what_was_lost(house):
    server = house.cfgserver("-f", DATABASE)
    for i in range(10):
        house.set("WlanGlobals", WlanEnable=i % 2)
    server.stop(signal.SIGKILL)
    with open(house.path(LOG), "r+b") as log:
        log.seek(32 + 3 * (24 + 2048) + 500)
        byte = log.read(1)[0]
        log.seek(-1, os.SEEK_CUR)
        log.write(bytes([byte ^ 1]))

    server = house.cfgserver("-f", DATABASE)
    line = server.err.seen[server.err.wait("the log is damaged at byte")]
    assert re.search(r"error cfgserver: database /tmp/store.db: the log is damaged at byte \d+: [5-7] commits or more", line)
    server.stop(signal.SIGKILL)
    server = house.cfgserver("-f", DATABASE)
    assert server.err.count("damaged") == 0


def test_a_killed_store_starts_without_a_word_of_damage(house):
    for i in range(5):
        server = house.cfgserver("-f", DATABASE)
        for k in range(10):
            house.set("WlanGlobals", WlanEnable=k % 2)
        server.stop(signal.SIGKILL)
        assert server.err.count("error|damaged") == 0


def sql(house, script):
    status, out, err = house.run("sqlite3", DATABASE, script)
    assert status == 0, err
    return out


def test_a_damaged_schema_text_is_a_clear_line_and_the_file_stays_as_it_is(house):
    assert house.cfgserver("-f", DATABASE).stop() == 0
    subprocess.run(["sed", "-i", "s/DEFAULT/DEFAQLT/", house.path(DATABASE)], check=True)
    with open(house.path(DATABASE), "rb") as file:
        before = file.read()
    status, _, err = house.run("cfgserver", "-f", DATABASE)
    assert status == 1 and "database /tmp/store.db: malformed database schema" in err
    with open(house.path(DATABASE), "rb") as file:
        assert file.read() == before


def test_a_schema_text_that_is_damaged_while_it_serves_costs_requests_only(house):
    server = house.cfgserver("-f", DATABASE)
    sql(house, "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = replace(sql, 'DEFAULT', 'DEFAQLT');"
               "PRAGMA schema_version = 4711")
    for command in (["show", "TimePlans"], ["add", "TimePlans", "Activate=1"], ["set", "WlanGlobals", "WlanEnable=1"], ["dump"]):
        assert "malformed database schema" in refused(house, *command)
    assert server.stop() == 0


def test_a_table_that_another_program_drops_costs_its_own_requests_only(house):
    server = house.cfgserver("-f", DATABASE)
    sql(house, "DROP TABLE TimePlans")
    for command in (["show", "TimePlans"], ["add", "TimePlans", "Activate=1"], ["get", "TimePlans.1", "TimePlanName"]):
        assert "storage failed: no such table: TimePlans" in refused(house, *command)
    house.set("WlanGlobals", WlanEnable=1)
    assert house.get("WlanGlobals WlanEnable") == "1"
    assert server.stop() == 0


@pytest.mark.parametrize("suffix", ["", "-wal", "-shm"])
def test_a_file_that_another_user_laid_there_is_refused_with_its_owner(house, suffix):
    assert house.cfgserver("-f", DATABASE).stop() == 0
    with open(house.path(DATABASE + suffix), "ab"):
        pass
    os.chmod(house.path(DATABASE + suffix), 0o600)
    os.chown(house.path(DATABASE + suffix), 1, 1)
    status, _, err = house.run("cfgserver", "-f", DATABASE)
    assert status == 1 and f"{DATABASE}{suffix} belongs to user daemon (1)" in err
    os.chown(house.path(DATABASE + suffix), 0, 0)
    os.chmod(house.path(DATABASE + suffix), 0o666)
    status, _, err = house.run("cfgserver", "-f", DATABASE)
    assert status == 1 and f"{DATABASE}{suffix} of user root (0) can be written by others, its mode is 0666" in err
    os.chmod(house.path(DATABASE + suffix), 0o600)
    house.cfgserver("-f", DATABASE)


def test_a_link_in_a_folder_that_others_may_write_to_is_refused(house):
    assert house.cfgserver("-f", DATABASE).stop() == 0
    os.symlink("store.db", house.path("/tmp/link.db"))
    status, _, err = house.run("cfgserver", "-f", "/tmp/link.db")
    assert status == 1
    assert "database /tmp/link.db is a symbolic link of user root (0) in a folder that others may write to" in err


def test_what_is_no_time_of_day_is_refused_by_row_and_column(house):
    house.cfgserver()
    plan = house.add("WlanTimePlans", StartWed="8:30", StopWed="24:00")
    err = refused(house, "set", f"WlanTimePlans.{plan}", "StartWed=2230")
    assert f'WlanTimePlans.{plan} StartWed: "2230" is not a time of day, HH:MM or HH:MM:SS' in err
    update = house.add("FirmwareUpdateTimePlan", WeekDay=7)
    err = refused(house, "set", f"FirmwareUpdateTimePlan.{update}", "WeekDay=9")
    assert f"FirmwareUpdateTimePlan.{update} WeekDay: 9 is not an integer from 0 to 7" in err
    assert house.get(f"WlanTimePlans.{plan} StartWed") == "8:30"


def test_an_old_dump_with_odd_times_is_loaded_over_itself(house):
    server = house.cfgserver("-f", DATABASE)
    plan = house.add("WlanTimePlans", StartWed="8:30")
    assert server.stop() == 0
    sql(house, "UPDATE WlanTimePlans SET StartWed = '2230'")
    house.cfgserver("-f", DATABASE)
    dump = house.cfgctl("dump")
    house.cfgctl("load", "-", input=dump.encode())
    assert house.get(f"WlanTimePlans.{plan} StartWed") == "2230"
