"""Clients behind a bond: the ports 1 and 2 are one way to them. The core counts by the port that a message came by; the
kernel's filters know the bond alone."""

import pytest
from lab import bonds, calls
from lab.daemon import Daemon
from lab.frames import (
    ADVERTISE, RELEASE, REPLY, REQUEST, SOLICIT, UDP, ethernet, from_client, from_server, ia_na, ipv6, mac_number, option, udp,
)  # fmt: skip

pytestmark = pytest.mark.needs("bonding")

CLIENT, OTHER = "02:aa:00:00:00:01", "02:aa:00:00:00:02"
ADDRESS = "2001:db8::7"


@pytest.fixture
def daemon(switch):
    bonds.make(switch, "bond3", 1, 2)
    made = Daemon(switch)
    try:
        made.start().snoop(4)
        made.until(lambda: all(row["forwarding"] for row in calls.ports(made.link).values()), "all ports forward")
        yield made
    finally:
        made.close()


@pytest.fixture
def sent(switch):
    found = bonds.Flow(switch, bond3=(1, 2))
    return lambda port, *frames, trusted=(4,), **words: found.sent(port, *frames, trusted=trusted, **words)


def learn(sent, port, mac, address):
    request, reply = from_client(REQUEST, mac), from_server(REPLY, mac, ia_na([address]))
    assert sent(port, request) == {4: [request]}
    assert sent(4, reply) == {"bond3": [reply]}


def counted(daemon):
    return [daemon.counted(port) for port in (1, 2)]


def packet(source, mac):
    segment = udp(source, "2001:db8:ff::1", 5000, 5001, b"x")
    return ethernet("02:dd:00:00:00:01", mac, ipv6(source, "2001:db8:ff::1", UDP, segment))


def passes(sent, port, *packets):
    """Which of the packets the bridge lets in."""
    found = sent(port, *packets, trusted=())
    assert found in ({}, {other: found.get(4) for other in (3, 4)})
    return found.get(4, [])


def test_a_client_changes_members_in_the_middle_of_an_exchange(daemon, sent):
    """Its place in the table is the port of its last message; what is for it goes out of the bond, once."""
    solicit, advertise = from_client(SOLICIT, CLIENT), from_server(ADVERTISE, CLIENT)
    for first, second in ((1, 2), (2, 1)):
        assert sent(first, solicit) == {4: [solicit]}
        assert sent(4, advertise) == {"bond3": [advertise]}
        assert counted(daemon) == [first == 1, first == 2]
        learn(sent, second, CLIENT, ADDRESS)
        assert daemon.clients()[CLIENT] == {"vlan": 1, "port": second, "leases": {f"{ADDRESS}/128": 7200}}
        assert counted(daemon) == [second == 1, second == 2]
    assert {port: row["trunk"] for port, row in calls.ports(daemon.link).items()} == {1: 3, 2: 3, 3: calls.NONE, 4: calls.NONE}


def test_what_is_flooded_goes_out_of_the_bond_once(daemon, sent):
    for kind in (ADVERTISE, REPLY):
        answer = from_server(kind, CLIENT)
        assert sent(4, answer) == {"bond3": [answer], 3: [answer]}
    wide = from_server(ADVERTISE, CLIENT, destination="ff:ff:ff:ff:ff:ff")
    assert sent(4, wide) == {"bond3": [wide], 3: [wide]}


def test_a_client_gives_back_its_lease_by_the_other_member(daemon, sent):
    learn(sent, 1, CLIENT, ADDRESS)
    release = from_client(RELEASE, CLIENT, option(1, b"12345678") + ia_na([ADDRESS]))
    assert sent(2, release) == {4: [release]}
    assert daemon.clients() == {}
    assert counted(daemon) == [0, 0]


def test_limits_are_those_of_the_member(daemon, sent):
    daemon.call(calls.PORT_MAX, 1, 1)
    learn(sent, 1, CLIENT, ADDRESS)
    other, moved = from_client(SOLICIT, OTHER), from_client(REQUEST, CLIENT)
    assert sent(1, other) == {}
    assert sent(2, other) == {4: [other]}
    daemon.call(calls.PORT_MAX, 2, 1)
    assert sent(2, moved) == {}  # recorded at port 1
    assert daemon.clients()[CLIENT]["port"] == 1
    assert counted(daemon) == [1, 1]


def test_a_guarded_bond_lets_bound_sources_in_by_either_member(daemon, sent):
    daemon.guard(1, 2)
    learn(sent, 1, CLIENT, ADDRESS)
    bound, posing, wrong = packet(ADDRESS, CLIENT), packet(ADDRESS, OTHER), packet("2001:db8::8", CLIENT)
    for port in (1, 2):
        assert passes(sent, port, bound, posing, wrong) == [bound]
    learn(sent, 2, CLIENT, ADDRESS)  # the filter of one port goes, the other's, the same in the kernel, stays
    assert daemon.filters() == {(4, 2, 1, CLIENT, ADDRESS): 1}
    for port in (1, 2):
        assert passes(sent, port, bound, posing, wrong) == [bound]
    assert [daemon.guarded(port) for port in (1, 2)] == 2 * [{"guarded": 1, "installed": 1, "blocked": 8, "local": 0, "discovery": 0}]
    daemon.bind("2001:db8::8", CLIENT, 1, 1)
    for port in (1, 2):
        assert passes(sent, port, bound, posing, wrong) == [wrong]  # who is bound has that address only


