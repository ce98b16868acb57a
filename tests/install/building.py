"""What the tests of installing and building share: CMake as a packager or a firmware engineer calls it."""

import os
import shutil
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HERE = Path(__file__).resolve().parent
BUILD = Path(os.environ.get("HORAD_BUILD", ROOT / "build/dev"))  # a finished build of this tree
WARNINGS = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror"
DEADLINE = 600.0  # seconds: how long a build may take on a loaded machine
CLIENT = ["configclient", "connecting", "connection", "notices", "notificationhandler", "pipeline", "requests", "snapshot",
          "stopping"]  # of src/cfg; firmware may bring its own
NOT_THERE = ["SQLite3", "CLI11", "nlohmann_json", "GTest"]


def run(*command, **options):
    """What the command printed, both streams."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=DEADLINE, **options)
    assert done.returncode == 0, done.stdout
    return done.stdout


def refused(*command):
    """What a command printed that must fail, its lines as one."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=DEADLINE)
    assert done.returncode != 0, done.stdout
    return " ".join(done.stdout.split())


def configuring(source, build, **definitions):
    return ["cmake", "-S", source, "-B", build, "-G", "Ninja", *(f"-D{name}={value}" for name, value in definitions.items())]


def configure(source, build, **definitions):
    return run(*configuring(source, build, **definitions))


def build(folder, *targets):
    return run("cmake", "--build", folder, *(["--target", *targets] if targets else []))


def install(folder, prefix, *arguments):
    return run("cmake", "--install", folder, "--prefix", prefix, *arguments)


def without(packages):
    """Definitions that make CMake find none of them."""
    return {f"CMAKE_DISABLE_FIND_PACKAGE_{name}": "ON" for name in packages}


def copy_of_the_daemon(folder, client_and_platform=False):
    """The daemon's part of the tree, also as somebody keeps it who brings his own platform."""
    ours = shutil.ignore_patterns(*(f"{name}.*" for name in CLIENT))
    shutil.copytree(ROOT / "src", folder / "src", ignore=None if client_and_platform else ours)
    for part in ["cmake", "packaging"]:
        shutil.copytree(ROOT / part, folder / part)
    shutil.copy(ROOT / "CMakeLists.txt", folder)
    if client_and_platform:
        shutil.copytree(ROOT / "platform", folder / "platform")
    return folder


def copy_of_the_client(folder):
    """The client's sources and headers, as a firmware has them in a place of its own."""
    (folder / "cfg").mkdir(parents=True)
    for name in CLIENT:
        for file in (ROOT / "src/cfg").glob(f"{name}.*"):
            shutil.copy(file, folder / "cfg")
    return folder


def files_in(folder):
    return {path.relative_to(folder).as_posix() for path in folder.rglob("*") if not path.is_dir()}
