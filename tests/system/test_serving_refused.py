"""What the system refuses while the store serves, and what another hand does to its files, costs the least that it can."""

import fcntl
import os
import signal

import pytest

from disk import FailingCalls
from house import SOCKET, wait_until
from wire import COUNTER, DONE, HELLO, INTEGER, SWITCH, WRITE_SINGLE, Client, Fields, hello, result_code, single

DATABASE = "/tmp/store.db"
LOG = DATABASE + "-wal"


def replace_log(house):
    with open(house.path(LOG + ".new"), "wb") as file:
        file.write(b"no log")
    os.rename(house.path(LOG + ".new"), house.path(LOG))


def sql(house, script):
    status, _, err = house.run("sqlite3", DATABASE, script)
    assert status == 0, err


@pytest.mark.parametrize("call, error, said", [
    ("inotify_init1", "EMFILE", "Too many open files"),
    ("inotify_add_watch", "ENOSPC", "No space left on device"),
])
def test_where_files_cannot_be_watched_it_says_so_and_serves(house, call, error, said):
    server = house.start("strace", "-f", "-o", "/dev/null", "-e", f"trace={call}", "-e", f"inject={call}:error={error}",
                         "/run/bin/cfgserver", "-f", DATABASE, env={"ASAN_OPTIONS": "detect_leaks=0"})
    server.err.wait("cfgserver: serves")
    assert server.err.count(f"warning cfgserver: nobody will be told at once if {DATABASE} is removed: {said}") == 1
    assert server.err.count(f"warning cfgserver: nobody will be told if the socket {SOCKET} is removed: {said}") == 1
    house.set("WlanGlobals", WlanEnable=1)
    os.unlink(house.path(DATABASE))  # is noticed by the next commit
    status, _, err = house.run("cfgctl", "set", "WlanGlobals", "WlanEnable=0")
    assert status == 1 and "the database file was removed" in err


@pytest.mark.parametrize("call, error, said", [
    ("getsockopt", "ENOTCONN", None),  # it is not known who it is: it is closed
    ("epoll_ctl", "ENOSPC", "error cfgserver: a client can't be served: .*No space left on device"),
    ("accept4", "EMFILE", "error cfgserver: no further client can be taken for a moment: Too many open files"),
    ("accept4", "ECONNABORTED", None),
])
def test_a_client_that_cannot_be_taken_costs_nobody_else_anything(store, call, error, said):
    there = Client(store.path(SOCKET))
    failing = FailingCalls(store, store.server, call, ":when=1", error=error)
    first = Client(store.path(SOCKET), greet=False)
    if said:
        store.server.err.wait(said)
    if call == "accept4":  # it stayed in line
        assert first.ask(HELLO, hello("patient"))[0] == DONE
    else:
        assert first.closed()
    assert len(there.read("wexd")) == len(Client(store.path(SOCKET)).read("wexd")) == 1
    failing.end()


def test_what_lay_in_the_place_of_the_log_stays_each_time(house):
    server = house.cfgserver("-f", DATABASE)
    for number in (1, 2):
        replace_log(house)
        wait_until(lambda: server.err.count("the database was opened anew") == number, "a database that is sound")
    assert server.err.count(f"error cfgserver: what lay in the place of the log is now {LOG}.aside$") == 1
    assert server.err.count(f"error cfgserver: what lay in the place of the log is now {LOG}.aside1$") == 1
    for aside in (".aside", ".aside1"):
        with open(house.path(LOG + aside), "rb") as file:
            assert file.read() == b"no log"


def test_a_foreign_log_that_cannot_be_moved_away_refuses_commits_until_it_can(house):
    server = house.cfgserver("-f", DATABASE)
    house.set("WlanGlobals", WlanEnable=1)
    disk = FailingCalls(house, server, "?rename,renameat,?renameat2", error="EACCES")
    replace_log(house)
    server.err.wait(f"error cfgserver: database {DATABASE}: {LOG} can't be moved away: Permission denied")
    status, _, err = house.run("cfgctl", "set", "WlanGlobals", "WlanEnable=0")
    assert status == 1 and "commits are refused until the database could be opened anew" in err
    disk.end()
    server.err.wait("info cfgserver: the database was opened anew")
    assert house.get("WlanGlobals WlanEnable") == "1"
    house.set("WlanGlobals", AlwaysEnable=1)
    server.stop(signal.SIGKILL)
    house.cfgserver("-f", DATABASE)
    assert (house.get("WlanGlobals WlanEnable"), house.get("WlanGlobals AlwaysEnable")) == ("1", "1")


def test_a_single_row_that_another_program_deleted_is_no_such_row(house):
    server = house.cfgserver("-f", DATABASE)
    sql(house, "DELETE FROM WlanGlobals")
    for command in (["set", "WlanGlobals", "WlanEnable=1"], ["get", "WlanGlobals", "WlanEnable"]):
        status, _, err = house.run("cfgctl", *command)
        assert status == 1 and "no such row" in err, err
    house.set("wexd", Enable=1)
    assert server.stop() == 0
    house.cfgserver("-f", DATABASE)  # it has its row again
    assert house.get("WlanGlobals WlanEnable") == "0" and house.get("wexd Enable") == "1"


@pytest.mark.parametrize("table, column, kind, takes", [
    ("wexd", "Enable", SWITCH, "wexd.Enable takes an integer, -2147483648 to 2147483647"),
    ("WlanGlobals", "WlanEnable", INTEGER, "WlanGlobals.WlanEnable takes a switch, 0 or 1"),
    ("Reboot", "Trigger", COUNTER, "Reboot.Trigger takes an integer, -2147483648 to 2147483647"),
])
def test_a_value_of_another_type_is_refused_with_the_one_that_the_column_takes(store, table, column, kind, takes):
    client = Client(store.path(SOCKET))
    assert client.begin()[0] == DONE
    answer = client.ask(WRITE_SINGLE, single(table, column, 1, kind))
    fields = Fields(answer[1])
    assert result_code(answer) == fields.number() != 0 and fields.text() == takes


def test_a_path_that_is_a_pipe_is_no_database(house):
    os.mkfifo(house.path(DATABASE), 0o600)
    status, _, err = house.run("cfgserver", "-f", DATABASE)
    assert (status, err) == (1, f"cfgserver: database {DATABASE} is not a regular file\n")


def test_who_holds_the_lock_of_the_sockets_folder_does_not_keep_the_store_from_serving(house):
    folder = os.open(house.path("/tmp"), os.O_RDONLY | os.O_DIRECTORY)
    fcntl.flock(folder, fcntl.LOCK_EX)
    house.cfgserver()
    assert house.get("WlanGlobals WlanEnable") == "0"
    os.close(folder)


def test_a_stale_socket_that_cannot_be_removed_is_named_with_its_owner(house):
    house.cfgserver().stop(signal.SIGKILL)
    os.chown(house.path(SOCKET), 1, 1)
    call = "?unlink,unlinkat"
    status, _, err = house.run("strace", "-f", "-o", "/dev/null", "-e", f"trace={call}", "-e", f"inject={call}:error=EPERM",
                               "-P", SOCKET, "/run/bin/cfgserver", env={"ASAN_OPTIONS": "detect_leaks=0"})
    assert status == 1
    assert f"socket {SOCKET}: a stale socket of user daemon (1) can't be removed: Operation not permitted" in err
