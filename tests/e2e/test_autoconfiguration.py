"""Real hosts on guarded ports get their addresses, find duplicates, their router and each other, and join groups, as if there
were no guard: it counts nothing."""

import socket

import pytest
from lab import netns
from lab.clients import Dhclient, Dhcpcd
from lab.neighbours import solicited_node
from lab.slaac import Host, Router, interface_address

from test_guard_life import ping

PREFIX = "2001:db8:1::"
GROUP = "ff15::db8:1"
SAME = "2001:db8:1::42"


@pytest.fixture
def router(switch):
    """router(...): behind port 4."""
    made = []

    def start(**words):
        made.append(Router(switch, 4, PREFIX, **words))
        return made[-1]

    yield start
    for one in made:
        one.close()


def untouched(daemon, *ports):
    """Whether the guard of these ports has dropped nothing."""
    nothing = {"guarded": 1, "installed": 1, "blocked": 0, "local": 0, "discovery": 0}
    return {port: daemon.guarded(port) for port in ports} == dict.fromkeys(ports, nothing)


def reach(switch, *places):
    """Whether every one of these (port, address) gets answers from every other."""
    pairs = [(port, source, target) for port, source in places for _, target in places if source != target]
    return {pair: ping(switch, *pair) for pair in pairs} == dict.fromkeys(pairs, 3)


@pytest.mark.parametrize("guarded", [(1, 2), (1, 2, 4)], ids=["router on an open port", "router on a guarded port"])
def test_hosts_configure_themselves(idle, switch, router, guarded):
    idle.guard(*guarded)
    gateway = router()
    hosts = [Host(switch, 1), Host(switch, 2)]
    made = {host.port: interface_address(PREFIX, host.mac) for host in hosts}
    for host in hosts:
        host.until_usable(host.link_local, made[host.port])
    assert untouched(idle, *guarded)
    assert ping(switch, 1, made[1], gateway.address) == 0  # nothing is bound yet
    assert not untouched(idle, 1) and untouched(idle, *guarded[1:])
    idle.guard(1, mode=1)
    idle.guard(1)  # starts the counters anew
    for host in hosts:
        idle.bind(made[host.port], host.mac, host.port)
    if 4 in guarded:
        idle.bind(gateway.address, switch.mac(4), 4)
    assert reach(switch, (1, made[1]), (2, made[2]), (4, gateway.address))
    assert untouched(idle, *guarded)
    assert hosts[0].neighbour(gateway.address) == switch.mac(4)
    assert hosts[0].neighbour(made[2]) == hosts[1].mac


def test_a_duplicate_is_found(idle, switch):
    """A link-local address without a binding; a global one that is bound to the port of its owner."""
    idle.guard(1, 2)
    owner, other = Host(switch, 1), Host(switch, 2)
    owner.until_usable(owner.link_local)
    other.until_usable(other.link_local)
    owner.add("fe80::42")
    owner.until_usable(owner.link_local, "fe80::42")
    other.add("fe80::42")
    other.until_duplicate("fe80::42")
    idle.bind(SAME, owner.mac, 1)
    owner.add(SAME)
    owner.until_usable(owner.link_local, "fe80::42", SAME)
    other.add(SAME)
    other.until_duplicate(SAME)
    assert other.usable() == {other.link_local}
    assert untouched(idle, 1, 2)


def test_the_bridge_learns_groups_through_the_guard(idle, switch):
    idle.guard(1, 2)
    host = Host(switch, 1)
    host.until_usable(host.link_local)

    def members(group):
        shown = netns.run(switch.namespace, "bridge", "mdb", "show", "dev", "br0")
        return [line.split()[3] for line in shown.splitlines() if group in line.split()]

    idle.until(lambda: members(solicited_node(host.link_local)) == ["p1"], "the bridge knows the group of its address")
    with netns.entered(host.name), socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as member:
        index = socket.if_nametoindex("eth0")
        membership = socket.inet_pton(socket.AF_INET6, GROUP) + index.to_bytes(4, "little")
        member.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_JOIN_GROUP, membership)
        idle.until(lambda: members(GROUP) == ["p1"], "the bridge knows the group that it joined")
    assert untouched(idle, 1, 2)


def test_leased_addresses(daemon, switch, network, router):
    """DHCPv6 as a router tells the hosts to use it; each asks for duplicates of what it was given."""
    daemon.guard(1, 2)
    network.server()
    gateway = router(managed=True)
    hosts = [Host(switch, 1), Host(switch, 2)]
    for host in hosts:
        host.until_usable(host.link_local)
    leased = {}
    for host, client in zip(hosts, (Dhclient, Dhcpcd)):
        leased[host.port] = network.client(client, host.port).address()
        host.until_usable(host.link_local, leased[host.port])
    assert {(filter_[1], filter_[4]) for filter_ in daemon.filters()} == set(leased.items())
    assert untouched(daemon, 1, 2)
    assert reach(switch, *leased.items(), (4, gateway.address))
    assert untouched(daemon, 1, 2)
