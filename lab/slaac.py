"""Real hosts that configure themselves (RFC 4862): a router that advertises a prefix with radvd, and hosts whose kernels make
addresses of it and ask for duplicates."""

import json
import pathlib
import subprocess
import time

from . import frames, netns, patience
from .frames import ip_bytes, ip_text

TIMEOUT = patience.seconds(30.0)
CONFIGURATION = """interface eth0 {
    AdvSendAdvert on;
    AdvManagedFlag %(managed)s;
    MinRtrAdvInterval 3;
    MaxRtrAdvInterval 4;
    prefix %(prefix)s/64 { AdvOnLink on; AdvAutonomous %(autonomous)s; };
};
"""


def set_up(switch, port, **settings):
    for key, value in settings.items():
        netns.sysctl(switch.host(port), f"net.ipv6.conf.eth0.{key}", value)


def interface_address(prefix, mac):
    """The address that a host with this MAC makes of a prefix, which ends with "::"."""
    return ip_text(ip_bytes(prefix)[:8] + ip_bytes(frames.link_local(mac))[8:])


class Router:
    """Runs radvd on the host at a port. The router's own global address ends with ::1."""

    def __init__(self, switch, port, prefix, managed=False):
        """`managed`: hosts get their addresses by DHCPv6 and make none themselves."""
        name = switch.speak(port)
        self.address, self.link_local = f"{prefix}1", frames.link_local(switch.mac(port))
        netns.run(name, "ip", "addr", "replace", f"{self.address}/64", "dev", "eth0", "nodad")
        netns.sysctl(name, "net.ipv6.conf.all.forwarding", 1)
        switches = {"managed": "on" if managed else "off", "autonomous": "off" if managed else "on"}
        folder = pathlib.Path("/run")
        file, self.log = folder / f"{switch.prefix}radvd{port}.conf", folder / f"{switch.prefix}radvd{port}.log"
        file.write_text(CONFIGURATION % {"prefix": prefix, **switches})
        line = ["radvd", "--nodaemon", "-C", str(file), "-p", f"/run/{switch.prefix}radvd{port}.pid", "-m", "stderr", "-d", "1"]
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(netns.command(name, line), stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def close(self):
        ended = self.process.poll()
        self.process.terminate()
        self.process.wait(TIMEOUT)
        assert ended is None, f"radvd ended with status {ended}:\n{self.log.read_text()}"


class Host:
    """A host at a port whose kernel configures its addresses, with duplicate address detection."""

    def __init__(self, switch, port):
        self.name, self.port, self.mac = switch.host(port), port, switch.mac(port)
        self.link_local = frames.link_local(self.mac)
        set_up(switch, port, accept_dad=1, dad_transmits=1, accept_ra=1, router_solicitations=3, router_solicitation_delay=0)
        netns.sysctl(self.name, "net.ipv6.neigh.eth0.retrans_time_ms", 400)  # for which it waits for an objection
        set_up(switch, port, addr_gen_mode=0, disable_ipv6=0)

    def _addresses(self):
        shown = json.loads(netns.run(self.name, "ip", "-j", "-6", "addr", "show", "dev", "eth0"))
        return {entry["local"]: entry for link in shown for entry in link.get("addr_info", ())}

    def until(self, condition, what):
        end = time.monotonic() + TIMEOUT
        while not condition():
            assert time.monotonic() < end, f"the host behind port {self.port}: {what}: {self._addresses()}"
            time.sleep(0.02)

    def usable(self):
        """The addresses that duplicate address detection has let through."""
        return {address for address, entry in self._addresses().items() if not entry.keys() & {"tentative", "dadfailed"}}

    def until_usable(self, *addresses):
        """Waits until these addresses, and no others, are usable."""
        self.until(lambda: self.usable() == set(addresses), f"usable are not {addresses}")

    def add(self, address):
        """Takes an address, which is tentative until the kernel has asked for duplicates."""
        netns.run(self.name, "ip", "addr", "add", f"{address}/64", "dev", "eth0")

    def until_duplicate(self, address):
        self.until(lambda: "dadfailed" in self._addresses()[address], f"{address} is no duplicate")

    def neighbour(self, address):
        """Returns the MAC address in the host's neighbour cache, or None."""
        shown = json.loads(netns.run(self.name, "ip", "-j", "-6", "neigh", "show", "to", address, "dev", "eth0"))
        return next((entry.get("lladdr") for entry in shown), None)

    def routers(self):
        """The addresses of the routers that the host takes for the way out."""
        shown = json.loads(netns.run(self.name, "ip", "-j", "-6", "route", "show", "default"))
        return {hop["gateway"] for route in shown for hop in route.get("nexthops", [route])}

    def forget(self, address, router):
        """Gives up an address and a router."""
        netns.run(self.name, "ip", "addr", "del", f"{address}/64", "dev", "eth0")
        netns.run(self.name, "ip", "-6", "route", "del", "default", "via", router, "dev", "eth0")
