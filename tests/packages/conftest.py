import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from container import Container

ROOT = Path(__file__).resolve().parent.parent.parent
PACKAGES = Path(os.environ.get("HORAD_PACKAGES", ROOT / "build/packages"))
SYSTEM = Path(os.environ.get("HORAD_SYSTEM", ROOT / "build/system"))  # an installed Debian, as script/test-packages makes it
OURS = ["horad", "cfgserver", "cfgctl", "horad-cluster", "libhorad-dev"]


def package(name):
    found = list(PACKAGES.glob(f"{name}_*.deb"))
    assert len(found) == 1, f"{name}: {found}"
    return found[0]


def of_version(packages, version, folder):
    """The same packages, as if they were of that version."""
    folder.mkdir()
    for deb in packages:
        tree = folder / "tree"
        subprocess.run(["dpkg-deb", "-R", deb, tree], check=True)
        control = tree / "DEBIAN/control"
        control.write_text(re.sub(r"(?m)^Version: .*$", f"Version: {version}", control.read_text()))
        subprocess.run(["dpkg-deb", "-b", tree, folder / deb.name], check=True, stdout=subprocess.DEVNULL)
        shutil.rmtree(tree)


@pytest.fixture(scope="session")
def system(tmp_path_factory):
    """A booted system with our packages in /packages, and others of a lower version in /older, none installed."""
    root = tmp_path_factory.mktemp("system") / "root"
    subprocess.run(["cp", "-a", "--reflink=auto", SYSTEM, root], check=True)
    (root / "packages").mkdir()
    for name in OURS:
        shutil.copy(package(name), root / "packages")
    of_version([package(name) for name in OURS], "0.0.1", root / "older")
    shutil.copytree(Path(__file__).parent / "fixtures", root / "fixtures")
    container = Container(root)
    container.boot()
    yield container
    container.power_off()
    shutil.rmtree(root)
