"""What a packet costs on its way across the bridge, by a guarded port and by an open one.

Each build has a switch of its own: hosts 1 and 3 send, port 1 is guarded, port 3 is open, and all packets go to host 2. In the
emulated machine this file is a program, `python3 -m bench.crossing ENTRIES ROUNDS PACKETS`, and counts instructions."""

import contextlib
import dataclasses
import json
import os
import struct
import subprocess
import sys
import time

from bench import crowd, emulated, lane
from lab import calls, frames, netns, patience
from lab.daemon import ANY_MAC, switch_file
from lab.switch import BRIDGE
from lab.wire import Wire

GUARDED, TARGET, OPEN = 1, 2, 3  # ports
VLAN, INNER = 10, (5, frames.ETH_8021Q)
NOW, BEFORE = "now", "before"  # builds
TARGET_MAC, TARGET_ADDRESS = "02:0c:ff:00:00:02", "2001:db8:f::2"
ADDRESSES = "2001:db8:b::"  # prefix of the sources; the last four bytes hold a source's number
AGEING = 10_000_000  # centiseconds: longer than a run, also where time is virtual
ETH_IPV4, ICMPV6, NEIGHBOUR_SOLICITATION = 0x0800, 58, 135
DISCOVERY = 1600  # packets at once: fewer than the guard lets a port send in a burst
REFILL = 2.0  # seconds, until it lets so many pass again


def _first_mac(port):
    """Returns the MAC address of the port's source number 0; the last four bytes hold the number."""
    return "02:0c:00:00:00:00" if port == GUARDED else "02:0d:00:00:00:00"


def _host_mac(port):
    """Returns the MAC address of the one station that sends all packets where their MAC addresses do not differ."""
    return _first_mac(port)[:-1] + "1"


def _udp(mac, tags):
    segment = frames.udp(ADDRESSES, TARGET_ADDRESS, 9, 9, bytes(64))
    return frames.ethernet(TARGET_MAC, mac, frames.ipv6(ADDRESSES, TARGET_ADDRESS, frames.UDP, segment), tags=tags)


def _solicitation(mac, tags):
    source, target = frames.link_local(mac), frames.link_local(TARGET_MAC)
    segment = struct.pack("!BBHI", NEIGHBOUR_SOLICITATION, 0, 0, 0) + frames.ip_bytes(target) + b"\1\1" + frames.mac_bytes(mac)
    return frames.ethernet(TARGET_MAC, mac, frames.ipv6(source, target, ICMPV6, segment, 255), tags=tags)


def _ipv4(mac, tags):
    head = struct.pack("!BBHIBBH", 0x45, 0, 20 + 72, 0, 64, frames.UDP, 0) + bytes((192, 0, 2, 1, 192, 0, 2, 2))
    head = head[:10] + struct.pack("!H", 0xFFFF - frames.checksum(head)) + head[12:]
    return frames.ethernet(TARGET_MAC, mac, head + struct.pack("!HHHH", 9, 9, 72, 0) + bytes(64), ETH_IPV4, tags)


@dataclasses.dataclass(frozen=True)
class Way:
    """A packet, and what it has to be bound by to pass a guarded port."""

    words: str
    bound: str = ""  # "lease", "port" and MAC address, "mac" or "address"; nothing for what passes without
    vlan: int = 0  # of the binding, 0 for any
    tags: tuple = ()
    make: object = _udp  # the frame of a MAC address and tags
    burst: int = 0  # most packets at once, 0 for any number

    def load(self, port, sources):
        """Returns the arguments of packet_gen, from the frame on."""
        address = 14 + 4 * len(self.tags) + 8 + 12  # its last four bytes
        offsets = {"": (), "address": (address,)}.get(self.bound, (8, address))
        mac = _first_mac(port) if len(offsets) == 2 else _host_mac(port)
        words = [self.make(mac, self.tags).hex()]
        return [*words, str(sources), *map(str, offsets)] if offsets else words


WAYS = (
    Way("leased, no tag", "lease", 1),
    Way("leased, one tag", "lease", VLAN, (VLAN,)),
    Way("leased, two tags", "lease", VLAN, (VLAN, INNER)),
    Way("bound by address only, no tag", "address"),
    Way("bound by address only, two tags", "address", tags=(VLAN, INNER)),
    Way("bound by port and MAC address, no tag", "port"),
    Way("bound by port and MAC address, two tags", "port", tags=(VLAN, INNER)),
    Way("bound by MAC address, no tag", "mac"),
    Way("bound by MAC address, two tags", "mac", tags=(VLAN, INNER)),
    Way("neighbour solicitation, not bound", make=_solicitation, burst=DISCOVERY),
    Way("IPv4", make=_ipv4),
)


