"""A switch of four ports with snoopd6 and its clients: 2,048 behind port 1, the servers behind port 4."""

import contextlib
import struct
import time

from bench import lane
from lab import calls, frames
from lab.daemon import Daemon, switch_file
from lab.switch import Switch

CLIENTS = lane.CLIENTS
BINDINGS = 2000
ACCESS, UPLINK = 1, 4  # ports
PORTS = 28  # of the largest switch there can be; four of them have an interface
RUNNING_CONFIG = 0x8001
TEXT, IPV6_ADDRESS = 4, 2  # kinds of an id


@contextlib.contextmanager
def daemon(prefix, **settings):
    """A daemon on a switch of its own, snooping, the uplink trusted."""
    switch = Switch(prefix=prefix)
    try:
        running = Daemon(switch, **settings)
        try:
            running.start()
            lane.favour(running.process.pid, lane.processors()[0])
            yield running.snoop(UPLINK)
        finally:
            running.close()
    finally:
        switch.close()


def largest_switch():
    """The switch file with every port and every VLAN there can be."""
    return switch_file(range(1, PORTS + 1), extra=f"vlans = {list(range(1, 4095))}\n")


def learn(running, leases="reply"):
    """All clients are recorded with their leases: `reply` an address and a prefix each, `address` only that."""
    for kind, port in (("solicit", ACCESS), (leases, UPLINK)):
        done = lane.generate(kind, f"{running.switch.host(port)}/eth0", CLIENTS, 64, 20000).wait()
        if done != 0:
            raise SystemExit(f"bench/run: the clients' {kind} messages could not be sent")
        if kind == "solicit":
            running.until(lambda: running.counted(ACCESS) == CLIENTS, "the clients are recorded")
    running.until(lambda: len(running.clients()) == CLIENTS, "all have a lease")


def bind(running, count, port=0, vlan=0):
    for number in range(1, count + 1):
        running.bind(f"2001:db8:b::{number:x}", port=port, vlan=vlan)


def configure_everything(running):
    """Every setting there is, each port and VLAN with one of its own, and 2,000 bindings. `running` has the largest switch."""
    running.call(calls.FAST_REMOVE, 0)
    running.call(calls.L2_RELAY, 1)
    for port in range(1, PORTS + 1):
        running.call(calls.PORT_MAX, port, port)
        if port % 2:
            running.guard(port)
        else:
            running.call(calls.PORT_MODE, port, 1)
    running.call(calls.VLANS_MAX, 5, calls.vlan_list(*range(1, 4095)))
    for option, remote, kind, content in (
        (calls.OPTION18, 1, TEXT, b"cabinet 7"),
        (calls.OPTION37, 0, IPV6_ADDRESS, frames.ip_bytes("2001:db8::37")),
    ):
        running.call(option, 1)
        running.call(calls.ID_SET, remote, kind, content)
    running.exempt(*range(1, 4095, 2))
    for number in range(1, BINDINGS + 1):
        running.bind(f"2001:db8::1:{number:x}", frames.mac_number(number), 1 + 2 * (number % 14), number)


def running_configuration(link):
    """The text, page by page."""
    text, after, generation = b"", 0, 0
    while True:
        result, answer = calls.ask(link, RUNNING_CONFIG, struct.pack("<II", after, generation))
        if result != 0:
            raise SystemExit(f"bench/run: the running configuration is refused: {result}")
        total, after, generation, _ = struct.unpack_from("<IIII", answer)
        text += answer[16:]
        if after == 0:
            assert len(text) == total
            return text.decode()


def timed(action, *arguments):
    """Nanoseconds of wall time."""
    start = time.perf_counter_ns()
    action(*arguments)
    return time.perf_counter_ns() - start
