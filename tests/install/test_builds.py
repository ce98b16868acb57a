"""The builds of others: on a platform of their own, within a project of theirs, with nothing but a compiler.

Each of them compiles the daemon, which takes up to a minute.
"""

import re

import pytest

from building import (HERE, NOT_THERE, ROOT, WARNINGS, build, configure, configuring, copy_of_the_daemon, files_in, install,
                      refused, run, without)

FIRMWARE = {
    "HORAD_PLATFORM": "external",
    "HORAD_VELTA_TARGET": "fw_velta",
    "HORAD_ORV_TARGET": "fw_orv",
    "HORAD_CLIENT_TARGET": "fw_client",
    "HORAD_PLATFORM_PACKAGES": "firmware",
    "firmware_DIR": HERE / "firmware",
    "FIRMWARE_SOURCES": ROOT,
}


@pytest.fixture
def bare_tree(tmp_path):
    return copy_of_the_daemon(tmp_path / "tree")


def test_horad_is_built_on_the_firmwares_platform(bare_tree, tmp_path):
    configure(bare_tree, tmp_path / "build", **FIRMWARE, **without(NOT_THERE), HORAD_WERROR="ON")
    build(tmp_path / "build")
    said = run(tmp_path / "build/bin/horad", "-t", "Plans")
    assert re.search(r"the firmware's client connects horad to /tmp/cfgserver.socket for \d+ tables", said)

    # What is installed has nothing of the platform, and is used with the firmware's.
    prefix = tmp_path / "prefix"
    install(tmp_path / "build", prefix)
    installed = files_in(prefix)
    assert {"sbin/horad", "include/horad/horad.h", "include/horad/cfg/deliveries.h"} <= installed
    assert not [name for name in installed if re.search(r"/(velta|orv)/|_(velta|orv|client)\.a|/notificationhandler", name)]
    configure(ROOT / "examples/ownstore", tmp_path / "own", CMAKE_PREFIX_PATH=prefix, FIRMWARE_SOURCES=ROOT,
              firmware_DIR=HERE / "firmware")
    build(tmp_path / "own", "ownstore")
    assert [line for line in run(tmp_path / "own/ownstore").splitlines() if line.startswith("the WLAN")] == [
        "the WLAN is on", "the WLAN is off"]


def test_the_firmwares_client_counts_where_the_tree_has_one_too(tmp_path):
    configure(ROOT, tmp_path, **FIRMWARE)
    program = "src/CMakeFiles/horad.dir/main.cpp.o"
    build(tmp_path, program)

    assert b"the firmware's client connects" in (tmp_path / program).read_bytes()


@pytest.mark.parametrize("variable, value, complaint", [
    ("HORAD_VELTA_TARGET", "", "HORAD_VELTA_TARGET has to name the target that supplies horad::velta"),
    ("HORAD_ORV_TARGET", "fw_orf", "HORAD_ORV_TARGET=fw_orf: there is no such target"),
    ("HORAD_CLIENT_TARGET", "", "HORAD_CLIENT_TARGET has to name the target that supplies horad::client"),
    ("HORAD_PLATFORM", "externol", "HORAD_PLATFORM=externol: it is either own or external"),
    ("HORAD_DAEMON_ONLY", "OFF", "store and tools need the platform of this tree"),
])
def test_a_platform_that_is_not_there_is_named(tmp_path, variable, value, complaint):
    said = refused(*configuring(ROOT, tmp_path, **{**FIRMWARE, variable: value}))

    assert complaint in said


def test_another_project_takes_the_tree_in(tmp_path):
    said = configure(HERE / "outer", tmp_path, HORAD_TREE=ROOT, BUILD_TESTING="ON", **without(NOT_THERE))
    assert "Found" not in said, "nothing but a compiler is looked for"
    build(tmp_path)

    assert run(tmp_path / "outer") == "own velta, 4 handlers\n"
    tests = run("ctest", "-N", "--test-dir", tmp_path)
    assert "Total Tests: 1" in tests and ": outer" in tests
    assert "Usage: horad" in run(tmp_path / "_deps/horad-build/src/horad", "-h"), "programs stay where the outer project has them"
    # Installing the outer project brings nothing of ours: it did not ask for that.
    install(tmp_path, tmp_path / "prefix")
    assert not (tmp_path / "prefix").exists()


@pytest.fixture(scope="module")
def release(tmp_path_factory):
    """The daemon alone, optimised as a whole, where nothing but a compiler is to be had."""
    folder = tmp_path_factory.mktemp("release")
    tree = copy_of_the_daemon(folder / "tree", client_and_platform=True)
    said = configure(tree, folder / "build", HORAD_DAEMON_ONLY="ON", CMAKE_BUILD_TYPE="Release", CMAKE_INSTALL_PREFIX="/opt/router",
                     CMAKE_INTERPROCEDURAL_OPTIMIZATION="ON", **without(NOT_THERE))
    assert "Found" not in said, "nothing but a compiler is looked for"
    build(folder / "build")
    install(folder / "build", folder / "prefix")
    return folder


def test_the_daemon_alone_needs_a_compiler_and_nothing_else(release):
    assert "Usage: horad" in run(release / "prefix/sbin/horad", "-h")
    assert {path.name for path in (release / "prefix").rglob("*") if path.name.startswith(("cfg", "horactl"))} <= {"cfg"}


def test_archives_of_an_optimised_build_suit_any_compiler(release, tmp_path):
    archives = sorted((release / "prefix").rglob("*.a"))
    assert len(archives) == 9
    for archive in archives:
        assert ".gnu.lto" not in run("objdump", "-h", archive), archive.name

    configure(ROOT / "examples/ownstore", tmp_path, CMAKE_PREFIX_PATH=release / "prefix", CMAKE_CXX_COMPILER="clang++",
              CMAKE_CXX_FLAGS=WARNINGS)
    build(tmp_path)
    assert "the WLAN is on" in run(tmp_path / "ownstore")


def test_a_unit_names_programs_where_they_are_installed(release):
    units = release / "prefix/lib/systemd/system"
    assert {path.name for path in units.iterdir()} == {"horad.service"}, "the store is not built"

    in_tree = (ROOT / "packaging/systemd/horad.service").read_text()
    assert "=/usr/sbin/horad " in in_tree
    expected = in_tree.replace("/usr/sbin/", "/opt/router/sbin/").replace("/usr/lib/horad/", "/opt/router/lib/horad/")
    assert (units / "horad.service").read_text() == expected
