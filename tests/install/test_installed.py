"""What `cmake --install` leaves, and that somebody else's CMake project can use it."""

import os
import re

import pytest

from building import BUILD, HERE, ROOT, WARNINGS, build, configure, files_in, install, run

PROGRAMS = {"daemon": {"sbin/horad", "lib/horad/wait-for-clock"}, "store": {"sbin/cfgserver", "lib/horad-cluster/run-member"},
            "tools": {"bin/cfgctl", "bin/horactl"}}
LIBRARIES = {"cfg", "client", "daemon", "handlers", "log", "orv", "probes", "timeplan", "velta"}
COMPONENT_OF = {"horad": "daemon", "cfgserver": "store", "horad-cluster": "store", "cfgctl": "tools", "horactl": "tools"}


def libdir():
    return re.search(r"^CMAKE_INSTALL_LIBDIR:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE).group(1)


def documents():
    """The files of the tree that are installed as they are: where they go, and whose they are."""
    for page in (ROOT / "doc/man").glob("*.[1578]"):
        yield f"share/man/man{page.suffix[1:]}/{page.name}", page
    for completion in (ROOT / "packaging/completion").glob("*"):
        yield f"share/bash-completion/completions/{completion.name}", completion


def units():
    for unit in [*(ROOT / "packaging/systemd").glob("*.service"), *(ROOT / "packaging/systemd").glob("*.socket")]:
        yield f"lib/systemd/system/{unit.name}", unit


@pytest.fixture(scope="module")
def prefix(tmp_path_factory):
    """The package, in another place than it was installed to."""
    folder = tmp_path_factory.mktemp("installed")
    install(BUILD, folder / "first")
    (folder / "first").rename(folder / "moved")
    return folder / "moved"


def test_everything_goes_below_destdir(tmp_path):
    run("cmake", "--install", BUILD, "--prefix", "/usr", env={**os.environ, "DESTDIR": str(tmp_path)})

    assert {path.name for path in tmp_path.iterdir()} == {"usr"}
    installed = files_in(tmp_path / "usr")
    assert set().union(*PROGRAMS.values()) <= installed
    assert {name for name, _ in documents()} <= installed
    assert {name for name, _ in units()} <= installed
    assert (tmp_path / "usr/share/horad/household.json").read_bytes() == (ROOT / "packaging/household.json").read_bytes()


@pytest.mark.parametrize("component", PROGRAMS)
def test_a_component_brings_its_program_and_its_documents_only(tmp_path, component):
    install(BUILD, tmp_path, "--component", component)

    expected = {name for name, file in [*documents(), *units()] if COMPONENT_OF[file.name.split(".")[0]] == component}
    expected |= PROGRAMS[component]
    if component == "tools":
        expected.add("share/horad/household.json")
    settings = {name for name in files_in(tmp_path) if re.match(r"lib/(sysusers|tmpfiles)[.]d/", name)}
    assert files_in(tmp_path) - settings == expected


def test_each_library_stands_once(prefix):
    archives = [path.name for path in prefix.rglob("*.a")]

    assert sorted(archives) == [f"libhorad_{name}.a" for name in sorted(LIBRARIES)]


def test_the_package_names_no_folder_of_the_build(prefix):
    exported = list((prefix / libdir() / "cmake/horad").iterdir())

    assert len(exported) >= 4
    for file in exported:
        text = file.read_text()
        assert str(ROOT) not in text and str(BUILD) not in text and "/first" not in text, file.name


def test_a_project_uses_each_library_and_each_header(prefix, tmp_path):
    include = prefix / "include/horad"
    headers = sorted(path.relative_to(include).as_posix() for path in include.rglob("*.h"))
    assert {"horad.h", "cfg/iconfigclient.h", "cfg/notificationhandler.h", "velta/value.h"} <= set(headers)
    assert not {"options.h", "handlers/dbm.h"} & set(headers), "nobody else's concern"
    (tmp_path / "headers.h").write_text("".join(f'#include "{name}"\n' for name in headers))

    configure(HERE / "consumer", tmp_path / "build", CMAKE_PREFIX_PATH=prefix, HEADERS=tmp_path, CMAKE_CXX_FLAGS=WARNINGS)
    build(tmp_path / "build")

    assert run(tmp_path / "build/consumer").splitlines() == [
        "2 tables, hour 18, 'text', not connected, no such row"]


def test_the_example_lives_on_its_own_tables(prefix, tmp_path):
    configure(ROOT / "examples/ownstore", tmp_path, CMAKE_PREFIX_PATH=prefix, CMAKE_CXX_FLAGS=WARNINGS)
    build(tmp_path)

    said = run(tmp_path / "ownstore").splitlines()

    assert [line for line in said if line.startswith("the WLAN")] == ["the WLAN is on", "the WLAN is off"]


@pytest.mark.parametrize("version, accepted", [("0.1", True), ("0.0", False), ("0.2", False), ("1.0", False)])
def test_a_project_that_wants_another_version_is_refused(prefix, tmp_path, version, accepted):
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.16)\nproject(asking LANGUAGES CXX)\n"
        f"find_package(horad {version} QUIET)\nmessage(STATUS \"found: ${{horad_FOUND}}\")\n")

    said = configure(tmp_path, tmp_path / "build", CMAKE_PREFIX_PATH=prefix)

    assert f"found: {1 if accepted else 0}" in said
