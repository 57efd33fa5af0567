"""The switch's bridge as one that filters VLANs: its ports' places in them, as `bridge vlan` tells the kernel, and what should
come out of which port with which tag."""

import struct
import subprocess

from . import calls, flow, netns
from .frames import ETH_8021AD, ETH_8021Q
from .switch import BRIDGE

ALL = "1-4094"
STATUS = struct.Struct("<I4x8s8s")  # VLAN, members, untagged members


def bridge(switch, *lines):
    """bridge(8) in the switch's namespace, all lines in one run."""
    done = subprocess.run(
        netns.command(switch.namespace, ["bridge", "-batch", "-"]),
        input="\n".join(lines) + "\n", capture_output=True, text=True, check=False,
    )  # fmt: skip
    if done.returncode != 0:
        raise AssertionError(f"bridge: {lines}: {done.stderr}")


def filtering(switch, protocol="802.1Q", default=1):
    """The bridge filters VLANs from now on; every port is an untagged member of VLAN `default`, or of none where it is 0."""
    words = ("vlan_filtering", "1", "vlan_protocol", protocol, "vlan_default_pvid", str(default))
    switch.ip("link", "set", BRIDGE, "type", "bridge", *words)


def transparent(switch):
    switch.ip("link", "set", BRIDGE, "type", "bridge", "vlan_filtering", "0")


def name(interface):
    """The interface of a port (by number), or the one of this name."""
    return f"p{interface}" if isinstance(interface, int) else interface


def line(verb, interface, vlan, *flags):
    own = ["self"] if interface == BRIDGE else []
    return " ".join(["vlan", verb, "dev", name(interface), "vid", str(vlan), *flags, *own])


def join(switch, interface, vlan, *flags):
    """A port or an interface, the bridge's own too, becomes a member. Flags: "pvid" makes it the native VLAN, "untagged" takes
    the tag off where frames leave."""
    bridge(switch, line("add", interface, vlan, *flags))


def leave(switch, interface, vlan):
    bridge(switch, line("del", interface, vlan))


def _place(interface, native, tagged):
    lines = [line("del", interface, ALL)]
    lines += [line("add", interface, native, "pvid", "untagged")] if native else []
    return lines + [line("add", interface, vlan) for vlan in tagged]


def access(switch, interface, vlan):
    """The port is an untagged member of this one VLAN."""
    bridge(switch, *_place(interface, vlan, ()))


def trunked(switch, interface, *vlans, native=None):
    """The port is a tagged member of these VLANs, and of `native` without a tag."""
    bridge(switch, *_place(interface, native, vlans))


def interface(switch, port, vlan):
    """The host behind a port speaks IPv6 in a VLAN that its cable has tagged. Returns the name of its interface there."""
    made = f"v{vlan}"
    netns.run(switch.host(port), "ip", "link", "add", "link", "eth0", "name", made, "type", "vlan", "id", str(vlan))
    netns.run(switch.host(port), "ip", "link", "set", made, "up")
    switch.speak(port, made)
    return made


def known(daemon):
    """What the daemon knows: VLAN -> (ports that are members, and of these the ones where it leaves without a tag)."""

    def ports(raw):
        bits = int.from_bytes(raw, "big")
        return [port for port in range(1, 65) if bits >> (64 - port) & 1]

    return {vlan: (ports(members), ports(untagged)) for vlan, members, untagged in calls.table(daemon.link, 2, STATUS)}


# As `Places` takes it: clients without a tag in VLANs 10 and 20, one port with both, and the servers', which has both tagged.
PLACES = {1: (10,), 2: (20,), 3: (10, 20), 4: (0, 10, 20)}


class Places:
    """Who is where on a switch: for each port its native VLAN (0: none) and the VLANs that it carries tagged. Frames of a
    test are functions of their tags, because every port has the same frame with others."""

    def __init__(self, switch, places, protocol="802.1Q"):
        self.switch = switch
        self.ether_type = {"802.1Q": ETH_8021Q, "802.1ad": ETH_8021AD}[protocol]
        self.native, self.tagged = {}, {}
        filtering(switch, protocol, default=0)
        self.put(places)

    def put(self, places):
        """Moves ports: port -> (native VLAN, tagged VLANs...)."""
        lines = []
        for port, (native, *tagged) in places.items():
            self.native[port], self.tagged[port] = native, tagged
            lines += _place(port, native, tagged)
        bridge(self.switch, *lines)

    def expected(self):
        """What `known` must say once the daemon has heard of everything."""
        vlans = {}
        for port in sorted(self.native):
            for vlan in filter(None, [self.native[port], *self.tagged[port]]):
                members, untagged = vlans.setdefault(vlan, ([], []))
                members.append(port)
                if vlan == self.native[port]:
                    untagged.append(port)
        return vlans

    def until_known(self, daemon):
        daemon.until(lambda: known(daemon) == self.expected(), "the daemon hears of the VLANs")

    def members(self, vlan):
        return [port for port in self.native if vlan == self.native[port] or vlan in self.tagged[port]]

    def tags(self, port, vlan, *inner):
        """The tags that a frame of the VLAN has on the cable of the port."""
        return inner if vlan == self.native[port] else ((vlan, self.ether_type), *inner)

    def flooded(self, vlan, make, port, *inner):
        """The frame that came in by the port, at all other members of the VLAN."""
        return {other: [make(self.tags(other, vlan, *inner))] for other in self.members(vlan) if other != port}

    def _marker(self, port, trusted):
        """Where markers can go in to come out of a trusted port: the port, the tags of its VLAN, and who else is in it."""
        for start in (port, *self.native):
            for vlan in filter(None, [self.native[start], *self.tagged[start]]):
                members = self.members(vlan)
                if set(members) - {start} and (not trusted or set(members) & set(trusted)):
                    servers = [other for other in trusted if other in members]
                    return start, servers, self.tags(start, vlan), members
        raise AssertionError(f"no port is in a VLAN with one of {trusted}")

    def sent(self, port, *sending, trusted=(4,)):
        """flow.sent, with markers that pass the bridge."""
        return flow.sent(self.switch, port, *sending, marker=self._marker(port, trusted))
