"""Options 18 and 37 in client messages, and the relay header around them: byte for byte, and read by two other programs."""

import itertools
import struct

import pytest
from lab import calls, decode, flow, frames, information, netns
from lab.daemon import Daemon, switch_file
from lab.frames import (
    CONFIRM, DECLINE, INFORMATION_REQUEST, REBIND, RELAY_FORW, RELEASE, RENEW, REQUEST, SERVER_PORT, SOLICIT, from_client,
    ia_na, link_local, mac_bytes, message, option, relay_message,
)  # fmt: skip
from lab.information import DEFAULT, INTERFACE, IPV4, IPV6, REMOTE, STRING, USER_DEFINED, interface_id, remote_id

CLIENT = "02:aa:00:00:be:ef"
OPTIONS = option(1, frames.duid(CLIENT)) + ia_na()
HOST_NAME = "lab-switch"
XPON_PORT, PON, ONU = 2, 3, 711
SERIAL, SERIAL_TEXT = "AB9D00ff1203", b"AB9D00ff1203"


@pytest.fixture
def adding(switch):
    """Snooping on, port 4 trusted; port 2 is an xPON port."""
    lines = {XPON_PORT: f'xpon = {{ pon = {PON}, onu = {ONU}, serial = "{SERIAL}" }}\n'}
    made = Daemon(switch, text=switch_file(switch.ports, extra="vlans = [1, 10, 20]\n", lines=lines), host_name=HOST_NAME)
    try:
        yield made.start().snoop(4)
    finally:
        made.close()


@pytest.fixture
def short(adding):
    """Option 18 of 10 bytes is added; option 37, of 14, and the relay header are there to be switched on."""
    information.set_id(adding, INTERFACE, STRING, b"shelf7")
    information.set_id(adding, REMOTE, STRING, b"cellar")
    information.enable(adding, remote=False)
    return adding


SHORT18, SHORT37 = interface_id(b"shelf7"), remote_id(b"cellar")


def every_element():
    """A template of all elements, each with a letter behind it."""
    kinds = list(range(len(information.ELEMENTS) + 1))
    vlans = ["10" if kind == information.ELEMENTS.index("vlan-address") + 1 else "" for kind in kinds]
    return information.packed("every element", ["<"] + [chr(ord("a") + kind - 1) for kind in kinds[1:]], kinds, vlans)


def every_value(port, tags, system_mac):
    """What that template says when the switch has no address."""
    outer, inner = (tags + (0,))[:2] if tags else (1, 0)
    kind = b"xpon" if port == XPON_PORT else b"ethernet"
    if port != XPON_PORT and inner == 0:
        outer, inner = 0, outer  # a customer's own tag
    text = b"<0.0.0.0a" + HOST_NAME.encode() + b"b0/%dc%sd%se" % (port, kind, mac_bytes(system_mac).hex().encode())
    text += b"0f0g0h%di%04dj%04dk02AA0000BEEFl00000000m" % (port, outer, inner)
    return text + (b"%dn%do%sp%dq" % (PON, ONU, SERIAL_TEXT, ONU) if port == XPON_PORT else b"")


def system_mac(switch):
    return netns.run(switch.namespace, "ip", "-br", "link", "show", "br0").split()[2]


IDS = ("ipv4", "ipv6", "default", "string", "template", "no template")


def set_id(daemon, which, name):
    values = {
        "ipv4": (IPV4, bytes([192, 0, 2, 77])),
        "ipv6": (IPV6, frames.ip_bytes("2001:db8::77")),
        "default": (DEFAULT, b""),
        "string": (STRING, b"cellar, rack 7"),
        "template": (USER_DEFINED, every_element()),
        "no template": (USER_DEFINED, every_element()),
    }
    information.set_id(daemon, which, *values[name])
    if name == "no template":  # an id that cannot be set costs the template all the same
        assert calls.call(daemon.link, calls.ID_SET, calls.u32(which), calls.u32(9), b"x")[0] == calls.REFUSED


def content(name, port, tags, switch):
    return {
        "ipv4": bytes([192, 0, 2, 77]),
        "ipv6": frames.ip_bytes("2001:db8::77"),
        "default": bytes([0, port]) + HOST_NAME.encode(),
        "string": b"cellar, rack 7",
        "template": every_value(port, tags, system_mac(switch)),
        "no template": mac_bytes(system_mac(switch)).hex().encode(),
    }[name]


def decoded(tags, added, relay):
    """What a decoder should read in the SOLICIT of the client."""
    inner = {"type": SOLICIT, "options": [(1, frames.duid(CLIENT)), (3, ia_na()[4:])]}
    if not relay:
        inner["options"] += added
        return {"tags": list(tags), "ports": (546, 547), "checksum": True, "message": inner}
    outer = {"type": RELAY_FORW, "hops": 0, "link": "::", "peer": link_local(CLIENT), "options": [(9, inner), *added]}
    return {"tags": list(tags), "ports": (547, 547), "checksum": True, "message": outer}


