#!/usr/bin/env python3
"""Writes the hand-made seeds of the fuzz corpora: fuzz/seeds.py [FOLDER], default fuzz/corpus.

Inputs that a fuzzer found are kept beside them under names that start with "found-"; they are left alone.
"""

import pathlib
import struct
import sys

from seeds_management import mib_seeds, remote_seeds
from seeds_netlink import netlink_seeds
from seedwords import (
    ADVERTISE, AGE, BROADCAST, DECLINE, DELETE, GUARD, LINK, LYING, ON, PLATFORM, PORT_LIMIT, PREFIX, QUERY, RECONFIGURE,
    RELAYED, RELAY_FORW, RELAY_REPL, RELEASE, RENEW, REPLY, REQUEST, SECOND_TAG, SOLICIT, SWITCHES, TIME, TRUST, UNICAST,
    VLAN_LIMIT, VLAN_RESET, b, crowd, learned, leases, message, option, raw, where,
)  # fmt: skip


def headers(next_header, payload, tags=(1,), length=None):
    """Ethernet and IPv6 in front of a payload; a length other than the true one is a lie."""
    frame = bytes.fromhex("333300010002 020000000001")
    for tag in tags:
        frame += struct.pack(">HH", 0x8100, tag)
    frame += struct.pack(">HIHBB", 0x86DD, 0x60000000, len(payload) if length is None else length, next_header, 64)
    return frame + bytes.fromhex("fe80000000000000 020000fffe000001 ff020000000000000000000000010002") + payload


def udp(payload, port=547, length=None):
    return struct.pack(">HHHH", 546, port, len(payload) + 8 if length is None else length, 0) + payload


# Bits of the first byte of an insertion input.
OPTION18, OPTION37, RELAY, TWO_TAGS, XPON, LONG_NAME, NO_ANSWERS, LIES = (1 << n for n in range(8))
BOTH = OPTION18 | OPTION37
DROP, KEEP, REPLACE = 1, 2, 3
IPV4, IPV6, DEFAULT, STRING, USER = range(1, 6)


def value(kind, data=b""):
    return b(kind, len(data)) + data


def id_template(literal, *elements):
    """elements: (type, literal) or (13, literal, vlan)."""
    parts = [b(USER, len(elements), 0, len(literal)) + literal]
    for kind, text, *vlan in elements:
        parts.append(b(kind, len(text)) + text + b"".join(b(len(v)) + v for v in vlan))
    return b"".join(parts)


def insertion(bits, kind, options=b"", strategy=REPLACE, ids=(value(DEFAULT), value(DEFAULT)), port=0, vlan=10, behind=0):
    """ids: of option 37, then of option 18; behind: extension headers of 8 bytes in front of the UDP header."""
    message = b(kind, 0, 0, 1)
    return (b(bits, strategy) + ids[0] + ids[1] + struct.pack(">HBBH", vlan, port, 3, 0x2007) + b"HWTC\x00\xff\x12\x34"
            + b(behind, 0, len(message)) + message + options)  # fmt: skip


def piece(code, data):
    """An option of an insertion input: written out, or (bytes repeated) long."""
    places = {1: 0, 3: 1, 9: 2, 18: 3, 37: 4}
    if len(data) < 256:
        return b(places[code] * 4 + 1, len(data)) + data
    return b(places[code] * 4 + 2) + struct.pack(">H", len(data)) + data[:1]


