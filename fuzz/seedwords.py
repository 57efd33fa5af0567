"""The words that seeds are written in: the records of framescript.h, and the messages in them."""

import struct

(RAW, MESSAGE, LEASES, CROWD, TIME, AGE, TRUST, PORT_LIMIT, VLAN_LIMIT, SWITCHES, LINK, DELETE, GUARD, QUERY, VLAN_RESET,
 PLATFORM) = range(16)  # fmt: skip

SOLICIT, ADVERTISE, REQUEST, CONFIRM, RENEW, REBIND, REPLY, RELEASE, DECLINE = range(1, 10)
RECONFIGURE, INFORMATION, RELAY_FORW, RELAY_REPL = range(10, 14)

SECOND_TAG, RELAYED, BROADCAST, UNICAST, LYING = 1, 2, 4, 8, 16
ON = 2 | 4  # fast-remove and snooping
PREFIX = 0x80


def b(*values):
    return bytes(values)


def where(port, vlan=1):
    return (port - 1) | (vlan - 1) << 3


def option(code, data=b""):
    return struct.pack(">HH", code, len(data)) + data


def message(kind, client, place, options=b"", how=0):
    return b(MESSAGE, kind, client, place, how, len(options)) + options


def leases(kind, client, place, held, how=0):
    """held: (number, seconds / 4) pairs; a number from PREFIX on is a prefix."""
    return b(LEASES, kind, client, place, how, len(held)) + b"".join(b(*lease) for lease in held)


def crowd(place, first, clients):
    return b(CROWD, place) + struct.pack(">HH", first, clients)


def raw(port, vlan, flags, offset, frame):
    return b(RAW, port) + struct.pack(">HBHH", vlan, flags, offset, len(frame)) + frame


def learned(client, held, port=1):
    """A client on `port` that has these leases from the server on port 4."""
    return message(SOLICIT, client, where(port)) + leases(REPLY, client, where(4), held)
