"""Servers behind a bond: the ports 4 and 5 are one way to them."""

import functools

import pytest
from lab import bonds, calls, netns
from lab.daemon import ROOT, Daemon, switch_file
from lab.frames import (
    ADVERTISE, INFORMATION_REQUEST, RECONFIGURE, REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na, mac_number,
)  # fmt: skip
from lab.switch import Switch

pytestmark = pytest.mark.needs("bonding")

CLIENT, SERVER = "02:aa:00:00:00:01", "02:5e:00:00:00:01"
EVERYWHERE = {1, 2, 3}


@pytest.fixture
def switch():
    made = Switch(ports=5)
    yield made
    made.close()


@pytest.fixture
def uplink(switch):
    """uplink(mode): the daemon, with the bond of ports 4 and 5, which it trusts."""
    running = []

    def make(mode="balance-rr", trusted=(4, 5), name="bond0", text=switch_file(range(1, 6))):
        bonds.make(switch, name, 4, 5, mode=mode)
        daemon = Daemon(switch, text=text or described(switch))
        running.append(daemon)
        daemon.start().snoop(*trusted)
        works(daemon, 1, 2, 3, 4)
        return daemon

    yield make
    for daemon in running:
        daemon.close()


def described(switch):
    """The switch file that the project's own program writes about the bridge as it is now."""
    script = 'mount -t sysfs sysfs /sys && exec "$1" br0'  # shows the interfaces of the network namespace
    line = ["unshare", "--mount", "sh", "-c", script, "sh", str(ROOT / "packaging" / "snoopd6-describe")]
    return netns.run(switch.namespace, *line)


@pytest.fixture
def sent(switch):
    found = bonds.Flow(switch, bond0=(4, 5))
    return lambda port, *frames, trusted=("bond0",), **words: found.sent(port, *frames, trusted=trusted, **words)


def state(daemon, port, what):
    return calls.ports(daemon.link)[port][what]


def works(daemon, *ports):
    daemon.until(lambda: all(state(daemon, port, "forwarding") for port in ports), f"ports {ports} forward")


def asked(sent, *, port=1, mac=CLIENT):
    """A client asks and is answered over each member: whether that works."""
    request, reply = from_client(REQUEST, mac), from_server(REPLY, mac, ia_na(["2001:db8::7"]))
    assert sent(port, request) == {"bond0": [request]}
    assert sent(4, reply) == {port: [reply]}
    assert sent(5, reply) == {port: [reply]}


@pytest.mark.parametrize("mode", ["balance-rr", "balance-xor"])
def test_both_members_are_one_way_to_the_servers(uplink, sent, mode):
    """What goes out goes once, by whichever member the bond takes; what comes in counts on either, and never goes back."""
    daemon = uplink(mode)
    assert {port: row["trunk"] for port, row in calls.ports(daemon.link).items()} == {
        1: calls.NONE, 2: calls.NONE, 3: calls.NONE, 4: 0, 5: 0,
    }  # fmt: skip
    for number in range(1, 5):
        mac = mac_number(number)
        solicit = from_client(SOLICIT, mac)
        assert sent(1, solicit) == {"bond0": [solicit]}
    for port in (4, 5):
        answer, unknown = from_server(ADVERTISE, mac_number(1)), from_server(ADVERTISE, CLIENT)
        assert sent(port, answer) == {1: [answer]}
        assert sent(port, unknown) == {other: [unknown] for other in EVERYWHERE}
        assert sent(port, from_client(SOLICIT, mac_number(9))) == {}  # behind the same bond as the servers
    asked(sent, port=2)
    assert daemon.clients()[CLIENT] == {"vlan": 1, "port": 2, "leases": {"2001:db8::7/128": 7200}}
    assert [daemon.counted(port) for port in range(1, 6)] == [4, 1, 0, 0, 0]
    assert daemon.counters(4)["sendFailed"] + daemon.counters(5)["sendFailed"] == 0


