"""VLANs that change under the running daemon: members that come and go, another native VLAN, a bridge that begins or ceases to
filter, interfaces and bridges that are made anew. Forwarding, the source guard and what the daemon says of its VLANs follow.

Ports as in the tests of forwarding: 1 is in VLAN 10, 2 in VLAN 20, 3 has both, 20 with a tag, and 4, the servers', both with
one."""

import pytest
from lab import calls, flow, netns, vlans
from lab.daemon import Daemon
from lab.frames import REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na, mac_number
from lab.switch import BRIDGE
from lab.vlans import PLACES, Places

from test_guard import BOUND, HOST, OTHER, UNBOUND, packet

pytestmark = [pytest.mark.needs("vlan_filtering"), pytest.mark.usefixtures("places")]


@pytest.fixture
def sent(places):
    return places.sent


def solicit(tags=(), mac=HOST):
    return from_client(SOLICIT, mac, tags=tags)


def carrying(source, mac=HOST):
    """A packet as a function of its tags."""
    return lambda tags: packet(source, mac, tags)


def exists(daemon):
    return sorted(vlans.known(daemon))


def exchange(sent, port, vlan, mac, address, tags=()):
    """A client gets an address from the server of its VLAN."""
    assert sent(port, from_client(REQUEST, mac, tags=tags)) == {4: [from_client(REQUEST, mac, tags=(vlan,))]}
    options = ia_na([address])
    assert sent(4, from_server(REPLY, mac, options, tags=(vlan,))) == {port: [from_server(REPLY, mac, options, tags=tags)]}


# ---- Forwarding -----------------------------------------------------------------------------------------------------


def test_members_come_and_go(daemon, places, sent):
    assert sent(1, solicit((20,))) == {}
    places.put({1: (10, 20)})
    places.until_known(daemon)
    assert sent(1, solicit((20,))) == {4: [solicit((20,))]}
    advertise = from_server(REPLY, OTHER, tags=(20,))
    assert sent(4, advertise)[1] == [advertise]
    places.put({1: (10,), 4: (0, 10)})
    places.until_known(daemon)
    assert sent(1, solicit((20,))) == {}
    assert sent(2, solicit()) == {}  # the servers have left the VLAN
    assert sent(4, advertise) == {}
    places.put({4: (20, 10)})  # they are in it again, without a tag
    places.until_known(daemon)
    assert sent(2, solicit()) == {4: [solicit()]}
    assert sent(3, solicit((20,))) == {4: [solicit()]}
    assert sent(1, solicit()) == {4: [solicit((10,))]}


def test_the_native_vlan_moves(daemon, places, sent):
    exchange(sent, 3, 10, HOST, "2001:db8::7")
    places.put({3: (20, 10)})
    places.until_known(daemon)
    exchange(sent, 3, 20, HOST, "2001:db8::8")
    exchange(sent, 3, 10, OTHER, "2001:db8::9", (10,))
    assert {mac: record["vlan"] for mac, record in daemon.clients().items()} == {HOST: 20, OTHER: 10}
    vlans.bridge(daemon.switch, "vlan add dev p3 vid 20 untagged")  # a member without a tag, but frames without one are refused
    daemon.until(lambda: calls.ports(daemon.link)[3]["nativeVlan"] == 0, "the native VLAN is gone")
    refused = daemon.counters(3)["dropVlan"]
    assert sent(4, from_server(REPLY, HOST, tags=(20,))) == {3: [from_server(REPLY, HOST)]}
    flow.listen(daemon.switch)
    daemon.switch.wire(3).send(solicit())
    daemon.until(lambda: daemon.counters(3)["dropVlan"] == refused + 1, "the frame without a tag is refused")
    assert flow.heard(daemon.switch) == {}


def test_the_bridges_default_vlan_changes(switch, places, idle):
    """The kernel moves all ports that have the default VLAN as their native one, and tells of the bridge only."""
    switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_default_pvid", "1")
    places.put({**PLACES, 1: (1,), 2: (1, 20)})
    places.until_known(idle)
    for default in (30, 40):
        switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_default_pvid", str(default))
        places.native |= {1: default, 2: default}
        places.until_known(idle)
    switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_default_pvid", "0")
    places.native |= {1: 0, 2: 0}
    places.until_known(idle)


