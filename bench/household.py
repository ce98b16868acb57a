"""Plans by the thousand, and how they come into a store."""

import json
import shutil
import subprocess
from pathlib import Path

from workshop import BIN, ROOT
from plans import DAYS


def plan(number):
    """All seven days have a slot, no two plans in a row the same; the name has 12 characters."""
    minute = number * 7919 % 1440
    stop = (minute + 30 + number * 271 % 600) % 1440
    row = {"Id": number, "TimePlanName": f"Plan {number:07}", "TimePlanStatus": 0, "Activate": 1}
    for day in DAYS:
        row[f"Start{day}"] = f"{minute // 60:02}:{minute % 60:02}:00"
        row[f"Stop{day}"] = f"{stop // 60:02}:{stop % 60:02}:00"
    return row


def always(number, **cells):
    """A plan that is inside its slots at any time."""
    row = {"Id": number, "TimePlanName": f"Plan {number:07}", "TimePlanStatus": 1, "Activate": 1}
    for day in DAYS:
        row[f"Start{day}"], row[f"Stop{day}"] = "00:00:00", "23:59:59"
    return {**row, **cells}


def start_loading(tables, socket):
    """Makes the tables what they are to be, in one commit in the store that listens there."""
    loading = subprocess.Popen([BIN / "cfgctl", "-s", str(socket), "load", "-"], stdin=subprocess.PIPE)
    loading.stdin.write(json.dumps(tables).encode())
    loading.stdin.close()
    return loading


def load(tables, socket):
    assert start_loading(tables, socket).wait(60) == 0, "the tables could not be loaded"


def dump(tables, socket):
    done = subprocess.run([BIN / "cfgctl", "-s", str(socket), "dump", *tables], capture_output=True, check=True)
    return json.loads(done.stdout)


def plan_tables(folder, names):
    """A schema file with tables like TimePlans."""
    from_default = (ROOT / "store/storage/schema/default.sql").read_text()
    body = from_default.split("CREATE TABLE TimePlans", 1)[1].split(";", 1)[0]
    path = Path(folder, "plans.sql")
    path.write_text("".join(f"CREATE TABLE {name}{body};\n" for name in names))
    return path


def copied_database(workshop):
    """A store's file with one plan in it, and a copy of it for SQLite alone."""
    database, copy = workshop.disk / "one.db", workshop.disk / "copy.db"
    if not database.exists():
        server = workshop.cfgserver("-s", "one.socket", "-f", database)
        load({"TimePlans": [plan(1)]}, workshop.disk / "one.socket")
        server.terminate()
        server.wait(30)
        shutil.copy(database, copy)
    return database, copy
