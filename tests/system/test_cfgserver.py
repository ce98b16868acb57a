"""The configuration store as a program: start, socket, database, clients, end."""

import os
import re
import signal
import struct

import pytest

from house import SOCKET, is_alive, untouched, wait_until
from wire import BEGIN, DONE, FAILED, Client, frame


def refused(house, *arguments):
    """What a cfgserver that must not start says."""
    status, _, err = house.run("cfgserver", *arguments)
    assert status == 1, err
    assert len(err.splitlines()) == 1, err
    return err


def test_it_says_that_it_serves_from_memory(house):
    server = house.start("cfgserver")
    server.err.wait("memory")
    assert "WlanTimePlans" in house.cfgctl("tables")
    assert os.listdir(house.path("/dev/shm")) == []


@pytest.mark.parametrize("arguments", [
    ["--nonsense"], ["nonsense"], ["-f", ""], ["-f"], ["-s", ""], ["--schema", ""], ["-g", ""], ["-g", "4294967295"],
    ["-g", "no such group"], ["-g", "no\nsuch"],
])
def test_wrong_use_says_what_was_wrong_in_one_line_and_ends_with_2(house, arguments):
    status, out, err = house.run("cfgserver", *arguments)
    assert (status, out) == (2, "")
    assert re.fullmatch(r"cfgserver: .{10,} \(cfgserver -h shows the usage\)\n", err), err
    assert arguments[0] in err


def test_help_and_version_end_with_0(house):
    status, out, err = house.run("cfgserver", "-h")
    assert (status, err) == (0, "") and "--schema" in out
    status, out, err = house.run("cfgserver", "--version")
    assert (status, err) == (0, "") and re.fullmatch(r"cfgserver \d+\.\d+\.\d+\n", out)


def test_a_commit_into_a_removed_database_is_refused_and_logged_once(house):
    server = house.cfgserver("-f", "/tmp/store.db")
    os.unlink(house.path("/tmp/store.db"))
    for _ in range(2):
        status, _, err = house.run("cfgctl", "set", "WlanGlobals", "WlanEnable=1")
        assert status == 1 and "removed" in err, err
    server.err.wait("removed")
    assert house.get("WlanGlobals WlanEnable") == "0"
    assert server.err.count("removed") == 1


def test_a_commit_survives_kill_9(house):
    server = house.cfgserver("-f", "/tmp/store.db")
    house.set("WlanGlobals", WlanEnable=1)
    server.stop(signal.SIGKILL)
    house.cfgserver("-f", "/tmp/store.db")  # its socket is stale and is replaced
    assert house.get("WlanGlobals WlanEnable") == "1"


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGQUIT, signal.SIGHUP])
def test_a_stop_signal_rolls_back_what_is_open_and_ends_with_0(house, number):
    server = house.cfgserver("-f", "/tmp/store.db")
    client = Client(house.path(SOCKET))
    assert client.begin()[0] == DONE
    assert server.stop(number) == 0
    assert client.closed()
    assert not os.path.exists(house.path(SOCKET))
    house.cfgserver("-f", "/tmp/store.db")
    house.set("WlanGlobals", WlanEnable=1)  # nobody holds a transaction


def test_a_second_server_at_the_same_path_is_refused_and_the_first_goes_on(store):
    assert SOCKET in refused(store)
    assert store.cfgctl("tables")


def test_a_database_in_use_is_refused(house):
    house.cfgserver("-f", "/tmp/store.db")
    assert "/tmp/store.db" in refused(house, "-s", "/tmp/other.socket", "-f", "/tmp/store.db")
    assert not os.path.exists(house.path("/tmp/other.socket"))


@pytest.mark.parametrize("what", ["file", "directory", "link"])
def test_a_path_that_is_no_socket_is_left_alone(house, what):
    path = house.path(SOCKET)
    if what == "file":
        with open(path, "w") as file:
            file.write("precious")
    elif what == "directory":
        os.mkdir(path)
    else:
        os.symlink("/tmp/elsewhere", path)
    before = untouched(path)
    assert SOCKET in refused(house)
    assert untouched(path) == before


