"""Neighbour discovery and multicast listener discovery as hosts send them, byte by byte. Every field can be made wrong.

`How` says what is around a message: the fields that a host must fill in one way only. What differs between systems is an
argument of the message."""

import struct
from dataclasses import dataclass, replace

from . import frames
from .frames import HOP_BY_HOP, ip_bytes, ip_text, mac_bytes, mac_text

ICMP6 = 58
(LISTENER_QUERY, OLD_REPORT, DONE, ROUTER_SOLICITATION, ROUTER_ADVERTISEMENT, SOLICITATION, ADVERTISEMENT, REDIRECT,
 REPORT) = 130, 131, 132, 133, 134, 135, 136, 137, 143  # fmt: skip
ALL_NODES, ALL_ROUTERS, ALL_REPORTS = "ff02::1", "ff02::2", "ff02::16"
UNSPECIFIED = "::"
ROUTER, SOLICITED, OVERRIDE = 0x80, 0x40, 0x20  # flags of an advertisement
TO_EXCLUDE, TO_INCLUDE, ALLOW_NEW, IS_EXCLUDE = 4, 3, 5, 2  # records of a listener report

ALERT_FIRST = bytes([5, 2, 0, 0, 1, 0])  # router alert and PadN: Linux, Windows
ALERT_LAST = bytes([1, 0, 5, 2, 0, 0])  # BSD, macOS


def solicited_node(address):
    return ip_text(ip_bytes("ff02::1:ff00:0")[:13] + ip_bytes(address)[13:])


def group_mac(address):
    return mac_text(b"\x33\x33" + ip_bytes(address)[12:])


@dataclass(frozen=True)
class How:
    """What is around a message. `headers` are between the fixed header and ICMPv6, and `first` is the number of the first of
    them. `trailing` bytes follow the packet, which `length` (of its payload) may include or not."""

    mac: str
    to_mac: str = "02:dd:00:00:00:01"  # of unicast packets; no station has it, so the bridge floods them
    hop_limit: int = 255
    code: int = 0
    first: int = ICMP6
    headers: bytes = b""
    trailing: bytes = b""
    length: int = None
    tags: tuple = ()

    def but(self, **fields):
        return replace(self, **fields)


def message(how, kind, source, destination, body):
    """A whole frame. `body` follows the checksum."""
    head = bytes([kind, how.code])
    pseudo = ip_bytes(source) + ip_bytes(destination) + struct.pack("!II", 4 + len(body), ICMP6)
    check = 0xFFFF - frames.checksum(pseudo + head + b"\0\0" + body)
    packet = frames.ipv6(source, destination, how.first, how.headers + head + struct.pack("!H", check) + body, how.hop_limit)
    if how.length is not None:
        packet = packet[:4] + struct.pack("!H", how.length) + packet[6:]
    to_mac = group_mac(destination) if ip_bytes(destination)[0] == 0xFF else how.to_mac
    return frames.ethernet(to_mac, how.mac, packet + how.trailing, tags=how.tags)


# ---- Neighbour discovery ---------------------------------------------------------------------------------------------------


def link_layer(kind, mac):
    """The option with the sender's (1) or the target's (2) MAC address."""
    return bytes([kind, 1]) + mac_bytes(mac)


def source_mac(how):
    return link_layer(1, how.mac)


def target_mac(how):
    return link_layer(2, how.mac)


def nonce(number=0x5EED):
    """The option by which a host knows its own solicitation when it comes back (RFC 7527)."""
    return bytes([14, 1]) + number.to_bytes(6, "big")


