"""Where did it go? Sends frames into one port and says which frames came out of which port, all of them and nothing else.

Silence cannot be waited for, so every sending ends with markers: messages that the daemon is known to forward, twice, the
second one after the first was seen (the daemon sends what it forwards at the end of a turn of its loop; the second marker is of
a later turn), and a broadcast that the bridge forwards. When the markers are out, what went before them is out too."""

import itertools
import os

from . import frames, wire

MARKER = b"\x02\xfe\xed"
_numbers = itertools.count(1)


def _marker_mac():
    return frames.mac_text(MARKER + next(_numbers).to_bytes(3, "big"))


def is_marker(frame):
    return frame[6:9] == MARKER


def _ports(place):
    """The ports of a place, which is a port, or a tuple of them: the members of a bond, out of one of which a frame goes."""
    return place if isinstance(place, tuple) else (place,)


def _seen(switch, places, mac):
    source = frames.mac_bytes(mac)
    for place in places:
        if not wire.any_until([switch.wire(port) for port in _ports(place)], lambda frame: frame[6:12] == source):
            raise AssertionError(f"the marker did not come out of port {place}")


def settle(switch, port, trusted, tags=(), members=None):
    """Returns when everything that was sent into the port has come out where it comes out. The markers carry the tags and reach
    the members, all ports by default. Trusted ports and members are places."""
    others = [place for place in members or switch.ports if port not in _ports(place)]
    if trusted:
        for _ in range(2):
            mac = _marker_mac()
            if any(port in _ports(place) for place in trusted):
                switch.wire(port).send(frames.from_server(frames.RECONFIGURE, "33:33:ff:fe:ed:01", tags=tags, server=mac))
                _seen(switch, others, mac)
            else:
                switch.wire(port).send(frames.from_client(frames.INFORMATION_REQUEST, mac, tags=tags))
                _seen(switch, trusted, mac)
    mac = _marker_mac()
    switch.wire(port).send(frames.ethernet("ff:ff:ff:ff:ff:ff", mac, bytes(46), frames.ETH_MARKER, tags))
    _seen(switch, others, mac)


def listen(switch):
    """Forgets what was captured so far, on every port."""
    for port in switch.ports:
        switch.wire(port).take()


def heard(switch):
    """What came out since, by port; ports where nothing came out are left out."""
    found = {}
    for port in switch.ports:
        if taken := [frame for frame in switch.wire(port).take() if not is_marker(frame)]:
            found[port] = taken
    return found


def sent(switch, port, *sending, trusted=(4,), marker=None):
    """Sends the frames into the port and returns what came out, by port. `trusted` are the ports behind which the daemon looks
    for servers; empty when no daemon forwards anything. `marker` are the arguments of `settle` where VLANs keep the ports
    apart."""
    listen(switch)
    everywhere = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(everywhere)})  # what is sent on one processor stays in order
    try:
        switch.wire(port).send(*sending)
        settle(switch, *(marker or (port, trusted)))
    finally:
        os.sched_setaffinity(0, everywhere)
    return heard(switch)