def test_a_directory_that_is_not_there_is_named(house):
    assert "/tmp/nowhere" in refused(house, "-s", "/tmp/nowhere/socket")
    assert "/tmp/nowhere" in refused(house, "-f", "/tmp/nowhere/store.db")


def test_a_directory_that_cannot_be_written_is_named(house):
    house.run("sh", "-c", "mkdir /tmp/sealed && mount -t tmpfs -o ro tmpfs /tmp/sealed")
    assert "/tmp/sealed" in refused(house, "-s", "/tmp/sealed/socket")
    assert "/tmp/sealed" in refused(house, "-f", "/tmp/sealed/store.db")


def test_a_path_too_long_for_a_socket_is_refused(house):
    assert "107 bytes" in refused(house, "-s", "/tmp/" + "s" * 200)


def test_the_socket_is_for_its_user_only(store):
    assert os.stat(store.path(SOCKET)).st_mode & 0o777 == 0o600


def test_as_a_daemon_it_listens_when_its_parent_returns(house):
    status, _, err = house.run("cfgserver", "-d", "-f", "store.db")  # relative to where it was started
    assert status == 0, err
    assert house.cfgctl("tables")
    assert os.path.exists(house.path("/tmp/store.db"))
    with open(house.path("/run/cfgserver")) as file:
        pid = int(file.read())
    status, _, err = house.run("cfgserver", "-d", "-s", "/tmp/other.socket")
    assert status == 1 and "running already" in err
    os.kill(pid, signal.SIGTERM)
    house.wait_gone(pid)
    assert not os.path.exists(house.path("/run/cfgserver"))


def test_a_daemon_that_cannot_serve_returns_1_with_the_reason(house):
    os.mkdir(house.path(SOCKET))
    status, _, err = house.run("cfgserver", "-d")
    assert status == 1 and SOCKET in err and len(err.splitlines()) == 1
    wait_until(lambda: house.processes() == [], "the end of the child")


def test_a_schema_file_adds_tables(house):
    with open(house.path("/tmp/extra.sql"), "w") as file:
        file.write('CREATE TABLE "Heating" ("Id" INTEGER PRIMARY KEY, "Room" TEXT NOT NULL DEFAULT \'\', '
                   '"On" SWITCH NOT NULL DEFAULT 0);\n')
    house.cfgserver("--schema", "/tmp/extra.sql")
    row = house.add("Heating", Room="hall", On=1)
    assert house.get(f"Heating.{row} Room") == "hall"
    assert "WlanGlobals" in house.cfgctl("tables")


@pytest.mark.parametrize(
    "sql, reason",
    [
        ("CREATE TABLE Heating (Room FLOAT);", "FLOAT"),
        ("CREATE TABLE Heating (Room TEXT", "incomplete|near|syntax"),
        ("DROP TABLE Heating;", "no such table"),
        ("ATTACH DATABASE '/tmp/stolen' AS x;", "only plain CREATE TABLE"),
        ("CREATE TABLE Heating (Id INTEGER PRIMARY KEY, Room TEXT NOT NULL DEFAULT ('a' || 'b'));", "column Room: the default"),
    ],
)
def test_a_bad_schema_file_is_refused_by_name(house, sql, reason):
    with open(house.path("/tmp/bad.sql"), "w") as file:
        file.write(sql)
    err = refused(house, "--schema", "/tmp/bad.sql", "-f", "/tmp/store.db")
    assert "/tmp/bad.sql" in err and re.search(reason, err), err
    assert not os.path.exists(house.path("/tmp/stolen"))


def test_a_schema_file_that_is_not_there_is_named(house):
    assert "/tmp/none.sql" in refused(house, "--schema", "/tmp/none.sql")
    assert "/tmp: not a regular file" in refused(house, "--schema", "/tmp")


