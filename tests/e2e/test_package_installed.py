"""The Debian package in use: installed and run as the README says, confined as its unit says, taken away again. All tests share
one machine and go through its life in the order of this file."""

import json
import pathlib
import re
import shutil
import subprocess
import threading
import time

import lab.package
import pytest
from lab import frames
from lab.flow import sent
from lab.frames import SOLICIT, ethernet, from_client, ipv6, mac_number
from lab.machine import ROOT, Machine, possible
from lab.service import STATE
from lab.switch import Switch

README = (ROOT / "README.md").read_text()
SAVED = "/var/lib/snoopd6/startup.conf"


@pytest.fixture(scope="module")
def package():
    if tools := lab.package.missing():
        pytest.skip(f"the package is not tested: there is no {', '.join(tools)} (scripts/setup build lab test package)")
    return lab.package.build()


@pytest.fixture(scope="module")
def machine(package):
    """A machine with a bridge of four ports, and the package lying in its home folder."""
    if not possible():
        pytest.skip("installing needs root: the user namespace of an ordinary user has a single user, a package has its own")
    switch = Switch()
    folder = pathlib.Path("/run/package")
    folder.mkdir()
    made = Machine(folder, switch.namespace)
    made.switch = switch
    shutil.copy(package, made.home)
    try:
        yield made
    finally:
        made.run("systemctl", "stop", "snoopd6", check=False)
        made.close()
        switch.close()


def readme_commands():
    """The commands of the README's section "Install it"; a here-document belongs to its command."""
    section = README.split("\n## Install it\n")[1].split("\n## ")[0]
    block = re.search(r"\n\n(    apt (?:.*\n)(?:    .*\n)+)", section)[1]
    return re.findall(r"^.*<<END\n(?:.*\n)*?END$|^.+$", re.sub(r"^    ", "", block, flags=re.M), re.M)


def processes_of(machine, user):
    text = machine.run("ps", "-o", "pid=,comm=", "-u", user, check=False).stdout
    return [line.split()[1] for line in text.splitlines()]


def snooping(machine, user=None, check=False, shell="snoopctl"):
    """Whether the daemon says that snooping is on."""
    done = machine.run(shell, "--json", "show", "dhcpv6-snooping", user=user, check=check)
    return done.returncode == 0 and json.loads(done.stdout)["snooping"]


def service_log():
    return (STATE / "snoopd6.log").read_text()


UNBOUND = ethernet(
    "02:dd:00:00:00:01", "02:aa:00:00:00:01",
    ipv6("2001:db8::bad", "2001:db8:ff::1", 17, frames.udp("2001:db8::bad", "2001:db8:ff::1", 5000, 5001, b"data")),
)  # fmt: skip


def test_five_commands_from_the_package_to_a_guarded_bridge(machine):
    commands = readme_commands()
    assert len(commands) == 5
    assert commands[0] == "apt install ./snoopd6_*.deb"
    assert sent(machine.switch, 1, UNBOUND, trusted=()) == {port: [UNBOUND] for port in (2, 3, 4)}
    outputs = [machine.run("sh", "-c", command).stdout for command in commands]
    guarded = re.findall(r"^(0/\d) +(\w+) +(\w+)", outputs[4], re.M)
    assert guarded == [("0/1", "yes", "yes"), ("0/2", "no", "no"), ("0/3", "no", "no"), ("0/4", "no", "no")]
    assert sent(machine.switch, 1, UNBOUND) == {}
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(machine.switch, 1, frame) == {4: [frame]}
    assert sent(machine.switch, 2, UNBOUND) == {port: [UNBOUND] for port in (1, 3, 4)}


def test_the_unit_is_understood(machine):
    done = machine.run("systemd-analyze", "verify", "--man=yes", "snoopd6.service", check=False)
    assert [line for line in done.stderr.splitlines() if "snoopd6" in line] == [] and done.returncode == 0
    assert machine.run("systemctl", "is-active", "snoopd6").returncode == 0
    assert machine.exists("/etc/systemd/system/multi-user.target.wants/snoopd6.service")


