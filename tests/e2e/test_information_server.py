"""A real server sees which port a client sits on, picks the subnet by it, and its answers reach real clients."""

import struct

import pytest
from lab import decode, frames, information
from lab.clients import Dhclient, Dhcpcd
from lab.frames import ADVERTISE, CLIENT_PORT, RELAY_FORW, REPLY, REQUEST, SOLICIT, link_local
from lab.information import DEFAULT, INTERFACE, STRING, USER_DEFINED, default_id
from lab.kea import by_interface_id

HOST_NAME = "lab-switch"  # the daemon's machine
PREFIXES = {1: "2001:db8:1::", 2: "2001:db8:2::"}


def subnets(name):
    """A subnet for each port, by what Interface-Id its clients' messages carry."""
    return by_interface_id({name(port): prefix for port, prefix in PREFIXES.items()})


def plain(port):
    return default_id(port, HOST_NAME)


@pytest.fixture
def relaying(daemon):
    information.enable(daemon, relay=True)
    return daemon


def dhcp(switch, port, *kinds):
    """Messages of these kinds that came out of a port, in their order."""
    return [frame for frame in switch.wire(port).take() if frames.dhcp_kind(frame) in kinds]


@pytest.mark.parametrize("kind", [Dhclient, Dhcpcd])
def test_the_port_says_the_subnet(relaying, switch, network, kind):
    server = network.server(subnets=subnets(plain))
    clients = {port: network.client(kind, port) for port in PREFIXES}
    for port, prefix in PREFIXES.items():
        address = clients[port].address()
        assert address == f"{prefix}1000"
        if kind is Dhcpcd:
            clients[port].prefix()
        record = relaying.clients()[switch.mac(port)]
        assert (record["vlan"], record["port"]) == (1, port)
        assert 7100 < record["leases"][f"{address}/128"] <= 7200
    assert set(relaying.clients()) == {switch.mac(port) for port in PREFIXES}
    assert server.received("SOLICIT") == server.received("REQUEST") == 2


def test_a_template_says_the_subnet(relaying, network):
    information.set_id(relaying, INTERFACE, USER_DEFINED, information.template("{port-kind} {port-name}, {hostname}"))
    network.server(subnets=subnets(lambda port: f"ethernet 0/{port}, {HOST_NAME}".encode()))
    clients = {port: network.client(Dhclient, port) for port in PREFIXES}
    assert {port: client.address() for port, client in clients.items()} == {port: f"{PREFIXES[port]}1000" for port in PREFIXES}


def test_an_id_that_the_server_does_not_know(relaying, network):
    """The counterproof: with another id, the same client on the same port gets nothing."""
    information.set_id(relaying, INTERFACE, STRING, b"elsewhere")
    server = network.server(subnets=subnets(plain))
    client = network.client(Dhclient, 1)
    server.wait("DHCP6_SUBNET_SELECTION_FAILED")
    information.set_id(relaying, INTERFACE, DEFAULT)
    assert client.address() == f"{PREFIXES[1]}1000"


def test_what_the_server_and_the_client_got(relaying, switch, network):
    """The bytes on both cables. The server finds the ids behind the Relay Message option, as options of the relay itself, and
    gives the Interface-Id back; the client gets plain answers."""
    server = network.server(subnets=subnets(plain))
    for port in switch.ports:
        switch.wire(port)  # listens from now on
    network.client(Dhclient, 1).address()
    peer = link_local(switch.mac(1))
    ids = [(18, plain(1)), (37, struct.pack("!I", 47119) + plain(1))]
    added = b"".join(frames.option(*pair) for pair in ids)

    forwards = dhcp(switch, 4, *range(1, 14))
    assert [frames.dhcp_kind(frame) for frame in forwards] == [RELAY_FORW, RELAY_FORW]
    for frame, kind in zip(forwards, (SOLICIT, REQUEST)):
        payload = frames.read(frame)["payload"]
        inner = payload[38 : -len(added)]
        assert inner[0] == kind and payload == information.wrapped(inner, added, peer)
    read = decode.by_tshark(forwards)
    assert read == [decode.by_scapy(frame) for frame in forwards]
    for found, kind in zip(read, (SOLICIT, REQUEST)):
        assert found["ports"] == (547, 547) and found["checksum"]
        assert found["message"]["options"][1:] == ids
        assert found["message"]["options"][0][1]["type"] == kind
        assert {code for code, _ in found["message"]["options"][0][1]["options"]}.isdisjoint({18, 37})
    shown = ":".join(f"{byte:02x}" for byte in plain(1))
    assert server.text().count(f"type=00018, len={len(plain(1)):05}: {shown}") == 4  # two questions, two answers

    answers = dhcp(switch, 1, *range(1, 14))
    assert [frames.dhcp_kind(frame) for frame in answers] == [ADVERTISE, REPLY]
    for frame in answers:
        assert frames.read(frame)["dport"] == CLIENT_PORT and frames.read(frame)["udp_ok"]
    for found in decode.by_tshark(answers):
        assert found["checksum"] and {code for code, _ in found["message"]["options"]} == {1, 2, 3}
    assert dhcp(switch, 2, *range(1, 14)) == dhcp(switch, 3, *range(1, 14)) == []


@pytest.mark.parametrize("kind", [Dhclient, Dhcpcd])
def test_without_relay_the_options_are_in_the_message(daemon, switch, network, kind):
    information.enable(daemon)
    server = network.server()
    switch.wire(4)  # listens from now on
    client = network.client(kind, 1)
    address = client.address()
    if kind is Dhcpcd:
        client.prefix()
    assert f"{address}/128" in daemon.clients()[switch.mac(1)]["leases"]
    messages = dhcp(switch, 4, *range(1, 14))
    read = decode.by_tshark(messages)
    assert read == [decode.by_scapy(frame) for frame in messages]
    assert [found["message"]["type"] for found in read] == [SOLICIT, REQUEST]
    for found in read:
        assert found["ports"] == (546, 547) and found["checksum"]
        assert found["message"]["options"][-2:] == [(18, plain(1)), (37, struct.pack("!I", 47119) + plain(1))]
    assert server.received("SOLICIT") == server.received("REQUEST") == 1


def test_renewed_and_released_through_the_relay(relaying, switch, network):
    """RENEW goes wrapped, RELEASE as the client sent it; both reach the server."""
    server = network.server(subnets=subnets(plain), valid=60, preferred=50, renew=1, rebind=40)
    client = network.client(Dhclient, 2)
    address = client.address()
    relaying.until(lambda: server.received("RENEW") >= 2, "the client renews twice")
    assert set(relaying.clients()[switch.mac(2)]["leases"]) == {f"{address}/128"}
    switch.wire(4).take()
    client.release()
    server.wait("DHCP6_RELEASE_NA ")
    relaying.until(lambda: relaying.clients() == {}, "the released client goes")
    assert len(dhcp(switch, 4, frames.RELEASE)) == 1
