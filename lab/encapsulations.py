"""Ways to wrap a UDP datagram so that a receiver might unwrap it where the switch did not look: next headers, chains of
extension headers, fragments, VLAN tags, 802.3 LLC and SNAP, and sources that no host has.

A case is a function of the sender and of the case's number. The number is in the datagram, so that every frame of a sweep is
different and the receiver of a datagram knows its case."""

import functools
import itertools
import struct
from dataclasses import dataclass
from typing import NamedTuple

from . import frames
from .frames import (
    AUTHENTICATION, DESTINATION, ETH_8021AD, ETH_8021Q, ETH_IPV6, FRAGMENT, HIP, HOP_BY_HOP, MOBILITY, ROUTING, SHIM6, UDP,
)  # fmt: skip

ETH_9100 = 0x9100  # a service tag's type before 802.1ad had one; payload to the bridge and to Linux
TAG_TYPES = (ETH_8021Q, ETH_8021AD, ETH_9100)
VLAN = 10
ALL_NODES, ALL_NODES_MAC = "ff02::1", "33:33:00:00:00:01"


@dataclass(frozen=True)
class Sender:
    """Where the frames come from and go to. `segment(number, source, destination)` makes the UDP datagram."""

    mac: str
    source: str
    victim_mac: str
    victim: str  # its link-local address
    victim_global: str
    bound: str  # a source address that is bound on the guarded port
    segment: callable

    def frame(self, packet, tags=(), ether_type=ETH_IPV6, mac=None):
        return frames.ethernet(mac or self.victim_mac, self.mac, packet, ether_type, tags)

    def packet(self, number, first=UDP, headers=b"", source=None, to=None):
        """The IPv6 packet of a case; `headers` are between the fixed header and the datagram."""
        source, to = source or self.source, to or self.victim
        return frames.ipv6(source, to, first, headers + self.segment(number, source, to))


class Case(NamedTuple):
    row: str  # of the table
    name: str
    frames: callable  # (sender, number) -> the frames of the case, in order


def priority(depth):
    """Tags of VLAN 0, which a host takes off."""
    return ((0, ETH_8021Q),) * depth


def tags_name(tags):
    return " ".join(f"{protocol:04x}:{control:x}" for control, protocol in tags) or "untagged"


# ---- Next headers and chains of extension headers --------------------------------------------------------------------------

DEPTHS = range(4)  # numbers of tags for the cases that vary something else
ATOMIC, FIRST, LATER = "atomic fragment", "first fragment", "later fragment"
EXTENSIONS = {
    "hop-by-hop": (HOP_BY_HOP, lambda following, _: frames.options_header(following)),
    "destination": (DESTINATION, lambda following, _: frames.options_header(following)),
    "routing": (ROUTING, lambda following, _: frames.routing_header(following)),
    "authentication": (AUTHENTICATION, lambda following, _: frames.authentication_header(following)),
    "mobility": (MOBILITY, lambda following, _: frames.options_header(following)),
    "hip": (HIP, lambda following, _: frames.options_header(following)),
    "shim6": (SHIM6, lambda following, _: frames.options_header(following)),
    ATOMIC: (FRAGMENT, lambda following, number: frames.fragment_header(following, 0, False, number)),
    FIRST: (FRAGMENT, lambda following, number: frames.fragment_header(following, 0, True, number)),
    LATER: (FRAGMENT, lambda following, number: frames.fragment_header(following, 64, False, number)),
}
CHAIN_ROWS = {
    "": "1 to 3 extension headers, none of a fragment",
    ATOMIC: "The same with an atomic fragment's header",
    FIRST: "The same with a first fragment's header",
    LATER: "The same with a later fragment's header",
}


def chain(names, number, last=UDP):
    """The number of the first of these headers, and their bytes."""
    first, raw = last, b""
    for name in reversed(names):
        code, make = EXTENSIONS[name]
        first, raw = code, make(first, number) + raw
    return first, raw


def _next_header(value, depth, sender, number):
    return [sender.frame(sender.packet(number, value), priority(depth))]


def _chained(names, depth, sender, number):
    return [sender.frame(sender.packet(number, *chain(names, number)), priority(depth))]


def next_headers():
    for depth, value in itertools.product(DEPTHS, range(256)):
        row = "UDP directly" if value == UDP else "Each other number as next header"
        yield Case(row, f"next header {value}, {depth} tags", functools.partial(_next_header, value, depth))


def chains(longest):
    for length in range(1, longest + 1):
        for names in itertools.product(EXTENSIONS, repeat=length):
            row = CHAIN_ROWS[next((kind for kind in (LATER, FIRST, ATOMIC) if kind in names), "")]
            for depth in DEPTHS:
                yield Case(row, f"{', '.join(names)}, {depth} tags", functools.partial(_chained, names, depth))


