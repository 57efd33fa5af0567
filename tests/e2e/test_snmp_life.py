"""Daemon, sub-agent and snmpd come and go: each finds the others again by itself, and what becomes of SNMP never becomes a
matter of frames."""

import contextlib
import os
import pathlib
import signal
import subprocess
import time

import pytest
from lab import calls, flow, netns, snmp
from lab.frames import SOLICIT, from_client, mac_number
from lab.snmp import INTEGER, Manager, Snmpd, SubAgent

SOON = 13.0  # seconds; a lost master is looked for every five


@pytest.fixture
def parts(idle):
    """A running daemon, an snmpd and a sub-agent that are not started yet, and a manager."""
    with contextlib.closing(Snmpd(idle.switch)) as master, contextlib.closing(SubAgent(idle, master.master)) as agent:
        yield idle, master, agent, Manager(idle.switch)


def answers(manager, timeout=SOON):
    manager.until_answers(timeout)
    assert len(manager.walk()) == 31


def test_snmpd_comes_last(parts):
    _, master, agent, manager = parts
    agent.start()
    time.sleep(2)
    assert agent.process.poll() is None
    master.start()
    answers(manager)


def test_daemon_comes_last(parts):
    """Without a daemon the module is not there; with one it is, without anybody being told."""
    daemon, master, agent, manager = parts
    daemon.stop()
    master.start()
    agent.start()
    time.sleep(2)
    assert "No Such Object" in manager.run("snmpget", f"{snmp.ROOT}.1.0")[1]
    assert manager.set((".4.0", INTEGER, 2)).startswith(("notWritable", "noAccess", "noCreation"))
    daemon.start()
    answers(manager)
    assert daemon.log().count("is snoopd6 running?") == 1  # said once, not every second


@pytest.mark.parametrize("end", ["stop", "kill"])
def test_snmpd_again(parts, end):
    daemon, master, agent, manager = parts
    master.start()
    agent.start()
    answers(manager)
    for _ in range(2):
        getattr(master, end)()
        pathlib.Path(master.master).unlink(missing_ok=True)
        daemon.ctl("dhcpv6-snooping")
        master.start()
        answers(manager)
        assert manager.set((".1.0", INTEGER, 2)) == "ok"
        assert '"snooping": false' in daemon.ctl("--json", "show", "dhcpv6-snooping")


@pytest.mark.parametrize("end", ["stop", "kill"])
def test_daemon_again(parts, end):
    """The module stays registered: while there is no daemon gets and sets fail with genErr, and with one they work at once."""
    daemon, master, agent, manager = parts
    master.start()
    agent.start()
    answers(manager)
    assert manager.set((".7.1.2.1", "s", "2001:db8::1"), (".7.1.6.1", INTEGER, 4), (".4.0", INTEGER, 2)) == "ok"
    getattr(daemon, end)()
    assert "genError" in manager.run("snmpget", f"{snmp.ROOT}.1.0")[1]
    assert "genError" in manager.run("snmpgetnext", snmp.ROOT)[1]
    assert manager.set((".4.0", INTEGER, 2)).startswith("genError")
    daemon.start()
    assert manager.get(".1.0", ".4.0") == [2, 1]  # as a daemon starts
    assert manager.walk(".7") == {}
    answers(manager)


@pytest.mark.parametrize("end", ["close", "kill"])
def test_sub_agent_again(parts, end):
    daemon, master, agent, manager = parts
    master.start()
    for _ in range(3):
        agent.start()
        answers(manager)
        getattr(agent, end)()
        assert "No Such" in manager.run("snmpget", f"{snmp.ROOT}.1.0")[1]
    assert len(daemon.clients()) == 0


def test_sub_agent_ends_while_snmpd_stands_still(parts):
    _, master, agent, manager = parts
    master.start()
    agent.start()
    answers(manager)
    master.freeze()
    time.sleep(7)  # long enough for it to notice
    start = time.monotonic()
    agent.close()
    assert time.monotonic() - start < 6
    master.thaw()
    agent.start()
    answers(manager)


def test_frozen_daemon(parts):
    """A request waits for two seconds, and not once for each of its variables; afterwards all is as before."""
    daemon, master, agent, manager = parts
    master.start()
    agent.start()
    answers(manager)
    daemon.process.send_signal(signal.SIGSTOP)
    try:
        start = time.monotonic()
        oids = [f"{snmp.ROOT}.2.1.3.{port}" for port in (1, 2, 3, 4)]
        status, said = manager.run("snmpget", *oids, options=["-Cf"])  # not tried again without the one that failed
        assert (status, "genError" in said) == (2, True), said
        assert 1.5 < time.monotonic() - start < 4
    finally:
        daemon.process.send_signal(signal.SIGCONT)
    answers(manager)