def filling(size):
    """Options that nobody knows, `size` bytes of them: a multiple of 8."""
    return bytes([253, size // 8]) + bytes(size - 2) if size else b""


def solicitation(how, target, source, destination=None, options=b""):
    destination = destination or solicited_node(target)
    return message(how, SOLICITATION, source, destination, bytes(4) + ip_bytes(target) + options)


def advertisement(how, target, source, destination, flags, options=b""):
    return message(how, ADVERTISEMENT, source, destination, bytes([flags, 0, 0, 0]) + ip_bytes(target) + options)


def router_solicitation(how, source, destination=ALL_ROUTERS, options=b""):
    return message(how, ROUTER_SOLICITATION, source, destination, bytes(4) + options)


def router_advertisement(how, source, destination=ALL_NODES, options=b""):
    return message(how, ROUTER_ADVERTISEMENT, source, destination, struct.pack("!BBHII", 64, 0, 1800, 0, 0) + options)


def redirect(how, source, destination, target, final, options=b""):
    """Packets to `final` shall go to `target`."""
    return message(how, REDIRECT, source, destination, bytes(4) + ip_bytes(target) + ip_bytes(final) + options)


# ---- Listener discovery ----------------------------------------------------------------------------------------------------


def listening(how, options=ALERT_FIRST, following=ICMP6):
    """Such a message is for the link, and routers have to look at it."""
    return how.but(hop_limit=1, first=HOP_BY_HOP, headers=bytes([following, (len(options) - 6) // 8]) + options)


def old_report(how, source, group, destination=None):
    """MLDv1: a member is here."""
    return message(how, OLD_REPORT, source, destination or group, bytes(4) + ip_bytes(group))


def done(how, source, group, destination=ALL_ROUTERS):
    """MLDv1: the last member is gone, perhaps."""
    return message(how, DONE, source, destination, bytes(4) + ip_bytes(group))


def record(group, kind=TO_EXCLUDE, sources=()):
    return struct.pack("!BBH", kind, 0, len(sources)) + ip_bytes(group) + b"".join(map(ip_bytes, sources))


def report(how, source, *records, destination=ALL_REPORTS):
    """MLDv2."""
    return message(how, REPORT, source, destination, struct.pack("!HH", 0, len(records)) + b"".join(records))


# ---- What a guarded port takes without a binding ---------------------------------------------------------------------------

SMALL = 128  # bytes of a packet, but for router advertisements and MLDv2 reports
TARGET, FINAL = slice(48, 64), slice(64, 80)  # of a packet with ICMPv6 directly after the fixed header


def is_link_local(source):
    return source[0] == 0xFE and source[1] & 0xC0 == 0x80


def _is_host(address):
    """Not a group, not nobody, and all of its bytes are there."""
    return len(address) == 16 and address[0] != 0xFF and any(address)


def _discovers(packet, source, to):
    kind, local, small = packet[40], is_link_local(source), len(packet) <= SMALL
    if kind == ROUTER_ADVERTISEMENT:
        return local
    if kind == ROUTER_SOLICITATION:
        return small and (local or (not any(source) and to == ip_bytes(ALL_ROUTERS)))
    if kind == SOLICITATION:
        to_node = to[:13] == ip_bytes("ff02::1:ff00:0")[:13]
        return small and _is_host(packet[TARGET]) and (local or (not any(source) and to_node))
    if kind == ADVERTISEMENT:
        return small and local and _is_host(packet[TARGET]) and (to[0] != 0xFF or not packet[44] & SOLICITED)
    return kind == REDIRECT and small and local and _is_host(packet[TARGET]) and _is_host(packet[FINAL])


def _listens(packet, source, to):
    kind = packet[48]
    if packet[40:42] != bytes([ICMP6, 0]) or packet[42:48] not in (ALERT_FIRST, ALERT_LAST) or packet[49] != 0:
        return False
    if any(source) and not is_link_local(source):
        return False
    if kind == REPORT:
        return to == ip_bytes(ALL_REPORTS)
    return len(packet) <= SMALL and ((kind == OLD_REPORT and to[0] == 0xFF) or (kind == DONE and to == ip_bytes(ALL_ROUTERS)))


def passes_without_binding(frame):
    """Whether an untagged frame passes a guarded port that has no binding and takes router advertisements."""
    if frame[12:14] != b"\x86\xdd":
        return True
    packet = frame[14:]
    if len(packet) < 50:
        return False
    following, hops, source, to = packet[6], packet[7], packet[8:24], packet[24:40]
    if following == ICMP6:
        return hops == 255 and packet[41] == 0 and _discovers(packet, source, to)
    return following == HOP_BY_HOP and hops == 1 and _listens(packet, source, to)
