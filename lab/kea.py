"""A real DHCPv6 server, kea-dhcp6, on the host behind a port. Its configuration, leases and run folder are its own."""

import json
import os
import pathlib
import subprocess
import time

from . import netns, patience

FOLDERS = ("/etc/kea", "/var/lib", "/var/log", "/run")
TIMEOUT = patience.seconds(20.0)


def whole_link(prefix, delegated):
    """One subnet for all clients: `prefix` is a /64 for addresses, `delegated` a /40 out of which /56 prefixes are delegated;
    both end with "::"."""
    return {"subnet6": [{
        "subnet": f"{prefix}/64", "id": 1, "interface": "eth0",
        "pools": [{"pool": f"{prefix}1000 - {prefix}1fff"}],
        "pd-pools": [{"prefix": delegated, "prefix-len": 40, "delegated-len": 56}],
    }]}  # fmt: skip


def by_interface(prefixes):
    """A subnet for the link of each interface."""
    return {"subnet6": [{
        "subnet": f"{prefix}/64", "id": number, "interface": interface,
        "pools": [{"pool": f"{prefix}1000 - {prefix}1fff"}],
        "pd-pools": [{"prefix": f"2001:db8:{number:x}00::", "prefix-len": 40, "delegated-len": 56}],
    } for number, (interface, prefix) in enumerate(prefixes.items(), 1)]}  # fmt: skip


def by_interface_id(prefixes):
    """A subnet for each Interface-Id (bytes) of the relay next to the client. A class looks for it: the `interface-id` of a
    subnet counts for this server only where the relay names its link's address, and a layer-2 relay has none."""
    subnets = [{
        "subnet": f"{prefix}/64", "id": number, "interface": "eth0", "client-class": f"at-{content.hex()}",
        "pools": [{"pool": f"{prefix}1000 - {prefix}1fff"}],
        "pd-pools": [{"prefix": f"2001:db8:{number:x}00::", "prefix-len": 40, "delegated-len": 56}],
    } for number, (content, prefix) in enumerate(prefixes.items(), 1)]  # fmt: skip
    classes = [{
        "name": f"at-{content.hex()}", "test": f"relay6[0].option[18].hex == 0x{content.hex()}"
    } for content in prefixes]  # fmt: skip
    return {"subnet6": subnets, "client-classes": classes}


def configuration(subnets, valid, preferred, renew, rebind, preference):
    data = [{"name": "preference", "data": str(preference), "always-send": True}] if preference else []
    return {
        "Dhcp6": {
            "interfaces-config": {"interfaces": sorted({subnet["interface"] for subnet in subnets["subnet6"]})},
            "lease-database": {"type": "memfile", "persist": True, "lfc-interval": 0, "name": "/var/lib/kea/kea-leases6.csv"},
            "server-id": {"type": "LLT", "persist": False},
            "valid-lifetime": valid, "min-valid-lifetime": valid, "max-valid-lifetime": valid,
            "preferred-lifetime": preferred, "min-preferred-lifetime": preferred, "max-preferred-lifetime": preferred,
            "renew-timer": renew, "rebind-timer": rebind,
            "option-data": data,
            **subnets,
            "loggers": [{"name": "kea-dhcp6", "severity": "DEBUG", "debuglevel": 55, "output_options": [{"output": "stdout"}]}],
        }
    }  # fmt: skip


class Kea:
    """The server behind a port; `speak` must have given the host its IPv6 stack."""

    def __init__(self, switch, port, prefix="2001:db8:1::", delegated="2001:db8:100::", valid=7200, preferred=3600, renew=1800,
                 rebind=2880, preference=0, subnets=None):  # fmt: skip
        self.log = pathlib.Path("/run") / f"{switch.prefix}kea{port}.log"
        text = json.dumps(configuration(subnets or whole_link(prefix, delegated), valid, preferred, renew, rebind, preference))
        script = (
            'mkdir -p /var/lib/kea /var/log/kea /run/kea /run/lock/kea && printf %s "$1" >/etc/kea/kea-dhcp6.conf && '
            "kea-dhcp6 -t /etc/kea/kea-dhcp6.conf && exec kea-dhcp6 -c /etc/kea/kea-dhcp6.conf"
        )
        arguments = netns.command(switch.host(port), ["sh", "-c", script, "kea", text], FOLDERS)
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(
                arguments, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
                env=dict(os.environ, KEA_LOCKFILE_DIR="/run/lock/kea"),
            )  # fmt: skip
        self.wait("DHCP6_STARTED")

    def text(self):
        return self.log.read_text(errors="replace")

    def wait(self, words, count=1, timeout=TIMEOUT):
        """Waits until the log has the words this often."""
        end = time.monotonic() + timeout
        while self.text().count(words) < count:
            if self.process.poll() is not None or time.monotonic() > end:
                raise AssertionError(f"kea-dhcp6 did not say {words!r} {count} times; its log ends:\n{self.text()[-4000:]}")
            time.sleep(0.01)

    def received(self, kind):
        """How many messages of a kind ("SOLICIT") have reached the server."""
        return sum("DHCP6_PACKET_RECEIVED" in line and f": {kind} " in line for line in self.text().splitlines())

    def close(self):
        self.process.terminate()
        self.process.wait(TIMEOUT)
