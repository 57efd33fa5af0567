"""Startup files that are not what a save has written: what is said of them, and what passes the bridge then."""

import json
import os
import shutil
import signal
import socket
import struct
import subprocess

import pytest
from lab import calls, frames, netns
from lab.daemon import Daemon, program, switch_file
from lab.frames import ethernet, ipv6, mac_number, udp

CONFIGURATION = (
    "dhcpv6-snooping\ninterface ethernet 0/4\ndhcpv6-snooping trust\nquit\ninterface ethernet 0/1\nipv6-source-guard\nquit\n"
)
UDP, STARTUP = 17, 9
STATES = ("replaying", "none", "complete", "by-hand", "last-good", "partly", "open", "closed")
TAGS = ((), (10,), (10, 20), (10, 20, 30))


class Service(Daemon):
    """The daemon with something that waits until it calls itself ready."""

    def __init__(self, switch, policy=None):
        line = f'on_startup_failure = "{policy}"\n' if policy else ""
        super().__init__(switch, text=switch_file(switch.ports, extra=line))
        self.startup, self.last_good = self.folder / "startup.conf", self.folder / "startup.conf.last-good"
        self.shell = program("snoopctl")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.bind(str(self.folder / "notify"))
        self.manager.settimeout(90)

    def environment(self):
        return dict(super().environment(), SNOOPD6_SHELL=self.shell, NOTIFY_SOCKET=str(self.folder / "notify"))

    def start(self):
        super().start()
        self.said = self.ready()
        return self

    def ready(self):
        """What the daemon says when it is ready; what a save made it say before is passed over."""
        while (said := self.manager.recv(4096).decode().splitlines())[0] != "READY=1":
            pass
        return said[1].removeprefix("STATUS=")

    def close(self):
        self.manager.close()
        super().close()

    def save_once(self):
        """Has a daemon save the configuration twice, and stops it."""
        self.start()
        done = subprocess.run([program("snoopctl")], input=CONFIGURATION, env=self.environment(), text=True, check=True)
        assert done.returncode == 0
        self.ctl("save")
        self.ctl("save")
        assert self.stop() == 0
        return self

    def state(self):
        """State, packets dropped and reason, from the socket, which is what the shell shows."""
        ((state, _, dropped, reason),) = calls.table(self.link, STARTUP, struct.Struct("<IIQ368s"))
        shown = json.loads(self.ctl("--json", "show", "platform"))
        assert shown["startup"] == STATES[state] and shown.get("startup_reason", "") == reason.rstrip(b"\0").decode()
        assert shown.get("startup_dropped", 0) == dropped
        text = self.ctl("show", "platform")
        assert f" {STATES[state]}\n" in text and shown.get("startup_reason", "") in text
        return STATES[state], dropped, shown.get("startup_reason", "")

    def check_files(self):
        done = subprocess.run([program("snoopd6"), "--check"], env=self.environment(), capture_output=True, text=True,
                              timeout=60, check=False)  # fmt: skip
        self.check_sanitizers()
        return done.returncode, done.stdout, done.stderr


@pytest.fixture
def service(switch, request):
    made = Service(switch, getattr(request, "param", None))
    yield made
    made.close()


def packet(number, tags=()):
    source = f"2001:db8::{number}"
    data = udp(source, "2001:db8:ff::1", 5000, 5001, b"data")
    return ethernet("02:dd:00:00:00:01", mac_number(99), ipv6(source, "2001:db8:ff::1", UDP, data), tags=tags)


def passes(sent, port, tags=()):
    frame = packet(port, tags)
    out = sent(port, frame, trusted=())
    assert out in ({}, {other: [frame] for other in range(1, 5) if other != port}), out
    return bool(out)


# ---- Damage ----------------------------------------------------------------------------------------------------------


def empty(path):
    path.write_bytes(b"")


def blank(path):
    path.write_bytes(b"\n \n")


def cut_in_the_middle(path):
    path.write_bytes(path.read_bytes()[:-60])


def cut_in_the_head(path):
    path.write_bytes(path.read_bytes()[:9])


def without_its_start(path):
    path.write_bytes(path.read_bytes()[200:])


def zeros(path):
    path.write_bytes(bytes(len(path.read_bytes())))


def erased_flash(path):
    path.write_bytes(b"\xff" * 4096)


def binary(path):
    path.write_bytes(os.urandom(4096) + b"\0")


def folder(path):
    path.unlink()
    path.mkdir()


def fifo(path):
    path.unlink()
    os.mkfifo(path)


def link(path):
    path.rename(path.with_name("elsewhere"))
    path.symlink_to("elsewhere")


def zero_device(path):
    path.unlink()
    path.symlink_to("/dev/zero")


def too_many_lines(path):
    path.write_text("dhcpv6-snooping\n" * 300_000)