def test_filtering_ends_and_begins(daemon, switch, places, sent):
    assert sent(1, solicit((30,))) == {}
    vlans.transparent(switch)
    daemon.until(lambda: calls.switch_status(daemon.link)["vlanFiltering"] == 0, "the bridge is transparent")
    for tags in ((), (30,), (10, 5)):
        for port in (1, 3):
            assert flow.sent(switch, port, solicit(tags)) == {4: [solicit(tags)]}
    assert exists(daemon) == [1, 10, 20]  # what the switch file says
    assert calls.ports(daemon.link)[4]["nativeVlan"] == 1
    vlans.filtering(switch, default=0)
    daemon.until(lambda: calls.switch_status(daemon.link)["vlanFiltering"] == 1, "the bridge filters")
    places.until_known(daemon)
    assert sent(1, solicit((30,))) == {}
    assert sent(1, solicit()) == {4: [solicit((10,))]}
    assert sent(3, solicit((20,))) == {4: [solicit((20,))]}


def test_the_type_of_tags_changes(daemon, switch, sent):
    assert sent(3, solicit((20,))) == {4: [solicit((20,))]}
    places = Places(switch, PLACES, "802.1ad")
    service = places.tags(3, 20)
    daemon.until(lambda: "elements = { 8021q }" in switch.ruleset(), "the new type is known")
    assert places.sent(3, solicit(service)) == {4: [solicit(service)]}
    assert places.sent(3, solicit((20,))) == {4: [solicit((*places.tags(4, 10), 20))]}


@pytest.mark.parametrize("when", ["before the start", "while it runs"])
def test_a_vlan_that_is_blocked_on_a_port(idle, switch, places, sent, when):
    """Spanning tree by VLAN: the bridge neither takes nor gives frames of this VLAN there, and no more does the daemon."""
    if when == "before the start":
        idle.stop()
    vlans.bridge(switch, "vlan set dev p3 vid 20 state blocking")
    if when == "before the start":
        idle.start()
    idle.snoop(4)
    assert sent(3, solicit((20,)), solicit((20, 5)), trusted=()) == {}
    idle.until(lambda: idle.counters(3)["dropState"] == 2, "the frames are refused")
    flooding = from_server(REPLY, OTHER, tags=(20,))
    assert places.sent(4, flooding) == {2: [from_server(REPLY, OTHER)]}
    assert sent(3, solicit()) == {4: [solicit((10,))]}
    vlans.bridge(switch, "vlan set dev p3 vid 10 state learning", "vlan set dev p3 vid 20 state forwarding")
    vlans.bridge(switch, "vlan add dev p1 vid 30")  # is told behind the states
    idle.until(lambda: 30 in exists(idle), "the states are known")
    refused = [solicit(), solicit((10,)), solicit((0,))]
    marker = ([4], (20,), places.members(20))
    assert flow.sent(switch, 3, *refused, solicit((20,)), marker=(3, *marker)) == {4: [solicit((20,))]}
    found = {2: [from_server(REPLY, OTHER)], 3: [flooding]}
    assert flow.sent(switch, 4, flooding, from_server(REPLY, OTHER, tags=(10,)), marker=(4, *marker)) == {
        1: [from_server(REPLY, OTHER)], **found
    }
    vlans.leave(switch, 3, 10)
    places.put({3: (10, 20)})  # a membership that begins anew is open
    idle.until(lambda: vlans.known(idle).get(10, ([], []))[1] == [1, 3], "the port is a member again")
    assert sent(3, solicit()) == {4: [solicit((10,))]}


# ---- Which VLANs exist ------------------------------------------------------------------------------------------------


def test_a_vlan_exists_while_somebody_is_in_it(idle, switch, places):
    def until(*expected):
        idle.until(lambda: exists(idle) == list(expected), f"the VLANs are {expected}")

    until(10, 20)
    vlans.join(switch, 1, 30)
    until(10, 20, 30)
    vlans.join(switch, 2, 30, "untagged")
    vlans.leave(switch, 1, 30)
    until(10, 20, 30)
    vlans.join(switch, BRIDGE, 30)
    vlans.join(switch, BRIDGE, 4094)
    until(10, 20, 30, 4094)
    vlans.leave(switch, 2, 30)
    vlans.leave(switch, BRIDGE, 4094)
    until(10, 20, 30)
    vlans.leave(switch, BRIDGE, 30)
    until(10, 20)
    vlans.join(switch, 2, "100-199")
    until(10, 20, *range(100, 200))
    vlans.leave(switch, 2, "150-198")
    until(10, 20, *range(100, 150), 199)
    vlans.leave(switch, 2, "1-4094")  # 20 has ports 3 and 4
    until(10, 20)
    switch.unplug(3)
    until(10, 20)
    switch.unplug(4)
    until(10)
    switch.unplug(1)
    until()


