"""The database's disk and file go bad: before the start, and while the store serves."""

import json
import os
import signal
import struct

import pytest

from refusals import refused

DATABASE = "/tmp/store.db"
PAGE = 4096


def content(house, path=DATABASE):
    with open(house.path(path), "rb") as file:
        return file.read()


def overwrite(house, offset, raw):
    """Writes into the file under the server's hands."""
    with open(house.path(DATABASE), "r+b") as file:
        file.seek(offset)
        file.write(raw)


def stopped_database(house, *arguments):
    """A database that a server has left in order."""
    assert house.cfgserver("-f", DATABASE, *arguments).stop() == 0
    return content(house)


def test_a_database_on_a_read_only_disk_is_refused_by_name(house):
    stopped_database(house)
    seal = ("mkdir /tmp/sealed && mount -t tmpfs tmpfs /tmp/sealed && mv /tmp/store.db /tmp/sealed && "
            "mount -o remount,bind,ro /tmp/sealed")
    assert house.run("sh", "-c", seal)[0] == 0
    before = content(house, "/tmp/sealed/store.db")
    err = refused(house, "cfgserver", "-f", "/tmp/sealed/store.db")
    assert "/tmp/sealed/store.db" in err and "Read-only file system" in err
    assert content(house, "/tmp/sealed/store.db") == before and os.listdir(house.path("/tmp/sealed")) == ["store.db"]


def test_a_disk_that_becomes_read_only_refuses_commits_until_it_can_be_written_again(house):
    """A file system with open files can't be made read-only from outside, so each write fails as it would there."""
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    writes = "pwrite64,ftruncate,fsync,fdatasync"
    disk = house.start("strace", "-f", "-o", "/dev/null", "-p", server.pid, "-e", f"trace={writes}",
                       "-e", f"inject={writes}:error=EROFS")
    disk.err.wait("attached")
    for _ in range(2):
        assert "storage failed: disk I/O error" in refused(house, "cfgctl", "set", "WlanGlobals", "WlanEnable=0")
        assert house.get("WlanGlobals WlanEnable") == "1"
    assert server.err.count("error cfgserver: .*disk I/O error") == 1
    disk.stop(signal.SIGINT)

    house.set("WlanGlobals", WlanEnable=0)
    server.stop(signal.SIGKILL)
    house.cfgserver("-f", DATABASE)
    assert house.get("WlanGlobals WlanEnable") == "0"


@pytest.fixture
def large(house):
    """A store whose database is larger than what it keeps in memory."""
    server = house.cfgserver("-f", DATABASE)
    plans = [{"TimePlanName": "x" * 4000}] * 1500
    house.cfgctl("load", "-", input=json.dumps({"TimePlans": plans}).encode())
    assert server.stop() == 0
    house.server = house.cfgserver("-f", DATABASE)
    return house


def test_pages_damaged_while_it_serves_cost_their_table_only(large):
    size = len(content(large))
    overwrite(large, size // 2 // PAGE * PAGE, os.urandom(100 * PAGE))
    for _ in range(2):
        assert "database disk image is malformed" in refused(large, "cfgctl", "show", "TimePlans")
    assert large.server.err.count("error cfgserver: .*malformed") == 1
    for value in ("1", "0"):
        large.set("WlanGlobals", WlanEnable=value)
        assert large.get("WlanGlobals WlanEnable") == value

    assert large.server.stop() == 0
    before = content(large)
    err = refused(large, "cfgserver", "-f", DATABASE)
    assert DATABASE in err and "is damaged" in err
    assert content(large) == before


def test_a_database_damaged_all_over_while_it_serves_does_not_end_the_server(large):
    overwrite(large, 0, os.urandom(len(content(large))))
    commands = (["show", "TimePlans"], ["add", "TimePlans", "TimePlanName=new"], ["set", "WlanGlobals", "WlanEnable=1"],
                ["show", "FileTransfer"], ["tables"], ["dump"])
    for command in commands:
        status, _, err = large.run("cfgctl", *command)
        assert status == 0 or "storage failed" in err, (command, err)
    assert "storage failed" in refused(large, "cfgctl", "show", "TimePlans")
    assert large.server.stop() == 0


def test_a_database_of_a_newer_format_is_refused_and_left_alone(house):
    stopped_database(house)
    overwrite(house, 60, struct.pack(">I", 2))  # the user version in the header of an SQLite file
    before = content(house)
    err = refused(house, "cfgserver", "-f", DATABASE)
    assert DATABASE in err and "has format 2, this server knows format 1" in err
    assert content(house) == before


def test_a_database_of_a_newer_schema_is_refused_by_the_column_and_left_alone(house):
    for name, more in (("new", ', "Warm" SWITCH NOT NULL DEFAULT 0'), ("old", "")):
        with open(house.path(f"/tmp/{name}.sql"), "w") as file:
            file.write(f'CREATE TABLE "Heating" ("Id" INTEGER PRIMARY KEY, "Room" TEXT NOT NULL DEFAULT \'\'{more});')
    before = stopped_database(house, "--schema", "/tmp/new.sql")
    err = refused(house, "cfgserver", "-f", DATABASE, "--schema", "/tmp/old.sql")
    assert DATABASE in err and "has the column Heating.Warm, which the schema lacks" in err
    assert content(house) == before
    house.cfgserver("-f", DATABASE, "--schema", "/tmp/new.sql")
    assert "Heating" in house.cfgctl("tables")
