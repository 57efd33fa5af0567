"""Frames per CPU-second on the wire."""

import contextlib

from bench import lane, result, svg

TITLE = "Forwarding on the wire, against loops that only copy frames"
HOW = """\
SOLICITs of 2,048 recorded clients go from one veth wire to another, and REPLYs the other way, each renewing an address and
a prefix of its client. snoopd6 has a bridge of two ports; `bare loop` copies frames between two packet sockets with
recvmmsg and sendmmsg in batches of 64 behind epoll, and does nothing else; `bare loop, auxdata` also asks for each frame's
VLAN tag (PACKET_AUXDATA), which a forwarder that knows VLANs cannot do without. `... in the bridge` is that loop on the
ports of such a bridge as snoopd6 has, with the trap that a killed snoopd6 leaves: bridge and trap take the sender's
processor some microseconds a frame, so that frames come to the forwarder in smaller bunches than on bare ports, and every
system call carries fewer of them. It is the loop to be compared with. In every round each of them carries the same load, in
an order that turns. Counted is the forwarder's CPU time, user and kernel. It holds what the kernel does on
the forwarder's behalf while sending, up to the far end of the wire, but not the work on a frame before it is queued for the
forwarder. Forwarder and generator have a processor each. A ratio is the median of the rounds, with the lowest and the
highest round."""

BURST, RATE = 256, 50000


def answer(effort):
    rounds, frames = effort(12, 2), effort(25, 2) * lane.CLIENTS
    with contextlib.ExitStack() as stack:
        names = ("snoopd6", "bare loop, auxdata, in the bridge", "bare loop, auxdata", "bare loop")
        lanes = [lane.Lane(name, f"w{number}-") for number, name in enumerate(names)]
        for one in lanes:
            stack.callback(one.close)
        lane.teach(lanes[0].snoop())
        lanes[1].bare("--auxdata", bridged=True)
        lanes[2].bare("--auxdata")
        lanes[3].bare()
        costs = {}
        for kind in ("solicit", "reply"):
            for one in lanes:
                one.carry(kind, lane.CLIENTS, BURST, RATE)
            costs[kind] = lane.rounds(lanes, rounds, lambda one, kind=kind: one.cost(kind, frames, BURST, RATE))
        slowest = min(rate for one in lanes for rate in one.rates[-2 * rounds :])
        lane.teach(lanes[0])  # all clients and all leases are still there
        return _answer(costs, {one.name: one.lost for one in lanes}, _load(rounds, frames, slowest))


def _load(rounds, frames, slowest):
    load = f"{rounds} rounds of {frames:,} frames, bursts of {BURST} at {RATE:,} a second; "
    return f"{load}in the slowest round {slowest:,.0f} a second were sent."


def _answer(costs, lost, load):
    rows, cost_bars, ratio_bars = [], [], []
    for kind, words in (("solicit", "SOLICIT, forwarded"), ("reply", "REPLY, learned and forwarded")):
        ours = costs[kind]["snoopd6"]
        for shade, (name, taken) in enumerate(costs[kind].items()):
            cost, ratio = result.spread(taken), result.ratios(ours, taken)
            compared = "" if name == "snoopd6" else f"{ratio.text(digits=2)} ({ratio.range(digits=2)})"
            rows.append([f"{words}: {name}", cost.text(), cost.range(), f"{1e9 / cost.middle:,.0f}", compared])
            cost_bars.append(cost.bar(f"{kind.upper()}: {name}", shade=shade))
            if compared:
                ratio_bars.append(ratio.bar(f"{kind.upper()}: {name}", digits=2, shade=shade))
    columns = ["", "CPU ns a frame", "lowest to highest", "frames a CPU-second", "snoopd6 to this one"]
    missing = ", ".join(f"{name} {count:,}" for name, count in lost.items() if count)
    lost_words = f"Lost: {missing}." if missing else "Nothing was lost."
    panels = [svg.Bars("CPU time of a frame", "ns", cost_bars), svg.Bars("snoopd6 to the loops", "ratio", ratio_bars)]
    return result.Answer([result.Table(columns, rows)], panels, [f"{load} {lost_words}"])
