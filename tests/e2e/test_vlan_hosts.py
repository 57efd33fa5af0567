"""Real hosts in two VLANs: one server with an interface in each, behind a port that has both tagged; clients behind ports that
have one each without a tag."""

import pytest
from lab import kea, netns, vlans
from lab.clients import Dhclient, Dhcpcd

from test_guard_life import ping

pytestmark = [pytest.mark.needs("vlan_filtering", "8021q"), pytest.mark.usefixtures("places")]

PREFIXES = {10: "2001:db8:a::", 20: "2001:db8:b::"}


@pytest.fixture
def server(switch, network):
    interfaces = {vlan: vlans.interface(switch, 4, vlan) for vlan in PREFIXES}
    for vlan, interface in interfaces.items():
        netns.run(switch.host(4), "ip", "addr", "add", f"{PREFIXES[vlan]}1/64", "dev", interface, "nodad")
    return network.server(subnets=kea.by_interface({interfaces[vlan]: prefix for vlan, prefix in PREFIXES.items()}))


def use(switch, port, address):
    """The host speaks from this address, too."""
    netns.run(switch.host(port), "ip", "addr", "replace", f"{address}/64", "dev", "eth0", "nodad")


def test_clients_of_two_vlans_lease_and_speak_behind_the_guard(daemon, switch, network, server):
    daemon.guard(1, 2, 3)
    first, second = network.client(Dhclient, 1), network.client(Dhcpcd, 2)
    addresses = {10: first.address(), 20: second.address()}
    prefix = second.prefix()
    for vlan, address in addresses.items():
        assert address.startswith(PREFIXES[vlan])
    macs = {10: switch.mac(1), 20: switch.mac(2)}
    found = daemon.clients()
    assert {mac: (record["vlan"], record["port"], set(record["leases"])) for mac, record in found.items()} == {
        macs[10]: (10, 1, {f"{addresses[10]}/128"}),
        macs[20]: (20, 2, {f"{addresses[20]}/128", prefix}),
    }
    assert daemon.filters() == {(4, port, vlan, macs[vlan], addresses[vlan]): 1 for port, vlan in ((1, 10), (2, 20))}
    for port, vlan in ((1, 10), (2, 20)):
        use(switch, port, addresses[vlan])
        use(switch, port, f"{PREFIXES[vlan]}bad")
        assert ping(switch, port, addresses[vlan], f"{PREFIXES[vlan]}1") == 3
        assert ping(switch, port, f"{PREFIXES[vlan]}bad", f"{PREFIXES[vlan]}1") == 0
        assert daemon.guarded(port)["blocked"] == 3
    # The same address behind another port of the VLAN is refused; where there is no guard it would answer.
    switch.speak(3)
    use(switch, 3, f"{PREFIXES[10]}77")
    assert ping(switch, 3, f"{PREFIXES[10]}77", f"{PREFIXES[10]}1") == 0
    daemon.guard(3, mode=1)
    assert ping(switch, 3, f"{PREFIXES[10]}77", f"{PREFIXES[10]}1") == 3
    first.release()
    daemon.until(lambda: list(daemon.clients()) == [macs[20]], "the released client goes")
    assert list(daemon.filters()) == [(4, 2, 20, macs[20], addresses[20])]


def test_a_client_whose_port_moves_to_the_other_vlan(daemon, switch, places, network, server):
    """It asks again there, and is known there with what it gets there."""
    first = network.client(Dhclient, 1)
    assert first.address().startswith(PREFIXES[10])
    first.freeze()
    places.put({1: (20,)})
    places.until_known(daemon)
    netns.run(switch.host(1), "ip", "-6", "addr", "flush", "dev", "eth0", "scope", "global")
    again = network.client(Dhclient, 1).address()
    assert again.startswith(PREFIXES[20])
    record = daemon.clients()[switch.mac(1)]
    assert (record["vlan"], record["port"], list(record["leases"])) == (20, 1, [f"{again}/128"])
    assert (daemon.counted_in_vlan(10), daemon.counted_in_vlan(20)) == (0, 1)
