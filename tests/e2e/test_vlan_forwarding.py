"""DHCPv6 on a bridge that filters VLANs: every message stays in its VLAN, and has its tag where the VLAN is tagged.

Port 1 is in VLAN 10 and port 2 in VLAN 20, without tags; port 3 has VLAN 10 without a tag and VLAN 20 with one; the servers of
both VLANs are behind port 4, where both are tagged."""

import functools

import pytest
from lab import calls, frames, information
from lab.frames import (
    ADVERTISE, CONFIRM, DECLINE, ETH_8021AD, INFORMATION_REQUEST, REBIND, RECONFIGURE, RELAY_FORW, RELAY_REPL, RELEASE, RENEW,
    REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na, mac_number, message, relay_message,
)  # fmt: skip
from lab.vlans import PLACES, Places

pytestmark = [pytest.mark.needs("vlan_filtering"), pytest.mark.usefixtures("places")]

CLIENT, SERVER, OTHER = "02:aa:00:00:00:01", "02:5e:00:00:00:01", "02:5e:00:00:00:02"
WHERE = [(1, 10), (2, 20), (3, 10), (3, 20)]  # a client's port and VLAN

BOTH_VLANS = information.template("{outer-vlan}.{inner-vlan}")


@pytest.fixture
def sent(places):
    return places.sent


def client(kind, mac, **words):
    """The frame as a function of its tags."""
    return lambda tags: from_client(kind, mac, tags=tags, **words)


def server(kind, mac, options=b"", **words):
    return lambda tags: from_server(kind, mac, options, tags=tags, **words)


def dropped(daemon, port):
    return daemon.counters(port)["dropVlan"]


def test_clients_of_all_vlans_behind_one_tagged_server_port(daemon, places, sent):
    """What they send comes out at the servers in its VLAN; the answers find their ports, and nobody else sees them."""
    for number, (port, vlan) in enumerate(WHERE, 1):
        mac, address = mac_number(number), f"2001:db8::{number}"
        there, here = places.tags(4, vlan), places.tags(port, vlan)
        for kind in (SOLICIT, REQUEST, CONFIRM, RENEW, REBIND, INFORMATION_REQUEST):
            assert sent(port, client(kind, mac)(here)) == {4: [client(kind, mac)(there)]}
        for kind in (ADVERTISE, REPLY, RECONFIGURE):
            answer = server(kind, mac, ia_na([address]))
            assert sent(4, answer(there)) == {port: [answer(here)]}
        assert daemon.clients()[mac] == {"vlan": vlan, "port": port, "leases": {f"{address}/128": 7200}}
    assert [daemon.counted(port) for port in (1, 2, 3, 4)] == [1, 1, 2, 0]
    assert [daemon.counted_in_vlan(vlan) for vlan in (10, 20)] == [2, 2]
    for number, (port, vlan) in enumerate(WHERE, 1):
        mac = mac_number(number)
        for kind in (DECLINE, RELEASE):
            options = frames.option(1, frames.duid(mac)) + ia_na([f"2001:db8::{number}"])
            frame = client(kind, mac, options=options)
            assert sent(port, frame(places.tags(port, vlan))) == {4: [frame(places.tags(4, vlan))]}
    assert daemon.clients() == {}


@pytest.mark.parametrize("vlan", [10, 20])
def test_what_floods_reaches_the_members_of_its_vlan(daemon, places, sent, vlan):
    unknown = server(ADVERTISE, CLIENT)
    multicast = server(RECONFIGURE, CLIENT, destination="33:33:00:00:00:01")
    broadcast = server(REPLY, CLIENT, destination="ff:ff:ff:ff:ff:ff")
    relayed = server(RELAY_REPL, CLIENT, payload=relay_message(RELAY_REPL, message(REPLY)))
    for make in (unknown, multicast, broadcast, relayed):
        assert sent(4, make(places.tags(4, vlan))) == places.flooded(vlan, make, 4)
    forward = client(RELAY_FORW, CLIENT, payload=relay_message(RELAY_FORW, message(SOLICIT)))
    anybody = client(SOLICIT, CLIENT, destination="ff:ff:ff:ff:ff:ff")
    for make in (forward, anybody):
        assert sent(3, make(places.tags(3, vlan))) == {4: [make(places.tags(4, vlan))]}


def test_priority_is_kept_where_there_is_a_tag_for_it(daemon, places, sent):
    """Only a priority and no VLAN: the frame is in the native VLAN, as the bridge itself has it."""
    solicit = client(SOLICIT, CLIENT)
    assert sent(1, solicit((0x6000,))) == {4: [solicit((0x600A,))]}
    assert sent(3, solicit((0x6000,))) == {4: [solicit((0x600A,))]}
    assert sent(3, solicit((0xF014,))) == {4: [solicit((0xF014,))]}
    assert sent(1, solicit((10,))) == {4: [solicit((10,))]}  # a member may tag the native VLAN too
    reply = server(REPLY, CLIENT, ia_na(["2001:db8::7"]))
    assert sent(4, reply((0xE00A,))) == {1: [reply(())]}
    assert sent(3, solicit((20,))) == {4: [solicit((20,))]}
    assert sent(4, reply((0xE014,))) == {3: [reply((0xE014,))]}
    assert daemon.clients()[CLIENT]["vlan"] == 20


