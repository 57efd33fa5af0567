"""The running configuration over the real socket: printed, taken back, replayed, saved and brought back at a start.

What must be the same: bindings are printed newest first, so a replay of what was printed turns their order round, and a second
replay turns it back. `save` writes them oldest first: what is loaded from there prints the same at once."""

import contextlib
import json
import os
import random
import shutil
import socket
import subprocess
import time

import pytest
from lab import calls, settings
from lab.daemon import Daemon, program

RUNNING_CONFIG = 0x8001
ROUNDS = 16


@pytest.fixture
def service(switch):
    made = Service(switch, extra=f"vlans = [{', '.join(map(str, settings.VLANS))}]\n")
    yield made
    made.close()


class Service(Daemon):
    """The daemon as a service manager runs it."""

    def __init__(self, switch, **words):
        super().__init__(switch, **words)
        self.startup = self.folder / "startup.conf"
        self.shell = program("snoopctl")
        self.manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.manager.bind(str(self.folder / "notify"))
        self.manager.settimeout(30)

    def environment(self):
        own = {"SNOOPD6_STARTUP": self.startup, "SNOOPD6_SHELL": self.shell, "NOTIFY_SOCKET": self.folder / "notify"}
        return super().environment() | {name: str(value) for name, value in own.items()}

    def ready(self):
        """What the daemon says when it is ready; what a save made it say before is passed over."""
        while len(lines := self.manager.recv(4096).decode().splitlines()) == 1:
            assert lines[0].startswith("STATUS="), lines
        assert lines[0] == "READY=1" and lines[1].startswith("STATUS=") and len(lines) == 2, lines
        return lines[1].removeprefix("STATUS=")

    def close(self):
        self.manager.close()
        super().close()

    def script(self, *arguments, lines=()):
        """The shell with lines on its standard input: (exit status, output, errors)."""
        done = subprocess.run(
            [program("snoopctl"), *arguments], input="".join(line + "\n" for line in lines), env=self.environment(),
            capture_output=True, text=True, timeout=60, check=False,
        )  # fmt: skip
        self.check_sanitizers()
        return done.returncode, done.stdout, done.stderr

    def replay(self, lines):
        assert self.script("-f", "-", lines=lines) == (0, "", "")

    def printed(self):
        """The running configuration, read from the socket page by page."""
        text, offset, generation = b"", 0, 0
        while True:
            result, answer = calls.ask(self.link, RUNNING_CONFIG, calls.u32(offset) + calls.u32(generation))
            assert result == 0, result
            offset, generation = (int.from_bytes(answer[at : at + 4], "little") for at in (4, 8))
            text += answer[16:]
            if offset == 0:
                break
        lines = text.decode().split("\r\n")
        assert lines.pop() == ""
        return lines


def turned(lines):
    """The same configuration with its bindings in the other order."""
    bindings = [line for line in lines if line.startswith("ipv6-source-guard bind ")]
    return lines[: len(lines) - len(bindings)] + bindings[::-1]


def test_print_reset_replay_print(service):
    service.start()
    for seed in range(ROUNDS):
        said, printed = settings.make(random.Random(seed), list(service.switch.ports))
        service.replay(said)
        assert service.printed() == printed, f"seed {seed}"
        assert service.ctl("save", str(service.folder / "saved")).startswith("Saved ")
        service.ctl("undo", "all")
        assert service.printed() == [], f"seed {seed}"
        service.replay(printed)
        assert service.printed() == turned(printed), f"seed {seed}"
        service.ctl("undo", "all")
        service.replay(turned(printed))
        assert service.printed() == printed, f"seed {seed}"
        service.ctl("undo", "all")
        assert service.ctl("load", str(service.folder / "saved")).endswith(" 0 failed\n")
        assert service.printed() == printed, f"seed {seed}"
        service.ctl("undo", "all")
    assert calls.call(service.link, calls.GLOBAL_INFO, bytes(8))[1][0] == calls.u32(0) + calls.u32(1)
    assert service.filters() == {}


def test_shown_as_printed(service):
    service.start()
    assert service.ctl("show", "running-config") == ""
    assert json.loads(service.ctl("--json", "show", "running-config")) == {"lines": []}
    said, printed = settings.make(random.Random(5), list(service.switch.ports))
    service.replay(said)
    assert service.ctl("show", "running-config").splitlines() == printed
    assert json.loads(service.ctl("--json", "show", "running-config")) == {"lines": printed}