# ---- Datagrams cut into fragments ------------------------------------------------------------------------------------------

ORDERS = {"in order": lambda pieces: pieces, "reversed": lambda pieces: pieces[::-1], "twice": lambda pieces: pieces * 2}
OUTER = ((), ("hop-by-hop",), ("destination",), ("routing",), ("hop-by-hop", "destination", "routing"))
INNER = ((), ("destination",), ("routing",), ("atomic fragment",), ("destination", "routing"))


def _pieces(whole, size, number, first=UDP):
    """The payload cut into fragments, each after a fragment header that names `first` as what follows."""
    cuts = range(0, len(whole), size)
    return [frames.fragment_header(first, at, at != cuts[-1], number) + whole[at : at + size] for at in cuts]


def _cut(size, outer, inner, order, depth, sender, number):
    first, headers = chain(inner, number)
    pieces = _pieces(headers + sender.segment(number, sender.source, sender.victim), size, number, first)
    code, before = chain(outer, number, FRAGMENT)
    return ORDERS[order]([_fragment(sender, before + piece, depth, code) for piece in pieces])


def _fragment(sender, payload, depth, first=FRAGMENT):
    return sender.frame(frames.ipv6(sender.source, sender.victim, first, payload), priority(depth))


def _cut_twice(outer, inner, depth, sender, number):
    """Each fragment is itself in fragments."""
    pieces = _pieces(sender.segment(number, sender.source, sender.victim), inner, number)
    again = [_pieces(piece, outer, number << 4 | index, FRAGMENT) for index, piece in enumerate(pieces)]
    return [_fragment(sender, piece, depth) for pieces in again for piece in pieces]


def _overlapping(order, depth, sender, number):
    """A first fragment with a port of nobody, and a later one that puts another datagram over it."""
    segment = sender.segment(number, sender.source, sender.victim)
    harmless = frames.udp(sender.source, sender.victim, 9, 9, segment[8:])
    first = frames.fragment_header(DESTINATION, 0, True, number) + frames.options_header(UDP) + harmless
    rest = frames.fragment_header(DESTINATION, 8, False, number) + segment
    return ORDERS[order]([_fragment(sender, payload, depth) for payload in (first, rest)])


def fragments():
    for size, outer, inner, order, depth in itertools.product((8, 16, 32), OUTER, INNER, ORDERS, DEPTHS):
        name = f"{size} bytes each, {order}, outside {outer}, inside {inner}, {depth} tags"
        yield Case("A datagram in fragments", name, functools.partial(_cut, size, outer, inner, order, depth))
    for outer, inner, depth in itertools.product((8, 16, 32), (8, 16, 32), DEPTHS):
        name = f"{inner} bytes each, these {outer} bytes each, {depth} tags"
        yield Case("Fragments in fragments", name, functools.partial(_cut_twice, outer, inner, depth))
    for order, depth in itertools.product(ORDERS, DEPTHS):
        yield Case("Fragments that overlap", f"{order}, {depth} tags", functools.partial(_overlapping, order, depth))


# ---- Wrong lengths ---------------------------------------------------------------------------------------------------------


def _udp_length(change, depth, sender, number):
    """The datagram says another length than it has. Its checksum is right for a receiver that goes by it."""
    segment = sender.segment(number, sender.source, sender.victim)
    length = change(len(segment))
    covered = segment[:length] if length else segment
    bare = covered[:4] + struct.pack("!HH", length, 0) + covered[8:]
    check = frames.udp_checksum(sender.source, sender.victim, bare)
    segment = segment[:4] + struct.pack("!HH", length, check) + segment[8:]
    return [sender.frame(frames.ipv6(sender.source, sender.victim, UDP, segment), priority(depth))]


def _ip_length(change, depth, sender, number):
    packet = sender.packet(number)
    return [sender.frame(packet[:4] + struct.pack("!H", change(len(packet) - 40)) + packet[6:], priority(depth))]


def _trailing(size, depth, sender, number):
    return [sender.frame(sender.packet(number) + bytes(size), priority(depth))]


def lengths():
    changes = {"0": lambda _: 0, "12": lambda _: 12, "8 less": lambda real: real - 8, "8 more": lambda real: real + 8}
    for (name, change), depth in itertools.product(changes.items(), DEPTHS):
        yield Case("Wrong lengths", f"UDP length {name}, {depth} tags", functools.partial(_udp_length, change, depth))
        yield Case("Wrong lengths", f"IPv6 length {name}, {depth} tags", functools.partial(_ip_length, change, depth))
    for size, depth in itertools.product((1, 8, 1200), DEPTHS):
        yield Case("Bytes after the packet", f"{size} bytes, {depth} tags", functools.partial(_trailing, size, depth))