def test_what_the_port_is_no_member_of_is_dropped_and_counted(daemon, places, sent):
    places.put({1: (10,), 2: (0, 20), 3: (0,)})
    places.until_known(daemon)
    solicit, reply = client(SOLICIT, CLIENT), server(REPLY, CLIENT)
    assert sent(1, solicit((20,)), solicit((30,)), solicit((4095,)), solicit((20, 10)), solicit((0x6000 | 20,))) == {}
    assert sent(2, solicit(()), solicit((0,)), solicit((10,)), solicit((0, 20))) == {}
    assert sent(3, solicit(()), solicit((10,)), solicit((20,))) == {}
    assert sent(4, reply(()), reply((0,)), reply((1,)), reply((30,))) == {}
    assert [dropped(daemon, port) for port in (1, 2, 3, 4)] == [5, 4, 3, 4]
    assert [daemon.counted(port) for port in (1, 2, 3, 4)] == [0, 0, 0, 0]
    assert sent(2, solicit((20,))) == {4: [solicit((20,))]}


def test_servers_are_looked_for_in_the_clients_vlan_only(daemon, places, sent):
    daemon.call(calls.PORT_MODE, 3, 1)
    places.put({3: (10,)})
    places.until_known(daemon)
    solicit = client(SOLICIT, CLIENT)
    assert sent(1, solicit(()), trusted=(3, 4)) == {3: [solicit(())], 4: [solicit((10,))]}
    assert sent(2, solicit(()), trusted=(3, 4)) == {4: [solicit((20,))]}
    # The server of VLAN 10 is known; under the same address nobody is in VLAN 20.
    announce = server(RECONFIGURE, mac_number(9), server=SERVER)
    assert sent(3, announce(()), trusted=(3, 4)) == places.flooded(10, announce, 3)
    direct = client(REQUEST, CLIENT, destination=SERVER)
    assert sent(1, direct(()), trusted=(3, 4)) == {3: [direct(())]}
    assert sent(2, direct(()), trusted=(3, 4)) == {4: [direct((20,))]}
    places.put({4: (0, 10)})
    places.until_known(daemon)
    assert sent(2, solicit(()), direct(()), trusted=(3, 4)) == {}


def test_one_mac_address_in_two_vlans(daemon, places, sent):
    """A unicast answer goes where the address was learned in its own VLAN, and the servers' address likewise."""
    solicit = client(SOLICIT, CLIENT)
    assert sent(1, solicit(())) == {4: [solicit((10,))]}
    assert sent(2, solicit(())) == {4: [solicit((20,))]}
    reply = server(REPLY, CLIENT)
    assert sent(4, reply((10,)), reply((20,))) == {1: [reply(())], 2: [reply(())]}
    assert sent(3, solicit((20,))) == {4: [solicit((20,))]}  # moved, in VLAN 20 only
    assert sent(4, reply((10,)), reply((20,))) == {1: [reply(())], 3: [reply((20,))]}
    assert sent(3, solicit(())) == {4: [solicit((10,))]}
    assert sent(4, reply((10,)), reply((20,))) == {3: [reply(()), reply((20,))]}
    daemon.call(calls.PORT_MODE, 3, 1)
    announce = server(RECONFIGURE, mac_number(9), server=SERVER)
    sent(4, announce((10,)), trusted=(3, 4))
    sent(3, announce((20,)), trusted=(3, 4))
    direct = client(REQUEST, OTHER, destination=SERVER)
    assert sent(1, direct(()), trusted=(3, 4)) == {4: [direct((10,))]}
    assert sent(2, direct(()), trusted=(3, 4)) == {3: [direct((20,))]}


def test_a_second_tag_stays_under_the_first(daemon, places, sent):
    solicit, reply = client(SOLICIT, CLIENT), server(REPLY, CLIENT, ia_na(["2001:db8::7"]))
    assert sent(3, solicit((20, 5))) == {4: [solicit((20, 5))]}
    assert sent(4, reply((20, 5))) == {3: [reply((20, 5))]}
    assert daemon.clients()[CLIENT]["vlan"] == 20
    unknown = server(ADVERTISE, mac_number(9))
    assert sent(4, unknown((20, 5))) == {2: [unknown((5,))], 3: [unknown((20, 5))]}


