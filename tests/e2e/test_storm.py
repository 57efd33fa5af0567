"""One port's host sends as fast as it can, and everybody else is served: by count, however fast or slow the machine is."""

import contextlib
import pathlib
import signal
import struct
import time

import pytest
from lab import calls, memory, vlans
from lab.daemon import Daemon
from lab.exchanges import OF_CLIENTS, OF_SERVER, SERVER, Exchanges, address_of, answers, asks
from lab.frames import (
    ADVERTISE, ETH_MARKER, FRAGMENT, INFORMATION_REQUEST, RELAY_FORW, RELAY_REPL, RENEW, REPLY, SERVERS, SERVERS_MAC, SOLICIT,
    UDP, ethernet, fragment_header, from_client, from_server, ia_na, ipv6, link_local, mac_bytes, mac_number, mac_text, message,
    relay_message,
)  # fmt: skip
from lab.storm import RECEIVER, SPOOFED, Storm, Stormy, carried, only_from

STORMY, CALM, QUIET, UPLINK = 1, 2, 3, 4  # ports
LIMIT, CAPACITY = 256, 2048  # clients: of the stormy port, as an operator would have it; of the table
TURN = 64  # frames that the daemon takes before it looks at anything else
QUESTION = 8  # frames that one counts for when the kernel has to be asked where it goes
ANYBODY = mac_text(SPOOFED + bytes(4))
SPOOF = from_client(SOLICIT, ANYBODY)
WANDERER = "02:0d:00:00:00:01"  # no client of the exchanges
TO_NOBODY = {  # each of them is a question to the kernel
    "INFORMATION-REQUESTs": from_client(INFORMATION_REQUEST, WANDERER, destination=ANYBODY),
    "RELAY-FORWs": from_client(
        RELAY_FORW, WANDERER, destination=ANYBODY, payload=relay_message(RELAY_FORW, message(SOLICIT))
    ),
}  # fmt: skip
to_nobody = pytest.mark.parametrize("frame", TO_NOBODY.values(), ids=TO_NOBODY)


@pytest.fixture
def storm(daemon, switch):
    """storm(frame..., port): the storm is on until its `end`, or the test's."""
    with contextlib.ExitStack() as stack:

        def begin(*frames, port=STORMY, **words):
            made = Stormy(daemon, switch, port, *frames, **words)
            stack.callback(made.storm.stop)
            return made

        yield begin


@pytest.fixture
def exchanges(daemon, switch):
    return Exchanges(daemon, switch, CALM, UPLINK)


@pytest.fixture
def limited(daemon):
    daemon.call(calls.PORT_MAX, STORMY, LIMIT)


# ---- Messages -----------------------------------------------------------------------------------------------------------


def test_clients_of_another_port_are_served(daemon, limited, exchanges, storm):
    on = storm(SPOOF)
    on.until_felt()
    numbers = exchanges.run(range(1, 201), on.reached(20_000))
    counted = on.end()
    exchanges.check()
    assert counted == {"received": counted["received"], "delivered": counted["received"]}
    assert daemon.grown(CALM, exchanges.before[CALM])["sent"] == len(exchanges.answered)
    assert daemon.grown(UPLINK, exchanges.before[UPLINK])["sent"] == LIMIT + len(exchanges.asked)
    assert {mac: set(client["leases"]) for mac, client in daemon.clients().items()} == {
        mac_number(number): {f"{address_of(number)}/128"} for number in numbers
    }
    assert (daemon.counted(STORMY), daemon.counted(CALM)) == (LIMIT, len(numbers))


def test_without_a_limit_the_storm_takes_the_table(daemon, switch, exchanges, storm):
    """Who had a place keeps it. A new client of the same VLAN is one too many for the VLAN; in another VLAN it is served, and
    not recorded."""
    exchanges.whole(1)
    on = storm(SPOOF)
    daemon.until(lambda: daemon.counted(STORMY) == CAPACITY - 1, "the table is full")
    for _ in range(50):
        exchanges.ask(RENEW, 1)
        exchanges.answer(REPLY, 1)
    for number in range(100, 150):
        exchanges.whole(number, tags=(10,))
    before = daemon.counters(CALM)
    refused = [asks(SOLICIT, number) for number in range(200, 250)]
    exchanges.client.send(*refused)
    daemon.until(lambda: daemon.counters(CALM)["delivered"] == before["delivered"] + len(refused), "they are refused")
    exchanges.whole(150, tags=(10,))  # what was sent before it would have come out
    assert on.end()["delivered"] > CAPACITY
    assert exchanges.server.take() == exchanges.asked
    assert exchanges.client.take() == exchanges.answered
    assert daemon.clients() == {mac_number(1): {"vlan": 1, "port": CALM, "leases": {f"{address_of(1)}/128": 7200}}}
    assert (daemon.counted(STORMY), daemon.counted(CALM)) == (CAPACITY - 1, 1)


