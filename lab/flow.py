"""Where did it go? Sends frames into one port and says which frames came out of which port, all of them and nothing else.

Silence cannot be waited for, so every sending ends with markers: messages that the daemon is known to forward, twice, the
second one after the first was seen (the daemon sends what it forwards at the end of a turn of its loop; the second marker is of
a later turn), and a broadcast that the bridge forwards. When the markers are out, what went before them is out too."""

import itertools
import os

from . import frames

MARKER = b"\x02\xfe\xed"
_numbers = itertools.count(1)


def _marker_mac():
    return frames.mac_text(MARKER + next(_numbers).to_bytes(3, "big"))


def is_marker(frame):
    return frame[6:9] == MARKER


def _seen(switch, ports, mac):
    source = frames.mac_bytes(mac)
    for port in ports:
        wire = switch.wire(port)
        wire.until(lambda: any(frame[6:12] == source for frame in wire.seen))
        if not any(frame[6:12] == source for frame in wire.seen):
            raise AssertionError(f"the marker did not come out of port {port}")


def settle(switch, port, trusted):
    """Returns when everything that was sent into the port has come out where it comes out."""
    if trusted:
        for _ in range(2):
            mac = _marker_mac()
            if port in trusted:
                switch.wire(port).send(frames.from_server(frames.RECONFIGURE, "33:33:ff:fe:ed:01", server=mac))
                _seen(switch, [other for other in switch.ports if other != port], mac)
            else:
                switch.wire(port).send(frames.from_client(frames.INFORMATION_REQUEST, mac))
                _seen(switch, trusted, mac)
    mac = _marker_mac()
    switch.wire(port).send(frames.ethernet("ff:ff:ff:ff:ff:ff", mac, bytes(46), frames.ETH_MARKER))
    _seen(switch, [other for other in switch.ports if other != port], mac)


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


def sent(switch, port, *sending, trusted=(4,)):
    """Sends the frames into the port and returns what came out, by port. `trusted` are the ports behind which the daemon looks
    for servers; empty when no daemon forwards anything."""
    listen(switch)
    everywhere = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(everywhere)})  # what is sent on one processor stays in order
    try:
        switch.wire(port).send(*sending)
        settle(switch, port, trusted)
    finally:
        os.sched_setaffinity(0, everywhere)
    return heard(switch)