def test_more_than_one_page(service):
    """2000 bindings and every second VLAN exempt: the text takes several messages."""
    service.start()
    ports = list(service.switch.ports)
    service.exempt(*range(2, 4095, 2))
    lines = [settings.binding(number, number % 4, ports) for number in range(1, 2001)]
    service.replay(lines)
    printed = [f"undo ipv6-source-guard vlan {text}" for text in settings.vlan_texts(range(2, 4095, 2))] + lines[::-1]
    assert service.printed()[1:] == printed
    assert len("\r\n".join(printed)) > 2 * 65536
    assert service.ctl("show", "running-config").splitlines()[1:] == printed


def test_saved_and_brought_back_at_the_start(service):
    service.start()
    assert service.ready() == "no startup file"
    for seed in (100, 101, 102):
        said, printed = settings.make(random.Random(seed), list(service.switch.ports))
        service.replay(said)
        service.ctl("save")
        assert service.startup.stat().st_mode & 0o7777 == 0o640
        assert service.stop() == 0
        service.start()
        assert service.ready() == "startup file in force"
        assert service.printed() == printed, f"seed {seed}"
        service.ctl("undo", "all")


def test_ready_when_the_replay_is_through(service):
    """A shell that has not begun yet: the daemon answers everybody, but is not reported ready."""
    said, printed = settings.make(random.Random(7), list(service.switch.ports))
    service.startup.write_text("\r\n".join(said) + "\r\n")
    gate = service.folder / "gate"
    os.mkfifo(gate)
    slow = service.folder / "slow"
    slow.write_text(f'#!/bin/sh\nread -r _ <"{gate}"\nexec "{service.shell}" "$@"\n')
    slow.chmod(0o755)
    service.shell = str(slow)
    service.start()
    with open(gate, "w") as opened:  # the shell is there
        assert service.printed() == []
        service.manager.setblocking(False)
        with pytest.raises(BlockingIOError):
            service.manager.recv(4096)
        service.manager.settimeout(30)
        opened.write("go\n")
    assert service.ready() == "startup file in force, without the marks of a save"
    assert service.printed() == printed


def test_a_broken_line_is_named_and_the_rest_is_in_force(service):
    service.startup.write_text(
        "!!!DHCPv6 snooping\ndhcpv6-snooping\ninterface ethernet 0/1\ndhcpv6-snooping max-clients 5000\n"
        "ipv6-source-guard\nquit\ninterface ethernet 0/77\ndhcpv6-snooping trust\nquit\nnonsense\nvlan 10\n"
        "dhcpv6-snooping max-clients 7\nquit\n"
    )
    service.start()
    assert service.ready() == "not all of the startup file is in force"
    assert service.printed()[1:] == [
        "dhcpv6-snooping", "interface ethernet 0/1", "ipv6-source-guard", "quit", "vlan 10", "dhcpv6-snooping max-clients 7",
        "quit",
    ]  # fmt: skip
    log = service.log()
    for said in (
        ':4: dhcpv6-snooping max-clients 5000: "5000" is not a number of clients: allowed are 0 to 2048\n',
        ':7: interface ethernet 0/77: "0/77" is not a port: allowed are 0/1 to 0/28\n',
        ':10: nonsense: "nonsense" is not known here',
        ": 12 lines, 3 failed, 2 not run\n",
    ):
        assert f"{service.startup}{said}" in log, log


def test_without_a_shell_the_daemon_runs(service):
    service.startup.write_text("dhcpv6-snooping\n")
    service.shell = "/nonexistent/snoopctl"
    service.start()
    said = f"{service.startup} cannot be replayed: /nonexistent/snoopctl: No such file or directory"
    assert service.ready() == f"open after a failure: {said}"
    assert service.printed() == []


def two_texts(service):
    """What is in the startup file, and what the next save puts there, with the marks of a save."""
    service.start()
    assert service.ready() == "no startup file"
    service.replay([settings.binding(number, 3, [1, 2]) for number in range(1, 601)])
    service.ctl("save")
    service.ctl("interface", "ethernet", "0/1", "dhcpv6-snooping", "max-clients", "5")
    old = service.startup.read_bytes()
    service.ctl("save")
    new = service.startup.read_bytes()
    assert old != new and len(old) > 40000
    assert (service.folder / "startup.conf.last-good").read_bytes() == old
    service.startup.write_bytes(old)
    return old, new