def test_a_server_that_the_bridge_knows_behind_the_bond(uplink, sent):
    """The MAC table names the bond. A message for that server leaves by the bond, and one from behind the bond stays there."""
    uplink("balance-xor")
    sent(5, from_server(RECONFIGURE, mac_number(9), server=SERVER))
    for kind in (REQUEST, INFORMATION_REQUEST):
        message = from_client(kind, CLIENT, destination=SERVER)
        assert sent(3, message) == {"bond0": [message]}
        assert sent(4, message) == sent(5, message) == {}


def test_another_trusted_port_hears_what_clients_behind_the_bond_say(uplink, sent):
    uplink(trusted=(3, 4, 5))
    for port in (4, 5):
        solicit = from_client(SOLICIT, mac_number(port))
        assert sent(port, solicit, trusted=("bond0", 3)) == {3: [solicit]}
    solicit = from_client(SOLICIT, CLIENT)
    assert sent(1, solicit, trusted=("bond0", 3)) == {3: [solicit], "bond0": [solicit]}
    assert sent(3, solicit, trusted=("bond0", 3)) == {"bond0": [solicit]}


@pytest.mark.parametrize("trusted, outward", [(4, ["bond0"]), (5, [])])
def test_trust_on_one_member(uplink, sent, trusted, outward):
    """Toward the servers the lowest member speaks for the bond; what comes in is judged by the member that it came by."""
    daemon = uplink(trusted=(trusted,))
    daemon.call(calls.PORT_MODE, 3, 1)  # whose markers tell when all is done
    other = 9 - trusted
    solicit, known = from_client(SOLICIT, CLIENT), from_client(SOLICIT, CLIENT, destination=SERVER)
    toward = {place: [solicit] for place in [*outward, 3]}
    assert sent(1, solicit, trusted=[*outward, 3]) == toward
    answer = from_server(ADVERTISE, CLIENT, server=SERVER)
    assert sent(trusted, answer, trusted=(trusted, 3)) == {1: [answer]}
    assert sent(other, answer, trusted=(3,)) == {}
    toward = {place: [known] for place in (outward or [3])}  # the server is known behind the bond
    assert sent(1, known, trusted=[*outward, 3]) == toward


def test_active_backup_takes_nothing_from_the_backup(switch, uplink, sent):
    """The bridge would not either: what a switch at the far end floods comes over both members and counts once."""
    daemon = uplink("active-backup")
    assert [state(daemon, port, "forwarding") for port in (4, 5)] == [1, 0]
    solicit = from_client(SOLICIT, CLIENT)
    answer, message = from_server(ADVERTISE, CLIENT), from_server(RECONFIGURE, "33:33:00:00:00:01")
    for active in (4, 5):
        backup = 9 - active
        bonds.activate(switch, "bond0", active)
        daemon.until(lambda: [state(daemon, port, "forwarding") for port in (active, backup)] == [1, 0], "the other is active")
        assert sent(1, solicit) == {"bond0": [solicit]}
        for frame, where in ((answer, {1}), (message, EVERYWHERE)):
            before = daemon.counters(backup)
            assert sent(active, frame) == {port: [frame] for port in where}
            assert sent(backup, frame, marker=active) == {}
            after = daemon.counters(backup)
            assert (after["dropState"] - before["dropState"], after["delivered"] - before["delivered"]) == (1, 0)


def test_a_backup_that_the_bond_listens_to_is_heard(switch, uplink, sent):
    daemon = uplink("active-backup")
    bonds.activate(switch, "bond0", 4)
    daemon.until(lambda: state(daemon, 5, "forwarding") == 0, "port 5 is the backup")
    switch.ip("link", "set", "bond0", "type", "bond", "all_slaves_active", "1")
    daemon.until(lambda: state(daemon, 5, "forwarding") == 1, "the bond listens to port 5 as well")
    asked(sent)
    switch.ip("link", "set", "bond0", "type", "bond", "all_slaves_active", "0")
    daemon.until(lambda: state(daemon, 5, "forwarding") == 0, "it no longer does")
    assert sent(5, from_server(ADVERTISE, CLIENT), marker=4) == {}