def insertion_seeds():
    duid_ll, duid_llt = bytes.fromhex("00030001020000000001"), bytes.fromhex("0001000111223344020000000001")
    every = id_template(b"x", *((n, b"-") for n in range(1, 13)), (13, b"-", b"10"), *((n, b".") for n in range(14, 18)))
    yield "empty", b""
    for kind in range(14):
        yield f"type-{kind}", insertion(BOTH | RELAY, kind, piece(1, duid_ll))
    for kind, data in ((IPV4, b"\n\0\0\1"), (IPV6, b"2001:db8::1/64.."), (STRING, b"string"), (STRING, b"s" * 79), (0, b"")):
        yield f"value-{kind}-{len(data)}", insertion(BOTH, 1, ids=(value(kind, data), value(kind, data)))
    for bits in (0, XPON, XPON | TWO_TAGS, TWO_TAGS, NO_ANSWERS, LONG_NAME):
        yield f"template-{bits}", insertion(BOTH | bits, 3, piece(1, duid_llt), ids=(every, every))
    for vlan, port in ((0, 0), (4095, 0), (10, 27), (10, 28), (10, 39)):
        yield f"template-vlan-{vlan}-port-{port}", insertion(BOTH, 1, ids=(every, every), vlan=vlan, port=port)
    for extra in (48, 52, 56, 60, 64):
        big = id_template(b"a" * 64, *((6, b"b" * 64) for _ in range(6)), (6, b"c" * extra))
        yield f"template-space-{extra}", insertion(BOTH, 1, ids=(big, big))
    for vlan in (b"", b"5000", b"-1", b"9" * 33, b"vlan"):
        text = vlan.decode()
        yield f"template-vlan-text-{len(text)}", insertion(BOTH, 1, ids=(every, id_template(b"", (13, b"", vlan))))
    for strategy in range(5):
        for code in (18, 37):
            yield f"strategy-{strategy}-{code}", insertion(
                BOTH | RELAY, 1, piece(1, duid_ll) + piece(code, b"abcdef") + piece(3, bytes(12)), strategy)
    for length in (0, 1, 4, 5, 6, 7, 44, 255, 300):
        for counted in (0, 10, 200):
            data = bytes([1]) * length if length > 5 else bytes(length)
            data = data[:5] + bytes([counted]) + data[6:] if 5 < length < 256 else data
            for first, second in ((18, 37), (37, 18)):
                yield f"replaced-{first}-{length}-{counted}", insertion(BOTH, 1, piece(first, data) + piece(second, b"tail"))
    for area in (1458, 1459, 1480, 1496):
        yield f"long-{area}", insertion(RELAY | OPTION18, 1, piece(3, bytes([7]) * (area - 4 - 12)))
    for length in (1828, 1832):
        yield f"longest-{length}", insertion(OPTION18, 1, piece(3, bytes([7]) * (length - 8)))
    for behind in (60, 70, 180, 220):
        yield f"behind-{behind}", insertion(BOTH | RELAY, 1, piece(3, bytes([7]) * 300), behind=behind)
    yield "two-tags-relay", insertion(BOTH | RELAY | TWO_TAGS, 5, piece(1, duid_ll))
    yield "lying-lengths", insertion(BOTH | RELAY | LIES, 6, piece(1, duid_ll))


