"""Only bound sources pass a guarded port: each kind of filter, with no tag, one and two; what stays open beside; what nothing
opens."""

import pytest
from lab import frames, netns
from lab.daemon import ANY_MAC, Daemon, switch_file
from lab.frames import (
    AUTHENTICATION, DESTINATION, ETH_8021AD, FRAGMENT, HOP_BY_HOP, ROUTING, UDP, authentication_header, ethernet,
    fragment_header, ipv6, options_header, routing_header,
)  # fmt: skip

HOST, OTHER = "02:aa:00:00:00:01", "02:aa:00:00:00:02"
BOUND, UNBOUND = "2001:db8::1", "2001:db8::2"
NOWHERE = "02:dd:00:00:00:01"  # flooded
ICMP6 = 58

TAGS = {
    "untagged": (),
    "priority": (0,),
    "tagged": (10,),
    "service tag": ((10, ETH_8021AD),),
    "double": (10, 20),
    "service double": ((10, ETH_8021AD), 20),
    "priority double": (0, 20),
}
TAGGINGS = pytest.mark.parametrize("tags", TAGS.values(), ids=TAGS)

# What is bound of MAC, port and VLAN; with a zero MAC any will do.
KINDS = {
    "address": (),
    "MAC": ("mac",),
    "port": ("port",),
    "port and MAC": ("mac", "port"),
    "VLAN": ("port", "vlan"),
    "VLAN and MAC": ("mac", "port", "vlan"),
}


def vlan_of(tags):
    """The VLAN of a frame: its outer tag's, or the native one."""
    first = tags[0] if tags else 0
    return (first[0] if isinstance(first, tuple) else first) or 1


def in_other_vlan(tags):
    if not tags:
        return (30,)
    protocol = tags[0][1:] if isinstance(tags[0], tuple) else (frames.ETH_8021Q,)
    return ((30, *protocol), *tags[1:])


def packet(source, mac=HOST, tags=(), first=UDP, headers=b""):
    segment = frames.udp(source, "2001:db8:ff::1", 5000, 5001, b"data")
    return ethernet(NOWHERE, mac, ipv6(source, "2001:db8:ff::1", first, headers + segment), tags=tags)


TARGET = "2001:db8::77"


def icmp(kind, source, mac=HOST, tags=(), first=ICMP6, headers=b"", hops=255):
    body = bytes([kind]) + bytes(7) + frames.ip_bytes(TARGET) * 2  # of a redirect: target and destination
    return ethernet(NOWHERE, mac, ipv6(source, "ff02::1", first, headers + body, hops), tags=tags)


def report(kind, source, tags=(), hops=1):
    group = {143: "ff02::16", 132: "ff02::2"}.get(kind, "ff02::1:ff00:77")
    body = bytes([ICMP6, 0, 5, 2, 0, 0, 1, 0, kind]) + bytes(7) + frames.ip_bytes("ff02::1:ff00:77")
    return ethernet(NOWHERE, HOST, ipv6(source, group, HOP_BY_HOP, body, hops), tags=tags)


def flooded(port, *passing):
    return {other: list(passing) for other in (1, 2, 3, 4) if other != port} if passing else {}


@pytest.fixture
def out(sent):
    """out(port, frame...): which of the frames came out, of every other port alike."""

    def passing(port, *sending):
        found = sent(port, *sending, trusted=())
        seen = found.get(3 if port != 3 else 4, [])
        assert found == flooded(port, *seen)
        return seen

    return passing


