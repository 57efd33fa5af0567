"""A storm: the host behind a port sends as fast as it can, until it is told to stop, and every frame has another sender.

A process of its own sends in batches; how many frames it sent stands in memory that both share."""

import ctypes
import errno
import itertools
import mmap
import os
import signal
import socket
import struct

from . import netns

BATCH = 64
SENDER, RECEIVER = 6, 0  # where a frame's source and destination MAC stand
SPOOFED = b"\x02\x66"  # the first bytes of every MAC that a storm makes up
PLAIN_LOSSES = (errno.ENOBUFS, errno.ENETDOWN, errno.EAGAIN)  # the interface is down, or took nothing just now
PR_SET_PDEATHSIG = 1
SO_ATTACH_FILTER = 26
LOAD_HALF, EQUAL, RETURN = 0x28, 0x15, 0x06  # of the classic packet filter

libc = ctypes.CDLL(None, use_errno=True)


class _Piece(ctypes.Structure):
    """struct iovec"""

    _fields_ = [("base", ctypes.c_void_p), ("length", ctypes.c_size_t)]


class _Header(ctypes.Structure):
    """struct msghdr"""

    _fields_ = [
        ("name", ctypes.c_void_p), ("name_length", ctypes.c_uint32),
        ("pieces", ctypes.POINTER(_Piece)), ("piece_count", ctypes.c_size_t),
        ("control", ctypes.c_void_p), ("control_length", ctypes.c_size_t), ("flags", ctypes.c_int),
    ]  # fmt: skip


class _Message(ctypes.Structure):
    """struct mmsghdr"""

    _fields_ = [("header", _Header), ("sent", ctypes.c_uint)]


class _Batch:
    """As many frames as one system call sends, with room to change their MACs in place."""

    def __init__(self, frames):
        self.frames = list(itertools.islice(itertools.cycle(frames), BATCH))
        self.room = max(len(frame) for frame in frames)
        self.bytes = bytearray(self.room * BATCH)
        start = ctypes.addressof(ctypes.c_char.from_buffer(self.bytes))
        self.pieces = (_Piece * BATCH)()
        self.messages = (_Message * BATCH)()
        for index, frame in enumerate(self.frames):
            at = index * self.room
            self.bytes[at : at + len(frame)] = frame
            self.pieces[index] = _Piece(start + at, len(frame))
            self.messages[index].header.pieces = ctypes.pointer(self.pieces[index])
            self.messages[index].header.piece_count = 1

    def spoof(self, where, numbers):
        for index in range(BATCH):
            at = index * self.room + where
            self.bytes[at : at + 2] = SPOOFED
            struct.pack_into("!I", self.bytes, at + 2, next(numbers))

    def send(self, descriptor):
        sent = libc.sendmmsg(descriptor, self.messages, BATCH, 0)
        if sent < 0 and ctypes.get_errno() not in PLAIN_LOSSES:
            raise OSError(ctypes.get_errno(), "a storm cannot be sent")
        return max(sent, 0)


class Storm:
    """Sends the frames, over and over, from its making to `stop`. The MAC at `spoofed` is another one in each of them, with
    `distinct` in all."""

    def __init__(self, switch, port, *frames, spoofed=SENDER, distinct=1 << 32):
        with netns.entered(switch.host(port)):
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
            self._socket.bind(("eth0", 0))
        self._shared = mmap.mmap(-1, mmap.PAGESIZE)  # how many were sent; then whether it shall stop
        self._batch, self._where, self._distinct = _Batch(frames), spoofed, distinct
        self._process = os.fork()
        if self._process == 0:
            self._run()

    def _run(self):
        status = 1
        try:
            libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
            sent, numbers = 0, (number % self._distinct for number in itertools.count())
            while not self._shared[8]:
                self._batch.spoof(self._where, numbers)
                sent += self._batch.send(self._socket.fileno())
                struct.pack_into("=Q", self._shared, 0, sent)
            status = 0
        finally:
            os._exit(status)

    @property
    def sent(self):
        return struct.unpack_from("=Q", self._shared)[0]

    def stop(self):
        """Ends the storm; how many frames it sent."""
        if self._process is not None:
            self._shared[8] = 1
            status, self._process = os.waitpid(self._process, 0)[1], None
            self._socket.close()
            assert status == 0, f"the storm broke off: {status}"
        return self.sent

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


class Stormy:
    """A storm, and what the daemon counts of it."""

    def __init__(self, daemon, switch, port, *frames, **words):
        self.daemon, self.switch, self.port = daemon, switch, port
        self.before, self.cable = daemon.counters(port), carried(switch, port)
        self.storm = Storm(switch, port, *frames, **words)

    def received(self):
        return self.daemon.counters(self.port)["received"] - self.before["received"]

    def reached(self, frames):
        return lambda: self.received() >= frames

    def until_felt(self, frames=1000):
        self.daemon.until(self.reached(frames), f"{frames} frames of the storm are taken")

    def end(self):
        """When all of it has come to its end: what the port's counters say. The cable carried every frame or lost it, and those
        that it carried were taken, or lost because the port's socket was full."""
        sent = self.storm.stop()
        passed, lost = (now - before for now, before in zip(carried(self.switch, self.port), self.cable))
        assert passed + lost == sent

        def taken():
            counted = self.daemon.grown(self.port, self.before)
            return counted["received"] + counted.get("kernelDropped", 0) == passed

        self.daemon.until(taken, "the daemon has taken what the kernel handed over")
        counted = self.daemon.grown(self.port, self.before)
        counted.pop("kernelDropped", None)
        return counted


def only_from(wire, start):
    """The wire sees only frames whose source MAC starts with these two bytes: what else there is stays in the kernel."""
    code = ((LOAD_HALF, 0, 0, SENDER), (EQUAL, 0, 1, int.from_bytes(start, "big")), (RETURN, 0, 0, 65535), (RETURN, 0, 0, 0))
    program = b"".join(struct.pack("=HBBI", *step) for step in code)
    buffer = ctypes.create_string_buffer(program, len(program))
    wire.socket.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER, struct.pack("HP", len(code), ctypes.addressof(buffer)))
    wire.take()
    return wire


def carried(switch, port):
    """What the cable carried so far from the host to the port, and what it lost (frames): the kernel queues no more than a
    thousand frames a processor between the two ends."""
    lost = _device(switch.host(port), "eth0")[11]
    return _device(switch.namespace, f"p{port}")[1], lost


def lost_toward(switch, port):
    """How many frames the cable lost on their way from the port to its host."""
    return _device(switch.namespace, f"p{port}")[11]


def _device(namespace, interface):
    """The counters of an interface: eight of what it received, bytes and packets first, and eight of what it sent."""
    with netns.entered(namespace), open("/proc/thread-self/net/dev") as table:
        line = next(line for line in table if line.strip().startswith(f"{interface}:"))
    return [int(word) for word in line.split(":")[1].split()]
