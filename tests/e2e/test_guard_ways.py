"""Ways around the source guard that stay closed: other names, interfaces made again, filters left behind, DHCPv6 itself, and
rules that somebody takes away."""

import pytest
from lab import calls, frames, netns
from lab.daemon import Daemon
from lab.frames import RELEASE, SOLICIT, from_client, ia_na, mac_number

from test_guard import BOUND, HOST, OTHER, UNBOUND, packet
from test_guard_life import LEASED, nft, table_of


@pytest.fixture
def out(sent):
    """out(port, frame..., trusted): the frames that came out of port 3."""
    return lambda port, *sending, trusted=(): sent(port, *sending, trusted=trusted).get(3, [])


# ---- Interfaces -----------------------------------------------------------------------------------------------------


def rename(switch, interface, name):
    switch.ip("link", "set", interface, "down")
    switch.ip("link", "set", interface, "name", name)
    switch.ip("link", "set", name, "up")


def until_forwarding(daemon, port, state=1):
    daemon.until(lambda: calls.ports(daemon.link)[port]["forwarding"] == state, f"port {port} is forwarding: {state}")


def until_bridge_forwards(daemon, switch, interface):
    daemon.until(lambda: "state forwarding" in switch_link(switch, interface), f"{interface} forwards")


def switch_link(switch, interface):
    return netns.run(switch.namespace, "bridge", "link", "show", "dev", interface)


def test_a_renamed_interface_stays_guarded(idle, switch, out):
    idle.guard(1).bind(BOUND, HOST, 1)
    rename(switch, "p1", "weird")
    idle.until(lambda: calls.ports(idle.link)[1]["interface"].rstrip(b"\0") == b"weird", "the new name is known")
    until_forwarding(idle, 1)
    assert out(1, *[packet(UNBOUND)] * 300, packet(BOUND)) == [packet(BOUND)]
    assert idle.guarded(1)["blocked"] == 300
    switch.ip("link", "set", "weird", "nomaster")
    until_forwarding(idle, 1, 0)
    assert idle.guarded(1)["installed"] == 0
    switch.ip("link", "set", "weird", "master", "br0")
    idle.until(lambda: "interface weird is in bridge br0 and is no port" in idle.log(), "the stranger is named")
    until_bridge_forwards(idle, switch, "weird")
    assert out(1, packet(UNBOUND)) == [packet(UNBOUND)]  # as the log says: it is nobody's port any more
    switch.ip("link", "set", "weird", "nomaster")
    rename(switch, "weird", "p1")
    switch.ip("link", "set", "p1", "master", "br0")
    until_forwarding(idle, 1)
    assert out(1, packet(UNBOUND), packet(BOUND)) == [packet(BOUND)]


def test_a_guarded_interface_made_again_while_no_daemon_runs_is_closed(switch, out, sent):
    daemon = Daemon(switch).start()
    try:
        daemon.snoop(4).guard(1).bind(BOUND, HOST, 1)
        daemon.kill()
        switch.unplug(1)
        switch.unplug(2)
        switch.plug(1)
        switch.plug(2)
        everything = [packet(UNBOUND), *[packet(BOUND, tags=tags) for tags in ((), (10,), (10, 20), (0,) * 3)]]
        assert out(1, *everything) == []
        rogue = frames.from_server(frames.ADVERTISE, mac_number(7))
        assert sent(2, rogue, packet(UNBOUND), trusted=()) == {other: [packet(UNBOUND)] for other in (1, 3, 4)}
    finally:
        daemon.close()


def test_a_guarded_interface_made_again_is_closed_before_the_daemon_knows(idle, switch, out):
    idle.guard(1).bind(BOUND, HOST, 1)
    idle.pause()
    try:
        switch.unplug(1)
        switch.plug(1)
        assert out(1, packet(UNBOUND), packet(BOUND)) == []
    finally:
        idle.resume()
    idle.until(lambda: idle.guarded(1)["installed"] == 1, "the port is closed again")
    until_forwarding(idle, 1)
    assert out(1, packet(UNBOUND), packet(BOUND)) == [packet(BOUND)]
    assert idle.guarded(1)["blocked"] == 3  # all of them, whoever closed the port when they came


# ---- Filters that nobody asks for any more ------------------------------------------------------------------------------


def test_a_release_on_another_port_leaves_no_filter_for_the_next_guard(daemon, sent, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED)
    release = from_client(RELEASE, HOST, frames.option(1, frames.duid(HOST)) + ia_na([LEASED]))
    assert sent(2, release) == {4: [release]}
    assert daemon.clients() == {}
    daemon.call(calls.DELETE_ALL)
    daemon.guard(1, mode=1)
    assert daemon.filters() == {}
    daemon.guard(1)
    assert out(1, packet(LEASED)) == []


def test_a_binding_with_another_mac_leaves_no_filter_for_the_next_guard(daemon, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED)
    daemon.bind(LEASED, OTHER, 1)
    daemon.guard(1, mode=1)
    assert daemon.filters() == {}
    daemon.guard(1)
    assert out(1, packet(LEASED), packet(LEASED, OTHER)) == [packet(LEASED, OTHER)]


