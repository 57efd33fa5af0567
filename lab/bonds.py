"""Bonds of the switch's ports. The host behind each port is an end of its own: a test says by which member a frame comes in,
and sees by which one it goes out."""

import subprocess

from . import flow, netns
from .switch import BRIDGE

LACP = "802.3ad"


def _ip(namespace, *lines):
    """ip(8) in the namespace, all lines in one run."""
    text = "\n".join(lines) + "\n"
    arguments = netns.command(namespace, ["ip", "-batch", "-"])
    done = subprocess.run(arguments, input=text, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise AssertionError(f"ip: {lines}: {done.stderr}")


def _bond(name, mode):
    """Looks at its members' links every 20 ms; tells its partner where it has one every second."""
    return f"link add {name} type bond mode {mode} miimon 20" + (" lacp_rate fast" if mode == LACP else "")


def _joining(interface, name):
    """A member must be down when it joins, and its bond takes it up."""
    return [f"link set {interface} nomaster down", f"link set {interface} master {name}"]


def make(switch, name, *ports, mode="balance-rr"):
    """A bond of the ports, in the bridge."""
    members = [line for port in ports for line in _joining(f"p{port}", name)]
    _ip(switch.namespace, _bond(name, mode), *members, f"link set {name} master {BRIDGE} up")


def join(switch, port, name):
    """Takes a port out of where it is and makes it a member."""
    _ip(switch.namespace, *_joining(f"p{port}", name))


def leave(switch, port):
    """Takes a port out of its bond and puts it into the bridge by itself. It is down for a moment."""
    _ip(switch.namespace, f"link set p{port} nomaster", f"link set p{port} master {BRIDGE} up")


def delete(switch, name):
    switch.ip("link", "del", name)


def rename(switch, name, new):
    """A bond has to be down for that."""
    _ip(switch.namespace, f"link set {name} down", f"link set {name} name {new}", f"link set {new} up")


def activate(switch, name, port):
    """Makes a member the one that an active-backup bond uses."""
    switch.ip("link", "set", name, "type", "bond", "active_slave", f"p{port}")


def cable(switch, port, state):
    """Takes the far end of a port's cable "up" or "down"."""
    netns.run(switch.host(port), "ip", "link", "set", "eth0", state)


def aggregate(switch, *ports):
    """Gives the host behind the first port the cables of the others too, and aggregates them by LACP: its eth0 is the bond,
    with the members e1, e2, ... for the ports. The hosts of the others are left without an interface."""
    namespace = switch.host(ports[0])
    for port in ports:
        there = [f"link set e{port} netns {netns.path(namespace)}"] if port != ports[0] else []
        _ip(switch.host(port), "link set eth0 down", f"link set eth0 name e{port}", *there)
    members = [line for port in ports for line in _joining(f"e{port}", "eth0")]
    _ip(namespace, _bond("eth0", LACP), *members, "link set eth0 up")


class Flow:
    """Where did it go, with bonds: a bond is one place, and what its members sent counts as sent by it."""

    def __init__(self, switch, **bonds):
        """The names of bonds with the ports in them."""
        self.switch = switch
        self.bonds = bonds

    def name(self, port):
        """The name of the port's bond, or the port."""
        return next((name for name, ports in self.bonds.items() if port in ports), port)

    def sent(self, port, *sending, trusted, tags=(), members=None, marker=None):
        """As flow.sent; `trusted` and `members` are ports and names of bonds. The markers go into the port `marker` where the
        one that is sent into lets nothing through."""
        members = [self.bonds.get(name, name) for name in members or dict.fromkeys(map(self.name, self.switch.ports))]
        settling = (marker or port, [self.bonds.get(name, name) for name in trusted], tags, members)
        return self.gathered(flow.sent(self.switch, port, *sending, marker=settling))

    def gathered(self, found):
        """What came out, by port or name of a bond."""
        gathered = {}
        for port, frames in found.items():
            name = self.name(port)
            gathered[name] = gathered.get(name, []) + frames
        return gathered
