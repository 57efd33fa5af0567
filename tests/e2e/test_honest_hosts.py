"""What a host needs to get on the link passes a guarded port that has no binding for it, byte for byte; with one field wrong it
does not."""

import time

import pytest
from lab import flow, frames
from lab.frames import (
    AUTHENTICATION, DESTINATION, ETH_8021AD, FRAGMENT, HOP_BY_HOP, ROUTING, authentication_header, fragment_header, link_local,
    mac_bytes, options_header, routing_header,
)  # fmt: skip
from lab.neighbours import (
    ALERT_FIRST, ALERT_LAST, ALL_NODES, ALL_REPORTS, ALL_ROUTERS, ALLOW_NEW, ICMP6, IS_EXCLUDE, OVERRIDE, ROUTER, SOLICITED,
    TO_INCLUDE, UNSPECIFIED, How, advertisement, done, filling, listening, message, nonce, old_report, record, redirect, report,
    router_advertisement, router_solicitation, solicitation, solicited_node, source_mac, target_mac,
)  # fmt: skip
from lab.storm import carried

HOST = "02:aa:00:00:00:01"
LOCAL = link_local(HOST)
GLOBAL = "2001:db8:1:0:a:b:c:d"  # the host's, but nothing is bound
PEER, PEER_GLOBAL = "fe80::2:3:4:5", "2001:db8:1::5:6"
GROUP = "ff15::db8:1"
PLAIN = How(HOST)
MLD, BSD_MLD = listening(PLAIN), listening(PLAIN, ALERT_LAST)

TAGS = {"untagged": (), "tagged": (10,), "double": ((10, ETH_8021AD), 20)}
TAGGINGS = pytest.mark.parametrize("tags", TAGS.values(), ids=TAGS)

# Name -> (function, how, further arguments). Linux, BSD (FreeBSD, macOS) and Windows send most of these alike; the names say
# where one differs.
HONEST = {
    "DAD, Linux before 4.0, Windows": (solicitation, PLAIN, GLOBAL, UNSPECIFIED),
    "DAD of a link-local address": (solicitation, PLAIN, LOCAL, UNSPECIFIED),
    "DAD with a nonce, Linux, BSD": (solicitation, PLAIN, GLOBAL, UNSPECIFIED, None, nonce()),
    "DAD finds a duplicate": (advertisement, PLAIN, LOCAL, LOCAL, ALL_NODES, OVERRIDE, target_mac(PLAIN)),
    "optimistic DAD: router solicitation": (router_solicitation, PLAIN, LOCAL),
    "optimistic DAD: answer": (advertisement, PLAIN, LOCAL, LOCAL, PEER, SOLICITED, target_mac(PLAIN)),
    "optimistic DAD: unsolicited": (advertisement, PLAIN, LOCAL, LOCAL, ALL_NODES, 0, target_mac(PLAIN)),
    "router solicitation from no address": (router_solicitation, PLAIN, UNSPECIFIED),
    "router solicitation": (router_solicitation, PLAIN, LOCAL, ALL_ROUTERS, source_mac(PLAIN)),
    "router solicitation to one router": (router_solicitation, PLAIN, LOCAL, PEER, source_mac(PLAIN)),
    "resolution of a link-local address": (solicitation, PLAIN, PEER, LOCAL, None, source_mac(PLAIN)),
    "resolution of a global address": (solicitation, PLAIN, PEER_GLOBAL, LOCAL, None, source_mac(PLAIN)),
    "resolution with a nonce": (solicitation, PLAIN, PEER, LOCAL, None, source_mac(PLAIN) + nonce()),
    "probe of a link-local address": (solicitation, PLAIN, PEER, LOCAL, PEER, source_mac(PLAIN)),
    "probe of a global address": (solicitation, PLAIN, PEER_GLOBAL, LOCAL, PEER_GLOBAL, source_mac(PLAIN)),
    "probe without a MAC, BSD": (solicitation, PLAIN, PEER, LOCAL, PEER),
    "answer to a link-local address": (advertisement, PLAIN, LOCAL, LOCAL, PEER, SOLICITED | OVERRIDE, target_mac(PLAIN)),
    "answer to a global address": (advertisement, PLAIN, LOCAL, LOCAL, PEER_GLOBAL, SOLICITED | OVERRIDE, target_mac(PLAIN)),
    "answer for a global address": (advertisement, PLAIN, GLOBAL, LOCAL, PEER, SOLICITED | OVERRIDE, target_mac(PLAIN)),
    "answer to a probe, without a MAC": (advertisement, PLAIN, LOCAL, LOCAL, PEER, SOLICITED),
    "answer of a router": (advertisement, PLAIN, LOCAL, LOCAL, PEER, ROUTER | SOLICITED | OVERRIDE, target_mac(PLAIN)),
    "new MAC, unsolicited": (advertisement, PLAIN, LOCAL, LOCAL, ALL_NODES, OVERRIDE, target_mac(PLAIN)),
    "new address, to all routers": (advertisement, PLAIN, GLOBAL, LOCAL, ALL_ROUTERS, OVERRIDE, target_mac(PLAIN)),
    "solicitation of 128 bytes": (solicitation, PLAIN, PEER, LOCAL, None, filling(64)),
    "router advertisement": (router_advertisement, PLAIN, LOCAL, ALL_NODES, source_mac(PLAIN)),
    "router advertisement to one host": (router_advertisement, PLAIN, LOCAL, PEER, source_mac(PLAIN)),
    "redirect": (redirect, PLAIN, LOCAL, PEER_GLOBAL, "fe80::7", "2001:db8:9::9", target_mac(PLAIN)),
    "redirect to a neighbour": (redirect, PLAIN, LOCAL, PEER_GLOBAL, "2001:db8:1::8", "2001:db8:1::8"),
    "report during DAD": (report, MLD, UNSPECIFIED, record(solicited_node(LOCAL))),
    "report": (report, MLD, LOCAL, record(GROUP)),
    "report, BSD": (report, BSD_MLD, LOCAL, record(GROUP, ALLOW_NEW, [PEER])),
    "report of leaving": (report, MLD, LOCAL, record(GROUP, TO_INCLUDE)),
    "report of two groups": (report, MLD, LOCAL, record(GROUP, IS_EXCLUDE), record(solicited_node(LOCAL), IS_EXCLUDE)),
    "old report": (old_report, MLD, LOCAL, GROUP),
    "old report, BSD": (old_report, BSD_MLD, LOCAL, GROUP),
    "old report during DAD": (old_report, MLD, UNSPECIFIED, solicited_node(LOCAL)),
    "done": (done, MLD, LOCAL, GROUP),
    "done, BSD": (done, BSD_MLD, LOCAL, solicited_node(LOCAL)),
}  # fmt: skip