class Load:
    """10,000 messages of many clients through port 1, and what the daemon says meanwhile."""

    COUNT, PART = 10_000, 100

    def __init__(self, daemon, switch):
        self.daemon, self.switch = daemon, switch

    def run(self, meanwhile):
        flow.listen(self.switch)
        before = self.daemon.counters(1), self.daemon.counters(4)
        for first in range(0, self.COUNT, self.PART):
            part = [from_client(SOLICIT, mac_number(n % 2048), transaction=n) for n in range(first, first + self.PART)]
            self.switch.wire(1).send(*part)
            calls.switch_status(self.daemon.link)
            seen = self.switch.wire(4).wait(first + self.PART)
            assert seen[first:] == part, first  # every one, once, in order, unchanged
            meanwhile(first)
        assert self.daemon.counters(1)["received"] - before[0]["received"] == self.COUNT
        assert self.daemon.counters(1)["delivered"] - before[0]["delivered"] == self.COUNT
        assert self.daemon.counters(4)["sent"] - before[1]["sent"] == self.COUNT
        assert [self.daemon.counters(port)["kernelDropped"] for port in (1, 4)] == [0, 0]


def asking(manager):
    """A manager's request that waits for its answer as long as it takes."""
    line = ["snmpget", "-v2c", "-c", "lab", "-t", "600", "-r", "0", f"udp:127.0.0.1:{snmp.PORT}", f"{snmp.ROOT}.1.0"]
    return subprocess.Popen(
        netns.command(manager.switch.namespace, line),
        env=dict(os.environ, MIBS=""), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
    )  # fmt: skip


def freeze(master):
    """snmpd stands still, and the sub-agent, which asks after it, waits for it. It gives it up after some seconds more."""
    master.freeze()
    time.sleep(6)


def test_a_request_while_snmpd_stands_still(parts):
    _, master, agent, manager = parts
    master.start()
    agent.start()
    answers(manager)
    freeze(master)
    request = asking(manager)
    master.thaw()
    assert request.communicate(timeout=SOON)[0].endswith("= INTEGER: 2\n")  # snooping is off


def test_ten_thousand_messages_while_snmpd_stands_still(parts, switch):
    """None is lost, and the daemon answers its shell, while requests hang: whoever waited for snmpd would wait to the end. Then
    every request is answered, with no such object if the sub-agent has given snmpd up meanwhile, and the module is back."""
    daemon, master, agent, manager = parts
    daemon.snoop(4)
    master.start()
    agent.start()
    answers(manager)
    hanging = []

    def ask(first):
        if first % 2000 == 0:
            hanging.append(asking(manager))

    freeze(master)
    Load(daemon, switch).run(ask)
    assert [one.poll() for one in hanging] == [None] * 5
    master.thaw()
    assert [one.wait(SOON) for one in hanging] == [0] * 5
    answers(manager)


def test_ten_thousand_messages_under_walks(parts, switch):
    """The same while managers walk the module all the time."""
    daemon, master, agent, manager = parts
    daemon.snoop(4)
    master.start()
    agent.start()
    answers(manager)
    walks = []

    def walk(first):
        if first % 500 == 0:
            walks.append(len(manager.bulkwalk()))

    Load(daemon, switch).run(walk)
    assert walks == [31] * 20


# ---- Rights -------------------------------------------------------------------------------------------------------------

DAEMON_GROUP, AGENT, STRANGER = 47119, 47120, 47121  # ids that nobody has


def as_user(number, *groups):
    """Words that run a program as a user without any capability, in a group of its own and further ones."""
    more = ["--groups", ",".join(map(str, groups))] if groups else ["--clear-groups"]
    none = ["--inh-caps=-all", "--bounding-set=-all", "--no-new-privs"]
    return ["setpriv", "--reuid", str(number), "--regid", str(number), *more, *none]


@pytest.fixture
def guarded(idle):
    """An snmpd whose socket the sub-agent's group may use, and a daemon whose socket its own group may use."""
    if os.stat("/proc/1").st_uid != 0 or "4294967295" not in pathlib.Path("/proc/self/uid_map").read_text():
        pytest.skip("other users exist only outside a user namespace")
    os.chown(idle.run / "snoopd6.sock", 0, DAEMON_GROUP)
    for folder in (idle.folder, idle.run):
        folder.chmod(0o777)  # for the sanitizers' reports
    master = Snmpd(idle.switch, extra=f"agentXPerms 0660 0755 0 {AGENT}")
    try:
        yield idle, master.start()
    finally:
        master.close()


def test_unprivileged(guarded):
    """The sub-agent needs nothing but the groups of the two sockets."""
    daemon, master = guarded
    agent = SubAgent(daemon, master.master, before=as_user(AGENT, DAEMON_GROUP)).start()
    try:
        manager = Manager(daemon.switch).until_answers()
        status = pathlib.Path(f"/proc/{agent.process.pid}/status").read_text()
        assert f"Uid:\t{AGENT}\t{AGENT}" in status and "CapEff:\t0000000000000000" in status
        assert manager.set((".7.1.2.1", "s", "2001:db8::1"), (".7.1.6.1", INTEGER, 4)) == "ok"
        assert manager.walk(".7")[".7.1.2.1"] == "2001:db8::1"
    finally:
        agent.close()


@pytest.mark.parametrize("user, groups", [(STRANGER, (DAEMON_GROUP,)), (AGENT, ())], ids=["snmpd's socket", "daemon's socket"])
def test_without_one_of_the_groups(guarded, user, groups):
    daemon, master = guarded
    agent = SubAgent(daemon, master.master, before=as_user(user, *groups)).start()
    try:
        time.sleep(3)
        said = Manager(daemon.switch).run("snmpget", f"{snmp.ROOT}.1.0")[1]
        assert "No Such Object" in said
        assert agent.process.poll() is None
    finally:
        agent.close()
