"""The source guard as things change around it: leases that come and go, interfaces, the daemon's own end, a kernel that
refuses."""

import subprocess
import time

import pytest
from lab import calls, frames, netns
from lab.clients import Dhclient
from lab.daemon import ANY_MAC, Daemon
from lab.frames import RELEASE, SOLICIT, from_client, ia_na, ip_bytes, mac_number

from test_guard import BOUND, HOST, OTHER, UNBOUND, packet

LEASED = "2001:db8::10"


@pytest.fixture
def out(sent):
    """out(port, frame..., trusted): the frames that came out of port 3, and nothing else came out of it."""
    return lambda port, *sending, trusted=(): sent(port, *sending, trusted=trusted).get(3, [])


def nft(switch, *words):
    netns.run(switch.namespace, "nft", *words)


def table_of(switch):
    return netns.run(switch.namespace, "nft", "list", "table", "bridge", "snoopd6")


# ---- Leases -------------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("tags", [(), (10,), (10, 20)], ids=["untagged", "tagged", "double"])
def test_a_lease_opens_at_once_and_its_release_closes_at_once(daemon, sent, learn, out, tags):
    daemon.guard(1, 2)
    leased = packet(LEASED, tags=tags)
    assert out(1, leased) == []
    learn(1, HOST, LEASED, tags=tags)
    vlan = tags[0] if tags else 1
    assert daemon.filters() == {(4, 1, vlan, HOST, LEASED): 1}
    assert out(1, leased, packet(UNBOUND, tags=tags), packet(LEASED, OTHER, tags), packet(LEASED, tags=(30,))) == [leased]
    assert out(2, leased) == []
    release = from_client(RELEASE, HOST, frames.option(1, frames.duid(HOST)) + ia_na([LEASED]), tags=tags)
    assert sent(1, release) == {4: [release]}
    assert daemon.filters() == {}
    assert out(1, leased) == []
    assert daemon.guarded(1)["blocked"] == 5


def test_an_expired_lease_closes(daemon, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED, valid=3)
    learn(1, OTHER, "2001:db8::11", valid=600)
    assert out(1, packet(LEASED), packet("2001:db8::11", OTHER)) == [packet(LEASED), packet("2001:db8::11", OTHER)]
    daemon.until(lambda: HOST not in daemon.clients(), "the lease runs out")
    assert list(daemon.filters()) == [(4, 1, 1, OTHER, "2001:db8::11")]
    assert out(1, packet(LEASED), packet("2001:db8::11", OTHER)) == [packet("2001:db8::11", OTHER)]


def test_delegated_prefixes_open_nothing(daemon, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED, "2001:db8:100::/56")
    assert list(daemon.filters()) == [(4, 1, 1, HOST, LEASED)]
    assert out(1, packet("2001:db8:100::1")) == []


def test_leases_from_before_the_guard_count(daemon, learn, out):
    learn(1, HOST, LEASED)
    learn(2, OTHER, "2001:db8::11")
    daemon.guard(1)
    assert list(daemon.filters()) == [(4, 1, 1, HOST, LEASED)]
    assert out(1, packet(LEASED), packet(UNBOUND)) == [packet(LEASED)]
    daemon.call(calls.DELETE_ALL)
    assert out(1, packet(LEASED)) == []


def test_a_configured_binding_shadows_a_lease(daemon, learn, out):
    daemon.guard(1)
    learn(1, HOST, LEASED)
    daemon.bind(BOUND, HOST)
    assert out(1, packet(LEASED), packet(BOUND)) == [packet(BOUND)]
    daemon.unbind(BOUND)
    assert out(1, packet(LEASED), packet(BOUND)) == [packet(LEASED)]


def test_dhcpv6_of_a_guarded_port_reaches_the_daemon_and_nobody_else(daemon, sent):
    daemon.guard(1, 2, 3)
    frame = from_client(SOLICIT, HOST)
    assert sent(1, frame) == {4: [frame]}
    assert daemon.guarded(1) == {"guarded": 1, "installed": 1, "blocked": 0, "local": 0, "discovery": 0}


