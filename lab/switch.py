"""The private switch: a kernel bridge with ports p1, p2, ... and behind each port a host with the interface eth0, each in a
network namespace of its own. Hosts and bridge are silent (no IPv6 of their own), so that every frame seen on a cable was sent
by the test or by the daemon; a host that runs a real client or server is given its IPv6 stack with `speak`."""

import itertools
import subprocess
import time

from . import netns
from .wire import TIMEOUT, Wire

BRIDGE = "br0"
_numbers = itertools.count(1)


def _batch(lines, *arguments):
    subprocess.run(["ip", *arguments, "-batch", "-"], input="\n".join(lines) + "\n", check=True, capture_output=True, text=True)


class Switch:
    """Lives from its making to `close`; every namespace has a name of this switch's own."""

    def __init__(self, ports=4, prefix=None):
        self.prefix = prefix or f"s{next(_numbers)}-"
        self.namespace = self.prefix + "switch"
        self.ports = range(1, ports + 1)
        self._wires = {}
        _batch([f"netns add {name}" for name in self._namespaces()])
        for name in self._namespaces():
            netns.sysctl(name, "net.ipv6.conf.default.accept_dad", 0)
            netns.sysctl(name, "net.ipv6.conf.default.router_solicitations", 0)
            netns.sysctl(name, "net.ipv6.conf.default.disable_ipv6", 1)
            netns.sysctl(name, "net.ipv4.igmp_link_local_mcast_reports", 0)
        _batch([f"link add {BRIDGE} type bridge", f"link set {BRIDGE} up", "link set lo up"], "-n", self.namespace)
        for port in self.ports:
            self._cable(port)

    def _namespaces(self):
        return [self.namespace] + [self.host(port) for port in self.ports]

    def host(self, port):
        """The namespace of the host behind a port."""
        return f"{self.prefix}host{port}"

    def plug(self, port):
        """Makes the cable of a port anew, and returns when the bridge takes frames from it: the kernel notices a carrier in its
        own time."""
        self._cable(port)
        end = time.monotonic() + TIMEOUT
        while "state forwarding" not in netns.run(self.namespace, "bridge", "link", "show", "dev", f"p{port}"):
            if time.monotonic() > end:
                raise AssertionError(f"port {port} does not forward")
            time.sleep(0.002)

    def _cable(self, port):
        """The cable of a port, with the host's end up first, and the port in the bridge."""
        _batch([f"link add eth0 type veth peer name p{port} netns {self.namespace}", "link set eth0 up"], "-n", self.host(port))
        _batch([f"link set p{port} master {BRIDGE} up"], "-n", self.namespace)

    def unplug(self, port):
        """Takes port and cable away."""
        if port in self._wires:
            self._wires.pop(port).close()
        self.ip("link", "del", f"p{port}")

    def ip(self, *words):
        """ip(8) in the switch's namespace."""
        return netns.run(self.namespace, "ip", *words)

    def link(self, port, state):
        """Takes a port of the switch "up" or "down"."""
        self.ip("link", "set", f"p{port}", state)

    def ruleset(self):
        return netns.run(self.namespace, "nft", "list", "ruleset")

    def wire(self, port):
        """The host's end of a port's cable."""
        if port not in self._wires:
            self._wires[port] = Wire(self.host(port), "eth0")
        return self._wires[port]

    def mac(self, port):
        """The MAC address of the host behind a port."""
        return netns.run(self.host(port), "ip", "-br", "link", "show", "eth0").split()[2]

    def speak(self, port, interface="eth0"):
        """Gives the host behind a port its IPv6 stack: a link-local address at once, without duplicate address detection."""
        name = self.host(port)
        netns.sysctl(name, f"net.ipv6.conf.{interface}.accept_ra", 0)
        netns.sysctl(name, f"net.ipv6.conf.{interface}.addr_gen_mode", 0)  # a client may have left it at another mode
        netns.sysctl(name, f"net.ipv6.conf.{interface}.disable_ipv6", 0)
        end = time.monotonic() + TIMEOUT
        while "inet6 fe80:" not in netns.run(name, "ip", "-6", "addr", "show", "dev", interface, "-tentative"):
            if time.monotonic() > end:
                raise AssertionError(f"the host behind port {port} has no usable link-local address")
            time.sleep(0.002)
        return name

    def replace_host(self, port, mac):
        """Another station is behind the port: another MAC address, and no address of the old one's."""
        name = self.host(port)
        netns.sysctl(name, "net.ipv6.conf.eth0.disable_ipv6", 1)
        netns.run(name, "ip", "link", "set", "eth0", "address", mac)
        return self.speak(port)

    def addresses(self, port, scope="global"):
        """The host's IPv6 addresses, without prefix length."""
        text = netns.run(self.host(port), "ip", "-6", "-o", "addr", "show", "dev", "eth0", "scope", scope)
        return [line.split()[3].split("/")[0] for line in text.splitlines()]

    def close(self):
        for wire in self._wires.values():
            wire.close()
        self._wires.clear()
        _batch([f"netns del {name}" for name in self._namespaces()])
