"""Real DHCPv6 clients on the host behind a port. Each keeps its leases and its configuration in folders of its own; `speak`
must have given the host its IPv6 stack."""

import itertools
import os
import pathlib
import re
import signal
import subprocess
import time

from . import netns, patience

TIMEOUT = patience.seconds(30.0)
_numbers = itertools.count(1)


class Client:
    """A client process. The subclasses say how it is started."""

    name = ""
    folders = ()

    def __init__(self, switch, port, script, *arguments):
        self.switch, self.port = switch, port
        self.log = pathlib.Path("/run") / f"{switch.prefix}{self.name}{port}-{next(_numbers)}.log"
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(
                netns.command(switch.host(port), ["sh", "-c", script, self.name, *arguments], self.folders),
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT,
            )  # fmt: skip

    def text(self):
        return self.log.read_text(errors="replace")

    def inside(self, *arguments):
        """Runs a program in the client's own folders and network."""
        line = ["nsenter", "-t", str(self.process.pid), "--net", "--mount", *arguments]
        done = subprocess.run(line, capture_output=True, text=True, timeout=TIMEOUT, check=False)
        if done.returncode != 0:
            raise AssertionError(f"{' '.join(arguments)}: {done.stdout}{done.stderr}")

    def wait(self, condition, what, timeout=TIMEOUT):
        end = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > end:
                raise AssertionError(f"{self.name} on port {self.port}: not within {timeout:.0f} s: {what}\n{self.text()}")
            time.sleep(0.02)

    def address(self, timeout=TIMEOUT):
        """Waits for a global address and returns it."""
        self.wait(lambda: self.switch.addresses(self.port), "a global address", timeout)
        return self.switch.addresses(self.port)[0]

    def read(self, path):
        """A file in the client's own folders; empty when it is not there yet."""
        try:
            return pathlib.Path(f"/proc/{self.process.pid}/root{path}").read_text(errors="replace")
        except OSError:
            return ""

    def freeze(self):
        """The client is gone from the network without a word."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait(TIMEOUT)

    close = freeze


class Dhclient(Client):
    """ISC dhclient. `what` has -N for an address, -P for a prefix."""

    name = "dhclient"
    folders = ("/etc/dhcp", "/var/lib/dhcp", "/run")
    leases = "/var/lib/dhcp/dhclient6.leases"

    def __init__(self, switch, port, what=("-N",)):
        self.what = what
        script = f'echo "request;" >/etc/dhcp/dhclient.conf && exec dhclient -6 -d -v -lf {self.leases} "$@" eth0'
        super().__init__(switch, port, script, *what)

    def prefix(self, timeout=TIMEOUT):
        """Waits for a delegated prefix and returns it."""
        self.wait(lambda: "iaprefix" in self.read(self.leases), "a delegated prefix", timeout)
        return re.findall(r"iaprefix (\S+)", self.read(self.leases))[-1]

    def renewed(self):
        return self.text().count("XMT: Renew")

    def release(self):
        """Gives the lease back and ends."""
        self.inside("dhclient", "-6", "-r", "-lf", self.leases, *self.what, "eth0")
        self.process.wait(TIMEOUT)


class Dhcpcd(Client):
    """dhcpcd, with an address and a prefix. It runs without a user of its own, which a user namespace does not have."""

    name = "dhcpcd"
    folders = ("/var/lib/dhcpcd", "/run")

    def __init__(self, switch, port):
        lines = "duid ll\\nipv6only\\nnoipv6rs\\nnodev\\npersistent\\ninterface eth0\\nia_na 1\\nia_pd 2/2001:db8::/56\\n"
        script = (
            'grep -v "^_*dhcpcd:" /etc/passwd >/run/passwd && mount --bind /run/passwd /etc/passwd && '
            f'printf "{lines}" >/run/dhcpcd.conf && exec dhcpcd -B -d -f /run/dhcpcd.conf --script /bin/true eth0'
        )
        super().__init__(switch, port, script)

    def prefix(self, timeout=TIMEOUT):
        self.wait(lambda: re.search(r"eth0: delegated prefix (\S+)", self.text()), "a delegated prefix", timeout)
        return re.findall(r"eth0: delegated prefix (\S+)", self.text())[-1]

    def release(self):
        """Gives the lease back and ends."""
        os.kill(self.process.pid, signal.SIGALRM)
        self.process.wait(TIMEOUT)
