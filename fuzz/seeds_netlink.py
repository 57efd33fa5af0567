"""The hand-made seeds of fuzz_netlink: what the kernel tells of interfaces, VLANs and stations, in the records of
netlinkscript.h."""

import struct

from seedwords import b

(NEWS_LINK, NEWS_LINK_GONE, NEWS_PORT, NEWS_PORT_GONE, NEWS_VLAN, NEWS_VLAN_GONE, NEWS_NEIGHBOUR, NEWS_RAW, NEWS_READ,
 NEWS_CATCH_UP, NEWS_LOOK_UP) = range(11)  # fmt: skip
BRIDGE_INDEX, FORWARDING = 250, 3
NAMES = {"br0": 0, "p1": 1, "p2": 2, "p4": 3, "p5": 4, "p28": 5, "uplink": 6, "x": 7}
BOND, BRIDGE, TEAM, IN_BOND, IN_BRIDGE = 1, 2, 3, 1 << 2, 2 << 2
PVID, UNTAGGED, RANGE_BEGIN, RANGE_END = 2, 4, 8, 16


def bond_name(number):
    return 10 + 2 * number


def link(index, name, master=0, kind=0, first=0, second=FORWARDING, flags=0, what=NEWS_LINK, cut=0):
    name = NAMES[name] if isinstance(name, str) else name
    return b(what, cut, index, name, master, flags, kind, first, second)


def switch_bridge(filtering=0, default=1, tag_type=0):
    return link(BRIDGE_INDEX, "br0", kind=BRIDGE, first=filtering | tag_type << 1, second=default)


def bridge_port(index, *vlans, state=FORWARDING, flags=0, what=NEWS_PORT):
    """vlans: (number, flags) pairs."""
    numbers = b"".join(struct.pack(">H", flags << 11 | vlan) for vlan, flags in vlans)
    return b(what, 0, index, flags, state, len(vlans)) + numbers


def vlan_state(index, first, last, state, what=NEWS_VLAN):
    return b(what, 0, index) + struct.pack(">HHB", first, last, state)


def reading(*replies, error=0):
    """replies: lists of messages, one for each question."""
    return b(NEWS_READ) + b"".join(b(len(reply)) + b"".join(reply) + b(error) for reply in replies)