def test_ports_of_another_bridge_do_not_count(idle, switch):
    """An interface of the switch file may be in a bridge that is not the switch."""
    switch.ip("link", "add", "br1", "type", "bridge", "vlan_filtering", "1", "vlan_default_pvid", "77")
    switch.ip("link", "set", "p2", "master", "br1")
    vlans.join(switch, 2, 78)
    switch.ip("link", "set", "br1", "up")
    vlans.join(switch, 1, 30)
    idle.until(lambda: 30 in exists(idle), "the VLANs are known")
    assert vlans.known(idle) == {10: ([1, 3, 4], [1, 3]), 20: ([3, 4], []), 30: ([1], [])}
    assert calls.ports(idle.link)[2]["forwarding"] == 0
    switch.ip("link", "set", "p2", "master", BRIDGE)
    vlans.join(switch, 2, 20)
    idle.until(lambda: vlans.known(idle)[20] == ([2, 3, 4], []), "the port is back")
    assert exists(idle) == [10, 20, 30]


def test_the_managers_table_and_the_configuration_have_the_bridges_vlans(idle, switch, manager):
    def listed():
        return manager.walk(".3.1.1")

    assert listed() == {".3.1.1.10": 10, ".3.1.1.20": 20}
    assert manager.set((".3.1.2.30", "i", 5)) == "noCreation .3.1.2.30"
    vlans.join(switch, 1, 30)
    idle.until(lambda: exists(idle) == [10, 20, 30], "the VLAN is known")
    assert manager.set((".3.1.2.30", "i", 5)) == "ok"
    assert manager.walk(".3") == {".3.1.1.10": 10, ".3.1.1.20": 20, ".3.1.1.30": 30,
                                  ".3.1.2.10": 2048, ".3.1.2.20": 2048, ".3.1.2.30": 5}  # fmt: skip
    line = "vlan 30\ndhcpv6-snooping max-clients 5\nquit\n"
    assert line in idle.ctl("show", "running-config").replace("\r", "")
    vlans.leave(switch, 1, 30)
    idle.until(lambda: exists(idle) == [10, 20], "the VLAN is gone")
    assert listed() == {".3.1.1.10": 10, ".3.1.1.20": 20}
    assert "vlan 30" not in idle.ctl("show", "running-config")


# ---- The source guard -------------------------------------------------------------------------------------------------


@pytest.fixture
def guarded(daemon):
    return daemon.guard(3)


def elements(switch, name):
    """A set's elements, as nft lists them."""
    text = netns.run(switch.namespace, "nft", "list", "set", "bridge", "snoopd6", name)
    return [] if "elements" not in text else text.partition("elements = {")[2].partition("}")[0].split(",")


def passes(places, sent, frame_of, vlan, tags):
    """Whether the packet, sent into port 3 with these tags, comes out at the servers' port in the VLAN, and no other does."""
    found = sent(3, frame_of(tags))
    out = places.flooded(vlan, frame_of, 3)
    assert found in ({}, out)
    return found == out


def test_filters_follow_the_native_vlan(guarded, switch, places, sent):
    guarded.bind(BOUND, HOST, 3, 10)
    guarded.bind("2001:db8::3", OTHER, 3, 20)
    ten, twenty = carrying(BOUND), carrying("2001:db8::3", OTHER)

    def outcome(native):
        """Which of the packets pass in which VLAN: (bound in, sent in)."""
        places_now = {10: () if native == 10 else (10,), 20: () if native == 20 else (20,)}
        return [(bound, vlan) for bound, make in ((10, ten), (20, twenty)) for vlan in (10, 20)
                if passes(places, sent, make, vlan, places_now[vlan])]  # fmt: skip

    assert outcome(10) == [(10, 10), (20, 20)]
    assert len(elements(switch, "f_vlan")) == 2 and len(elements(switch, "f_native")) == 1
    places.put({3: (20, 10)})
    places.until_known(guarded)
    assert outcome(20) == [(10, 10), (20, 20)]
    assert len(elements(switch, "f_vlan")) == 2 and len(elements(switch, "f_native")) == 1
    places.put({3: (0, 10, 20)})
    places.until_known(guarded)
    assert outcome(0) == [(10, 10), (20, 20)]
    assert sent(3, ten(()), twenty(())) == {}
    assert len(elements(switch, "f_vlan")) == 2 and elements(switch, "f_native") == []
    assert set(guarded.filters().values()) == {1}
    guarded.unbind(BOUND)
    guarded.unbind("2001:db8::3")
    assert elements(switch, "f_vlan") == []


def test_a_lease_stays_in_its_vlan_when_the_native_one_moves(guarded, switch, places, sent):
    exchange(sent, 3, 10, HOST, BOUND)
    leased = carrying(BOUND)
    assert passes(places, sent, leased, 10, ())
    places.put({3: (20, 10)})
    places.until_known(guarded)
    assert not passes(places, sent, leased, 20, ())
    assert passes(places, sent, leased, 10, (10,))
    assert guarded.filters() == {(4, 3, 10, HOST, BOUND): 1}
    vlans.transparent(switch)
    guarded.until(lambda: calls.switch_status(guarded.link)["vlanFiltering"] == 0, "the bridge is transparent")
    tagged = packet(BOUND, HOST, (10,))
    assert flow.sent(switch, 3, packet(BOUND), tagged, packet(BOUND, tags=(1,)), packet(BOUND, tags=(20,))) == {
        port: [tagged] for port in (1, 2, 4)
    }
    assert elements(switch, "foreign_tag") == []
    vlans.filtering(switch, default=0)
    guarded.until(lambda: calls.switch_status(guarded.link)["vlanFiltering"] == 1, "the bridge filters")
    assert passes(places, sent, leased, 10, (10,))
    assert not passes(places, sent, leased, 20, ())


