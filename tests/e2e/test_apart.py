"""Ports that the bridge keeps apart, isolated or locked ones, are kept apart from DHCPv6 too, which the daemon forwards."""

import pytest
from lab import calls, vlans
from lab.frames import ADVERTISE, RECONFIGURE, SOLICIT, from_client, from_server, mac_number

CLIENT, OTHER = mac_number(1), mac_number(2)
STATIC = f"{CLIENT} dev p{{}} master static"


@pytest.fixture
def told(daemon):
    """told(line...): bridge(8) does it, and the daemon has heard of it: before it answers a call, its loop takes a turn."""

    def tell(*lines):
        vlans.bridge(daemon.switch, *lines)
        daemon.counted(1)

    return tell


def solicit(mac=CLIENT):
    return from_client(SOLICIT, mac)


def test_isolated_ports_send_nothing_to_each_other(daemon, sent, told):
    """1, 2 and 4 are; 3, a server's port as 4, is not."""
    daemon.call(calls.PORT_MODE, 3, 1)
    told(*(f"link set dev p{port} isolated on" for port in (1, 2, 4)))
    from_1, from_4 = (1, (3,), (), (3,)), (4, (4,), (), (3,))
    assert sent(1, solicit(), marker=from_1) == {3: [solicit()]}
    assert sent(2, solicit(OTHER), marker=(2, *from_1[1:])) == {3: [solicit(OTHER)]}
    known, unknown = from_server(ADVERTISE, CLIENT), from_server(ADVERTISE, mac_number(3))
    everybody = from_server(RECONFIGURE, CLIENT, destination="33:33:00:00:00:01")
    assert sent(4, known, unknown, everybody, marker=from_4) == {3: [unknown, everybody]}
    assert sent(3, known, unknown, trusted=(3,)) == {1: [known, unknown], 2: [unknown], 4: [unknown]}
    told("link set dev p4 isolated off")
    assert sent(4, known, unknown) == {1: [known, unknown], 2: [unknown], 3: [unknown]}
    assert sent(1, solicit(), marker=(1, (3, 4), (), (3, 4))) == {3: [solicit()], 4: [solicit()]}


def test_a_locked_port_takes_messages_of_known_stations_only(daemon, sent, told):
    """A frame of an unknown one would not pass the bridge: markers take another port."""
    elsewhere = {"marker": (2, (4,))}
    told("link set dev p1 locked on learning off")
    assert sent(1, solicit(), solicit(OTHER), **elsewhere) == {}
    assert daemon.counters(1)["dropState"] == 2
    told("fdb add " + STATIC.format(1))
    assert sent(1, solicit(), solicit(OTHER), **elsewhere) == {4: [solicit()]}
    assert (daemon.counted(1), daemon.counters(1)["dropState"]) == (1, 3)
    told("fdb replace " + STATIC.format(3))
    assert sent(1, solicit(), **elsewhere) == {}
    told("fdb replace " + STATIC.format(1))
    assert sent(1, solicit(), **elsewhere) == {4: [solicit()]}
    told("fdb del " + STATIC.format(1))
    assert sent(1, solicit(), **elsewhere) == {}
    assert daemon.counters(1)["dropState"] == 5
    assert sent(3, solicit(OTHER)) == {4: [solicit(OTHER)]}  # another port is not locked
    told("link set dev p1 locked off learning on")
    assert sent(1, solicit()) == {4: [solicit()]}


def test_the_switch_s_own_address_does_not_unlock_a_port(daemon, switch, sent, told):
    told("link set dev p1 locked on", f"fdb replace {CLIENT} dev p1 master permanent")
    assert sent(1, solicit(), marker=(2, (4,))) == {}
    assert daemon.counters(1)["dropState"] == 1