def test_the_daemon_has_two_rights_and_no_more(machine):
    assert processes_of(machine, "snoopd6") == ["snoopd6"]
    assert processes_of(machine, "root").count("snoopd6") == 0
    pid = machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout.strip()
    status = dict(line.split(":\t") for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())
    for kind in ("CapPrm", "CapEff", "CapInh", "CapAmb", "CapBnd"):
        assert int(status[kind], 16) == 1 << 12 | 1 << 13, kind
    assert status["NoNewPrivs"] == "1" and status["Seccomp"] == "2"
    assert len(set(status["Uid"].split())) == 1 and status["Uid"].split()[0] != "0"


def test_the_unit_forbids_nothing_that_the_daemon_does(machine):
    """What is forbidden ends the daemon here. Each of these uses other parts of the kernel."""
    pid = machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout
    switch = machine.switch
    switch.ip("addr", "add", "192.0.2.1/24", "dev", "br0")
    machine.run("snoopctl", "dhcpv6-snooping", "information", "interface-id", "user-defined", "{hostname} {switch-address}")
    machine.run("snoopctl", "dhcpv6-snooping", "information", "option", "18")
    out = sent(switch, 1, from_client(SOLICIT, mac_number(2)))
    assert list(out) == [4] and len(out[4]) == 1 and b"192.0.2.1" in out[4][0]
    machine.run("snoopctl", "undo", "dhcpv6-snooping", "information", "option", "18")
    reply = frames.from_server(frames.REPLY, mac_number(2), frames.ia_na(["2001:db8::77"]))
    assert sent(switch, 4, reply) == {1: [reply]}
    bind = "ipv6-source-guard bind ip 2001:db8::55 mac 02:00:00:00:00:55 interface ethernet 0/1 vlan 1"
    machine.run("snoopctl", *bind.split())
    machine.run("snoopctl", "undo", "ipv6-source-guard", "bind", "all")
    switch.link(1, "down")
    switch.link(1, "up")
    switch.unplug(2)
    switch.plug(2)
    tables = ("dhcpv6-snooping clients", "ipv6-source-guard bindings", "platform ports", "platform vlans", "platform macs",
              "platform counters", "platform filters", "running-config")  # fmt: skip
    for table in tables:
        machine.run("snoopctl", "show", *table.split())
    assert machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout == pid


def test_who_may_use_the_shell(machine):
    machine.run("useradd", "--no-create-home", "--groups", "snoopd6", "member")
    machine.run("useradd", "--no-create-home", "stranger")
    socket = "/run/snoopd6/snoopd6.sock"
    assert machine.run("stat", "-c", "%a %U %G", socket).stdout.split() == ["660", "snoopd6", "snoopd6"]
    for user in (None, "snoopd6", "member"):
        assert snooping(machine, user, check=True) is True
    refused = machine.run("snoopctl", "show", "dhcpv6-snooping", user="stranger", check=False)
    assert refused.returncode != 0 and len(refused.stderr.splitlines()) == 1 and socket in refused.stderr
    machine.run("snoopctl", "save", user="member")
    assert machine.run("snoopctl", "save", user="stranger", check=False).returncode != 0


def test_the_saved_configuration_is_readable_for_the_daemon_and_for_nobody_else(machine):
    assert machine.run("stat", "-c", "%a %U %G", "/etc/snoopd6").stdout.split() == ["755", "root", "root"]
    for user in ("root", "member"):
        machine.run("snoopctl", "save", user=user)
        for name in (SAVED, f"{SAVED}.last-good"):
            assert machine.run("stat", "-c", "%a %U %G", name).stdout.split() == ["640", "snoopd6", "snoopd6"]
    text = machine.run("cat", SAVED, user="snoopd6").stdout
    assert "dhcpv6-snooping\n" in text.replace("\r", "") and "ipv6-source-guard" in text
    assert machine.run("cat", SAVED, user="stranger", check=False).returncode != 0
    assert machine.run("snoopd6", "--check", user="snoopd6").stdout.splitlines()[1].startswith(f"{SAVED}: lines ")


def test_a_member_may_save_and_not_replace_the_switch_file(machine):
    """Nor put anything else into a folder where root or the daemon looks for it."""
    before = machine.run("cat", "/etc/snoopd6/switch.toml").stdout
    for command in (
        "rm -f /etc/snoopd6/switch.toml", "mv /etc/snoopd6/switch.toml /etc/snoopd6/x", "echo >>/etc/snoopd6/switch.toml",
        "ln -s /etc/passwd /etc/snoopd6/startup.conf", f"ln -sf /etc/passwd {SAVED}", f"rm -f {SAVED}",
        "touch /var/lib/snoopd6/.startup.conf.new", "mv /var/lib/snoopd6 /var/lib/other",
    ):  # fmt: skip
        assert machine.run("sh", "-c", command, user="member", check=False).returncode != 0, command
    assert machine.run("cat", "/etc/snoopd6/switch.toml").stdout == before
    machine.run("snoopctl", "save", user="member")