class Crossing:
    """A build's daemon on its switch."""

    def __init__(self, build, running):
        self.build, self.running, self.switch = build, running, running.switch
        self.bound = 0
        running.guard(GUARDED)
        self._teach()

    def _teach(self):
        """The bridge learns where the packets go to, so that they are not flooded, and forgets no station. Nobody listens there
        afterwards, because a packet that is queued for somebody costs more."""
        self.switch.ip("link", "set", BRIDGE, "type", "bridge", "ageing_time", str(AGEING))
        wire = Wire(self.switch.host(TARGET), "eth0")
        wire.send(frames.ethernet("ff:ff:ff:ff:ff:ff", TARGET_MAC, bytes(46), frames.ETH_MARKER))
        wire.close()
        known = ("bridge", "fdb", "show", "br", BRIDGE)
        self.running.until(lambda: TARGET_MAC in netns.run(self.switch.namespace, *known), "the bridge learns the target")

    def _arrived(self):
        status = netns.run(self.switch.host(TARGET), "ip", "-j", "-s", "link", "show", "eth0")
        return json.loads(status)[0]["stats64"]["rx"]["packets"]

    def send(self, way, port, sources, count, arriving=True):
        """Sends packets and returns how many nanoseconds they took together. All of them must arrive, or none."""
        if way.burst:
            time.sleep(REFILL)
        before, expected = self._arrived(), count if arriving else 0
        line = [lane.tool("packet_gen"), f"{self.switch.host(port)}/eth0", str(count), *way.load(port, sources)]
        done = subprocess.run(line, stdout=subprocess.PIPE, text=True, check=True, preexec_fn=lane.sender)
        came = lane.settle(self._arrived, before + expected, patience.seconds(5)) - before
        if came != expected:
            raise SystemExit(f"bench/run: {way.words}, {self.build}: of {count} packets {came} have arrived, not {expected}")
        return float(done.stdout) * count

    def bind(self, way, count):
        """Binds further sources, until there are so many."""
        for number in range(self.bound + 1, count + 1):
            mac = ANY_MAC if way.bound == "address" else frames.mac_number(number)
            port = GUARDED if way.bound in ("lease", "port") else 0
            self.running.bind(f"{ADDRESSES}{number >> 16:x}:{number & 0xFFFF:x}", mac, port, way.vlan)
        self.bound = count

    def unbind(self):
        assert calls.call(self.running.link, calls.UNBIND_ALL)[0] == self.bound
        self.bound = 0


def builds():
    """Returns the build folders to measure, by name."""
    before = os.environ.get("SNOOPD6_BEFORE")
    return {NOW: os.environ["SNOOPD6_BUILD"]} | ({BEFORE: before} if before else {})


@contextlib.contextmanager
def crossings():
    """Starts the daemon of each build on a switch of its own; the tools are always this build's."""
    with contextlib.ExitStack() as stack:
        made = []
        for build, folder in builds().items():
            with lane.built(folder):
                text = switch_file(range(1, 5), extra=f"vlans = [1, {VLAN}]\n")
                made.append(Crossing(build, stack.enter_context(crowd.daemon(f"x{len(made)}-", text=text))))
        yield made


def _groups():
    """Returns the ways grouped by the bindings that let them pass; those that need none come last."""
    groups = {}
    for way in WAYS:
        groups.setdefault((way.bound, way.vlan) if way.bound else None, []).append(way)
    return groups


def measured(entries, rounds, cost):
    """Measures each way with each number of entries, on the open and the guarded port of each build, round by round. Returns
    a list of (words, entries, {build: {"open": costs, "guarded": costs}}), in the order of WAYS. A way that needs no binding is
    measured once, with the most entries, and has None there."""
    rows = []
    with crossings() as made:
        bound = None
        for key, ways in _groups().items():
            if key is not None:
                bound = ways[0]
                for crossing in made:
                    crossing.unbind()
                    for way in ways:
                        crossing.send(way, GUARDED, 1, 64, arriving=False)
            for count in entries if key is not None else entries[-1:]:
                for crossing in made:
                    crossing.bind(bound, count)
                shown = count if key is not None else None
                rows += [(way.words, shown, _rounds(made, way, count, rounds, cost)) for way in ways]
    order = [way.words for way in WAYS]
    return sorted(rows, key=lambda row: order.index(row[0]))


def _rounds(made, way, count, rounds, cost):
    taken = {crossing.build: {"open": [], "guarded": []} for crossing in made}
    for crossing in made:
        for port in (OPEN, GUARDED):
            crossing.send(way, port, count, way.burst or count)  # the bridge learns all sources
    for turn in range(rounds):
        places = [(crossing, name, port) for crossing in made for name, port in (("open", OPEN), ("guarded", GUARDED))]
        for crossing, name, port in places[turn % len(places) :] + places[: turn % len(places)]:
            taken[crossing.build][name].append(cost(crossing, way, port, count))
    return taken


def nanoseconds(packets):
    """Returns a `cost` for `measured`: nanoseconds of a packet."""

    def cost(crossing, way, port, count):
        sent = way.burst or packets
        return crossing.send(way, port, count, sent) / sent

    return cost


def instructions(packets):
    """Returns one for the emulated machine: what the second half of a load adds, without the cost of starting and ending it."""

    def cost(crossing, way, port, count):
        half = way.burst // 2 or packets
        whole = crossing.send(way, port, count, 2 * half)
        return emulated.instructions(whole - crossing.send(way, port, count, half)) / half

    return cost


if __name__ == "__main__":
    entries, rounds, packets = map(json.loads, sys.argv[1:])
    print(json.dumps({"kernel": os.uname().release, "rows": measured(entries, rounds, instructions(packets))}))