def test_a_service_tag_is_payload(daemon, places, sent):
    """The bridge filters by 802.1Q tags: a frame with another one in front is in the native VLAN."""
    service = (30, ETH_8021AD)
    solicit, reply = client(SOLICIT, CLIENT), server(REPLY, CLIENT, ia_na(["2001:db8::7"]))
    assert sent(1, solicit((service,))) == {4: [solicit((10, service))]}
    assert sent(4, reply((10, service))) == {1: [reply((service,))]}
    assert daemon.clients()[CLIENT] == {"vlan": 10, "port": 1, "leases": {"2001:db8::7/128": 7200}}
    assert sent(4, solicit((service,)), reply((service,))) == {}
    assert dropped(daemon, 4) == 2
    malformed = daemon.counters(1)["dropMalformed"]
    assert sent(1, solicit((service, 5))) == {}  # three tags with its own
    assert daemon.counters(1)["dropMalformed"] == malformed + 1


def test_the_largest_frame_of_the_cable_has_room_for_its_tag(daemon, places, sent):
    options = frames.option(65001, bytes(1500 - 40 - 8 - 4 - 4))
    solicit, reply = client(SOLICIT, CLIENT, options=options), server(REPLY, CLIENT, options)
    assert len(solicit(())) == 1514
    assert sent(1, solicit(())) == {4: [solicit((10,))]}
    assert sent(4, reply((10,))) == {1: [reply(())]}


def told(daemon, places, sent, port, tags):
    """What the server hears of the VLANs of a SOLICIT, and the whole message's outcome."""
    options = frames.option(1, frames.duid(CLIENT)) + ia_na()
    frame = from_client(SOLICIT, CLIENT, options, tags=tags)
    found = sent(port, frame)
    assert list(found) == [4] and len(found[4]) == 1
    content = dict(frames.options(frames.read(found[4][0])["payload"][4:]))[18]
    expected = functools.partial(information.expected, SOLICIT, CLIENT, options, frames.option(18, content))
    return content.decode(), found[4][0], expected


def test_options_name_both_vlans(daemon, places, sent):
    information.set_id(daemon, information.INTERFACE, information.USER_DEFINED, BOTH_VLANS)
    information.enable(daemon, remote=False)
    for port, tags, text, out in (
        (1, (), "0000.0010", (10,)),
        (2, (), "0000.0020", (20,)),
        (3, (20, 5), "0020.0005", (20, 5)),
        (1, ((30, ETH_8021AD),), "0010.0030", (10, (30, ETH_8021AD))),
    ):
        said, frame, expected = told(daemon, places, sent, port, tags)
        assert said == text
        assert frame == expected(tags=out)


def test_a_provider_bridge(switch, daemon, sent):
    """A bridge that filters by service tags: the customer's tag is payload, and stays."""
    places = Places(switch, PLACES, "802.1ad")
    daemon.until(lambda: calls.switch_status(daemon.link)["vlanFiltering"] == 1, "the bridge filters VLANs")
    places.until_known(daemon)
    information.set_id(daemon, information.INTERFACE, information.USER_DEFINED, BOTH_VLANS)
    reply = server(REPLY, CLIENT, ia_na(["2001:db8::7"]))
    for port, vlan in WHERE:
        for inner in ((), (5,), (0,), (0x6000 | 4094,)):
            here, there = places.tags(port, vlan, *inner), places.tags(4, vlan, *inner)
            information.enable(daemon, False, False)
            solicit = client(SOLICIT, CLIENT)
            assert places.sent(port, solicit(here)) == {4: [solicit(there)]}
            assert places.sent(4, reply(there)) == {port: [reply(here)]}
            assert daemon.clients()[CLIENT] == {"vlan": vlan, "port": port, "leases": {"2001:db8::7/128": 7200}}
        information.enable(daemon, True, False)
        said, frame, expected = told(daemon, places, places.sent, port, places.tags(port, vlan, 5))
        assert said == f"00{vlan}.0005" and frame == expected(tags=places.tags(4, vlan, 5))
    assert places.sent(4, reply((10,)), reply(()), reply((10, 5)), reply(((30, ETH_8021AD), 5))) == {}
    assert dropped(daemon, 4) == 4
    assert places.sent(1, reply((5, 6)), from_client(SOLICIT, CLIENT, tags=(5, 6))) == {}
    assert daemon.counters(1)["dropMalformed"] == 2


def test_without_snooping_the_bridge_does_the_same(idle, places, sent):
    """The counterproof: the bridge's own forwarding puts the same frames on the same cables."""
    solicit = client(SOLICIT, CLIENT)
    service = (30, ETH_8021AD)
    for port, vlan in WHERE:
        assert sent(port, solicit(places.tags(port, vlan)), trusted=()) == places.flooded(vlan, solicit, port)
    assert sent(3, solicit((20, 5)), trusted=()) == places.flooded(20, solicit, 3, 5)
    assert sent(1, solicit((20,)), solicit((4095,)), trusted=()) == {}
    assert sent(1, solicit((0x6000,)), trusted=()) == {3: [solicit(())], 4: [solicit((0x600A,))]}
    assert sent(1, solicit((service,)), trusted=()) == places.flooded(10, solicit, 1, service)
