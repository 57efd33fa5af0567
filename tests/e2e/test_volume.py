"""Many messages: none twice, none lost, and no memory that grows."""

import collections
import itertools
import threading

from lab import calls, flow, frames, memory, patience
from lab.daemon import Daemon
from lab.frames import (
    ADVERTISE, RELEASE, RENEW, REPLY, REQUEST, SOLICIT, duid, from_client, from_server, ia_na, ia_pd, mac_number, option,
)  # fmt: skip

CLIENTS = 2048
WINDOW = 256  # messages under way at once


def port_of(number):
    return 1 + number % 3


def address_of(number):
    return f"2001:db8::{number + 1:x}"


def from_clients(kind):
    return [(port_of(n), from_client(kind, mac_number(n), transaction=kind << 16 | n)) for n in range(CLIENTS)]


def from_the_server(kind):
    return [
        (4, from_server(kind, mac_number(n), option(1, duid(mac_number(n))) + ia_na([address_of(n)]), kind << 16 | n))
        for n in range(CLIENTS)
    ]


def exit_of(port, frame):
    """Where a frame that goes into the port must come out."""
    return 4 if port != 4 else port_of(frames.transaction(frame) & 0xFFFF)


def push(switch, messages, expected):
    """Sends messages, a window at a time; `expected` says how many have come out of each port at the end of each window."""
    for first in range(0, len(messages), WINDOW):
        window = messages[first : first + WINDOW]
        for port, frame in window:
            switch.wire(port).send(frame)
            expected[exit_of(port, frame)] += 1
        for port, count in expected.items():
            assert len(switch.wire(port).wait(count)) == count


def test_ten_thousand_messages(daemon, switch, sent):
    """Five messages each of 2,048 clients behind three ports: every one comes out once, of the one port it belongs to."""
    going = [from_clients(SOLICIT), from_the_server(ADVERTISE), from_clients(REQUEST), from_the_server(REPLY)]
    going.append(from_clients(RENEW))
    assert sum(len(kind) for kind in going) > 10_000
    flow.listen(switch)
    expected = collections.Counter()
    for kind in going:
        push(switch, kind, expected)
    due = {port: collections.Counter() for port in switch.ports}
    for port, frame in itertools.chain(*going):
        due[exit_of(port, frame)][frame] += 1
    seen = {port: collections.Counter(switch.wire(port).take()) for port in switch.ports}
    late = sent(1)  # whatever else there is has come by then
    assert late == {}
    assert seen == due
    assert sum(daemon.counted(port) for port in (1, 2, 3)) == CLIENTS
    clients = daemon.clients()
    assert len(clients) == CLIENTS
    for number in range(CLIENTS):
        record = clients[mac_number(number)]
        assert record["port"] == port_of(number) and set(record["leases"]) == {f"{address_of(number)}/128"}
    assert all(daemon.counters(port)["kernelDropped"] == 0 for port in switch.ports)


def test_burst_of_every_client_at_once(daemon, switch, sent):
    """2,048 messages without a pause fit into the daemon's receive buffer."""
    burst = [from_client(SOLICIT, mac_number(n)) for n in range(CLIENTS)]
    assert sent(1, *burst) == {4: burst}
    assert daemon.counters(1)["kernelDropped"] == 0


def test_no_port_starves_another(daemon, switch):
    """A storm on port 1 fills its queue; a message on port 2 comes through long before the storm is over."""
    storm = [from_client(SOLICIT, mac_number(1), transaction=n) for n in range(4096)]
    lone = from_client(SOLICIT, mac_number(2), transaction=0xABCDEF)
    out = switch.wire(4)
    out.take()
    daemon.process.send_signal(19)  # both queues fill while the daemon stands still
    switch.wire(1).send(*storm)
    switch.wire(2).send(lone)
    daemon.process.send_signal(18)
    seen = out.wait(len(storm) + 1)
    assert len(seen) == len(storm) + 1
    assert seen.index(lone) <= 128


def test_starting_and_stopping_under_traffic(daemon, switch, sent):
    """While messages flow, snooping goes off and on. Kernel and daemon change over between two messages; only what is under
    way at that moment may come twice (the bridge forwarded it, and the daemon finds it too) or be lost (it waited for the
    daemon)."""
    under_way = 40 if patience.FACTOR == 1 else 120  # messages; 20 ms of this traffic, or 60 with an emulated processor
    stop = threading.Event()
    sending = []

    def traffic():
        wire = switch.wire(1)
        for number in itertools.count():
            if stop.wait(0.0005):
                return
            frame = from_client(SOLICIT, mac_number(number % 64), transaction=number)
            sending.append(frame)
            wire.send(frame)

    switch.wire(4).take()
    thread = threading.Thread(target=traffic)
    thread.start()
    moments = set()
    for change in range(20):
        reached = len(sending) + 100
        daemon.until(lambda reached=reached: len(sending) >= reached, "traffic flows")
        before = len(sending)
        daemon.call(calls.STOP if change % 2 == 0 else calls.START)
        moments.update(range(before - under_way, len(sending) + 1))
    stop.set()
    thread.join()
    seen = collections.Counter(switch.wire(4).take())
    seen.update(sent(1).get(4, []))
    assert set(seen) <= set(sending)
    wrong = {number for number, frame in enumerate(sending) if seen[frame] != 1}
    print(f"{len(sending)} messages, {len(wrong)} of them lost or twice")
    assert wrong <= moments
    assert max(seen.values()) <= 2 and len(wrong) <= under_way
    frame = from_client(SOLICIT, mac_number(9))
    assert sent(1, frame) == {4: [frame]}


def test_churn_does_not_grow(switch, request):
    """Clients come, get leases, get them again, release them or are moved or deleted, over and over."""
    total = 1_000_000 if request.config.getoption("--long") else 60_000
    with memory.small_pages():
        daemon = Daemon(switch, sanitizer="quarantine_size_mb=1").start()
    try:
        daemon.snoop(4)
        flow.listen(switch)
        count, marks = 0, []
        out, back = switch.wire(4), {port: switch.wire(port) for port in (1, 2)}
        rounds = itertools.count()
        while count < total:
            turn = next(rounds)
            port = 1 + turn % 2  # every second round finds the clients behind the other port
            macs = [mac_number((turn % 3) * 1000 + n) for n in range(WINDOW)]
            leases = ia_na([address_of(turn % 7 + n) for n in range(3)]) + ia_pd([f"2001:db8:{turn % 5:x}::/48"])
            up = [from_client(SOLICIT, mac) for mac in macs]
            down = [from_server(REPLY, mac, leases) for mac in macs]
            gone = [from_client(RELEASE, mac, option(1, duid(mac)) + leases) for mac in macs] if turn % 4 != 3 else []
            switch.wire(port).send(*up)
            assert len(out.wait(len(up))) == len(up)
            switch.wire(4).send(*down, *down)  # granted, and granted again
            assert len(back[port].wait(2 * len(down))) == 2 * len(down)
            out.take()
            back[port].take()
            if gone:
                switch.wire(port).send(*gone)
                assert len(out.wait(len(gone))) == len(gone)
                out.take()
            elif turn % 8 == 7:
                daemon.call(calls.DELETE_ALL)
            count += len(up) + 2 * len(down) + len(gone)
            if count * 5 > total * (len(marks) + 1):
                marks.append(memory.resident(daemon.process))
        growth = marks[-1] - marks[0]
        print(f"{count} messages, resident {marks} KiB")
        assert growth < 1024, marks
    finally:
        daemon.close()