@TAGGINGS
@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS)
def test_bound_passes_and_nothing_else(idle, out, kind, tags):
    idle.guard(1, 2)
    fields = {"mac": HOST, "port": 1, "vlan": vlan_of(tags)}
    bound, wrong, posing = packet(BOUND, tags=tags), packet(UNBOUND, tags=tags), packet(BOUND, OTHER, tags)
    elsewhere = packet(BOUND, tags=in_other_vlan(tags))
    assert out(1, bound, wrong, posing, elsewhere) == []
    assert out(2, bound) == []
    idle.bind(BOUND, **{name: fields[name] for name in kind})
    expected = [bound]
    if "mac" not in kind:
        expected.append(posing)
    if "vlan" not in kind:
        expected.append(elsewhere)
    assert out(1, bound, wrong, posing, elsewhere) == expected
    assert out(2, bound) == ([] if "port" in kind else [bound])
    assert out(3, bound, wrong) == [bound, wrong]  # not guarded
    assert list(idle.filters().values()) == [1]
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 8 - len(expected), "local": 0, "discovery": 0}
    assert idle.guarded(2) == {"guarded": 1, "installed": 1, "blocked": 1 + ("port" in kind), "local": 0, "discovery": 0}
    assert idle.guarded(3) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    idle.unbind(BOUND)
    assert out(1, bound) == []
    assert idle.filters() == {}


def test_link_local_sources_are_counted_apart(idle, out):
    idle.guard(1)
    local = frames.link_local(HOST)
    assert out(1, *[packet(local, tags=tags) for tags in TAGS.values()], packet(UNBOUND)) == []
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 1, "local": len(TAGS), "discovery": 0}
    idle.bind(local)
    assert out(1, packet(local)) == [packet(local)]
    idle.guard(1, mode=1)
    assert idle.guarded(1) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    idle.guard(1)
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 0, "local": 0, "discovery": 0}


@TAGGINGS
def test_neighbour_discovery_and_listener_reports_stay_open(idle, switch, out, tags):
    """In the form that RFC 4861 and 3810 give them; from elsewhere than the link they need a binding."""
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")
    idle.guard(1)
    local = frames.link_local(HOST)
    alert = bytes([ICMP6, 0, 5, 2, 0, 0, 1, 0])
    passing = [icmp(kind, local, tags=tags) for kind in range(133, 138)]
    passing += [report(kind, source, tags) for kind in (131, 132, 143) for source in (local, "::")]
    closed = [icmp(kind, local, tags=tags) for kind in (1, 128, 129, 130, 131, 132, 138, 143)]
    closed += [icmp(kind, local, tags=tags, hops=254) for kind in range(133, 138)]
    closed += [report(kind, local, tags) for kind in (128, 130, 135, 136)]
    closed += [report(143, local, tags, hops=2)]
    closed += [icmp(135, local, tags=tags, first=HOP_BY_HOP, headers=alert)]
    closed += [icmp(135, local, tags=tags, first=FRAGMENT, headers=fragment_header(ICMP6, 0, False))]
    elsewhere = [icmp(kind, source, tags=tags) for kind in range(133, 138) for source in ("::", UNBOUND)]
    assert out(1, *passing, *closed, *elsewhere) == passing
    counted = {"blocked": len(elsewhere), "local": len(closed), "discovery": 0}
    assert idle.guarded(1) == {"guarded": 1, "installed": 1} | counted
    idle.bind(UNBOUND)
    bound = [icmp(kind, UNBOUND, tags=tags) for kind in range(133, 138)]
    assert out(1, *bound) == bound


@TAGGINGS
def test_ra_guard_closes_router_advertisements_and_redirects(switch, out, tags):
    daemon = Daemon(switch, text=switch_file(switch.ports).replace('"p1"\n', '"p1"\nra_guard = true\n')).start()
    try:
        router = frames.link_local(HOST)
        messages = [icmp(kind, router, tags=tags) for kind in range(133, 138)]
        assert out(1, *messages) == messages  # an open port is open
        daemon.guard(1, 2)
        passing = [messages[0], messages[2], messages[3]]
        assert out(1, *messages) == passing
        assert out(2, *messages) == messages
        daemon.bind(router)
        daemon.exempt(vlan_of(tags))
        assert out(1, *messages) == passing  # not even from where everything else may come
        assert daemon.guarded(1)["blocked"] == 4
        daemon.guard(1, mode=1)
        assert out(1, *messages) == messages
    finally:
        daemon.close()


