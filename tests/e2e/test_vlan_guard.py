"""The source guard on a bridge that filters VLANs: the four kinds of filters on ports without tags, with tags and with both;
what a tag means there.

Ports 1 and 3 are in VLAN 10 without a tag, port 3 in VLAN 20 with one, port 2 carries both tagged; port 4 hears everything."""

import itertools

import pytest
from lab import frames, netns
from lab.daemon import Daemon, switch_file
from lab.frames import ETH_8021AD, INFORMATION_REQUEST, REPLY, SOLICIT, from_client, from_server, link_local
from lab.vlans import Places

from test_guard import BOUND, HOST, KINDS, OTHER, UNBOUND, icmp, packet

pytestmark = pytest.mark.needs("vlan_filtering")

PLACES = {1: (10,), 2: (0, 10, 20), 3: (10, 20), 4: (0, 10, 20, 30)}
WHERE = [(1, 10), (2, 10), (2, 20), (3, 10), (3, 20)]  # port and VLAN
NAMES = [f"port {port}, VLAN {vlan}" for port, vlan in WHERE]
THIRD = "02:aa:00:00:00:03"
SERVICE = (30, ETH_8021AD)  # payload on a bridge that filters by 802.1Q tags


@pytest.fixture(autouse=True)
def places(switch):
    return Places(switch, PLACES)


class Passing:
    """What passes a port, as the tags and contents that port 4 sees; the other members of the VLAN must see the same."""

    def __init__(self, places):
        self.places = places

    def __call__(self, port, *sending, trusted=()):
        """`sending` are (VLAN, inner tags, frame as a function of its tags). Returns which of them came out."""
        tagged = [(vlan, inner, make, make(self.places.tags(port, vlan, *inner))) for vlan, inner, make in sending]
        found = self.places.sent(port, *[frame for *_, frame in tagged], trusted=trusted)
        passed, expected = [], {}
        for vlan, inner, make, _ in tagged:
            if make(self.places.tags(4, vlan, *inner)) in found.get(4, []):
                passed.append((vlan, inner, make))
                for other, copies in self.places.flooded(vlan, make, port, *inner).items():
                    expected.setdefault(other, []).extend(copies)
        assert found == expected
        return passed


@pytest.fixture
def out(places):
    return Passing(places)


@pytest.fixture
def sent_by(places):
    """Whether a frame sent into a port comes out of port 4."""
    return lambda port, frame: 4 in places.sent(port, frame, trusted=())


def of(source, mac=HOST, vlan=10, inner=()):
    return (vlan, inner, lambda tags: packet(source, mac, tags))


def same(passed, expected):
    """Whether these are the same frames in the same order."""
    return [one[:2] + (one[2](()),) for one in passed] == [one[:2] + (one[2](()),) for one in expected]


@pytest.mark.parametrize("port, vlan", WHERE, ids=NAMES)
def test_bound_passes_and_nothing_else(idle, out, port, vlan):
    """Each kind of filter, alone; with an inner tag as well as without."""
    idle.guard(1, 2, 3)
    elsewhere = 2 if port != 2 else 3
    other = 30 - vlan
    blocked = dict.fromkeys((1, 2, 3), 0)
    places = out.places
    for kind, depth in itertools.product(KINDS.values(), ((), ((7, ETH_8021AD),))):
        fields = {"mac": HOST, "port": port, "vlan": vlan}
        bound, wrong, posing = of(BOUND, HOST, vlan, depth), of(UNBOUND, HOST, vlan, depth), of(BOUND, OTHER, vlan, depth)
        crossing = [of(BOUND, HOST, other, depth)] if other in (places.native[port], *places.tagged[port]) else []
        idle.bind(BOUND, **{name: fields[name] for name in kind})
        expected = [bound]
        if "mac" not in kind:
            expected.append(posing)
        if "vlan" not in kind:
            expected += crossing
        sending = [bound, wrong, posing, *crossing]
        assert same(out(port, *sending), expected), kind
        there = of(BOUND, HOST, vlan if vlan in places.tagged[elsewhere] else 10, depth)
        assert same(out(elsewhere, there), [] if "port" in kind else [there]), kind
        blocked[port] += len(sending) - len(expected)
        blocked[elsewhere] += "port" in kind
        assert list(idle.filters().values()) == [1]
        idle.unbind(BOUND)
        assert out(port, bound) == []
        blocked[port] += 1
    assert {number: idle.guarded(number)["blocked"] for number in (1, 2, 3)} == blocked
    assert idle.filters() == {}


