"""What signals do to a running daemon: SIGHUP reads the switch file again, SIGUSR1 leaves the kernel's table behind."""

import json
import pathlib
import signal
import subprocess

import pytest
from lab import calls, flow, netns
from lab.daemon import Daemon, switch_file
from lab.frames import SOLICIT, ethernet, from_client, ipv6, mac_number, udp
from lab.switch import Switch
from lab.wire import Wire

UNBOUND = ethernet(
    "02:dd:00:00:00:01", "02:aa:00:00:00:01",
    ipv6("2001:db8::bad", "2001:db8:ff::1", 17, udp("2001:db8::bad", "2001:db8:ff::1", 5000, 5001, b"data")),
)  # fmt: skip


@pytest.fixture
def wide():
    """A bridge of six ports, of which the switch file describes four: 2, 3, 4 and 5. There is nothing in port 1's place."""
    made = Switch(ports=6)
    daemon = Daemon(made, text=switch_file((2, 3, 4, 5)))
    try:
        daemon.sent = lambda port, *frames, **words: flow.sent(made, port, *frames, **words)
        yield daemon.start().snoop(4)
    finally:
        daemon.close()
        made.close()


def hang_up(daemon, text=None):
    """Sends SIGHUP, with another switch file if there is one; the line that the daemon logs."""
    if text is not None:
        daemon.file.write_text(text)
    before = daemon.log()
    daemon.process.send_signal(signal.SIGHUP)
    daemon.until(lambda: "\n" in daemon.log()[len(before) :], "the log says what was read")
    assert calls.switch_status(daemon.link)
    return daemon.log()[len(before) :]


def numbers(daemon):
    return sorted(calls.ports(daemon.link))


def test_new_ports_are_taken_up(wide):
    sent = wide.sent
    first = from_client(SOLICIT, mac_number(1))
    assert sent(2, first) == {4: [first]}
    assert numbers(wide) == [2, 3, 4, 5]
    line = hang_up(wide, switch_file((1, 2, 3, 4, 5, 6)))
    assert line == f"snoopd6: {wide.file} is read again, in force now: port 0/1 (p1), port 0/6 (p6)\n"
    assert numbers(wide) == [1, 2, 3, 4, 5, 6]
    for number, port in enumerate((1, 6, 2), 10):
        frame = from_client(SOLICIT, mac_number(number))
        assert sent(port, frame) == {4: [frame]}
    assert [wide.counted(port) for port in (1, 2, 6)] == [1, 2, 1]


def test_a_new_port_can_be_guarded_limited_and_trusted(wide):
    sent = wide.sent
    assert sent(6, UNBOUND, trusted=()) == {port: [UNBOUND] for port in (1, 2, 3, 4, 5)}
    hang_up(wide, switch_file((1, 2, 3, 4, 5, 6)))
    wide.guard(6)
    assert wide.guarded(6)["installed"] == 1
    assert sent(6, UNBOUND, trusted=()) == {}
    wide.call(calls.PORT_MODE, 1, 1)
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(2, frame, trusted=(1, 4)) == {1: [frame], 4: [frame]}
    assert "interface ethernet 0/6" in wide.ctl("show", "running-config")


def test_a_new_port_may_come_later(wide):
    said = hang_up(wide, switch_file((2, 3, 4, 5, 28)))
    assert "in force now: port 0/28 (p28)\n" in said
    wide.until(lambda: "port 0/28: interface p28 is missing; it is taken up when it comes" in wide.log(), "it is missed")
    wide.switch.ip("link", "set", "p6", "down")
    wide.switch.ip("link", "set", "p6", "name", "p28", "up")
    wide.until(lambda: calls.ports(wide.link)[28]["forwarding"] == 1, "the port is there")
    frame = from_client(SOLICIT, mac_number(1))
    assert wide.sent(6, frame) == {4: [frame]}


def test_a_port_stays_with_its_renamed_interface(wide):
    """Neither the one that has its name now, nor another port of the file that has its new name, gets it out of the guard."""
    wide.guard(2)
    for words in (("p2", "down"), ("p2", "name", "weird"), ("weird", "up")):
        wide.switch.ip("link", "set", *words)
    wide.until(lambda: calls.ports(wide.link)[2]["interface"].rstrip(b"\0") == b"weird", "the new name is known")
    index = json.loads(netns.run(wide.switch.namespace, "ip", "-j", "link", "show", "p1"))[0]["ifindex"]
    wide.switch.ip("link", "del", "p1")
    wide.switch.ip("link", "add", "p2", "index", str(index), "type", "veth", "peer", "name", "far")  # is listed first
    wide.switch.ip("link", "set", "p2", "master", "br0", "up")
    wide.until(lambda: "interface p2 is in bridge br0, but the port of that name follows another" in wide.log(), "it is named")
    more = '\n[[port]]\nnumber = 7\ninterface = "weird"\n'
    assert hang_up(wide, switch_file((2, 3, 4, 5, 6)) + more).endswith(
        "in force now: port 0/6 (p6); a restart is needed for: port 0/7\n")  # fmt: skip
    wide.until(lambda: calls.ports(wide.link)[6]["forwarding"] == 1, "port 6 is taken up")
    assert calls.ports(wide.link)[2]["interface"].rstrip(b"\0") == b"weird"
    wide.until(lambda: calls.ports(wide.link)[2]["forwarding"] == 1, "port 2 is forwarding")
    wire = Wire(wide.switch.host(2), "eth0")
    wire.send(UNBOUND)
    wire.close()
    wide.until(lambda: wide.guarded(2)["blocked"] == 1, "the packet is blocked")
    assert wide.log().count("interface p2 is called") == 1