@TAGGINGS
def test_ra_guard_looks_behind_extension_headers(switch, out, tags):
    daemon = Daemon(switch, text=switch_file(switch.ports).replace('"p1"\n', '"p1"\nra_guard = true\n')).start()
    try:
        router = frames.link_local(HOST)
        daemon.guard(1)
        daemon.bind(router)
        chained = {
            kind: [icmp(kind, router, tags=tags, first=first, headers=make(ICMP6)) for first, make in CHAINS]
            for kind in (134, 135, 137)
        }
        hidden, solicitation = chained[134] + chained[137], chained[135]
        assert out(1, *hidden) == []
        readable = solicitation[:3] if len(tags) == 2 else solicitation
        assert out(1, *readable) == readable
        assert daemon.guarded(1) == {"guarded": 1, "installed": 1, "blocked": len(hidden), "local": 0, "discovery": 0}
    finally:
        daemon.close()


@TAGGINGS
def test_ra_guard_blocks_chains_whose_end_it_cannot_read(switch, out, tags):
    """Whoever is bound: what stands at the end of the chain could be a router advertisement."""
    daemon = Daemon(switch, text=switch_file(switch.ports).replace('"p1"\n', '"p1"\nra_guard = true\n')).start()
    try:
        daemon.guard(1).bind(BOUND, HOST, 1)
        cut = [packet(BOUND, tags=tags, first=first, headers=make(ICMP6))[: 14 + 4 * len(tags) + 44] for first, make in CHAINS]
        unknown = [packet(BOUND, tags=tags, first=200)]
        unknown += [packet(BOUND, tags=tags, first=DESTINATION, headers=options_header(200))]
        unknown += [packet(BOUND, tags=tags, first=AUTHENTICATION, headers=authentication_header(ICMP6))]
        first_piece = [packet(BOUND, tags=tags, first=FRAGMENT, headers=fragment_header(DESTINATION, 0, True) + b"\x3a")]
        first_piece[0] = first_piece[0][: 14 + 4 * len(tags) + 49]
        assert out(1, *cut, *unknown, *first_piece) == []
        assert daemon.guarded(1)["blocked"] == len(cut) + len(unknown) + 1
        passing = [packet(BOUND, tags=tags), packet(BOUND, tags=tags, first=ICMP6)]
        passing += [packet(BOUND, tags=tags, first=first, headers=make(UDP)) for first, make in (CHAINS[0], CHAINS[2])]
        passing += [packet(BOUND, tags=tags, first=FRAGMENT, headers=fragment_header(ICMP6, 1480, False))]
        assert out(1, *passing) == passing
    finally:
        daemon.close()


CHAINS = [
    (HOP_BY_HOP, options_header),
    (ROUTING, lambda following: options_header(following)),
    (DESTINATION, options_header),
    (DESTINATION, lambda following: options_header(following, 64)),
    (HOP_BY_HOP, lambda following: options_header(DESTINATION) + options_header(following)),
    (HOP_BY_HOP, lambda following: options_header(ROUTING) + options_header(DESTINATION) + options_header(following)),
]


EXTENSIONS = [
    (HOP_BY_HOP, options_header),
    (DESTINATION, lambda following: options_header(following, 64)),
    (HOP_BY_HOP, lambda following: options_header(DESTINATION) + options_header(following)),
    (ROUTING, routing_header),
    (AUTHENTICATION, authentication_header),
    (FRAGMENT, lambda following: fragment_header(following, 0, True)),
    (FRAGMENT, lambda following: fragment_header(following, 1480, False)),
]


@TAGGINGS
def test_extension_headers_and_fragments_change_nothing(idle, out, tags):
    idle.guard(1).bind(BOUND, HOST, 1)
    passing = [packet(BOUND, tags=tags, first=first, headers=make(UDP)) for first, make in EXTENSIONS]
    closed = [packet(UNBOUND, tags=tags, first=first, headers=make(UDP)) for first, make in EXTENSIONS]
    # A bound address in the payload, where a careless reader would look.
    inner = frames.ip_bytes(BOUND) * 4
    closed += [packet(UNBOUND, tags=tags, first=DESTINATION, headers=options_header(UDP, 8)[:8] + inner)]
    assert out(1, *passing, *closed) == passing
    assert idle.guarded(1)["blocked"] == len(closed)


