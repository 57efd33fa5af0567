"""What the source guard costs a packet that passes."""

from bench import crossing, emulated, result, svg

TITLE = "Packets across the bridge, by a guarded port and by an open one"
HOW = """\
Two hosts send to a third one on a switch with snooping on. The port of one of them is guarded, that of the other is
open. The packets are UDP in IPv6 with 64 bytes of payload; all bound sources send in turn. Sources called `leased` are
bound to MAC address, port and VLAN, as a lease binds them, and each has a MAC address of its own; without a tag the
VLAN is the native one. All others are in the map of bound sources, which is looked at first. Unicast neighbour
solicitations and IPv4 need no binding; the guarded port has the largest number of sources, bound by MAC address, beside
them. Every packet arrived, and none did before its source was bound.

Nanoseconds: the sender's processor does all the work up to the far end, so the time of a packet is the time of the way.
The open and the guarded port take turns in every round, and so do both builds where `--before` names an earlier one; a
ratio is the median of the rounds. Neighbour solicitations are sent 1,600 at a time, because the guard limits their
rate.

Instructions: smaller loads of the same packets in a machine that QEMU emulates (`tests/stock-kernel --virtual-time`),
whose clock counts instructions, of user and kernel. A packet is what a load of twice the packets takes more, divided by
their number. Other work on this machine does not change these figures."""

ENTRIES = (10, 2048, 20000)
COLUMNS = ["packet", "entries", "port open", "guarded", "lowest to highest", "to open"]
BEFORE_COLUMNS = ["before: port open", "guarded", "lowest to highest", "to open"]


def _cells(taken):
    closed, ratio = result.spread(taken["guarded"]), result.ratios(taken["guarded"], taken["open"])
    passed = result.spread(taken["open"])
    return [passed.text(), closed.text(), closed.range(), f"{ratio.text(digits=2)} ({ratio.range(digits=2)})"]


def _table(heading, rows):
    both = any(crossing.BEFORE in builds for _, _, builds in rows)
    lines = []
    for words, entries, builds in rows:
        line = [words, f"{entries:,}" if entries else "", *_cells(builds[crossing.NOW])]
        lines.append(line + _cells(builds[crossing.BEFORE]) if both else line)
    return result.Table(COLUMNS + BEFORE_COLUMNS if both else COLUMNS, lines, heading)


def _panel(title, rows):
    """The ratios with the most entries."""
    most = max(entries or 0 for _, entries, _ in rows)
    bars = []
    for words, entries, builds in rows:
        for shade, (build, taken) in enumerate(builds.items()):
            if entries in (most, None):
                label = words if build == crossing.NOW else build
                bars.append(result.ratios(taken["guarded"], taken["open"]).bar(label, digits=2, shade=shade))
    return svg.Bars(title, "guarded to open", bars)


def answer(effort):
    entries = effort(ENTRIES, ENTRIES[:1])
    rounds = effort(15, 1)
    rows = crossing.measured(entries, rounds, crossing.nanoseconds(effort(50_000, 5000)))
    tables, panels = [_table("Nanoseconds a packet", rows)], [_panel("Nanoseconds of a packet", rows)]
    if why := emulated.missing():
        return result.Answer(tables, panels, [f"Instructions are not counted here: {why}."])
    counted = emulated.answer("bench.crossing", entries, effort(3, 1), effort(3000, 500))
    tables.append(_table("Instructions a packet", counted["rows"]))
    panels.append(_panel("Instructions of a packet", counted["rows"]))
    return result.Answer(tables, panels, [f"Instructions are those of Linux {counted['kernel']}, with `mitigations=off`."])
