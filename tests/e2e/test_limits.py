"""Limits of ports and VLANs, and the size of the table."""

from lab import calls, frames
from lab.clients import Dhcpcd
from lab.frames import REBIND, RENEW, REPLY, SOLICIT, from_client, from_server, ia_na, mac_number

CAPACITY = 2048


def test_port_limit(daemon, sent, learn):
    daemon.call(calls.PORT_MAX, 1, 1)
    learn(1, mac_number(1), "2001:db8::1")
    assert sent(1, from_client(SOLICIT, mac_number(2))) == {}
    for kind in (SOLICIT, RENEW, REBIND):  # the client that is recorded there goes on
        frame = from_client(kind, mac_number(1))
        assert sent(1, frame) == {4: [frame]}
    frame = from_client(SOLICIT, mac_number(2))
    assert sent(2, frame) == {4: [frame]}  # another port is another matter
    assert (daemon.counted(1), daemon.counted(2)) == (1, 1)


def test_a_freed_place_is_given_again(daemon, sent, learn):
    daemon.call(calls.PORT_MAX, 1, 1)
    learn(1, mac_number(1), "2001:db8::1")
    frame = from_client(SOLICIT, mac_number(2))
    assert sent(1, frame) == {}
    daemon.call(calls.DELETE_BY_MAC, frames.mac_bytes(mac_number(1)))
    assert sent(1, frame) == {4: [frame]}
    assert daemon.counted(1) == 1


def test_port_limit_zero_admits_nobody(daemon, sent):
    daemon.call(calls.PORT_MAX, 1, 0)
    assert sent(1, from_client(SOLICIT, mac_number(1))) == {}
    assert daemon.counted(1) == 0


def test_vlan_limit(daemon, sent):
    daemon.call(calls.VLANS_MAX, 1, calls.vlan_list(10))
    first, second = from_client(SOLICIT, mac_number(1), tags=(10,)), from_client(SOLICIT, mac_number(2), tags=(10,))
    elsewhere = from_client(SOLICIT, mac_number(3), tags=(20,))
    assert sent(1, first) == {4: [first]}
    assert sent(2, second) == {}
    assert sent(1, first, elsewhere) == {4: [first, elsewhere]}


def test_a_real_client_too_many(daemon, network):
    server = network.server()
    daemon.call(calls.PORT_MAX, 2, 0)
    network.client(Dhcpcd, 1).address()
    before = daemon.counters(2)["delivered"]
    refused = network.client(Dhcpcd, 2)
    daemon.until(lambda: daemon.counters(2)["delivered"] >= before + 2, "the client tries twice")
    assert server.received("SOLICIT") == 1
    assert refused.switch.addresses(2) == []


def test_table_full(daemon, sent):
    """2,048 clients fit. A further one in their VLAN is one too many for the VLAN; in another VLAN it is served and not
    recorded. A place that is given back is used again."""
    for first in range(1, CAPACITY + 1, 256):
        burst = [from_client(SOLICIT, mac_number(number)) for number in range(first, first + 256)]
        assert sent(1, *burst) == {4: burst}
    assert daemon.counted(1) == CAPACITY
    late_mac = mac_number(5000)
    late = from_client(SOLICIT, late_mac, tags=(10,))
    assert sent(2, from_client(SOLICIT, late_mac)) == {}
    assert sent(2, late) == {4: [late]}
    assert daemon.counted(2) == 0
    answer = from_server(REPLY, late_mac, ia_na(["2001:db8::5000"]), tags=(10,))
    assert sent(4, answer) == {2: [answer]}
    assert daemon.clients() == {}
    answer = from_server(REPLY, mac_number(77), ia_na(["2001:db8::77"]))
    assert sent(4, answer) == {1: [answer]}
    assert set(daemon.clients()) == {mac_number(77)}
    daemon.call(calls.DELETE_BY_MAC, frames.mac_bytes(mac_number(77)))
    assert sent(2, late) == {4: [late]}
    assert (daemon.counted(1), daemon.counted(2)) == (CAPACITY - 1, 1)
    daemon.call(calls.DELETE_ALL)
    assert (daemon.counted(1), daemon.counted(2)) == (0, 0)
