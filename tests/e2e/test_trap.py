"""DHCPv6 cannot slip past the daemon behind extension headers or in fragments, and nothing but DHCPv6 is held up."""

import pytest
from lab import calls, frames, netns
from lab.frames import (
    ADVERTISE, AUTHENTICATION, CLIENT_PORT, DESTINATION, FRAGMENT, HIP, HOP_BY_HOP, MOBILITY, NO_NEXT, REPLY, ROUTING,
    SERVER_PORT, SERVERS, SERVERS_MAC, SHIM6, SOLICIT, UDP, authentication_header, ethernet, fragment_header, ia_na, ipv6,
    link_local, message, option, options_header, routing_header, udp,
)  # fmt: skip

CLIENT, ROGUE = "02:aa:00:00:00:01", "02:bb:00:00:00:02"
ICMP6, TCP = 58, 6

# Name, number of the first header, and what makes the headers when told what follows them.
HEADERS = [
    ("hop-by-hop", HOP_BY_HOP, options_header),
    ("destination", DESTINATION, options_header),
    ("routing", ROUTING, routing_header),
    ("authentication", AUTHENTICATION, authentication_header),
    ("mobility", MOBILITY, options_header),
    ("hip", HIP, options_header),
    ("shim6", SHIM6, options_header),
    ("long destination", DESTINATION, lambda following: options_header(following, 256)),
    ("hop-by-hop, destination", HOP_BY_HOP, lambda following: options_header(DESTINATION) + options_header(following)),
    ("four", HOP_BY_HOP, lambda following: options_header(DESTINATION) + options_header(ROUTING)
     + routing_header(AUTHENTICATION) + authentication_header(following)),
]  # fmt: skip
NAMES = [name for name, _, _ in HEADERS]
TAGS = [(), (10,)]


def segment(source, destination, source_port, destination_port, payload):
    return udp(source, destination, source_port, destination_port, payload)


def client_segment():
    body = message(SOLICIT, options=option(1, frames.duid(CLIENT)) + ia_na())
    return segment(link_local(CLIENT), SERVERS, CLIENT_PORT, SERVER_PORT, body)


def rogue_segment():
    body = message(REPLY, options=ia_na(["2001:db8:bad::1"]))
    return segment(link_local(ROGUE), link_local(CLIENT), SERVER_PORT, CLIENT_PORT, body)


def client_frame(first, payload, tags=()):
    return ethernet(SERVERS_MAC, CLIENT, ipv6(link_local(CLIENT), SERVERS, first, payload, 1), tags=tags)


def rogue_frame(first, payload, tags=()):
    return ethernet(CLIENT, ROGUE, ipv6(link_local(ROGUE), link_local(CLIENT), first, payload), tags=tags)


@pytest.fixture
def known(daemon, sent):
    """The client is known on port 1, so that what is sent to it has a place to go."""
    sent(1, frames.from_client(SOLICIT, CLIENT))
    return daemon


@pytest.mark.parametrize("tags", [(), (10,), (10, 20)], ids=["untagged", "tagged", "double"])
@pytest.mark.parametrize("name, first, make", HEADERS, ids=NAMES)
def test_rogue_behind_extension_headers(known, sent, name, first, make, tags):
    assert sent(2, rogue_frame(first, make(UDP) + rogue_segment(), tags)) == {}


@pytest.mark.parametrize("tags", TAGS, ids=["untagged", "tagged"])
@pytest.mark.parametrize("name, first, make", HEADERS, ids=NAMES)
def test_client_behind_extension_headers(daemon, sent, name, first, make, tags):
    """A whole message is snooped like any other."""
    frame = client_frame(first, make(UDP) + client_segment(), tags)
    assert sent(1, frame) == {4: [frame]}
    assert daemon.counted(1) == 1


@pytest.mark.parametrize("name, first, make", HEADERS, ids=NAMES)
@pytest.mark.parametrize("cut", [1, 7, 8, 12])
def test_rogue_with_a_cut_chain(known, sent, name, first, make, cut):
    """The frame ends inside the headers or inside UDP's; nobody can tell what it is."""
    whole = make(UDP) + rogue_segment()[:8]
    assert sent(2, rogue_frame(first, whole[:-cut])) == {}


