"""doc/porting.md names all that the daemon asks of a platform, and nothing that there is not."""

import re

from building import BUILD, ROOT, is_of_the_client, run

PAGE = (ROOT / "doc/porting.md").read_text()
SEAM = PAGE.split("## A platform of the firmware's")[1]
HEADER = re.compile(r"^\| `((?:velta|orv|cfg)/[\w/]+\.h)` \|(.*)\|$", re.MULTILINE)
ROOTS = {"velta": "platform", "orv": "platform", "cfg": "src"}


def symbols(files, kinds):
    """The names of ours of these kinds, without arguments."""
    named = set()
    for line in run("nm", "--demangle", *files).splitlines():
        found = re.match(r"[0-9a-f ]* ([A-Za-z]) (?:vtable for )?((?:velta|orv::|ORV_)[\w:~]*)", line)
        if found and found.group(1) in kinds:
            named.add(found.group(2))
    return named


def asked_of_the_platform():
    """What the daemon's own code leaves to the libraries of the platform, as the linker sees it."""
    own = [f"{folder}/libhorad_{folder}.a" for folder in ["cfg", "handlers", "probes", "timeplan"]]
    own += ["libhorad_daemon.a", "libhorad_log.a", "libhorad_options.a", "CMakeFiles/horad.dir/main.cpp.o"]
    platform = ["src/cfg/libhorad_client.a", "platform/libhorad_orv.a", "platform/libhorad_velta.a"]
    return symbols([BUILD / "src" / name for name in own], "U") & symbols([BUILD / name for name in platform], "TWBDV")


def test_each_function_of_the_seam_is_named():
    asked = asked_of_the_platform()
    assert {"ORV_Daemon_daemonize", "orv::System::real", "velta::Value::setText"} <= asked

    # A constructor and a destructor go with their class; getValue() looks through find(), which is its own affair.
    names = {name.split("::")[-1].lstrip("~") for name in asked} - {"find"}
    assert sorted(name for name in names if not re.search(rf"\b{name}\b", SEAM)) == []


def test_each_header_that_the_daemon_includes_is_in_the_tables():
    sources = [path for path in (ROOT / "src").rglob("*") if path.suffix in (".h", ".cpp") and not is_of_the_client(path)]
    included = {name for path in sources for name in re.findall(r'#include "((?:velta|orv)/[^"]+)"', path.read_text())}

    assert len(included) > 10
    assert included - {name for name, _ in HEADER.findall(SEAM)} == set()


def test_the_tables_name_nothing_that_is_not_there():
    rows = HEADER.findall(SEAM)
    assert len(rows) > 10
    for header, used in rows:
        text = (ROOT / ROOTS[header.split("/")[0]] / header).read_text()
        for name in re.findall(r"`(?:[\w:]+::)?(\w+)(?:\([\w, ]*\))?`", used):
            assert re.search(rf"\b{name}\b", text), f"{header} has no {name}"
