"""Households with networks of their own, and a network between them that loses what a test tells it to lose."""

import itertools

import pytest

_FOUND = r"""
set -e
ip netns add between
ip -n between link set lo up
ip netns exec between sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'
"""
_RULES = """
table ip cut {
    chain forward { type filter hook forward priority 0; }
}
"""
_CONNECT = r"""
set -e
ip netns add "$1"
ip -n "$1" link set lo up
ip link add name "$1" netns between type veth peer name out netns "$1"
ip -n between address add "$2.1/24" dev "$1"
ip -n between link set "$1" up
ip -n "$1" address add "$2.2/24" dev out
ip -n "$1" link set out up
ip -n "$1" route add default via "$2.1"
"""


class Network:
    """What is lost is lost without a word, as where a cable was pulled: nobody's connection breaks."""

    def __init__(self, house):
        self._house, self._numbers = house, itertools.count(1)
        self._run("sh", "-c", _FOUND)
        status, _, err = self._nft("-f", "-", input=_RULES.encode())
        if status != 0:
            pytest.skip(f"this kernel filters no packets: {err}")

    def home(self, name):
        """A household: (house, address). What is started in this house can be reached there by the others."""
        prefix = f"10.77.{next(self._numbers)}"
        self._run("sh", "-c", _CONNECT, "sh", name, prefix)
        return self._house.in_network(name), f"{prefix}.2"

    def lose_from(self, address):
        """What it sends does not arrive."""
        self._rule("ip", "saddr", address)

    def cut_off(self, address):
        """Nothing arrives, in either direction."""
        self.lose_from(address)
        self._rule("ip", "daddr", address)

    def mend(self):
        self._done(self._nft("flush", "chain", "ip", "cut", "forward"))

    def lost(self):
        """How many packets have matched a rule that is in force."""
        status, out, err = self._nft("list", "chain", "ip", "cut", "forward")
        assert status == 0, err
        words = out.split()
        return sum(int(words[at + 1]) for at, word in enumerate(words) if word == "packets")

    def _rule(self, *match):
        self._done(self._nft("add", "rule", "ip", "cut", "forward", *match, "counter", "drop"))

    def _nft(self, *arguments, **how):
        return self._house.in_network("between").run("/usr/sbin/nft", *arguments, **how)

    def _run(self, *command):
        self._done(self._house.run(*command))

    @staticmethod
    def _done(result):
        status, _, err = result
        assert status == 0, err