@pytest.mark.parametrize("content", [b"no database at all, but long enough to look like one" * 100, b"SQLite format 3\0" + b"\xff" * 4096])
def test_a_damaged_database_is_left_alone(house, content):
    with open(house.path("/tmp/store.db"), "wb") as file:
        file.write(content)
    assert "/tmp/store.db" in refused(house, "-f", "/tmp/store.db")
    with open(house.path("/tmp/store.db"), "rb") as file:
        assert file.read() == content
    assert not os.path.exists(house.path(SOCKET))


def test_a_client_of_another_user_is_refused(house):
    if os.geteuid() != 0:
        pytest.skip("only root can be another user")
    house.cfgserver("-g", "daemon")
    os.chmod(house.path(SOCKET), 0o666)  # let the file's mode not be what keeps it out
    stranger = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "/run/bin/cfgctl", "tables"]
    status, _, err = house.run(*stranger)
    assert status == 1 and ("refused" in err or "permitted" in err), err
    member = ["setpriv", "--reuid=65534", "--regid=65534", "--groups=1", "/run/bin/cfgctl", "tables"]
    assert house.run(*member)[0] == 0
    many = ["setpriv", "--reuid=65534", "--regid=65534", f"--groups={','.join(map(str, range(1, 101)))}", *member[4:]]
    assert house.run(*many)[0] == 0


@pytest.mark.parametrize(
    "raw, what",
    [
        (struct.pack(">I", 0), "length 0"),
        (struct.pack(">I", 0xFFFFFFFF), "over the limit"),
        (frame(b"\xfe\0\0\0\1"), "an unknown kind"),
        (frame(struct.pack(">BI", BEGIN, 1)), "too short"),
        (frame(struct.pack(">BI", BEGIN, 1) + b"\0" * 100), "too long"),
        (b"GET / HTTP/1.0\r\n\r\n", "no protocol at all"),
    ],
)
@pytest.mark.parametrize("greet", [True, False])
def test_a_broken_message_closes_that_connection_with_one_line(store, raw, what, greet):
    client = Client(store.path(SOCKET), greet=greet)
    before = len(store.server.err.seen)
    client.socket.sendall(raw)
    assert client.closed()
    store.server.err.wait(str(os.getpid()), before)
    assert store.server.err.count("warning") == 1, store.server.err.seen
    assert store.cfgctl("tables")


def test_a_transaction_of_a_client_that_goes_away_is_rolled_back(store):
    client = Client(store.path(SOCKET))
    assert client.begin()[0] == DONE
    assert Client(store.path(SOCKET)).begin()[0] == FAILED  # busy
    client.close()
    store.set("WlanGlobals", WlanEnable=1)


def test_a_stopped_client_does_not_stop_the_others(store):
    watch = store.watch()
    watch.send(signal.SIGSTOP)
    for value in (1, 0) * 20:
        store.set("WlanGlobals", WlanEnable=value)
    watch.send(signal.SIGCONT)
    store.set("WlanGlobals", WlanEnable=1)
    watch.out.wait("WlanEnable: 0 -> 1")
    assert is_alive(store.server.pid)


def test_a_full_disk_refuses_the_commit_and_keeps_what_was(house):
    house.run("sh", "-c", "mkdir /tmp/small && mount -t tmpfs -o size=512k tmpfs /tmp/small")
    house.cfgserver("-f", "/tmp/small/store.db")
    house.set("WlanGlobals", WlanEnable=1)
    house.run("sh", "-c", "cat /dev/zero > /tmp/small/ballast")
    failures = []
    for _ in range(300):  # until the log's own space is used up
        status, _, err = house.run("cfgctl", "add", "TimePlans", "TimePlanName=" + "x" * 4000)
        if status != 0:
            failures.append(err)
            break
    assert failures and ("full" in failures[0] or "storage" in failures[0]), failures
    assert house.get("WlanGlobals WlanEnable") == "1"
    os.unlink(house.path("/tmp/small/ballast"))
    house.set("WlanGlobals", WlanEnable=0)
    assert house.get("WlanGlobals WlanEnable") == "0"