def test_stopped_it_is_as_if_it_had_never_run(machine):
    machine.run("systemctl", "stop", "snoopd6")
    assert processes_of(machine, "snoopd6") == []
    assert not machine.exists("/run/snoopd6")
    assert "table" not in machine.switch.ruleset()
    assert sent(machine.switch, 1, UNBOUND, trusted=()) == {port: [UNBOUND] for port in (2, 3, 4)}


def test_a_killed_daemon_owes_the_bridge_nothing(machine):
    """What it switched off is remembered where only its user may write, and on again after the next one's stop."""
    path, record = "/proc/sys/net/bridge/bridge-nf-call-ip6tables", "/var/lib/snoopd6/bridge-netfilter"
    if not machine.exists(path):
        pytest.skip("the kernel has no bridge netfilter, or has not loaded it")
    machine.run("sh", "-c", f"echo 1 >{path}")
    machine.run("systemctl", "start", "snoopd6")
    assert machine.run("stat", "-c", "%a %U", "/var/lib/snoopd6", record).stdout.split() == ["750", "snoopd6", "600", "snoopd6"]
    pid = machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout.strip()
    machine.run("kill", "-9", pid)
    while pathlib.Path(f"/proc/{pid}/status").exists() and "State:\tZ" not in pathlib.Path(f"/proc/{pid}/status").read_text():
        time.sleep(0.01)
    assert machine.run("cat", path).stdout == "0\n"
    machine.run("systemctl", "start", "snoopd6")
    assert "version " in service_log() and "is ready: bridge br0, 4 ports" in service_log()
    machine.run("systemctl", "stop", "snoopd6")
    assert machine.run("cat", path).stdout == "1\n"
    assert machine.run("ls", "-A", "/var/lib/snoopd6").stdout.split() == ["startup.conf", "startup.conf.last-good"]


def test_started_again_it_is_guarded_when_it_says_that_it_is_ready(machine):
    (STATE / "snoopd6.said").unlink()
    machine.run("systemctl", "start", "snoopd6")
    assert sent(machine.switch, 1, UNBOUND) == {}
    said = (STATE / "snoopd6.said").read_text().splitlines()
    assert said.count("READY=1") == 1 and "STATUS=startup file in force" in said
    machine.run("systemctl", "stop", "snoopd6")


def test_reloaded_it_takes_up_a_new_port(machine):
    machine.run("cp", "-p", "/etc/snoopd6/switch.toml", "/etc/snoopd6/kept")
    machine.run("systemctl", "start", "snoopd6")
    pid = machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout
    machine.run("sh", "-c", "printf '\n[[port]]\nnumber = 9\ninterface = \"p9\"\n' >>/etc/snoopd6/switch.toml")
    machine.run("systemctl", "reload", "snoopd6")
    end = time.monotonic() + 30
    while "/etc/snoopd6/switch.toml is read again, in force now: port 0/9 (p9)" not in service_log():
        assert time.monotonic() < end, service_log()
        time.sleep(0.05)
    assert "p9" in machine.run("snoopctl", "show", "platform", "ports").stdout
    assert machine.run("pgrep", "-u", "snoopd6", "snoopd6").stdout == pid
    assert machine.run("snoopd6", "--check", user="snoopd6").stdout.startswith("/etc/snoopd6/switch.toml: bridge br0, ports 5")
    machine.run("systemctl", "stop", "snoopd6")
    machine.run("mv", "/etc/snoopd6/kept", "/etc/snoopd6/switch.toml")


