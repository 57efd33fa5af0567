"""A relay's answer is unwrapped while l2-relay is on."""

import pytest
from lab import calls, frames
from lab.frames import RELAY_REPL, REPLY, SERVER_PORT, SOLICIT, from_client, from_server, ia_na, message, option, relay_message

CLIENT = "02:aa:00:00:00:01"
INNER = message(REPLY, 0x0A0B0C, option(1, frames.duid(CLIENT)) + ia_na(["2001:db8::9"]))


@pytest.fixture
def relaying(daemon, sent):
    daemon.call(calls.L2_RELAY, 1)
    sent(1, from_client(SOLICIT, CLIENT))
    return daemon


def wrapped(inner=INNER, before=b"", tags=()):
    payload = relay_message(RELAY_REPL, inner, before=before)
    return from_server(RELAY_REPL, CLIENT, payload=payload, port=SERVER_PORT, tags=tags)


def bare(inner=INNER, tags=()):
    return from_server(REPLY, CLIENT, payload=inner, tags=tags)


@pytest.mark.parametrize("tags", [(), (10,), (10, 20)])
@pytest.mark.parametrize("before", [b"", option(18, b"port-7"), option(18, b"odd") + option(37, b"\0\0\xb8\x0fxx")])
def test_reply_is_unwrapped_and_learned(relaying, sent, tags, before):
    sent(1, from_client(SOLICIT, CLIENT, tags=tags))
    out = sent(4, wrapped(before=before, tags=tags))
    assert out == {1: [bare(tags=tags)]}
    assert frames.read(out[1][0])["udp_ok"]
    assert relaying.clients()[CLIENT]["leases"] == {"2001:db8::9/128": 7200}


@pytest.mark.parametrize("length", range(1, 9))
def test_any_length(relaying, sent, length):
    inner = INNER + option(65001, bytes(range(length)))
    assert sent(4, wrapped(inner)) == {1: [bare(inner)]}


def test_without_relay_message_it_stays(relaying, sent):
    frame = from_server(RELAY_REPL, CLIENT, payload=relay_message(RELAY_REPL, b"")[:34], port=SERVER_PORT)
    assert sent(4, frame) == {1: [frame]}


@pytest.mark.parametrize("length", range(0, 4))
def test_too_short_to_be_a_message_it_stays(relaying, sent, length):
    frame = wrapped(bytes([REPLY, 1, 2, 3])[:length])
    assert sent(4, frame) == {1: [frame]}


def test_nested_is_unwrapped_once(relaying, sent):
    nested = relay_message(RELAY_REPL, INNER)
    expected = from_server(RELAY_REPL, CLIENT, payload=nested, port=SERVER_PORT)
    assert sent(4, wrapped(nested)) == {1: [expected]}
    assert relaying.clients() == {}


def test_off_it_stays_wrapped(relaying, sent):
    relaying.call(calls.L2_RELAY, 0)
    assert sent(4, wrapped()) == {1: [wrapped()]}
    assert relaying.clients() == {}


def test_from_an_untrusted_port_it_goes_nowhere(relaying, sent):
    assert sent(3, wrapped()) == {}
    assert relaying.clients() == {}


def test_unwrapped_client_message_goes_to_servers(relaying, sent):
    """The inner type decides: a wrapped SOLICIT is a client's message, though it goes to the client port now."""
    inner = message(SOLICIT, 5, option(1, frames.duid(CLIENT)))
    expected = from_server(SOLICIT, CLIENT, payload=inner)
    assert sent(2, wrapped(inner)) == {4: [expected]}
