"""The attacks of thc-ipv6 and what they do to a real host: without snoopd6, which shows that they work, and with it."""

import pytest
from lab import calls, flow, frames, netns
from lab.clients import Dhclient
from lab.daemon import Daemon, switch_file
from lab.neighbours import ADVERTISEMENT, REDIRECT, ROUTER_ADVERTISEMENT, UNSPECIFIED, How, is_link_local, solicitation
from lab.slaac import Host, Router, interface_address
from lab.thc import Attacker, message_type

from test_guard_life import ping
from test_thc import ALL, FOREIGN, OTHER, ROGUE, ROUTER, SOME, VICTIM

UPLINK = 4
PREFIX, GATEWAY, ROGUES = "2001:db8:1::", "2001:db8:1::1", "2001:db8:1::66"
FAR = "2001:db8:9::9"
ROUTERS = [
    (ALL, "fake_router26", *ROUTER),
    *[(ALL, "fake_router26", "-E", evasion, *ROUTER) for evasion in ("H", "111", "F", "D", "o", "O")],
    *[(SOME, "flood_router26", *evasion, "eth0") for evasion in ((), ("-a",), ("-H",), ("-F",))],
    *[(1, "fake_router6", *evasion, "eth0", FOREIGN) for evasion in ((), ("-H",), ("-F",))],
    *[(1, "kill_router6", *evasion, "eth0", "{router}") for evasion in ((), ("-H",), ("-F",))],
]
GUARDED = pytest.mark.parametrize("guarded", [False, True], ids=["open", "guarded"])


@pytest.fixture
def attacker(switch):
    made = Attacker(switch, ROGUE, victim=frames.link_local(switch.mac(VICTIM)))
    yield made
    made.close()


@pytest.fixture
def router(switch, attacker):
    made = Router(switch, UPLINK, PREFIX)
    attacker.words["router"] = made.link_local
    yield made
    made.close()


@pytest.fixture
def host(switch, router):
    """The victim, with an address of the router's prefix."""
    made = Host(switch, VICTIM)
    made.address = interface_address(PREFIX, made.mac)
    made.until_usable(made.link_local, made.address)
    return made


@pytest.fixture
def closed(switch):
    """A daemon that lets no router advertisements in by the rogue's port when it guards it."""
    made = Daemon(switch, text=switch_file(switch.ports).replace('"p1"\n', '"p1"\nra_guard = true\n'))
    try:
        yield made.start()
    finally:
        made.close()


def own_address(switch):
    """The rogue takes an address of the router's prefix."""
    netns.run(switch.host(ROGUE), "ip", "addr", "add", f"{ROGUES}/64", "dev", "eth0", "nodad")


def arrived(switch, attacker):
    """What the victim's cable brought of what the rogue sent, and what the rogue sent."""
    flow.settle(switch, ROGUE, trusted=())
    sent = attacker.sent()
    ours = set(sent)
    return [frame for frame in flow.heard(switch).get(VICTIM, []) if frame in ours], sent


@pytest.mark.parametrize("bound", [False, True], ids=["unbound", "bound"])
def test_false_routers(closed, switch, attacker, host, router, bound):
    """Whatever the evasion, the victim keeps its one address and its one router, even when the rogue's own address is bound."""
    closed.guard(ROGUE)
    if bound:
        closed.bind(attacker.words["me"])
    flow.listen(switch)
    for enough, *command in ROUTERS:
        attacker.run(enough, command)
    came, sent = arrived(switch, attacker)
    assert sum(message_type(frame[14:]) == ROUTER_ADVERTISEMENT for frame in sent) > SOME
    types = {message_type(frame[14:]) for frame in came}
    assert not types & {ROUTER_ADVERTISEMENT, REDIRECT}
    assert bound or types <= {135, 136, 143}  # what the rogue's kernel sends for itself
    assert host.usable() == {host.link_local, host.address}
    assert host.routers() == {router.link_local}


def test_false_routers_without_the_guard(idle, attacker, host, router):
    foreign = interface_address(FOREIGN.split("/")[0], host.mac)
    for evasion in ((), ("-E", "H"), ("-E", "111")):
        attacker.run(ALL, ["fake_router26", *evasion, *ROUTER])
        host.until_usable(host.link_local, host.address, foreign)
        assert host.routers() == {router.link_local, attacker.words["me"]}
        host.forget(foreign, attacker.words["me"])
    attacker.run(1, ["kill_router6", "eth0", "{router}"])
    host.until(lambda: host.routers() == set(), "it still has a router")


