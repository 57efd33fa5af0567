"""VLAN interfaces. On the bridge, such as br0.10, they have the switch's IPv4 addresses, which are seen in the id that it adds
to messages. In the bridge they are ports: several, where one cable has several VLANs."""

import functools

import pytest
from lab import calls, flow, information, vlans
from lab.daemon import Daemon, switch_file
from lab.frames import ADVERTISE, REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na
from lab.information import INTERFACE, USER_DEFINED
from lab.switch import BRIDGE

pytestmark = pytest.mark.needs("8021q", "vlan_filtering")

CLIENT, OTHER = "02:aa:00:00:00:01", "02:aa:00:00:00:02"


@pytest.fixture
def places(switch):
    """Port 1 is in VLAN 10 and port 2 in VLAN 20; the servers behind port 4 are in both, with tags, and the bridge is too."""
    made = vlans.Places(switch, {1: (10,), 2: (20,), 3: (1,), 4: (1, 10, 20)})
    for vlan in (10, 20):
        vlans.join(switch, BRIDGE, vlan)
    return made


@pytest.fixture
def says(daemon, places):
    """says(port, text): what the id says of a client on the port, once the daemon has heard of the latest change."""
    information.set_id(daemon, INTERFACE, USER_DEFINED, information.template("{switch-address} {vlan-address:20}"))
    information.enable(daemon, remote=False)
    options = information.frames.option(1, information.frames.duid(CLIENT)) + information.frames.ia_na()

    def wait(port, text):
        vlan = {1: 10, 2: 20, 3: 1}[port]
        added = information.interface_id(text.encode())
        leaving = information.expected(SOLICIT, CLIENT, options, added, tags=places.tags(4, vlan))
        came = from_client(SOLICIT, CLIENT)
        daemon.until(lambda: places.sent(port, came) == {4: [leaving]}, f"port {port}: {text}", 5)

    return wait


def made(switch, vlan, *addresses, on=BRIDGE):
    name = f"{on}.{vlan}"
    switch.ip("link", "add", "link", on, "name", name, "type", "vlan", "id", str(vlan))
    switch.ip("link", "set", name, "up")
    for text in addresses:
        address(switch, "add", text, name)
    return name


def address(switch, change, text, interface):
    switch.ip("addr", change, text, "dev", interface)


def test_each_vlan_has_the_address_of_its_interface(switch, says):
    says(1, "0.0.0.0 00000000")
    made(switch, 10, "198.51.100.250/24")
    says(1, "198.51.100.250 00000000")
    says(2, "0.0.0.0 00000000")
    made(switch, 20, "10.254.0.255/16")
    says(1, "198.51.100.250 0afe00ff")
    says(2, "10.254.0.255 0afe00ff")
    says(3, "0.0.0.0 0afe00ff")


def test_the_bridge_speaks_for_its_own_native_vlan(switch, says):
    """Where that VLAN has an interface with an address, that one does."""
    address(switch, "add", "192.0.2.1/24", BRIDGE)
    says(3, "0.0.0.0 00000000")
    vlans.join(switch, BRIDGE, 1, "pvid", "untagged")
    says(3, "192.0.2.1 00000000")
    vlans.join(switch, BRIDGE, 20, "pvid", "untagged")
    says(3, "0.0.0.0 c0000201")
    says(2, "192.0.2.1 c0000201")
    own = made(switch, 20)
    says(2, "192.0.2.1 c0000201")
    address(switch, "add", "10.254.0.255/16", own)
    says(2, "10.254.0.255 0afe00ff")
    switch.ip("link", "del", own)
    says(2, "192.0.2.1 c0000201")
    address(switch, "del", "192.0.2.1/24", BRIDGE)
    says(2, "0.0.0.0 00000000")


def test_addresses_change_and_interfaces_come_and_go(switch, says):
    own = made(switch, 10, "198.51.100.250/24", "203.0.113.9/24", "198.51.100.251/24")
    says(1, "198.51.100.250 00000000")  # the first one
    address(switch, "del", "198.51.100.250/24", own)  # takes the other one of its network along
    says(1, "203.0.113.9 00000000")
    switch.ip("link", "set", own, "down")  # an address is the switch's as long as it has it
    says(1, "203.0.113.9 00000000")
    switch.ip("link", "set", own, "name", "cellar")
    says(1, "0.0.0.0 00000000")
    switch.ip("link", "set", "cellar", "name", own)
    says(1, "203.0.113.9 00000000")
    address(switch, "del", "203.0.113.9/24", own)
    says(1, "0.0.0.0 00000000")
    address(switch, "add", "203.0.113.10/24", own)
    says(1, "203.0.113.10 00000000")
    switch.ip("link", "del", own)
    says(1, "0.0.0.0 00000000")
    made(switch, 10, "203.0.113.11/24")
    says(1, "203.0.113.11 00000000")


@pytest.fixture
def shared(switch):
    """A daemon on a bridge that filters no VLANs. The cable of port 4 carries two of its ports: 4, trusted, in VLAN 10, and 3
    in VLAN 20."""
    for port in (3, 4):
        switch.ip("link", "set", f"p{port}", "nomaster")
    for vlan in (10, 20):
        switch.ip("link", "set", made(switch, vlan, on="p4"), "master", BRIDGE)
    text = switch_file((1, 2)) + "".join(
        f'\n[[port]]\nnumber = {port}\ninterface = "p4.{vlan}"\n' for port, vlan in ((3, 20), (4, 10))
    )
    daemon = Daemon(switch, text=text)
    try:
        yield daemon.start().snoop(4)
    finally:
        daemon.close()


def test_two_ports_share_a_cable(switch, shared):
    """Each VLAN is a port's own cable: its tag is none of the message's."""
    sent = functools.partial(flow.sent, switch)
    here, there = (1, (4,), (), (1, 2, 4)), (4, (4,), (10,), (1, 2, 4))
    for tags in ((), (30,)):
        request, reply = (functools.partial(from_client, REQUEST, CLIENT), functools.partial(from_server, REPLY, CLIENT))
        leases = ia_na(["2001:db8::7"])
        assert sent(1, request(tags=tags), marker=here) == {4: [request(tags=(10, *tags))]}
        assert sent(4, reply(leases, tags=(10, *tags)), marker=there) == {1: [reply(leases, tags=tags)]}
        assert shared.clients()[CLIENT] == {"vlan": tags[0] if tags else 1, "port": 1, "leases": {"2001:db8::7/128": 7200}}
    flooded, other = functools.partial(from_server, ADVERTISE, OTHER), functools.partial(from_client, SOLICIT, OTHER)
    assert sent(4, flooded(tags=(10,)), marker=there) == {1: [flooded()], 2: [flooded()], 4: [flooded(tags=(20,))]}
    assert sent(4, flooded(tags=(20,)), flooded(), flooded(tags=(30,)), marker=there) == {}
    assert sent(4, other(tags=(20,)), marker=there) == {4: [other(tags=(10,))]}
    assert [shared.counted(port) for port in range(1, 5)] == [1, 0, 1, 0]
    switch.ip("link", "del", "p4.20")
    shared.until(lambda: shared.counted(3) == 0, "the port's client goes with its interface")
    assert calls.ports(shared.link)[4]["forwarding"] == 1
    assert sent(4, other(tags=(20,)), flooded(tags=(10,)), marker=there) == {1: [flooded()], 2: [flooded()]}
