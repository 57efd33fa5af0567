"""Frames in words: Ethernet with VLAN tags, IPv6 with extension headers, UDP, DHCPv6. Built byte by byte here, so that a test
knows every byte it sent, and read back the same way."""

import socket
import struct

ETH_IPV6, ETH_8021Q, ETH_8021AD, ETH_MARKER = 0x86DD, 0x8100, 0x88A8, 0x88B5
CLIENT_PORT, SERVER_PORT = 546, 547
UDP = 17

SOLICIT, ADVERTISE, REQUEST, CONFIRM, RENEW, REBIND, REPLY, RELEASE, DECLINE = 1, 2, 3, 4, 5, 6, 7, 8, 9
RECONFIGURE, INFORMATION_REQUEST, RELAY_FORW, RELAY_REPL = 10, 11, 12, 13

SERVERS = "ff02::1:2"  # every server and relay of the link
SERVERS_MAC = "33:33:00:01:00:02"


def mac_bytes(text):
    return bytes.fromhex(text.replace(":", ""))


def mac_text(raw):
    return ":".join(f"{byte:02x}" for byte in raw)


def mac_number(number):
    """The MAC address of client `number`, locally administered."""
    return mac_text(b"\x02\x0c" + struct.pack("!I", number))


def ip_bytes(text):
    return socket.inet_pton(socket.AF_INET6, text)


def ip_text(raw):
    return socket.inet_ntop(socket.AF_INET6, raw)


def link_local(mac):
    raw = mac_bytes(mac)
    return ip_text(b"\xfe\x80" + bytes(6) + bytes([raw[0] ^ 2]) + raw[1:3] + b"\xff\xfe" + raw[3:])


# ---- Layers ---------------------------------------------------------------------------------------------------------


def ethernet(destination, source, payload, ether_type=ETH_IPV6, tags=()):
    """Each tag is a VLAN id, or (VLAN id, tag protocol)."""
    header = mac_bytes(destination) + mac_bytes(source)
    for tag in tags:
        vlan, protocol = tag if isinstance(tag, tuple) else (tag, ETH_8021Q)
        header += struct.pack("!HH", protocol, vlan)
    return header + struct.pack("!H", ether_type) + payload


def ipv6(source, destination, next_header, payload, hop_limit=64):
    fixed = struct.pack("!IHBB", 0x60000000, len(payload), next_header, hop_limit)
    return fixed + ip_bytes(source) + ip_bytes(destination) + payload


def checksum(raw):
    """The Internet checksum, not inverted."""
    if len(raw) % 2:
        raw += b"\0"
    total = sum(struct.unpack(f"!{len(raw) // 2}H", raw))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return total


def udp_checksum(source, destination, segment):
    """Over the pseudo header and a segment whose checksum field is 0."""
    pseudo = ip_bytes(source) + ip_bytes(destination) + struct.pack("!IHBB", len(segment), 0, 0, UDP)
    return (0xFFFF - checksum(pseudo + segment)) or 0xFFFF


def udp(source, destination, source_port, destination_port, payload):
    head = struct.pack("!HHH", source_port, destination_port, 8 + len(payload))
    return head + struct.pack("!H", udp_checksum(source, destination, head + b"\0\0" + payload)) + payload


# ---- Extension headers: each takes the number of what follows, and returns its own bytes --------------------------------

HOP_BY_HOP, ROUTING, FRAGMENT, AUTHENTICATION, NO_NEXT, DESTINATION, MOBILITY, HIP, SHIM6 = 0, 43, 44, 51, 59, 60, 135, 139, 140