def first_fragment():
    fragment = fragment_header(UDP, 0, True) + SPOOF[54 : 54 + 40]
    return ethernet(SERVERS_MAC, ANYBODY, ipv6(link_local(ANYBODY), SERVERS, FRAGMENT, fragment))


ROGUE = dict(server=ANYBODY, client=mac_number(1))
USELESS = {  # what nobody shall get: the frame, and what counts it
    "cut off": (SPOOF[:-10], "dropMalformed"),
    "first fragments": (first_fragment(), "dropFragment"),
    "ADVERTISEs": (from_server(ADVERTISE, **ROGUE), "delivered"),
    "REPLYs": (from_server(REPLY, options=ia_na(["2001:db8:bad::1"]), **ROGUE), "delivered"),
    "RELAY-REPLs": (
        from_server(RELAY_REPL, payload=relay_message(RELAY_REPL, message(REPLY)), **ROGUE), "delivered"
    ),
    "of an unknown type": (from_client(77, ANYBODY), "delivered"),
}  # fmt: skip


@pytest.mark.parametrize("frame, counter", USELESS.values(), ids=USELESS)
def test_a_storm_of_what_goes_nowhere(daemon, switch, exchanges, storm, frame, counter):
    quiet = switch.wire(QUIET)
    on = storm(frame)
    on.until_felt()
    numbers = exchanges.run(range(1, 31), on.reached(5000))
    counted = on.end()
    exchanges.check()
    assert counted == {"received": counted["received"], counter: counted["received"]}
    assert daemon.grown(CALM, exchanges.before[CALM])["sent"] == len(exchanges.answered)
    assert daemon.grown(UPLINK, exchanges.before[UPLINK])["sent"] == len(exchanges.asked)
    assert quiet.take() == []
    assert {mac: set(client["leases"]) for mac, client in daemon.clients().items()} == {
        mac_number(number): {f"{address_of(number)}/128"} for number in numbers
    }


def test_a_storm_from_a_port_that_does_not_forward(daemon, switch, exchanges, storm):
    vlans.bridge(switch, f"link set dev p{STORMY} state 0")
    daemon.until(lambda: calls.ports(daemon.link)[STORMY]["forwarding"] == 0, "the daemon hears of it")
    on = storm(SPOOF)
    on.until_felt()
    exchanges.run(range(1, 31), on.reached(5000))
    counted = on.end()
    exchanges.check()
    assert counted == {"received": counted["received"], "dropState": counted["received"]}


@pytest.mark.needs("vlan_filtering")
def test_a_storm_in_a_vlan_that_the_port_is_not_in(daemon, switch, storm):
    vlans.filtering(switch)
    daemon.until(lambda: calls.switch_status(daemon.link)["vlanFiltering"] == 1, "the daemon hears of it")
    daemon.until(lambda: vlans.known(daemon) == {1: ([*switch.ports], [*switch.ports])}, "and of the VLANs")
    exchanges = Exchanges(daemon, switch, CALM, UPLINK)
    on = storm(from_client(SOLICIT, ANYBODY, tags=(77,)))
    on.until_felt()
    exchanges.run(range(1, 31), on.reached(5000))
    counted = on.end()
    exchanges.check()
    assert counted == {"received": counted["received"], "dropVlan": counted["received"]}


def test_a_storm_from_the_servers_side(daemon, switch, exchanges, storm):
    """A second trusted port answers clients that nobody knows: each answer goes out of every other port."""
    daemon.call(calls.PORT_MODE, QUIET, 1)
    to_nobody = from_server(ADVERTISE, mac_text(SPOOFED + bytes(4)), server="02:5f:00:00:00:01")
    on = storm(to_nobody, port=QUIET, spoofed=RECEIVER)
    on.until_felt()
    exchanges.run(range(1, 31), on.reached(5000))
    counted = on.end()
    exchanges.check()
    flooded = counted["received"]
    assert counted == {"received": flooded, "delivered": flooded, "sent": len(exchanges.asked)}
    assert daemon.grown(CALM, exchanges.before[CALM])["sent"] == flooded + len(exchanges.answered)
    assert daemon.grown(UPLINK, exchanges.before[UPLINK])["sent"] == flooded + len(exchanges.asked)


