"""Bindings that managers make and destroy with snmpset: in one request, column by column, and in the ways that go wrong."""

import json

import pytest
from lab.daemon import ANY_MAC
from lab.frames import UDP, ethernet, ip_bytes, ipv6, mac_bytes, udp
from lab.snmp import HEX, INTEGER, TEXT

ADDRESS, TO, MAC = "2001:db8::5", "2001:db8:ff::1", "02:aa:00:00:00:05"
INDEX, IP, OWNER, PORT, VLAN, STATUS = (f".7.1.{column}" for column in range(1, 7))
CREATE, CREATE_AND_WAIT, DESTROY = 4, 5, 6


def columns(row=1, address=ADDRESS, mac=MAC, port=2, vlan=10, at=None):
    """The sets that describe a binding; they go to instance `at`, by default that of the row."""
    at = row if at is None else at
    return (
        (f"{INDEX}.{at}", INTEGER, row), (f"{IP}.{at}", TEXT, address), (f"{OWNER}.{at}", TEXT, mac),
        (f"{PORT}.{at}", INTEGER, port), (f"{VLAN}.{at}", INTEGER, vlan),
    )  # fmt: skip


def status(row, value):
    return (f"{STATUS}.{row}", INTEGER, value)


def shown(row, address=ADDRESS, mac=MAC, port=2, vlan=10):
    return {f"{INDEX}.{row}": row, f"{IP}.{row}": address, f"{OWNER}.{row}": mac_bytes(mac), f"{PORT}.{row}": port,
            f"{VLAN}.{row}": vlan, f"{STATUS}.{row}": 1}  # fmt: skip


def in_columns(*rows):
    """The walk over these rows."""
    return {oid: value for column in zip(*(row.items() for row in rows), strict=True) for oid, value in column}


def bindings(daemon):
    rows = json.loads(daemon.ctl("--json", "show", "ipv6-source-guard", "bindings"))["bindings"]
    return [(row["address"], row["mac"], row["port"], row["vlan"]) for row in rows]


def in_kernel(switch):
    """Whether the kernel's table has the address; nft prints it as a number."""
    return ip_bytes(ADDRESS).hex() in switch.ruleset()


@pytest.mark.parametrize("create", [CREATE, CREATE_AND_WAIT])
def test_in_one_request(idle, manager, switch, sent, create):
    """The binding is in force, with its filter, when the answer comes; so is its end."""
    idle.guard(2)
    packet = ethernet("02:dd:00:00:00:01", MAC, ipv6(ADDRESS, TO, UDP, udp(ADDRESS, TO, 5000, 5001, b"data")), tags=(10,))
    assert sent(2, packet, trusted=()) == {} and not in_kernel(switch)
    assert manager.set(*columns(), status(1, create)) == "ok"
    assert manager.walk(".7") == shown(1)
    assert bindings(idle) == [(ADDRESS, MAC, "0/2", 10)]
    assert list(idle.filters().values()) == [1] and in_kernel(switch)
    assert sent(2, packet, trusted=()) == {port: [packet] for port in (1, 3, 4)}
    assert manager.set(status(1, DESTROY)) == "ok"
    assert manager.walk(".7") == {} and bindings(idle) == [] and idle.filters() == {}
    assert sent(2, packet, trusted=()) == {} and not in_kernel(switch)


def test_column_by_column(idle, manager):
    for column in columns(row=7):
        assert manager.set(column) == "ok"
        assert manager.walk(".7") == {} and bindings(idle) == []
    assert manager.set(status(7, CREATE)) == "ok"
    assert manager.walk(".7") == shown(7) and bindings(idle) == [(ADDRESS, MAC, "0/2", 10)]


def test_columns_left_out_mean_any(idle, manager):
    assert manager.set((f"{IP}.9", TEXT, ADDRESS), status(9, CREATE)) == "ok"
    assert manager.walk(".7") == shown(1, mac=ANY_MAC, port=0, vlan=0)  # row 1: ip6BindIndex was not set
    assert bindings(idle) == [(ADDRESS, None, None, None)]


def test_the_order_in_a_request_counts(idle, manager):
    """Columns behind the row status are of the next binding."""
    first, *rest = columns()
    assert manager.set(first, status(1, CREATE), *rest) == f"wrongValue {STATUS}.1"
    assert manager.set((f"{IP}.1", TEXT, ADDRESS), status(1, CREATE), (f"{PORT}.1", INTEGER, 3)) == "ok"
    assert bindings(idle) == [(ADDRESS, None, None, None)]
    assert manager.set((f"{IP}.2", TEXT, "2001:db8::6"), status(2, CREATE)) == "ok"
    assert ("2001:db8::6", None, "0/3", None) in bindings(idle)


