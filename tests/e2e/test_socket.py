"""Callers that break the rules of the socket while messages of DHCPv6 clients pass: whoever breaks a rule is refused or
disconnected, every frame comes out where it belongs, and other callers are served."""

import itertools
import os
import re
import socket
import struct
import threading

import pytest
from lab import calls
from lab.frames import ADVERTISE, SOLICIT, from_client, from_server, mac_number

RUNNING_CONFIG, DEBUG = 0x8001, 0x8002
LARGEST = 64500  # bytes of a message
UNKNOWN, BAD_MESSAGE, WRONG_COUNT = -1, -1001, -1001
PLACES = 64  # connections at once


@pytest.fixture
def unharmed(daemon, sent):
    """unharmed(): a message goes through the daemon each way, and another caller is answered."""
    numbers = itertools.count(1)

    def check():
        mac = mac_number(next(numbers))
        ask = from_client(SOLICIT, mac)
        assert sent(1, ask) == {4: [ask]}
        answer = from_server(ADVERTISE, mac)
        assert sent(4, answer) == {1: [answer]}
        assert calls.switch_status(daemon.link)["snooping"] == 1

    check()
    return check


def connected(daemon):
    """A connection, waited for like any program does: the daemon accepts a few callers in each turn of its loop."""
    link = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    link.connect(str(daemon.run / "snoopd6.sock"))
    link.settimeout(20)
    return link


@pytest.fixture
def caller(daemon):
    """caller(): one more connection."""
    made = []

    def connect():
        made.append(connected(daemon))
        return made[-1]

    yield connect
    for link in made:
        link.close()


def message(kind, payload=b"", version=1, length=None):
    return calls.HEADER.pack(kind, version, 1, 0, len(payload) if length is None else length, 0, 0) + payload


def ended(link):
    try:
        return link.recv(65536) == b""
    except ConnectionResetError:
        return True


CALL_OF_NOTHING = struct.pack("<II", calls.STOP, 0)
BROKEN = {
    "empty": b"",
    "one byte": b"\1",
    "torn in the header": message(calls.REMOTE_CALL, CALL_OF_NOTHING)[:23],
    "torn in the payload": message(calls.REMOTE_CALL, CALL_OF_NOTHING)[:-1],
    "version 0": message(calls.REMOTE_CALL, CALL_OF_NOTHING, version=0),
    "version 2": message(calls.REMOTE_CALL, CALL_OF_NOTHING, version=2),
    "says less than it has": message(calls.REMOTE_CALL, CALL_OF_NOTHING, length=7),
    "says more than it has": message(calls.REMOTE_CALL, CALL_OF_NOTHING, length=65535),
    "too long": message(calls.REMOTE_CALL, bytes(LARGEST - 23)),
    "far too long": bytes(100_000),
    "platform message, torn": message(calls.STATUS, bytes(8))[:-1],
    "running configuration, torn": message(RUNNING_CONFIG, bytes(8))[:-1],
}


@pytest.mark.parametrize("name", BROKEN)
def test_what_is_no_message_ends_its_connection(caller, unharmed, name):
    link = caller()
    link.send(BROKEN[name])
    assert ended(link)
    unharmed()


def arguments(*lengths, zero=0):
    return b"".join(struct.pack("<II", length, zero) + bytes(min(length, 5000) + -length % 8) for length in lengths)


REFUSED_CALLS = {
    "no call at all": (b"", BAD_MESSAGE),
    "no count": (struct.pack("<I", 0), BAD_MESSAGE),
    "behind the last identifier": (struct.pack("<II", 37, 0), UNKNOWN),
    "an identifier far away": (struct.pack("<II", 0xFFFFFFFF, 0), UNKNOWN),
    "more arguments than any call has": (struct.pack("<II", calls.STOP, 9) + arguments(*[4] * 9), BAD_MESSAGE),
    "2^32 - 1 arguments": (struct.pack("<II", calls.STOP, 0xFFFFFFFF), BAD_MESSAGE),
    "an argument that is not there": (struct.pack("<II", calls.PORT_MODE, 2) + arguments(4), BAD_MESSAGE),
    "an argument longer than the message": (struct.pack("<IIII", calls.DELETE_BY_MAC, 1, 4096, 0), BAD_MESSAGE),
    "an argument longer than any": (struct.pack("<II", calls.DELETE_BY_MAC, 1) + arguments(4097), BAD_MESSAGE),
    "2^32 - 1 bytes": (struct.pack("<IIII", calls.DELETE_BY_MAC, 1, 0xFFFFFFFF, 0), BAD_MESSAGE),
    "bytes behind the arguments": (struct.pack("<II", calls.STOP, 0) + bytes(8), BAD_MESSAGE),
    "STOP with an argument": (struct.pack("<II", calls.STOP, 1) + arguments(4), WRONG_COUNT),
}  # fmt: skip


@pytest.mark.parametrize("name", REFUSED_CALLS)
def test_what_is_no_call_is_refused(caller, unharmed, name):
    payload, result = REFUSED_CALLS[name]
    link = caller()
    answer, echo = calls.ask(link, calls.REMOTE_CALL, payload)
    assert answer == result
    assert echo == payload  # and nobody wrote into it
    assert calls.switch_status(link)["snooping"] == 1  # the connection goes on
    unharmed()


def test_every_call_with_a_wrong_count(daemon, caller, unharmed):
    link = caller()
    config = daemon.call(calls.GLOBAL_INFO, bytes(8))
    for number in range(37):
        assert calls.call(link, number, *[bytes(8)] * 7)[0] == WRONG_COUNT, number
    assert daemon.call(calls.GLOBAL_INFO, bytes(8)) == config
    unharmed()