def test_a_delegated_prefix_of_a_bound_mac_opens_nothing(daemon, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED, "2001:db8:100::/56")
    daemon.bind(BOUND, HOST, 1)
    daemon.unbind(BOUND)
    assert list(daemon.filters()) == [(4, 1, 1, HOST, LEASED)]
    assert out(1, packet("2001:db8:100::"), packet("2001:db8:100::1"), packet(LEASED)) == [packet(LEASED)]


# ---- DHCPv6, which the trap takes away before the guard's rules see it -------------------------------------------------------


def asking(source, mac=HOST, tags=()):
    """A RENEW from an address that the client has."""
    segment = frames.udp(source, frames.SERVERS, frames.CLIENT_PORT, frames.SERVER_PORT, frames.message(frames.RENEW))
    return frames.ethernet(frames.SERVERS_MAC, mac, frames.ipv6(source, frames.SERVERS, frames.UDP, segment, 1), tags=tags)


def test_dhcpv6_from_an_unbound_source_does_not_pass_the_guard(daemon, sent, learn):
    learn(1, HOST, LEASED)
    daemon.bind("2001:db8::20", OTHER, 1, 10)
    daemon.bind("2001:db8::30")
    daemon.bind("2001:db8::40", port=1)
    daemon.guard(1, 2).exempt(20)
    passing = [asking(LEASED), asking("::"), asking(frames.link_local(HOST)), asking("2001:db8::20", OTHER, (10,))]
    passing += [asking("2001:db8::30", OTHER), asking("2001:db8::40", OTHER), asking(UNBOUND, tags=(20,))]
    closed = [asking(UNBOUND), asking(LEASED, OTHER), asking(LEASED, tags=(10,)), asking("2001:db8::20", OTHER)]
    for frame in passing:
        assert sent(1, frame) == {4: [frame]}
    assert sent(1, *closed) == {}
    assert sent(2, asking("2001:db8::40", OTHER)) == {}
    assert [daemon.counters(port)["dropSource"] for port in (1, 2)] == [len(closed), 1]
    assert OTHER not in {mac for mac, client in daemon.clients().items() if client["port"] == 2}
    daemon.guard(1, mode=1)
    assert sent(1, closed[0]) == {4: [closed[0]]}


def test_dhcpv6_from_a_mac_of_no_station_is_dropped(daemon, sent):
    """The bridge refuses such senders itself; a message of theirs must not go round it."""
    macs = ("01:00:5e:00:00:01", "33:33:00:00:00:01", "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00")
    group = [from_client(SOLICIT, mac) for mac in macs]
    assert sent(1, *group) == {}
    assert daemon.clients() == {} and daemon.counted(1) == 0
    assert daemon.counters(1)["dropSender"] == len(group)


# ---- Rules that somebody else takes away ---------------------------------------------------------------------------------


TAKEN_AWAY = ["flush ruleset", "delete table bridge snoopd6", "flush table bridge snoopd6", "flush chain bridge snoopd6 refuse"]


@pytest.mark.parametrize("words", TAKEN_AWAY)
def test_rules_that_are_gone_are_noticed(daemon, switch, words):
    def rules():
        shown = (daemon.ctl("--json", "show", what) for what in ("platform", "dhcpv6-snooping"))
        return [text.count('"filter_rules": true') for text in shown]

    daemon.guard(1)
    kept = table_of(switch)
    assert rules() == [1, 1]
    nft(switch, *words.split())
    daemon.until(lambda: "are gone from the kernel" in daemon.log(), "the loss is logged")
    assert rules() == [0, 0]
    assert "Filter rules loaded     no" in daemon.ctl("show", "platform")
    nft(switch, "flush", "ruleset")
    netns.run(switch.namespace, "sh", "-c", f"nft -f - <<'END'\n{kept}END")
    daemon.until(lambda: "again; restart snoopd6" in daemon.log(), "their return is logged")
    assert rules() == [1, 1]
    assert daemon.log().count("are gone from the kernel") == 1


LOST = (
    "the kernel has lost the daemon's filter rules, or some of them: ports may be open, and DHCPv6 may pass; "
    "restart snoopd6 to load them again\n"
)


def test_settings_that_need_the_rules_fail_without_them(daemon, switch, tmp_path):
    """They are made all the same, where the daemon takes them. A file of them fails once, with all its lines run."""
    nft(switch, "flush", "ruleset")
    daemon.until(lambda: "are gone from the kernel" in daemon.log(), "the loss is logged")
    bind = "ipv6-source-guard bind ip 2001:db8::"
    for line in ("dhcpv6-snooping", f"{bind}1", f"undo {bind}1"):
        assert daemon.ctl(*line.split(), check=False) == (1, "", f"snoopctl: the setting is made, but {LOST}"), line
    for line in ("undo ipv6-source-guard vlan 10", "interface ethernet 0/1 ipv6-source-guard"):
        status, said, error = daemon.ctl(*line.split(), check=False)
        assert (status, said, error.endswith(f"; {LOST}")) == (1, "", True), error
    assert daemon.ctl(*"dhcpv6-snooping l2-relay".split(), check=False) == (0, "", "")
    lines = tmp_path / "lines"
    lines.write_text("".join(f"{bind}{number:x}\n" for number in range(1, 101)))
    assert daemon.ctl("-f", str(lines), check=False) == (1, "", f"{lines}: {LOST}")
    assert daemon.ctl("--json", "show", "ipv6-source-guard", "bindings").count('"address"') == 100