@TAGGINGS
def test_cut_frames_do_not_pass(idle, out, tags):
    idle.guard(1).bind(BOUND, HOST, 1)
    whole = packet(BOUND, tags=tags)
    header = 14 + 4 * len(tags)
    cut = [whole[: header + length] for length in (2, 7, 8, 23)]  # the source ends at 24
    assert out(1, *cut, whole) == [whole]
    assert idle.guarded(1)["blocked"] == len(cut)


@pytest.mark.parametrize("outer", [frames.ETH_8021Q, ETH_8021AD], ids=["8021q", "8021ad"])
def test_three_tags_never_pass(idle, out, outer):
    idle.bind(BOUND)
    idle.exempt(1, 10, 20, 30)
    deep = [packet(BOUND, tags=tags) for tags in (((10, outer), 20, 30), ((0, outer), 0, 0, 0), ((10, outer),) * 5)]
    assert out(1, *deep) == deep
    idle.guard(1)
    assert out(1, *deep) == []
    assert idle.guarded(1)["blocked"] == len(deep)


def snap(kind, payload, tags=(), address=0xAAAA, oui=0):
    """An 802.3 frame with a SNAP header, after the tags."""
    llc = address.to_bytes(2, "big") + b"\x03" + oui.to_bytes(3, "big") + kind.to_bytes(2, "big")
    return ethernet("ff:ff:ff:ff:ff:ff", HOST, llc + payload, len(llc + payload), tags)


@pytest.mark.parametrize("tags", [(), (0,), (10,), (10, 20), (0, 0)], ids=["none", "priority", "one", "two", "priorities"])
def test_ipv6_in_snap_does_not_pass(idle, out, tags):
    """Some hosts take it for IPv6, even from a source that is bound: the filters do not read there."""
    segment = packet(BOUND)[14:]
    tag = bytes([0, 10]) + (0x86DD).to_bytes(2, "big")
    closed = [snap(0x86DD, segment, tags, oui=oui) for oui in (0, 0xF8)]
    closed += [snap(0x86DD, segment, tags, address=address) for address in (0xABAA, 0xAAAB, 0xABAB)]
    closed += [snap(kind, tag + segment, tags) for kind in (0x8100, 0x88A8, 0x9100)]
    passing = [snap(0x0800, segment, tags), snap(0x2000, segment, tags, oui=0xC), snap(0x86DD, segment, tags, address=0x4242)]
    assert out(1, *closed, *passing) == [*closed, *passing]
    idle.guard(1).bind(BOUND)
    idle.exempt(1, 10)
    assert out(1, *closed, *passing) == passing
    assert idle.guarded(1)["blocked"] == len(closed)


@pytest.mark.parametrize("tags", [(), (10,), (10, 20)], ids=["none", "one", "two"])
def test_a_tag_of_no_standard_that_carries_ipv6_does_not_pass(idle, out, tags):
    odd = (30, 0x9100)
    inner = packet(BOUND)[14:]
    closed = [packet(BOUND, tags=(*tags, odd, *more)) for more in ((), (20,), ((20, ETH_8021AD),), (odd,))]
    closed += [snap(0x86DD, inner, (*tags, odd), address=address) for address in (0xAAAA, 0xABAB)]
    passing = [ethernet("ff:ff:ff:ff:ff:ff", HOST, bytes(46), kind, (*tags, odd)) for kind in (0x0800, 0x1234)]
    assert out(1, *closed, *passing) == [*closed, *passing]
    idle.guard(1).bind(BOUND)
    assert out(1, *closed, *passing) == passing
    assert idle.guarded(1)["blocked"] == len(closed)


@pytest.mark.parametrize("source", ["::", "::1", "ff02::1", "ff0e::1", "::ffff:192.0.2.1"])
def test_a_source_that_nobody_has_is_never_let_in(idle, out, source):
    idle.guard(1)
    for kind in KINDS.values():
        fields = {"mac": HOST, "port": 1, "vlan": 1}
        idle.bind(source, **{name: fields[name] for name in kind})
        assert idle.filters() == {}
        assert out(1, packet(source), packet(source, tags=(1,))) == []
        idle.unbind(source)