def too_long(path):
    path.write_bytes(b"! " + b"x" * (8 << 20))


def gone(path):
    path.unlink()


DAMAGE = {
    empty: "is empty", blank: "is empty", cut_in_the_middle: "is cut off: its last line is missing",
    cut_in_the_head: "is cut off: its last line is missing", without_its_start: "is cut off: its first line is missing",
    zeros: "is not text: line 1 has", erased_flash: "is not text: line 1 has", binary: "is not text: line ",
    folder: "is not an ordinary file", fifo: "is not an ordinary file", link: "is a symbolic link",
    zero_device: "is a symbolic link", too_many_lines: "has more than 100000 lines", too_long: "is larger than 8 MiB",
    gone: "is missing, although ",
}  # fmt: skip
DAMAGES = [pytest.param(damage, said, id=damage.__name__) for damage, said in DAMAGE.items()]


@pytest.mark.parametrize("damage, said", DAMAGES)
def test_the_last_good_file_is_used(service, sent, damage, said):
    service.save_once()
    damage(service.startup)
    fault = f"{service.startup} {said}"
    status, _, error = service.check_files()
    assert status == 1 and fault in error and "after a start the last good file is used" in error
    service.start()
    assert service.said.startswith(f"last good startup file in force: {fault}")
    state, _, reason = service.state()
    assert state == "last-good" and reason.startswith(fault) and reason.endswith(f"{service.last_good} is used")
    assert f"snoopd6: {reason}\n" in service.log()
    assert service.ctl("show", "running-config").splitlines()[1:] == CONFIGURATION.splitlines()[:1] + [
        "interface ethernet 0/1", "ipv6-source-guard", "quit", "interface ethernet 0/4", "dhcpv6-snooping trust", "quit",
    ]  # fmt: skip
    assert not passes(sent, 1) and passes(sent, 2) and passes(sent, 4)


@pytest.mark.parametrize("service", ["closed"], indirect=True)
@pytest.mark.parametrize("damage, said", DAMAGES)
def test_closed(service, sent, damage, said):
    service.save_once()
    damage(service.startup)
    fault = f"{service.startup} {said}"
    status, _, error = service.check_files()
    assert status == 1 and fault in error and "after a start IPv6 from untrusted ports is dropped" in error
    service.start()
    assert service.said.startswith(f"closed after a failure: {fault}"), service.log()
    assert service.state()[0] == "closed", service.log()
    assert not passes(sent, 1) and not passes(sent, 2) and passes(sent, 4)
    assert service.state()[1] == 2
    assert service.ctl("show", "running-config") == ""


@pytest.mark.parametrize("service", ["open"], indirect=True)
@pytest.mark.parametrize("damage, said", DAMAGES)
def test_open(service, sent, damage, said):
    service.save_once()
    damage(service.startup)
    status, _, error = service.check_files()
    assert status == 1 and "after a start nothing is snooped or guarded" in error
    service.start()
    assert service.said.startswith(f"open after a failure: {service.startup} {said}")
    assert service.state()[0] == "open"
    assert all(passes(sent, port) for port in (1, 2, 4))


@pytest.mark.parametrize("last_good, said", [(None, "there is no last good file"), (b"", "startup.conf.last-good is empty")])
def test_without_a_good_file_it_is_open_and_says_so(service, sent, last_good, said):
    service.save_once()
    empty(service.startup)
    service.last_good.unlink()
    if last_good is not None:
        service.last_good.write_bytes(last_good)
    service.start()
    state, _, reason = service.state()
    assert state == "open" and reason.startswith(f"{service.startup} is empty; ") and reason.endswith(said)
    assert f"{reason}; the switch is OPEN" in service.log()
    assert service.said == f"open after a failure: {reason}"
    assert passes(sent, 1)


@pytest.mark.parametrize("service", ["closed"], indirect=True)
def test_closed_without_a_good_file_nothing_is_trusted(service, sent):
    empty(service.startup)
    service.start()
    assert not any(passes(sent, port) for port in (1, 2, 3, 4))
    assert service.state()[:2] == ("closed", 4)


# ---- What the closed switch drops ------------------------------------------------------------------------------------


@pytest.fixture
def closed(switch):
    made = Service(switch, "closed")
    made.save_once()
    empty(made.startup)
    yield made.start()
    made.close()


def snap(tags=()):
    """IPv6 inside 802.3 LLC/SNAP."""
    body = ipv6("2001:db8::1", "2001:db8:ff::1", UDP, udp("2001:db8::1", "2001:db8:ff::1", 5000, 5001, b"data"))
    frame = ethernet("02:dd:00:00:00:01", mac_number(99), b"", tags=tags)
    payload = b"\xaa\xaa\x03\0\0\0\x86\xdd" + body
    return frame[:-2] + struct.pack("!H", len(payload)) + payload