@to_nobody
def test_a_storm_to_stations_that_nobody_knows(daemon, switch, exchanges, storm, frame):
    """All of it goes to the servers' port. Who is known meanwhile is found, and nobody else gets the answer."""
    quiet = switch.wire(QUIET)
    on = storm(frame, spoofed=RECEIVER)
    on.until_felt()
    exchanges.run(range(1, 31), on.reached(5000))
    counted = on.end()
    exchanges.check()
    assert counted == {"received": counted["received"], "delivered": counted["received"]}
    assert daemon.grown(UPLINK, exchanges.before[UPLINK])["sent"] == counted["received"] + len(exchanges.asked)
    assert daemon.grown(CALM, exchanges.before[CALM])["sent"] == len(exchanges.answered)
    assert quiet.take() == []


def test_two_storms_at_once(daemon, limited, exchanges, storm):
    daemon.call(calls.PORT_MAX, QUIET, LIMIT)
    both = [storm(SPOOF, port=port) for port in (STORMY, QUIET)]
    for on in both:
        on.until_felt()
    exchanges.run(range(1, 101), lambda: all(on.reached(10_000)() for on in both))
    for on in both:
        counted = on.end()
        assert counted == {"received": counted["received"], "delivered": counted["received"]}
    exchanges.check()


# ---- Turns --------------------------------------------------------------------------------------------------------------


@contextlib.contextmanager
def standing_still(daemon):
    """What comes for the daemon meanwhile waits for it all at once."""
    stat = pathlib.Path(f"/proc/{daemon.process.pid}/stat")
    daemon.process.send_signal(signal.SIGSTOP)
    try:
        while stat.read_text().rpartition(")")[2].split()[0] != "T":  # it ends what it is at
            time.sleep(0.001)
        yield
    finally:
        daemon.process.send_signal(signal.SIGCONT)


