"""A message to one station goes where the bridge saw it last, also right after it moved."""

import signal

from lab import calls
from lab.flow import heard, listen, settle
from lab.frames import ADVERTISE, ethernet, from_server, mac_bytes, mac_number
from lab.switch import BRIDGE

STATION, OTHER = mac_number(1), mac_number(2)
MARKER_TYPE = 0x88B5


def hello(mac):
    """A broadcast that the bridge forwards by itself."""
    return ethernet("ff:ff:ff:ff:ff:ff", mac, bytes(46), MARKER_TYPE)


def test_the_answer_follows_the_station(daemon, sent):
    answer = from_server(ADVERTISE, STATION)
    for port in (1, 2, 3, 2, 1, 1, 3) * 5:
        sent(port, hello(STATION))
        assert sent(4, answer) == {port: [answer]}


def test_stations_do_not_stand_for_each_other(daemon, sent):
    stations = {mac_number(number): 1 + number % 3 for number in range(1, 31)}
    for mac, port in stations.items():
        sent(port, hello(mac))
    answers = {mac: from_server(ADVERTISE, mac) for mac in stations}
    for _ in range(2):
        assert sent(4, *answers.values()) == {
            port: [answers[mac] for mac, at in stations.items() if at == port] for port in (1, 2, 3)
        }


def test_a_forgotten_station_is_looked_for_everywhere(daemon, switch, sent):
    answer = from_server(ADVERTISE, STATION)
    sent(1, hello(STATION))
    assert sent(4, answer) == {1: [answer]}
    switch.ip("link", "set", BRIDGE, "type", "bridge", "fdb_flush")
    assert sent(4, answer) == {port: [answer] for port in (1, 2, 3)}


def test_the_switch_takes_the_station_s_address(daemon, switch, sent):
    answer = from_server(ADVERTISE, STATION)
    sent(1, hello(STATION))
    assert sent(4, answer) == {1: [answer]}
    switch.ip("link", "set", BRIDGE, "address", STATION)
    assert sent(4, answer) == {port: [answer] for port in (1, 2, 3)}  # its own address tells no port


def crowded(daemon, switch, stations):
    """While the daemon stands still, that many new stations appear behind port 2, and STATION moves there."""
    daemon.process.send_signal(signal.SIGSTOP)
    switch.wire(2).send(*(hello(mac_number(1000 + number)) for number in range(stations)), hello(STATION))
    switch.wire(3).until(lambda: any(frame[6:12] == mac_bytes(STATION) for frame in switch.wire(3).seen))
    listen(switch)


def test_a_move_behind_more_news_than_a_turn_reads(daemon, switch, sent):
    answer, other = from_server(ADVERTISE, STATION), from_server(ADVERTISE, OTHER)
    sent(1, hello(STATION), hello(OTHER))
    assert sent(4, answer, other) == {1: [answer, other]}
    crowded(daemon, switch, 1000)
    switch.wire(4).send(answer, other)  # waits for the daemon together with the news
    daemon.process.send_signal(signal.SIGCONT)
    settle(switch, 4, (4,))
    assert heard(switch) == {2: [answer], 1: [other]}


def test_a_move_among_more_news_than_the_kernel_keeps(daemon, switch, sent):
    answer, other = from_server(ADVERTISE, STATION), from_server(ADVERTISE, OTHER)
    sent(1, hello(STATION), hello(OTHER))
    assert sent(4, answer, other) == {1: [answer, other]}
    crowded(daemon, switch, 20_000)
    daemon.process.send_signal(signal.SIGCONT)
    for _ in range(100):  # a turn each: what the kernel kept is read
        calls.switch_status(daemon.link)
    assert sent(4, answer, other) == {2: [answer], 1: [other]}
