"""Memory, and the time from exec to ready."""

import os
import pathlib
import re
import socket
import subprocess
import time

from bench import crowd, lane, result, svg
from lab import netns
from lab.daemon import Daemon, program
from lab.switch import Switch

TITLE = "Memory, and from start to ready"
HOW = """\
Memory: what /proc/PID/status says of the daemon (resident, and of that anonymous memory) on a switch of four ports: after
the start, with 2,048 clients that hold an address and a prefix each, and with 2,000 bindings besides, the clients' port
guarded. Start: wall time from before the exec to READY=1 on the service manager's socket; without a saved configuration,
and with the largest one, which the command shell replays line by line."""

STATES = ("started", "2,048 clients", "and 2,000 bindings")


def _resident(running):
    """(KiB resident, KiB of them anonymous)."""
    status = pathlib.Path(f"/proc/{running.process.pid}/status").read_text()
    return tuple(int(re.search(rf"{key}:\s+(\d+) kB", status)[1]) for key in ("VmRSS", "RssAnon"))


def _memory():
    found = {}
    with crowd.daemon("m1-") as running:
        found[STATES[0]] = _resident(running)
        crowd.learn(running)
        found[STATES[1]] = _resident(running)
        crowd.bind(running, crowd.BINDINGS, port=1)
        running.guard(1)
        found[STATES[2]] = _resident(running)
    return found


def _until_ready(daemon, reports):
    """Starts the daemon and returns the nanoseconds until it says that it is ready."""
    environment = dict(daemon.environment(), NOTIFY_SOCKET=reports.getsockname(), SNOOPD6_SHELL=program("snoopctl"))
    with netns.entered(daemon.switch.namespace), open(daemon.output, "ab") as log:
        start = time.perf_counter_ns()
        daemon.process = subprocess.Popen(
            [program("snoopd6")], env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log
        )
    while b"READY=1" not in (said := reports.recv(4096)).split(b"\n"):
        pass
    took = time.perf_counter_ns() - start
    if b"not all" in said or b"failure" in said:
        raise SystemExit(f"bench/run: the saved configuration is not in force; the log:\n{daemon.log()}")
    daemon.stop()
    return took


def _starts(prefix, count, text=None, saved=None):
    switch = Switch(prefix=prefix)
    daemon = Daemon(switch, text=text)
    reports = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    reports.settimeout(60)
    reports.bind(f"/run/{prefix}ready")
    try:
        if saved is not None:
            (daemon.folder / "startup.conf").write_text(saved)
        return result.spread([_until_ready(daemon, reports) for _ in range(count)])
    finally:
        reports.close()
        os.unlink(f"/run/{prefix}ready")
        daemon.close()
        switch.close()


def answer(effort):
    found = _memory()
    with crowd.daemon("m2-", text=crowd.largest_switch()) as running:
        crowd.configure_everything(running)
        saved = crowd.running_configuration(running.link)
    starts = {
        "no saved configuration": _starts("m3-", effort(21, 3)),
        f"{saved.count(chr(10)):,} lines saved": _starts("m4-", effort(5, 1), crowd.largest_switch(), saved),
    }
    rows = [[name, f"{resident:,}", f"{anonymous:,}"] for name, (resident, anonymous) in found.items()]
    bars = [svg.Bar(name, resident, resident, resident, f"{resident:,}") for name, (resident, _) in found.items()]
    tables = [result.Table(["state", "resident, KiB", "of that anonymous, KiB"], rows, "Memory")]
    rows = [[name, f"{took.text(1e-6, 1)} ms", took.range(1e-6, 1)] for name, took in starts.items()]
    tables.append(result.Table(["start to ready", "median", "lowest to highest"], rows, "Start"))
    panels = [svg.Bars("Resident memory", "KiB", bars)]
    panels.append(svg.Bars("From start to ready", "ms", [took.bar(name, 1e-6, 1) for name, took in starts.items()]))
    return result.Answer(tables, panels)