def frame_seeds():
    solicit_frame = headers(17, udp(b(SOLICIT, 0, 0, 1)))
    yield "empty", b""
    yield "solicit", message(SOLICIT, 1, where(1), option(1, b"duid") + option(3, bytes(12)))
    yield "every-type", b"".join(message(kind, 1, where(1)) + message(kind, 1, where(4)) for kind in range(15))
    yield "learn-renew-release", (
        learned(1, [(1, 100)]) + leases(RENEW, 1, where(1), [(1, 100)]) + leases(REPLY, 1, where(4), [(1, 200), (2, 50)])
        + b(QUERY, 0) + leases(RELEASE, 1, where(1), [(1, 0)]) + leases(RELEASE, 1, where(1), [(2, 0)]))
    yield "decline-unacked", message(SOLICIT, 1, where(1)) + leases(DECLINE, 1, where(1), [(1, 1)])
    yield "address-and-prefix", learned(1, [(1, 100), (PREFIX | 1, 100)]) + b(QUERY, 1)
    yield "many-leases", learned(1, [(n, 250) for n in range(1, 31)]) + b(QUERY, 0)
    yield "zero-lifetime", learned(1, [(1, 0)]) + learned(2, [(2, 0), (PREFIX | 2, 9)])
    yield "aging", (
        learned(1, [(1, 6), (2, 200)]) + (b(TIME, 10) + b(AGE)) * 3 + b(TIME, 255) + struct.pack(">I", 4000000000) + b(AGE)
    )
    yield "aging-unacked", message(SOLICIT, 1, where(1)) + (b(TIME, 179) + b(AGE)) * 2
    yield "clock-wraps", b(TIME, 255, 0xFF, 0xFF, 0xFC, 0) + learned(1, [(1, 100)]) + b(TIME, 250) * 5 + b(AGE)
    yield "client-moves-port", (
        message(SOLICIT, 1, where(1)) + message(REQUEST, 1, where(2)) + leases(REPLY, 1, where(4), [(1, 9)])
    )
    yield "client-moves-vlan", message(SOLICIT, 1, where(1)) + message(SOLICIT, 1, where(1, 2))
    yield "reply-on-own-port", message(SOLICIT, 1, where(1)) + b(TRUST, 1, 1) + leases(REPLY, 1, where(1), [(1, 9)])
    yield "port-becomes-trusted", learned(1, [(1, 9)], 2) + b(TRUST, 2, 1) + leases(REPLY, 1, where(4), [(1, 9)])
    yield "rogue-server", (
        message(SOLICIT, 3, where(1)) + message(ADVERTISE, 3, where(2)) + leases(REPLY, 3, where(2), [(1, 9)])
        + message(RECONFIGURE, 3, where(2))
    )
    yield "client-behind-server-port", message(ADVERTISE, 3, where(4)) + leases(REPLY, 3, where(4), [(1, 9)])
    yield "server-behind-client-port", b(TRUST, 1, 1) + message(REQUEST, 1, where(1), how=UNICAST)
    yield "zero-mac", b"".join(message(kind, 0, where(1)) for kind in range(1, 14)) + leases(REPLY, 0, where(4), [(1, 9)])
    yield "port-limit", (
        b(PORT_LIMIT, 1, 0, 1) + message(SOLICIT, 1, where(1)) + message(SOLICIT, 2, where(1)) + message(RENEW, 1, where(1))
    )
    yield "vlan-limit", (
        b(VLAN_LIMIT, 0, 1, 0, 1) + message(SOLICIT, 1, where(1)) + message(SOLICIT, 2, where(2))
        + message(RENEW, 1, where(1))
    )
    yield "limit-zero", b(PORT_LIMIT, 1, 0, 0) + message(SOLICIT, 1, where(1))
    yield "crowd-fills-table", (
        crowd(where(1), 1, 2060) + b(PORT_LIMIT, 2, 0x08, 0) + message(SOLICIT, 200, where(2, 2)) + b(DELETE, 4, 0, 0)
    )
    yield "crowd-two-ports", (
        crowd(where(1), 1, 1200) + crowd(where(2, 2), 1201, 1200) + b(LINK, 1, 0) + crowd(where(2, 2), 3000, 900)
    )
    yield "crowd-ages-out", crowd(where(1), 1, 300) + b(TIME, 200) + b(AGE)
    yield "link-down", learned(1, [(1, 99)]) + learned(2, [(2, 99)], 2) + b(LINK, 1, 0) + b(LINK, 2, 1)
    yield "link-down-slow-remove", b(SWITCHES, 4) + learned(1, [(1, 99)]) + b(LINK, 1, 0)
    yield "delete-each-kind", b"".join(learned(1, [(1, 99), (2, 99)]) + b(DELETE, kind, 0, 1) for kind in (0, 1, 1, 2, 3, 4, 5))
    yield "delete-slow-clock", crowd(where(1), 1, 40) + b(SWITCHES, ON | 16) + b(DELETE, 4, 0, 0) + b(DELETE, 0, 0, 1)
    yield "snooping-off-and-on", (
        learned(1, [(1, 99)]) + b(SWITCHES, 2) + message(SOLICIT, 2, where(1)) + b(SWITCHES, ON)
        + message(SOLICIT, 3, where(1))
    )
    yield "relay-reply-unwrapped", (
        b(SWITCHES, ON | 1) + message(SOLICIT, 1, where(1))
        + leases(REPLY, 1, where(4), [(1, 99), (PREFIX | 3, 99)], RELAYED)
    )
    yield "relay-reply-two-tags", (
        b(SWITCHES, ON | 1) + message(SOLICIT, 1, where(1), how=SECOND_TAG)
        + leases(REPLY, 1, where(4), [(1, 99)], RELAYED | SECOND_TAG)
    )
    yield "relay-reply-nested", (
        b(SWITCHES, ON | 1) + message(RELAY_REPL, 1, where(4), bytes(30) + option(9, option(9, b(7))), RELAYED)
    )
    yield "relay-reply-no-message", b(SWITCHES, ON | 1) + message(RELAY_REPL, 1, where(4), bytes(30) + option(18, b"id"))
    for inner in range(5):
        yield f"relay-reply-inner-{inner}", (
            b(SWITCHES, ON | 1) + message(SOLICIT, 1, where(1))
            + message(RELAY_REPL, 1, where(4), bytes(30) + option(9, bytes([7, 0, 0, 1])[:inner]))
        )
    yield "relay-reply-message-runs-over", (
        b(SWITCHES, ON | 1) + message(RELAY_REPL, 1, where(4), bytes(30) + b(0, 9, 0, 34, 7, 0, 0, 1))
    )
    yield "relay-reply-short", (
        b(SWITCHES, ON | 1) + b"".join(message(RELAY_REPL, 1, where(4), bytes(n)) for n in (0, 1, 29, 30, 33, 34))
    )
    yield "relay-switch-off", leases(REPLY, 1, where(4), [(1, 9)], RELAYED) + message(RELAY_FORW, 1, where(1), bytes(30))
    yield "guarded-port", b(GUARD, 0, 1) + learned(1, [(1, 6)]) + b(TIME, 60) + b(AGE)
    # The second byte of GUARD: 1 on, 2 a binding follows (8 deletes it, 16 with MAC, 32 on the port, 64 in a VLAN), 4 an
    # exemption follows (8 takes it back), 6 all bindings go.
    yield "guard-bindings", (
        b(GUARD, 0, 1) + learned(1, [(1, 6), (6, 6)])
        + b"".join(b(GUARD, 0, 1 | 2 | how, client) + (b(0, 1) if how & 64 else b"")
                   for client, how in ((1, 0), (1, 16), (2, 16 | 32), (3, 32 | 64), (1, 8), (2, 8), (9, 8)))
        + b(GUARD, 0, 1 | 6) + b(GUARD, 0, 0)
    )  # fmt: skip
    yield "guard-shadows-a-mac", (
        learned(1, [(1, 6)]) + learned(2, [(2, 6)], 2) + b(GUARD, 0, 1) + b(GUARD, 1, 1 | 2 | 16, 1) + b(TIME, 60) + b(AGE)
        + b(GUARD, 1, 2 | 8, 1) + b(GUARD, 0, 0)
    )
    yield "guard-filters-fail", (
        learned(1, [(1, 6)]) + b(SWITCHES, ON | 32) + b(GUARD, 0, 1) + b(SWITCHES, ON) + b(GUARD, 0, 1) + b(SWITCHES, ON | 32)
        + b(GUARD, 0, 1 | 2, 7) + b(GUARD, 0, 1 | 4, 0, 10) + b(GUARD, 0, 0)
    )
    yield "guard-exempt-vlans", (
        b(GUARD, 0, 1 | 4, 0, 1) + b(GUARD, 0, 1 | 4, 0, 0) + b(GUARD, 0, 1 | 4, 15, 255) + b(GUARD, 0, 1 | 4 | 8, 0, 1)
    )
    yield "broadcast", message(SOLICIT, 1, where(1), how=BROADCAST) + leases(REPLY, 1, where(4), [(1, 9)], BROADCAST)
    yield "unicast-to-server", b"".join(message(REQUEST, 1, where(1), how=UNICAST | host << 5) for host in range(8))
    yield "server-behind-trunk", (
        b(PLATFORM, 2 | 3 << 2, 0, 7) + b(PLATFORM, 2 | 4 << 2, 0, 7) + b(TRUST, 5, 1)
        + b(PLATFORM, 0 | 3 << 2, 1, 0x20, 4, 0, 7) + message(REQUEST, 1, where(1), how=UNICAST | 3 << 5)
        + message(REQUEST, 1, where(5), how=UNICAST | 3 << 5))
    yield "trunk-without-members", (
        b(PLATFORM, 0, 1, 0x20, 4, 0, 9) + message(REQUEST, 8, where(1), how=UNICAST) + message(REPLY, 8, where(4))
    )
    yield "trunk-65535", (
        b(PLATFORM, 0, 1, 0x20, 4, 0xFF, 0xFF) + message(REQUEST, 8, where(1), how=UNICAST) + message(REPLY, 8, where(4))
    )
    yield "mac-on-no-port", b"".join(
        b(PLATFORM, 0, 1, 0, port, 0, 0) + message(REQUEST, 8, where(1), how=UNICAST) + message(REPLY, 8, where(4))
        for port in (0, 28, 29, 64, 255)
    )
    yield "vlan-without-ports", b(PLATFORM, 1 | 1 << 2) + bytes(8) + message(SOLICIT, 1, where(1)) + message(REPLY, 1, where(4))
    yield "members-beyond-ports", (
        b(PLATFORM, 1 | 1 << 2) + b"\xff" * 8 + b(PLATFORM, 3, 255) + message(SOLICIT, 1, where(1))
        + message(ADVERTISE, 1, where(4))
    )
    yield "no-ports", b(PLATFORM, 3, 0) + message(SOLICIT, 1, where(1)) + message(REQUEST, 1, where(1), how=UNICAST | 3 << 5)
    yield "unusual-places", b"".join(message(kind, 1, place) for place in range(64, 256, 9) for kind in (SOLICIT, REPLY))
    for bits in (64, 128, 192, 193):
        yield f"options-{bits}", b(SWITCHES, ON | bits) + b"".join(message(kind, 1, where(1), how=how)
                                                                    for kind in range(1, 13) for how in (0, SECOND_TAG))
    yield "sends-fail", b(SWITCHES, ON | 8) + learned(1, [(1, 9)])
    yield "vlan-reset", (
        learned(1, [(1, 99)]) + learned(2, [(2, 99)]) + b(VLAN_RESET, 0, 1) + message(SOLICIT, 3, where(1))
        + b(DELETE, 4, 0, 0)
    )
    yield "trust-guarded-port-refused", b(GUARD, 1, 1) + b(TRUST, 2, 1) + b(TRUST, 2, 2) + b(TRUST, 0, 1) + b(TRUST, 29, 1)
    yield "lying-lengths", (
        b(SWITCHES, ON | 1) + leases(REPLY, 1, where(4), [(1, 9)], LYING | RELAYED)
        + message(SOLICIT, 1, where(1), how=LYING)
    )
    for length in (0, 13, 17, 65, 66, 69, 70, 73, 74):
        yield f"raw-length-{length}", (
            raw(1, 1, 0, 66, (solicit_frame + bytes(16))[:length]) + raw(1, 1, 8, 70, (solicit_frame + bytes(16))[:length])
        )
    yield "raw-offsets", b"".join(
        raw(1, 1, flags, offset, solicit_frame)
        for flags in (0, 8)
        for offset in (0, 8, 18, 65, 66, 67, 70, 71, 65535)
    )
    relay_reply = b(RELAY_REPL) + bytes(33) + option(9, b(REPLY, 0, 0, 1))
    for offset in (0, 4, 8, 48, 65):
        yield f"raw-relay-reply-at-{offset}", (
            b(SWITCHES, ON | 1) + raw(4, 1, 0, offset, bytes(offset) + relay_reply)
            + raw(4, 1, 8, offset, bytes(offset) + relay_reply)
        )
    yield "raw-not-to-be-processed", raw(1, 1, 0x80, 66, solicit_frame)
    yield "raw-ports", b"".join(raw(port, 1, 0, 66, solicit_frame) for port in (0, 1, 28, 29, 64, 65, 255))
    yield "raw-vlans", b"".join(raw(1, vlan, 0, 66, solicit_frame) for vlan in (0, 4094, 4095, 4096, 65535))


