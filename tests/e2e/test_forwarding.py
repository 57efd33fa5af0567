"""Which frame goes where, byte for byte, and that nothing else goes anywhere."""

import pytest
from lab import calls
from lab.frames import (
    ADVERTISE, CONFIRM, DECLINE, ETH_8021AD, INFORMATION_REQUEST, REBIND, RECONFIGURE, RELAY_FORW, RELAY_REPL, RELEASE, RENEW,
    REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na, mac_number, message, option, relay_message,
)  # fmt: skip

CLIENT = "02:aa:00:00:00:01"
SERVER = "02:5e:00:00:00:01"

FROM_CLIENTS = [SOLICIT, REQUEST, CONFIRM, RENEW, REBIND, RELEASE, DECLINE, INFORMATION_REQUEST]
FROM_SERVERS = [ADVERTISE, REPLY, RECONFIGURE]
TAGS = [(), (10,), (10, 20), ((10, ETH_8021AD), 20), (0x6000 | 10,), (0,)]
TAG_NAMES = ["untagged", "tagged", "double", "provider", "priority", "vlan0"]


@pytest.mark.parametrize("kind", FROM_CLIENTS)
def test_client_message_goes_to_the_trusted_port_only(daemon, sent, kind):
    frame = from_client(kind, CLIENT)
    assert sent(1, frame) == {4: [frame]}


@pytest.mark.parametrize("tags", TAGS, ids=TAG_NAMES)
def test_client_message_leaves_as_it_came(daemon, sent, tags):
    frame = from_client(SOLICIT, CLIENT, tags=tags)
    assert sent(2, frame) == {4: [frame]}
    assert daemon.counted(2) == 1


@pytest.mark.parametrize("tags", TAGS, ids=TAG_NAMES)
def test_server_message_leaves_as_it_came(daemon, sent, tags):
    """The client is known on port 2: the answer goes there and nowhere else."""
    sent(2, from_client(SOLICIT, CLIENT, tags=tags))
    frame = from_server(ADVERTISE, CLIENT, option(2, b"12345678") + ia_na(["2001:db8::7"]), tags=tags)
    assert sent(4, frame) == {2: [frame]}


@pytest.mark.parametrize("size", range(1, 14))
def test_odd_lengths_leave_as_they_came(daemon, sent, size):
    frame = from_client(SOLICIT, CLIENT, option(65001, bytes(range(1, size))))
    assert sent(1, frame) == {4: [frame]}


def test_largest_frame_of_the_cable(daemon, sent):
    frame = from_client(SOLICIT, CLIENT, option(65001, bytes(1500 - 40 - 8 - 4 - 4)), tags=(10,))
    assert len(frame) == 1518
    assert sent(1, frame) == {4: [frame]}


@pytest.mark.parametrize("kind", FROM_SERVERS)
def test_server_message_to_an_unknown_client_floods(daemon, sent, kind):
    frame = from_server(kind, CLIENT)
    assert sent(4, frame) == {1: [frame], 2: [frame], 3: [frame]}


@pytest.mark.parametrize("kind", FROM_SERVERS)
def test_server_message_from_an_untrusted_port_is_dropped(daemon, sent, kind):
    sent(2, from_client(SOLICIT, CLIENT))
    assert sent(3, from_server(kind, CLIENT), from_server(kind, CLIENT, destination="ff:ff:ff:ff:ff:ff")) == {}


@pytest.mark.parametrize("kind", [0, *range(14, 256, 30), 255])
def test_unknown_message_types_are_dropped(daemon, sent, kind):
    assert sent(1, from_client(kind, CLIENT), from_server(kind, CLIENT)) == {}
    assert sent(4, from_client(kind, CLIENT), from_server(kind, CLIENT)) == {}


def test_relayed_messages_pass(daemon, sent):
    forward = from_client(RELAY_FORW, CLIENT, payload=relay_message(RELAY_FORW, message(SOLICIT)))
    reply = from_server(RELAY_REPL, CLIENT, payload=relay_message(RELAY_REPL, message(REPLY)))
    assert sent(1, forward) == {4: [forward]}
    assert sent(4, reply) == {1: [reply]}
    assert sent(2, reply) == {}