@GUARDED
def test_objections_to_new_addresses(idle, switch, attacker, host, guarded):
    """The rogue claims each new address as its own. Its claim comes from that address, which is not bound."""
    if guarded:
        idle.guard(ROGUE)
    objecting = attacker.start("dos-new-ip6", "eth0")

    def objects():
        switch.wire(2).send(solicitation(How("02:aa:00:00:00:02"), "2001:db8:1::ffff", UNSPECIFIED))
        return any(message_type(frame[14:]) == ADVERTISEMENT for frame in attacker.sent())

    try:
        idle.until(objects, "the rogue has started")
        host.add(OTHER)
        if guarded:
            host.until_usable(host.link_local, host.address, OTHER)
        else:
            host.until_duplicate(OTHER)
    finally:
        attacker.stop(objecting)
    assert any(frame[62:78] == frames.ip_bytes(OTHER) for frame in attacker.sent())


@GUARDED
def test_another_mac_for_the_router(idle, switch, attacker, host, guarded):
    if guarded:
        idle.guard(ROGUE)
    assert ping(switch, VICTIM, host.address, GATEWAY) == 3
    assert host.neighbour(GATEWAY) == switch.mac(UPLINK)
    flow.listen(switch)
    attacker.run(ALL, ["fake_advertise6", "-n", "1", "eth0", GATEWAY])
    flow.settle(switch, ROGUE, trusted=())
    assert host.neighbour(GATEWAY) == switch.mac(UPLINK if guarded else ROGUE)
    assert idle.guarded(ROGUE)["blocked"] == guarded


@GUARDED
def test_a_false_redirect(idle, switch, attacker, host, guarded):
    """It names the rogue as the router to a distant host. First the rogue sends an echo request in that host's name, so that
    the redirect can quote the victim's answer."""
    netns.sysctl(switch.host(VICTIM), "net.ipv6.conf.eth0.accept_redirects", 1)
    own_address(switch)
    if guarded:
        idle.guard(ROGUE)
        idle.bind(ROGUES, port=ROGUE)  # it may ask for the victim's MAC address
    flow.listen(switch)
    attacker.run(ALL, ["redir6", "eth0", host.address, FAR, "{router}", "{me}"])
    came, sent = arrived(switch, attacker)
    redirects = [frame for frame in sent if message_type(frame[14:]) == REDIRECT]
    way = netns.run(host.name, "ip", "-6", "route", "get", FAR)
    assert len(redirects) == 1 and any(frame[22:38] == frames.ip_bytes(FAR) for frame in sent)
    if guarded:
        assert not any(frame in redirects or frame[22:38] == frames.ip_bytes(FAR) for frame in came)
    assert f"via {attacker.words['router' if guarded else 'me']} " in way


@GUARDED
def test_a_covert_channel(idle, switch, attacker, host, guarded, tmp_path):
    """A file inside destination options of echo requests."""
    secret, received = tmp_path / "secret", tmp_path / "received"
    secret.write_text("the combination of the safe is 12345. " * 100)
    if guarded:
        idle.guard(ROGUE)
    listener = Attacker(switch, VICTIM)
    receiving = listener.start("covert_send6d", "eth0", str(received))
    try:
        flow.listen(switch)
        if guarded:
            attacker.run(ALL, ["covert_send6", "eth0", "{victim}", str(secret)])
        else:

            def all_of_it():
                attacker.run(ALL, ["covert_send6", "eth0", "{victim}", str(secret)])
                return received.exists() and secret.read_text() in received.read_text()

            idle.until(all_of_it, "the file arrives")
        came, sent = arrived(switch, attacker)
        data = [frame for frame in sent if message_type(frame[14:]) == 128]
        assert data and [frame for frame in came if frame in data] == ([] if guarded else data)
        if guarded:
            assert idle.guarded(ROGUE)["local"] == len(data) and all(is_link_local(frame[22:38]) for frame in data)
    finally:
        listener.stop(receiving)
        listener.close()


# ---- DHCPv6 behind an untrusted port ---------------------------------------------------------------------------------------


def is_from_server(frame):
    return frames.read(frame).get("dport") == frames.CLIENT_PORT


