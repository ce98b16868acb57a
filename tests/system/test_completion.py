"""What the Tab key does in a real bash without any start-up file, beside a real store."""

import os
import pty
import re
import select
import socket
import subprocess
import time
from pathlib import Path

import pytest

from house import BIN, DEADLINE, SOCKET, Timeout

COMPLETION = Path(__file__).resolve().parents[2] / "packaging/completion"
PROGRAMS = ["cfgctl", "horactl", "horad", "cfgserver"]

# Each completion tells what it offered, and the key behind Tab shows it beside the line as it is now.
START = r"""
PS1= PS2= PATH=$BIN:$PATH
bind 'set enable-bracketed-paste off' 'set bell-style none' 'set colored-stats off'
shown() { printf '\036%s\036%s\036' "$READLINE_LINE" "${offered[*]}"; READLINE_LINE= READLINE_POINT=0 offered=(); }
bind -x '"\C-]": shown'
for name in cfgctl horactl horad cfgserver; do
    [ -r "$COMPLETION/$name" ] || continue
    . "$COMPLETION/$name"
    eval "$(declare -f _$name | sed "1s/^_$name /_inner_$name /")"
    eval "_$name() { _inner_$name \"\$@\"; offered=(\"\${COMPREPLY[@]}\"); }"
done
printf 'started\n'
"""


class Shell:
    def __init__(self, house, folder=COMPLETION, bin=BIN, first=""):
        self._terminal, slave = pty.openpty()
        self._bash = subprocess.Popen(
            [*house.enter(), "bash", "--norc", "--noprofile", "-i"], stdin=slave, stdout=slave, stderr=slave,
            start_new_session=True, env={**os.environ, "TERM": "dumb", "BIN": str(bin), "COMPLETION": str(folder)})
        os.close(slave)
        Path(house.path("/tmp/start")).write_text(START + first)
        os.write(self._terminal, b". /tmp/start\n")
        self._read_until(r"started\r?\n")

    def _read_until(self, pattern):
        text, end = "", time.monotonic() + DEADLINE
        while not (found := re.search(pattern, text, re.DOTALL)):
            if not select.select([self._terminal], [], [], max(0, end - time.monotonic()))[0]:
                raise Timeout(f"no {pattern!r} in {text!r}")
            text += os.read(self._terminal, 65536).decode(errors="replace")
        return text, found

    def tab(self, typed):
        """The line after Tab, and what was offered."""
        os.write(self._terminal, (typed + "\t\x1d").encode())
        text, found = self._read_until("\036(.*)\036(.*)\036")
        assert "bash:" not in text and "error" not in text, text
        return found[1], found[2].split()

    def offers(self, typed):
        return self.tab(typed)[1]

    def becomes(self, typed):
        return self.tab(typed)[0]

    def close(self):
        self._bash.kill()
        self._bash.wait()
        os.close(self._terminal)


@pytest.fixture
def shells():
    """Opens shells, and closes them in the end."""
    opened = []

    def open_shell(house, **how):
        opened.append(Shell(house, **how))
        return opened[-1]

    yield open_shell
    for shell in opened:
        shell.close()


@pytest.fixture
def shell(house, shells):
    return shells(house)


def help_of(house, program):
    return house.run(program, "-h")[1]


# --- what each program has ---


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_options_of_the_usage_are_offered(house, shell, program):
    used = set(re.findall(r"(?<![\w-])--?[A-Za-z][\w-]*", help_of(house, program)))
    offered = set(shell.offers(f"{program} -"))
    if program in ("cfgctl", "horactl"):
        for command in ("watch", "cluster create", "next", "week", "simulate"):
            offered |= set(shell.offers(f"{program} {command} -"))
    assert offered == used


@pytest.mark.parametrize("program", ["cfgctl", "horactl"])
def test_the_commands_of_the_usage_are_offered(house, shell, program):
    assert shell.offers(f"{program} ") == re.findall(r"^  ([a-z]+)(?= |$)", help_of(house, program), re.MULTILINE)
    assert shell.becomes(f"{program} {'sh' if program == 'cfgctl' else 'sim'}").endswith(
        "show " if program == "cfgctl" else "simulate ")


def test_the_commands_of_a_member_and_its_folder_are_offered(house, shell):
    assert shell.offers("cfgctl cluster ") == ["create", "join", "status", "leave"]
    house.run("mkdir", "-p", "/tmp/places/member")
    Path(house.path("/tmp/places/file")).write_text("")
    assert shell.becomes("cfgctl cluster status /tmp/places/") == "cfgctl cluster status /tmp/places/member/"
    assert shell.becomes("cfgctl cluster join /tmp/places/member /tmp/pl") == (
        "cfgctl cluster join /tmp/places/member /tmp/pl")


# --- what the store has ---


def test_tables_are_offered(store, shell):
    tables = [line.split()[0] for line in store.cfgctl("tables").splitlines()[1:]]
    for command in ("show", "columns", "add", "dump", "watch", "dump Reboot"):
        assert shell.offers(f"cfgctl {command} ") == tables
    assert shell.offers("cfgctl columns Reboot ") == []
    assert shell.becomes("cfgctl show Auto") == "cfgctl show AutoReboot "