@pytest.mark.parametrize("mode", ["balance-tlb", "balance-alb"])
def test_balancing_by_load_listens_to_one_member_for_what_is_flooded(switch, uplink, sent, mode):
    """The members do not tell in this mode which of them it is; the bond does."""
    daemon = uplink(mode)
    message = from_server(RECONFIGURE, "33:33:00:00:00:01")
    for active in (4, 5):
        backup = 9 - active
        bonds.activate(switch, "bond0", active)
        daemon.until(lambda: [state(daemon, port, "forwarding") for port in (active, backup)] == [1, 0], "the other is active")
        assert sent(active, message) == {port: [message] for port in EVERYWHERE}
        assert sent(backup, message, marker=active) == {}


def trunks(daemon):
    return [state(daemon, port, "trunk") for port in (4, 5)]


def test_a_bond_without_a_number_is_a_trunk_like_any_other(switch, uplink):
    daemon = uplink(name="uplink")
    sent = functools.partial(bonds.Flow(switch, bond0=(4, 5)).sent, trusted=("bond0",))
    assert trunks(daemon) == [65534, 65534]
    asked(sent)
    for port in (4, 5):
        unknown = from_server(ADVERTISE, mac_number(1))
        assert sent(port, unknown) == {other: [unknown] for other in EVERYWHERE}
        assert sent(port, from_client(SOLICIT, mac_number(9))) == {}
    assert daemon.log().count("uplink") == 1  # which id it got


def test_a_bond_with_a_number_of_the_switch_file(switch, uplink, sent):
    text = switch_file(switch.ports) + '\n[[trunk]]\ninterface = "uplink"\nid = 7\n'
    daemon = uplink(name="uplink", text=text)
    assert trunks(daemon) == [7, 7]
    asked(sent)
    bonds.rename(switch, "uplink", "bond12")
    daemon.until(lambda: trunks(daemon) == [12, 12], "the bond's new name is known")
    works(daemon, 4, 5)
    asked(sent)
    bonds.rename(switch, "bond12", "uplink")
    daemon.until(lambda: trunks(daemon) == [7, 7], "the bond's old name is known")
    works(daemon, 4, 5)
    asked(sent)


def test_a_switch_file_that_describes_the_bond(switch, uplink, sent):
    daemon = uplink(name="uplink", text="")
    trunk = '\n[[trunk]]\ninterface = "uplink"\nid = 4\n'  # a number that no interface has at its end
    vlans = "vlans = [1] # the bridge does not filter VLANs: these exist\n"
    assert daemon.file.read_text() == switch_file(range(1, 6), extra=vlans) + trunk
    assert trunks(daemon) == [4, 4]
    asked(sent)


def test_two_bonds_with_the_same_number_in_their_names(switch, uplink):
    """Each is a trunk of its own: what comes in by one goes out by the other."""
    bonds.make(switch, "clients0", 1, 2)
    daemon = uplink()
    found = bonds.Flow(switch, clients0=(1, 2), bond0=(4, 5))
    assert sorted({state(daemon, port, "trunk") for port in (1, 2, 4, 5)}) == [0, 65534]
    request, reply = from_client(REQUEST, CLIENT), from_server(REPLY, CLIENT)
    for port in (1, 2):
        assert found.sent(port, request, trusted=("bond0",)) == {"bond0": [request]}
    for port in (4, 5):
        assert found.sent(port, reply, trusted=("bond0",)) == {"clients0": [reply]}


