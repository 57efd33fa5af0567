"""What the kernel does not say, or says in an unusual way, when interfaces and their VLANs change. The daemon asks then.

Ports as in the tests of forwarding: 1 is in VLAN 10, 2 in VLAN 20, 3 has both, 20 with a tag, and 4, the servers', both with
one."""

import socket
import struct

import pytest
from lab import calls, netns, vlans
from lab.frames import SOLICIT, from_client, mac_number

pytestmark = [pytest.mark.needs("vlan_filtering"), pytest.mark.usefixtures("places")]

RTM_NEWVLAN, RTM_DELVLAN, REQUEST_AND_ACK, AF_BRIDGE = 112, 113, 5, 7


@pytest.fixture
def sent(places):
    return places.sent


def solicit(tags=()):
    return from_client(SOLICIT, mac_number(1), tags=tags)


def change_vlan(switch, request, port, vlan):
    """Makes a port a member, or takes it out, by a request about the VLAN; bridge(8) makes them about the port."""
    with netns.entered(switch.namespace):
        index = socket.if_nametoindex(vlans.name(port))
        asker = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
    with asker:
        entry = struct.pack("=HHHHHH", 12, 1 | 0x8000, 8, 1, 0, vlan)
        body = struct.pack("=BxxxI", AF_BRIDGE, index) + entry
        asker.send(struct.pack("=IHHII", 16 + len(body), request, REQUEST_AND_ACK, 1, 0) + body)
        error = struct.unpack_from("=i", asker.recv(4096), 16)[0]
    assert error == 0


def test_vlans_that_change_by_requests_about_vlans(daemon, switch, places, sent):
    """The kernel tells of one that is taken away as if the port had left the bridge."""
    for request, vlan, tagged in ((RTM_NEWVLAN, 30, [20, 30]), (RTM_DELVLAN, 20, [30]), (RTM_DELVLAN, 30, []),
                                  (RTM_NEWVLAN, 20, [20])):  # fmt: skip
        change_vlan(switch, request, 3, vlan)
        places.tagged[3] = tagged
        places.until_known(daemon)
        assert sent(3, solicit(), solicit((20,))) == {
            4: [solicit((10,)), solicit((20,))] if 20 in tagged else [solicit((10,))]
        }


def test_an_interface_gets_its_name_when_it_is_in_the_bridge_already(daemon, switch, places, sent):
    """What was said of it under the other name counts: the VLAN that is blocked there stays closed."""
    vlans.bridge(switch, "vlan set dev p3 vid 20 state blocking")
    for name in ("x", "p3"):
        before = "p3" if name == "x" else "x"
        switch.ip("link", "set", before, "down")
        switch.ip("link", "set", before, "name", name)
    switch.ip("link", "set", "p3", "up")
    daemon.until(lambda: calls.ports(daemon.link)[3]["forwarding"] == 1, "the port is back")
    assert sent(3, solicit((20,)), trusted=()) == {}
    daemon.until(lambda: daemon.counters(3)["dropState"] == 1, "the frame is refused")
    places.until_known(daemon)
    assert sent(3, solicit()) == {4: [solicit((10,))]}


@pytest.mark.needs("bonding")
def test_a_bond_takes_the_place_that_another_leaves(daemon, switch, places):
    def trunk():
        return calls.ports(daemon.link)[3]["trunk"]

    for number in range(100, 128):
        switch.ip("link", "add", f"bond{number}", "type", "bond")
    switch.ip("link", "add", "bond7", "type", "bond")
    switch.ip("link", "set", "p3", "nomaster", "down")
    switch.ip("link", "set", "p3", "master", "bond7")
    switch.ip("link", "set", "bond7", "master", "br0", "up")
    daemon.until(lambda: "bond bond7 is one too many" in daemon.log(), "there is no place")
    assert trunk() == calls.NONE
    switch.ip("link", "del", "bond113")
    daemon.until(lambda: trunk() == 7, "the bond has a place")
    assert daemon.log().count("is one too many") == 1
