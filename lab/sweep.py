"""The sweep sends every case of `encapsulations` from one port to a real host on another port. The host's kernel unwraps what
it can, and its sockets show which datagrams arrive: on an open switch, through the trap, and through the guard.

    python3 -m lab.sandbox python3 -m lab.sweep      # prints the table of docs/encapsulations.md, after ./test build
"""

import functools
import itertools
import pathlib
import socket
from dataclasses import dataclass, field

from . import calls, encapsulations, flow, frames, netns
from .daemon import Daemon
from .switch import Switch
from .wire import RECEIVE_BUFFER, SO_RCVBUFFORCE

ROGUE_PORT, VICTIM_PORT, UPLINK = 2, 1, 4
ROGUE = "02:bb:00:00:00:02"
PLAIN_PORT = 5000  # of the victim's socket that is not DHCPv6's
VICTIM_GLOBAL, BOUND, UNBOUND = "2001:db8::1:1", "2001:db8::b", "2001:db8::bad:1"
CHUNK = 128  # cases; as many fit into a socket's buffer of the usual size
# Rows with later fragments that the kernel forwards, and the daemon counts as malformed all the same.
COUNTED_TOO = {"The same with a later fragment's header", "Fragments in fragments"}
MARKERS = 2  # messages of `flow.settle` that the daemon gets by the sending port


def server_message(number, source, destination):
    """What a rogue server sends: ADVERTISE or REPLY with an address of its own."""
    kind = frames.REPLY if number % 2 else frames.ADVERTISE
    body = frames.message(kind, number, frames.ia_na(["2001:db8:bad::1"]))
    return frames.udp(source, destination, frames.SERVER_PORT, frames.CLIENT_PORT, body)


def plain_datagram(number, source, destination):
    """Data. Read as ICMPv6, the source port is a neighbour solicitation's type and code."""
    return frames.udp(source, destination, 135 << 8, PLAIN_PORT, b"\0" + number.to_bytes(3, "big") + bytes(52))


class Victim:
    """The host: its kernel's IPv6 stack, and a socket for each kind of datagram."""

    def __init__(self, switch, port=VICTIM_PORT):
        self.port, self.mac = port, switch.mac(port)
        name = switch.speak(port)
        netns.run(name, "ip", "addr", "add", f"{VICTIM_GLOBAL}/128", "dev", "eth0", "nodad")
        netns.sysctl(name, "net.ipv6.ip6frag_high_thresh", RECEIVE_BUFFER)  # unfinished datagrams are kept for a minute
        netns.run(switch.namespace, "bridge", "fdb", "replace", self.mac, "dev", f"p{port}", "master", "static")
        self.link_local = frames.link_local(self.mac)
        with netns.entered(name):
            self.sockets = [self._socket(number) for number in (frames.CLIENT_PORT, PLAIN_PORT)]

    @staticmethod
    def _socket(port):
        made = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
        try:
            made.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
        except PermissionError:  # in a user namespace the usual size has to do
            pass
        made.bind(("::", port))
        made.setblocking(False)
        return made

    def take(self):
        """The numbers of the cases whose datagrams have arrived since the last call."""
        taken = []
        for one in self.sockets:
            while True:
                try:
                    taken.append(int.from_bytes(one.recv(2048)[1:4], "big"))
                except BlockingIOError:
                    break
        return taken

    def sender(self, segment, source):
        return encapsulations.Sender(ROGUE, source, self.mac, self.link_local, VICTIM_GLOBAL, BOUND, segment)

    def close(self):
        for one in self.sockets:
            one.close()


@dataclass
class Tally:
    """What became of the cases of a row."""

    cases: int = 0
    frames: int = 0
    forwarded: int = 0  # frames that came out of the victim's port
    arrived: list = field(default_factory=list)  # names of the cases whose datagram reached a socket


def trap_count(daemon):
    """How many frames of the rogue's the daemon has taken or dropped."""
    counters = daemon.counters(ROGUE_PORT)
    return counters["delivered"] + sum(count for name, count in counters.items() if name.startswith("drop"))