def test_title_enterprise_and_vlans_are_taken_up(wide):
    top = 'title = "floor 2"\nenterprise = 9\nvlans = [1, 30]\n'
    assert "in force now: title, enterprise, vlans\n" in hang_up(wide, switch_file((2, 3, 4, 5), extra=top))
    assert "!!!floor 2" in wide.ctl("show", "running-config")
    listed = json.loads(wide.ctl("--json", "show", "platform", "vlans"))
    assert [vlan["vlan"] for vlan in listed["vlans"]] == [1, 30]


WAITS = {
    "another interface": ((2, 3, 5), '\n[[port]]\nnumber = 4\ninterface = "p6"\n', "port 0/4"),
    "a port less": ((2, 3, 4), "", "port 0/5"),
    "a port with another number": ((2, 3, 4), '\n[[port]]\nnumber = 6\ninterface = "p5"\n', "port 0/5, port 0/6"),
    "router advertisements": ((3, 4, 5), '\n[[port]]\nnumber = 2\ninterface = "p2"\nra_guard = true\n', "port 0/2"),
    "a trunk": ((2, 3, 4, 5), '\n[[trunk]]\ninterface = "bond0"\nid = 3\n', "trunk"),
}


@pytest.mark.parametrize("name", WAITS)
def test_what_was_there_before_waits_for_a_restart(wide, name):
    ports, further, waits = WAITS[name]
    before = calls.ports(wide.link)
    text = switch_file(ports) + further
    line = f"snoopd6: {wide.file} is read again, a restart is needed for: {waits}\n"
    assert hang_up(wide, text) == line
    assert hang_up(wide) == line  # it still waits
    assert calls.ports(wide.link) == before
    frame = from_client(SOLICIT, mac_number(1))
    assert wide.sent(2, frame) == {4: [frame]}


def test_both_at_once(wide):
    said = hang_up(wide, switch_file((1, 2, 3, 4), bridge="br7"))
    assert said.endswith("in force now: port 0/1 (p1); a restart is needed for: bridge, port 0/5\n")
    assert numbers(wide) == [1, 2, 3, 4, 5]


BROKEN = {
    "no value": ('bridge = "br0"\nnumber = = 3\n', 2),
    "no port": ('bridge = "br0"\n', 1),
    "unknown key": (switch_file((1, 2, 3, 4, 5, 6)) + 'colour = "red"\n', 26),
}


@pytest.mark.parametrize("name", BROKEN)
def test_a_broken_file_changes_nothing(wide, name):
    text, line = BROKEN[name]
    said = hang_up(wide, text)
    assert said.startswith(f"snoopd6: {wide.file}:{line}: ") and said.endswith("; the switch stays as it is\n")
    assert numbers(wide) == [2, 3, 4, 5]
    wide.file.unlink()
    assert "No such file or directory; the switch stays as it is" in hang_up(wide)
    frame = from_client(SOLICIT, mac_number(1))
    assert wide.sent(2, frame) == {4: [frame]}
    assert "in force now: port 0/1 (p1), port 0/6 (p6)\n" in hang_up(wide, switch_file((1, 2, 3, 4, 5, 6)))


def test_nothing_new(wide):
    assert hang_up(wide) == f"snoopd6: {wide.file} is read again: nothing in it has changed\n"


def test_many_signals_while_messages_pass(wide):
    sent = wide.sent
    wide.file.write_text(switch_file((1, 2, 3, 4, 5, 6)))
    for number in range(20):
        for one in (signal.SIGHUP, signal.SIGUSR2, signal.SIGHUP):
            wide.process.send_signal(one)
        frame = from_client(SOLICIT, mac_number(number))
        assert sent(2, frame) == {4: [frame]}
    wide.until(lambda: numbers(wide) == [1, 2, 3, 4, 5, 6], "the ports are taken up")
    children = ("pgrep", "-P", str(wide.process.pid))
    wide.until(lambda: not subprocess.run(children, capture_output=True, check=False).stdout, "no child is left")


def test_left_with_sigusr1_the_table_stays(switch, sent):
    daemon = Daemon(switch)
    try:
        before = switch.ruleset()
        nf_call = pathlib.Path("/proc/sys/net/bridge/bridge-nf-call-ip6tables")  # where br_netfilter is loaded
        with netns.entered(switch.namespace):
            had = nf_call.read_text() if nf_call.exists() else None
        daemon.start().snoop(4).guard(1)
        during = switch.ruleset()
        daemon.process.send_signal(signal.SIGUSR1)
        assert daemon._ended() == 0
        assert not daemon.run.exists()
        assert switch.ruleset() == during
        with netns.entered(switch.namespace):
            assert had is None or nf_call.read_text() == had  # what is not the table's is as before
        assert sent(1, UNBOUND, trusted=()) == {}
        assert sent(2, from_client(SOLICIT, mac_number(1)), trusted=()) == {}
        daemon.start().snoop(4)
        assert switch.ruleset().count("table bridge") == 1
        frame = from_client(SOLICIT, mac_number(1))
        assert sent(1, frame) == {4: [frame]}
        assert daemon.stop() == 0
        assert switch.ruleset() == before
    finally:
        daemon.close()