@pytest.mark.parametrize("relay", [False, True], ids=["plain", "relay"])
@pytest.mark.parametrize("tags", [(), (10,), (10, 20)], ids=["untagged", "tagged", "double"])
def test_every_id(adding, switch, sent, tags, relay):
    """Every kind of id for each option alone and for both, on an Ethernet and on an xPON port."""
    seen, read = [], []
    for name, other in zip(IDS, IDS[1:] + IDS[:1]):
        set_id(adding, INTERFACE, name)
        set_id(adding, REMOTE, other)
        for port, (with18, with37) in itertools.product((1, XPON_PORT), ((True, False), (False, True), (True, True))):
            information.enable(adding, with18, with37, relay)
            ids = [(18, content(name, port, tags, switch))] * with18
            ids += [(37, struct.pack("!I", 47119) + content(other, port, tags, switch))] * with37
            added = b"".join(option(*pair) for pair in ids)
            frame = information.expected(SOLICIT, CLIENT, OPTIONS, added, relay, tags=tags)
            assert sent(port, from_client(SOLICIT, CLIENT, tags=tags)) == {4: [frame]}, (name, other, port, with18, with37)
            seen.append(frame)
            read.append(decoded(tags, ids, relay))
    assert [decode.by_scapy(frame) for frame in seen] == read
    assert decode.by_tshark(seen) == read


def test_the_relay_message_is_as_long_as_it_came(short, sent):
    """10 bytes in a relay's message of 54: its length says 54, so that whoever goes by it finds the 10 behind it."""
    information.enable(short, remote=False, relay=True)
    came = message(SOLICIT, options=OPTIONS + option(65001, bytes(16)))
    assert len(came) == 54
    out = sent(1, from_client(SOLICIT, CLIENT, payload=came))
    payload = frames.read(out[4][0])["payload"]
    assert payload[:34] == bytes([RELAY_FORW, 0]) + bytes(16) + frames.ip_bytes(link_local(CLIENT))
    assert payload[34:38] == bytes([0, 9, 0, 54])
    assert payload[38:] == came + bytes([0, 18, 0, 6]) + b"shelf7"


TAKERS = [SOLICIT, REQUEST, CONFIRM, RENEW, REBIND, INFORMATION_REQUEST]


@pytest.mark.parametrize("relay", [False, True], ids=["plain", "relay"])
def test_message_types(short, sent, relay):
    information.enable(short, relay=relay)
    for kind in TAKERS:
        expected = information.expected(kind, CLIENT, OPTIONS, SHORT18 + SHORT37, relay)
        assert sent(1, from_client(kind, CLIENT)) == {4: [expected]}, kind
    for kind in (RELEASE, DECLINE):
        assert sent(1, from_client(kind, CLIENT)) == {4: [from_client(kind, CLIENT)]}, kind


def test_a_relayed_message_gets_its_options_at_its_end(short, sent):
    """Another relay's hop count goes into the new header as it is."""
    inner = relay_message(RELAY_FORW, message(SOLICIT, options=OPTIONS), hops=5)
    came = from_client(RELAY_FORW, CLIENT, payload=inner, port=SERVER_PORT)
    assert sent(1, came) == {4: [from_client(RELAY_FORW, CLIENT, payload=inner + SHORT18, port=SERVER_PORT)]}
    information.enable(short, remote=False, relay=True)
    outer = information.wrapped(inner, SHORT18, link_local(CLIENT), hops=5)
    assert sent(1, came) == {4: [from_client(RELAY_FORW, CLIENT, payload=outer, port=SERVER_PORT)]}


@pytest.mark.parametrize("relay", [False, True], ids=["plain", "relay"])
def test_off_it_goes_as_it_came(short, sent, relay):
    """The relay header comes with an option or not at all."""
    information.enable(short, interface=False, remote=False, relay=relay)
    frame = from_client(SOLICIT, CLIENT)
    assert sent(1, frame) == {4: [frame]}


def test_what_is_set_shows_in_the_next_message(short, sent):
    for text in (b"x", b"y" * 79, b"z"):
        information.set_id(short, INTERFACE, STRING, text)
        frame = information.expected(SOLICIT, CLIENT, OPTIONS, interface_id(text))
        assert sent(1, from_client(SOLICIT, CLIENT)) == {4: [frame]}


def test_a_wrong_checksum_is_put_right(short, sent):
    frame = bytearray(from_client(SOLICIT, CLIENT))
    frame[60:62] = b"\x12\x34"
    assert sent(1, bytes(frame)) == {4: [information.expected(SOLICIT, CLIENT, OPTIONS, SHORT18)]}


@pytest.mark.parametrize("own, left", [
    (b"12345\x0cAB", b""),  # counts for 12 bytes, and has them
    (b"12345\x0a", b""),
    (b"12345\x06", b"345\x06"),  # counts for 6 bytes: the other 4 stay
    (b"12345\x00", b"\0\x12\0\x0612345\x00"),  # counts for none
])  # fmt: skip
def test_a_client_option_is_replaced(short, sent, own, left):
    """The byte at offset 9 of an option that is there says how much of it goes."""
    came = from_client(SOLICIT, CLIENT, option(1, frames.duid(CLIENT)) + option(18, own) + ia_na())
    area = option(1, frames.duid(CLIENT)) + left + ia_na() + SHORT18
    assert sent(1, came) == {4: [from_client(SOLICIT, CLIENT, area)]}


