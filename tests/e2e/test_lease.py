"""Real clients get leases from a real server through the daemon, and the table follows them."""

import pytest
from lab import calls, frames, netns
from lab.clients import Dhclient, Dhcpcd


def only(daemon):
    """The one client of the table: its MAC and its record."""
    clients = daemon.clients()
    assert len(clients) == 1, clients
    return next(iter(clients.items()))


@pytest.mark.parametrize("kind", [Dhclient, Dhcpcd])
def test_address(daemon, switch, network, kind):
    server = network.server()
    address = network.client(kind, 1).address()
    mac, record = only(daemon)
    assert mac == switch.mac(1)
    assert (record["vlan"], record["port"]) == (1, 1)
    assert 7100 < record["leases"][f"{address}/128"] <= 7200
    assert server.received("SOLICIT") == 1 and server.received("REQUEST") == 1


@pytest.mark.parametrize("kind, words", [(Dhclient, [("-P",)]), (Dhclient, [("-N", "-P")]), (Dhcpcd, [])])
def test_prefix_delegation(daemon, network, kind, words):
    network.server()
    client = network.client(kind, 2, *words)
    prefix = client.prefix()
    leases = only(daemon)[1]["leases"]
    assert 7100 < leases[prefix] <= 7200
    expected = {prefix}
    if words != [("-P",)]:
        expected.add(f"{client.address()}/128")
    assert set(leases) == expected


def test_two_clients_on_two_ports(daemon, switch, network):
    network.server()
    first, second = network.client(Dhclient, 1), network.client(Dhcpcd, 2)
    addresses = {1: first.address(), 2: second.address()}
    second.prefix()
    clients = daemon.clients()
    assert set(clients) == {switch.mac(1), switch.mac(2)}
    for port in (1, 2):
        assert clients[switch.mac(port)]["port"] == port
        assert f"{addresses[port]}/128" in clients[switch.mac(port)]["leases"]


@pytest.mark.parametrize("kind", [Dhclient, Dhcpcd])
def test_release_forgets(daemon, network, kind):
    server = network.server()
    client = network.client(kind, 1)
    client.address()
    if kind is Dhcpcd:
        client.prefix()
    assert daemon.counted(1) == 1
    client.release()
    server.wait(": RELEASE (type 8) received")
    daemon.until(lambda: daemon.clients() == {}, "the released client goes")
    assert daemon.counted(1) == 0


def test_renew_keeps_the_record(daemon, switch, network):
    server = network.server(valid=60, preferred=50, renew=1, rebind=40)
    client = network.client(Dhclient, 1)
    lease = f"{client.address()}/128"

    def renewed():
        leases = daemon.clients()[switch.mac(1)]["leases"]  # the record is there at every moment
        assert set(leases) == {lease} and leases[lease] > 45
        return server.received("RENEW") >= 2

    daemon.until(renewed, "the client renews twice")
    assert daemon.counted(1) == 1


def test_a_client_that_moves_is_moved(daemon, switch, network):
    """The same station, by MAC and DUID, shows up behind another port."""
    network.server()
    first = network.client(Dhcpcd, 1)
    address = first.address()
    first.prefix()
    mac = switch.mac(1)
    assert daemon.clients()[mac]["port"] == 1
    first.freeze()
    switch.unplug(1)
    switch.plug(1)
    netns.run(switch.host(2), "ip", "link", "set", "eth0", "address", mac)
    daemon.call(calls.FAST_REMOVE, 0)  # what follows is the move, not the link
    second = network.client(Dhcpcd, 2)
    assert second.address() == address
    second.prefix()
    assert daemon.clients()[mac]["port"] == 2
    assert (daemon.counted(1), daemon.counted(2)) == (0, 1)


def test_a_message_on_another_port_moves_the_record(daemon, sent, learn):
    learn(1, "02:aa:00:00:00:01", "2001:db8::1")
    sent(2, frames.from_client(frames.SOLICIT, "02:aa:00:00:00:01"))
    assert (daemon.counted(1), daemon.counted(2)) == (0, 1)
    assert daemon.clients() == {}  # recorded anew, without leases until a server answers there


def test_a_message_in_another_vlan_moves_the_record(daemon, sent, learn):
    learn(1, "02:aa:00:00:00:01", "2001:db8::1", tags=(10,))
    sent(1, frames.from_client(frames.SOLICIT, "02:aa:00:00:00:01", tags=(20,)))
    assert (daemon.counted_in_vlan(10), daemon.counted_in_vlan(20)) == (0, 1)


def test_expired_lease_goes(daemon, learn):
    """Leases run out on the daemon's own clock, which looks every 10 seconds; the longer one stays."""
    learn(1, "02:aa:00:00:00:01", "2001:db8::1", valid=3)
    learn(2, "02:aa:00:00:00:02", "2001:db8::2", "2001:db8:100::/56", valid=600)
    assert set(daemon.clients()) == {"02:aa:00:00:00:01", "02:aa:00:00:00:02"}
    daemon.until(lambda: len(daemon.clients()) == 1, "the lease expires", 25)
    record = daemon.clients()["02:aa:00:00:00:02"]
    assert set(record["leases"]) == {"2001:db8::2/128", "2001:db8:100::/56"}
    assert all(570 < left < 600 for left in record["leases"].values())
    assert (daemon.counted(1), daemon.counted(2)) == (0, 1)


def test_real_expiry(daemon, network):
    """The client falls silent; server and daemon forget it."""
    network.server(valid=6, preferred=5, renew=3, rebind=4)
    client = network.client(Dhclient, 1)
    client.address()
    assert daemon.counted(1) == 1
    client.freeze()
    daemon.until(lambda: daemon.counted(1) == 0, "the lease expires", 30)


def test_a_rogue_server_is_not_heard(daemon, network):
    """A second server with a higher preference answers faster or slower; the client never hears of it, nor it of the client."""
    network.server()
    rogue = network.server(3, prefix="2001:db8:bad::", delegated="2001:dba::", preference=255)
    client = network.client(Dhclient, 1)
    assert client.address().startswith("2001:db8:1::")
    assert rogue.received("SOLICIT") == 0


def test_without_snooping_the_rogue_wins(idle, network):
    """The counterproof: the same rogue, nobody in its way."""
    network.server()
    rogue = network.server(3, prefix="2001:db8:bad::", delegated="2001:dba::", preference=255)
    client = network.client(Dhclient, 1)
    assert client.address().startswith("2001:db8:bad::")
    assert rogue.received("SOLICIT") == 1


def test_independent_decoder(daemon, switch, network):
    """What the daemon sent on, read by another program: whole messages with right lengths and checksums."""
    from scapy.all import Ether, IPv6, UDP
    from scapy.layers.dhcp6 import DHCP6_Reply, DHCP6_Solicit, DHCP6OptIA_NA

    network.server()
    to_server, to_client = switch.wire(4), switch.wire(1)
    address = network.client(Dhclient, 1).address()
    solicits = [Ether(frame) for frame in to_server.take() if frames.dhcp_kind(frame) == frames.SOLICIT]
    replies = [Ether(frame) for frame in to_client.take() if frames.dhcp_kind(frame) == frames.REPLY]
    assert len(solicits) == 1 and DHCP6_Solicit in solicits[0]
    assert len(replies) == 1 and DHCP6_Reply in replies[0]
    assert replies[0][DHCP6OptIA_NA].ianaopts[0].addr == address
    for packet in (*solicits, *replies):
        assert packet[IPv6].plen == packet[UDP].len == len(packet) - 54
        given = packet[UDP].chksum
        del packet[UDP].chksum
        assert Ether(bytes(packet))[UDP].chksum == given
