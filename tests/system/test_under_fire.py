"""The store under fire: power cuts, and a loss at every request of a start."""

import random
import signal
import threading

import pytest

from house import SOCKET, wait_until
from proxy import Proxy
from wire import COMMIT, DONE, Client


class Counter(threading.Thread):
    """Counts up in two tables, a transaction a number, until the server is gone."""

    def __init__(self, path, begin):
        super().__init__()
        self._client = Client(path)
        self.begun = self.acknowledged = begin
        self.running = threading.Event()

    def run(self):
        try:
            while True:
                self.begun += 1
                self._client.begin(1000)
                self._client.write_single("wexd", "Enable", self.begun)
                self._client.write_single("Reboot", "Trigger", self.begun)
                if self._client.ask(COMMIT)[0] == DONE:
                    self.acknowledged = self.begun
                    self.running.set()
        except OSError:
            self._client.close()


def test_a_power_cut_loses_no_acknowledged_commit_and_leaves_none_half_done(house, fire):
    dice = random.Random(20261121)
    rounds = 50 * fire
    number = 0
    for _ in range(rounds):
        server = house.cfgserver("-f", "/tmp/store.db")
        counter = Counter(house.path(SOCKET), number)
        counter.start()
        assert counter.running.wait(20)
        threading.Event().wait(dice.uniform(0, 0.03))  # a random moment is what this is about
        server.stop(signal.SIGKILL)
        counter.join()
        survivor = house.cfgserver("-f", "/tmp/store.db")
        enable, trigger = int(house.get("wexd Enable")), int(house.get("Reboot Trigger"))
        assert enable == trigger
        assert counter.acknowledged <= enable <= counter.begun
        survivor.stop()
        number = enable
    assert number >= rounds


STORE = ("-s", "/tmp/store.socket")


@pytest.mark.parametrize("after", [False, True], ids=["before", "after"])
@pytest.mark.parametrize("cut", range(1, 16))
def test_a_store_gone_at_any_request_comes_back_to_the_right_state(house, cut, after):
    """The requests of a start with two plans that have to change, and of the WLAN's switch behind them."""
    house.cfgserver(*STORE)
    for _ in range(2):
        house.cfgctl(*STORE, "add", "WlanTimePlans", "Activate=0")  # to be active, and the WLAN on
    proxy = Proxy(house.path(SOCKET), house.path("/tmp/store.socket"), cut, after)
    horad = house.horad("-v", "-t", "WlanTimePlans")
    assert proxy.is_cut.wait(20), horad.err.seen

    watch = house.start("cfgctl", *STORE, "watch")
    watch.err.wait("watching")
    house.cfgctl(*STORE, "remove", "WlanTimePlans.1")
    house.cfgctl(*STORE, "set", "WlanTimePlans.2", "Activate=1")  # never to be active from here on
    house.cfgctl(*STORE, "add", "WlanTimePlans", "Activate=0")
    proxy.resume()

    watch.out.wait(r"WlanTimePlans\.3 (TimePlanStatus: 0 -> 1|added TimePlanStatus=1)")
    wait_until(lambda: house.cfgctl(*STORE, "get", "WlanTimePlans.2", "TimePlanStatus") == "0\n", "plan 2 at rest")
    wait_until(lambda: house.cfgctl(*STORE, "get", "WlanGlobals", "WlanEnable") == "0\n", "the WLAN at rest")
    stale = [line for line in watch.out.seen if "WlanTimePlans.2 TimePlanStatus: 0 -> 1" in line or "0 -> 1" in line
             and "WlanEnable" in line]
    assert stale == [], watch.out.seen
