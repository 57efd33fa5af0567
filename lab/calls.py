"""The daemon's socket, spoken directly: remote calls and the platform's status tables, as numbers. The command shell speaks the
same; what a test counts it asks here, because a question costs microseconds instead of a process."""

import os
import socket
import struct

from . import patience
from .frames import ip_text, mac_text

HEADER = struct.Struct("<HHIHHiQ")  # type, version, request id, flags, payload length, result, zero
REMOTE_CALL, STATUS = 1, 0x8003
REFUSED = -1  # what a refused call answers
NONE = (1 << 32) - 1

(START, STOP, PORT_MODE, PORT_MODE_GET, PORT_MAX, PORT_MAX_GET, VLANS_MAX, NEXT_CLIENT, GLOBAL_INFO, PORT_INFO, VLAN_MAX_GET,
 DELETE_BY_PORT, DELETE_BY_IP, DELETE_BY_MAC, DELETE_BY_VLAN, DELETE_ALL, FAST_REMOVE, L2_RELAY,
 VLAN_RESET) = 0, 1, 2, 3, 6, 7, 8, 9, 10, 11, 12, 25, 26, 27, 28, 29, 34, 35, 36  # fmt: skip

(GUARD, GUARD_GET, BIND_COUNT, BIND, BIND_CHECK, UNBIND, UNBIND_ALL, BIND_GET, BIND_BY_IP, EXEMPT,
 EXEMPT_GET) = 4, 5, 13, 14, 15, 16, 17, 18, 19, 23, 24  # fmt: skip
OPTION18, OPTION37, ID_SET, INFO_GET = 30, 31, 32, 33

GUARD_ON, GUARD_OFF = 0, 1
EXEMPT_ADD, EXEMPT_REMOVE = 0, 1

SWITCH_STATUS = struct.Struct("<16s16sIIIIII6sBx")
PORT_STATUS = struct.Struct("<II16sIIIIII")
COUNTERS = struct.Struct("<II13Q")
COUNTER_NAMES = ("received", "delivered", "sent", "sendFailed", "notDhcpv6", "dropMalformed", "dropFragment", "dropVlan",
                 "dropState", "dropSender", "dropSource", "dropOversize", "kernelDropped")  # fmt: skip

GUARD_STATUS = struct.Struct("<IIIIQQQ")
FILTER_STATUS = struct.Struct("<IIII6s2x16s")
BINDING = struct.Struct("<16x16s6s2xII")


def u32(value):
    return struct.pack("<I", value)


def vlan_list(*vlans):
    raw = bytearray(512)
    for vlan in vlans:
        raw[vlan // 8] |= 0x80 >> (vlan % 8)
    return bytes(raw)


def connect(folder):
    """A connection to the daemon whose run folder this is; OSError when nobody answers."""
    link = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    link.settimeout(patience.seconds(20))
    try:
        link.connect(os.path.join(folder, "snoopd6.sock"))
    except OSError:
        link.close()
        raise
    return link


def ask(link, kind, payload, request=7):
    """One message and its answer: (result, payload)."""
    link.send(HEADER.pack(kind, 1, request, 0, len(payload), 0, 0) + payload)
    answer = link.recv(65536)
    got, version, echo, flags, length, result, zero = HEADER.unpack_from(answer)
    assert (got, version, echo, flags, zero) == (kind, 1, request, 0, 0), answer[:24]
    assert len(answer) == HEADER.size + length, (len(answer), length)
    return result, answer[HEADER.size :]


def call(link, number, *arguments):
    """One remote call: (result, what the daemon left in each argument)."""
    payload = struct.pack("<II", number, len(arguments))
    for argument in arguments:
        payload += struct.pack("<II", len(argument), 0) + argument + bytes(-len(argument) % 8)
    result, answer = ask(link, REMOTE_CALL, payload)
    outs, at = [], 8
    for argument in arguments:
        outs.append(answer[at + 8 : at + 8 + len(argument)])
        at += 8 + len(argument) + -len(argument) % 8
    return result, outs


def clients(link):
    """The acknowledged clients, by MAC text: VLAN, port and leases as (address text/prefix length, seconds left)."""
    found, mac = {}, bytes(6)
    while True:
        result, outs = call(link, NEXT_CLIENT, mac, u32(0), u32(0), u32(0), bytes(200), bytes(40))
        if result != 0:
            return found
        mac = outs[0]
        vlan, port, count = (struct.unpack("<I", out)[0] for out in outs[1:4])
        leases = {}
        for index in range(count):
            address, length = struct.unpack_from("<16sI", outs[4], index * 20)
            lease = f"{ip_text(address)}/{length}"
            assert lease not in leases, f"{lease} is there twice"
            leases[lease] = struct.unpack_from("<I", outs[5], index * 4)[0]
        found[mac_text(mac)] = {"vlan": vlan, "port": port, "leases": leases}


def port_info(link, port):
    """Trust, most clients, clients."""
    result, outs = call(link, PORT_INFO, u32(port), bytes(12))
    assert result == 0, result
    return dict(zip(("trust", "maximum", "clients"), struct.unpack("<III", outs[1])))


def table(link, number, record):
    """All records of a status table, unpacked."""
    rows, start = [], 0
    while True:
        result, answer = ask(link, STATUS, struct.pack("<II", number, start))
        assert result == 0, result
        _, start, count, size = struct.unpack_from("<IIII", answer)
        assert size == record.size and len(answer) == 16 + count * size, (size, record.size, len(answer), count)
        rows += [record.unpack_from(answer, 16 + index * size) for index in range(count)]
        if start == 0:
            return rows


def switch_status(link):
    row = table(link, 0, SWITCH_STATUS)[0]
    names = ("bridge", "version", "pid", "upSeconds", "ports", "vlanFiltering", "trap", "snooping", "mac", "rules")
    return dict(zip(names, row))


def ports(link):
    names = ("number", "type", "interface", "ifindex", "link", "forwarding", "nativeVlan", "trunk", "reserved")
    return {row[0]: dict(zip(names, row)) for row in table(link, 1, PORT_STATUS)}


def counters(link):
    return {row[0]: dict(zip(COUNTER_NAMES, row[2:])) for row in table(link, 4, COUNTERS)}


def guard(link):
    """What the source guard wants and did on each port."""
    names = ("guarded", "installed", "blocked", "local", "discovery")
    return {row[0]: dict(zip(names, (*row[1:3], *row[4:]))) for row in table(link, 5, GUARD_STATUS)}


def filters(link):
    """The forward filters that the daemon wants: (kind, port, VLAN, MAC text, address text) -> 1 when the kernel has it."""
    return {
        (kind, port, vlan, mac_text(mac), ip_text(address)): installed
        for kind, port, vlan, installed, mac, address in table(link, 6, FILTER_STATUS)
    }