@pytest.mark.parametrize("tags", TAGS)
def test_at_every_depth_of_tags(closed, sent, tags):
    assert sent(1, packet(1, tags), trusted=()) == {}
    assert closed.state()[1] == 1
    if len(tags) < 3:
        assert sent(1, snap(tags), trusted=()) == {}
        assert closed.state()[1] == 2
    assert passes(sent, 4, tags)


def test_ipv4_and_arp_pass(closed, sent):
    for kind in (0x0800, 0x0806):
        for tags in TAGS[:3]:
            frame = ethernet("02:dd:00:00:00:01", mac_number(99), b"\x45" + bytes(59), kind, tags)
            assert list(sent(1, frame, trusted=())) == [2, 3, 4]
    assert closed.state()[1] == 0


def test_dhcpv6_gets_no_way_around(closed, sent):
    """Snooping that is switched on meanwhile does not carry messages out of a closed port."""
    closed.snoop(4)
    frame = frames.from_client(frames.SOLICIT, mac_number(1))
    before = closed.counters(1)
    assert sent(1, frame, trusted=()) == {}
    assert closed.grown(1, before) == {"received": 1, "dropState": 1}


def test_ports_that_appear_later(closed, switch, sent):
    """An interface that is made again, a trusted one among them, and one that is no port of the switch file."""
    for port in (1, 4):
        switch.unplug(port)
        switch.plug(port)
    closed.until(lambda: passes(sent, 4), "the trusted port is open under its new index")
    assert not passes(sent, 1)
    switch.ip("link", "add", "more0", "type", "veth", "peer", "name", "more1")
    switch.ip("link", "set", "more0", "master", "br0", "up")
    switch.ip("link", "set", "more1", "up")
    before = closed.state()[1]
    script = f"import socket; s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(('more1', 0)); s.send({packet(9)!r})"
    subprocess.run(netns.command(switch.namespace, ["python3", "-c", script]), check=True, timeout=60)
    closed.until(lambda: closed.state()[1] == before + 1, "the packet is counted")
    assert sent(4, trusted=()) == {}, "and has come out nowhere"


@pytest.mark.needs("meta_bridge")
def test_another_bridge_stays_open(closed, switch, sent):
    assert not passes(sent, 1)
    switch.ip("link", "add", "br9", "type", "bridge")
    switch.ip("link", "set", "br9", "up")
    for port in (1, 2):
        switch.ip("link", "set", f"p{port}", "master", "br9")
    frame = packet(1)
    switch.wire(1).send(frame)
    closed.until(lambda: frame in switch.wire(2).take(), "the packet has come out")
    assert closed.state()[1] == 1, "the first one only"


@pytest.mark.parametrize("act", [("save",), ("clear", "startup-failure"), ("erase", "startup")])
def test_until_an_operator_acts(closed, sent, act):
    assert not passes(sent, 1)
    closed.ctl(*act)
    assert passes(sent, 1)
    assert closed.state()[0] == {"save": "complete", "clear": "open", "erase": "none"}[act[0]]
    assert "startup" not in closed.switch.ruleset()
    status, _, error = closed.ctl("clear", "startup-failure", check=False)
    assert (status, error) == (1, "snoopctl: the switch is not closed: there is no failure to clear\n")


def test_a_daemon_that_dies_leaves_it_closed(closed, sent):
    closed.kill()
    assert not passes(sent, 1) and passes(sent, 4)
    closed.start()
    assert not passes(sent, 1) and passes(sent, 4)
    assert closed.stop() == 0
    assert passes(sent, 1)


# ---- The shell -------------------------------------------------------------------------------------------------------


def shell(service, text):
    path = service.folder / "shell"
    path.write_text(f"#!/bin/sh\n{text}\n")
    path.chmod(0o755)
    return str(path)


@pytest.mark.parametrize("service", ["last-good", "closed"], indirect=True)
@pytest.mark.parametrize("text, said", [
    (None, "cannot be replayed: /nonexistent/snoopctl: No such file or directory"),
    ("kill -9 $$", "was ended by signal 9"),
    ("exit 77", "ended with status 77"),
])  # fmt: skip
def test_a_shell_that_fails(service, sent, text, said):
    service.save_once()
    service.shell = shell(service, text) if text else "/nonexistent/snoopctl"
    service.start()
    state, _, reason = service.state()
    closes = 'on_startup_failure = "closed"' in service.file.read_text()
    assert state == ("closed" if closes else "open") and said in reason
    assert passes(sent, 1) is not closes and passes(sent, 4)


def test_the_shell_beside_the_daemon_is_found(switch, sent):
    """A folder with the two programs and nothing in the environment."""
    service = Service(switch)
    service.shell = ""
    try:
        service.save_once().start()
        assert service.said == "startup file in force" and not passes(sent, 1)
    finally:
        service.close()


