"""The hand-made seeds of fuzz_remote and fuzz_mib: remote calls, and what SNMP managers ask and set."""

import struct

from seedwords import GUARD, PLATFORM, PREFIX, REPLY, SOLICIT, b, leases, message, where

EVENT, PAYLOAD, CALL, LYING_CALL = range(4)
BUILD = 0xF0
NUMBER, MAC, ADDRESS, VLAN_LIST, LEASE_LINES, SLOT, BEYOND_SLOT, NOTHING = range(8)


def call(identifier, *arguments, kind=CALL):
    """Arguments are a number (sent as 32 bits), or a kind of buffer and the byte that it starts with."""
    text = b(kind, identifier, len(arguments))
    for argument in arguments:
        text += b(NUMBER, argument) if isinstance(argument, int) else b(*argument)
    return text


def remote_seeds():
    out = (NUMBER, 0)
    mac = (MAC, 1)
    yield "daemon-settings", (
        b(0) + call(0) + call(2, 4, 1) + call(3, 4, out) + call(6, 1, 5) + call(7, 1, out, out) + call(1) + call(0)
    )
    yield "daemon-queries", (
        b(0) + b(EVENT) + message(SOLICIT, 1, where(1)) + b(EVENT) + leases(REPLY, 1, where(4), [(1, 99), (PREFIX | 2, 99)])
        + call(9, (MAC, 0), out, out, out, (LEASE_LINES, 0), (40, 0)) + call(10, (8, 0))
        + call(11, 1, (12, 0)) + call(12, 1, out, out))
    for identifier, argument in ((25, 1), (26, (ADDRESS, 1)), (27, mac), (28, 1), (36, (VLAN_LIST, 0x40))):
        yield f"daemon-call-{identifier}", (
            b(0) + b(EVENT) + message(SOLICIT, 1, where(1)) + b(EVENT) + leases(REPLY, 1, where(4), [(1, 99)])
            + call(identifier, argument) + call(identifier)
        )
    yield "daemon-delete-all", b(0) + b(EVENT) + message(SOLICIT, 1, where(1)) + call(29)
    yield "daemon-vlan-list", b(0) + call(8, 7, (VLAN_LIST, 0xFF)) + call(34, 1) + call(35, 1)
    counts = ((2, 2), (3, 2), (8, 2), (9, 6), (10, 1), (26, 1), (27, 1), (36, 1))
    yield "daemon-short-buffers", (
        b(0)
        + b"".join(call(i, *[(NOTHING, 0)] * n) for i, n in counts)
    )
    yield "daemon-wrong-counts", b(0) + b"".join(call(i, 1, 1, 1, 1) for i in range(37))
    yield "daemon-information", (
        b(0) + call(30, 1) + call(31, 1) + b"".join(call(32, n % 2, n % 7, (VLAN_LIST, 0x41)) for n in range(14))
        + call(35, 1) + b(EVENT) + message(SOLICIT, 1, where(1)) + call(33, (200, 0), (VLAN_LIST, 0), (VLAN_LIST, 0)))
    rows = b"".join(call(20, row, (ADDRESS, 1), mac, 3, 10) for row in (0, 0, 239, 240, 255))
    yield "daemon-snmp-rows", b(0) + rows + call(21, (ADDRESS, 1)) + call(21, (ADDRESS, 9)) + rows + call(22) + call(22)
    bindings = call(14, (ADDRESS, 1), mac, 3, 10) + call(14, (ADDRESS, 2), (6, 0), 0, 0)
    bindings += call(14, (ADDRESS, 3), (MAC, 2), 200, 0)
    settings = (
        call(0) + call(34, 0) + call(35, 1) + call(2, 1, 1) + call(4, 2, 0) + call(6, 3, 7) + call(8, 7, (VLAN_LIST, 0x55))
        + call(30, 1) + call(32, 1, 4, (VLAN_LIST, 0x41)) + call(31, 1) + call(32, 0, 5, (VLAN_LIST, 0x41))
        + call(23, 0, (VLAN_LIST, 0x55), (VLAN_LIST, 0)) + bindings
    )  # fmt: skip
    spaces = (0, 1, 10, 20, 37, 38, 100, 200, 400, 800, 0xFFFF)
    yield "daemon-running-config", b(0) + settings + b"".join(struct.pack(">BH", BUILD, space) for space in spaces)
    yield "daemon-lying-length", b(0) + call(2, 4, 1, kind=LYING_CALL) + b(200) + call(2, 4, 1, kind=LYING_CALL) + b(8)
    yield "scribble-each-count", b(1) + b"".join(call(2, *[(SLOT, 1)] * n) for n in range(10))
    yield "scribble-each-size", b(1) + b"".join(call(2, (kind, 1)) for kind in range(32))
    yield "scribble-beyond-slot", b(1) + call(2, (BEYOND_SLOT, 1))
    yield "unregistered", b(1) + call(3) + call(63)
    yield "payload-empty", b(1, PAYLOAD, 0) + b(PAYLOAD, 7) + bytes(7) + b(PAYLOAD, 8) + bytes(8)
    yield "payload-argument-runs-over", b(1, PAYLOAD, 24) + struct.pack("<IIII", 2, 1, 9, 0) + bytes(8)
    yield "payload-argument-huge", b(1, PAYLOAD, 24) + struct.pack("<IIII", 2, 1, 0xFFFFFFFF, 0) + bytes(8)
    yield "payload-count-huge", b(1, PAYLOAD, 16) + struct.pack("<II", 2, 0xFFFFFFFF) + bytes(8)
    yield "payload-trailing-bytes", b(1, PAYLOAD, 16) + struct.pack("<II", 2, 0) + bytes(8)