def test_a_binding_of_the_native_vlan_counts_with_and_without_a_tag(idle, sent_by):
    """A member may tag its native VLAN, or only set a priority; the bridge takes it all for the same VLAN."""
    idle.guard(3).bind(BOUND, HOST, 3, 10)
    idle.bind("2001:db8::3", OTHER, 3, 20)
    ways = [(), (10,), (0,), (0x6000,), (0xE00A,), (SERVICE,), (0, 5), (10, 5)]
    for tags in ways:
        assert sent_by(3, packet(BOUND, HOST, tags)), tags
        for source, mac in ((BOUND, OTHER), (UNBOUND, HOST), ("2001:db8::3", OTHER)):
            assert not sent_by(3, packet(source, mac, tags)), tags
    for tags in ((20,), (0x6014,), (20, 10), (20, 5), (20, SERVICE)):
        assert sent_by(3, packet("2001:db8::3", OTHER, tags)), tags
        assert not sent_by(3, packet(BOUND, HOST, tags)), tags
    assert idle.guarded(3) == {"guarded": 1, "installed": 1, "blocked": 3 * len(ways) + 5, "local": 0, "discovery": 0}


def test_what_the_bridge_refuses_no_binding_lets_in(idle, places):
    idle.guard(1, 2).bind(BOUND)
    idle.exempt(1, 10, 20, 30)
    wrong = [packet(BOUND, HOST, tags) for tags in ((20,), (30,), (20, 10), (4095,))]
    assert places.sent(1, *wrong, trusted=()) == {}
    native = [packet(BOUND, HOST, tags) for tags in ((), (0,), (SERVICE,), (30,), (1,))]
    assert places.sent(2, *native, trusted=()) == {}


@pytest.mark.parametrize("port, vlan", WHERE, ids=NAMES)
def test_exempt_vlans(idle, out, port, vlan):
    idle.guard(1, 2, 3)
    other = 30 - vlan
    every = [of(UNBOUND, HOST, vlan), of(UNBOUND, HOST, vlan, (SERVICE,))]
    assert out(port, *every) == []
    idle.exempt(other)
    assert out(port, *every) == []
    idle.exempt(vlan)
    assert same(out(port, *every), every)
    idle.exempt(vlan, operation=1)
    assert out(port, *every) == []


def test_neighbour_discovery_and_ra_guard(switch, out):
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")
    lines = {3: "ra_guard = true\n"}
    daemon = Daemon(switch, text=switch_file(switch.ports, lines=lines)).start()
    try:
        daemon.guard(1, 2, 3)
        router = link_local(HOST)
        for port, vlan in WHERE:
            for inner in ((), (SERVICE,)):
                messages = [(vlan, inner, lambda tags, kind=kind: icmp(kind, router, HOST, tags)) for kind in range(133, 138)]
                echo = (vlan, inner, lambda tags: icmp(128, router, HOST, tags))
                closed = (134, 137) if port == 3 else ()
                expected = [message for kind, message in zip(range(133, 138), messages) if kind not in closed]
                assert same(out(port, *messages, echo), expected), (port, vlan, inner)
        assert daemon.guarded(3) == {"guarded": 1, "installed": 1, "blocked": 8, "local": 4, "discovery": 0}
        assert daemon.guarded(2) == {"guarded": 1, "installed": 1, "blocked": 0, "local": 4, "discovery": 0}
        daemon.bind(router)
        daemon.exempt(10, 20)
        hello = (10, (), lambda tags: icmp(134, router, HOST, tags))
        assert out(3, hello) == [] and same(out(1, hello), [hello])
    finally:
        daemon.close()