def test_the_shell_gets_the_bytes_that_were_judged(service, sent):
    """A file that is replaced while the shell starts changes nothing."""
    service.save_once()
    service.shell = shell(service, f'echo "ipv6-source-guard vlan 7" >{service.startup}\nexec {program("snoopctl")} "$@"')
    service.start()
    assert service.said == "startup file in force" and not passes(sent, 1)
    assert f"{service.startup} is in force\n" in service.log()


def test_lines_that_a_startup_file_cannot_have(service):
    service.startup.write_text(f"dhcpv6-snooping\nsave {service.folder}/planted\nsave\nerase startup\nclear startup-failure\n")
    service.start()
    assert service.said == "not all of the startup file is in force"
    assert service.state()[0] == "partly"
    assert service.log().count(": a startup file cannot have this line\n") == 4
    assert not (service.folder / "planted").exists() and service.startup.read_text().startswith("dhcpv6-snooping\nsave ")


# ---- Files by hand, and none -----------------------------------------------------------------------------------------


def test_a_file_by_hand_is_taken_with_a_note(service, sent):
    service.startup.write_text(CONFIGURATION)
    status, said, error = service.check_files()
    assert (status, error) == (0, "") and f"{service.startup}: lines 7, without the marks of a save\n" in said
    service.start()
    assert service.said == "startup file in force, without the marks of a save"
    assert service.state() == ("by-hand", 0, "")
    assert f"{service.startup} is in force; it has no marks of a save" in service.log()
    assert not passes(sent, 1)


def test_a_saved_file_may_be_edited(service):
    service.save_once()
    service.startup.write_text(service.startup.read_text().replace("ethernet 0/1", "ethernet 0/2") + "vlan 9\nquit\n")
    service.start()
    assert service.said == "startup file in force" and service.state() == ("complete", 0, "")
    assert "ethernet 0/2" in service.ctl("show", "running-config")


def test_a_save_keeps_the_previous_good_file(service):
    service.save_once()
    first = service.startup.read_bytes()
    service.start()
    service.ctl("vlan", "1", "dhcpv6-snooping", "max-clients", "5")
    service.ctl("save")
    assert service.last_good.read_bytes() == first and b"vlan 1\n" in service.startup.read_bytes()
    cut_in_the_middle(service.startup)
    service.ctl("save")
    assert service.last_good.read_bytes() == first, "a damaged file is not kept"
    service.startup.unlink()
    service.last_good.unlink()
    service.ctl("save")
    assert service.last_good.read_bytes() == service.startup.read_bytes()
    assert service.last_good.stat().st_mode & 0o7777 == 0o640
    assert service.check_files()[1].splitlines()[1:] == [
        f"{path}: lines 10, complete" for path in (service.startup, service.last_good)
    ]


def test_starting_from_nothing(service, sent):
    service.save_once().start()
    service.ctl("erase", "startup")
    assert not service.startup.exists() and not service.last_good.exists()
    assert not passes(sent, 1), "what is in force stays"
    service.ctl("erase", "startup")
    assert service.stop() == 0
    service.start()
    assert service.said == "no startup file" and service.state() == ("none", 0, "")
    assert passes(sent, 1)


def test_no_save_while_the_configuration_is_brought_back(switch):
    """It would keep the half of it that is in force then."""
    service = Service(switch)
    try:
        service.save_once()
        before = service.startup.read_bytes()
        gate = service.folder / "gate"
        os.mkfifo(gate)
        service.shell = shell(service, f'read -r _ <{gate}\nexec {program("snoopctl")} "$@"')
        Daemon.start(service)
        with open(gate, "w") as opened:
            for words in (("save",), ("erase", "startup"), ("clear", "startup-failure")):
                status, _, error = service.ctl(*words, check=False)
                assert status == 1 and "the saved configuration is still being brought back" in error
            opened.write("go\n")
        assert service.ready() == "startup file in force"
        assert service.startup.read_bytes() == before
    finally:
        service.close()


def test_a_reload_says_that_the_policy_waits(idle):
    idle.file.write_text('on_startup_failure = "closed"\n' + idle.file.read_text())
    idle.process.send_signal(signal.SIGHUP)
    idle.until(lambda: "a restart is needed for: on_startup_failure" in idle.log(), "the file is read")


@pytest.mark.parametrize("value", ['"shut"', "true", '""', '["open"]'])
def test_other_words_are_refused(switch, value):
    daemon = Daemon(switch, extra=f"on_startup_failure = {value}\n")
    try:
        status, error = daemon.fail()
        assert status == 1 and 'on_startup_failure must be "last-good", "closed" or "open"' in error
    finally:
        shutil.rmtree(daemon.folder)