def test_a_table_of_many_rows_goes_on_with_the_ids_of_its_rows(store, shell):
    for number in range(3):
        store.add("WlanTimePlans", TimePlanName=number)
    store.cfgctl("remove", "WlanTimePlans.2")
    assert shell.becomes("cfgctl get WlanT") == "cfgctl get WlanTimePlans."
    assert shell.offers("cfgctl get WlanTimePlans.") == ["WlanTimePlans.1", "WlanTimePlans.3"]
    assert shell.becomes("cfgctl remove WlanTimePlans.3") == "cfgctl remove WlanTimePlans.3 "
    assert shell.offers("cfgctl show WlanTimePlans.") == ["WlanTimePlans.1", "WlanTimePlans.3"]
    assert shell.becomes("cfgctl set WlanG") == "cfgctl set WlanGlobals "
    assert "WlanGlobals" not in shell.offers("cfgctl remove Wlan")


def test_of_many_rows_those_are_offered_that_begin_as_was_typed(store, shell):
    rows = ",".join(f'{{"Id": {number}}}' for number in range(1, 1501))
    store.cfgctl("load", "-", input=f'{{"FileTransfer": [{rows}]}}'.encode())
    assert len(shell.offers("cfgctl show FileTransfer.")) == 500
    assert shell.offers("cfgctl show FileTransfer.149") == ["FileTransfer.149"] + [
        f"FileTransfer.149{digit}" for digit in range(10)]


@pytest.mark.parametrize("breaks", ["", "COMP_WORDBREAKS=${COMP_WORDBREAKS//[=:]}\n"], ids=["broken", "whole"])
def test_columns_are_offered_that_were_not_given_yet_and_the_values_of_a_switch(store, shells, breaks):
    shell = shells(store, first=breaks)
    store.add("TimePlans", Activate=1)
    whole = len(breaks) > 0
    assert shell.becomes("cfgctl add TimePlans StartM") == "cfgctl add TimePlans StartMon="
    assert shell.offers("cfgctl add TimePlans StartMon=8:00 StartM") == []
    assert shell.offers("cfgctl set TimePlans.1 StartSun=8:00 StartS") == ["StartSat="]
    assert shell.offers("cfgctl set TimePlans.1 Activate=") == (["Activate=0", "Activate=1"] if whole else ["0", "1"])
    assert shell.becomes("cfgctl set TimePlans.1 Activate=1") == "cfgctl set TimePlans.1 Activate=1 "
    assert shell.offers("cfgctl set TimePlans.1 StartMon=") == []
    assert shell.offers("cfgctl set TimePlans.1 I") == [] and shell.offers("cfgctl add TimePlans I") == ["Id="]
    assert shell.offers("cfgctl get TimePlans.1 StopM") == ["StopMon"]
    assert shell.offers("cfgctl get AutoReboot Last") == ["LastReboot"]


@pytest.mark.parametrize("option", ["-s /tmp/a:b=c/s", "--socket /tmp/a:b=c/s", "--socket=/tmp/a:b=c/s",
                                    r"-s /tmp/a\:b=c/s", "--json -s ~/s"])
def test_the_store_that_the_line_names_is_asked(house, shells, option):
    os.mkdir(house.path("/tmp/a:b=c"))
    house.cfgserver("-s", "/tmp/a:b=c/s")
    shell = shells(house, first="HOME=/tmp/a:b=c\n")
    assert shell.offers("cfgctl show Re") == []
    assert shell.becomes(f"cfgctl {option} show Re") == f"cfgctl {option} show Reboot "


def test_the_middle_of_a_line_is_completed(store, shell):
    assert shell.becomes("cfgctl show Re Id" + "\x02" * 3) == "cfgctl show Reboot Id"


def test_horactl_explains_the_plans_and_frames_that_there_are(store, shell):
    store.add("TimePlans", Activate=1)
    store.add("TimeFrame", WindowMode=1)
    assert shell.offers("horactl why ") == ["wlan", "reboot", "WlanTimePlans.", "TimePlans.", "TimeFrame."]
    assert shell.becomes("horactl why TimeF") == "horactl why TimeFrame."
    assert shell.becomes("horactl why TimeFrame.") == "horactl why TimeFrame.1 "
    assert shell.offers("horactl -f tables.json why ") == ["wlan", "reboot"]
    assert shell.offers("horactl why wlan ") == []


def test_the_tables_of_plans_are_offered_behind_t(store, shell):
    for start in ("horad -t ", "horad -v -t A --table ", "horad --table=", "horactl -t ", "horactl --table="):
        assert shell.offers(start) == ["WlanTimePlans", "TimePlans"], start
    assert shell.becomes("horad -d -t Wlan") == "horad -d -t WlanTimePlans "
    assert shell.becomes("horad --table=Wlan") == "horad --table=WlanTimePlans "