def iaaddr(valid=100, preferred=50, behind=b"", last=1):
    return option(5, bytes.fromhex("20010db8") + bytes(11) + b(last) + struct.pack(">II", preferred, valid) + behind)


def iaprefix(valid=100, preferred=50, length=56, behind=b"", last=0):
    return option(26, struct.pack(">IIB", preferred, valid, length) + bytes.fromhex("20010db8") + bytes(11) + b(last) + behind)


def ia(code, inner=b"", t1=0, t2=0):
    return option(code, struct.pack(">III", 1, t1, t2) + inner)


def status(code):
    return option(13, struct.pack(">H", code) + b"text")


def option_seeds():
    areas = {
        "empty": b"",
        "three-bytes": bytes(3),
        "length-zero": option(3),
        "one-byte-too-long": b(0, 3, 0, 13) + bytes(12),
        "behind-truncated": b(0, 1, 0, 99) + ia(3, iaaddr()),
        "address": ia(3, iaaddr()),
        "prefix": ia(25, iaprefix()),
        "both": ia(3, iaaddr()) + ia(25, iaprefix()),
        "short-ia-then-good": option(3, bytes(8)) + ia(3, iaaddr()) + ia(3, iaaddr(last=2)),
        "ia-11-bytes": option(3, bytes(11)) + option(25, bytes(11)),
        "t1-beyond-t2": ia(3, iaaddr(), 3600, 1800) + ia(25, iaprefix(), 3600, 0),
        "ia-status": ia(3, iaaddr() + status(2)) + ia(25, iaprefix()),
        "prefix-status-wipes": ia(3, iaaddr()) + ia(25, iaprefix() + status(6)),
        "nested-status": ia(3, iaaddr(behind=status(1)) + iaaddr(last=2))
        + ia(25, iaprefix(behind=status(1)) + iaprefix(last=1)),
        "prefix-nested-status-shifted": ia(25, iaprefix(last=0, behind=b(13, 0, 2, 0) + bytes(8))),
        "twice-the-same": ia(3, iaaddr(100) + iaaddr(200) + iaaddr(300, last=2)),
        "prefix-128-is-the-address": ia(3, iaaddr()) + ia(25, iaprefix(length=128, last=1)),
        "prefix-length-255": ia(25, iaprefix(length=255)),
        "valid-below-preferred": ia(3, iaaddr(50, 100) + iaaddr(100, 100, last=2)),
        "lifetimes": ia(3, iaaddr(0, 0) + iaaddr(0xFFFFFFFF, 0xFFFFFFFF, last=2)) + ia(25, iaprefix(0, 0)),
        "seven-leases": ia(3, b"".join(iaaddr(last=n) for n in range(7))),
        "short-leases": ia(3, option(5, bytes(23)) + option(5, bytes(24)))
        + ia(25, option(26, bytes(24)) + option(26, bytes(25))),
        "status-one-byte": option(13, b(1)) + status(2),
        "status-first": status(0) + status(5),
    }
    for name, area in areas.items():
        yield f"{name}-reply", b(1) + area
        yield f"{name}-release", b(0x60) + area
    yield "repeated-option", b(2) + struct.pack(">H", 7) + option(7, b"a") + option(8) + option(7) + option(7, b"bc")
    yield "array-grow-and-shrink", b(0) + bytes(range(30)) + bytes([160, 165, 160, 190, 255]) + bytes(range(20))


