"""How long a message of one port is under way while another port, or callers, keep the daemon busy."""

import contextlib
import json
import multiprocessing
import os
import subprocess
import time

from bench import crowd, lane, result, svg
from lab import calls

TITLE = "Another port's messages during storms and reads of the configuration"
HOW = """\
A thousand SOLICITs a second go from port 2 to port 4, stamped and timed as in `latency`, while port 1 sends nothing, or a
storm: SOLICITs, each from another MAC address (256 clients are allowed), or INFORMATION-REQUESTs or Relay-Forwards from one
station, each to another MAC address that no station has. Each of these two is a question to the bridge's MAC table, and
leaves by port 4. Then four programs read the running configuration at its largest (without options 18 and 37) again and
again. The generators share a processor, the daemon has the other one, so storms come to less than they are asked for.
Median over the rounds of each round's median and 99th percentile, with the lowest and the highest round; the ratio is to
the calm of the same round."""

STORM_PORT, CLIENT_PORT, SERVER_PORT = 1, 2, 4
STORM_CLIENTS, CLIENTS = 256, 16
RATE = 1000  # messages a second that are timed
CALLERS = 4
CALM = "calm"
STORMS = {"SOLICITs": "spoof", "INFORMATION-REQUESTs": "information", "RELAY-FORWs": "relay"}
AHEAD = 0.3  # seconds that a storm is on before the first message is timed
NOW, BEFORE = "now", "before"  # builds


def _course(running, seconds):
    where = (f"{running.switch.host(port)}/eth0" for port in (CLIENT_PORT, SERVER_PORT))
    line = [lane.tool("latency"), *where, str(round(RATE * seconds)), str(CLIENTS), str(RATE)]
    course = json.loads(subprocess.run(line, stdout=subprocess.PIPE, check=True, preexec_fn=lane.sender).stdout)
    if course["received"] == 0:
        raise SystemExit("bench/run: no message came out")
    return course


def _stormy(running, kind, rate, seconds):
    frames = round(rate * (seconds + 2 * AHEAD))
    storm = lane.generate(kind, f"{running.switch.host(STORM_PORT)}/eth0", frames, max(rate // 10000, 1), rate, STORM_CLIENTS)
    time.sleep(AHEAD)
    taken, start = running.counters(STORM_PORT)["received"], time.monotonic()
    course = _course(running, seconds)
    course["rate"] = (running.counters(STORM_PORT)["received"] - taken) / (time.monotonic() - start)
    if storm.wait() != 0:
        raise SystemExit("bench/run: the storm could not be sent")
    lane.settle(lambda: running.counters(STORM_PORT)["received"], 1 << 62, 0.2)
    return course


def _read(folder, stop, count):
    lane.sender()
    os.setpriority(os.PRIO_PROCESS, 0, 0)  # what is timed goes first
    link = calls.connect(folder)
    while not stop.is_set():
        crowd.running_configuration(link)
        with count.get_lock():
            count.value += 1
    link.close()


def _called(running, seconds):
    stop, count = multiprocessing.Event(), multiprocessing.Value("L", 0)
    callers = [multiprocessing.Process(target=_read, args=(running.run, stop, count)) for _ in range(CALLERS)]
    for caller in callers:
        caller.start()
    time.sleep(AHEAD)
    read, start = count.value, time.monotonic()
    course = _course(running, seconds)
    course["rate"] = (count.value - read) / (time.monotonic() - start)
    stop.set()
    for caller in callers:
        caller.join()
    return course


def _measurements(builds, effort):
    """By case and build: the courses of all rounds. Builds take turns."""
    rounds, seconds, rate = effort(3, 1), effort(2.0, 0.5), effort(120_000, 10_000)
    taken = {}
    with contextlib.ExitStack() as stack:
        switches, configured = {}, {}
        for number, (name, folder) in enumerate(builds.items()):
            with lane.built(folder):
                switches[name] = stack.enter_context(crowd.daemon(f"y{number}-"))
                configured[name] = stack.enter_context(crowd.daemon(f"z{number}-", text=crowd.largest_switch()))
            switches[name].call(calls.PORT_MAX, STORM_PORT, STORM_CLIENTS)
            crowd.configure_everything(configured[name])
            for call in (calls.OPTION18, calls.OPTION37, calls.L2_RELAY):  # they would make other messages of what is timed
                configured[name].call(call, 0)
        measures = {CALM: lambda name: _course(switches[name], seconds)}
        for words, kind in STORMS.items():
            measures[f"storm of {words}"] = lambda name, kind=kind: _stormy(switches[name], kind, rate, seconds)
        measures["largest configuration, calm"] = lambda name: _course(configured[name], seconds)
        measures[f"and {CALLERS} programs read it"] = lambda name: _called(configured[name], seconds)
        for _ in range(rounds):
            for case, measure in measures.items():
                for name in builds:
                    taken.setdefault((case, name), []).append(measure(name))
    return list(measures), taken


def answer(effort):
    builds = {NOW: os.environ["SNOOPD6_BUILD"]}
    if before := os.environ.get("SNOOPD6_BEFORE"):
        builds[BEFORE] = before
    cases, taken = _measurements(builds, effort)
    rows, bars, calm = [], [], CALM
    for case in cases:
        calm = case if "rate" not in taken[case, NOW][0] else calm
        for shade, name in enumerate(builds):
            courses = taken[case, name]
            medians = result.spread([course["median"] / 1000 for course in courses])
            tails = result.spread([course["p99"] / 1000 for course in courses])
            ratio = result.ratios([course["median"] for course in courses], [course["median"] for course in taken[calm, name]])
            rate = result.spread([course["rate"] for course in courses]).text() if case != calm else ""
            lost = sum(course["sent"] - course["received"] for course in courses)
            words = case if name == NOW else f"{case}: build before"
            rows.append([words, medians.text(digits=1), medians.range(digits=1), ratio.text(digits=1), tails.text(digits=1),
                         tails.range(digits=1), rate, str(lost)])  # fmt: skip
            bars.append(medians.bar(words, digits=1, shade=shade))
    columns = ["", "median, us", "lowest to highest", "to calm", "99th percentile, us", "lowest to highest",
               "taken or read a second", "lost"]  # fmt: skip
    panels = [svg.Bars("Median from wire to wire", "us", bars)]
    return result.Answer([result.Table(columns, rows)], panels)