def test_broadcast_goes_like_multicast(daemon, sent):
    frame = from_client(SOLICIT, CLIENT, destination="ff:ff:ff:ff:ff:ff")
    assert sent(1, frame) == {4: [frame]}


def test_server_known_on_the_trusted_port_gets_unicast(daemon, sent):
    daemon.call(calls.PORT_MODE, 3, 1)
    sent(4, from_server(RECONFIGURE, CLIENT, server=SERVER), trusted=(3, 4))
    frame = from_client(REQUEST, CLIENT, destination=SERVER)
    assert sent(1, frame, trusted=(3, 4)) == {4: [frame]}


def test_two_trusted_ports_share_client_messages_but_not_the_one_it_came_from(daemon, sent):
    daemon.call(calls.PORT_MODE, 3, 1)
    frame = from_client(SOLICIT, CLIENT)
    assert sent(1, frame, trusted=(3, 4)) == {3: [frame], 4: [frame]}
    assert sent(3, frame, from_server(RECONFIGURE, mac_number(9), server=SERVER), trusted=(3, 4))[4][0] == frame


def test_client_message_on_the_only_trusted_port_goes_nowhere(daemon, sent):
    assert sent(4, from_client(SOLICIT, CLIENT)) == {}
    assert daemon.counted(4) == 0


def test_destination_known_on_an_untrusted_port_is_no_server(daemon, sent):
    """A station on port 3 claims to be the server; the client's unicast message still goes to the trusted port only."""
    sent(3, from_client(SOLICIT, SERVER))
    frame = from_client(REQUEST, CLIENT, destination=SERVER)
    assert sent(1, frame) == {4: [frame]}


def test_answer_is_not_sent_back_to_the_port_it_came_from(daemon, sent):
    sent(4, from_server(RECONFIGURE, mac_number(1), server=CLIENT))
    assert sent(4, from_server(ADVERTISE, CLIENT)) == {}


def test_without_a_trusted_port_client_messages_go_nowhere(idle, switch, sent):
    idle.snoop()
    before = idle.counters(1)
    assert sent(1, from_client(SOLICIT, CLIENT), trusted=()) == {}
    idle.until(lambda: idle.counters(1)["delivered"] == before["delivered"] + 1, "the message reaches the daemon")
    assert sent(2, from_client(SOLICIT, mac_number(2)), trusted=()) == {}
    assert idle.counted(1) == 1  # recorded all the same


def test_with_snooping_off_the_bridge_forwards(idle, sent):
    idle.call(calls.PORT_MODE, 4, 1)
    for tags in ((), (10,), (10, 20)):
        frame = from_client(SOLICIT, CLIENT, tags=tags)
        assert sent(1, frame, trusted=()) == {port: [frame] for port in (2, 3, 4)}
    answer = from_server(REPLY, CLIENT)
    assert sent(3, answer, trusted=()) == {1: [answer]}
    assert idle.counted(1) == 0


def test_off_again_is_like_never_on(daemon, sent):
    daemon.call(calls.STOP)
    frame = from_client(SOLICIT, CLIENT)
    assert sent(1, frame, trusted=()) == {port: [frame] for port in (2, 3, 4)}
    answer = from_server(REPLY, CLIENT)
    assert sent(3, answer, trusted=()) == {1: [answer]}


def test_native_vlan_is_one(daemon, sent):
    sent(1, from_client(SOLICIT, CLIENT))
    sent(4, from_server(REPLY, CLIENT, ia_na(["2001:db8::7"])))
    assert daemon.clients()[CLIENT]["vlan"] == 1


@pytest.mark.parametrize("tags, vlan", [((10,), 10), ((20, 10), 20), ((0x8000 | 10,), 10), ((0,), 1)])
def test_the_outer_tag_is_the_vlan(daemon, sent, tags, vlan):
    sent(1, from_client(SOLICIT, CLIENT, tags=tags))
    sent(4, from_server(REPLY, CLIENT, ia_na(["2001:db8::7"]), tags=tags))
    assert daemon.clients()[CLIENT] == {"vlan": vlan, "port": 1, "leases": {"2001:db8::7/128": 7200}}