def ping(switch, port, source, target):
    done = netns.command(switch.host(port), ["ping", "-6", "-I", source, "-c", "3", "-i", "0.01", "-W", "2", target])
    said = subprocess.run(done, capture_output=True, text=True, check=False).stdout
    return int(said.split(" received")[0].split()[-1])


def test_a_real_client_behind_the_guard(daemon, switch, network):
    switch.speak(4)
    netns.run(switch.host(4), "ip", "addr", "add", "2001:db8:1::1/64", "dev", "eth0", "nodad")
    daemon.guard(1, 2)
    network.server()
    client = network.client(Dhclient, 1)
    leased = client.address()
    host = switch.host(1)
    netns.run(host, "ip", "addr", "replace", f"{leased}/64", "dev", "eth0", "nodad")
    netns.run(host, "ip", "addr", "add", "2001:db8:1::bad/64", "dev", "eth0", "nodad")
    assert ping(switch, 1, leased, "2001:db8:1::1") == 3
    assert ping(switch, 1, "2001:db8:1::bad", "2001:db8:1::1") == 0
    switch.speak(2)
    netns.run(switch.host(2), "ip", "addr", "add", f"{leased}/64", "dev", "eth0", "nodad")
    known = ("2001:db8:1::1", "lladdr", switch.mac(4), "dev", "eth0")  # it could not even ask from there
    netns.run(switch.host(2), "ip", "neigh", "replace", *known)
    assert ping(switch, 2, leased, "2001:db8:1::1") == 0
    netns.run(switch.host(2), "ip", "addr", "del", f"{leased}/64", "dev", "eth0")
    assert daemon.guarded(1)["blocked"] == 3 and daemon.guarded(2)["blocked"] == 3
    assert list(daemon.filters()) == [(4, 1, 1, switch.mac(1), leased)]
    client.release()
    daemon.until(lambda: daemon.filters() == {}, "the release closes")
    netns.run(host, "ip", "addr", "replace", f"{leased}/64", "dev", "eth0", "nodad")
    assert ping(switch, 1, leased, "2001:db8:1::1") == 0


# ---- The daemon's own end ---------------------------------------------------------------------------------------------------


def test_killed_it_stays_closed_and_a_new_one_starts_afresh(switch, out):
    daemon = Daemon(switch)
    try:
        fresh = daemon.start() and switch.ruleset()
        daemon.exempt(10)
        daemon.bind(BOUND, HOST, 1, 1)
        daemon.guard(1)
        frames_ = [packet(BOUND), packet(UNBOUND), packet(UNBOUND, tags=(10,))]
        assert out(1, *frames_) == [frames_[0], frames_[2]]
        daemon.kill()
        assert out(1, *frames_) == [frames_[0], frames_[2]]
        daemon.start()
        assert switch.ruleset() == fresh
        assert daemon.filters() == {}
        assert out(1, *frames_) == frames_
        daemon.guard(1)
        assert out(1, *frames_) == []
        assert daemon.guarded(1)["blocked"] == 3
        daemon.bind(BOUND, HOST, 1, 1)
        assert out(1, *frames_) == [frames_[0]]
    finally:
        daemon.close()


def test_a_clean_stop_leaves_the_bridge_as_before(switch, out):
    nft(switch, "add table bridge other; add chain bridge other f { type filter hook forward priority 5; }")
    before = switch.ruleset()
    daemon = Daemon(switch)
    try:
        daemon.start().guard(1).bind(BOUND)
        daemon.exempt(10)
        assert out(1, packet(UNBOUND)) == []
        assert daemon.stop() == 0
        assert switch.ruleset() == before
        assert out(1, packet(UNBOUND)) == [packet(UNBOUND)]
    finally:
        daemon.close()


# ---- Interfaces -----------------------------------------------------------------------------------------------------


def replug(daemon, switch, port):
    switch.unplug(port)
    daemon.until(lambda: calls.ports(daemon.link)[port]["ifindex"] == 0, "the interface is missed")
    assert daemon.guarded(port)["installed"] == 0
    assert [installed for key, installed in daemon.filters().items() if key[1] == port and installed] == []
    switch.plug(port)
    daemon.until(lambda: daemon.guarded(port)["installed"] == 1, "the port is closed again")
    daemon.until(lambda: calls.ports(daemon.link)[port]["forwarding"] == 1, "the port forwards again")