# ---- Limits --------------------------------------------------------------------------------------------------------------


@pytest.fixture
def jumbo(short, switch):
    """Cables for frames of more than 1500 bytes."""
    for port in switch.ports:
        netns.run(switch.host(port), "ip", "link", "set", "eth0", "mtu", "2100")
        switch.ip("link", "set", f"p{port}", "mtu", "2100")
    return short


def of_length(area):
    """Options of so many bytes."""
    return OPTIONS + option(65001, bytes(area - len(OPTIONS) - 4))


# Option 18 has 10 bytes, option 37 has 14, the relay header 38 and, as far as the limit goes, 4 more.
@pytest.mark.parametrize("area, remote, relay, added, wrapped", [
    (1490, False, False, SHORT18, False),
    (1491, False, False, b"", False),
    (1476, True, False, SHORT18 + SHORT37, False),
    (1477, True, False, SHORT18, False),
    (1448, False, True, SHORT18, True),
    (1449, False, True, SHORT18, False),
    (1434, True, True, SHORT18 + SHORT37, True),
    (1435, True, True, SHORT18 + SHORT37, False),
    (1477, True, True, SHORT18, False),
    (1491, True, True, b"", False),
])  # fmt: skip
@pytest.mark.parametrize("tags", [(), (10, 20)], ids=["untagged", "double"])
def test_options_of_1500_bytes_at_most(jumbo, sent, area, remote, relay, added, wrapped, tags):
    information.enable(jumbo, remote=remote, relay=relay)
    options = of_length(area)
    expected = information.expected(SOLICIT, CLIENT, options, added, wrapped, tags=tags)
    assert sent(1, from_client(SOLICIT, CLIENT, options, tags=tags)) == {4: [expected]}


@pytest.mark.parametrize("tags, tag_bytes", [((), 4), ((10,), 0), ((10, 20), 0)], ids=["untagged", "tagged", "double"])
def test_frames_of_1898_bytes_at_most(jumbo, sent, tags, tag_bytes):
    """A longer one, with the tag that the switch thinks of, is dropped. The longest one is too long for options."""
    longest = from_client(SOLICIT, CLIENT, of_length(1898 - tag_bytes - 66 - 4 * len(tags)), tags=tags)
    assert len(longest) == 1898 - tag_bytes
    assert sent(1, longest) == {4: [longest]}
    longer = from_client(SOLICIT, CLIENT, of_length(1899 - tag_bytes - 66 - 4 * len(tags)), tags=tags)
    assert sent(1, longer) == {}
    information.enable(jumbo, interface=False, remote=False)
    assert sent(1, longer) == {4: [longer]}


def test_what_outgrows_the_cable_is_counted(short, switch):
    """The message came with 1500 bytes; with 10 more it does not fit."""
    failed = short.counters(4)["sendFailed"]
    fits, outgrows = (from_client(SOLICIT, CLIENT, of_length(length - 40 - 8 - 4)) for length in (1490, 1491))
    assert flow.sent(switch, 1, outgrows, fits) == {4: [information.expected(SOLICIT, CLIENT, of_length(1438), SHORT18)]}
    assert short.counters(4)["sendFailed"] == failed + 1


# ---- Setting and asking --------------------------------------------------------------------------------------------------


def test_start_values(idle):
    record, interface, remote = information.policy(idle)
    assert record == {
        "strategy": 3, "option37": 0, "remote": DEFAULT, "remoteValue": bytes(80), "remoteHeld": 0, "option18": 0,
        "interface": DEFAULT, "interfaceValue": bytes(80), "interfaceHeld": 0,
    }  # fmt: skip
    assert interface == remote == bytes(information.TEMPLATE.size)


def test_what_is_set_can_be_asked(idle):
    first, second = information.template("{port-name} of {hostname}"), information.template("{{{client-mac}")
    information.set_id(idle, INTERFACE, USER_DEFINED, first)
    information.set_id(idle, REMOTE, USER_DEFINED, second)
    information.enable(idle, remote=False)
    record, interface, remote = information.policy(idle)
    assert (record["option18"], record["option37"]) == (1, 0)
    assert (record["interface"], record["remote"]) == (USER_DEFINED, USER_DEFINED)
    assert (interface, remote) == (first, second)
    information.set_id(idle, REMOTE, STRING, b"plain")
    record, interface, remote = information.policy(idle)
    assert record["remote"] == STRING and record["remoteValue"] == b"plain".ljust(80, b"\0") and record["remoteHeld"] == 0
    assert (interface, remote) == (first, bytes(information.TEMPLATE.size))


@pytest.mark.parametrize("which, kind, value", [(2, STRING, b"x"), (0, 0, b"x"), (1, 6, b"x"), (1, STRING, b"x" * 80)])
def test_what_cannot_be_set(idle, which, kind, value):
    before = information.policy(idle)
    assert calls.call(idle.link, calls.ID_SET, calls.u32(which), calls.u32(kind), value)[0] == calls.REFUSED
    assert information.policy(idle) == before
