"""What the source guard costs."""

import json
import subprocess

from bench import crowd, lane, result, svg
from lab import calls, frames, netns

TITLE = "The source guard: changing filters, and passing them"
HOW = """\
Filters: 2,048 clients with an address each behind one port. Each change is timed at the caller (a Python program) from the
remote call to its answer, so that it holds the caller, the daemon and the kernel; beside it stands what `nft_raw` takes,
which only commits elements to a set in the kernel, one transaction each, in the same namespace and run. Bridge: a bound
source sends through the guarded port; the sender's processor does all the work up to the far end, so that the time of a
packet is the time of the way. Rounds with an open port and with a guarded one take turns. All packets have arrived."""

BINDINGS = 256  # added and removed one by one in a round
ENTRIES = (10, 2048, 20000)
SOURCE_MAC, SOURCE, TARGET_MAC, TARGET = "02:0c:ff:00:00:01", "2001:db8:f::1", "02:0c:ff:00:00:02", "2001:db8:f::2"
WORDS = {
    "add": "install one binding", "remove": "remove one binding", "on": "port with 2,048 leases on",
    "off": "port with 2,048 leases off", "delete_all": "delete all 2,048 clients",
}  # fmt: skip


def _address(number):
    return frames.ip_bytes(f"2001:db8:b::{number + 1:x}")


def _changes(running, rounds):
    taken = {name: [] for name in WORDS}
    raws = []
    for _ in range(rounds):
        crowd.learn(running, "address")
        taken["on"].append(crowd.timed(running.call, calls.GUARD, 1, calls.GUARD_ON))
        if sum(running.filters().values()) != crowd.CLIENTS:
            raise SystemExit(f"bench/run: the kernel has {sum(running.filters().values())} filters")
        for number in range(BINDINGS):
            taken["add"].append(crowd.timed(running.call, calls.BIND, _address(number), bytes(6), 1, 1))
        for number in range(BINDINGS):
            taken["remove"].append(crowd.timed(running.call, calls.UNBIND, _address(number)))
        taken["off"].append(crowd.timed(running.call, calls.GUARD, 1, calls.GUARD_OFF))
        running.guard(1)
        taken["delete_all"].append(crowd.timed(running.call, calls.DELETE_ALL))
        running.guard(1, mode=calls.GUARD_OFF)
        raws.append(json.loads(netns.run(running.switch.namespace, lane.tool("nft_raw"), str(crowd.CLIENTS))))
    return taken, raws


def _changes_answer(taken, raws):
    rows, singles, many = [], [], []
    for name, words in WORDS.items():
        count, raw = (1, name) if name in ("add", "remove") else (crowd.CLIENTS, "add" if name == "on" else "remove")
        whole, alone = result.spread(taken[name]), result.spread([one[raw] * count for one in raws])
        scale, digits, panel, unit = (1e-3, 1, singles, "us") if count == 1 else (1e-6, 2, many, "ms")
        rows.append([words, f"{whole.text(scale, digits)} {unit}", whole.range(scale, digits)])
        rows[-1] += [f"{alone.text(scale, digits)} {unit}", f"{whole.middle / alone.middle:.1f}"]
        panel.append(whole.bar(words, scale, digits))
        panel.append(alone.bar("kernel alone", scale, digits, 4))
    together = {name: result.spread([one[f"{name}_all"] for one in raws]) for name in ("add", "remove")}
    remark = f"All {crowd.CLIENTS:,} elements in one transaction take the kernel {together['add'].text(1e-6, 2)} ms to add and "
    remark += f"{together['remove'].text(1e-6, 2)} ms to remove."
    columns = ["change", "whole stack", "lowest to highest", "kernel alone, one by one", "ratio"]
    panels = [svg.Bars("One filter", "us", singles), svg.Bars("2,048 filters", "ms", many)]
    return result.Table(columns, rows, "Filters"), panels, remark


def _packet():
    segment = frames.udp(SOURCE, TARGET, 9, 9, bytes(64))
    return frames.ethernet(TARGET_MAC, SOURCE_MAC, frames.ipv6(SOURCE, TARGET, frames.UDP, segment)).hex()


def _arrived(switch):
    status = netns.run(switch.host(2), "ip", "-j", "-s", "link", "show", "eth0")
    return json.loads(status)[0]["stats64"]["rx"]["packets"]


def _cross(switch, count):
    """Nanoseconds of a packet from host 1 to port 2; all of them must arrive."""
    before = _arrived(switch)
    line = [lane.tool("packet_gen"), f"{switch.host(1)}/eth0", str(count), _packet()]
    done = subprocess.run(line, stdout=subprocess.PIPE, text=True, check=True, preexec_fn=lane.sender)
    came = lane.settle(lambda: _arrived(switch), before + count, 5) - before
    if came != count:
        raise SystemExit(f"bench/run: of {count} packets {came} have arrived")
    return float(done.stdout)


def _teach(switch):
    """The bridge learns where the packets go to, so that they are not flooded."""
    switch.wire(2).send(frames.ethernet("ff:ff:ff:ff:ff:ff", TARGET_MAC, bytes(46), frames.ETH_MARKER))
    lane.settle(lambda: int(TARGET_MAC in netns.run(switch.namespace, "bridge", "fdb", "show", "br", "br0")), 1)


def _bridge(running, rounds, packets, entries):
    _teach(running.switch)
    costs = {0: []}
    for count in entries:
        running.bind(SOURCE, SOURCE_MAC, 1, 1)
        crowd.bind(running, count - 1, port=1, vlan=1)
        costs[count] = []
        for _ in range(rounds):
            costs[0].append(_cross(running.switch, packets))
            running.guard(1)
            costs[count].append(_cross(running.switch, packets))
            running.guard(1, mode=calls.GUARD_OFF)
        assert calls.call(running.link, calls.UNBIND_ALL)[0] == count
    return costs


def _bridge_answer(costs):
    rows, bars, base = [], [], result.spread(costs[0])
    for entries, taken in costs.items():
        name = f"{entries:,} entries" if entries else "none, port open"
        cost, rate = result.spread(taken), result.spread([1e6 / one for one in taken])
        rows.append([name, cost.text(), cost.range(), f"{1e9 / cost.middle:,.0f}", f"{base.middle / cost.middle:.2f}"])
        bars.append(rate.bar(name, digits=0))
    columns = ["filters of the port", "ns a packet", "lowest to highest", "packets a second", "to an open port"]
    panel = svg.Bars("Across the bridge", "thousand packets a second", bars)
    return result.Table(columns, rows, "Packets across the bridge"), panel


def answer(effort):
    rounds = effort(5, 1)
    with crowd.daemon("g1-") as running:
        table, panels, remark = _changes_answer(*_changes(running, rounds))
        costs = _bridge(running, rounds, effort(200_000, 20_000), effort(ENTRIES, ENTRIES[:2]))
    bridge, panel = _bridge_answer(costs)
    return result.Answer([table, bridge], [*panels, panel], [remark])
