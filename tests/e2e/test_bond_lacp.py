"""Cables that both ends aggregate by LACP, and real programs at them."""

import pytest
from lab import bonds, calls, netns
from lab.clients import Dhclient, Dhcpcd
from lab.daemon import Daemon
from lab.frames import ADVERTISE, from_server
from lab.switch import Switch

pytestmark = pytest.mark.needs("bonding")


@pytest.fixture
def switch():
    made = Switch(ports=5)
    bonds.make(made, "bond1", 1, 2, mode=bonds.LACP)
    bonds.make(made, "bond2", 4, 5, mode=bonds.LACP)
    yield made
    made.close()


@pytest.fixture
def daemon(switch):
    made = Daemon(switch)
    try:
        yield made.start().snoop(4, 5)
    finally:
        made.close()


def until_used(daemon, *used):
    """Waits until of the bonds' members these are used and no other."""
    daemon.until(lambda: {port for port, row in calls.ports(daemon.link).items() if row["forwarding"]} == {3, *used}, f"{used}")


def test_a_server_and_a_client_at_two_cables_each(switch, daemon, network):
    """Both get each message once; when a cable fails, the other one does for both directions."""
    bonds.aggregate(switch, 1, 2)
    bonds.aggregate(switch, 4, 5)
    until_used(daemon, 1, 2, 4, 5)
    assert {port: row["trunk"] for port, row in calls.ports(daemon.link).items()} == {1: 1, 2: 1, 3: calls.NONE, 4: 2, 5: 2}
    server = network.server(4)
    first = network.client(Dhcpcd, 1)
    address, prefix = first.address(), first.prefix()
    clients = daemon.clients()
    assert set(clients) == {switch.mac(1)}
    record = clients[switch.mac(1)]
    assert record["port"] in (1, 2) and set(record["leases"]) == {f"{address}/128", prefix}
    assert (server.received("SOLICIT"), server.received("REQUEST")) == (1, 1)
    for port in (4, 5):
        netns.run(switch.host(4), "ip", "link", "set", f"e{port}", "down")
        until_used(daemon, 1, 2, 9 - port)
        client = network.client(Dhclient, 3)
        assert f"{client.address()}/128" in daemon.clients()[switch.mac(3)]["leases"]
        client.release()
        daemon.until(lambda: set(daemon.clients()) == {switch.mac(1)}, "the client gave its lease back")
        netns.run(switch.host(4), "ip", "link", "set", f"e{port}", "up")
        until_used(daemon, 1, 2, 4, 5)
    assert server.received("SOLICIT") == server.received("REQUEST") == 3
    assert sum(daemon.counters(port)["dropState"] for port in (1, 2, 4, 5)) == 0


def test_a_member_whose_far_end_does_not_aggregate_is_not_used(switch, daemon):
    bonds.aggregate(switch, 4)
    until_used(daemon, 1, 4)  # a bond without a partner uses one member
    switch.wire(5).send(from_server(ADVERTISE, "02:aa:00:00:00:01"))
    daemon.until(lambda: daemon.counters(5)["dropState"] == 1, "the message is dropped")
    assert daemon.counters(5)["delivered"] == 0