def test_exemption_follows_the_native_vlan(guarded, switch, places, sent):
    anybody = carrying(UNBOUND, OTHER)
    guarded.exempt(10)
    assert passes(places, sent, anybody, 10, ()) and not passes(places, sent, anybody, 20, (20,))
    places.put({3: (20, 10)})
    places.until_known(guarded)
    assert not passes(places, sent, anybody, 20, ()) and passes(places, sent, anybody, 10, (10,))
    assert elements(switch, "exempt_if") == []
    places.put({3: (10,)})
    places.until_known(guarded)
    assert passes(places, sent, anybody, 10, ())
    assert len(elements(switch, "exempt_if")) == 1
    switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_default_pvid", "10")  # the native VLAN is the default one now
    switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_default_pvid", "30")
    guarded.until(lambda: calls.ports(guarded.link)[3]["nativeVlan"] == 30, "the port moves")
    assert elements(switch, "exempt_if") == []


# ---- Interfaces that are made anew --------------------------------------------------------------------------------------


def test_ports_that_are_made_anew(guarded, switch, places, sent):
    exchange(sent, 3, 10, HOST, BOUND)
    guarded.bind("2001:db8::3", OTHER, 3, 20)
    guarded.call(calls.FAST_REMOVE, 0)
    passing = [packet(BOUND), packet("2001:db8::3", OTHER, (20,))]
    closed = [packet(BOUND, OTHER), packet(BOUND, tags=(20,)), packet(UNBOUND), packet("2001:db8::3", OTHER)]

    def expected():
        return {1: [passing[0]], 2: [packet("2001:db8::3", OTHER)], 4: [packet(BOUND, tags=(10,)), passing[1]]}

    assert sent(3, *passing, *closed) == expected()
    for times in (2, 3):
        switch.unplug(3)
        guarded.until(lambda: calls.ports(guarded.link)[3]["ifindex"] == 0, "the interface is missed")
        switch.plug(3)
        places.put({3: PLACES[3]})
        places.until_known(guarded)
        guarded.until(lambda: calls.ports(guarded.link)[3]["forwarding"] == 1, "the port forwards again")
        assert sent(3, *passing, *closed) == expected()
        assert guarded.guarded(3) == {"guarded": 1, "installed": 1, "blocked": times * len(closed), "local": 0, "discovery": 0}
        exchange(sent, 3, 10, HOST, BOUND)
    switch.unplug(4)
    switch.plug(4)
    places.put({4: PLACES[4]})
    places.until_known(guarded)
    guarded.until(lambda: calls.ports(guarded.link)[4]["forwarding"] == 1, "the servers' port forwards again")
    exchange(sent, 3, 10, HOST, BOUND)
    exchange(sent, 2, 20, mac_number(2), "2001:db8::20")


def test_a_bridge_that_is_made_anew(guarded, switch, sent):
    exchange(sent, 3, 10, HOST, BOUND)
    guarded.call(calls.FAST_REMOVE, 0)
    switch.ip("link", "del", BRIDGE)
    guarded.until(lambda: exists(guarded) == [], "the bridge is gone")
    switch.ip("link", "add", BRIDGE, "up", "type", "bridge")
    for port in switch.ports:
        switch.ip("link", "set", f"p{port}", "master", BRIDGE)
    places = Places(switch, {**PLACES, 3: (20, 10)})
    places.until_known(guarded)
    for port in switch.ports:
        guarded.until(lambda: calls.ports(guarded.link)[port]["forwarding"] == 1, "the port forwards again")
    exchange(places.sent, 3, 20, OTHER, "2001:db8::8")
    exchange(places.sent, 1, 10, mac_number(1), "2001:db8::9")
    leased = carrying(BOUND)
    assert passes(places, places.sent, leased, 10, (10,))
    assert not passes(places, places.sent, leased, 20, ())


def test_a_port_that_enters_with_its_vlans_before_the_daemon_starts(switch, places, sent):
    made = Daemon(switch).start()
    try:
        assert vlans.known(made) == places.expected()
        made.snoop(4)
        exchange(sent, 3, 20, HOST, BOUND, (20,))
    finally:
        made.close()