def test_ipv4_and_other_types_pass(idle, out):
    idle.guard(1)
    everybody, kinds = "ff:ff:ff:ff:ff:ff", (0x0800, 0x0806, 0x1234, 46)
    others = [ethernet(everybody, HOST, bytes(46), kind, tags) for kind in kinds for tags in TAGS.values()]
    assert out(1, *others) == others


def by_exemption(*vlans):
    return [packet(UNBOUND, tags=tags) for tags in TAGS.values() if vlan_of(tags) in vlans]


@pytest.mark.parametrize("first", ["exempt", "guard"])
def test_exempt_vlans(idle, out, first):
    every = by_exemption(1, 10)
    assert len(every) == len(TAGS)
    if first == "guard":
        idle.guard(1)
        assert out(1, *every) == []
    idle.exempt(10)  # whether or not a port is guarded
    idle.guard(1)
    assert out(1, *every) == by_exemption(10)
    idle.exempt(1)
    assert out(1, *every) == every
    assert out(1, packet(UNBOUND, tags=(1,)), packet(UNBOUND, tags=(11,))) == [packet(UNBOUND, tags=(1,))]
    idle.exempt(10, operation=1)
    assert out(1, *every) == by_exemption(1)
    idle.guard(1, mode=1)
    idle.guard(2)
    assert out(2, *every) == by_exemption(1)
    idle.exempt(1, operation=1)
    assert out(2, *every) == []


def test_exemption_while_no_port_is_guarded(idle, switch):
    before = switch.ruleset()
    idle.exempt(1, 10, 4094)
    elements = netns.run(switch.namespace, "nft", "list", "set", "bridge", "snoopd6", "exempt_vlan")
    assert all(text in elements for text in ("0x1,", "0xa,", "0xffe "))
    idle.guard(1).guard(1, mode=1)
    idle.exempt(1, 10, 4094, operation=1)
    assert switch.ruleset() == before


def test_bindings_wait_for_a_guarded_port(idle, out):
    idle.bind(BOUND)
    idle.bind("2001:db8::3", OTHER, 2)
    assert idle.filters() == {}
    idle.guard(1)
    assert idle.filters() == {(1, 0, 0, ANY_MAC, BOUND): 1}
    idle.guard(2)
    assert idle.filters() == {(1, 0, 0, ANY_MAC, BOUND): 1, (3, 2, 0, OTHER, "2001:db8::3"): 1}
    assert out(2, packet("2001:db8::3", OTHER), packet("2001:db8::3")) == [packet("2001:db8::3", OTHER)]
    idle.guard(1, mode=1)
    assert out(2, packet(BOUND)) == [packet(BOUND)]
    idle.guard(2, mode=1)
    assert idle.filters() == {}


def test_everything_taken_back_leaves_the_ruleset_as_it_was(idle, switch):
    before = switch.ruleset()
    for number, kind in enumerate(KINDS.values()):
        fields = {"mac": frames.mac_number(number), "port": 1, "vlan": 1}
        idle.bind(f"2001:db8::{number}", **{name: fields[name] for name in kind})
    idle.guard(1, 2)
    assert len(idle.filters()) == len(KINDS) and set(idle.filters().values()) == {1}
    idle.guard(2, 1, mode=1)
    assert switch.ruleset() == before


def test_a_tag_that_is_payload_to_the_bridge_names_no_vlan(idle, switch, out):
    """The daemon fills the set when the bridge filters VLANs, which not every kernel offers; here it is filled by hand."""
    netns.run(switch.namespace, "nft", "add element bridge snoopd6 foreign_tag { 0x88a8 }")
    idle.guard(1).exempt(10)
    idle.bind(BOUND, HOST, 1, 10)
    idle.bind("2001:db8::3", OTHER, 1, 1)
    foreign = [TAGS["service tag"], TAGS["service double"]]
    closed = [packet(source, tags=tags) for source in (UNBOUND, BOUND) for tags in foreign]
    passing = [packet("2001:db8::3", OTHER, tags) for tags in foreign]
    passing += [packet(UNBOUND, tags=(10,)), packet(BOUND, tags=(10, 20))]
    assert out(1, *closed, *passing) == passing
    assert idle.guarded(1)["blocked"] == len(closed)