# ---- VLAN tags -------------------------------------------------------------------------------------------------------------


def _type_stacks():
    """Types of 1 to 9 tags: each type by itself, mixtures."""
    for depth in range(1, 10):
        for one in TAG_TYPES:
            yield (one,) * depth
        if depth <= 4:
            yield from (mixed for mixed in itertools.product(TAG_TYPES, repeat=depth) if len(set(mixed)) > 1)
            continue
        for turn in itertools.permutations(TAG_TYPES):
            yield tuple(itertools.islice(itertools.cycle(turn), depth))
        for odd, rest in itertools.permutations(TAG_TYPES, 2):
            yield from ((rest,) * at + (odd,) + (rest,) * (depth - 1 - at) for at in range(depth))


def _control_patterns(depth):
    """VLANs of the tags from the outside in. Two patterns have priority and drop eligibility bits, too."""
    yield (0,) * depth
    yield (0xE000, 0x1000) * (depth // 2) + (0xE000,) * (depth % 2)
    yield (VLAN,) * depth
    if depth > 1:
        yield (VLAN,) + (0,) * (depth - 1)
        yield (0xF000,) + (VLAN,) * (depth - 1)


def tag_stacks():
    for types in _type_stacks():
        yield from (tuple(zip(controls, types)) for controls in _control_patterns(len(types)))


def _tags_row(tags):
    depth = len(tags)
    readable = next((index for index, (_, protocol) in enumerate(tags) if protocol == ETH_9100), depth)
    if readable < depth:
        return f"A tag of type 0x9100 after {'0 to 3' if readable < 4 else '4 or more'} others"
    kind = "another VLAN" if any(control & 0xFFF for control, _ in tags) else "VLAN 0 only"
    return f"{'1 or 2' if depth < 3 else '3' if depth == 3 else '4 to 9'} tags, {kind}"


def _tagged(tags, sender, number):
    return [sender.frame(sender.packet(number), tags)]


def tags():
    for stack in tag_stacks():
        yield Case(_tags_row(stack), f"tags {tags_name(stack)}", functools.partial(_tagged, stack))


# ---- 802.3 LLC and SNAP ----------------------------------------------------------------------------------------------------

OUIS = {"RFC 1042": b"\0\0\0", "802.1H": b"\0\0\xf8", "other": b"\0\0\x0c"}
LENGTHS = {"its length": None, "length 0": 0, "length 1535": 0x05FF}
AROUND = (*map(priority, DEPTHS), ((VLAN, ETH_8021Q),), ((VLAN, ETH_8021AD), (0, ETH_8021Q)))


def snap(ether_type, payload, oui=OUIS["RFC 1042"], addresses=b"\xaa\xaa", control=3):
    return addresses + bytes([control]) + oui + struct.pack("!H", ether_type) + payload


def tagged(tags_, payload, ether_type=ETH_IPV6):
    """The type of the first of these tags, and what follows that type."""
    for control, protocol in reversed(tags_):
        payload = struct.pack("!HH", control, ether_type) + payload
        ether_type = protocol
    return ether_type, payload


def _length(payload, length=None):
    return len(payload) if length is None else length


def _in_snap(around, addresses, control, oui, length, sender, number):
    payload = snap(ETH_IPV6, sender.packet(number), oui, addresses, control)
    return [sender.frame(payload, around, _length(payload, length))]


def _tags_in_snap(around, inside, oui, sender, number):
    payload = snap(*tagged(inside, sender.packet(number)), oui)
    return [sender.frame(payload, around, len(payload))]


def _snap_in_tags_in_snap(around, inside, sender, number):
    inner = snap(ETH_IPV6, sender.packet(number))
    payload = snap(*tagged(inside, inner, len(inner)))
    return [sender.frame(payload, around, len(payload))]


def _other_snap(around, ether_type, sender, number):
    payload = snap(ether_type, sender.packet(number))
    return [sender.frame(payload, around, len(payload))]


def _plain_llc(around, address, sender, number):
    payload = bytes([address, address, 3]) + sender.packet(number)
    return [sender.frame(payload, around, len(payload))]


def llc():
    row = "IPv6 in 802.3 LLC/SNAP"
    addresses = (b"\xaa\xaa", b"\xab\xaa", b"\xaa\xab", b"\xab\xab")
    for around, address, control, oui in itertools.product(AROUND, addresses, (3, 0x13, 0x7F), OUIS):
        name = f"{tags_name(around)}, LLC {address.hex()} {control:x}, OUI {oui}"
        yield Case(row, name, functools.partial(_in_snap, around, address, control, OUIS[oui], None))
    for around, length in itertools.product(AROUND, LENGTHS):
        name = f"{tags_name(around)}, SNAP, {length}"
        yield Case(row, name, functools.partial(_in_snap, around, b"\xaa\xaa", 3, OUIS["RFC 1042"], LENGTHS[length]))
    row = "A tag in 802.3 LLC/SNAP"
    insides = [((control, outer), *rest) for control in (0, VLAN) for outer in TAG_TYPES for rest in ((), ((0, ETH_8021Q),))]
    for around, inside, oui in itertools.product(AROUND, insides, ("RFC 1042", "802.1H")):
        name = f"{tags_name(around)}, SNAP, {tags_name(inside)}, OUI {oui}"
        yield Case(row, name, functools.partial(_tags_in_snap, around, inside, OUIS[oui]))
    for around, inside in itertools.product(AROUND, insides):
        name = f"{tags_name(around)}, SNAP, {tags_name(inside)}, SNAP"
        yield Case(row, name, functools.partial(_snap_in_tags_in_snap, around, inside))
    row = "Other 802.3 LLC frames"
    for around, other in itertools.product(AROUND[:4], (0x0800, 0x0806, 0x88B5)):
        yield Case(row, f"{tags_name(around)}, SNAP {other:04x}", functools.partial(_other_snap, around, other))
    for around, address in itertools.product(AROUND[:4], (0x06, 0x42, 0x86, 0xE0, 0xFE)):
        yield Case(row, f"{tags_name(around)}, LLC {address:x}", functools.partial(_plain_llc, around, address))


# ---- Other types ------------------------------------------------------------------------------------------------------------

OTHER_TYPES = {  # the EtherType, and what is between it and the packet
    "PPPoE": (0x8864, bytes.fromhex("11000001ffff0057")), "MPLS": (0x8847, bytes.fromhex("00010140")),
    "802.1ah": (0x88E7, bytes(16) + b"\x86\xdd"), "type 9200": (0x9200, b"\0\0\x86\xdd"),
    "type 9300": (0x9300, b"\0\0\x86\xdd"), "IPv4's type": (0x0800, b""),
}  # fmt: skip


def _in_type(ether_type, before, depth, sender, number):
    return [sender.frame(before + sender.packet(number), priority(depth), ether_type)]


def other_types():
    for (name, (ether_type, before)), depth in itertools.product(OTHER_TYPES.items(), DEPTHS):
        yield Case("IPv6 in other types", f"{name}, {depth} tags", functools.partial(_in_type, ether_type, before, depth))


# ---- Sources ---------------------------------------------------------------------------------------------------------------

SOURCES = {
    "`::`": "::", "`::1`": "::1", "multicast": "ff02::5", "IPv4-mapped": "::ffff:192.0.2.7", "IPv4-compatible": "::192.0.2.7",
    "link-local": "fe80::bad", "global, unbound": "2001:db8::bad", "unique local, unbound": "fd00::bad",
}  # fmt: skip
GROUP_MACS = ("ff:ff:ff:ff:ff:ff", ALL_NODES_MAC, "01:00:5e:00:00:01")


def _from(source, target, names, depth, sender, number):
    to, mac = {
        "link-local": (sender.victim, None), "global": (sender.victim_global, None), "all nodes": (ALL_NODES, ALL_NODES_MAC),
    }[target]  # fmt: skip
    packet = sender.packet(number, *chain(names, number), source=source or sender.bound, to=to)
    return [sender.frame(packet, priority(depth), mac=mac)]


def _to_group_mac(mac, depth, sender, number):
    return [sender.frame(sender.packet(number), priority(depth), mac=mac)]


def addresses():
    targets = ("link-local", "global", "all nodes")
    for kind in (*SOURCES, "bound"):
        for target, names, depth in itertools.product(targets, ((), ("hop-by-hop",), ("destination",)), DEPTHS):
            row = f"Source {kind}" + (", 3 tags" if kind == "bound" and depth == 3 else "")
            name = f"from {kind} to {target}, {', '.join(names) or 'no header'}, {depth} tags"
            yield Case(row, name, functools.partial(_from, SOURCES.get(kind), target, names, depth))
    for mac, depth in itertools.product(GROUP_MACS, DEPTHS):
        row = "The host's address at a group's MAC address"
        yield Case(row, f"to {mac}, {depth} tags", functools.partial(_to_group_mac, mac, depth))


def _by_row(*groups):
    rows = {}
    for case in itertools.chain(*groups):
        rows.setdefault(case.row, []).append(case)
    return [case for row in rows.values() for case in row]


def cases():
    """All of them, the cases of a row together."""
    return _by_row(next_headers(), chains(3), fragments(), lengths(), tags(), llc(), other_types(), addresses())


def cases_of_tags():
    """Those that a bridge or a host with VLANs may see in another way."""
    return _by_row(chains(1), tags(), llc(), other_types(), addresses())
