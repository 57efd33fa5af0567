"""A bond that carries VLANs 10 and 20 with tags to the servers; clients of both VLANs, one of them behind a bond too."""

import pytest
from lab import bonds, calls, vlans
from lab.daemon import Daemon
from lab.frames import (
    ADVERTISE, REPLY, REQUEST, SOLICIT, UDP, ethernet, from_client, from_server, ia_na, ipv6, udp,
)  # fmt: skip
from lab.switch import Switch

pytestmark = pytest.mark.needs("bonding", "vlan_filtering")

CLIENT, ADDRESS = "02:aa:00:00:00:01", "2001:db8::7"
# The bond of ports 1 and 2 carries VLAN 10 without a tag and 20 with one. Port 3 is in VLAN 20.
TAGS = {("bond1", 10): (), ("bond1", 20): (20,), (3, 20): (), ("bond0", 10): (10,), ("bond0", 20): (20,)}
MEMBERS = {10: ("bond1", "bond0"), 20: ("bond1", 3, "bond0")}


@pytest.fixture
def switch():
    made = Switch(ports=5)
    vlans.filtering(made, default=0)
    bonds.make(made, "bond1", 1, 2)
    bonds.make(made, "bond0", 4, 5)
    vlans.trunked(made, "bond1", 20, native=10)
    vlans.access(made, 3, 20)
    vlans.trunked(made, "bond0", 10, 20)
    yield made
    made.close()


@pytest.fixture
def daemon(switch):
    made = Daemon(switch)
    try:
        made.start().snoop(4, 5)
        made.until(lambda: all(row["forwarding"] for row in calls.ports(made.link).values()), "all ports forward")
        yield made
    finally:
        made.close()


@pytest.fixture
def sent(switch):
    """sent(port, VLAN, make): make(tags) goes into the port, with the tags that the VLAN has there."""
    found = bonds.Flow(switch, bond1=(1, 2), bond0=(4, 5))

    def send(port, vlan, *makes, trusted=("bond0",), members=None):
        tags = TAGS[found.name(port), vlan]
        frames = [make(tags) for make in makes]
        return found.sent(port, *frames, trusted=trusted, tags=tags, members=members or MEMBERS[vlan])

    return send


def out(vlan, make, *places):
    """The frame at these places, as the VLAN has it there."""
    return {place: [make(TAGS[place, vlan])] for place in places}


def client(kind, mac=CLIENT):
    return lambda tags: from_client(kind, mac, tags=tags)


def server(kind, mac=CLIENT, options=b""):
    return lambda tags: from_server(kind, mac, options, tags=tags)


def packet(source, mac=CLIENT):
    segment = udp(source, "2001:db8:ff::1", 5000, 5001, b"x")
    return lambda tags: ethernet("02:dd:00:00:00:01", mac, ipv6(source, "2001:db8:ff::1", UDP, segment), tags=tags)


@pytest.mark.parametrize("ports, vlan", [((1, 2), 10), ((2, 1), 20), ((3, 3), 20)])
def test_exchanges_in_both_vlans(daemon, sent, ports, vlan):
    """Over either member at both ends: once out of the bond, in the right VLAN, with its tag where it has one."""
    place = "bond1" if ports[0] != 3 else 3
    assert [calls.ports(daemon.link)[port]["nativeVlan"] for port in range(1, 6)] == [10, 10, 20, 0, 0]
    unknown = server(ADVERTISE)
    assert sent(4, vlan, unknown) == out(vlan, unknown, *(other for other in MEMBERS[vlan] if other != "bond0"))
    reply = server(REPLY, options=ia_na([ADDRESS]))
    for port, ask, by, answer in ((ports[0], client(SOLICIT), 4, server(ADVERTISE)), (ports[1], client(REQUEST), 5, reply)):
        assert sent(port, vlan, ask) == out(vlan, ask, "bond0")
        assert sent(by, vlan, answer) == out(vlan, answer, place)
    assert daemon.clients()[CLIENT] == {"vlan": vlan, "port": ports[1], "leases": {f"{ADDRESS}/128": 7200}}
    assert daemon.counted_in_vlan(vlan) == 1


def test_the_same_station_behind_another_port_in_each_vlan(daemon, sent):
    """The bridge learns by VLAN: what is for the station goes to the bond in VLAN 10, to port 3 in VLAN 20."""
    for port, vlan in ((1, 10), (3, 20)):
        assert sent(port, vlan, client(SOLICIT)) == out(vlan, client(SOLICIT), "bond0")
    for by in (4, 5):
        for vlan, place in ((10, "bond1"), (20, 3)):
            assert sent(by, vlan, server(ADVERTISE)) == out(vlan, server(ADVERTISE), place)


def test_membership_of_the_bond_changes(switch, daemon, sent):
    vlans.leave(switch, "bond1", 20)
    daemon.until(lambda: vlans.known(daemon)[20][0] == [3, 4, 5], "the bond left VLAN 20")
    answer = server(ADVERTISE)
    assert sent(4, 20, answer, members=(3, "bond0")) == out(20, answer, 3)
    vlans.join(switch, "bond1", 20)
    daemon.until(lambda: vlans.known(daemon)[20][0] == [1, 2, 3, 4, 5], "the bond is in VLAN 20 again")
    assert sent(4, 20, answer) == out(20, answer, "bond1", 3)
    bonds.delete(switch, "bond0")
    bonds.make(switch, "bond0", 4, 5)
    vlans.trunked(switch, "bond0", 20)
    expected = {10: ([1, 2], [1, 2]), 20: ([1, 2, 3, 4, 5], [3])}
    daemon.until(lambda: vlans.known(daemon) == expected, "the new bond's VLANs are known")
    daemon.until(lambda: calls.ports(daemon.link)[4]["forwarding"] == 1, "the new bond forwards")
    assert sent(1, 20, client(SOLICIT)) == out(20, client(SOLICIT), "bond0")
    assert sent(5, 20, answer) == out(20, answer, "bond1")


@pytest.mark.parametrize("vlan", [10, 20])
def test_the_guard_of_a_bond_by_vlan(daemon, sent, vlan):
    """A binding with a VLAN holds on both members, for frames without a tag where the VLAN is native and with its tag else."""
    daemon.guard(1, 2)
    daemon.bind(ADDRESS, CLIENT, 2, vlan)
    bound, wrong, posing = packet(ADDRESS), packet("2001:db8::8"), packet(ADDRESS, "02:aa:00:00:00:02")
    for port in (1, 2):
        found = sent(port, vlan, bound, wrong, posing, trusted=())
        assert found == out(vlan, bound, *(other for other in MEMBERS[vlan] if other != "bond1"))
        assert sent(port, 30 - vlan, bound, trusted=()) == {}
    assert daemon.filters() == {(4, 2, vlan, CLIENT, ADDRESS): 1}
    assert daemon.guarded(1)["blocked"] == 6
