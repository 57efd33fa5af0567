"""The client table read with the net-snmp tools: hundreds of clients, clients that come and go under a walk, and clients with
many leases."""

import itertools
import random

from lab import flow, frames, netns
from lab.frames import REPLY, duid, from_server, ia_na, ia_pd, mac_bytes, mac_number, mac_text, option
from lab.snmp import NO_INSTANCE

MANY = 600
MACS, VLANS, PORTS, COUNTS, FIRST, SECOND, TIMES = (f".6.1.{column}" for column in range(1, 8))


def arcs(mac):
    return "".join(f".{byte}" for byte in mac_bytes(mac))


def grants(mac, *leases, valid=7200):
    options = ia_na([lease for lease in leases if "/" not in lease], preferred=valid, valid=valid)
    prefixes = [lease for lease in leases if "/" in lease]
    if prefixes:
        options += ia_pd(prefixes, preferred=valid, valid=valid)
    return from_server(REPLY, mac, option(1, duid(mac)) + options)


def learn_all(daemon, switch, macs, lease):
    """Clients on port 1: the bridge has seen each, and the server grants."""
    flow.listen(switch)
    for first in range(0, len(macs), 200):
        some = macs[first : first + 200]
        switch.wire(1).send(*(frames.from_client(frames.REQUEST, mac) for mac in some))
        assert len(switch.wire(4).wait(first + len(some))) == first + len(some)
        switch.wire(4).send(*(grants(mac, lease(mac)) for mac in some))
        assert len(switch.wire(1).wait(first + len(some))) == first + len(some)
    daemon.until(lambda: len(daemon.clients()) >= len(macs), "all are learned")


def an_address(mac):
    return frames.ip_text(b"\x20\x01\x0d\xb8" + bytes(6) + mac_bytes(mac))


def stations(switch):
    return netns.run(switch.namespace, "bridge", "fdb", "show", "br", "br0")


def random_macs(count, seed):
    """Locally administered addresses with all kinds of bytes in them."""
    numbers = random.Random(seed)
    return [mac_text(bytes([numbers.randrange(0, 256, 4) | 2, *numbers.randbytes(5)])) for _ in range(count)]


def test_hundreds_of_clients(daemon, manager, switch):
    """Each once, in order, in every column; by whatever steps the walk goes."""
    macs = random_macs(MANY, 7)
    learn_all(daemon, switch, macs, an_address)
    ordered = sorted(macs, key=mac_bytes)
    bulk = manager.bulkwalk(".6", at_once=50)
    assert list(bulk) == [column + arcs(mac) for column in (MACS, VLANS, PORTS, COUNTS, FIRST, TIMES) for mac in ordered]
    assert [bulk[FIRST + arcs(mac)] for mac in ordered] == [an_address(mac) for mac in ordered]
    assert {bulk[column + arcs(mac)] for column in (VLANS, PORTS, COUNTS) for mac in macs} == {1}
    assert list(manager.walk(PORTS)) == [PORTS + arcs(mac) for mac in ordered]
    assert len(daemon.clients()) == MANY


def test_clients_come_and_go_under_a_walk(daemon, manager, switch):
    """A walk that goes step by step while half of the clients go and others come ends, never goes back, shows none twice, and
    misses none that was there all the time."""
    stay, go, come = random_macs(30, 1), random_macs(30, 2), random_macs(30, 3)
    learn_all(daemon, switch, stay + go, an_address)
    changes = itertools.chain(*zip(go, come))
    seen, at = [], manager.next(VLANS)
    while at[0].startswith(VLANS):
        seen.append(tuple(int(arc) for arc in at[0].removeprefix(VLANS + ".").split(".")))
        if gone := next(changes, None):
            daemon.ctl("clear", "dhcpv6-snooping", "clients", "mac", gone)
            new = next(changes)
            switch.wire(1).send(frames.from_client(frames.REQUEST, new))
            daemon.until(lambda mac=new: mac in stations(switch), "the bridge knows the client")
            switch.wire(4).send(grants(new, an_address(new)))
            daemon.until(lambda mac=new: mac in daemon.clients(), "the client is learned")
        at = manager.next(at[0])
        assert len(seen) <= 90
    assert seen == sorted(set(seen))
    assert {tuple(mac_bytes(mac)) for mac in stay} <= set(seen) <= {tuple(mac_bytes(mac)) for mac in stay + go + come}
    assert set(daemon.clients()) == {*stay, *come}


def test_second_text_where_there_is_one(daemon, manager, learn):
    """Clients with more than five leases have client6IpAddrStr2; a walk over it meets those and leaves the others out."""
    leases = {number: [f"2001:db8::{number:x}:{n:x}" for n in range(1, number + 1)] for number in range(1, 9)}
    leases[9] = [f"2001:db8:{n:x}::/48" for n in range(1, 11)]
    leases[3] = [f"2001:db8:3:{n:x}::/64" for n in range(1, 4)]
    for number, held in leases.items():
        learn(1, mac_number(number), *held, valid=90061)
    walk = manager.walk(".6")
    held = {number: list(daemon.clients()[mac_number(number)]["leases"]) for number in leases}
    for number, wanted in leases.items():
        own = [lease.removesuffix("/128") for lease in held[number]]
        assert sorted(own) == sorted(wanted)
        assert walk[FIRST + arcs(mac_number(number))] == ",".join(own[:5])
        assert walk[COUNTS + arcs(mac_number(number))] == len(wanted)
        assert walk.get(SECOND + arcs(mac_number(number))) == (",".join(own[5:]) or None)
        assert len(walk[TIMES + arcs(mac_number(number))].split(",")) == len(wanted)
        assert walk[TIMES + arcs(mac_number(number))].startswith(("1d1h1m", "1d1h0m"))
        if len(wanted) <= 5:
            assert manager.get(SECOND + arcs(mac_number(number))) == NO_INSTANCE
    second = [SECOND + arcs(mac_number(number)) for number in (6, 7, 8, 9)]
    assert list(manager.walk(SECOND)) == list(manager.bulkwalk(SECOND)) == second
    assert manager.next(SECOND)[0] == second[0]
    assert manager.next(second[-1])[0] == TIMES + arcs(mac_number(1))


def test_a_client_without_an_answer_yet(daemon, manager, switch, sent):
    """It is not met by a walk; its own instance answers."""
    mac = mac_number(1)
    request = frames.from_client(frames.REQUEST, mac)
    assert sent(1, request) == {4: [request]}
    assert manager.walk(".6") == {}
    assert manager.get(MACS + arcs(mac)) == mac_bytes(mac)
    assert manager.get(PORTS + arcs(mac)) in (1, NO_INSTANCE)
