"""The daemon's locks, and local users without rights who want them."""

import contextlib
import errno
import fcntl
import os
import socket
import struct
import subprocess

import pytest
from lab import netns
from lab.daemon import Daemon, program
from lab.frames import SOLICIT, from_client, mac_number
from lab.machine import possible

NOBODY = 65534
NETLINK_NETFILTER, LOG_CONFIG, REQUEST_AND_ACK, COMMAND, BIND = 12, 4 << 8 | 1, 1 | 4, 1, 1
LOCK_GROUP = 23814


def lock_group():
    """What the kernel says to this process when it asks for the group that is the daemon's lock: 0, or an errno."""
    attribute = struct.pack("=HHBxxx", 5, COMMAND, BIND)
    body = struct.pack("=BBH", socket.AF_UNSPEC, 0, socket.htons(LOCK_GROUP)) + attribute
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, NETLINK_NETFILTER) as link:
        link.bind((0, 0))
        link.send(struct.pack("=IHHII", 16 + len(body), LOG_CONFIG, REQUEST_AND_ACK, 1, 0) + body)
        return -struct.unpack_from("=i", link.recv(4096), 16)[0]


def lock_file(path):
    """The same for the lock file: opened for reading, and locked."""
    try:
        fcntl.flock(os.open(path, os.O_RDONLY), fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError as error:
        return error.errno
    return 0


@contextlib.contextmanager
def stranger(namespace, path):
    """A process of another user in the switch's network namespace that takes whatever it can get and keeps it. Yields what it
    was told about the lock file and about the group."""
    answers, stop = os.pipe(), os.pipe()
    child = os.fork()
    if child == 0:
        try:
            with netns.entered(namespace):
                os.setgroups([])
                os.setgid(NOBODY)
                os.setuid(NOBODY)
                held = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
                held.bind("\0snoopd6")
                os.write(answers[1], struct.pack("ii", lock_file(path), lock_group()))
                os.close(stop[1])
                os.read(stop[0], 1)
        finally:
            os._exit(0)  # whatever happens: this is a copy of the tests
    os.close(answers[1])
    os.close(stop[0])
    try:
        yield struct.unpack("ii", os.read(answers[0], 8))
    finally:
        os.close(stop[1])
        os.close(answers[0])
        assert os.waitpid(child, 0)[1] == 0


pytestmark = pytest.mark.skipif(
    not possible(), reason="needs another user, which the user namespace of an ordinary user lacks"
)


@pytest.mark.parametrize("end", ["stop", "kill"])
def test_a_local_user_cannot_keep_the_daemon_from_starting(switch, sent, end):
    daemon = Daemon(switch)
    try:
        for _ in range(4):
            daemon.start()
            getattr(daemon, end)()
            with stranger(switch.namespace, daemon.run / "snoopd6.lock") as (file, group):
                daemon.start().snoop(4)
                frame = from_client(SOLICIT, mac_number(1))
                assert sent(1, frame) == {4: [frame]}
            assert file == (errno.EACCES if end == "kill" else errno.ENOENT)
            assert group == errno.EPERM
            daemon.stop()
    finally:
        daemon.close()


def test_a_second_daemon_of_a_user_with_the_rights(switch):
    """As the service runs: the kernel does not tell it who holds the lock, but that somebody does."""
    daemon = Daemon(switch)
    run = daemon.folder / "second"
    try:
        daemon.start()
        run.mkdir()
        os.chown(run, NOBODY, NOBODY)
        rights = "+net_admin,+net_raw"
        user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", "--inh-caps", rights, "--ambient-caps", rights]
        done = subprocess.run(
            netns.command(switch.namespace, [*user, program("snoopd6")]), env=daemon.environment() | {"SNOOPD6_RUN": str(run)},
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30, check=False,
        )  # fmt: skip
        assert done.returncode == 1
        assert done.stderr.startswith("snoopd6: another snoopd6 serves this network namespace; stop that one first")
        assert list(run.iterdir()) == []
    finally:
        daemon.close()
