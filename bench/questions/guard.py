"""What the source guard costs."""

import json

from bench import crowd, lane, result, svg
from lab import calls, frames, netns

TITLE = "The source guard: changing filters"
HOW = """\
2,048 clients with an address each behind one port. Each change is timed at the caller (a Python program) from the
remote call to its answer, so that it holds the caller, the daemon and the kernel; beside it stands what `nft_raw` takes,
which only commits elements to a set in the kernel, one transaction each, in the same namespace and run."""

BINDINGS = 256  # added and removed one by one in a round
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
    return result.Table(columns, rows), panels, remark


def answer(effort):
    with crowd.daemon("g1-") as running:
        table, panels, remark = _changes_answer(*_changes(running, effort(5, 1)))
    return result.Answer([table], panels, [remark])