def test_the_outcomes_of_a_service_are_offered(shell):
    assert shell.offers("horactl simulate --service ") == ["succeed", "fail", "hang"]
    assert shell.becomes("horactl simulate --service=f") == "horactl simulate --service=fail "
    assert shell.offers("horactl simulate --from ") == []


# --- files and groups ---


@pytest.mark.parametrize("start", ["cfgctl load ", "cfgctl -s ", "cfgctl --socket=", "horactl -f ", "horactl --file=",
                                   "horactl week --svg ", "horactl week --html=", "cfgserver -f ", "cfgserver --file=",
                                   "cfgserver --schema ", "cfgserver -s "])
def test_files_are_completed_whatever_their_names_hold(house, shell, start):
    os.mkdir(house.path("/tmp/folder"))
    Path(house.path("/tmp/folder/my $(file)")).touch()
    assert shell.becomes(f"{start}/tmp/fol") == f"{start}/tmp/folder/"
    assert shell.becomes(f"{start}/tmp/folder/") == start + r"/tmp/folder/my\ \$\(file\) "


def test_no_file_is_offered_where_none_belongs(house, shell):
    Path(house.path("/tmp/tables.json")).touch()
    for line in ("cfgctl ta", "cfgctl show ta", "horactl -r ta", "horad -r ta", "cfgserver ta", "cfgctl load a ta"):
        assert shell.becomes(line) == line + ("bles " if line == "cfgctl ta" else "")


@pytest.mark.parametrize("start", ["cfgserver -g ", "cfgserver --group ", "cfgserver --group="])
def test_groups_are_offered(shell, start):
    assert "shadow" in shell.offers(start)
    assert shell.becomes(f"{start}shad") == f"{start}shadow "


# --- what goes wrong ---


def test_without_a_store_nothing_is_offered_and_nothing_said(shell):
    for line in ("cfgctl show ", "cfgctl set A.", "cfgctl add A B", "horad -t ", "cfgctl -s /tmp show A"):
        assert shell.tab(line) == (line, [])
    assert shell.offers("horactl why ") == ["wlan", "reboot"]


def test_a_store_that_never_answers_does_not_hold_the_shell_up(house, shell):
    with socket.socket(socket.AF_UNIX) as listening:
        listening.bind(house.path(SOCKET))
        listening.listen()
        begin = time.monotonic()
        assert shell.offers("horactl why ") == ["wlan", "reboot"]
        assert time.monotonic() - begin < 10 # a client would wait half a minute


HOSTILE = """#!/bin/sh
cat <<'END'
    "table": "Good",
    "singleRow": false,
    "table": "$(touch /tmp/evil)",
    "singleRow": true,
    "table": "`touch /tmp/evil`",
    "singleRow": false,
    "table": "a[$(touch /tmp/evil)]",
    "singleRow": false,
    "table": "* ~ -n",
    "singleRow": false,
    "column": "Fine",
    "type": "SWITCH",
    "column": "$(touch /tmp/evil)",
    "type": "SWITCH",
    "Id": 7,
    "Id": $(touch /tmp/evil),
    "Id": a[$(touch /tmp/evil)]
END
"""


def test_what_comes_from_a_store_is_never_evaluated(house, shells):
    os.mkdir(house.path("/tmp/bin"))
    Path(house.path("/tmp/bin/cfgctl")).write_text(HOSTILE)
    os.chmod(house.path("/tmp/bin/cfgctl"), 0o755)
    shell = shells(house, bin="/tmp/bin")
    assert shell.offers("cfgctl show ") == ["Good"]
    assert shell.offers("cfgctl get ") == ["Good."]
    assert shell.offers("cfgctl get Good.") == ["Good.7"]
    assert shell.offers("cfgctl add Good ") == ["Fine="]
    assert shell.offers("cfgctl get Good.7 ") == ["Fine"]
    assert not os.path.exists(house.path("/tmp/evil"))


@pytest.mark.parametrize("words", ["$(touch /tmp/evil)", "`touch /tmp/evil`", "a[$(touch /tmp/evil)]", "'", '"', "*"])
def test_what_was_typed_is_never_evaluated(store, shell, words):
    for start in ("cfgctl -s {} show ", "cfgctl show {}", "cfgctl set TimePlans.{}", "cfgctl set {} ", "horad -t {}",
                  "cfgctl add TimePlans {}", "horactl -t {} why Ti", "horactl why {}", "cfgserver -g {}", "cfgserver {}"):
        shell.tab(start.format(words))
    assert not os.path.exists(store.path("/tmp/evil"))


def test_a_text_that_looks_like_an_id_is_none(store, shell):
    store.add("TimePlans", TimePlanName='\n    "Id": 77,\n')
    assert shell.offers("cfgctl get TimePlans.") == ["TimePlans.1"]


def test_horad_needs_no_cfgctl_beside_it(store, shells):
    os.mkdir(store.path("/tmp/alone"))
    Path(store.path("/tmp/alone/horad")).write_text((COMPLETION / "horad").read_text())
    shell = shells(store, folder="/tmp/alone")
    assert shell.tab("horad -t W") == ("horad -t W", [])
    assert shell.becomes("horad --verb") == "horad --verbose "