def test_two_in_one_request(idle, manager):
    other = dict(address="2001:db8::6", mac="02:aa:00:00:00:06", port=3, vlan=0)
    assert manager.set(*columns(), status(1, CREATE), *columns(row=2, **other), status(2, CREATE)) == "ok"
    assert manager.walk(".7") == in_columns(shown(1), shown(2, **other))


def test_the_index_is_a_starting_point(idle, manager):
    def make(row, number):
        address = f"2001:db8::{number:x}"
        assert manager.set((f"{INDEX}.1", INTEGER, row), (f"{IP}.1", TEXT, address), status(1, CREATE)) == "ok"

    make(9, 1)
    make(10, 2)
    make(9, 3)
    rows = manager.walk(INDEX)
    assert rows == {f"{INDEX}.{row}": row for row in (9, 10, 11)}
    assert manager.get(f"{IP}.11") == "2001:db8::3"
    make(240, 4)
    make(240, 5)  # bound, without a row
    assert list(manager.walk(INDEX)) == [f"{INDEX}.{row}" for row in (9, 10, 11, 240)]
    assert len(bindings(idle)) == 5
    assert manager.get(f"{IP}.240") == "2001:db8::4"


def test_the_columns_are_shared_and_stay(idle, manager):
    """What was set and never used counts for the next binding, at whatever instance; a failed creation keeps it, a success
    clears it."""
    assert manager.set((f"{OWNER}.77", TEXT, MAC), (f"{PORT}.78", INTEGER, 3)) == "ok"
    assert manager.set((f"{IP}.5", TEXT, "ff02::1"), status(5, CREATE)) == f"wrongValue {STATUS}.5"
    assert manager.set((f"{IP}.5", TEXT, "::"), status(5, CREATE)) == f"wrongValue {STATUS}.5"
    assert manager.set((f"{IP}.5", TEXT, ADDRESS), status(5, CREATE)) == "ok"
    assert bindings(idle) == [(ADDRESS, MAC, "0/3", None)]
    assert manager.set((f"{IP}.5", TEXT, "2001:db8::6"), status(5, CREATE)) == "ok"
    assert ("2001:db8::6", None, None, None) in bindings(idle)


def test_what_exists_already(idle, manager):
    assert manager.set(*columns(), status(1, CREATE)) == "ok"
    before = manager.walk(".7")
    assert manager.set(*columns(row=2), status(2, CREATE)) == f"commitFailed {STATUS}.2"
    assert manager.set(*columns(row=2, mac="02:aa:00:00:00:06"), status(2, CREATE)) == f"commitFailed {STATUS}.2"
    assert manager.set(*columns(row=2, address="2001:db8::6"), status(2, CREATE)) == f"commitFailed {STATUS}.2"
    assert manager.walk(".7") == before and len(bindings(idle)) == 1


def test_the_switch_is_full(idle, manager):
    """With 240 bindings, however they were made, there is no 241st; making one that is there succeeds and changes nothing."""
    for number in range(239):
        idle.bind(f"2001:db8:1::{number:x}")
    assert manager.set(*columns(), status(1, CREATE)) == "ok"
    before = manager.walk(".7")
    assert manager.set(*columns(row=2, address="2001:db8::6", mac="02:aa:00:00:00:06"), status(2, CREATE)) == (
        f"resourceUnavailable {STATUS}.2"
    )
    assert manager.set(*columns(row=2), status(2, CREATE)) == "ok"
    assert manager.walk(".7") == before and len(bindings(idle)) == 240


def test_240_rows(idle, manager):
    """Every row in use, walked completely, and destroyed."""
    addresses = [f"2001:db8:2::{number:x}" for number in range(1, 241)]
    for first in range(0, 240, 20):
        triples = []
        for address in addresses[first : first + 20]:
            triples += [(f"{IP}.1", TEXT, address), status(1, CREATE)]
        assert manager.set(*triples) == "ok"
    assert manager.walk(IP) == {f"{IP}.{row}": address for row, address in enumerate(addresses, 1)}
    assert len(manager.walk(".7")) == 6 * 240
    for first in range(1, 241, 40):
        assert manager.set(*(status(row, DESTROY) for row in range(first, first + 40))) == "ok"
    assert manager.walk(".7") == {} and bindings(idle) == []


def test_a_stale_row(idle, manager):
    """A binding that goes by another way leaves its row. It cannot be destroyed; making its address anew and destroying that
    clears it."""
    assert manager.set(*columns(), status(1, CREATE)) == "ok"
    idle.unbind(ADDRESS)
    assert manager.walk(".7") == shown(1)
    assert manager.set(status(1, DESTROY)) == f"commitFailed {STATUS}.1"
    assert manager.walk(".7") == shown(1)
    assert manager.set(*columns(row=1), status(1, CREATE)) == "ok"
    assert manager.walk(".7") == in_columns(shown(1), shown(2))
    assert manager.set(status(2, DESTROY)) == "ok"
    assert manager.walk(".7") == shown(2) and bindings(idle) == []


