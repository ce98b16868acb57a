"""How late the WLAN switches beside clients that hold the transaction."""

import contextlib
import time

import wire
from contenders import Horad
from crowding import Household, crowd, row_of_few

HOLDERS, HELD = 16, 0.3  # seconds at a time
LATE_BESIDE_HOLDERS, LATE_BESIDE_SILENT = 5, 15  # seconds
BEFORE = 1  # seconds before the plan's start


def measure(workshop):
    with Household() as home:
        store = Horad(workshop, home.house)
        store.start()
        home.start_horad()
        holders, silent = (workshop.times(30, 8), workshop.times(70, LATE_BESIDE_SILENT + 1))  # seconds to wait
        late = [home.lateness(lambda _: crowd(1, "hold", store.path, HOLDERS, HELD), holders)
                for _ in range(workshop.times(3, 1))]
        later = home.lateness(lambda start: silent_holder(store.path, start - BEFORE), silent)
        workshop.stop_programs()
    in_turns = f"WLAN late beside {HOLDERS} that hold the transaction {HELD} s in turns"
    return [row_of_few(in_turns, "horad", f"s, of {holders}", late, LATE_BESIDE_HOLDERS),
            row_of_few("WLAN late beside one that holds it and is silent", "horad", f"s, of {silent}", [later],
                       LATE_BESIDE_SILENT)]


@contextlib.contextmanager
def silent_holder(path, moment):
    client = wire.Client(path)
    time.sleep(max(moment - time.time(), 0))
    assert wire.result_code(client.begin(1000)) == 0
    yield
    client.close()
