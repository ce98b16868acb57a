"""The manual pages say what the programs do: each page is held against what the program itself says, and against the
sources of what it lists. What one of them has alone makes a test fail."""

import re
import shlex
import subprocess
from pathlib import Path

import pytest

TREE = Path(__file__).resolve().parents[2]
PAGES = TREE / "doc/man"
PROGRAMS = {"horad": 8, "cfgserver": 8, "cfgctl": 1, "horactl": 1}
NAMES = [f"{program}.{section}" for program, section in PROGRAMS.items()] + ["horad.schema.5", "cfgserver.protocol.7"]

# Macros that end the arguments of the one before.
MACROS = {"Ar", "Cm", "Dv", "Em", "Er", "Ev", "Fl", "Ic", "Li", "Nm", "No", "Ns", "Oc", "Oo", "Op", "Pa", "Pq", "Ql",
          "Ta", "Va", "Vt", "Xo", "Xr"}
PUNCTUATION = {",", ".", ":", ";", "|", "(", ")"}

OPTION = re.compile(r"(?<![\w-])--?[A-Za-z][\w-]*")
COMMAND = re.compile(r"^  ([a-z]+)(?= |$)", re.MULTILINE)


def page(program):
    return (PAGES / f"{program}.{PROGRAMS[program]}").read_text()


def macro_lines(text):
    """The words of each line that begins with a macro."""
    for line in text.splitlines():
        if line.startswith(".") and not line.startswith('.\\"'):
            lexer = shlex.shlex(line[1:], posix=True)
            lexer.whitespace_split, lexer.quotes, lexer.escape, lexer.commenters = True, '"', "", ""
            yield list(lexer)


def arguments_of(macro, lines):
    """What the lines mark with that macro."""
    found = []
    for words in lines:
        current = None
        for word in words:
            if word in MACROS:
                current = word
            elif word not in PUNCTUATION and current == macro:
                found.append(word)
    return found


def options_in(lines):
    """A group of letters, as in the synopsis, stands for an option each."""
    options = set()
    for word in arguments_of("Fl", lines):
        options |= {"-" + word} if word.startswith("-") else {"-" + letter for letter in word}
    return options


def entries_of(text):
    """The heads of its lists' entries, with the lines up to .Xc where one is longer."""
    extended = False
    for words in macro_lines(text):
        extended = "Xo" in words or (extended and words[0] != "Xc")
        if words[0] == "It" or extended:
            yield words


def section(text, title):
    found = re.search(rf"^\.S[hs] {re.escape(title)}\n(.*?)(?=^\.S[hs] |\Z)", text, re.MULTILINE | re.DOTALL)
    assert found, f"there is no section {title}"
    return found[1]


def help_of(house, program):
    status, out, _ = house.run(program, "-h")
    assert status == 0
    return out


def rendered(name):
    shown = subprocess.run(["mandoc", "-Tutf8", PAGES / name], capture_output=True, check=True).stdout.decode()
    return re.sub(r".\x08", "", shown)


# --- all pages ---


def test_there_is_a_page_for_each_program_and_format():
    assert sorted(path.name for path in PAGES.iterdir()) == sorted(NAMES)


@pytest.mark.parametrize("name", NAMES)
def test_a_page_is_well_formed(name):
    lint = subprocess.run(["mandoc", "-Tlint", "-W", "warning", PAGES / name], capture_output=True, check=False)
    assert (lint.returncode, lint.stdout + lint.stderr) == (0, b"")


@pytest.mark.parametrize("name", NAMES)
def test_a_page_has_the_name_of_its_file_and_names_only_pages_that_there_are(name):
    text = (PAGES / name).read_text()
    title, number = name.rsplit(".", 1)
    assert f".Dt {title.upper()} {number}\n" in text and section(text, "NAME").startswith(f".Nm {title}\n")
    referred = set(re.findall(r"^\.Xr (\S+) (\d)", text, re.MULTILINE))
    assert referred <= {tuple(other.rsplit(".", 1)) for other in NAMES} | {("systemd", "1")}


@pytest.mark.parametrize("name", NAMES)
def test_an_example_fits_a_terminal(name):
    assert [line for line in rendered(name).splitlines() if len(line) > 80 and "$ " in line] == []


# --- the programs ---


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_page_has_the_options_of_the_usage_and_no_others(house, program):
    used = set(OPTION.findall(help_of(house, program)))
    assert len(used) >= 5
    assert options_in(macro_lines(page(program))) == used


@pytest.mark.parametrize("program", PROGRAMS)
def test_each_option_has_an_entry_of_its_own(house, program):
    assert options_in(entries_of(page(program))) == set(OPTION.findall(help_of(house, program)))


@pytest.mark.parametrize("program", ["cfgctl", "horactl"])
def test_the_page_has_the_commands_of_the_usage_and_no_others(house, program):
    commands = COMMAND.findall(help_of(house, program))
    assert len(commands) >= 7
    assert arguments_of("Ic", entries_of(page(program))) == commands
    assert set(arguments_of("Ic", macro_lines(page(program)))) == set(commands)


def statuses_of_horad(house):
    return {house.run("horad", *arguments)[0] for arguments in (["-h"], ["-x"], [])}


def statuses_of_cfgserver(house):
    return {house.run("cfgserver", *arguments)[0] for arguments in (["-h"], ["-s", "/tmp/missing/socket"], ["-x"])}


