"""Walking the tables: aging, SNMP, the running configuration."""

import json
import subprocess

from bench import crowd, lane, result, svg
from lab import snmp

TITLE = "Walks: aging, the client table over SNMP, the running configuration"
HOW = """\
Aging: CPU time of one pass over 2,048 clients, in the core alone (`bench_core`). SNMP: the client table of 2,048 clients
with an address and a prefix each, read with the net-snmp tools through snmpd and the sub-agent, all on one machine: wall
time of the tool, and CPU time of the daemon, which goes on forwarding meanwhile. Running configuration: the largest there
is, with every setting of 28 ports and 4,094 VLANs and 2,000 bindings, read from the socket by a Python program, page by
page."""


def _aging(repetitions):
    """ns of CPU time of a pass, by number of leases: spreads."""
    line = [lane.tool("bench_core"), "--benchmark_filter=agingPass", "--benchmark_format=json"]
    done = subprocess.run(
        [*line, f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.1"], stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL, check=True,
    )  # fmt: skip
    runs = [run for run in json.loads(done.stdout)["benchmarks"] if run["run_type"] == "iteration"]
    unit = {"us": 1e3, "ns": 1.0, "ms": 1e6}
    return {
        leases: result.spread(
            [run["cpu_time"] * unit[run["time_unit"]] for run in runs if run["name"].split("/")[1] == str(leases)]
        )
        for leases in (1, 10)
    }


def _walks(running, rounds):
    """By tool: wall times, CPU times of the daemon, and instances."""
    taken = {}
    with snmp.managed(running) as manager:
        for tool, options in (("snmpbulkwalk", ["-Cr50"]), ("snmpwalk", [])):
            walls, charges = [], []
            for _ in range(rounds):
                before = lane.cpu(running.process.pid)
                said = []
                walls.append(crowd.timed(lambda: said.append(manager.run(tool, f"{snmp.ROOT}.6", options=options))))
                charges.append(lane.cpu(running.process.pid) - before)
                status, text = said[0]
                count = text.count(" = ")
                if status != 0 or count % crowd.CLIENTS != 0 or count == 0:
                    raise SystemExit(f"bench/run: {tool} found {count} instances, status {status}: {text[-200:]}")
            taken[tool] = result.spread(walls), result.spread(charges), count
    return taken


def _configuration(rounds):
    """Wall times, CPU times of the daemon, bytes, lines."""
    with crowd.daemon("t2-", text=crowd.largest_switch()) as running:
        crowd.configure_everything(running)
        walls, charges = [], []
        for _ in range(rounds):
            before = lane.cpu(running.process.pid)
            texts = []
            walls.append(crowd.timed(lambda: texts.append(crowd.running_configuration(running.link))))
            charges.append(lane.cpu(running.process.pid) - before)
        return result.spread(walls), result.spread(charges), len(texts[0]), texts[0].count("\n")


def answer(effort):
    rounds = effort(5, 1)
    aging = _aging(effort(7, 1))
    with crowd.daemon("t1-") as running:
        crowd.learn(running)
        walks = _walks(running, rounds)
    wall, charge, size, lines = _configuration(rounds)
    rows, passes, bars = [], [], []
    for leases, cost in aging.items():
        name = f"aging, 2,048 clients, {leases} lease{'s' if leases > 1 else ''} each"
        rows.append([name, "", f"{cost.text(1e-6, 3)} ms", cost.range(1e-6, 3)])
        passes.append(cost.bar(name, 1e-3, 1))
    for tool, (time, cost, count) in walks.items():
        name = f"{tool}, {count:,} instances"
        rows.append([name, f"{time.text(1e-6, 0)} ms", f"{cost.text(1e-6, 1)} ms", cost.range(1e-6, 1)])
        bars.append(cost.bar(name, 1e-6, 1))
    name = f"running configuration, {size:,} bytes"
    rows.append([name, f"{wall.text(1e-6, 1)} ms", f"{charge.text(1e-6, 1)} ms", charge.range(1e-6, 1)])
    bars.append(charge.bar(name, 1e-6, 1))
    columns = ["walk", "wall time", "CPU time of the daemon", "lowest to highest"]
    remark = f"The running configuration has {lines:,} lines."
    panels = [svg.Bars("CPU time of an aging pass", "us", passes), svg.Bars("CPU time of the daemon for a walk", "ms", bars)]
    return result.Answer([result.Table(columns, rows)], panels, [remark])