def text_seeds():
    texts = [
        "::", "::1", "1::", "2001:db8::1", "1:2:3:4:5:6:7:8", "::2:3:4:5:6:7:8", "1:2:3:4:5:6:7::", "1::2:0:0:0:0:3",
        "1:2:3", "12345::1", "fffffffffffff::", "1::2::3", ":1::2", ":", ":1", "1:::2", "1:2:3:4:5:6:7:8:9", "1.2.3.4",
        ".1:2", "::1.2.3.4", "::ffff:1.2.3.4", "fe80::1%eth0", "g::1", "1:2:3:4:5:6:7:", "no address", "1:",
        "ABCD:ef01::", "::1 ",
    ]
    for index, text in enumerate(texts):
        yield f"text-{index:02d}", text.encode()
    yield "address-zero", bytes(16)
    yield "address-no-zero", b"\x11" * 16
    yield "address-zero-runs", bytes.fromhex("0001 0000 0002 0000 0000 0000 0000 0003")
    yield "address-last-group", bytes(15) + b"\x01"


def walk_seeds():
    dhcp = b(SOLICIT, 0, 0, 1) + option(1, b"duid")
    datagram = udp(dhcp)
    options = b(17, 0) + bytes(6)
    seeds = {
        "plain": (1, headers(17, datagram)),
        "two-tags": (0, headers(17, datagram, (10, 20))),
        "two-tags-one-added": (1, headers(17, datagram, (10, 20))),
        "three-tags": (0, headers(17, datagram, (1, 2, 3))),
        "untagged": (0, headers(17, datagram, ())),
        "to-client": (1, headers(17, udp(dhcp, 546))),
        "other-port": (1, headers(17, udp(dhcp, 53))),
        "padded": (1, headers(17, datagram) + bytes(10)),
        "payload-beyond-frame": (1, headers(17, datagram, length=len(datagram) + 1)),
        "datagram-beyond-payload": (1, headers(17, udp(dhcp, length=len(datagram) + 1))),
        "datagram-shorter-than-payload": (1, headers(17, udp(dhcp, length=9))),
        "udp-length-zero": (1, headers(17, udp(dhcp, length=0))),
        "udp-header-cut": (1, headers(17, datagram[:6])),
        "hop-by-hop": (1, headers(0, options + datagram)),
        "destination-options": (1, headers(60, options + datagram)),
        "routing": (1, headers(43, b(17, 2) + bytes(22) + datagram)),
        "authentication": (1, headers(51, b(17, 4) + bytes(22) + datagram)),
        "mobility": (1, headers(135, options + datagram)),
        "chain": (1, headers(0, b(60, 0) + bytes(6) + b(43, 0) + bytes(6) + options + datagram)),
        "chain-two-tags": (0, headers(0, options + datagram, (1, 2))),
        "extension-cut": (1, headers(0, b(17, 200) + bytes(6) + datagram)),
        "first-fragment": (1, headers(44, b(17, 0, 0, 1, 0, 0, 0, 9) + datagram)),
        "later-fragment": (1, headers(44, b(17, 0, 0, 9, 0, 0, 0, 9) + datagram)),
        "atomic-fragment": (1, headers(44, b(17, 0, 0, 0, 0, 0, 0, 9) + datagram)),
        "fragment-twice": (1, headers(44, b(44, 0, 0, 0, 0, 0, 0, 9) + b(17, 0, 0, 0, 0, 0, 0, 9) + datagram)),
        "first-fragment-without-ports": (1, headers(44, b(60, 0, 0, 1, 0, 0, 0, 9) + b(17, 9) + bytes(6))),
        "esp": (1, headers(50, bytes(40))),
        "icmpv6": (1, headers(58, bytes(40))),
        "unknown-header": (1, headers(200, bytes(40))),
        "no-version-6": (1, headers(17, datagram).replace(b"\x60\0\0\0", b"\x40\0\0\0", 1)),
        "arp": (1, bytes(12) + bytes.fromhex("8100 0001 0806") + bytes(46)),
    }
    for name, (added, frame) in seeds.items():
        yield name, b(added, 1) + frame
    for length in (0, 13, 17, 18, 57, 58, 61, 65):
        yield f"cut-at-{length}", b(1, 1) + headers(17, datagram)[:length]


TARGETS = {
    "fuzz_frame": frame_seeds,
    "fuzz_insertion": insertion_seeds,
    "fuzz_mib": mib_seeds,
    "fuzz_netlink": netlink_seeds,
    "fuzz_option": option_seeds,
    "fuzz_remote": remote_seeds,
    "fuzz_text": text_seeds,
    "fuzz_walk": walk_seeds,
}


def main():
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).parent / "corpus"
    for target, seeds in TARGETS.items():
        folder = root / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, content in seeds():
            (folder / name).write_bytes(content)
        print(f"{target}: {len(list(folder.iterdir()))} inputs")


if __name__ == "__main__":
    main()