def statuses_of_cfgctl(house):
    return {house.run("cfgctl", *arguments)[0] for arguments in (["-h"], ["tables"], ["-x"])}


HOUSEHOLD = b"""{"TimePlans": [{"Id": 1, "StartMon": "25:00", "StopMon": "8:00"}]}"""


def statuses_of_horactl(house):
    found, _, _ = house.run("horactl", "-f", "-", "check", input=HOUSEHOLD)
    return {found} | {house.run("horactl", *arguments)[0] for arguments in (["-h"], ["now"], ["-x"])}


STATUSES = {"horad": statuses_of_horad, "cfgserver": statuses_of_cfgserver, "cfgctl": statuses_of_cfgctl,
            "horactl": statuses_of_horactl}


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_page_has_each_exit_status_of_the_program_and_no_other(house, program):
    told = [int(words[1]) for words in entries_of(section(page(program), "EXIT STATUS"))]
    assert told == sorted(STATUSES[program](house))


@pytest.mark.parametrize("program", PROGRAMS)
def test_the_page_names_the_files_that_the_program_has_built_in(program):
    """The paths in the program's own sources."""
    sources = {"horad": ["src/main.cpp", "src/probes/systemidle.cpp", "src/probes/multicaststreams.cpp"],
               "cfgserver": ["store/main.cpp", "store/options.h"],
               "cfgctl": ["tools/cfgctl/commands.h"],
               "horactl": ["tools/horactl/main.cpp", "tools/horactl/setting.cpp"]}[program]
    paths = set()
    for source in sources:
        paths |= set(re.findall(r'"[: ]?(/[\w/.]+)"', (TREE / source).read_text()))
    paths = {f"/var/run/{program}" if path == "/var/run" else path for path in paths}
    assert paths and paths <= set(arguments_of("Pa", entries_of(section(page(program), "FILES"))))


# --- the tables ---


def shown_default(declaration):
    """What the page says of a column behind its type."""
    declaration, shared = re.subn(r"\s+SHARED$", "", declaration)
    return shown_value(declaration) + (", shared" if shared else "")


def shown_value(declaration):
    default = re.search(r"DEFAULT (\S+)$", declaration)
    if default is None:
        return "given by the store"
    return "default " + (default[1].strip("'") or "empty")


def tables_of_the_schema():
    """For each table its columns, with type and default as the page shows them."""
    tables = {}
    for file in (TREE / "store/storage/schema").glob("*.sql"):
        text = re.sub(r"--.*", "", file.read_text())
        for name, body in re.findall(r"CREATE TABLE (\w+) \((.*?)\);", text, re.DOTALL):
            columns = tables[name] = {}
            for declaration in re.split(r",(?![^(]*\))", body):
                column, kind = re.match(r"\s*(\w+)\s+(\w+(?:\([^)]*\))?)", declaration).groups()
                columns[column] = (kind, shown_default(declaration.strip()))
    return tables


def tables_of_the_page():
    tables = {}
    text = (PAGES / "horad.schema.5").read_text()
    for name in re.findall(r"^\.Ss (\w+)$", text, re.MULTILINE):
        columns = tables[name] = {}
        for names, kind, default in re.findall(r"^\.It Va (.+) Pq Vt (.+) , No (.+)$", section(text, name), re.MULTILINE):
            columns.update((column, (kind, default)) for column in names.split(" , "))
    return tables


def test_the_page_has_each_table_and_column_with_its_type_and_default_and_no_other():
    tables = tables_of_the_schema()
    assert len(tables) >= 9 and sum(map(len, tables.values())) >= 60
    assert tables_of_the_page() == tables


def test_the_tables_of_the_page_are_those_that_a_store_has(store):
    told = {line.split()[0] for line in store.cfgctl("tables").splitlines()[1:]}
    assert set(tables_of_the_page()) == told


# --- the protocol ---


def of_enumeration(name):
    text = (TREE / "platform/velta/protocol/message.h").read_text()
    body = re.search(rf"enum class {name} [^{{]*{{(.*?)}};", text, re.DOTALL)[1]
    return {int(number): kind for kind, number in re.findall(r"^\s*(\w+) = (\d+),", body, re.MULTILINE)}


def of_page(macro, title):
    text = section((PAGES / "cfgserver.protocol.7").read_text(), title)
    return {int(number): name for number, name in re.findall(rf"^\.It (\d+) Ta {macro} (\w+) Ta ", text, re.MULTILINE)}


def test_the_page_has_each_request_and_reply_with_its_number():
    assert of_page("Ic", "Requests") == of_enumeration("RequestKind") != {}
    assert of_page("Ic", "Replies") == of_enumeration("ReplyKind") != {}


def test_the_page_has_each_result_code_with_its_number():
    text = (TREE / "platform/velta/protocol/resultcode.h").read_text()
    codes = {int(number): name for name, number in re.findall(r"inline constexpr int (\w+) = (\d+);", text)}
    assert len(codes) >= 27 and of_page("Er", "Result codes") == codes


def test_the_page_has_the_greeting_of_this_version():
    header = (TREE / "platform/velta/protocol/message.h").read_text()
    text = (PAGES / "cfgserver.protocol.7").read_text()
    assert re.search(r"magic = (\w+);", header)[1] in section(text, "Requests")
    version = re.search(r" version = (\d+);", header)[1]
    assert f"Hello with version {version};" in section(text, "Greeting and versions")
