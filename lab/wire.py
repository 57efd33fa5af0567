"""Frames as they are, at one end of a cable: sent, captured with their VLAN tags, counted."""

import select
import socket
import struct
import time

from . import frames, netns, patience

SOL_PACKET, PACKET_AUXDATA, PACKET_VERSION, PACKET_IGNORE_OUTGOING = 263, 8, 10, 23
SO_RCVBUFFORCE = 33
ETH_P_ALL = 3
STATUS_CSUM_NOT_READY, STATUS_VLAN_VALID, STATUS_TPID_VALID = 1 << 3, 1 << 4, 1 << 6
AUXDATA = struct.Struct("=IIIHHHH")  # status, length, captured, offsets of MAC and network header, tag, tag protocol
RECEIVE_BUFFER = 64 << 20  # bytes; holds the 10,000 frames of the largest burst several times over
TIMEOUT = patience.seconds(20.0)  # seconds until a frame that should have come counts as lost


class Wire:
    """One interface in one namespace."""

    def __init__(self, namespace, interface):
        self.name = f"{namespace}/{interface}"
        self.seen = []  # captured so far, in order
        self.unfinished = 0  # of them, frames whose checksum their sender left to the interface
        with netns.entered(namespace):
            self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
            try:
                self.socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
            except PermissionError:  # in a user namespace: as much as net.core.rmem_max allows
                self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)
            self.socket.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)
            self.socket.setsockopt(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1)
            self.socket.bind((interface, ETH_P_ALL))
        self.socket.setblocking(False)

    def close(self):
        self.socket.close()

    def send(self, *frames_):
        for frame in frames_:
            while True:
                try:
                    self.socket.send(frame)
                    break
                except BlockingIOError:
                    select.select([], [self.socket], [], TIMEOUT)

    def _take(self):
        """Captures what is there now. The kernel hands the outer tag over beside the frame."""
        taken = 0
        while True:
            try:
                frame, control, _, _ = self.socket.recvmsg(65535, 64)
            except BlockingIOError:
                return taken
            except OSError:  # the interface went down; frames may come again later
                return taken
            for level, kind, data in control:
                if level == SOL_PACKET and kind == PACKET_AUXDATA:
                    status, _, _, _, _, tag, protocol = AUXDATA.unpack(data[: AUXDATA.size])
                    if status & STATUS_VLAN_VALID:
                        protocol = protocol if status & STATUS_TPID_VALID else frames.ETH_8021Q
                        frame = frame[:12] + struct.pack("!HH", protocol, tag) + frame[12:]
                    if status & STATUS_CSUM_NOT_READY:
                        self.unfinished += 1
            self.seen.append(frame)
            taken += 1

    def wait(self, count, timeout=TIMEOUT):
        """Captures until at least `count` frames have been seen, or the time is up. Returns all frames seen."""
        return self.until(lambda: len(self.seen) >= count, timeout)

    def until(self, condition, timeout=TIMEOUT):
        end = time.monotonic() + timeout
        self._take()
        while not condition() and (left := end - time.monotonic()) > 0:
            select.select([self.socket], [], [], left)
            self._take()
        return self.seen

    def take(self):
        """Everything captured since the last call."""
        self._take()
        taken, self.seen, self.unfinished = self.seen, [], 0
        return taken


def any_until(wires, wanted, timeout=TIMEOUT):
    """Captures on all of the wires until one of them has seen a frame that is wanted. False when the time is up."""
    end = time.monotonic() + timeout
    while True:
        for wire in wires:
            wire.until(lambda: True)
        if any(wanted(frame) for wire in wires for frame in wire.seen):
            return True
        if (left := end - time.monotonic()) <= 0:
            return False
        select.select([wire.socket for wire in wires], [], [], left)
