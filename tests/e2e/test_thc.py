"""The attacks of thc-ipv6 on a guarded port. Each frame comes out or is counted, as a second reading of the rules decides."""

import time

import pytest
from lab import flow, frames
from lab.neighbours import is_link_local, passes_without_binding
from lab.storm import lost_toward
from lab.thc import Attacker, message_type

ROGUE, VICTIM = 1, 3
FOREIGN = "2001:db8:bad::/64"
OTHER, OTHER_MAC = "2001:db8:1::77", "02:00:00:00:00:99"
BURST, RATE = 2000, 1000  # frames at once, and frames a second, that pass a port without a binding
MANY = 2500
SOME = 300
ALL = 99  # more than a program sends that ends by itself
FEW = 20  # more than the attacker's kernel sends for itself: reports, solicitations and answers

ADVERTISE = ("-n", "1", "eth0", OTHER, "{victim}", OTHER_MAC, "{me}")
ROUTER = ("-A", FOREIGN, "-n", "1", "-i", "1", "eth0")
FORGERIES = [  # how many frames are enough, and the program with its arguments
    (ALL, "fake_advertise6", "-n", "1", "eth0", OTHER),
    *[(ALL, "fake_advertise6", *evasion, *ADVERTISE) for evasion in ((), ("-F",), ("-H",), ("-O",), ("-s", "-r"))],
    (ALL, "fake_router26", *ROUTER),
    *[(ALL, "fake_router26", "-E", evasion, *ROUTER) for evasion in ("F", "H", "D", "o", "O", "1", "111", "H1")],
    *[(1, "fake_router6", *evasion, "eth0", FOREIGN) for evasion in ((), ("-H",), ("-F",))],
    *[(1, "kill_router6", *evasion, "eth0", "fe80::1") for evasion in ((), ("-H",), ("-F",))],
    *[(1, "fake_solicitate6", *evasion, "eth0", "{victim}") for evasion in ((), ("-H",), ("-F",))],
    *[(ALL, "fake_mld6", "eth0", what, "ff15::1234") for what in ("add", "delete")],
    *[(ALL, "fake_mld26", "eth0", what, "ff15::1234") for what in ("add", "delete")],
    (1, "fake_mld6", "eth0", "query"),
    (1, "fake_mldrouter6", "eth0", "advertise"),
    (1, "fake_mldrouter6", "eth0", "terminate"),
]
# As hosts send them, but too many.
FLOODS = {
    "advertisements": ("flood_advertise6", "eth0"),
    "advertisements to one host": ("flood_advertise6", "-k", "eth0", "{victim}"),
    "routers": ("flood_router26", "eth0"),
    "router solicitations": ("flood_rs6", "eth0"),
    "solicitations": ("flood_solicitate6", "eth0"),
}
# As no host sends them.
CLOSED = [
    *[("flood_router26", evasion, "eth0") for evasion in ("-a", "-H", "-F")],
    ("flood_redir6", "eth0", "{victim}"),
    ("flood_solicitate6", "-a", "eth0"),
    ("flood_mld6", "eth0"),
    ("flood_mld26", "eth0"),
    ("flood_mldrouter6", "eth0"),
    ("flood_unreach6", "eth0", "{victim}"),
    ("smurf6", "eth0", "{victim}"),
    ("rsmurf6", "eth0", "{victim}"),
    ("randicmp6", "-p", "eth0", "{victim}"),
    ("fuzz_ip6", "-5", "-a", "-I", "-R", "eth0", "ff02::1:ff00:1"),
    ("fuzz_ip6", "-6", "-a", "-x", "-R", "eth0", "ff02::2"),
    ("fuzz_ip6", "-8", "-a", "-I", "-R", "eth0", "ff02::16"),
    ("fuzz_ip6", "-1", "-a", "-H", "-D", "-S", "-F", "eth0", "{victim}"),
]
FUZZ = {
    "solicitation": ("fuzz_ip6", "-2", "-a", "-x", "eth0", "{victim}"),
    "advertisement": ("fuzz_ip6", "-3", "-a", "-x", "-I", "eth0", "{victim}"),
    "router advertisement": ("fuzz_ip6", "-4", "-a", "-I", "eth0", "{victim}"),
}
# Programs that wait for answers, together.
PROBES = [
    ("thcping6", "-U", "5000", "eth0", "x", "{victim}"),
    ("thcping6", "-E", "-q", "-F", "ff02::1", "eth0", "x", "{victim}"),
    ("implementation6", "-p", "eth0", "{victim}"),
    ("firewall6", "-u", "eth0", "{victim}", "5000"),
    ("fragmentation6", "-p", "eth0", "{victim}"),
    ("denial6", "eth0", "{victim}", "1"),
    ("exploit6", "eth0", "{victim}"),
]