MIB_SCRIPT, MIB_REQUEST, MIB_ONWARD, MIB_SET, MIB_WALK, MIB_PAYLOAD = range(6)
MIB_GETNEXT, MIB_GET, MIB_TEST, MIB_COMMIT = 1, 2, 5, 6
MIB_NOTHING, MIB_SCALAR, MIB_HUGE = b(0), b(3), b(7) + b"\xff" * 4
(ON_OFF, PORT_INDEX, PORT_TRUST, PORT_MAX, PORT_GUARD, VLAN_INDEX, VLAN_MAX, DOWN_ACTION, CLIENT_MAC) = range(9)
CLIENT_TIME = 14
(BIND_INDEX, BIND_ADDRESS, BIND_MAC, BIND_PORT, BIND_VLAN, BIND_STATUS, EXEMPT) = range(15, 22)
(ENABLE18, ENABLE37, REMOTE_TYPE, REMOTE_TEXT, INTERFACE_TYPE, INTERFACE_TEXT) = range(22, 28)


def row(number):
    return b(1, number)


def mib_value(value):
    return b(1, value) if isinstance(value, int) else b(0, len(value)) + value


def ask(operation, number, index, value=b""):
    return b(MIB_REQUEST, operation, number) + index + mib_value(value)


def mib_set(number, index, value):
    return b(MIB_SET, number) + index + mib_value(value)


def mib_binding(number, address, mac=b"02:00:00:00:00:01", port=1, vlan=1, status=4):
    columns = ((BIND_INDEX, number), (BIND_ADDRESS, address), (BIND_MAC, mac), (BIND_PORT, port), (BIND_VLAN, vlan))
    return b"".join(mib_set(column, row(number), value) for column, value in (*columns, (BIND_STATUS, status)))


def mib_client(client, held):
    return b(MIB_SCRIPT) + message(SOLICIT, client, where(1)) + b(MIB_SCRIPT) + leases(REPLY, client, where(4), held)