def test_destroy_what_is_not_there(idle, manager):
    for row in (0, 1, 240, 241, 2**32 - 1):
        assert manager.set(status(row, DESTROY)) == f"resourceUnavailable {STATUS}.{row}"
    assert manager.set((f"{STATUS}.1.1", INTEGER, DESTROY)) == f"noCreation {STATUS}.1.1"
    assert manager.set((STATUS, INTEGER, DESTROY)) == f"noCreation {STATUS}"


def test_other_row_states_do_nothing(idle, manager):
    assert manager.set(*columns(), status(1, CREATE)) == "ok"
    for value in (1, 2, 3):
        assert manager.set(status(1, value)) == "ok"
        assert manager.get(f"{STATUS}.1") == 1
    for value in (0, 7, -1):
        assert manager.set(status(1, value)) == f"wrongValue {STATUS}.1"
    assert manager.set((f"{PORT}.1", INTEGER, 4)) == "ok"  # of the next binding, not of this row
    assert manager.walk(".7") == shown(1)


BAD = {
    "index 0": (INDEX, INTEGER, 0, "wrongValue"),
    "index 241": (INDEX, INTEGER, 241, "wrongValue"),
    "index is a text": (INDEX, TEXT, "1", "wrongType"),
    "no address": (IP, TEXT, "nonsense", "wrongValue"),
    "empty address": (IP, TEXT, "", "wrongValue"),
    "an IPv4 address": (IP, TEXT, "192.0.2.1", "wrongValue"),
    "a long address": (IP, TEXT, "2001:0db8:0000:0000:0000:0000:0000:00005", "wrongLength"),
    "address is a number": (IP, INTEGER, 5, "wrongType"),
    "six bytes": (OWNER, HEX, "02aa00000005", "wrongValue"),
    "a short MAC": (OWNER, TEXT, "02:aa:00:00:00:0", "wrongValue"),
    "a long MAC": (OWNER, TEXT, "02:aa:00:00:00:005", "wrongValue"),
    "dashes": (OWNER, TEXT, "02-aa-00-00-00-05", "wrongValue"),
    "a group address": (OWNER, TEXT, "01:00:5e:00:00:01", "wrongValue"),
    "port 0": (PORT, INTEGER, 0, "wrongValue"),
    "port 5 of 4": (PORT, INTEGER, 5, "wrongValue"),
    "VLAN 4095": (VLAN, INTEGER, 4095, "wrongValue"),
    "VLAN -1": (VLAN, INTEGER, -1, "wrongValue"),
}


@pytest.mark.parametrize("column, kind, value, error", BAD.values(), ids=BAD)
def test_a_bad_column(idle, manager, column, kind, value, error):
    """It is refused, and the columns that were set before it in a request stay as they were or as they came."""
    assert manager.set((f"{column}.1", kind, value)) == f"{error} {column}.1"
    assert manager.set(*columns(), status(1, CREATE)) == "ok"
    assert manager.walk(".7") == shown(1)


def test_what_a_failed_request_leaves(idle, manager):
    """Of a request that fails while it is carried out, columns and bindings stay; settings go back."""
    bad = (f"{IP}.1", TEXT, "nonsense")
    assert manager.set((".2.1.3.1", INTEGER, 5), *columns(), status(1, CREATE), bad) == f"wrongValue {IP}.1"
    assert manager.get(".2.1.3.1") == 2048
    assert manager.walk(".7") == shown(1) and len(bindings(idle)) == 1
    assert manager.set((f"{OWNER}.1", TEXT, "02:aa:00:00:00:07"), bad) == f"wrongValue {IP}.1"
    assert manager.set((f"{IP}.1", TEXT, "2001:db8::7"), status(1, CREATE)) == "ok"
    assert ("2001:db8::7", "02:aa:00:00:00:07", None, None) in bindings(idle)


def test_texts_that_are_not_quite(idle, manager):
    """An octet that is not hexadecimal leaves that one and those behind it as they were. An address may be written in any way,
    and what stands behind it is ignored."""
    assert manager.set((f"{OWNER}.1", TEXT, "02:aa:00:00:00:05"), (f"{OWNER}.1", TEXT, "02:BB:xx:11:22:33")) == "ok"
    assert manager.set((f"{IP}.1", TEXT, "2001:0DB8:0000:0000:0000:0000:0000:0005"), status(1, CREATE)) == "ok"
    assert bindings(idle) == [(ADDRESS, "02:bb:00:00:00:05", None, None)]
    assert manager.get(f"{IP}.1") == ADDRESS
    assert manager.set((f"{IP}.1", TEXT, "2001:db8::6/64"), status(1, CREATE)) == "ok"
    assert manager.get(f"{IP}.2") == "2001:db8::6"