def of_full_size(room):
    """The messages that may fill a packet of this size."""
    return {
        "router advertisement of full size": (router_advertisement, PLAIN, LOCAL, ALL_NODES, filling((room - 56) // 8 * 8)),
        "report of full size": (report, MLD, LOCAL, *[record(f"ff15::{n:x}") for n in range((room - 56) // 20)]),
    }  # fmt: skip


# One message of each kind, to be made wrong: (function, what it takes after `how`).
BASES = {
    "router solicitation": (router_solicitation, LOCAL, ALL_ROUTERS, source_mac(PLAIN)),
    "router advertisement": (router_advertisement, LOCAL, ALL_NODES, source_mac(PLAIN)),
    "solicitation": (solicitation, PEER, LOCAL, None, source_mac(PLAIN)),
    "advertisement": (advertisement, LOCAL, LOCAL, PEER, SOLICITED | OVERRIDE, target_mac(PLAIN)),
    "redirect": (redirect, LOCAL, PEER_GLOBAL, "fe80::7", "2001:db8:9::9"),
}
LISTENER_BASES = {
    "report": (report, LOCAL, record(GROUP)), "old report": (old_report, LOCAL, GROUP), "done": (done, LOCAL, GROUP),
}  # fmt: skip
HIDING = {
    "hop-by-hop": (HOP_BY_HOP, options_header(ICMP6)),
    "hop-by-hop with a router alert": (HOP_BY_HOP, bytes([ICMP6, 0]) + ALERT_FIRST),
    "destination": (DESTINATION, options_header(ICMP6)),
    "routing": (ROUTING, routing_header(ICMP6)),
    "authentication": (AUTHENTICATION, authentication_header(ICMP6)),
    "atomic fragment": (FRAGMENT, fragment_header(ICMP6, 0, False)),
    "first fragment": (FRAGMENT, fragment_header(ICMP6, 0, True)),
    "later fragment": (FRAGMENT, fragment_header(ICMP6, 64, False)),
}
NOBODY = {"unspecified": UNSPECIFIED, "all nodes": ALL_NODES, "multicast": GROUP}


def wrong_around():
    """Each kind of message with something wrong around it. All of them count as from a link-local source."""
    for name, (make, *arguments) in BASES.items():
        for hops in (0, 1, 64, 254):
            yield f"{name}, hop limit {hops}", (make, PLAIN.but(hop_limit=hops), *arguments)
        for code in (1, 255):
            yield f"{name}, code {code}", (make, PLAIN.but(code=code), *arguments)
        for header, (first, raw) in HIDING.items():
            yield f"{name} behind {header}", (make, PLAIN.but(first=first, headers=raw), *arguments)
    for name, (make, *arguments) in LISTENER_BASES.items():
        for hops in (0, 2, 64, 255):
            yield f"{name}, hop limit {hops}", (make, MLD.but(hop_limit=hops), *arguments)
        yield f"{name}, code 1", (make, MLD.but(code=1), *arguments)
        yield f"{name} without hop-by-hop options", (make, PLAIN.but(hop_limit=1), *arguments)
        for alert, options in WRONG_ALERTS.items():
            yield f"{name}, {alert}", (make, listening(PLAIN, options), *arguments)
        for header, (first, raw) in HIDING.items():
            if first != HOP_BY_HOP:
                yield f"{name}, router alert, then {header}", (
                    make, listening(PLAIN, following=first).but(headers=bytes([first, 0]) + ALERT_FIRST + raw), *arguments,
                )  # fmt: skip
                yield f"{name} behind {header} alone", (make, PLAIN.but(hop_limit=1, first=first, headers=raw), *arguments)
        alert_later = PLAIN.but(hop_limit=1, first=DESTINATION, headers=bytes([ICMP6, 0]) + ALERT_FIRST)
        yield f"{name}, router alert as a destination option", (make, alert_later, *arguments)


WRONG_ALERTS = {
    "no router alert": bytes([1, 4, 0, 0, 0, 0]),
    "router alert for RSVP": bytes([5, 2, 0, 1, 1, 0]),
    "router alert for active networks": bytes([5, 2, 0, 2, 1, 0]),
    "another option": bytes([0x1E, 2, 0, 0, 1, 0]),
    "an option beside the router alert": bytes([5, 2, 0, 0, 0x1E, 0]),
    "Pad1 twice": bytes([5, 2, 0, 0, 0, 0]),
    "16 bytes of options": ALERT_FIRST + bytes([1, 6, 0, 0, 0, 0, 0, 0]),
    "router alert in its second half": bytes([1, 4, 0, 0, 0, 0]) + bytes([5, 2, 0, 0, 1, 2, 0, 0]),
}


def too_long():
    for name, (make, *arguments) in BASES.items():
        if name == "router advertisement":
            continue
        size = len(make(PLAIN, *arguments)) - 14
        *most, _ = arguments if name != "redirect" else (*arguments, b"")
        base = size - (8 if name != "redirect" else 0)  # bytes of the packet without options
        for length in (129, 136, 1200):
            options = filling((length - base) // 8 * 8) + bytes((length - base) % 8)
            yield f"{name} of {length} bytes", (make, PLAIN, *most, options)
        yield f"{name}, byte 129 after the payload", (make, PLAIN.but(trailing=bytes(129 - size)), *arguments)
        yield f"{name}, 1,200 bytes with what follows the payload", (make, PLAIN.but(trailing=bytes(1200 - size)), *arguments)
        yield f"{name}, no payload by its length", (make, PLAIN.but(trailing=bytes(1200 - size), length=0), *arguments)
    for name in ("old report", "done"):
        make, *arguments = LISTENER_BASES[name]
        size = len(make(MLD, *arguments)) - 14
        for length in (129, 1200):
            longer = bytes(length - size)
            yield f"{name} of {length} bytes", (make, MLD.but(trailing=longer, length=length - 40), *arguments)
            yield f"{name}, {length} bytes with what follows the payload", (make, MLD.but(trailing=longer), *arguments)


def wrong_inside():
    """Targets, groups and types that no honest host sends. All of them count as from a link-local source."""
    for who, address in NOBODY.items():
        yield f"solicitation of {who}", (solicitation, PLAIN, address, LOCAL, PEER)
        yield f"solicitation of {who}, to a group", (solicitation, PLAIN, address, LOCAL)
        yield f"advertisement of {who}", (advertisement, PLAIN, address, LOCAL, PEER, SOLICITED)
        yield f"advertisement of {who}, to a group", (advertisement, PLAIN, address, LOCAL, ALL_NODES, OVERRIDE)
        yield f"redirect to {who}", (redirect, PLAIN, LOCAL, PEER_GLOBAL, address, "2001:db8:9::9")
        yield f"redirect of {who}", (redirect, PLAIN, LOCAL, PEER_GLOBAL, "fe80::7", address)
    for flags in (SOLICITED, SOLICITED | OVERRIDE, ROUTER | SOLICITED):
        for group in (ALL_NODES, ALL_ROUTERS, GROUP):
            yield f"solicited advertisement to {group}, flags {flags:x}", (advertisement, PLAIN, LOCAL, LOCAL, group, flags)
    for to in (PEER, PEER_GLOBAL, ALL_NODES, ALL_ROUTERS, GROUP):
        yield f"report to {to}", (message, MLD, 143, LOCAL, to, bytes(3) + b"\1" + record(GROUP))
    for to in (PEER, PEER_GLOBAL, UNSPECIFIED):
        yield f"old report to {to}", (old_report, MLD, LOCAL, GROUP, to)
    for to in (PEER, ALL_NODES, ALL_REPORTS, GROUP):
        yield f"done to {to}", (done, MLD, LOCAL, GROUP, to)
    anything = bytes(4) + frames.ip_bytes(PEER)
    for kind in (1, 2, 3, 4, 100, 127, *range(128, 133), *range(138, 162), 200, 255):
        yield f"ICMPv6 type {kind}", (message, PLAIN, kind, LOCAL, ALL_NODES, anything)
    for kind in (1, 128, 129, 130, *range(133, 138), 151, 153, 255):
        yield f"ICMPv6 type {kind} with a router alert", (message, MLD, kind, LOCAL, ALL_NODES, anything)


FOREIGN = {
    "global": GLOBAL, "loopback": "::1", "multicast": ALL_NODES, "IPv4-mapped": "::ffff:192.0.2.7", "unique local": "fd00::1",
}  # fmt: skip


def wrong_source():
    """Sources that are not link-local, and messages from no address that are not for duplicate address detection."""
    for who, source in FOREIGN.items():
        yield f"router solicitation from {who}", (router_solicitation, PLAIN, source)
        yield f"router advertisement from {who}", (router_advertisement, PLAIN, source)
        yield f"solicitation from {who}", (solicitation, PLAIN, PEER, source)
        yield f"probe from {who}", (solicitation, PLAIN, PEER, source, PEER)
        yield f"advertisement from {who}", (advertisement, PLAIN, source, source, PEER, SOLICITED | OVERRIDE)
        yield f"unsolicited advertisement from {who}", (advertisement, PLAIN, source, source, ALL_NODES, OVERRIDE)
        yield f"redirect from {who}", (redirect, PLAIN, source, PEER, "fe80::7", "2001:db8:9::9")
        yield f"report from {who}", (report, MLD, source, record(GROUP))
        yield f"old report from {who}", (old_report, MLD, source, GROUP)
        yield f"done from {who}", (done, MLD, source, GROUP)
    for to in (ALL_NODES, ALL_ROUTERS, GROUP, PEER, GLOBAL, "ff02::1:fe00:1", "ff05::1:ff00:1", "ff02::2:ff00:1"):
        yield f"DAD to {to}", (solicitation, PLAIN, GLOBAL, UNSPECIFIED, to)
    for who, address in NOBODY.items():
        yield f"DAD of {who}", (solicitation, PLAIN, address, UNSPECIFIED, solicited_node(GLOBAL))
    for to in (ALL_NODES, PEER, ALL_REPORTS, GROUP):
        yield f"router solicitation from no address to {to}", (router_solicitation, PLAIN, UNSPECIFIED, to)
    yield "advertisement from no address", (advertisement, PLAIN, GLOBAL, UNSPECIFIED, ALL_NODES, OVERRIDE)
    yield "router advertisement from no address", (router_advertisement, PLAIN, UNSPECIFIED)
    yield "redirect from no address", (redirect, PLAIN, UNSPECIFIED, PEER, "fe80::7", "2001:db8:9::9")
    yield "DAD of 129 bytes", (solicitation, PLAIN, GLOBAL, UNSPECIFIED, None, filling(64) + b"\0")
    yield "DAD, byte 129 after the payload", (solicitation, PLAIN.but(trailing=bytes(65)), GLOBAL, UNSPECIFIED)
    yield "report from no address to all routers", (message, MLD, 143, UNSPECIFIED, ALL_ROUTERS, bytes(4) + record(GROUP))


WRONG_LOCAL = {**dict(wrong_around()), **dict(too_long()), **dict(wrong_inside())}
WRONG_SOURCE = dict(wrong_source())


def made(make, how, *arguments, tags):
    return make(how.but(tags=tags), *arguments)


@pytest.fixture
def judged(idle, switch, sent):
    """judged(cases, tags): name -> what came of it: "passes", or the counter that it moved. Each case is sent by itself."""
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")  # reports go to all ports like anything else
    idle.guard(1)

    def judge(cases, tags):
        found = {}
        for name, case in cases.items():
            frame, before = made(*case, tags=tags), idle.guarded(1)
            out, after = sent(1, frame, trusted=()), idle.guarded(1)
            moved = [counter for counter in after for _ in range(after[counter] - before[counter])]
            if out:
                assert out == {port: [frame] for port in (2, 3, 4)}, name
                moved.append("passes")
            found[name] = " ".join(moved)
        return found

    return judge


@TAGGINGS
def test_honest_messages_pass(judged, tags):
    honest = HONEST | of_full_size(1492 if len(tags) > 1 else 1500)  # a cable takes one tag of type 0x8100 more
    assert judged(honest, tags) == dict.fromkeys(honest, "passes")


@TAGGINGS
def test_one_thing_wrong_and_it_is_blocked(judged, tags):
    assert judged(WRONG_LOCAL, tags) == dict.fromkeys(WRONG_LOCAL, "local")
    assert judged(WRONG_SOURCE, tags) == dict.fromkeys(WRONG_SOURCE, "blocked")


def test_cut_messages_are_blocked(judged):
    """The frame ends before the fields that the rules need."""
    names = ("resolution of a link-local address", "answer of a router", "redirect")
    whole = {name: made(*HONEST[name], tags=()) for name in names}
    cut = {}
    for name, frame in whole.items():
        for length in (14 + 40, 14 + 41, 14 + 44, 14 + 50):
            cut[f"{name}, {length} bytes"] = (lambda how, frame: frame, PLAIN, frame[:length])
    assert judged(cut, ()) == dict.fromkeys(cut, "local")


# ---- More than a host ever sends ---------------------------------------------------------------------------------------------

BURST, RATE = 2000, 1000  # messages at once, and messages a second, that pass a port without a binding
OTHER = "02:aa:00:00:00:02"


def test_a_flood_of_solicitations_is_limited_for_each_port(idle, switch):
    idle.guard(1, 2)
    flood = [solicitation(PLAIN, f"2001:db8:f::{n:x}", LOCAL) for n in range(20_000)]
    calm = [solicitation(How(OTHER), f"2001:db8:c::{n:x}", link_local(OTHER)) for n in range(100)]
    flow.listen(switch)
    start, cable = time.monotonic(), carried(switch, 1)
    for at, one in zip(range(0, len(flood), 200), calm):
        switch.wire(1).send(*flood[at : at + 200])
        switch.wire(2).send(one)
    flow.settle(switch, 1, trusted=())
    flow.settle(switch, 2, trusted=())
    taken, lost = (now - before for now, before in zip(carried(switch, 1), cable))
    took = time.monotonic() - start
    found = flow.heard(switch)
    of_flood = {port: [frame for frame in seen if frame[6:12] == mac_bytes(HOST)] for port, seen in found.items()}
    passed = of_flood[3]
    assert of_flood == {1: [], 2: passed, 3: passed, 4: passed}
    assert [frame for frame in found[3] if frame[6:12] == mac_bytes(OTHER)] == calm
    assert BURST <= len(passed) <= BURST + RATE * took + 1
    rest = iter(flood)
    assert all(frame in rest for frame in passed)  # in order, each once
    counted = {"guarded": 1, "installed": 1, "blocked": 0, "local": 0, "discovery": 0}
    assert idle.guarded(1) == counted | {"discovery": len(flood) - lost - len(passed)}
    assert idle.guarded(2) == counted
    assert taken + lost == len(flood) + 1  # and the marker
    last = solicitation(PLAIN, PEER, LOCAL)

    def passes():
        return flow.sent(switch, 1, last, trusted=()) == {port: [last] for port in (2, 3, 4)}

    idle.until(passes, "a port that has been quiet may send again")


def test_what_is_bound_is_not_limited(idle, switch, sent):
    """A bound source may send neighbour discovery like anything else."""
    idle.guard(1).bind(LOCAL)
    many = [solicitation(PLAIN, f"2001:db8:f::{n:x}", LOCAL) for n in range(2 * BURST)]
    found = sent(1, *many, trusted=())
    assert found == {port: many for port in (2, 3, 4)}
    assert idle.guarded(1)["discovery"] == 0