def test_dhcpv6_passes_the_guard_in_its_vlan(daemon, places):
    """And opens the address that was leased, there and nowhere else."""
    daemon.guard(1, 2, 3)
    for number, (port, vlan) in enumerate(WHERE, 1):
        mac, address = frames.mac_number(number), f"2001:db8::{number}"
        here, there = places.tags(port, vlan), places.tags(4, vlan)
        leased = of(address, mac)[2]
        assert places.sent(port, leased(here)) == {}
        assert places.sent(port, from_client(SOLICIT, mac, tags=here)) == {4: [from_client(SOLICIT, mac, tags=there)]}
        options = frames.ia_na([address])
        reply = from_server(REPLY, mac, options, tags=there)
        assert places.sent(4, reply) == {port: [from_server(REPLY, mac, options, tags=here)]}
        assert places.sent(port, leased(here)) == places.flooded(vlan, leased, port)
        assert daemon.filters()[(4, port, vlan, mac, address)] == 1
        assert daemon.guarded(port)["local"] == 0
    assert len(daemon.filters()) == len(WHERE)
    rogue = from_server(REPLY, frames.mac_number(1), tags=(10,))
    assert places.sent(2, rogue) == {}


def test_a_provider_bridge(idle, switch):
    """Filters go by the service tag; what the customer put behind it names no VLAN."""
    places = Places(switch, PLACES, "802.1ad")
    idle.until(lambda: "elements = { 8021q }" in switch.ruleset(), "the new type of tags is known")
    out = Passing(places)
    idle.guard(1, 2, 3).exempt(20)
    idle.bind(BOUND, HOST, 1, 10)
    idle.bind("2001:db8::2", THIRD, 2, 10)
    for inner in ((), (5,), (20,), (0,)):
        bound = of(BOUND, HOST, 10, inner)
        assert same(out(1, bound, of(UNBOUND, HOST, 10, inner), of(BOUND, OTHER, 10, inner)), [bound])
        bound = of("2001:db8::2", THIRD, 10, inner)
        exempt = of(UNBOUND, HOST, 20, inner)
        assert same(out(2, bound, of(BOUND, HOST, 10, inner), exempt), [bound, exempt])
    deep = of(BOUND, HOST, 10, (5, 6))  # as it came it has two tags, which can be read
    assert same(out(1, deep, of(UNBOUND, HOST, 10, (5, 6)), of(BOUND, HOST, 10, (5, 6, 7))), [deep])
    assert idle.guarded(1)["blocked"] == 10 and idle.guarded(2)["blocked"] == 4


def test_trapped_whatever_the_vlan_and_nothing_else_is(daemon, places):
    """Other packets from and to the ports of DHCPv6 clients, and DHCPv6 that is refused, are not mixed up."""
    other = of(BOUND)[2]
    for port, vlan in WHERE:
        assert places.sent(port, other(places.tags(port, vlan))) == places.flooded(vlan, other, port)
        kept = from_client(INFORMATION_REQUEST, HOST, tags=places.tags(port, vlan))
        assert list(places.sent(port, kept)) == [4]
        refused = from_server(REPLY, OTHER, tags=places.tags(port, vlan))
        assert places.sent(port, refused) == {}


def test_counters_of_the_status_table_are_the_kernels(idle, switch, places):
    idle.guard(3)
    for tags in ((), (20,), (0,), (20, 5)):
        assert places.sent(3, packet(UNBOUND, HOST, tags), packet(link_local(HOST), HOST, tags), trusted=()) == {}
    assert idle.guarded(3) == {"guarded": 1, "installed": 1, "blocked": 4, "local": 4, "discovery": 0}
    said = netns.run(switch.namespace, "nft", "list", "set", "bridge", "snoopd6", "blocked")
    assert "p3" in said and "packets 4 " in said
    assert idle.guarded(1)["blocked"] == 0
