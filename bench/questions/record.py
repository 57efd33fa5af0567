"""A REPLY to a client that has many leases already."""

import json
import subprocess

from bench import lane, result, svg

TITLE = "A REPLY for a client with many leases"
HOW = """\
CPU time of one REPLY that renews 250 addresses and a prefix of its client, in the core alone (`bench_core`), while the client's
record holds so many leases besides. The client's port is not guarded: on a guarded one every lease of the record is asked for
again."""

LEASES = (1, 256, 100_000)
UNITS = {"us": 1.0, "ns": 1e-3, "ms": 1e3}  # microseconds


def answer(effort):
    line = [lane.tool("bench_core"), "--benchmark_filter=replyToRecord", "--benchmark_format=json"]
    line += [f"--benchmark_repetitions={effort(7, 1)}", "--benchmark_min_time=0.1"]
    done = subprocess.run(line, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    runs = [run for run in json.loads(done.stdout)["benchmarks"] if run["run_type"] == "iteration"]
    times = {
        leases: [run["cpu_time"] * UNITS[run["time_unit"]] for run in runs if run["name"].split("/")[1] == str(leases)]
        for leases in LEASES
    }
    rows, bars = [], []
    for leases, taken in times.items():
        time, ratio = result.spread(taken), result.ratios(taken, times[LEASES[0]])
        name = f"{leases:,} more lease{'s' if leases > 1 else ''}"
        rows.append([name, time.text(digits=1), time.range(digits=1), ratio.text(digits=2)])
        bars.append(time.bar(name, digits=1))
    columns = ["the record holds", "CPU us a REPLY", "lowest to highest", "to the first"]
    return result.Answer([result.Table(columns, rows)], [svg.Bars("CPU time of a REPLY", "us", bars)])