def mib_seeds():
    clients = mib_client(1, [(1, 9)]) + mib_client(2, [(n, 200) for n in range(2, 9)])
    binding = mib_binding(5, b"2001:db8::1")
    yield "empty", b""
    yield "walk", b(MIB_WALK)
    yield "walk-clients-and-bindings", clients + binding + b(MIB_WALK)
    for operation in range(8):
        yield f"operation-{operation}", b"".join(ask(operation, number, MIB_SCALAR, 1) for number in range(28))
    for name, index in (("none", MIB_NOTHING), ("huge", MIB_HUGE), ("row-1", row(1)), ("row-240", row(240)),
                        ("client", b(4, 1)), ("wide-arcs", b(5) + b"\1\2" * 6), ("long", b(6 | 31 << 3) + bytes(31))):
        yield f"index-{name}", clients + binding + b"".join(
            ask(operation, number, index) for operation in (MIB_GET, MIB_GETNEXT) for number in range(28)
        )
    yield "names-cut", b"".join(ask(MIB_GETNEXT, 224 + length, MIB_NOTHING) for length in range(32))
    yield "onward", ask(MIB_GETNEXT, ON_OFF, MIB_NOTHING) + b(MIB_ONWARD) * 120
    yield "sets-switches", mib_set(ON_OFF, MIB_SCALAR, 1) + mib_set(ON_OFF, MIB_SCALAR, 2) + mib_set(DOWN_ACTION, MIB_SCALAR, 2)
    ports = (PORT_TRUST, PORT_MAX, PORT_GUARD)
    yield "sets-ports", b"".join(mib_set(number, row(port), 1) for port in (1, 4, 28, 29) for number in ports)
    yield "ports-beyond-the-tables", b(MIB_SCRIPT, PLATFORM, 3, 255) + b"".join(
        ask(operation, number, row(port), 1) for operation in (MIB_GETNEXT, MIB_GET, MIB_TEST, MIB_COMMIT)
        for number in (PORT_INDEX, *ports) for port in (28, 29, 255)
    ) + b(MIB_WALK)
    yield "sets-vlans", mib_set(VLAN_MAX, row(1), 7) + mib_set(VLAN_MAX, row(2), 7) + mib_set(VLAN_MAX, MIB_HUGE, 7)
    yield "sets-information", b"".join(
        mib_set(text, MIB_SCALAR, value) + mib_set(kind, MIB_SCALAR, number)
        for kind, text in ((REMOTE_TYPE, REMOTE_TEXT), (INTERFACE_TYPE, INTERFACE_TEXT))
        for number, value in ((1, b"192.0.2.1"), (2, b"2001:db8::1"), (3, b""), (4, b"x" * 64), (5, b"y" * 65))
    ) + mib_set(ENABLE18, MIB_SCALAR, 1) + mib_set(ENABLE37, MIB_SCALAR, 0)
    yield "sets-exempt-vlans", b"".join(
        mib_set(EXEMPT, MIB_SCALAR, text) for text in (b"1,3-5", b"", b"1-128", b"1-129", b"4094", b"no list", b"1," * 127)
    ) + ask(MIB_GET, EXEMPT, MIB_SCALAR)
    yield "binding", binding + b(MIB_WALK) + mib_set(BIND_STATUS, row(5), 6) + b(MIB_WALK)
    yield "binding-create-and-wait", mib_binding(240, b"2001:db8::1", status=5) + mib_binding(240, b"2001:db8::2", b"02:" * 6)
    yield "binding-wrong", b"".join(mib_binding(1, text) for text in (b"::", b"ff02::1", b"nonsense")) + mib_binding(
        1, b"2001:db8::1", b"01:00:5e:00:00:01")
    yield "binding-row-below-the-first", ask(MIB_COMMIT, BIND_INDEX, row(1), 0) + b"".join(
        mib_set(*column) for column in ((BIND_ADDRESS, row(1), b"2001:db8::1"), (BIND_STATUS, row(1), 4)))
    yield "binding-stale", binding + b(MIB_SCRIPT, GUARD, 0, 7, MIB_WALK) + mib_set(BIND_STATUS, row(5), 6)
    yield "commits-without-test", b"".join(
        b(MIB_REQUEST, MIB_COMMIT, number) + index + value
        for number in range(28) for index in (MIB_SCALAR, row(1)) for value in (b(3) + b"\xff" * 4, b(0, 200) + b"\xff" * 200)
    )
    yield "lengths-that-lie", b"".join(
        b(MIB_REQUEST, MIB_COMMIT, number) + index + value + b"\xff\xff"
        for number in range(28) for index in (MIB_SCALAR, row(1)) for value in (b(5, 1), b(4, 3) + b"abc")
    )
    for length in (0, 787, 788, 789):
        yield f"payload-{length}", b(MIB_PAYLOAD) + struct.pack(">H", length) + struct.pack("<II", 1, 0) + bytes(length)
    for arcs in (128, 129, 0xFFFFFFFF):
        yield f"payload-arcs-{arcs}", b(MIB_PAYLOAD) + struct.pack(">H", 788) + struct.pack("<II", 1, arcs) + b"\1" * 780
