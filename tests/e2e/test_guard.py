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


def icmp(kind, source, mac=HOST, tags=(), first=ICMP6, headers=b""):
    return ethernet(NOWHERE, mac, ipv6(source, "ff02::1", first, headers + bytes([kind]) + bytes(23), 255), tags=tags)


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
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 8 - len(expected), "local": 0}
    assert idle.guarded(2) == {"guarded": 1, "installed": 1, "blocked": 1 + ("port" in kind), "local": 0}
    assert idle.guarded(3) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0}
    idle.unbind(BOUND)
    assert out(1, bound) == []
    assert idle.filters() == {}


def test_link_local_sources_are_counted_apart(idle, out):
    idle.guard(1)
    local = frames.link_local(HOST)
    assert out(1, *[packet(local, tags=tags) for tags in TAGS.values()], packet(UNBOUND)) == []
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 1, "local": len(TAGS)}
    idle.bind(local)
    assert out(1, packet(local)) == [packet(local)]
    idle.guard(1, mode=1)
    assert idle.guarded(1) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0}
    idle.guard(1)
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 0, "local": 0}


@TAGGINGS
def test_neighbour_discovery_and_listener_reports_stay_open(idle, switch, out, tags):
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")
    idle.guard(1)
    local = frames.link_local(HOST)
    alert = bytes([ICMP6, 0, 5, 2, 0, 0, 1, 0])
    passing = [icmp(kind, source, tags=tags) for kind in range(133, 138) for source in (local, "::", UNBOUND)]
    passing += [icmp(kind, local, tags=tags, first=HOP_BY_HOP, headers=alert) for kind in (131, 132, 143)]
    closed = [icmp(kind, local, tags=tags) for kind in (1, 128, 129, 130, 131, 132, 138, 143)]
    closed += [icmp(kind, local, tags=tags, first=HOP_BY_HOP, headers=alert) for kind in (128, 130, 135, 136)]
    closed += [icmp(135, local, tags=tags, first=FRAGMENT, headers=fragment_header(ICMP6, 0, False))]
    assert out(1, *passing, *closed) == passing
    assert idle.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 0, "local": len(closed)}


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


@pytest.mark.parametrize("tags", [(), (10,)], ids=["untagged", "tagged"])
def test_ra_guard_looks_behind_extension_headers(switch, out, tags):
    daemon = Daemon(switch, text=switch_file(switch.ports).replace('"p1"\n', '"p1"\nra_guard = true\n')).start()
    try:
        router = frames.link_local(HOST)
        daemon.guard(1)
        daemon.bind(router)
        hidden = [
            icmp(kind, router, tags=tags, first=first, headers=headers)
            for kind in (134, 137, 135)
            for first, headers in EXTENSIONS[:3]
            for headers in (headers(ICMP6),)
        ]
        assert out(1, *hidden) == hidden[6:]
    finally:
        daemon.close()


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


def test_ipv4_and_other_types_pass(idle, out):
    idle.guard(1)
    everybody, kinds = "ff:ff:ff:ff:ff:ff", (0x0800, 0x0806, 0x1234)
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
