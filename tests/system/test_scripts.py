"""What the scripts of the tree say where the machine lacks what they need."""

import os
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# A root that may not mount, as in most containers.
POWERLESS = ["setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin"]
if os.geteuid() != 0:
    POWERLESS = ["unshare", "--user", "--map-root-user", *POWERLESS]
# A root folder that is no mount point. What else is in it are mounts.
CHROOT = r"""
set -e
mkdir /tmp/root
for folder in usr proc run "$1"; do
    mkdir -p "/tmp/root/$folder"
    mount --rbind "/$folder" "/tmp/root/$folder"
done
for link in bin sbin lib lib64; do
    [ ! -e "/$link" ] || ln -s "usr/$link" "/tmp/root/$link"
done
exec chroot /tmp/root "/$1/script/test"
"""
NEED = "script/test: the system tests need mount namespaces, and none can be made here (unshare: "


def test_a_machine_without_mount_namespaces_is_told_of_before_anything_is_built(house):
    status, out, err = house.run(*POWERLESS, ROOT / "script/test")
    assert (status, out) == (1, "")
    assert err.startswith(NEED + "unshare failed: Operation not permitted): run this as root of a machine, or in a"), err
    assert err.count("\n") == 1


def test_a_root_that_is_no_mount_point_is_told_of_before_anything_is_built(house):
    status, out, err = house.run("sh", "-c", CHROOT, "sh", str(ROOT).lstrip("/"))
    assert (status, out) == (1, "")
    assert err.startswith(NEED + "cannot change root filesystem propagation: Invalid argument): / is no mount point; "), err
    assert err.count("\n") == 1


def test_a_machine_that_can_run_the_system_tests_is_told_nothing(house):
    assert house.run(ROOT / "script/check-namespaces") == (0, "", "")