def netlink_seeds():
    plain = switch_bridge() + b"".join(link(n, f"p{n}", BRIDGE_INDEX, IN_BRIDGE) for n in (1, 2, 4, 5, 28))
    native = (10, PVID | UNTAGGED)
    ranged = (native, (20, RANGE_BEGIN), (29, RANGE_END))
    filtered = switch_bridge(1) + plain[9:] + b"".join(bridge_port(n, *ranged) for n in (1, 2, 4))
    bond = link(60, bond_name(7), BRIDGE_INDEX, BOND | IN_BRIDGE)
    members = link(1, "p1", 60, IN_BOND, second=0) + link(2, "p2", 60, IN_BOND, second=1)
    yield "empty", b""
    yield "transparent", plain
    yield "filtering", filtered + switch_bridge(0) + switch_bridge(1, tag_type=1) + switch_bridge(1, default=2)
    yield "vlan-states", filtered + vlan_state(1, 10, 25, 4) + vlan_state(1, 0, 65535, 4) + vlan_state(1, 20, 21, 3) + (
        vlan_state(1, 22, 0, 4, NEWS_VLAN_GONE) + vlan_state(99, 1, 2, 4) + link(99, "p28", BRIDGE_INDEX, IN_BRIDGE)
    )
    yield "vlan-ranges", filtered + b"".join(
        bridge_port(1, *vlans) for vlans in (
            ((0, 0), (4095, 0), (4094, PVID)), ((29, RANGE_END),), ((5, RANGE_BEGIN),), ((9, RANGE_BEGIN), (3, RANGE_END)),
            tuple((vlan, UNTAGGED) for vlan in range(1, 250)))
    )  # fmt: skip
    yield "port-leaves", filtered + bridge_port(1, what=NEWS_PORT_GONE) + b(NEWS_CATCH_UP) + link(1, "p1") + plain
    yield "port-of-another-bridge", filtered + link(1, "p1", 200, IN_BRIDGE) + bridge_port(1, native) + filtered
    yield "network-card", filtered + bridge_port(1, (30, 0), flags=4) + bridge_port(1, flags=1) + bridge_port(1, flags=2)
    yield "isolated-and-locked", plain + bridge_port(1, state=0xC0 | FORWARDING) + bridge_port(2, state=0x40 | FORWARDING)
    yield "renamed", filtered + link(1, "x", BRIDGE_INDEX, IN_BRIDGE) + link(1, "p28", BRIDGE_INDEX, IN_BRIDGE) + (
        link(2, "p1", BRIDGE_INDEX, IN_BRIDGE) + link(2, "br0", kind=BRIDGE) + plain
    )
    yield "index-used-again", plain + link(1, "p1", what=NEWS_LINK_GONE) + link(1, "p2") + link(2, "p1") + link(4, "br0")
    yield "bridge-made-again", filtered + link(BRIDGE_INDEX, "br0", what=NEWS_LINK_GONE) + link(251, "br0", kind=BRIDGE, first=1)
    yield "bridge-of-another-kind", filtered + link(251, "br0", kind=BOND) + link(1, "p1", 251, IN_BOND)
    yield "bond", plain + bond + members + bond.replace(b(BRIDGE_INDEX), b(0), 1) + bond + link(4, "p4", 60, IN_BOND)
    yield "bond-before-and-after-its-members", switch_bridge() + members + bond + link(60, bond_name(7), what=NEWS_LINK_GONE) + bond
    yield "bond-by-load", plain + members + b"".join(
        link(60, bond_name(7), BRIDGE_INDEX, BOND | IN_BRIDGE, mode, active) for mode in range(7) for active in (0, 1, 2)
    )
    yield "bond-vlans", filtered + bond + members + bridge_port(60, *ranged) + vlan_state(60, 20, 29, 4)
    yield "bonds-too-many", plain + b"".join(link(100 + n, bond_name(n), kind=BOND) for n in range(30)) + (
        link(100, bond_name(40), kind=BOND) + link(101, bond_name(1), what=NEWS_LINK_GONE) + b(NEWS_CATCH_UP)
        + link(129, bond_name(29), kind=BOND)
    )
    yield "trunk-ids", plain + b"".join(
        link(100 + n, name, kind=BOND) for n, name in enumerate(("uplink", bond_name(7), 29, bond_name(9), bond_name(12), 49))
    ) + link(100, bond_name(7), kind=BOND) + link(101, "uplink", kind=BOND)  # fmt: skip
    yield "bond-name-of-another-kind", plain + bond + members + link(61, bond_name(7), BRIDGE_INDEX, TEAM)
    yield "bond-of-a-port-s-name", plain + link(70, "p1", BRIDGE_INDEX, BOND | IN_BRIDGE) + link(2, "p2", 70, IN_BOND)
    everything = [link(n, f"p{n}", BRIDGE_INDEX, IN_BRIDGE) for n in (1, 2)]
    for error in range(4):
        yield f"reading-{error}", plain + reading(
            [switch_bridge(1), *everything], [bridge_port(1, *ranged)], [vlan_state(1, 10, 10, 4)], error=error
        ) + b(NEWS_CATCH_UP) + link(5, "p5", BRIDGE_INDEX)
    yield "reading-nothing", plain + bond + members + reading([], [], [])
    station = b(NEWS_NEIGHBOUR, 0, 1, 9) + struct.pack(">HB", 0, 0)
    for index, flags in ((1, 0), (1, 1), (1, 2), (60, 0), (BRIDGE_INDEX, 0), (99, 0), (1, 0x80)):
        yield f"station-{index}-{flags}", plain + bond + link(4, "p4", 60, IN_BOND) + b(NEWS_LOOK_UP, 0, 10, 9, 0, 1) + (
            station.replace(b(1, 9, 0, 0, 0), b(index, 9, 0, 0, flags)) + b(0)
        )
    for cut in (1, 2, 3, 4, 8, 20, 40, 255):
        yield f"cut-{cut}", plain + link(1, "p1", BRIDGE_INDEX, IN_BRIDGE, cut=cut) + b(NEWS_VLAN, cut, 1, 0, 1, 0, 9, 4)
    for flags in (1 << bit for bit in range(8)):
        yield f"link-flags-{flags}", plain + link(1, "p1", BRIDGE_INDEX, IN_BRIDGE, second=0xF0, flags=flags) + (
            link(60, bond_name(7), BRIDGE_INDEX, BOND, flags=flags)
        )
    for kind in (16, 17, 19, 28, 112, 113):
        yield f"raw-{kind}", plain + b(NEWS_RAW, 0) + struct.pack(">HB", kind, 40) + b(7, 0, 0, 0, 1, 0, 0, 0) * 5
