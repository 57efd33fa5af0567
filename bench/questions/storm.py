"""A storm from one port, and everybody else."""

import concurrent.futures
import itertools
import os
import socket
import struct
import time

from bench import crowd, lane, result, svg
from lab import calls, frames, netns, snmp
from lab.storm import only_from
from lab.wire import Wire

TITLE = "A storm of spoofed clients on one port, and everybody else"
HOW = """\
For some seconds port 1 sends SOLICITs, each from another MAC address; it may have 256 clients, as an operator would see to:
else a storm takes every place in the client table. Meanwhile a client on port 2 asks again and again (SOLICIT to the
server's port, REPLY back), one question at a time; a program makes remote calls and another SNMP requests (through snmpd
and the sub-agent), each with 2 ms between two of them; and 100 clients have leases that run out. The same without the storm
stands beside it. An exchange counts as lost when a message of it has not come out within 2 s."""

STORM_PORT, CLIENT_PORT, SERVER_PORT = 1, 2, 4
STORM_CLIENTS = 256
SHORT_LEASES, SHORT = 100, 3  # clients, seconds
PATIENCE = 2.0  # seconds
SECONDS = 13  # after which an aging pass has seen every short lease run out
ASKING = 16  # MACs of the asking client, one after the other
FROM_US = b"\x02\x0c"  # the first bytes of the asking client's MACs and of nobody else's
SERVER_MAC = b"\x02\x5e"


def _reply(mac, valid, transaction=0x010203):
    return frames.from_server(frames.REPLY, mac, frames.ia_na([_address(mac)], preferred=valid, valid=valid), transaction)


def _address(mac):
    return frames.ip_text(b"\x20\x01\x0d\xb8" + bytes(6) + frames.mac_bytes(mac))


def _ask(asker, server, mac, number):
    """One exchange; nanoseconds, or None when a message got lost."""
    start = time.perf_counter_ns()
    for here, there, frame in (
        (asker, server, frames.from_client(frames.SOLICIT, mac, transaction=number)),
        (server, asker, _reply(mac, 7200, number)),
    ):
        there.take()
        here.send(frame)
        if frame not in there.until(lambda there=there, frame=frame: frame in there.seen, PATIENCE):
            return None
    return time.perf_counter_ns() - start


def _exchanges(asker, server, end):
    taken = []
    for number in itertools.count(1):
        if time.monotonic() > end:
            return taken
        taken.append(_ask(asker, server, frames.mac_number(1 + number % ASKING), number % (1 << 24)))


def _remote_calls(folder, end):
    taken = []
    link = calls.connect(folder)
    while time.monotonic() < end:
        taken.append(crowd.timed(calls.port_info, link, CLIENT_PORT))
        time.sleep(0.002)
    link.close()
    return taken


def _tlv(tag, body):
    """A value in BER, shorter than 128 bytes."""
    return bytes([tag, len(body)]) + body


def _get(number):
    """An SNMPv2c GET for whether snooping is on. Returns (request, what the answer holds if it is one)."""
    first, second, *rest = (int(arc) for arc in f"{snmp.ROOT}.1.0".split("."))
    oid = bytes([40 * first + second])
    for arc in rest:
        low = [arc & 0x7F]
        while arc := arc >> 7:
            low.append(arc & 0x7F | 0x80)
        oid += bytes(reversed(low))
    name, serial = _tlv(0x06, oid), _tlv(0x02, struct.pack("!I", number))
    pdu = _tlv(0xA0, serial + _tlv(0x02, b"\0") * 2 + _tlv(0x30, _tlv(0x30, name + _tlv(0x05, b""))))
    request = _tlv(0x30, _tlv(0x02, b"\1") + _tlv(0x04, b"lab") + pdu)
    return request, (serial + _tlv(0x02, b"\0") * 2, name + b"\x02")  # no error, and an integer


def _requests(namespace, end):
    """Nanoseconds of each request, None for one without a right answer."""
    taken = []
    with netns.entered(namespace):
        link = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    link.settimeout(PATIENCE)
    link.connect(("127.0.0.1", snmp.PORT))
    for number in itertools.count(1 << 24):
        if time.monotonic() > end:
            link.close()
            return taken
        request, parts = _get(number)
        start = time.perf_counter_ns()
        link.send(request)
        try:
            said = link.recv(4096)
            taken.append(time.perf_counter_ns() - start if all(part in said for part in parts) else None)
        except TimeoutError:
            taken.append(None)
        time.sleep(0.002)


def _short_leases(running, asker, server):
    """Clients whose leases run out soon."""
    macs = [frames.mac_number(0x5000 + number) for number in range(SHORT_LEASES)]
    asker.send(*(frames.from_client(frames.SOLICIT, mac) for mac in macs))
    running.until(lambda: running.counted(CLIENT_PORT) >= SHORT_LEASES, "the clients are recorded")
    server.send(*(_reply(mac, SHORT) for mac in macs))
    wanted = set(macs)
    running.until(lambda: wanted <= set(running.clients()), "the clients have leases")
    return wanted


def _end(storm):
    """Waits for the end of the storm; ns of CPU time that its sender took."""
    os.waitid(os.P_PID, storm.pid, os.WEXITED | os.WNOWAIT)  # what it took can be read until it is waited for
    taken = lane.cpu(storm.pid)
    if storm.wait() != 0:
        raise SystemExit("bench/run: the storm could not be sent")
    return taken


