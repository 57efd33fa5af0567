"""The demonstration: what snoopd6 does for a switch, shown with real programs on a private switch of four ports. Every step
checks what it shows; the exit status is 0 only if all of them held.

    python3 -m lab.demo [--stay]
"""

import os
import shlex
import subprocess
import sys
import textwrap

from . import flow, frames, netns, sandbox
from .clients import Dhclient, Dhcpcd
from .daemon import Daemon, program
from .kea import Kea, by_interface_id
from .snmp import NAME, PORT, Manager, Snmpd, SubAgent
from .switch import Switch

SECOND_STATION = "02:c0:ff:ee:00:02"
LAN = "2001:db8:1::/64"  # what the server gives addresses of
SERVER = "2001:db8:1::5"
UNBOUND = "2001:db8:1::bad"  # nobody's
SUBNETS = {b"closet-3 0/1": "2001:db8:11::", b"closet-3 0/2": "2001:db8:12::"}  # by host name and port
PARENT = "SNOOPD6_LAB_PARENT"  # process id, seen from outside, of one that is in the run's namespaces


class Stage:
    """Everything that the steps use."""

    def __init__(self):
        self.switch = Switch(prefix="demo-")
        self.daemon = Daemon(self.switch, host_name="closet-3")
        self.running = []
        self.server = self.rogue = self.first = self.second = self.leased = None

    def keep(self, running):
        self.running.append(running)
        return running

    def ctl(self, line):
        """A line of the command shell, with what it answers."""
        print(f"    snoopd6> {line}")
        output = self.daemon.ctl(*shlex.split(line))
        print(textwrap.indent(output, "    "), end="")
        return output

    def close(self):
        for running in reversed(self.running):
            running.close()
        self.daemon.close()
        self.switch.close()


def say(text):
    print(f"    {text}")


def hold(condition, what):
    """A step holds only if this is so."""
    if not condition:
        raise AssertionError(f"not so: {what}")
    say(f"- {what}")


def start(stage):
    """Four ports: clients on 1 and 2, a rogue server on 3, the server on 4"""
    stage.daemon.start()
    for port in stage.switch.ports:
        stage.switch.speak(port)
    stage.server = stage.keep(Kea(stage.switch, 4))
    stage.rogue = stage.keep(Kea(stage.switch, 3, prefix="2001:db8:bad::", delegated="2001:dba::", preference=255))
    output = stage.ctl("show dhcpv6-snooping interfaces")
    hold(output.count(" up ") == 4, "all four ports are up, none is trusted")


def unprotected(stage):
    """Snooping is off: the rogue server wins"""
    client = stage.keep(Dhclient(stage.switch, 1))
    address = client.address()
    hold(address.startswith("2001:db8:bad::"), f"the client on port 1 took {address} from the rogue server")
    client.freeze()
    netns.run(stage.switch.host(1), "ip", "-6", "addr", "flush", "dev", "eth0", "scope", "global")
    stage.rogue_heard = stage.rogue.received("SOLICIT")


def protect(stage):
    """Port 4 is trusted, snooping goes on"""
    stage.ctl("interface ethernet 0/4 dhcpv6-snooping trust")
    stage.ctl("dhcpv6-snooping")
    output = stage.ctl("show dhcpv6-snooping")
    hold("0/4" in output, "port 4 is trusted")


def learn(stage):
    """A client on port 1 gets an address and a prefix, and the switch knows them"""
    stage.first = stage.keep(Dhclient(stage.switch, 1, ("-N", "-P")))
    address, prefix = stage.first.address(), stage.first.prefix()
    stage.leased = address
    output = stage.ctl("show dhcpv6-snooping clients")
    hold(address.startswith("2001:db8:1::"), f"dhclient got {address} and {prefix}")
    mac = stage.switch.mac(1)
    record = stage.daemon.clients().get(mac, {"leases": {}})
    known = set(record["leases"]) == {f"{address}/128", prefix} and record["port"] == 1
    hold(known, f"both are in the table, for {mac} on port 0/1")
    hold(mac in output and address in output and prefix in output, "and so the shell says")


def learn_another(stage):
    """Another client, another program, on port 2"""
    stage.second = stage.keep(Dhcpcd(stage.switch, 2))
    address, prefix = stage.second.address(), stage.second.prefix()
    output = stage.ctl("show dhcpv6-snooping clients")
    hold(address in output and prefix in output, f"dhcpcd got {address} and {prefix}")
    hold(len(stage.daemon.clients()) == 2, "two clients are in the table")


