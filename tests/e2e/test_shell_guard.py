"""The command shell's source guard against the running daemon: what its lines do, what they say when the daemon or the kernel
says no, and what `show` makes of both."""

import json
import subprocess

from lab import calls, netns
from lab.daemon import program
from lab.frames import UDP, ethernet, ipv6, mac_number, udp

A, B, C = "2001:db8::a", "2001:db8::b", "2001:db8::c"
SETTINGS = f"""\
dhcpv6-snooping
interface ethernet 0/1
ipv6-source-guard
quit
interface ethernet 0/4
dhcpv6-snooping trust
quit
undo ipv6-source-guard vlan 10,20-22,
ipv6-source-guard bind ip {A}
ipv6-source-guard bind ip {B} mac {mac_number(2)}
ipv6-source-guard bind ip {C} mac {mac_number(3)} interface ethernet 0/1 vlan 10
"""


def shown(daemon, line):
    return json.loads(daemon.ctl("--json", *line.split()))


def refused(daemon, line):
    status, output, said = daemon.ctl(*line.split(), check=False)
    assert (status, output) == (1, "")
    return said


def replay(daemon, lines):
    return subprocess.run(
        [program("snoopctl"), "-f", "-"],
        input=lines, env=daemon.environment(), capture_output=True, text=True, timeout=30, check=False,
    )  # fmt: skip


def frame(mac, source):
    """A packet from a host to one behind another port."""
    return ethernet(mac_number(99), mac, ipv6(source, "2001:db8::99", UDP, udp(source, "2001:db8::99", 9, 9, b"")))


def states(daemon):
    rows = shown(daemon, "show ipv6-source-guard bindings")["bindings"]
    return [(row["address"], row["source"], row["installed"]) for row in rows]


def test_lines_become_settings_and_filters(idle):
    done = replay(idle, SETTINGS)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert shown(idle, "show ipv6-source-guard") == {
        "guarded_ports": ["0/1"], "bindings": 3, "exempt_vlans": [10, 20, 21, 22],
    }  # fmt: skip
    zero = "00:00:00:00:00:00"
    assert idle.filters() == {(1, 0, 0, zero, A): 1, (2, 0, 0, mac_number(2), B): 1, (4, 1, 10, mac_number(3), C): 1}
    assert states(idle) == [(address, "configured", "yes") for address in (A, B, C)]
    filters = shown(idle, "show platform filters")["filters"]
    assert [(row["kind"], row["address"], row["installed"]) for row in filters] == [
        ("address", A, True), ("mac", B, True), ("vlan", C, True),
    ]  # fmt: skip
    assert shown(idle, "show ipv6-source-guard vlans")["vlans"] == [
        {"vlan": 10, "exists": True}, {"vlan": 20, "exists": True},
        {"vlan": 21, "exists": False}, {"vlan": 22, "exists": False},
    ]  # fmt: skip
    # Once more: the bindings are there, nothing is wrong, nothing changes.
    done = replay(idle, SETTINGS)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == "".join(f"{address} is bound like this already.\n" for address in (A, B, C))
    idle.ctl(*"ipv6-source-guard vlan 1-20".split())
    assert shown(idle, "show ipv6-source-guard")["exempt_vlans"] == [21, 22]
    idle.ctl(*f"undo ipv6-source-guard bind ip {B}".split())
    assert [row[0] for row in states(idle)] == [A, C]
    idle.ctl(*"undo ipv6-source-guard bind all".split())
    assert states(idle) == [] and idle.filters() == {}
    idle.ctl(*"interface ethernet 0/1 undo ipv6-source-guard".split())
    assert idle.guarded(1)["guarded"] == 0


def test_refusals_say_what_stands_in_the_way(idle):
    replay(idle, SETTINGS)
    assert f"{C} to MAC {mac_number(3)}, port 0/1, VLAN 10" in refused(idle, f"ipv6-source-guard bind ip {C}")
    assert f"{B} to MAC {mac_number(2)}: " in refused(idle, f"ipv6-source-guard bind ip 2001:db8::d mac {mac_number(2)}")
    assert "VLAN 10" in refused(
        idle, f"ipv6-source-guard bind ip {C} mac {mac_number(3)} interface ethernet 0/1 vlan 11"
    )
    assert "port 0/4 is trusted" in refused(idle, "interface ethernet 0/4 ipv6-source-guard")
    assert "without IPv6 source guard" in refused(idle, "interface ethernet 0/1 dhcpv6-snooping trust")
    assert "no port 0/9: its ports are 0/1-0/4" in refused(idle, "interface ethernet 0/9 ipv6-source-guard")
    assert "2001:db8::d is not bound" in refused(idle, "undo ipv6-source-guard bind ip 2001:db8::d")
    assert "no port 0/9" in idle.ctl(
        *f"ipv6-source-guard bind ip 2001:db8::d mac {mac_number(4)} interface ethernet 0/9".split()
    )


def test_learned_and_configured_side_by_side(daemon, learn):
    learn(1, mac_number(1), A, "2001:db8:5::/48")
    learn(2, mac_number(2), B)
    assert states(daemon) == [(A, "learned", "not guarded"), (B, "learned", "not guarded")]
    daemon.guard(1, 2)
    assert states(daemon) == [(A, "learned", "yes"), (B, "learned", "yes")]
    daemon.ctl(*f"ipv6-source-guard bind ip {C} mac {mac_number(1)}".split())
    assert states(daemon) == [(A, "learned", "shadowed"), (B, "learned", "yes"), (C, "configured", "yes")]
    daemon.ctl(*f"undo ipv6-source-guard bind ip {C}".split())
    assert states(daemon) == [(A, "learned", "yes"), (B, "learned", "yes")]


def test_what_the_kernel_has_not_is_shown(idle, switch):
    replay(idle, SETTINGS)
    netns.run(switch.namespace, "nft", "flush", "map", "bridge", "snoopd6", "f_source")
    assert states(idle)[0] == (A, "configured", "no")
    netns.run(switch.namespace, "nft", "flush", "set", "bridge", "snoopd6", "guard_if")
    port = shown(idle, "show ipv6-source-guard interfaces")["interfaces"][0]
    assert (port["port"], port["guarded"], port["installed"]) == ("0/1", True, False)


def test_the_kernels_refusals_are_named(idle, switch):
    netns.run(switch.namespace, "nft", "delete", "table", "bridge", "snoopd6")
    said = refused(idle, "interface ethernet 0/2 ipv6-source-guard")
    assert said == "snoopctl: the source guard of port 0/2 could not be changed: No such file or directory\n"
    said = refused(idle, "undo ipv6-source-guard vlan 3,5")
    assert said == "snoopctl: the kernel refused to exempt VLAN 3,5; the rest of the list is exempt\n"
    assert calls.call(idle.link, calls.EXEMPT_GET, bytes(512)) == (0, [bytes(512)])


def test_blocked_packets_are_the_kernels(idle, sent):
    idle.guard(1)
    unbound, local = frame(mac_number(1), A), frame(mac_number(1), "fe80::1")
    assert sent(1, unbound, unbound, local, trusted=()) == {}
    rows = shown(idle, "show ipv6-source-guard interfaces")["interfaces"]
    assert [(row["port"], row["blocked"], row["blocked_link_local"]) for row in rows] == [
        ("0/1", 2, 1), ("0/2", 0, 0), ("0/3", 0, 0), ("0/4", 0, 0),
    ]  # fmt: skip
