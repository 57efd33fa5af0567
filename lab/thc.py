"""A second attacker: the host behind a port runs programs of thc-ipv6. Many of them never end, so each is killed, by its
process id, as soon as it has sent enough."""

import subprocess
import time

from . import frames, netns, patience
from .frames import AUTHENTICATION, DESTINATION, FRAGMENT, HOP_BY_HOP, ROUTING
from .neighbours import ICMP6
from .storm import carried
from .wire import Wire

TIMEOUT = patience.seconds(30.0)
POLL = 0.005


class Attacker:
    """The host behind the port; everything that its cable brings to the switch is kept in `sent`."""

    def __init__(self, switch, port, **words):
        """`words` may be named in braces in the arguments of programs; so may `me`, the attacker's link-local address."""
        self.switch, self.port = switch, port
        self.name = switch.speak(port)
        self.words = {"me": frames.link_local(switch.mac(port)), **words}
        self.tap = Wire(switch.namespace, f"p{port}")

    def start(self, tool, *arguments):
        line = [f"atk6-{tool}", *(argument.format(**self.words) for argument in arguments)]
        pipes = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        return subprocess.Popen(netns.command(self.name, line), **pipes)

    def _carried(self):
        return carried(self.switch, self.port)[0]

    def run(self, enough, *commands):
        """Runs the commands at once, until all of them have ended or enough frames have been sent. The kernel counts the
        frames: a flood comes faster than they could be read here."""
        start, end = self._carried(), time.monotonic() + TIMEOUT
        running = [self.start(*command) for command in commands]
        try:
            while any(one.poll() is None for one in running) and self._carried() - start < enough:
                assert time.monotonic() < end, f"{commands}: {self._carried() - start} frames, {enough} are wanted"
                time.sleep(POLL)
        finally:
            for one in running:
                self.stop(one)
        self.tap.until(lambda: True)  # before the next flood, which might not find room

    @staticmethod
    def stop(process):
        process.kill()
        process.wait(TIMEOUT)

    def sent(self):
        """Returns what the switch got since the last call, without frames from a group's MAC: a bridge drops them at once."""
        return [frame for frame in self.tap.take() if not frame[6] & 1]

    def close(self):
        self.tap.close()


def message_type(packet):
    """Returns the ICMPv6 type of an IPv6 packet, after any extension headers; None for another protocol, a later fragment,
    and a chain that is cut."""
    following, at = packet[6], 40
    while following in (HOP_BY_HOP, ROUTING, FRAGMENT, DESTINATION, AUTHENTICATION) and at + 8 <= len(packet):
        if following == FRAGMENT and int.from_bytes(packet[at + 2 : at + 4], "big") >> 3:
            return None
        length = {FRAGMENT: 8, AUTHENTICATION: (packet[at + 1] + 2) * 4}.get(following, (packet[at + 1] + 1) * 8)
        following, at = packet[at], at + length
    return packet[at] if following == ICMP6 and at < len(packet) else None