def rogue(stage):
    """The rogue server on port 3 is neither asked nor heard"""
    asked = stage.rogue.received("SOLICIT") - stage.rogue_heard
    hold(asked == 0, "no SOLICIT has reached it since snooping is on")
    client, offer = stage.switch.mac(1), frames.ia_na(["2001:db8:bad::666"])
    forged = [frames.from_server(kind, client, offer) for kind in (frames.ADVERTISE, frames.REPLY)]
    out = flow.sent(stage.switch, 3, *forged)
    came = sum(frame in forged for seen in out.values() for frame in seen)
    hold(came == 0, "an ADVERTISE and a REPLY forged on port 3 came out of no port")
    stage.ctl("show platform counters")


def own(stage, port, address, have=True):
    """The host behind a port has the address, or has it no longer."""
    # No duplicate address detection: it would find the address that an impostor takes.
    words = ("ip", "-6", "addr", "add" if have else "del", f"{address}/128", "dev", "eth0", *(("nodad",) if have else ()))
    print(f"    host{port}> {' '.join(words)}")
    netns.run(stage.switch.host(port), *words)


def pings(stage, port, source, wait):
    """What becomes of two echo requests from the host behind a port to the server's: (how many were answered within so many
    seconds, how many had arrived)."""
    arrived = echoes(stage)
    words = ("ping", "-6", "-n", "-c", "2", "-i", "0.1", "-W", wait, "-I", source, SERVER)
    print(f"    host{port}> {' '.join(words)}")
    done = subprocess.run(netns.command(stage.switch.host(port), words), capture_output=True, text=True, check=False)
    said = done.stdout
    if "received" not in said:
        raise AssertionError(f"ping did not run: {said}{done.stderr}")
    print(textwrap.indent(next(line for line in said.splitlines() if "received" in line), "    "))
    return said.count(" bytes from "), echoes(stage) - arrived


def passes(stage, port, source):
    return pings(stage, port, source, "5") == (2, 2)


def stops(stage, port, source):
    return pings(stage, port, source, "0.5") == (0, 0)


def echoes(stage):
    """Echo requests that have reached the server's host."""
    counters = netns.run(stage.switch.host(4), "cat", "/proc/net/snmp6")
    return next(int(line.split()[1]) for line in counters.splitlines() if line.startswith("Icmp6InEchos "))


def guard(stage):
    """Ports 1 and 2 are guarded: leased addresses pass, others do not"""
    own(stage, 4, SERVER)
    for port in (1, 2, 4):
        netns.run(stage.switch.host(port), "ip", "-6", "route", "replace", LAN, "dev", "eth0")
    address = stage.leased
    own(stage, 1, UNBOUND)
    hold(passes(stage, 1, UNBOUND), "without a guard, any address passes")
    for port in (1, 2):
        stage.ctl(f"interface ethernet 0/{port} ipv6-source-guard")
    hold(passes(stage, 1, address), f"{address}, which host 1 has leased, passes")
    hold(passes(stage, 2, stage.second.address()), "so does what host 2 has leased")
    hold(stops(stage, 1, UNBOUND), "a second address of host 1 does not")
    own(stage, 2, address)
    hold(stops(stage, 2, address), "host 2, posing with host 1's address, does not")
    own(stage, 2, address, have=False)
    # The server took the impostor at its word: neighbour discovery says who has an address, the guard only what it may send.
    netns.run(stage.switch.host(4), "ip", "-6", "neigh", "flush", "dev", "eth0")
    stage.ctl("show ipv6-source-guard bindings")
    stage.ctl("show ipv6-source-guard interfaces")
    blocked = [stage.daemon.guarded(port)["blocked"] for port in (1, 2)]
    hold(blocked == [2, 2], "two packets were blocked on port 1, and two on port 2")


def bind(stage):
    """A configured binding opens, its removal closes"""
    stage.ctl(f"ipv6-source-guard bind ip {UNBOUND}")
    hold(passes(stage, 1, UNBOUND), "the second address of host 1 passes")
    output = stage.ctl("show ipv6-source-guard bindings")
    rows = {line.split()[0]: line.split()[-2:] for line in output.splitlines()}
    hold(rows.get(UNBOUND) == ["configured", "yes"], "it is configured, and the kernel has it")
    hold(rows.get(stage.leased) == ["learned", "yes"], "beside the leased one, which was learned")
    stage.ctl(f"undo ipv6-source-guard bind ip {UNBOUND}")
    hold(stops(stage, 1, UNBOUND), "it passes no more")