def test_an_interface_that_comes_back_has_its_filters_again(idle, switch, out):
    idle.exempt(1)
    idle.guard(1, 2)
    idle.bind(BOUND, HOST, 1, 10)
    idle.bind("2001:db8::3", port=1)
    idle.bind("2001:db8::4", OTHER)
    idle.bind("2001:db8::5", port=2)
    passing = [packet(BOUND, tags=(10,)), packet("2001:db8::3", tags=(20,)), packet("2001:db8::4", OTHER, (20,))]
    passing += [packet(UNBOUND)]
    closed = [packet(BOUND, tags=(20,)), packet("2001:db8::5", tags=(10,)), packet(UNBOUND, tags=(10,))]
    assert out(1, *passing, *closed) == passing
    for times in (2, 3):
        replug(idle, switch, 1)
        assert set(idle.filters().values()) == {1} and len(idle.filters()) == 4
        assert out(1, *passing, *closed) == passing
        assert idle.guarded(1)["blocked"] == times * len(closed)  # the count goes on
    assert out(2, packet("2001:db8::5", tags=(10,)), packet(UNBOUND, tags=(10,))) == [packet("2001:db8::5", tags=(10,))]
    text = table_of(switch)
    idle.exempt(1, operation=1)
    idle.guard(1, 2, mode=1)
    assert len(table_of(switch)) < len(text) and "elements" not in table_of(switch)  # nothing of the old interfaces either


def test_changes_while_the_interface_is_missing(idle, switch, out):
    idle.guard(1)
    idle.bind(BOUND, HOST, 1)
    idle.bind("2001:db8::3", port=1)
    switch.unplug(1)
    idle.until(lambda: calls.ports(idle.link)[1]["ifindex"] == 0, "the interface is missed")
    idle.unbind(BOUND)
    idle.bind("2001:db8::4", port=1)
    idle.exempt(1)
    switch.plug(1)
    idle.until(lambda: idle.guarded(1)["installed"] == 1, "the port is closed again")
    assert set(idle.filters()) == {(3, 1, 0, ANY_MAC, "2001:db8::3"), (3, 1, 0, ANY_MAC, "2001:db8::4")}
    tagged = [packet(source, tags=(10,)) for source in (BOUND, "2001:db8::3", "2001:db8::4")]
    assert out(1, *tagged, packet(UNBOUND)) == [*tagged[1:], packet(UNBOUND)]
    switch.unplug(1)
    idle.until(lambda: calls.ports(idle.link)[1]["ifindex"] == 0, "the interface is missed")
    idle.guard(1, mode=1)
    switch.plug(1)
    idle.until(lambda: calls.ports(idle.link)[1]["forwarding"] == 1, "the port forwards again")
    assert out(1, *tagged) == tagged