def _phase(running, wires, seconds, rate):
    """What everybody was served within the seconds; `rate` of the storm, 0 for none."""
    asker, server = wires
    wanted = _short_leases(running, asker, server)
    before = {port: running.counters(port) for port in (STORM_PORT, CLIENT_PORT, SERVER_PORT)}
    charged, started, end = lane.cpu(running.process.pid), time.monotonic(), time.monotonic() + seconds
    where = f"{running.switch.host(STORM_PORT)}/eth0"
    storm = lane.generate("spoof", where, rate * seconds, max(rate // 1000, 1), rate, STORM_CLIENTS) if rate else None
    with concurrent.futures.ThreadPoolExecutor() as pool:
        parts = [pool.submit(_exchanges, asker, server, end), pool.submit(_remote_calls, running.run, end)]
        parts.append(pool.submit(_requests, running.switch.namespace, end))
        exchanges, remote, requests = (part.result() for part in parts)
    sender = _end(storm) if storm else 0
    took = time.monotonic() - started
    lane.settle(lambda: sum(running.counters(STORM_PORT)[name] for name in ("received", "kernelDropped")),
                before[STORM_PORT]["received"] + before[STORM_PORT]["kernelDropped"] + rate * seconds)  # fmt: skip
    after = {port: running.counters(port) for port in before}
    gone = len(wanted - set(running.clients()))
    return {
        "sent": rate * seconds, "seconds": took, "exchanges": exchanges, "calls": remote, "requests": requests, "gone": gone,
        "cpu": (lane.cpu(running.process.pid) - charged) / 1e9 / took, "sender": sender / 1e9 / took,
        "counters": {port: {name: after[port][name] - before[port][name] for name in after[port]} for port in after},
    }  # fmt: skip


def _percentile(values, share):
    return sorted(values)[int(share * (len(values) - 1))] / 1000


def _rows(phase):
    done = [time for time in phase["exchanges"] if time is not None]
    answered = [time for time in phase["requests"] if time is not None]
    if not done or not answered or not phase["calls"]:
        raise SystemExit("bench/run: nobody was served")
    counters = phase["counters"]
    missed = sum(counters[port]["kernelDropped"] for port in (CLIENT_PORT, SERVER_PORT))
    return {
        "storm: frames sent": f"{phase['sent']:,}",
        "storm: taken by the daemon": f"{counters[STORM_PORT]['received']:,}",
        "storm: left in the kernel, the port's buffer full": f"{counters[STORM_PORT]['kernelDropped']:,}",
        "daemon's share of a processor": f"{phase['cpu']:.2f}",
        "share of the sender of the storm": f"{phase['sender']:.2f}",
        "exchanges of the other port": f"{len(done):,}",
        "of them lost": str(len(phase["exchanges"]) - len(done)),
        "frames of the other ports lost in the kernel": str(missed),
        "an exchange, median": f"{_percentile(done, 0.5):,.0f} us",
        "an exchange, 99th percentile": f"{_percentile(done, 0.99):,.0f} us",
        "remote calls": f"{len(phase['calls']):,}",
        "a remote call, median": f"{_percentile(phase['calls'], 0.5):,.0f} us",
        "a remote call, 99th percentile": f"{_percentile(phase['calls'], 0.99):,.0f} us",
        "SNMP requests": f"{len(answered):,}",
        "of them not answered": str(len(phase["requests"]) - len(answered)),
        "an SNMP request, median": f"{_percentile(answered, 0.5):,.0f} us",
        "an SNMP request, 99th percentile": f"{_percentile(answered, 0.99):,.0f} us",
        f"of {SHORT_LEASES} clients whose leases ran out, removed": str(phase["gone"]),
    }


def _panels(phases):
    panels = []
    for title, key in (("An exchange", "exchanges"), ("A remote call", "calls"), ("An SNMP request", "requests")):
        bars = []
        for shade, (name, phase) in enumerate(phases.items()):
            times = [time for time in phase[key] if time is not None]
            for words, share in (("median", 0.5), ("99th percentile", 0.99)):
                value = _percentile(times, share)
                bars.append(svg.Bar(f"{name}: {words}", value, value, value, f"{value:,.0f}", shade))
        panels.append(svg.Bars(title, "us", bars))
    return panels


def answer(effort):
    rate, seconds = effort(100_000, 10_000), effort(SECONDS, 3)
    with crowd.daemon("s1-") as running, snmp.managed(running):
        running.call(calls.PORT_MAX, STORM_PORT, STORM_CLIENTS)
        asker = only_from(Wire(running.switch.host(CLIENT_PORT), "eth0"), SERVER_MAC)
        server = only_from(Wire(running.switch.host(SERVER_PORT), "eth0"), FROM_US)
        try:
            phases = {
                "calm": _phase(running, (asker, server), seconds, 0),
                "storm": _phase(running, (asker, server), seconds, rate),
            }
        finally:
            asker.close()
            server.close()
    columns = [_rows(phase) for phase in phases.values()]
    heads = [f"within {seconds} s", "calm", f"storm of {rate:,} a second"]
    rows = [[name, *(column[name] for column in columns)] for name in columns[0]]
    return result.Answer([result.Table(heads, rows)], _panels(phases))