def exempt(stage):
    """An exempt VLAN passes whole"""
    stage.ctl("undo ipv6-source-guard vlan 1")
    stage.ctl("show ipv6-source-guard")
    hold(passes(stage, 1, UNBOUND), "the hosts' frames have no tag and belong to VLAN 1: any address passes")
    stage.ctl("ipv6-source-guard vlan 1")
    hold(stops(stage, 1, UNBOUND), "only bound ones again")


def manage(stage, tool, *words):
    """One of the net-snmp tools as the manager, with what it prints."""
    print(f"    manager> {tool} -v2c -c lab -m {NAME} 127.0.0.1:{PORT} {' '.join(words)}")
    status, said = Manager(stage.switch).named(tool, *words)
    said = said.replace(f"{NAME}::", "").rstrip()
    print(textwrap.indent(said, "    "))
    if status != 0:
        raise AssertionError(f"{tool} failed")
    return said


def snmp(stage):
    """An SNMP manager sees the same, and makes a binding"""
    master = stage.keep(Snmpd(stage.switch)).start()
    stage.keep(SubAgent(stage.daemon, master.master)).start()
    Manager(stage.switch).until_answers()
    said = manage(stage, "snmpwalk", "tqzL2Dhcp6Snooping")
    hold("portTrustMode.4 = INTEGER: trusted(1)" in said, "port 4 is trusted")
    known = all(f"STRING: {address}," in said for address in (stage.leased, stage.second.address()))
    hold(known, "both clients are there, with address and prefix")
    columns = f"ip6BindIpAddr.1 s {UNBOUND} ip6BindPortId.1 i 1 ip6SourceGuardBindRowstatus.1 i createAndGo"
    manage(stage, "snmpset", *columns.split())
    hold(passes(stage, 1, UNBOUND), "the second address of host 1 passes")
    manage(stage, "snmpset", "ip6SourceGuardBindRowstatus.1", "i", "destroy")
    hold(stops(stage, 1, UNBOUND), "it passes no more")


def release(stage):
    """A client that gives its lease back is forgotten"""
    mac = stage.switch.mac(2)
    stage.second.release()
    stage.daemon.until(lambda: mac not in stage.daemon.clients(), "the client goes")
    output = stage.ctl("show dhcpv6-snooping clients")
    hold(mac not in output, f"{mac} on port 2 sent RELEASE and is gone")
    hold(mac not in stage.ctl("show platform filters"), "so is its filter")


def link_down(stage):
    """A link that goes down takes its clients with it"""
    stage.switch.link(1, "down")
    stage.daemon.until(lambda: stage.daemon.clients() == {}, "the client of the port goes")
    output = stage.ctl("show dhcpv6-snooping clients")
    hold(stage.switch.mac(1) not in output, "port 1 went down, its client is gone")
    stage.first.close()
    stage.switch.link(1, "up")


def limit(stage):
    """A limit refuses one client more"""
    stage.ctl("interface ethernet 0/2 dhcpv6-snooping max-clients 1")
    first = stage.keep(Dhcpcd(stage.switch, 2))
    first.address()
    first.freeze()
    stage.switch.replace_host(2, SECOND_STATION)
    solicits, delivered = stage.server.received("SOLICIT"), stage.daemon.counters(2)["delivered"]
    stage.second = second = stage.keep(Dhcpcd(stage.switch, 2))
    stage.daemon.until(lambda: stage.daemon.counters(2)["delivered"] >= delivered + 2, "the second station asks twice")
    output = stage.ctl("show dhcpv6-snooping interfaces")
    hold("p2" in output and stage.daemon.counted(2) == 1, "port 2 has one client, and may have one")
    hold(stage.server.received("SOLICIT") == solicits, f"{SECOND_STATION} asked twice; nothing of it has reached the server")
    hold(stage.switch.addresses(2) == [], "it has no address")
    stage.ctl("interface ethernet 0/2 dhcpv6-snooping max-clients 2")
    address = second.address()
    output = stage.ctl("show dhcpv6-snooping clients")
    hold(SECOND_STATION in output and address in output, f"with a limit of 2 it gets {address}")


