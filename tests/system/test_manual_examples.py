"""What the manual pages show of a session comes out so where somebody types it."""

from pathlib import Path

import pytest

from house import wait_until

TREE = Path(__file__).resolve().parents[2]
PACKAGED = "/usr/share/horad/household.json"


def examples(name):
    """The commands of the page's examples, each with the lines that are shown below it."""
    text = (TREE / "doc/man" / name).read_text().split(".Sh EXAMPLES\n")[1].split("\n.Sh ")[0]
    found, shows = [], False
    for line in text.replace("\\e\n", "\\\n").splitlines():
        if line.startswith("."):
            shows = line.startswith(".Bd -literal")
            line = line.removeprefix(".Dl ")
        if line.startswith("$ "):
            found.append((line[2:], []))
        elif shows and found and found[-1][0].endswith("\\"):
            found[-1] = (found[-1][0] + "\n" + line, [])
        elif shows and not line.startswith("."):
            found[-1][1].append(line)
    return found


def type_in(house, command):
    """The status, and what is printed but for what this machine has or has not."""
    typed = command.replace(PACKAGED, str(TREE / "packaging/household.json"))
    status, out, err = house.run("sh", "-c", f"PATH=/run/bin:$PATH\n{typed}", env={"TZ": "Europe/Berlin"})
    return status, [line for line in (out + err).splitlines()
                    if "as horad" not in line and "no horad runs here" not in line and "as that of a new store" not in line]


@pytest.mark.parametrize("name", ["cfgctl.1", "horactl.1", "horad.schema.5"])
def test_an_example_prints_what_the_page_shows(store, name):
    if name == "horad.schema.5":
        store.horad("-t", "WlanTimePlans", "-r", "1")
    left_out = ("cfgctl watch", "cfgctl cluster")  # without an end, and of another folder than the house's own
    commands = [(command, shown) for command, shown in examples(name) if not command.startswith(left_out)]
    assert len(commands) >= 3
    for command, shown in commands:
        status, said = type_in(store, command)
        assert status == (1 if shown and shown[0].startswith("cfgctl: ") else 0), said
        if command.startswith("cfgctl get") and shown != said:  # what horad makes of it, a moment later
            wait_until(lambda: type_in(store, command)[1] == shown, f"{shown} from {command}")
        else:
            assert shown in ([], said), command
