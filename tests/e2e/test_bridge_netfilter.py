"""Bridged frames and the IP firewall: switched off while the daemon runs, put back by a stop, whatever happened in between."""

import os
import signal

import pytest
from lab import netns
from lab.daemon import Daemon, switch_file

CALLS = ("iptables", "ip6tables", "arptables")
FOLDER = "/proc/sys/net/bridge"
ON, OFF = (1, 1, 1), (0, 0, 0)

pytestmark = pytest.mark.skipif(not os.path.exists(FOLDER), reason="the kernel has no bridge netfilter, or has not loaded it")


class Values:
    """The switches of the namespace and of its bridge, in the order of CALLS."""

    def __init__(self, switch):
        self.switch = switch

    def of_namespace(self):
        with netns.entered(self.switch.namespace):
            return tuple(int(open(f"{FOLDER}/bridge-nf-call-{name}").read()) for name in CALLS)

    def of_bridge(self):
        words = self.switch.ip("-d", "link", "show", "br0").split()
        return tuple(int(words[words.index(f"nf_call_{name}") + 1]) for name in CALLS)

    def now(self):
        return self.of_namespace(), self.of_bridge()

    def set(self, namespace, bridge):
        for name, of_namespace, of_bridge in zip(CALLS, namespace, bridge):
            netns.sysctl(self.switch.namespace, f"net.bridge.bridge-nf-call-{name}", of_namespace)
            self.switch.ip("link", "set", "br0", "type", "bridge", f"nf_call_{name}", str(of_bridge))
        assert self.now() == (namespace, bridge)


@pytest.fixture
def values(switch):
    return Values(switch)


@pytest.fixture
def daemon(switch):
    made = Daemon(switch)
    yield made
    made.close()


FOUND = {"all": (ON, ON), "some": ((1, 0, 0), (0, 1, 0)), "none": (OFF, OFF), "the bridge's": (OFF, (1, 0, 1))}


@pytest.mark.parametrize("name", FOUND)
def test_a_stop_puts_back_what_was_found(values, daemon, name):
    values.set(*FOUND[name])
    daemon.start()
    assert values.now() == (OFF, OFF)
    assert (daemon.run / "bridge-netfilter").exists() == (name != "none")
    daemon.stop()
    assert values.now() == FOUND[name]
    assert not daemon.run.exists()


@pytest.mark.parametrize("name", FOUND)
@pytest.mark.parametrize("last", ["stop", "leave"])
def test_so_does_the_stop_after_daemons_that_were_killed(values, daemon, name, last):
    values.set(*FOUND[name])
    for _ in range(3):
        daemon.start().kill()
        assert values.now() == (OFF, OFF)
    daemon.start()
    if last == "leave":
        daemon.process.send_signal(signal.SIGUSR1)
        assert daemon._ended() == 0
    else:
        daemon.stop()
    assert values.now() == FOUND[name]
    assert list(daemon.run.iterdir()) == []


def test_what_somebody_switches_on_meanwhile_is_added(values, daemon):
    values.set((1, 0, 0), OFF)
    daemon.start().kill()
    values.set((0, 0, 1), (0, 1, 0))
    daemon.start()
    assert values.now() == (OFF, OFF)
    daemon.stop()
    assert values.now() == ((1, 0, 1), (0, 1, 0))


FOREIGN = {
    "nothing": "",
    "no record": "nonsense\n",
    "of another boot": "boot 00000000-0000-0000-0000-000000000000 namespace {place} on 111 bridge {index} on 111\n",
    "of another namespace": "boot {boot} namespace 4:1 on 111 bridge {index} on 111\n",
    "torn": "boot {boot} namespace {place} on 11",
}


@pytest.mark.parametrize("name", FOREIGN)
def test_a_record_that_does_not_hold_here_is_not_believed(switch, values, daemon, name):
    values.set(OFF, OFF)
    with netns.entered(switch.namespace):
        place = os.stat("/proc/self/ns/net")
    boot = open("/proc/sys/kernel/random/boot_id").read().strip()
    index = switch.ip("-o", "link", "show", "br0").split(":")[0]
    daemon.run.mkdir()
    record = daemon.run / "bridge-netfilter"
    record.write_text(FOREIGN[name].format(boot=boot, place=f"{place.st_dev}:{place.st_ino}", index=index))
    daemon.start().stop()
    assert values.now() == (OFF, OFF)
    assert not record.exists()
    daemon.run.rmdir()


def test_a_record_of_another_bridge_holds_for_the_namespace(switch, values, daemon):
    values.set((0, 1, 0), ON)
    daemon.start().kill()
    switch.ip("link", "del", "br0")
    switch.ip("link", "add", "br0", "type", "bridge")
    for port in switch.ports:
        switch.ip("link", "set", f"p{port}", "master", "br0")
    daemon.start().stop()
    assert values.now() == ((0, 1, 0), OFF)


def test_a_folder_of_its_own(switch, values, daemon, monkeypatch):
    monkeypatch.setenv("SNOOPD6_STATE", str(daemon.folder / "state"))
    values.set(ON, OFF)
    daemon.start().kill()
    assert (daemon.folder / "state").stat().st_mode & 0o777 == 0o750
    assert (daemon.folder / "state/bridge-netfilter").stat().st_mode & 0o777 == 0o600
    daemon.start().stop()
    assert values.now() == (ON, OFF)


def test_a_folder_that_others_may_write_into(values, daemon, monkeypatch):
    state = daemon.folder / "state"
    state.mkdir()
    state.chmod(0o777)
    monkeypatch.setenv("SNOOPD6_STATE", str(state))
    values.set(ON, OFF)
    daemon.start()
    assert "after a crash bridge netfilter would stay off: the state folder" in daemon.log()
    assert values.now() == (OFF, OFF)
    daemon.stop()
    assert values.now() == (ON, OFF)


@pytest.fixture
def keeping(switch):
    made = Daemon(switch, text=switch_file(switch.ports, extra='bridge_netfilter = "keep"\n'))
    yield made
    made.close()


@pytest.mark.parametrize("found", [(ON, OFF), (OFF, (0, 1, 0))])
def test_kept_on_it_is_a_reason_not_to_start(switch, values, keeping, found):
    values.set(*found)
    before = switch.ruleset()
    status, said = keeping.fail()
    assert status == 1 and said.count("\n") == 1 and 'bridge_netfilter is "keep"' in said
    assert values.now() == found
    assert switch.ruleset() == before and not keeping.run.exists()


def test_kept_off_nothing_is_changed(values, keeping):
    values.set(OFF, OFF)
    keeping.start()
    assert "nf_call" not in keeping.log()
    values.set(OFF, (0, 1, 0))
    keeping.stop()
    assert values.now() == (OFF, (0, 1, 0))


def test_keep_puts_back_what_a_killed_daemon_switched_off(switch, values, daemon):
    """Then it is on, and the daemon does not start; the killed one's rules stay."""
    values.set(ON, OFF)
    daemon.start().snoop(4).kill()
    held = switch.ruleset()
    daemon.file.write_text(switch_file(switch.ports, extra='bridge_netfilter = "keep"\n'))
    status, said = daemon.fail()
    assert status == 1 and 'bridge_netfilter is "keep"' in said
    assert values.now() == (ON, OFF)
    assert switch.ruleset() == held