@pytest.fixture
def attacker(switch):
    switch.ip("link", "set", "br0", "type", "bridge", "mcast_snooping", "0")  # reports go to all ports like anything else
    switch.speak(VICTIM)
    made = Attacker(switch, ROGUE, victim=frames.link_local(switch.mac(VICTIM)))
    yield made
    made.close()


class Judged:
    """Compares what the guard did with each frame of the attacks up to `check` with what it should have done."""

    def __init__(self, daemon, attacker):
        self.daemon, self.attacker, self.switch = daemon, attacker, attacker.switch
        flow.listen(self.switch)
        attacker.sent()
        self.before, self.start = daemon.guarded(ROGUE), time.monotonic()
        self.lost = lost_toward(self.switch, VICTIM)

    def check(self):
        """Returns what was sent, what came out, and how many frames were beyond the port's limit."""
        flow.settle(self.switch, ROGUE, trusted=())
        sent = [frame for frame in self.attacker.sent() if not flow.is_marker(frame)]
        ours = set(sent)
        out = {port: [frame for frame in seen if frame in ours] for port, seen in flow.heard(self.switch).items()}
        after = self.daemon.guarded(ROGUE)
        counted = {name: after[name] - self.before[name] for name in ("blocked", "local", "discovery")}
        passing = [frame for frame in sent if passes_without_binding(frame)]
        closed = [frame for frame in sent if not passes_without_binding(frame)]
        local = sum(is_link_local(frame[22:38]) for frame in closed)
        assert (counted["blocked"], counted["local"]) == (len(closed) - local, local)
        came, rest = out.get(VICTIM, []), iter(passing)
        assert len(came) <= BURST + RATE * (time.monotonic() - self.start) + 1
        assert all(frame in rest for frame in came), "what came out is not what may pass, in order"
        assert len(came) + lost_toward(self.switch, VICTIM) - self.lost + counted["discovery"] == len(passing)
        for port, seen in out.items():
            assert set(seen) <= set(came), f"port {port} got more than the victim"
        return sent, came, counted["discovery"]


def test_forgeries(idle, attacker):
    """Those pass that a host may send itself: in the plain form, from a link-local address."""
    idle.guard(ROGUE)
    judged = Judged(idle, attacker)
    for enough, *command in FORGERIES:
        attacker.run(enough, command)
    sent, came, beyond = judged.check()
    assert len(sent) > len(FORGERIES) and 0 < len(came) < len(sent) and beyond == 0


@pytest.mark.parametrize("name", FLOODS)
def test_floods_of_what_hosts_send(idle, attacker, name):
    idle.guard(ROGUE)
    judged = Judged(idle, attacker)
    attacker.run(MANY, FLOODS[name])
    sent, came, _ = judged.check()
    assert len(sent) > MANY // 3 and len(came) > FEW  # of made-up senders every second one is a group


def test_floods_of_what_no_host_sends(idle, attacker):
    idle.guard(ROGUE)
    judged = Judged(idle, attacker)
    for command in CLOSED:
        attacker.run(SOME, command)
    sent, came, beyond = judged.check()
    assert len(sent) > SOME // 3 * len(CLOSED) and len(came) < FEW and beyond == 0


@pytest.mark.parametrize("name", FUZZ)
def test_fuzz(idle, attacker, name):
    """Each field of a message gets each value in turn. Messages pass whose wrong field the rules do not look at."""
    idle.guard(ROGUE)
    judged = Judged(idle, attacker)
    attacker.run(MANY, FUZZ[name])
    sent, came, _ = judged.check()
    assert len(sent) >= MANY and FEW < len(came) < len(sent)


def test_probes(idle, attacker):
    """Nothing but neighbour discovery gets through: the attacker finds the victim's MAC address, and then nobody answers."""
    idle.guard(ROGUE)
    judged = Judged(idle, attacker)
    attacker.run(1000, *PROBES)  # the last one to start sending does so after three seconds, and sends most
    sent, came, beyond = judged.check()
    assert len(sent) >= 1000 and beyond == 0
    assert {message_type(frame[14:]) for frame in came if frame[12:14] == b"\x86\xdd"} <= {*range(133, 138), 143}
