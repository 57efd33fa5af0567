"""snoopd6 against packaged DHCPv6 relays."""

import contextlib
import subprocess
import time

from bench import lane, result, svg
from lab import calls, frames, netns
from lab.wire import Wire

TITLE = "CPU time of a message toward the servers, against packaged relays"
HOW = """\
The same SOLICITs of 2,048 clients, at a rate that all of them can take: through snoopd6, which forwards the message as it
is or, with option 18 and its layer-2 relay on, in a Relay-Forward; through `dnsmasq --dhcp-relay` and `dhcrelay -6` (quiet,
in the foreground, Debian's packages), which are layer-3 relays: they have an address on either side, receive the message on
a UDP socket, wrap it and send it to the server's address, and they keep no table of clients; dnsmasq looks each client up
in the kernel's neighbours, where all of them are. snoopd6 records the client, and reads and writes whole frames. In every
round each of them carries the same load, in an order that turns; CPU time as in `wire`. Every message that was sent has
come out as the message or Relay-Forward that was wanted, or is counted as lost."""

BURST, RATE = 32, 2000
SERVER_ADDRESS, CLIENT_SIDE, SERVER_SIDE = "2001:db8:2::2", "2001:db8:1::1", "2001:db8:2::1"
SILENCE = 2.5  # seconds; multicast listener reports of a new address are over then
PLAIN, WRAPPING = "snoopd6", "snoopd6, option 18 and relay header"


def _speaks(one):
    """The switch's machine gets IPv6 on both wires; server and clients are neighbours whom nobody needs to ask for: dnsmasq
    waits for the answer of a client whom it does not know."""
    name = one.switch.namespace
    one.switch.ip("link", "del", "br0")
    for port, address in (("p1", CLIENT_SIDE), ("p2", SERVER_SIDE)):
        netns.sysctl(name, f"net.ipv6.conf.{port}.disable_ipv6", 0)
        one.switch.ip("addr", "add", f"{address}/64", "dev", port, "nodad")
    client = "neigh replace fe80::210:ff:fe00:{0:x} lladdr 02:10:00:00:{1:02x}:{2:02x} dev p1 nud permanent\n"
    known = "".join(client.format(number, *divmod(number, 256)) for number in range(lane.CLIENTS))
    subprocess.run(netns.command(name, ["ip", "-6", "-batch", "-"]), input=known, text=True, check=True)
    neighbour = ["lladdr", one.switch.mac(lane.SERVER), "dev", "p2", "nud", "permanent"]
    one.switch.ip("-6", "neigh", "replace", SERVER_ADDRESS, *neighbour)


def _relay(one, line):
    _speaks(one)
    return one.run(line)


def _quiet(lanes):
    """Returns when no wire has had a frame of its own for a while."""
    end = time.monotonic() + 30
    counts, since = None, time.monotonic()
    while time.monotonic() - since < SILENCE and time.monotonic() < end:
        now = [one.arrived(lane.SERVER) for one in lanes]
        if now != counts:
            counts, since = now, time.monotonic()
        time.sleep(0.1)


def _expect(one, kind):
    """What comes out for a SOLICIT is a message of this kind, and the SOLICIT is in it."""
    wire = Wire(one.switch.host(lane.SERVER), "eth0")
    try:
        lane.generate("solicit", one.where(lane.CLIENT), 1, 1, 1000).wait()
        out = [frame for frame in wire.until(lambda: any(map(frames.dhcp_kind, wire.seen)), 5) if frames.dhcp_kind(frame)]
        if [frames.dhcp_kind(frame) for frame in out] != [kind]:
            raise SystemExit(f"bench/run: {one.name} answers a SOLICIT with {[frames.dhcp_kind(frame) for frame in out]}")
        if kind == frames.RELAY_FORW:
            inner = dict(frames.options(frames.read(out[0])["payload"][34:]))[9]
            if inner[0] != frames.SOLICIT:
                raise SystemExit(f"bench/run: {one.name} relays a message of type {inner[0]}")
    finally:
        wire.close()


def answer(effort):
    rounds, count = effort(5, 1), effort(3, 0.5) * RATE
    names = ((PLAIN, "r1-"), (WRAPPING, "r2-"), ("dnsmasq", "r3-"), ("dhcrelay", "r4-"))
    with contextlib.ExitStack() as stack:
        lanes = [lane.Lane(*pair) for pair in names]
        for one in lanes:
            stack.callback(one.close)
        lanes[0].snoop()
        lanes[1].snoop((calls.L2_RELAY, 1), (calls.OPTION18, 1))
        _relay(lanes[2], [
            "dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--port=0", "--user=root", "--pid-file=",
            "--log-facility=/dev/null", "--quiet-dhcp6", f"--dhcp-relay={CLIENT_SIDE},{SERVER_ADDRESS},p2",
        ])  # fmt: skip
        _relay(lanes[3], ["dhcrelay", "-6", "-d", "-q", "--no-pid", "-l", "p1", "-u", f"{SERVER_ADDRESS}%p2"])
        _quiet(lanes[2:])
        for one, kind in zip(lanes, (frames.SOLICIT, *[frames.RELAY_FORW] * 3)):
            _expect(one, kind)
            one.carry("solicit", lane.CLIENTS, BURST, RATE)
        taken = lane.rounds(lanes, rounds, lambda one: one.cost("solicit", int(count), BURST, RATE))
        return _answer(taken, {one.name: one.lost for one in lanes}, rounds, int(count))


def _answer(taken, lost, rounds, count):
    rows, bars = [], []
    for name, costs in taken.items():
        cost, ratio = result.spread(costs), result.ratios(costs, taken[PLAIN])
        compared = "" if name == PLAIN else f"{ratio.text(digits=1)} ({ratio.range(digits=1)})"
        rows.append([name, cost.text(0.001, 1), cost.range(0.001, 1), f"{1e9 / cost.middle:,.0f}", compared, str(lost[name])])
        bars.append(cost.bar(name, 0.001, 1, 0 if name.startswith(PLAIN) else 1))
    columns = ["", "CPU us a message", "lowest to highest", "messages a CPU-second", "to snoopd6", "lost"]
    carried = f"{rounds} rounds of {count:,} messages, bursts of {BURST} at {RATE:,} a second."
    return result.Answer([result.Table(columns, rows)], [svg.Bars("CPU time of a message", "us", bars)], [carried])