def test_not_ready_before_the_last_line_is_in_force(machine):
    """A shell that waits in the middle: the daemon works meanwhile, and does not call itself ready."""
    machine.run("cp", "-p", SAVED, f"{SAVED}.kept")
    gate = STATE / "gate"
    machine.run("mkfifo", "-m", "644", str(gate))
    lines = "no such line\ninterface ethernet 0/4 dhcpv6-snooping trust\ninterface ethernet 0/1 ipv6-source-guard\n"
    machine.run("sh", "-c", f"echo dhcpv6-snooping >{SAVED}; printf '{lines}' >>{SAVED}")
    machine.run("mv", "/usr/bin/snoopctl", "/usr/bin/snoopctl.real")
    script = f"#!/bin/sh\\nsnoopctl.real dhcpv6-snooping\\nread -r _ <{gate}\\nexec snoopctl.real \"$@\"\\n"
    machine.run("sh", "-c", f"printf '{script}' >/usr/bin/snoopctl; chmod 755 /usr/bin/snoopctl")
    (STATE / "snoopd6.said").unlink()
    starting = threading.Thread(target=machine.run, args=("systemctl", "start", "snoopd6"))
    starting.start()
    with open(gate, "w") as opened:
        end = time.monotonic() + 30
        while not snooping(machine, shell="snoopctl.real"):
            assert time.monotonic() < end, service_log()
            time.sleep(0.05)
        assert starting.is_alive() and (STATE / "snoopd6.said").read_text() == ""
        opened.write("go\n")
    starting.join(60)
    machine.run("mv", "/usr/bin/snoopctl.real", "/usr/bin/snoopctl")
    assert (STATE / "snoopd6.said").read_text().splitlines().count("READY=1") == 1
    assert "not all of the startup file is in force" in (STATE / "snoopd6.said").read_text()
    assert re.search(r"startup\.conf:2: .*no such line", service_log())
    assert sent(machine.switch, 1, UNBOUND) == {}
    machine.run("mv", f"{SAVED}.kept", SAVED)


def test_without_a_switch_file_there_is_nothing_to_start(machine):
    machine.run("systemctl", "stop", "snoopd6")
    machine.run("mv", "/etc/snoopd6/switch.toml", "/etc/snoopd6/kept")
    machine.run("systemctl", "start", "snoopd6")
    assert machine.run("systemctl", "is-active", "snoopd6", check=False).returncode != 0
    machine.run("mv", "/etc/snoopd6/kept", "/etc/snoopd6/switch.toml")


def test_a_wrong_switch_file_fails_the_start_with_its_reason(machine):
    machine.run("sh", "-c", "echo 'colour = \"red\"' >>/etc/snoopd6/switch.toml")
    done = machine.run("systemctl", "start", "snoopd6", check=False)
    assert done.returncode != 0 and "snoopd6.service failed" in done.stderr
    assert re.search(r"snoopd6: /etc/snoopd6/switch\.toml:\d+: unknown key \"colour\"", service_log())
    machine.run("sed", "-i", "/colour/d", "/etc/snoopd6/switch.toml")


def test_the_example_is_a_switch_file(machine):
    example = machine.run("cat", "/usr/share/doc/snoopd6/examples/switch.toml").stdout
    machine.run("cp", "/etc/snoopd6/switch.toml", "/etc/snoopd6/kept")
    machine.run("cp", "/usr/share/doc/snoopd6/examples/switch.toml", "/etc/snoopd6/switch.toml")
    machine.run("systemctl", "start", "snoopd6")
    ports = machine.run("snoopctl", "show", "platform", "ports").stdout
    for interface in re.findall(r'interface = "(eth\d)"', example):
        assert interface in ports
    machine.run("systemctl", "stop", "snoopd6")
    machine.run("mv", "/etc/snoopd6/kept", "/etc/snoopd6/switch.toml")


def complete(machine, line):
    """What bash offers for the last word of the line."""
    words = re.sub(r":+", r" \g<0> ", line).split() + [""] * line.endswith(" ")  # as bash takes a line apart
    script = (
        ". /usr/share/bash-completion/bash_completion; . /usr/share/bash-completion/completions/snoopctl\n"
        "COMP_LINE=$1; COMP_POINT=${#1}; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1))\n"
        "_snoopctl snoopctl; printf '%s\\n' \"${COMPREPLY[@]}\""
    )
    return machine.run("bash", "-c", script, "bash", line, *words).stdout.split()