def test_types_and_tables_that_nobody_has(caller, unharmed):
    link = caller()
    for kind in (0x8000, 0x8006, 0x800F, 0x8010, 0xFFFF):
        assert calls.ask(link, kind, bytes(8)) == (-2, b""), kind
    assert calls.ask(link, calls.STATUS, struct.pack("<II", 0xFFFFFFFF, 0))[0] == -2
    for kind in (RUNNING_CONFIG, DEBUG, calls.STATUS):
        assert calls.ask(link, kind, bytes(60_000)) == (-1, b""), kind
    unharmed()


def test_callers_that_connect_and_stall(caller, unharmed):
    """More than there are places for; those that speak keep theirs."""
    silent = [caller() for _ in range(3 * PLACES)]
    unharmed()
    gone = [ended_now(link) for link in silent]
    assert any(gone) and not gone[-1]


def ended_now(link):
    link.setblocking(False)
    try:
        return link.recv(1) == b""
    except BlockingIOError:
        return False
    except ConnectionResetError:
        return True


def test_a_caller_that_asks_and_does_not_read(caller, unharmed):
    deaf = caller()
    deaf.setblocking(False)
    asked = 0
    with pytest.raises((BrokenPipeError, BlockingIOError, ConnectionResetError)):
        for asked in range(100_000):
            deaf.send(message(calls.STATUS, struct.pack("<II", 1, 0)))
    assert asked > 1
    unharmed()


def test_a_caller_that_leaves_before_the_answer(daemon, unharmed):
    for _ in range(PLACES // 2):
        link = connected(daemon)
        link.send(message(calls.REMOTE_CALL, struct.pack("<II", calls.PORT_INFO, 2) + arguments(4, 12)))
        link.close()
    unharmed()


def test_a_flood_of_calls(daemon, caller, unharmed, sent):
    """Four callers ask as fast as they can: broken calls, the whole running configuration, tables, new connections."""
    stop = threading.Event()
    made = [0] * 4

    def ask(kind, payload, index):
        link = caller()
        while not stop.is_set():
            calls.ask(link, kind, payload)
            made[index] += 1

    def connect(index):
        while not stop.is_set():
            link = connected(daemon)
            link.send(b"\0" * 100)
            assert ended(link)
            link.close()
            made[index] += 1

    floods = [
        threading.Thread(target=ask, args=(calls.REMOTE_CALL, struct.pack("<II", 99, 0) + bytes(60_000), 0)),
        threading.Thread(target=ask, args=(RUNNING_CONFIG, bytes(8), 1)),
        threading.Thread(target=ask, args=(calls.STATUS, struct.pack("<II", 1, 0), 2)),
        threading.Thread(target=connect, args=(3,)),
    ]
    for flood in floods:
        flood.start()
    try:
        daemon.until(lambda: min(made) > 10, "the flood is there")
        for _ in range(5):
            burst = [from_client(SOLICIT, mac_number(n)) for n in range(1000, 1100)]
            assert sent(1, *burst) == {4: burst}
            unharmed()
    finally:
        stop.set()
        for flood in floods:
            flood.join()
    print("calls in the flood:", made)
    assert all(daemon.counters(port)["kernelDropped"] == 0 for port in (1, 2, 3, 4))


def test_strangers_are_refused(daemon, unharmed):
    """Not by the file's mode alone: with a socket open to everybody, credentials decide."""
    path = str(daemon.run / "snoopd6.sock")
    for mode, expected in ((0o660, PermissionError), (0o666, None)):
        os.chmod(path, mode)
        child = os.fork()
        if child == 0:
            os._exit(stranger(path, expected))
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
        unharmed()


def stranger(path, expected):
    """As a process of another user: 0 when it was turned away."""
    try:
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)
        link = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        link.settimeout(20)
        link.connect(path)
        link.send(message(calls.REMOTE_CALL, CALL_OF_NOTHING))
        return 1 if expected or not ended(link) else 0
    except BrokenPipeError:
        return 0 if expected is None else 2
    except PermissionError as error:
        return 0 if expected is PermissionError and error.errno == 13 else 3


def count_of(lines):
    """How many lines these stand for."""
    return sum(1 + int((re.search(r"\((\d+) more like this\)$", line) or [0, 0])[1]) for line in lines)


def test_a_flood_of_connections_writes_few_lines(daemon, unharmed):
    """One that speaks is held, so that the daemon has seen all before it."""
    made = []
    for _ in range(30):
        made += [connected(daemon) for _ in range(PLACES)]
        calls.switch_status(daemon.link)
    unharmed()
    for link in made:
        link.close()
    assert daemon.stop() == 0
    lines = [line for line in daemon.log().splitlines() if "silent longest" in line]
    assert (len(lines), count_of(lines)) == (6, 29 * PLACES + 1)


def test_a_flood_of_broken_and_unknown_messages_writes_few_lines(daemon, caller, unharmed):
    for _ in range(200):
        link = caller()
        link.send(message(calls.REMOTE_CALL, version=2))
        assert ended(link)
    link = caller()
    for _ in range(200):
        link.send(message(2))
    unharmed()
    assert daemon.stop() == 0
    broken = [line for line in daemon.log().splitlines() if "sent a message that is" in line]
    unknown = [line for line in daemon.log().splitlines() if "receive unknown msg 2" in line]
    assert (len(broken), count_of(broken)) == (6, 200)
    assert (len(unknown), count_of(unknown)) == (6, 200)