def test_rogue_behind_too_many_headers(known, sent):
    chain = options_header(DESTINATION) * 30 + options_header(UDP)
    assert sent(2, rogue_frame(DESTINATION, chain + rogue_segment())) == {}


VLAN0, SERVICE0 = 0, (0, frames.ETH_8021AD)
DEEP = [(VLAN0,) * depth for depth in range(3, 10)] + [(SERVICE0,) * 4, (VLAN0, SERVICE0) * 2, (10,) * 4, (VLAN0,) * 3 + (10,)]


@pytest.mark.parametrize("tags", DEEP, ids=str)
def test_what_lies_deeper_than_the_rules_read_is_held_back(known, sent, tags):
    """Hosts take off as many priority tags as there are. Three are read; of more nothing passes, whatever they carry."""
    rogue = rogue_frame(UDP, rogue_segment(), tags)
    other = rogue_frame(TCP, bytes(20), tags)
    unknown = ethernet(CLIENT, ROGUE, bytes(46), 0x1234, tags)
    passing = [other, unknown] if len(tags) == 3 else []
    before = known.counters(2)["dropMalformed"]
    assert sent(2, rogue, other, unknown) == ({1: passing} if passing else {})
    assert known.counters(2)["dropMalformed"] == before + 3 - len(passing)


def test_requests_behind_many_tags_get_no_lease(daemon, sent):
    daemon.call(calls.PORT_MAX, 1, 0)
    requests = [frames.from_client(frames.REQUEST, frames.mac_number(number), tags=(0,) * 4) for number in range(20)]
    assert sent(1, *requests) == {}
    assert daemon.clients() == {}
    assert daemon.counters(1)["dropMalformed"] == len(requests)


@pytest.mark.parametrize("tags", [(), (0,), (10,), (0, 0), (0, 0, 0)], ids=str)
def test_a_rogue_in_llc_snap(known, sent, tags):
    def snap(kind, payload, oui=0):
        llc = b"\xaa\xaa\x03" + oui.to_bytes(3, "big") + kind.to_bytes(2, "big")
        return ethernet(CLIENT, ROGUE, llc + payload, len(llc + payload), tags)

    packet = rogue_frame(UDP, rogue_segment())[14:]
    inner = bytes(2) + (0x86DD).to_bytes(2, "big") + packet
    held = [snap(0x86DD, packet), snap(0x86DD, packet, 0xF8), snap(0x8100, inner), snap(0x88A8, inner), snap(0x9100, inner)]
    other = [snap(0x0800, packet), snap(0x2000, packet, 0xC)]
    before = known.counters(2)["dropMalformed"]
    assert sent(2, *held, *other) == {1: other}
    assert known.counters(2)["dropMalformed"] == before + len(held)


def test_udp_too_short_for_its_ports(known, sent):
    before = known.counters(2)["dropMalformed"]
    assert sent(2, rogue_frame(UDP, b"\x02"), rogue_frame(UDP, b"")) == {}
    assert known.counters(2)["dropMalformed"] == before + 2


def fragments(whole, first, size):
    """A payload cut into fragments of `size` bytes, each behind a fragment header that names `first` as what follows."""
    pieces = [whole[at : at + size] for at in range(0, len(whole), size)]
    return [fragment_header(first, index * size, index + 1 < len(pieces)) + piece for index, piece in enumerate(pieces)]


@pytest.mark.parametrize("size", [8, 16, 40])
def test_rogue_in_fragments(known, sent, size):
    """The first fragment never comes out, and without it no receiver puts the others together."""
    pieces = fragments(rogue_segment(), UDP, size)
    assert len(pieces) >= 2
    before = known.counters(2)["dropFragment"]
    out = sent(2, *[rogue_frame(FRAGMENT, piece) for piece in pieces])
    first = rogue_frame(FRAGMENT, pieces[0])
    assert all(first not in seen for seen in out.values())
    assert known.counters(2)["dropFragment"] == before + 1


def test_rogue_whose_ports_are_in_the_second_fragment(known, sent):
    pieces = fragments(options_header(UDP) + rogue_segment(), DESTINATION, 8)
    out = sent(2, *[rogue_frame(FRAGMENT, piece) for piece in pieces])
    assert all(rogue_frame(FRAGMENT, pieces[0]) not in seen for seen in out.values())