def guard_count(daemon):
    """How many frames of the rogue's the guard has dropped."""
    guarded = daemon.guarded(ROGUE_PORT)
    return sum(count for name, count in guarded.items() if name not in ("guarded", "installed"))


def _chunks(cases):
    """The numbered cases in pieces of one row each."""
    for _, row in itertools.groupby(cases, key=lambda item: item[1].row):
        row = list(row)
        yield from (row[at : at + CHUNK] for at in range(0, len(row), CHUNK))


class Sweep:
    """Sends cases from the rogue's port to the victim."""

    def __init__(self, switch, sent=None, leaving=lambda frame: frame):
        """`sent` sends and gathers as flow.sent does; `leaving` returns the frame as it looks on the victim's cable."""
        self.victim = Victim(switch)
        self.sent = sent or functools.partial(flow.sent, switch)
        self.leaving = leaving

    def run(self, cases, segment, source, trusted=(), count=None, markers=0):
        """Sends the cases and returns a Tally for each row. `count` returns how many of the rogue's frames the daemon has
        counted so far: each frame must be forwarded or counted once. Of each chunk `markers` are counted in addition."""
        sender, tallies = self.victim.sender(segment, source), {}
        self.victim.take()
        for chunk in _chunks(enumerate(cases, 1)):
            sending = [frame for number, case in chunk for frame in case.frames(sender, number)]
            before = count() if count else 0
            forwarded = self._forwarded(sending, self.sent(ROGUE_PORT, *sending, trusted=trusted))
            if count:
                accounted = forwarded + count() - before - markers
                exact = accounted == len(sending) or (accounted > len(sending) and chunk[0][1].row in COUNTED_TOO)
                assert exact, f"{chunk[0][1].name} ... {chunk[-1][1].name}: {len(sending)} sent, {forwarded=}, {accounted=}"
            tally = tallies.setdefault(chunk[0][1].row, Tally())
            tally.cases += len(chunk)
            tally.frames += len(sending)
            tally.forwarded += forwarded
            names = {number: case.name for number, case in chunk}
            tally.arrived += sorted({names[number] for number in self.victim.take()})
        return tallies

    def _forwarded(self, sending, found):
        """Returns how many frames came out of the victim's port. They must be frames that were sent, byte for byte, and nothing
        but multicast may come out of another port."""
        known = {self.leaving(frame) for frame in sending}
        for port, seen in found.items():
            for frame in (frame for frame in seen if frame[6:12] == frames.mac_bytes(ROGUE)):
                assert frame[0] & 1 if port != VICTIM_PORT else frame in known, (port, frame.hex())
        return len(found.get(VICTIM_PORT, []))

    def open(self, cases):
        """The tallies of a switch without a daemon's rules: of server messages, and of plain datagrams."""
        return self.run(cases, server_message, frames.link_local(ROGUE)), self.run(cases, plain_datagram, UNBOUND)

    def trapped(self, cases, daemon):
        """The tallies of server messages into an untrusted port while snooping is on."""
        daemon.snoop(UPLINK)
        source = frames.link_local(ROGUE)
        tallies = self.run(cases, server_message, source, (UPLINK,), lambda: trap_count(daemon), MARKERS)
        daemon.call(calls.STOP)
        return tallies

    def guarded(self, cases, daemon):
        """The tallies of plain datagrams into a guarded port while snooping is off."""
        daemon.guard(ROGUE_PORT).bind(BOUND)
        tallies = self.run(cases, plain_datagram, UNBOUND, count=lambda: guard_count(daemon))
        daemon.unbind(BOUND)
        daemon.guard(ROGUE_PORT, mode=calls.GUARD_OFF)
        return tallies

    def close(self):
        self.victim.close()


# ---- The table of the document ---------------------------------------------------------------------------------------------