# ---- what changes while it runs --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("mode", ["balance-rr", "active-backup"])
def test_a_member_fails_in_the_middle_of_an_exchange(switch, uplink, sent, mode):
    daemon = uplink(mode)
    for port in (4, 5):
        other = 9 - port
        if mode == "active-backup":
            bonds.activate(switch, "bond0", port)
            daemon.until(lambda: state(daemon, port, "forwarding") == 1, "the member is the active one")
        mac = mac_number(port)
        solicit, request = from_client(SOLICIT, mac), from_client(REQUEST, mac)
        answer, reply = from_server(ADVERTISE, mac), from_server(REPLY, mac, ia_na([f"2001:db8::{port}"]))
        assert sent(1, solicit) == {"bond0": [solicit]}
        assert sent(port, answer) == {1: [answer]}
        bonds.cable(switch, port, "down")
        daemon.until(lambda: (state(daemon, port, "link"), state(daemon, other, "forwarding")) == (0, 1), "the member fails")
        assert sent(1, request) == {"bond0": [request]}
        assert sent(other, reply) == {1: [reply]}
        assert daemon.clients()[mac]["leases"] == {f"2001:db8::{port}/128": 7200}
        bonds.cable(switch, port, "up")
        daemon.until(lambda: state(daemon, port, "link") == 1, "the member is back")
    assert sum(daemon.counters(port)["sendFailed"] for port in (4, 5)) == 0


def test_all_members_fail_and_come_back(switch, uplink, sent):
    daemon = uplink()
    daemon.call(calls.PORT_MODE, 3, 1)
    for port in (4, 5):
        bonds.cable(switch, port, "down")
    daemon.until(lambda: not any(state(daemon, port, "link") for port in (4, 5)), "the members fail")
    bond_is(daemon, forwarding=0)
    solicit = from_client(SOLICIT, CLIENT)
    assert sent(1, solicit, trusted=(3,), members=(1, 2, 3)) == {3: [solicit]}
    for port in (4, 5):
        bonds.cable(switch, port, "up")
    bond_is(daemon, forwarding=1)
    daemon.call(calls.PORT_MODE, 3, 0)
    asked(sent)


def bond_is(daemon, forwarding):
    daemon.until(lambda: [state(daemon, port, "forwarding") for port in (4, 5)] == 2 * [forwarding], "the bond follows")


def test_a_member_leaves_the_bond_and_comes_back(switch, uplink, sent):
    daemon = uplink()
    request, local = from_client(REQUEST, CLIENT), from_client(SOLICIT, mac_number(9))
    reply = from_server(REPLY, CLIENT, ia_na(["2001:db8::7"]))
    for alone, member in ((5, 4), (4, 5)):  # the lowest member stands for the bond
        bonds.leave(switch, alone)
        daemon.until(lambda: state(daemon, alone, "trunk") == calls.NONE, "the port is by itself")
        works(daemon, 4, 5)
        assert state(daemon, member, "trunk") == 0
        found = functools.partial(bonds.Flow(switch, bond0=(member,)).sent, trusted=("bond0", alone))
        assert found(1, request) == {"bond0": [request], alone: [request]}
        assert found(member, local) == {alone: [local]}
        assert found(alone, local) == {"bond0": [local]}
        assert found(alone, reply) == found(member, reply) == {1: [reply]}
        bonds.join(switch, alone, "bond0")
        daemon.until(lambda: trunks(daemon) == [0, 0], "the port is a member again")
        works(daemon, 4, 5)
        asked(sent)


def test_a_bond_is_deleted_and_made_again(switch, uplink, sent):
    daemon = uplink()
    daemon.call(calls.PORT_MODE, 3, 1)
    bonds.delete(switch, "bond0")
    daemon.until(lambda: trunks(daemon) == 2 * [calls.NONE], "the bond is missed")
    solicit = from_client(SOLICIT, CLIENT)
    assert sent(1, solicit, trusted=(3,), members=(1, 2, 3)) == {3: [solicit]}
    assert [state(daemon, port, "forwarding") for port in (4, 5)] == [0, 0]
    daemon.call(calls.PORT_MODE, 3, 0)
    bonds.make(switch, "bond0", 4, 5)
    daemon.until(lambda: trunks(daemon) == [0, 0], "the bond is there again")
    bond_is(daemon, forwarding=1)
    asked(sent)
    reply = from_server(REPLY, CLIENT)
    assert sent(1, reply) == {}  # and the kernel does not forward DHCPv6 by itself
    assert sent(5, reply) == {1: [reply]}