def test_completion(machine):
    machine.run("systemctl", "start", "snoopd6")
    assert "dhcpv6-snooping" in complete(machine, "snoopctl ")
    assert complete(machine, "snoopctl dhcp") == ["dhcpv6-snooping"]
    assert set(complete(machine, "snoopctl undo dhcpv6-snooping ")) >= {"information", "l2-relay", "port-down-action"}
    assert "--json" in complete(machine, "snoopctl --")
    assert sorted(complete(machine, "snoopctl --json show dhcpv6-snooping cl")) == ["client", "clients"]
    mac = "snoopctl ipv6-source-guard bind ip 2001:db8::1 mac 02:00:00:00:00:01 "
    assert sorted(complete(machine, mac)) == ["interface", "vlan"]
    assert complete(machine, "snoopctl --count 3 wat") == ["watch"]
    assert complete(machine, "snoopctl nonsense ") == []


def older_layout(machine, plant):
    """The folder as the group shared it, with a startup file that a member has put there; the package is configured again."""
    machine.run("systemctl", "stop", "snoopd6")
    machine.run("sh", "-c", "rm -rf /var/lib/snoopd6 /etc/snoopd6/startup.conf*")
    machine.run("sh", "-c", "chgrp snoopd6 /etc/snoopd6; chmod 2775 /etc/snoopd6")
    machine.run("sh", "-c", plant, user="member")
    done = machine.run("/var/lib/dpkg/info/snoopd6.postinst", "configure", "0.1.0")
    assert machine.run("stat", "-c", "%a %U %G", "/etc/snoopd6").stdout.split() == ["755", "root", "root"]
    return done.stdout + done.stderr


def test_an_older_startup_file_is_taken_over(machine):
    kept = machine.run("cat", SAVED).stdout
    machine.run("sh", "-c", f"cp {SAVED} /var/tmp/kept; chmod 644 /var/tmp/kept")
    said = older_layout(machine, "umask 007; cat /var/tmp/kept >/etc/snoopd6/startup.conf")
    assert f"the saved configuration is now {SAVED}" in said
    assert machine.run("cat", SAVED).stdout == kept and not machine.exists("/etc/snoopd6/startup.conf")
    assert machine.run("stat", "-c", "%a %U %G", SAVED).stdout.split() == ["640", "snoopd6", "snoopd6"]
    machine.run("systemctl", "start", "snoopd6")
    assert sent(machine.switch, 1, UNBOUND) == {}


@pytest.mark.parametrize("plant", [
    "ln -s /etc/shadow /etc/snoopd6/startup.conf", "ln -s /dev/zero /etc/snoopd6/startup.conf",
    "mkfifo /etc/snoopd6/startup.conf", "mkdir /etc/snoopd6/startup.conf",
    "umask 077; echo mine >/etc/snoopd6/startup.conf",
])  # fmt: skip
def test_what_a_member_planted_is_not_taken_over(machine, plant):
    older_layout(machine, plant)
    assert not machine.exists(SAVED)
    assert machine.run("test", "-e", "/etc/snoopd6/startup.conf", "-o", "-L", "/etc/snoopd6/startup.conf").returncode == 0
    machine.run("rm", "-rf", "/etc/snoopd6/startup.conf")
    machine.run("systemctl", "start", "snoopd6")
    machine.run("snoopctl", "save")


def test_removed_it_leaves_the_configuration_and_purged_it_leaves_the_switch_file(machine):
    machine.run("systemctl", "stop", "snoopd6")
    listed = machine.run("dpkg", "-L", "snoopd6").stdout.split("\n")
    programs_and_pages = [name for name in listed if "snoop" in name and name != "/etc/snoopd6"]
    assert len(programs_and_pages) > 10
    machine.run("apt-get", "-y", "remove", "snoopd6")
    for name in programs_and_pages:
        assert not machine.exists(name), name
    assert machine.exists(SAVED) and machine.exists("/etc/snoopd6/switch.toml")
    machine.run("apt-get", "-y", "purge", "snoopd6")
    assert machine.run("ls", "-A", "/etc/snoopd6").stdout.split() == ["switch.toml"]
    machine.run("sh", "-c", "apt install ./snoopd6_*.deb")
    assert machine.run("stat", "-c", "%a %G", "/etc/snoopd6").stdout.split() == ["755", "root"]
    machine.run("rm", "/etc/snoopd6/switch.toml")
    machine.run("apt-get", "-y", "purge", "snoopd6")
    assert not machine.exists("/etc/snoopd6") and not machine.exists("/var/lib/snoopd6")