def options_header(following, length=8):
    """Hop-by-hop, destination options, routing, mobility, HIP and shim6 share this shape; filled with PadN."""
    return bytes([following, length // 8 - 1, 1, length - 4]) + bytes(length - 4)


def routing_header(following):
    """Type 0 with no segments left and no addresses: nothing for anybody to do."""
    return bytes([following, 0, 0, 0]) + bytes(4)


def authentication_header(following):
    return bytes([following, 4, 0, 0]) + bytes(20)  # length in 4-byte units minus 2


def fragment_header(following, offset, more, identification=0x5EED):
    return struct.pack("!BBHI", following, 0, offset | (1 if more else 0), identification)


# ---- DHCPv6 -----------------------------------------------------------------------------------------------------------


def option(code, data):
    return struct.pack("!HH", code, len(data)) + data


def duid(mac):
    return struct.pack("!HH", 3, 1) + mac_bytes(mac)


def ia_na(addresses=(), iaid=1, t1=0, t2=0, preferred=3600, valid=7200):
    inner = b"".join(option(5, ip_bytes(a) + struct.pack("!II", preferred, valid)) for a in addresses)
    return option(3, struct.pack("!III", iaid, t1, t2) + inner)


def ia_pd(prefixes=(), iaid=1, t1=0, t2=0, preferred=3600, valid=7200):
    inner = b""
    for prefix in prefixes:
        address, length = prefix.split("/")
        inner += option(26, struct.pack("!IIB", preferred, valid, int(length)) + ip_bytes(address))
    return option(25, struct.pack("!III", iaid, t1, t2) + inner)


def message(kind, transaction=0x010203, options=b""):
    return bytes([kind]) + transaction.to_bytes(3, "big") + options


def relay_message(kind, inner, link="2001:db8::1", peer="fe80::1", hops=0, before=b""):
    return bytes([kind, hops]) + ip_bytes(link) + ip_bytes(peer) + before + option(9, inner)


def from_client(kind, mac, options=None, transaction=0x010203, tags=(), destination=SERVERS_MAC, payload=None,
                port=CLIENT_PORT):
    """What a client sends to all servers."""
    if options is None:
        options = option(1, duid(mac)) + ia_na()
    if payload is None:
        payload = message(kind, transaction, options)
    source = link_local(mac)
    segment = udp(source, SERVERS, port, SERVER_PORT, payload)
    return ethernet(destination, mac, ipv6(source, SERVERS, UDP, segment, 1), tags=tags)


def from_server(kind, client, options=b"", transaction=0x010203, tags=(), server="02:5e:00:00:00:01", payload=None,
                destination=None, port=CLIENT_PORT):
    """What a server sends to one client."""
    if payload is None:
        payload = message(kind, transaction, options)
    source, to = link_local(server), link_local(client)
    segment = udp(source, to, SERVER_PORT, port, payload)
    return ethernet(destination or client, server, ipv6(source, to, UDP, segment), tags=tags)


# ---- Reading ------------------------------------------------------------------------------------------------------------


def read(frame):
    """The layers of a frame without extension headers: a dict with macs, tags, and as far as they are there, IPv6 addresses,
    UDP ports, `udp_ok` for the checksum, and the payload."""
    found = {"destination": mac_text(frame[0:6]), "source": mac_text(frame[6:12]), "tags": []}
    at = 12
    while struct.unpack_from("!H", frame, at)[0] in (ETH_8021Q, ETH_8021AD):
        found["tags"].append(struct.unpack_from("!H", frame, at + 2)[0] & 0xFFF)
        at += 4
    found["type"] = struct.unpack_from("!H", frame, at)[0]
    at += 2
    if found["type"] != ETH_IPV6:
        return found
    length, found["next"] = struct.unpack_from("!HB", frame, at + 4)
    found["from"], found["to"] = ip_text(frame[at + 8 : at + 24]), ip_text(frame[at + 24 : at + 40])
    segment = frame[at + 40 : at + 40 + length]
    if found["next"] == UDP:
        found["sport"], found["dport"], found["udp_length"], check = struct.unpack_from("!HHHH", segment)
        bare = segment[:6] + b"\0\0" + segment[8:]
        found["udp_ok"] = found["udp_length"] == len(segment) and check == udp_checksum(found["from"], found["to"], bare)
        found["payload"] = segment[8:]
    return found


def dhcp_kind(frame):
    """The DHCPv6 message type of a frame, None for any other frame."""
    found = read(frame)
    if found.get("dport") in (CLIENT_PORT, SERVER_PORT) and found["payload"]:
        return found["payload"][0]
    return None


def options(raw):
    """The options of an area, as (code, data)."""
    at = 0
    while at < len(raw):
        code, length = struct.unpack_from("!HH", raw, at)
        yield code, raw[at + 4 : at + 4 + length]
        at += 4 + length


def transaction(frame):
    return int.from_bytes(read(frame)["payload"][1:4], "big")