def test_rogue_in_a_single_fragment(known, sent):
    assert sent(2, rogue_frame(FRAGMENT, fragment_header(UDP, 0, False) + rogue_segment())) == {}


def test_client_in_fragments_is_not_recorded(daemon, sent):
    pieces = [client_frame(FRAGMENT, piece) for piece in fragments(client_segment(), UDP, 24)]
    out = sent(1, *pieces)
    assert all(pieces[0] not in seen for seen in out.values())
    assert daemon.counted(1) == 0


OTHERS = [
    ("udp", UDP, segment("fe80::1", "fe80::2", 5000, 5001, b"x" * 40)),
    ("udp to 545", UDP, segment("fe80::1", "fe80::2", 546, 545, b"x" * 40)),
    ("udp from 547", UDP, segment("fe80::1", "fe80::2", 547, 53, b"x" * 40)),
    ("tcp", TCP, bytes(20)),
    ("icmp", ICMP6, bytes([128, 0, 0, 0, 0, 1, 0, 1])),
    ("esp", 50, bytes(24)),
    ("nothing", NO_NEXT, b""),
]


@pytest.mark.parametrize("tags", TAGS, ids=["untagged", "tagged"])
@pytest.mark.parametrize("name, protocol, payload", OTHERS, ids=[name for name, _, _ in OTHERS])
def test_other_traffic_passes(known, sent, name, protocol, payload, tags):
    frame = rogue_frame(protocol, payload, tags)
    assert sent(2, frame) == {1: [frame]}


@pytest.mark.parametrize("name, first, make", HEADERS[:4], ids=NAMES[:4])
@pytest.mark.parametrize("other, protocol, payload", OTHERS[:6], ids=[name for name, _, _ in OTHERS[:6]])
def test_other_traffic_behind_extension_headers_passes(known, sent, name, first, make, other, protocol, payload):
    frame = rogue_frame(first, make(protocol) + payload)
    assert sent(2, frame) == {1: [frame]}


def test_other_traffic_in_fragments_passes(known, sent):
    pieces = [rogue_frame(FRAGMENT, piece) for piece in fragments(OTHERS[0][2], UDP, 16)]
    assert sent(2, *pieces) == {1: pieces}


def test_multicast_listener_report_passes(known, switch, sent):
    """The bridge floods it once it does not snoop multicast itself."""
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")
    source, group = link_local(ROGUE), "ff02::16"
    report = bytes([143, 0, 0, 0, 0, 0, 0, 1, 4, 0, 0, 0]) + frames.ip_bytes("ff02::1:3")
    pseudo = frames.ip_bytes(source) + frames.ip_bytes(group) + bytes([0, 0, 0, len(report), 0, 0, 0, ICMP6])
    report = report[:2] + (0xFFFF - frames.checksum(pseudo + report)).to_bytes(2, "big") + report[4:]
    alert = bytes([ICMP6, 0, 5, 2, 0, 0, 1, 0])  # hop-by-hop: router alert
    frame = ethernet("33:33:00:00:00:16", ROGUE, ipv6(source, group, HOP_BY_HOP, alert + report, 1))
    assert sent(2, frame) == {1: [frame], 3: [frame], 4: [frame]}


def test_ipv4_and_unknown_types_pass(known, sent):
    for ether_type in (0x0800, 0x0806, 0x1234):
        frame = ethernet("ff:ff:ff:ff:ff:ff", ROGUE, bytes(46), ether_type)
        assert sent(2, frame) == {1: [frame], 3: [frame], 4: [frame]}


def test_ping_passes(daemon, switch):
    for port in (1, 2):
        switch.speak(port)
    target = switch.addresses(2, "link")[0]
    assert " 0% packet loss" in netns.run(switch.host(1), "ping", "-6", "-c", "3", "-i", "0.01", "-W", "5", f"{target}%eth0")


def test_advertise_with_wrong_checksum_from_an_untrusted_port(known, sent):
    frame = bytearray(frames.from_server(ADVERTISE, CLIENT))
    frame[-1] ^= 0xFF
    assert sent(2, bytes(frame)) == {}
