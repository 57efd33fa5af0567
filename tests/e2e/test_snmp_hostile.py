"""SNMP messages that no tool would send, built with scapy: odd OIDs and values in every kind of request, and bytes that are no
message. Everything that is a message has one answer, and a get-next always leads forward."""

import random
import socket

import pytest
from lab import netns, snmp
from lab.frames import mac_number
from scapy.asn1.asn1 import ASN1_COUNTER32, ASN1_INTEGER, ASN1_IPADDRESS, ASN1_NULL, ASN1_OID, ASN1_STRING
from scapy.layers.snmp import SNMP, SNMPbulk, SNMPget, SNMPnext, SNMPset, SNMPvarbind

ROOT = [int(arc) for arc in snmp.ROOT.split(".")]
OBJECTS = ([1], [2, 1, 1], [2, 1, 2], [2, 1, 3], [2, 1, 4], [3, 1, 1], [3, 1, 2], [4], *([6, 1, n] for n in range(1, 8)),
           *([7, 1, n] for n in range(1, 7)), [8], *([20, n] for n in range(1, 7)), [], [2], [5], [6, 1], [99])  # fmt: skip
ARCS = (0, 1, 2, 4, 10, 12, 127, 128, 240, 241, 255, 256, 4094, 4095, 2**31 - 1, 2**31, 2**32 - 1)
LONGEST = 128 - len(ROOT) - 3  # arcs of an index


def arcs_of(text):
    return [int(arc) for arc in text.split(".")]


def odd_oid(numbers):
    index = [numbers.choice(ARCS) for _ in range(numbers.choice((0, 1, 1, 1, 2, 5, 6, 6, 7, 33, LONGEST)))]
    return ROOT + numbers.choice(OBJECTS) + index


def odd_value(numbers):
    texts = (b"", b"x", b"02:aa:00:00:00:05", b"2001:db8::1", bytes(6), bytes(17), b":" * 17, b"1-4094", b"%s%n", b"\xff" * 255,
             b"y" * 300)  # fmt: skip
    return numbers.choice((
        ASN1_INTEGER(numbers.choice((-(2**31), -1, 0, 1, 2, 3, 4, 5, 6, 240, 4094, 2049, 2**31 - 1))),
        ASN1_STRING(numbers.choice(texts)), ASN1_NULL(0), ASN1_OID("1.3.6"), ASN1_IPADDRESS("10.0.0.1"), ASN1_COUNTER32(1),
    ))  # fmt: skip


def fields(raw):
    """The fields of a BER area, as (tag, content). Read here, because scapy does not know the tags of exceptions."""
    at = 0
    while at < len(raw):
        tag, length, at = raw[at], raw[at + 1], at + 2
        if length > 127:
            size = length - 128
            length, at = int.from_bytes(raw[at : at + size], "big"), at + size
        assert at + length <= len(raw)
        yield tag, raw[at : at + length]
        at += length


def oid_of(raw):
    arcs, arc = [], 0
    for byte in raw:
        arc = arc << 7 | byte & 127
        if byte < 128:
            arcs.append(arc)
            arc = 0
    return [*divmod(arcs[0], 40), *arcs[1:]]


def answer_of(raw):
    """Request id, error, its index, and the OIDs."""
    ((_, message),) = fields(raw)
    _, _, (tag, pdu) = fields(message)
    assert tag == 0xA2
    (_, number), (_, error), (_, index), (_, binds) = fields(pdu)
    oids = [oid_of(next(fields(bind))[1]) for _, bind in fields(binds)]
    return *(int.from_bytes(each, "big") for each in (number, error, index)), oids


class Link:
    """UDP to snmpd from inside the switch."""

    def __init__(self, switch):
        with netns.entered(switch.namespace):
            self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(10)
        self.socket.connect(("127.0.0.1", snmp.PORT))
        self.number = 0

    def ask(self, kind, variables, **words):
        """One message; the answer as (error, its index, OIDs)."""
        self.number += 1
        binds = [SNMPvarbind(oid=ASN1_OID(".".join(map(str, oid))), value=value) for oid, value in variables]
        self.socket.send(bytes(SNMP(version=1, community="lab", PDU=kind(id=self.number, varbindlist=binds, **words))))
        number, *answer = answer_of(self.socket.recv(65535))
        assert number == self.number
        return answer


@pytest.fixture
def link(idle, manager, switch):
    made = Link(switch)
    yield made
    made.socket.close()


@pytest.mark.parametrize("seed", range(4))
def test_odd_messages(idle, manager, learn, link, seed):
    idle.snoop(4)
    for number in (1, 2):
        learn(1, mac_number(number), *(f"2001:db8::{number}:{n}" for n in range(1, 3 * number + 1)))
    numbers = random.Random(seed)
    for _ in range(300):
        kind = numbers.choice((SNMPget, SNMPnext, SNMPnext, SNMPbulk, SNMPset))
        oids = [odd_oid(numbers) for _ in range(numbers.randint(1, 4))]
        words = {}
        if kind is SNMPbulk:
            words = {"non_repeaters": numbers.randint(0, 2), "max_repetitions": numbers.choice((0, 1, 7, 50))}
        variables = [(oid, odd_value(numbers) if kind is SNMPset else ASN1_NULL(0)) for oid in oids]
        error, index, answers = link.ask(kind, variables, **words)
        assert index <= len(oids)
        if kind is SNMPbulk:
            continue
        assert len(answers) == len(oids)
        if kind is SNMPnext and error == 0:
            assert all(answer > oid for answer, oid in zip(answers, oids)), (oids, answers)
        else:
            assert answers == oids
    assert idle.ctl("show", "dhcpv6-snooping")
    seen = [arcs_of(snmp.ROOT + oid) for oid in manager.walk()]
    assert seen == sorted(seen) and len(seen) >= 31


def test_a_bulk_walk_from_odd_places_goes_forward(idle, manager, learn, link):
    idle.snoop(4)
    for number in range(1, 6):
        learn(1, mac_number(number), f"2001:db8::{number}")
    numbers = random.Random(5)
    for _ in range(100):
        start = odd_oid(numbers)
        error, _, answers = link.ask(SNMPbulk, [(start, ASN1_NULL(0))], non_repeaters=0, max_repetitions=20)
        oids = [start, *answers]
        assert error == 0 and all(left < right for left, right in zip(oids, oids[1:])), oids


def test_bytes_that_are_no_message(idle, manager, link):
    numbers = random.Random(9)
    good = bytes(SNMP(version=1, community="lab", PDU=SNMPnext(varbindlist=[SNMPvarbind(oid=ASN1_OID(snmp.ROOT))])))
    for _ in range(300):
        spoiled = bytearray(good)
        for _ in range(numbers.randint(1, 4)):
            spoiled[numbers.randrange(len(spoiled))] = numbers.randrange(256)
        link.socket.send(bytes(spoiled[: numbers.randint(1, len(spoiled))]))
    assert len(manager.walk()) == 31