def spell(payload, indent="  "):
    """A message in words, as far as it is about relaying. An Interface-Id is shown as text."""
    kind = payload[0]
    if kind != frames.RELAY_FORW:
        say(f"{indent}{'SOLICIT' if kind == frames.SOLICIT else f'message of type {kind}'}, {len(payload)} bytes")
        return
    link, peer = frames.ip_text(payload[2:18]), frames.ip_text(payload[18:34])
    say(f"{indent}RELAY-FORW, hop count {payload[1]}, link-address {link}, peer-address {peer}")
    for code, data in frames.options(payload[34:]):
        if code == 9:
            say(f"{indent}  option 9, Relay Message")
            spell(data, indent + "    ")
        elif code == 18:
            say(f'{indent}  option 18, Interface-Id: "{data.decode()}"')


def which_port(stage):
    """The server sees which port a client sits on, and picks the subnet by it"""
    stage.second.freeze()
    stage.server.close()
    stage.server = stage.keep(Kea(stage.switch, 4, subnets=by_interface_id(SUBNETS)))
    stage.ctl('dhcpv6-snooping information interface-id user-defined "{hostname} {port-name}"')
    stage.ctl("dhcpv6-snooping information option 18")
    stage.ctl("dhcpv6-snooping l2-relay")
    stage.ctl("show dhcpv6-snooping information")
    stage.ctl("clear dhcpv6-snooping clients all")
    stage.switch.wire(4).take()
    for port in (1, 2):
        stage.switch.replace_host(port, f"02:c0:ff:ee:01:{port:02}")
    clients = {port: stage.keep(Dhclient(stage.switch, port)) for port in (1, 2)}
    addresses = {port: client.address() for port, client in clients.items()}
    messages = [frame for frame in stage.switch.wire(4).take() if frames.dhcp_kind(frame) == frames.RELAY_FORW]
    for port in (1, 2):
        say(f"The first message of the client on port {port}, as it left port 4:")
        source = frames.mac_bytes(stage.switch.mac(port))
        spell(frames.read(next(frame for frame in messages if frame[6:12] == source))["payload"])
    for (identity, prefix), port in zip(SUBNETS.items(), (1, 2)):
        hold(addresses[port].startswith(prefix), f'"{identity.decode()}" got {addresses[port]}, out of the subnet that is its')
    output = stage.ctl("show dhcpv6-snooping clients")
    known = all(address in output for address in addresses.values())
    hold(known, "the answers came back without relay headers, and the table has them")


STEPS = (start, unprotected, protect, learn, learn_another, rogue, guard, bind, exempt, snmp, release, link_down,
         limit, which_port)  # fmt: skip


def play(stage):
    """Runs the steps; the first one that does not hold ends it. Returns (headline, outcome) for each."""
    outcome = []
    for number, step in enumerate(STEPS, 1):
        headline = step.__doc__
        print(f"\n{number}. {headline}")
        try:
            step(stage)
        except AssertionError as error:
            print(f"    FAILED: {error}")
            outcome.append((headline, "FAILED"))
            break
        outcome.append((headline, "held"))
    return outcome + [(step.__doc__, "not tried") for step in STEPS[len(outcome) :]]


def stay(stage):
    """The command shell, with the switch as the steps left it."""
    enter = f"nsenter -t {os.environ[PARENT]} -m -n"
    if os.environ.get("SNOOPD6_LAB_USER"):
        enter = f"nsenter -t {os.environ[PARENT]} -U --preserve-credentials -m -n"
    print("\nThe switch stays up until you leave this shell (quit). From another terminal:")
    for name in ("switch", *(f"host{port}" for port in stage.switch.ports)):
        print(f"    {enter} ip netns exec {stage.switch.prefix}{name} bash")
    print()
    subprocess.run([program("snoopctl")], env=stage.daemon.environment(), check=False)


def main(arguments):
    if arguments not in ([], ["--stay"]):
        print("usage: ./run [--stay]", file=sys.stderr)
        return 2
    if not sandbox.inside():
        os.environ[PARENT] = str(os.getpid())
        if os.geteuid() != 0:
            os.environ["SNOOPD6_LAB_USER"] = "1"
        return sandbox.run([sys.executable, "-m", "lab.demo", *arguments])
    stage = Stage()
    try:
        outcome = play(stage)
        if arguments == ["--stay"]:
            stay(stage)
    finally:
        stage.close()
    print()
    for headline, result in outcome:
        print(f"{headline:<80}{result}")
    return 0 if all(result == "held" for _, result in outcome) else 1


if __name__ == "__main__":
    sys.stdout.reconfigure(line_buffering=True)
    sys.exit(main(sys.argv[1:]))