def test_a_guard_on_one_member_closes_the_bond(daemon, sent):
    """The kernel cannot tell the members apart. Who is learned at the other one has no filter, so both need the guard."""
    daemon.guard(2)
    learn(sent, 1, CLIENT, ADDRESS)
    bound = packet(ADDRESS, CLIENT)
    for port in (1, 2):
        assert passes(sent, port, bound) == []
    daemon.guard(1)
    for port in (1, 2):
        assert passes(sent, port, bound) == [bound]
    daemon.guard(2, mode=calls.GUARD_OFF)
    wrong = packet("2001:db8::8", CLIENT)
    for port in (1, 2):
        assert passes(sent, port, bound, wrong) == [bound]
    daemon.guard(1, mode=calls.GUARD_OFF)
    assert passes(sent, 2, bound, wrong) == [bound, wrong]


@pytest.mark.parametrize("mode", ["balance-rr", "active-backup"])
def test_a_member_fails(switch, daemon, sent, mode):
    """Its clients are forgotten, and their filters with them; they ask anew by the other member. Those of the other stay."""
    bonds.delete(switch, "bond3")
    bonds.make(switch, "bond3", 1, 2, mode=mode)
    daemon.until(lambda: any(calls.ports(daemon.link)[port]["forwarding"] for port in (1, 2)), "the bond forwards")
    first = 2 if calls.ports(daemon.link)[1]["forwarding"] == 0 else 1
    second = 3 - first
    daemon.guard(1, 2)
    learn(sent, first, CLIENT, ADDRESS)
    assert sent(first, from_client(SOLICIT, OTHER)) == {4: [from_client(SOLICIT, OTHER)]}
    bound = packet(ADDRESS, CLIENT)
    assert passes(sent, first, bound) == [bound]
    bonds.cable(switch, first, "down")
    daemon.until(lambda: counted(daemon) == [0, 0], "the clients of the member go")
    daemon.until(lambda: calls.ports(daemon.link)[second]["forwarding"] == 1, "the other member is used")
    assert daemon.filters() == {}
    assert passes(sent, second, bound) == []
    advertise = from_server(ADVERTISE, OTHER)
    assert sent(4, advertise) == {"bond3": [advertise]}
    learn(sent, second, CLIENT, ADDRESS)
    learn(sent, second, OTHER, "2001:db8::8")
    assert passes(sent, second, bound) == [bound]
    bonds.cable(switch, first, "up")
    daemon.until(lambda: calls.ports(daemon.link)[first]["link"] == 1, "the member is back")
    assert counted(daemon) == [2 * (second == 1), 2 * (second == 2)]
    assert passes(sent, second, bound) == [bound]


def test_filters_follow_the_members_into_the_bond_and_out_of_it(switch, daemon, sent):
    daemon.guard(1, 2)
    learn(sent, 2, CLIENT, ADDRESS)
    bound, wrong = packet(ADDRESS, CLIENT), packet("2001:db8::8", CLIENT)
    daemon.call(calls.FAST_REMOVE, 0)  # a port goes down when it joins or leaves
    bonds.leave(switch, 2)
    daemon.until(lambda: [calls.ports(daemon.link)[2][what] for what in ("trunk", "forwarding")] == [calls.NONE, 1], "alone")
    alone = bonds.Flow(switch, bond3=(1,))
    for port, letting in ((2, [bound]), (1, [])):
        others = {other: letting for other in ({"bond3", 2} - {alone.name(port)}) | {3, 4} if letting}
        assert alone.sent(port, bound, wrong, trusted=()) == others
    assert daemon.filters() == {(4, 2, 1, CLIENT, ADDRESS): 1}
    bonds.join(switch, 2, "bond3")
    daemon.until(lambda: [calls.ports(daemon.link)[2][what] for what in ("trunk", "forwarding")] == [3, 1], "a member again")
    for port in (1, 2):
        assert passes(sent, port, bound, wrong) == [bound]
    assert daemon.filters() == {(4, 2, 1, CLIENT, ADDRESS): 1}
    bonds.delete(switch, "bond3")
    daemon.until(lambda: calls.ports(daemon.link)[2]["trunk"] == calls.NONE, "the bond is gone")
    bonds.make(switch, "bond3", 1, 2)
    daemon.until(lambda: [calls.ports(daemon.link)[2][what] for what in ("trunk", "forwarding")] == [3, 1], "there is a bond")
    for port in (1, 2):
        assert passes(sent, port, bound, wrong) == [bound]