def test_a_port_closed_before_its_interface_comes(switch, out):
    switch.unplug(1)
    daemon = Daemon(switch).start()
    try:
        daemon.guard(1).bind(BOUND, HOST, 1)
        assert daemon.guarded(1) == {"guarded": 1, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
        assert list(daemon.filters().values()) == [0]
        switch.plug(1)
        daemon.until(lambda: daemon.guarded(1)["installed"] == 1, "the port is closed")
        assert list(daemon.filters().values()) == [1]
        assert out(1, packet(BOUND), packet(UNBOUND)) == [packet(BOUND)]
    finally:
        daemon.close()


# ---- A kernel that refuses -------------------------------------------------------------------------------------------------


def test_what_the_kernel_refuses_is_returned(idle, switch):
    idle.guard(1).bind(BOUND, HOST, 1)
    nft(switch, "delete", "table", "bridge", "snoopd6")
    result, _ = calls.call(idle.link, calls.GUARD, calls.u32(2), calls.u32(0))
    assert result == -2  # no such table
    result, outs = calls.call(idle.link, calls.EXEMPT, calls.u32(0), calls.vlan_list(10, 20), bytes(512))
    assert (result, outs[2]) == (-1, calls.vlan_list(10, 20))
    assert idle.guarded(1) == {"guarded": 1, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    assert idle.guarded(2) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    assert idle.filters() == {(3, 1, 0, HOST, BOUND): 0}
    idle.bind("2001:db8::3", OTHER, 1)  # the list takes it; the kernel did not
    assert idle.filters() == {(3, 1, 0, HOST, BOUND): 0}
    idle.guard(1, mode=1)
    assert idle.guarded(1) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    assert idle.filters() == {}
    assert idle.stop() == 0
    idle.start().guard(1)
    assert idle.guarded(1)["installed"] == 1


def test_what_somebody_takes_out_of_the_kernel_is_shown_and_leaves_no_hole(idle, switch, out):
    idle.guard(1)
    idle.bind(BOUND, HOST, 1, 1)
    nft(switch, "flush", "set", "bridge", "snoopd6", "f_vlan")
    assert idle.filters() == {(4, 1, 1, HOST, BOUND): 0}
    assert out(1, packet(BOUND)) == [packet(BOUND)]  # half of it is left: frames without a tag
    idle.unbind(BOUND)
    assert out(1, packet(BOUND)) == []
    nft(switch, "flush", "set", "bridge", "snoopd6", "blocked")
    assert idle.guarded(1)["installed"] == 1
    idle.guard(1, mode=1)
    assert idle.guarded(1) == {"guarded": 0, "installed": 0, "blocked": 0, "local": 0, "discovery": 0}
    assert out(1, packet(UNBOUND)) == [packet(UNBOUND)]
    idle.guard(1)
    nft(switch, "flush", "set", "bridge", "snoopd6", "guard_if")
    assert idle.guarded(1)["installed"] == 0
    idle.guard(1, mode=1)
    idle.guard(1)
    assert idle.guarded(1)["installed"] == 1
    assert out(1, packet(UNBOUND)) == []


def test_a_refused_rewriting_is_tried_again(idle, switch, out):
    """The table goes and comes back while an interface is replaced: the next change brings everything in line."""
    kept = table_of(switch)
    idle.guard(1).bind(BOUND, HOST, 1)
    nft(switch, "delete", "table", "bridge", "snoopd6")
    switch.unplug(1)
    switch.plug(1)
    idle.until(lambda: "tried again at the next one" in idle.log(), "the refusal is logged")
    netns.run(switch.namespace, "sh", "-c", f"nft -f - <<'END'\n{kept}END")
    switch.link(2, "down")
    switch.link(2, "up")
    idle.until(lambda: idle.guarded(1)["installed"] == 1, "the port is closed again")
    assert list(idle.filters().values()) == [1]
    for port in (1, 2):
        idle.until(lambda: calls.ports(idle.link)[port]["forwarding"] == 1, "the port forwards again")
    assert out(1, packet(BOUND), packet(UNBOUND)) == [packet(BOUND)]
    assert idle.log().count("tried again at the next one") == 1


@pytest.mark.parametrize("vlan", [4095, 4096, 65537, 0xFFFFFFFF])
def test_a_binding_in_no_vlan_opens_nothing(idle, out, vlan):
    idle.guard(1).bind(BOUND, HOST, 1, vlan)
    assert idle.filters() == {}
    assert out(1, packet(BOUND), packet(BOUND, tags=(1,)), packet(BOUND, tags=(4095,))) == []
    idle.unbind(BOUND)


def test_many_leases_follow_the_port(daemon, switch, out):
    """More than one batch of changes."""
    for number in range(1300):
        daemon.bind(f"2001:db8:1::{number:x}", mac_number(number), 1, 1)
    started = time.monotonic()
    daemon.guard(1)
    assert time.monotonic() - started < 20
    assert len(daemon.filters()) == 1300 and set(daemon.filters().values()) == {1}
    replug(daemon, switch, 1)
    assert set(daemon.filters().values()) == {1}
    last = packet("2001:db8:1::513", mac_number(1299))
    assert out(1, last, packet("2001:db8:1::513", mac_number(1298))) == [last]
    daemon.guard(1, mode=1)
    assert daemon.filters() == {}
    daemon.call(calls.BIND_CHECK, ip_bytes("2001:db8:1::1"), frames.mac_bytes(mac_number(1)), 1)  # the bindings stay
