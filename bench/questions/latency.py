"""How long a message is under way."""

import contextlib
import json
import subprocess

from bench import lane, result, svg

TITLE = "Latency of a forwarded message"
HOW = """\
SOLICITs of 2,048 recorded clients at an even rate. Each is stamped when it is handed to the first wire; the kernel stamps
it when it arrives at the far end of the second. The generator has a processor of its own and never sleeps; the forwarder
sleeps whenever it has nothing to do, so that at low rates waking it up is most of the time. Median over the rounds of each
round's median and 99th percentile, with the lowest and the highest round; snoopd6 and the bare loop (with PACKET_AUXDATA)
take turns."""

RATES = {100: 5, 10_000: 3, 100_000: 3}  # messages a second: seconds of a round


def _course(one, frames, rate):
    line = [lane.tool("latency"), one.where(lane.CLIENT), one.where(lane.SERVER), str(frames), str(lane.CLIENTS), str(rate)]
    done = subprocess.run(line, stdout=subprocess.PIPE, check=True, preexec_fn=lane.sender)
    course = json.loads(done.stdout)
    if course["received"] == 0:
        raise SystemExit(f"bench/run: {one.name} was given {frames} frames, and none came out")
    return course


def answer(effort):
    rounds = effort(3, 1)
    with contextlib.ExitStack() as stack:
        lanes = [lane.Lane("snoopd6", "l1-"), lane.Lane("bare loop", "l2-")]
        for one in lanes:
            stack.callback(one.close)
        lane.teach(lanes[0].snoop())
        lanes[1].bare("--auxdata")
        taken = {}
        for rate, seconds in RATES.items():
            frames = rate * seconds // effort(1, 10)
            taken[rate] = lane.rounds(lanes, rounds, lambda one, f=frames, r=rate: _course(one, f, r))
    rows, series = [], {}
    for rate, by_lane in taken.items():
        for name, courses in by_lane.items():
            cells = [f"{rate:,} a second: {name}"]
            for measure, words in (("median", "median"), ("p99", "99th percentile")):
                spread = result.spread([course[measure] / 1000 for course in courses])
                cells += [spread.text(digits=1), spread.range(digits=1)]
                series.setdefault(f"{name}, {words}", []).append((rate, spread))
            achieved = result.spread([(course["sent"] - 1) / max(course["seconds"], 0.001) for course in courses])
            lost = sum(course["sent"] - course["received"] for course in courses)
            rows.append([*cells, achieved.text(), str(lost)])
    columns = ["", "median, us", "lowest to highest", "99th percentile, us", "lowest to highest", "sent a second", "lost"]
    panels = [svg.Lines("From wire to wire", "messages a second", "microseconds", series)]
    return result.Answer([result.Table(columns, rows)], panels)
