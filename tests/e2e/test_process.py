"""Starting, refusing to start, stopping, dying."""

import socket
import subprocess

import pytest
from lab import calls, netns
from lab.daemon import Daemon, program, switch_file
from lab.frames import REPLY, SOLICIT, from_client, from_server, mac_number

FOREIGN = "add table bridge other; add chain bridge other f { type filter hook forward priority 5; }"
PORT = '[[port]]\nnumber = 1\ninterface = "p1"\n'
TOP = 'bridge = "br0"\n'


@pytest.fixture
def make(switch):
    made = []

    def daemon(**words):
        made.append(Daemon(switch, **words))
        return made[-1]

    yield daemon
    for one in made:
        one.close()


def refused(daemon, *words):
    """The daemon refuses to start with one sentence that has these words, and leaves nothing behind."""
    before = daemon.switch.ruleset()
    was = daemon.run.exists()
    status, said = daemon.fail()
    assert status not in (0, 99) and status > 0, (status, said)
    lines = said.splitlines()
    assert len(lines) == 1 and lines[0].startswith("snoopd6: "), said
    assert all(word in said for word in words), said
    assert daemon.switch.ruleset() == before
    assert daemon.run.exists() == was
    return said


BAD_FILES = {
    "syntax": (TOP + "number = = 3\n", 2),
    "unknown key": (TOP + 'colour = "red"\n' + PORT, 2),
    "unknown key of a port": (TOP + PORT + "speed = 10\n", 5),
    "bridge is a number": ("bridge = 5\n" + PORT, 1),
    "no bridge": (PORT, 1),
    "no port": (TOP, 1),
    "port 0": (TOP + '[[port]]\nnumber = 0\ninterface = "p1"\n', 3),
    "port 29": (TOP + '[[port]]\nnumber = 29\ninterface = "p1"\n', 3),
    "number is a text": (TOP + '[[port]]\nnumber = "1"\ninterface = "p1"\n', 3),
    "port without number": (TOP + '[[port]]\ninterface = "p1"\n', 2),
    "port without interface": (TOP + "[[port]]\nnumber = 1\n", 2),
    "number twice": (TOP + PORT + '[[port]]\nnumber = 1\ninterface = "p2"\n', 5),
    "interface twice": (TOP + PORT + '[[port]]\nnumber = 2\ninterface = "p1"\n', 5),
    "long interface": (TOP + '[[port]]\nnumber = 1\ninterface = "interface1234567"\n', 4),
    "empty interface": (TOP + '[[port]]\nnumber = 1\ninterface = ""\n', 4),
    "enterprise": (TOP + "enterprise = -1\n" + PORT, 2),
    "VLAN 0": (TOP + "vlans = [0]\n" + PORT, 2),
    "VLAN 4095": (TOP + "vlans = [1, 4095]\n" + PORT, 2),
    "title": (TOP + 'title = "a\\nb"\n' + PORT, 2),
    "xpon": (TOP + PORT + 'xpon = { pon = 256, onu = 1, serial = "ABCD12345678" }\n', 5),
    "serial": (TOP + PORT + 'xpon = { pon = 1, onu = 1, serial = "ABCD" }\n', 5),
    "trunk": (TOP + PORT + '[[trunk]]\ninterface = "bond0"\nid = 65535\n', 7),
}


@pytest.mark.parametrize("name", BAD_FILES)
def test_bad_switch_file(make, name):
    text, line = BAD_FILES[name]
    daemon = make(text=text)
    refused(daemon, f"{daemon.file}:{line}:")


def test_missing_switch_file(make):
    daemon = make()
    daemon.file.unlink()
    refused(daemon, str(daemon.file), "No such file")


def test_missing_bridge(make):
    refused(make(text=switch_file([1, 2], bridge="br7")), "br7")


def test_bridge_that_is_none(make):
    refused(make(text=switch_file([1, 2], bridge="p3")), "p3")


def test_missing_rights(make, switch):
    daemon = make()
    before = switch.ruleset()
    line = ["setpriv", "--bounding-set=-all", "--inh-caps=-all", program("snoopd6")]
    done = subprocess.run(
        netns.command(switch.namespace, line), env=daemon.environment(), capture_output=True, text=True, timeout=30, check=False
    )
    daemon.check_sanitizers()
    assert done.returncode == 1
    assert len(done.stderr.splitlines()) == 1 and done.stderr.startswith("snoopd6: ")
    assert "root" in done.stderr or "CAP_NET_ADMIN" in done.stderr
    assert switch.ruleset() == before
    assert not daemon.run.exists()


def test_second_instance_in_the_same_folder(make, sent):
    first = make().start().snoop(4)
    said = refused(first, str(first.run))
    assert "another snoopd6" in said and "stop that one" in said
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(1, frame) == {4: [frame]}  # the first one goes on


def test_second_instance_for_the_same_bridge(switch, make, sent):
    make().start().snoop(4)
    other = switch.prefix
    switch.prefix = f"{other}second-"
    second = make()
    switch.prefix = other
    said = refused(second)
    assert "another snoopd6" in said and "stop that one" in said
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(1, frame) == {4: [frame]}


def test_socket_in_use_by_another_program(make):
    daemon = make()
    daemon.run.mkdir()
    path = daemon.run / "snoopd6.sock"
    stranger = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    stranger.bind(str(path))
    stranger.listen()
    refused(daemon, str(path))
    assert path.is_socket()
    stranger.close()
    path.unlink()


def test_clean_stop_leaves_the_bridge_as_before(make, switch, sent):
    netns.run(switch.namespace, "nft", FOREIGN)
    before = switch.ruleset()
    assert "other" in before
    daemon = make().start().snoop(4)
    assert switch.ruleset() != before
    assert sent(1, from_server(REPLY, mac_number(1))) == {}
    assert daemon.stop() == 0
    assert switch.ruleset() == before
    assert not daemon.run.exists()
    frame = from_server(REPLY, mac_number(1))
    assert sent(1, frame, trusted=()) == {port: [frame] for port in (2, 3, 4)}


def test_stop_right_after_start(make, switch):
    before = switch.ruleset()
    daemon = make()
    for _ in range(3):
        assert daemon.start().stop() == 0
    assert switch.ruleset() == before


def test_killed_it_leaves_the_trap_and_a_new_one_replaces_it(make, switch, sent):
    daemon = make().start().snoop(4)
    before = switch.ruleset()
    daemon.kill()
    assert switch.ruleset() == before
    assert sent(1, from_client(SOLICIT, mac_number(1)), trusted=()) == {}  # closed, not open
    assert sent(2, from_server(REPLY, mac_number(1)), trusted=()) == {}
    daemon.start()
    assert switch.ruleset().count("table bridge") == 1
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(1, frame, trusted=()) == {port: [frame] for port in (2, 3, 4)}  # a new daemon starts with snooping off
    daemon.snoop(4)
    assert sent(1, frame) == {4: [frame]}
    assert sent(2, from_server(REPLY, mac_number(1))) == {}
    assert daemon.stop() == 0
    assert "table" not in switch.ruleset()


def test_starting_and_stopping_snooping_twice_changes_nothing(idle, switch):
    off = switch.ruleset()
    idle.snoop(4)
    on = switch.ruleset()
    assert on != off
    idle.call(calls.START)
    assert switch.ruleset() == on
    idle.call(calls.STOP)
    idle.call(calls.STOP)
    assert switch.ruleset() == off


def test_the_shell_says_what_is_missing(make):
    status, _, said = make().ctl("show", "dhcpv6-snooping", check=False)
    assert status == 3
    assert "is snoopd6 running?" in said
