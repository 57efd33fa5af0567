"""One way from a client's wire to a server's, with a forwarder between: snoopd6, a bare loop or a relay. Each has a switch of
its own, so that nothing but the load passes; all are measured alike, by the CPU time that the kernel charges to the process
(/proc/PID/schedstat) and by the frames that come out at the other end."""

import contextlib
import os
import pathlib
import subprocess
import sys
import time

from lab import calls, netns
from lab.daemon import Daemon
from lab.switch import Switch

CLIENT, SERVER = 1, 2  # ports
CLIENTS = 2048
PRIORITY = -10  # so that other work on the machine does not make a receive buffer overflow
WAYS = {"solicit": (CLIENT, SERVER), "reply": (SERVER, CLIENT)}  # from where, to where


def processors():
    """(forwarder's, generator's): two different ones, or what there is."""
    allowed = sorted(os.sched_getaffinity(0))
    return allowed[0], allowed[-1]


def tool(name):
    """A program of the benches."""
    return str(pathlib.Path(os.environ["SNOOPD6_BUILD"], "bench", name))


@contextlib.contextmanager
def built(folder):
    """Programs are taken from this build folder meanwhile."""
    own = os.environ["SNOOPD6_BUILD"]
    os.environ["SNOOPD6_BUILD"] = str(folder)
    try:
        yield
    finally:
        os.environ["SNOOPD6_BUILD"] = own


def favour(pid, processor):
    """Without the right to raise a priority, as in some containers, the figures only vary more."""
    os.sched_setaffinity(pid, {processor})
    with contextlib.suppress(PermissionError):
        os.setpriority(os.PRIO_PROCESS, pid, PRIORITY)


def sender():
    """Of the process that calls it: it is to send on the generator's processor."""
    favour(0, processors()[1])


def cpu(pid):
    """ns of CPU time so far."""
    return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[0])


def generate(kind, where, frames, burst, rate, clients=CLIENTS):
    """Starts a generator on its processor."""
    line = [tool("frame_gen"), kind, where, str(frames), str(clients), str(burst), str(rate)]
    return subprocess.Popen(line, stdout=subprocess.DEVNULL, preexec_fn=sender)


def settle(counter, wanted, patience=2.0):
    """Waits until a counter has come to what is wanted, or has not moved for so many seconds; returns where it is."""
    now, moved = counter(), time.monotonic()
    while now < wanted and time.monotonic() - moved < patience:
        time.sleep(0.01)
        before, now = now, counter()
        moved = moved if now == before else time.monotonic()
    return now


class Lane:
    """Lives from its making to `close`; the switch's ports are p1, to the client, and p2, to the server."""

    def __init__(self, name, prefix):
        self.name = name
        self.switch = Switch(ports=2, prefix=prefix)
        self.daemon = None
        self.process = None
        self.lost = 0
        self.rates = []  # frames a second that the generator came to, load by load

    def where(self, port):
        """The outer end of a wire, as the tools take it."""
        return f"{self.switch.host(port)}/eth0"

    def snoop(self, *settings):
        """The forwarder is snoopd6, the server's port trusted; settings are further remote calls."""
        self.daemon = Daemon(self.switch).start()
        for setting in settings:
            self.daemon.call(*setting)
        self.daemon.snoop(SERVER)
        return self._measured(self.daemon.process)

    def bare(self, *options, bridged=False):
        """The forwarder is a loop that copies frames. Its ports are in no bridge, or in the one that a killed daemon left: the
        kernel then does the same to a frame before the forwarder gets it as it does for snoopd6."""
        if bridged:
            self.snoop().daemon.kill()
        else:
            self.switch.ip("link", "del", "br0")
        line = netns.command(self.switch.namespace, [tool("bare_loop"), *options, "p1", "p2"])
        process = subprocess.Popen(line, stdout=subprocess.PIPE, text=True)
        self.process = process
        if process.stdout.readline() != "ready\n":
            sys.exit(f"bench/run: {self.name} did not start")
        return self._measured(process)

    def run(self, line):
        """The forwarder is a program that stays in the foreground."""
        self.process = subprocess.Popen(
            netns.command(self.switch.namespace, line), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        return self._measured(self.process)

    def _measured(self, process):
        favour(process.pid, processors()[0])
        self.pid = process.pid
        return self

    def arrived(self, port):
        """Frames that came out of a port so far."""
        with netns.entered(self.switch.host(port)):
            line = next(line for line in open("/proc/thread-self/net/dev") if line.strip().startswith("eth0:"))
        return int(line.split(":")[1].split()[1])

    def carry(self, kind, frames, burst, rate):
        """One load, start to end: (CPU ns of the forwarder, frames that came out)."""
        enter, leave = WAYS[kind]
        charged, before = cpu(self.pid), self.arrived(leave)
        start = time.monotonic()
        if generate(kind, self.where(enter), frames, burst, rate).wait() != 0:
            sys.exit(f"bench/run: the load for {self.name} could not be sent")
        self.rates.append(frames / (time.monotonic() - start))
        came = settle(lambda: self.arrived(leave), before + frames) - before
        return cpu(self.pid) - charged, came

    def cost(self, kind, frames, burst, rate):
        """ns of CPU time for each frame that came out."""
        charged, came = self.carry(kind, frames, burst, rate)
        if not 0 < came <= frames:
            sys.exit(f"bench/run: {self.name} was given {frames} frames and sent {came}")
        self.lost += frames - came
        return charged / came

    def close(self):
        if self.daemon is not None:
            self.daemon.close()
        if self.process is not None:
            self.process.terminate()
            self.process.wait(timeout=10)
        self.switch.close()


def teach(lane):
    """The daemon records every client, with a lease. Bridge and caches are warm then, too."""
    for kind in ("solicit", "reply"):
        lane.carry(kind, CLIENTS, 64, 20000)
    known = calls.clients(lane.daemon.link)
    if len(known) != CLIENTS or any(len(client["leases"]) != 2 for client in known.values()):
        sys.exit(f"bench/run: {lane.name} has recorded {len(known)} of {CLIENTS} clients")


def rounds(lanes, number, measure):
    """Measurements by lane: in each round every lane has its turn, in an order that turns."""
    taken = {lane.name: [] for lane in lanes}
    for turn in range(number):
        for index in range(len(lanes)):
            lane = lanes[(turn + index) % len(lanes)]
            taken[lane.name].append(measure(lane))
    return taken