@pytest.mark.parametrize("snooping", [False, True], ids=["open", "snooped"])
def test_a_false_dhcp_server(idle, switch, network, attacker, snooping):
    network.server(UPLINK)
    serving = attacker.start("fake_dhcps6", "eth0", FOREIGN, "2001:db8::53")
    switch.speak(2)  # the rogue resolves the address that it answers to

    def answers():
        switch.wire(2).send(frames.from_client(frames.SOLICIT, switch.mac(2)))
        return any(map(is_from_server, attacker.sent()))

    try:
        idle.until(answers, "the rogue has started")
        if snooping:
            idle.snoop(UPLINK)
        attacker.sent()
        flow.listen(switch)
        address = network.client(Dhclient, VICTIM).address()
    finally:
        attacker.stop(serving)
    servers = {frame[6:12] for frame in flow.heard(switch)[VICTIM] if is_from_server(frame)}
    real, mac = (frames.mac_bytes(switch.mac(port)) for port in (UPLINK, VICTIM))
    if snooping:  # the rogue does not even hear of the client
        assert servers == {real} and address.startswith(PREFIX)
        assert not any(is_from_server(frame) and frame[:6] == mac for frame in attacker.sent())
    else:
        assert servers > {real}


def test_false_dhcp_clients(daemon, switch, network, attacker):
    """They take the places of their port and no more. A client on another port still gets its address."""
    places = 8
    daemon.call(calls.PORT_MAX, ROGUE, places)
    server = network.server(UPLINK)
    flow.listen(switch)
    attacker.run(2000, ["flood_dhcpc6", "-1", "eth0"])
    flow.settle(switch, ROGUE, trusted=(UPLINK,))
    asked = [frame for frame in attacker.sent() if frames.dhcp_kind(frame) == frames.SOLICIT]
    came = [frame for frame in flow.heard(switch)[UPLINK] if frames.dhcp_kind(frame) == frames.SOLICIT]
    assert len(asked) > 1000 and came == asked[:places]
    assert daemon.counted(ROGUE) == places
    assert network.client(Dhclient, VICTIM).address().startswith(PREFIX)
    assert server.received("SOLICIT") == places + 1


TO_SERVERS = {
    frames.SOLICIT, frames.REQUEST, frames.CONFIRM, frames.RENEW, frames.REBIND, frames.RELEASE, frames.DECLINE,
    frames.INFORMATION_REQUEST, frames.RELAY_FORW,
}  # fmt: skip
FUZZED = 2000  # messages


def fuzz(daemon, switch, rogue, *command):
    """Returns the fuzzed messages, and those that came out, by port. Each has gone through the daemon, once."""
    flow.listen(switch)
    before = daemon.counters(rogue.port)
    rogue.run(FUZZED, command)
    flow.settle(switch, rogue.port, trusted=(UPLINK,))
    sent = [frame for frame in rogue.sent() if frames.dhcp_kind(frame) is not None]
    fuzzed = [frame for frame in sent if not flow.is_marker(frame)]
    assert len(fuzzed) > FUZZED // 2
    grown = daemon.grown(rogue.port, before)
    assert grown["delivered"] == len(sent) and not any("drop" in name.lower() for name in grown)
    ours = set(fuzzed)
    out = {port: [frame for frame in seen if frame in ours] for port, seen in flow.heard(switch).items()}
    return fuzzed, {port: seen for port, seen in out.items() if seen}


def test_fuzzed_messages_of_clients(daemon, switch, attacker):
    """Whatever their options are, they go to the trusted port, if clients or relays send messages of this type."""
    fuzzed, out = fuzz(daemon, switch, attacker, "fuzz_dhcps6", "-1", "-m", "eth0")
    assert out == {UPLINK: [frame for frame in fuzzed if frames.dhcp_kind(frame) in TO_SERVERS]}


@pytest.mark.parametrize("message", ["-7", "-D"], ids=["reply", "relay-reply"])
def test_fuzzed_messages_of_servers(daemon, switch, attacker, message):
    """From an untrusted port they go nowhere. Those whose type was fuzzed into a client's go where clients' messages go."""
    switch.speak(VICTIM)
    fuzzed, out = fuzz(daemon, switch, attacker, "fuzz_dhcpc6", message, "-m", "-v", "{victim}", "eth0")
    assert out == {UPLINK: [frame for frame in fuzzed if frames.dhcp_kind(frame) in TO_SERVERS]}


def test_fuzzed_messages_of_a_trusted_server(daemon, switch, attacker):
    """What comes out is for the victim alone, as it was sent; the daemon reads all of it for leases."""
    mac = switch.mac(VICTIM)
    switch.speak(VICTIM)
    switch.wire(VICTIM).send(frames.from_client(frames.REQUEST, mac))
    daemon.until(lambda: daemon.counted(VICTIM) == 1, "the client is known")
    server = Attacker(switch, UPLINK, victim=attacker.words["victim"])
    try:
        fuzzed, out = fuzz(daemon, switch, server, "fuzz_dhcpc6", "-7", "-v", "{victim}", "eth0")
    finally:
        server.close()
    assert out == {VICTIM: fuzzed}
