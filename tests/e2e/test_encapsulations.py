"""Whatever a real host unwraps, it gets no DHCPv6 server message through the trap, and no datagram from an unbound source
through the guard."""

import struct

import pytest
from lab import encapsulations, netns, sweep, vlans
from lab.frames import ETH_8021AD, ETH_8021Q
from lab.sweep import ROGUE_PORT, UPLINK, VICTIM_PORT, Sweep

BOUND_ROW = "Source bound"
VLAN = encapsulations.VLAN


@pytest.fixture
def sweeping(switch):
    """sweeping(...): a sweep of the switch."""
    made = []

    def make(*arguments):
        made.append(Sweep(switch, *arguments))
        return made[-1]

    yield make
    for one in made:
        one.close()


def arrived(tallies):
    """Row -> names of the cases that arrived, without rows of which none did."""
    return {row: tally.arrived for row, tally in tallies.items() if tally.arrived}


def check(sweep_, daemon, cases):
    """Sends everything into an open, a trapped and a guarded port. Returns the tallies of each."""
    servers, plain = sweep_.open(cases)
    assert len(arrived(servers)) > 5, "a host unwraps less than this test is about"
    assert arrived(servers) == arrived(plain)
    trap, guard = sweep_.trapped(cases, daemon), sweep_.guarded(cases, daemon)
    assert arrived(trap) == {}
    assert arrived(guard) == {BOUND_ROW: plain[BOUND_ROW].arrived}
    return servers, trap, guard


def test_nothing_arrives_and_the_document_says_so(idle, sweeping):
    tallies = check(sweeping(), idle, encapsulations.cases())
    assert sweep.table(*tallies) == sweep.documented()


@pytest.mark.needs("8021q")
def test_nothing_arrives_at_a_host_with_vlan_interfaces(idle, switch, sweeping):
    """The host takes off tags of VLAN 10, too, two of them at most."""
    swept = sweeping()
    for below, name in (("eth0", "outer"), ("outer", "inner")):
        host = switch.host(VICTIM_PORT)
        netns.run(host, "ip", "link", "add", "link", below, "name", name, "type", "vlan", "id", str(VLAN))
        netns.run(host, "ip", "link", "set", name, "up")
        switch.speak(VICTIM_PORT, name)
    servers, _, _ = check(swept, idle, encapsulations.cases_of_tags())
    assert arrived(servers)["1 or 2 tags, another VLAN"]


@pytest.mark.needs("vlan_filtering")
@pytest.mark.parametrize("protocol, ether_type", [("802.1Q", ETH_8021Q), ("802.1ad", ETH_8021AD)], ids=["802.1Q", "802.1ad"])
def test_nothing_arrives_on_a_bridge_that_filters_vlans(idle, switch, sweeping, protocol, ether_type):
    """Rogue and host are in VLAN 10 without a tag: what comes in tagged leaves without its outer tag."""
    places = vlans.Places(switch, {ROGUE_PORT: (VLAN,), VICTIM_PORT: (VLAN,), 3: (VLAN,), UPLINK: (0, VLAN)}, protocol)
    places.until_known(idle)

    def leaving(frame):
        return frame[:12] + frame[16:] if struct.unpack_from("!H", frame, 12)[0] == ether_type else frame

    servers, _, _ = check(sweeping(places.sent, leaving), idle, encapsulations.cases_of_tags())
    assert arrived(servers)["1 or 2 tags, another VLAN"]