@pytest.mark.parametrize("stormy", [(STORMY,), (STORMY, QUIET)], ids=["one port", "two ports"])
def test_a_port_has_its_share_of_every_turn(daemon, switch, stormy):
    waiting = {port: [from_client(SOLICIT, mac_number(port), transaction=n) for n in range(2000)] for port in stormy}
    calm = [from_client(SOLICIT, mac_number(CALM), transaction=n) for n in range(500)]
    out = switch.wire(UPLINK)
    out.take()
    with standing_still(daemon):
        for port, frames in waiting.items():
            switch.wire(port).send(*frames)
        switch.wire(CALM).send(*calm)
    seen = out.wait(len(calm) + sum(map(len, waiting.values())))
    share = TURN // (1 + len(stormy))
    for turn in range(len(calm) // (share + 1)):  # whoever is first in a turn has what is left over
        of_calm = sum(frame[6:12] == mac_bytes(mac_number(CALM)) for frame in seen[turn * TURN : (turn + 1) * TURN])
        assert share <= of_calm <= share + TURN % share, turn
    for port, frames in {**waiting, CALM: calm}.items():
        assert [frame for frame in seen if frame[6:12] == mac_bytes(mac_number(port))] == frames


# ---- Remote calls -------------------------------------------------------------------------------------------------------


STATUS_OF_COUNTERS = (calls.STATUS, struct.pack("<II", 4, 0))
REMOTE = (calls.REMOTE_CALL, struct.pack("<IIIII", calls.GLOBAL_INFO, 1, 8, 0, 0) + bytes(4))


def put(link, *messages):
    for kind, payload in messages:
        link.send(calls.HEADER.pack(kind, 1, 7, 0, len(payload), 0, 0) + payload)


def taken_by(link):
    """The stormy port's frames at the moment of the next answer, None when it is a remote call's."""
    said = link.recv(65536)
    kind, result = calls.HEADER.unpack_from(said)[0], calls.HEADER.unpack_from(said)[5]
    assert result == 0
    if kind == calls.REMOTE_CALL:
        return None
    rows = said[calls.HEADER.size + 16 :]
    ports = {row[0]: row for row in calls.COUNTERS.iter_unpack(rows)}
    return ports[STORMY][2 + calls.COUNTER_NAMES.index("received")]


def until_waiting(daemon, switch, frames):
    """Returns when that many frames more have come in by the stormy port."""
    before = carried(switch, STORMY)[0]
    daemon.until(lambda: carried(switch, STORMY)[0] - before >= frames, f"{frames} frames wait")


def steps(numbers):
    return [after - before for before, after in zip(numbers, numbers[1:])]


def test_between_two_messages_a_turn_of_frames(daemon, limited, switch, storm):
    """Neither do the frames hold the messages up, nor the messages the frames."""
    on = storm(SPOOF)
    on.until_felt()
    with standing_still(daemon):
        put(daemon.link, *[STATUS_OF_COUNTERS] * 40)
        until_waiting(daemon, switch, 60 * TURN)
    assert steps([taken_by(daemon.link) for _ in range(40)]) == [TURN] * 39
    with standing_still(daemon):
        put(daemon.link, *[STATUS_OF_COUNTERS, REMOTE] * 20)
        until_waiting(daemon, switch, 60 * TURN)
    said = [taken_by(daemon.link) for _ in range(40)]
    assert said[1::2] == [None] * 20
    assert steps(said[::2]) == [2 * TURN] * 19
    on.end()


@to_nobody
def test_a_turn_takes_fewer_frames_that_ask_the_kernel(daemon, limited, switch, storm, frame):
    """And as many as before of those that come after them."""
    for storming, words, expected in (
        (frame, {"spoofed": RECEIVER}, [TURN // QUESTION] * 39), (SPOOF, {}, [TURN] * 39)
    ):  # fmt: skip
        on = storm(storming, **words)
        on.until_felt(2000)
        with standing_still(daemon):
            put(daemon.link, *[STATUS_OF_COUNTERS] * 40)
            until_waiting(daemon, switch, 60 * TURN)
        assert steps([taken_by(daemon.link) for _ in range(40)]) == expected
        on.end()


def test_a_crowd_of_callers(daemon, limited, switch, storm):
    """Thirty remote calls at once: a turn of frames goes before each."""
    on = storm(SPOOF)
    on.until_felt()
    with contextlib.ExitStack() as stack:
        crowd = [stack.enter_context(calls.connect(daemon.run)) for _ in range(30)]
        for caller in crowd:
            put(caller, STATUS_OF_COUNTERS)
            assert taken_by(caller) > 0  # it is let in
        with standing_still(daemon):
            for caller in crowd:
                put(caller, REMOTE, STATUS_OF_COUNTERS)
            until_waiting(daemon, switch, 60 * TURN)
        assert [taken_by(caller) for caller in crowd] == [None] * 30
        assert steps(sorted(taken_by(caller) for caller in crowd)) == [TURN] * 29
    on.end()


def test_a_crowd_that_asks_the_platform(daemon, limited, switch, storm):
    """What the daemon's platform answers itself comes one by one as well, a turn of frames before each."""
    on = storm(SPOOF)
    on.until_felt()
    with contextlib.ExitStack() as stack:
        crowd = [stack.enter_context(calls.connect(daemon.run)) for _ in range(30)]
        for caller in crowd:
            put(caller, STATUS_OF_COUNTERS)
            assert taken_by(caller) > 0  # it is let in
        with standing_still(daemon):
            for caller in crowd:
                put(caller, STATUS_OF_COUNTERS)
            until_waiting(daemon, switch, 60 * TURN)
        assert steps(sorted(taken_by(caller) for caller in crowd)) == [TURN] * 29
    on.end()


# ---- SNMP ---------------------------------------------------------------------------------------------------------------


def test_managers_are_answered(daemon, limited, manager, exchanges, storm):
    on = storm(SPOOF)
    on.until_felt()
    for number in range(1, 6):
        exchanges.whole(number)
        assert manager.get(".1.0", *(f".2.1.3.{port}" for port in (STORMY, CALM, QUIET, UPLINK)))[0] == 1
        assert len(manager.bulkwalk()) >= 31
    exchanges.run([5], on.reached(20_000))
    on.end()
    exchanges.check()


# ---- Timers and memory --------------------------------------------------------------------------------------------------


def test_leases_run_out_and_memory_stays(switch, request):
    """Leases of clients of the calm port run out on the daemon's clock, and those that nobody answered are given up."""
    with memory.small_pages():
        daemon = Daemon(switch, sanitizer="quarantine_size_mb=1").start()
    try:
        daemon.snoop(UPLINK).call(calls.PORT_MAX, STORMY, LIMIT)
        exchanges = Exchanges(daemon, switch, CALM, UPLINK)
        on = Stormy(daemon, switch, STORMY, SPOOF, distinct=1 << 16)
        with on.storm:
            for number in range(1, 101):
                exchanges.whole(number, valid=3)
            for number in range(101, 201):
                exchanges.ask(SOLICIT, number)
            assert len(daemon.clients()) == 100 and daemon.counted(CALM) == 200
            with standing_still(daemon):
                until_waiting(daemon, switch, 3 * TURN)  # after a full turn every buffer has been in use
            on.until_felt(10_000)
            first = memory.resident(daemon.process)
            daemon.until(lambda: daemon.clients() == {} and daemon.counted(CALM) == 100, "every lease has run out")
            if request.config.getoption("--long"):
                daemon.until(lambda: daemon.counted(CALM) == 0, "the others are given up", 220)
            on.until_felt(20_000)
            last = memory.resident(daemon.process)
            assert daemon.counted(STORMY) == LIMIT
            on.end()
        exchanges.check()
        print(f"{on.received()} frames, resident {first} and {last} KiB")
        assert last - first < 2048  # about half of it are pages that running out touches for the first time
    finally:
        daemon.close()


# ---- The bridge's MAC table ---------------------------------------------------------------------------------------------


def test_answers_follow_a_station_while_the_mac_table_floods(daemon, switch, storm):
    """Every frame of the storm is news to the bridge, which tells of it. Clients go to and fro meanwhile; each time they ask,
    and the answer comes out where they asked, and nowhere else."""
    wires = {port: only_from(switch.wire(port), OF_SERVER) for port in (CALM, QUIET)}
    server = only_from(switch.wire(UPLINK), OF_CLIENTS)
    server.send(answers(ADVERTISE, 1))  # the bridge knows where the server is
    for wire in wires.values():
        assert wire.wait(1) == [answers(ADVERTISE, 1)]
        wire.take()
    before, arrived = daemon.counters(STORMY), carried(switch, STORMY)[0]
    news = Storm(switch, STORMY, ethernet(SERVER, ANYBODY, bytes(46), ETH_MARKER))
    asked, due = [], {CALM: [], QUIET: []}
    with news:
        daemon.until(lambda: carried(switch, STORMY)[0] > arrived + 1000, "the storm is on")
        for number in range(1, 101):
            port = (CALM, QUIET, QUIET, CALM)[number % 4]
            asked.append(asks(SOLICIT, number % 5))
            wires[port].send(asked[-1])
            assert len(server.wait(len(asked))) == len(asked)
            due[port].append(answers(ADVERTISE, number % 5))
            server.send(due[port][-1])
            assert len(wires[port].wait(len(due[port]))) == len(due[port])
    assert server.take() == asked
    assert {port: wire.take() for port, wire in wires.items()} == due
    assert daemon.counters(STORMY) == before  # none of them was the daemon's


# ---- Links --------------------------------------------------------------------------------------------------------------


def test_the_stormy_port_goes_down_and_up(daemon, switch, limited, exchanges, storm):
    """Going down it loses its clients, and none comes back by what was still waiting. The other port never notices."""
    on = storm(SPOOF)
    numbers = iter(range(1, 1000))
    for _ in range(10):
        daemon.until(lambda: daemon.counted(STORMY) == LIMIT, "the storm has taken the port's places")
        exchanges.run([next(numbers)], lambda: True)
        switch.link(STORMY, "down")
        daemon.until(lambda: calls.ports(daemon.link)[STORMY]["forwarding"] == 0, "the daemon hears of it")
        exchanges.run([next(numbers)], lambda: True)
        assert daemon.counted(STORMY) == 0
        switch.link(STORMY, "up")
    daemon.until(lambda: daemon.counted(STORMY) == LIMIT, "the storm is back")
    on.storm.stop()
    exchanges.check()
    assert daemon.counted(CALM) == 20
