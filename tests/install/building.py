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
# What else is in the folder of the client: the handlers' contract with the store, and the deliveries.
CONTRACT = {"deliveries", "iconfigclient", "iconfighandler", "pace", "watchedclient"}
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


def is_of_the_client(path):
    """Whether a source belongs to the client of the store, which firmware may bring."""
    return path.parent.name == "cfg" and path.suffix in (".h", ".cpp") and path.stem not in CONTRACT


def copy_of_the_daemon(folder, client_and_platform=False):
    """The daemon's part of the tree, also as somebody keeps it who brings his own platform."""
    shutil.copytree(ROOT / "src", folder / "src")
    for part in ["cmake", "packaging"]:
        shutil.copytree(ROOT / part, folder / part)
    shutil.copy(ROOT / "CMakeLists.txt", folder)
    if client_and_platform:
        shutil.copytree(ROOT / "platform", folder / "platform")
    else:
        for source in filter(is_of_the_client, (folder / "src/cfg").iterdir()):
            source.unlink()
    return folder


def files_in(folder):
    return {path.relative_to(folder).as_posix() for path in folder.rglob("*") if not path.is_dir()}