DOCUMENT = pathlib.Path(__file__).resolve().parent.parent / "docs" / "encapsulations.md"
BEGIN, END = "<!-- measured -->\n", "<!-- /measured -->\n"
COLUMNS = (
    "what is sent", "cases", "a host takes", "trap: frames passing", "a host takes", "guard: frames passing", "a host takes",
    "why",
)  # fmt: skip
READABLE = "the trap holds back a chain that it cannot read; the guard looks at the source alone"
HELD_FIRST = "the trap holds back the first fragment; the others are useless without it"
SOURCE = "the trap does not look at the source; the guard has no binding for it"
NO_HOST = "the trap does not look at the source; the guard never has a binding for it"
TAGS = "both read a packet after one tag and after two"
FOUR = "the trap holds back everything from four tags on, the guard blocks it from three on"
WHY = {
    "Each other number as next header": "the trap passes 26 numbers of other protocols, and what looks like a later fragment",
    "UDP directly": "what every DHCPv6 server sends",
    "1 to 3 extension headers, none of a fragment": READABLE,
    "The same with an atomic fragment's header": READABLE,
    "The same with a first fragment's header": READABLE,
    "The same with a later fragment's header": "a later fragment passes the trap; it is useless without the first one",
    "A datagram in fragments": HELD_FIRST,
    "Fragments in fragments": HELD_FIRST,
    "Fragments that overlap": "the trap reads the first one alone; hosts drop such a datagram (RFC 5722)",
    "Wrong lengths": "ports and source are where they always are",
    "Bytes after the packet": "ports and source are where they always are",
    "1 or 2 tags, VLAN 0 only": TAGS,
    "1 or 2 tags, another VLAN": f"{TAGS}; this host has no VLAN interface",
    "3 tags, VLAN 0 only": "the trap reads a packet after three tags, too; the guard blocks it",
    "3 tags, another VLAN": "the trap reads a packet after three tags, too; the guard blocks it",
    "4 to 9 tags, VLAN 0 only": FOUR,
    "4 to 9 tags, another VLAN": FOUR,
    "A tag of type 0x9100 after 0 to 3 others": "payload to Linux; the guard blocks it, for equipment that reads a tag there",
    "A tag of type 0x9100 after 4 or more others": FOUR,
    "IPv6 in 802.3 LLC/SNAP": "Linux has no IPv6 there; a bridge to another medium may make an ordinary frame of it",
    "A tag in 802.3 LLC/SNAP": "the same",
    "Other 802.3 LLC frames": "spanning tree and others need them; the guard blocks three tags",
    "IPv6 in other types": "PPPoE, MPLS, 802.1ah, 0x9200, 0x9300, IPv4's: not read; the guard blocks three tags",
    "Source `::`": NO_HOST,
    "Source `::1`": NO_HOST,
    "Source multicast": NO_HOST,
    "Source IPv4-mapped": NO_HOST,
    "Source IPv4-compatible": SOURCE,
    "Source link-local": SOURCE,
    "Source global, unbound": SOURCE,
    "Source unique local, unbound": SOURCE,
    "Source bound": "the guard lets in what is bound; the trap does not look at the source",
    "Source bound, 3 tags": "the guard blocks three tags, whatever is bound",
    "The host's address at a group's MAC address": "neither looks at the destination",
}


def table(taken, trap, guard):
    """The table, from the tallies of an open switch, a trapped port and a guarded port."""
    lines = [f"| {' | '.join(COLUMNS)} |\n|---{'|---:' * (len(COLUMNS) - 2)}|---|\n"]
    for row, tally in taken.items():
        cells = [row, f"{tally.cases:,}", f"{len(tally.arrived):,}"]
        for passing in (trap[row], guard[row]):
            cells += [f"{passing.forwarded:,} of {passing.frames:,}", f"{len(passing.arrived):,}"]
        lines.append(f"| {' | '.join([*cells, WHY[row]])} |\n")
    return "".join(lines)


def documented():
    """The table that is in the document."""
    return DOCUMENT.read_text().split(BEGIN)[1].split(END)[0]


def main():
    switch = Switch()
    daemon = Daemon(switch).start()
    sweep = Sweep(switch)
    try:
        cases = encapsulations.cases()
        taken, _ = sweep.open(cases)
        print(table(taken, sweep.trapped(cases, daemon), sweep.guarded(cases, daemon)), end="")
    finally:
        sweep.close()
        daemon.close()
        switch.close()


if __name__ == "__main__":
    main()