@pytest.mark.parametrize("part", [0, 0.5, 1.5])
def test_a_save_on_a_full_disk(service, part):
    """The disk takes nothing of the first of the two files that are written, or a part, or one after the other."""
    old, new = two_texts(service)
    page = os.sysconf("SC_PAGE_SIZE")
    room = int(part * (-(-len(new) // page) + 1)) * page
    shutil.copytree(service.folder, kept := f"{service.folder}-kept", ignore=shutil.ignore_patterns("run", "notify"))
    small = service.folder / "small"
    small.mkdir()
    assert service.stop() == 0
    used = 2 * -(-len(old) // page) * page
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={used + room}", "tmpfs", str(small)], check=True)
    try:
        for name in ("startup.conf", "startup.conf.last-good"):
            shutil.copy(f"{kept}/{name}", small)
        service.startup = small / "startup.conf"
        service.start()
        assert service.ready() == "startup file in force"
        service.ctl("interface", "ethernet", "0/1", "dhcpv6-snooping", "max-clients", "5")
        status, output, error = service.ctl("save", check=False)
        if part > 1:
            assert (status, error) == (0, "") and service.startup.read_bytes() == new
        else:
            assert (status, output) == (1, "") and error.endswith("No space left on device\n"), error
            assert service.startup.read_bytes() == old
        assert sorted(path.name for path in small.iterdir()) == ["startup.conf", "startup.conf.last-good"]
        assert service.stop() == 0
    finally:
        subprocess.run(["umount", str(small)], check=True)
        shutil.rmtree(kept)


def whole_files(service, *texts):
    """Every startup file there is one of these texts, whole."""
    for name in ("startup.conf", "startup.conf.last-good"):
        assert (service.folder / name).read_bytes() in texts


def test_a_save_whose_shell_is_killed(service):
    """Ended at any moment, it leaves the former file or the new one, whole, and the next save finds nothing in its way."""
    old, new = two_texts(service)
    line = [program("snoopctl"), "save"]
    service.startup.write_bytes(old)
    start = time.monotonic()
    subprocess.run(line, env=service.environment(), stdout=subprocess.DEVNULL, check=True)
    duration = time.monotonic() - start
    environment = service.environment()
    environment["ASAN_OPTIONS"] += ":detect_leaks=0"  # who is killed while it looks for leaks complains
    ended = []
    for number in range(40):
        service.startup.write_bytes(old)
        child = subprocess.Popen(line, env=environment, stdout=subprocess.DEVNULL)
        with contextlib.suppress(subprocess.TimeoutExpired):
            child.wait(duration * number / 25)
        child.kill()
        ended.append(child.wait())
        service.ctl("erase", "startup")  # its writer, if it got that far, has ended then
        service.ctl("save")
        whole_files(service, new)
    assert -9 in ended and 0 in ended


def test_a_save_whose_daemon_is_killed(service):
    """The writer may go on without it: what is there at any time is whole."""
    old, new = two_texts(service)
    for number in range(8):
        service.startup.write_bytes(old)
        child = subprocess.Popen([program("snoopctl"), "save"], env=service.environment(), stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)  # fmt: skip
        time.sleep(number / 20)
        service.kill()
        child.wait(90)
        whole_files(service, old, new)
        service.startup.write_bytes(new)
        service.start()
        assert service.ready() == "startup file in force"


@pytest.mark.parametrize("line, status, said", [
    ("save /nonexistent/x.conf", 1, "cannot write /nonexistent/x.conf: No such file or directory"),
    ("save /run", 1, "cannot write /run: it is not an ordinary file"),
    ("load /nonexistent/x.conf", 1, "cannot read /nonexistent/x.conf: No such file or directory"),
    ("watch 0 show platform", 2, '"0" is not a number of seconds: allowed are 1 to 3600'),
    ("watch", 2, 'the line is not complete: "watch" wants 1-3600 or show behind it'),
    ("interface ethernet 0/1 undo all", 2, '"all" is not known behind "undo"'),
])  # fmt: skip
def test_what_cannot_be_done_is_said(idle, line, status, said):
    code, output, error = idle.ctl(*line.split(), check=False)
    assert (code, output) == (status, "")
    assert said in error, error


def test_watch_counts(idle):
    output = idle.ctl("-n", "3", "watch", "1", "show", "dhcpv6-snooping")
    assert output.count("DHCPv6 snooping           off") == 3
    assert len(output.splitlines()) == 3 * (1 + 10)


def test_relay_is_shown(idle):
    for state, line in ((True, "dhcpv6-snooping l2-relay"), (False, "undo dhcpv6-snooping l2-relay")):
        idle.ctl(*line.split())
        for words in ("dhcpv6-snooping", "dhcpv6-snooping information"):
            assert json.loads(idle.ctl("--json", "show", *words.split()))["l2_relay"] is state
