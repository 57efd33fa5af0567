"""snoopd6-describe, before a made-up /sys: what it writes, and that the daemon's rules hold for it."""

import subprocess

import pytest
from lab.daemon import Daemon
from lab.machine import ROOT

LOOK = 'mount --bind "$1" /sys && exec "$2" "$3"'


@pytest.fixture
def describe(tmp_path):
    """describe(bridges, name): what it writes about a bridge, where `bridges` has the interfaces by port number of each bridge,
    and a bond is (name, members)."""

    def run(name, *bridges, filtering=None):
        net = tmp_path / "class" / "net"
        (net / "lo").mkdir(parents=True, exist_ok=True)
        for bridge, ports in bridges:
            (net / bridge / "bridge").mkdir(parents=True)
            (net / bridge / "brif").mkdir()
            if filtering is not None:
                (net / bridge / "bridge/vlan_filtering").write_text(f"{filtering}\n")
            for number, port in ports.items():
                port, members = port if isinstance(port, tuple) else (port, None)
                (net / bridge / "brif" / port).mkdir()
                (net / bridge / "brif" / port / "port_no").write_text(f"{number:#x}\n")
                (net / port).mkdir()
                if members is not None:
                    (net / port / "bonding").mkdir()
                    (net / port / "bonding/slaves").write_text(" ".join(members) + "\n")
        line = ["unshare", "--mount", "sh", "-c", LOOK, "sh", str(tmp_path), str(ROOT / "packaging/snoopd6-describe"), name]
        done = subprocess.run(line, capture_output=True, text=True, check=False)
        return done.returncode, done.stdout, done.stderr

    return run


def ports(*names):
    return "".join(f'\n[[port]]\nnumber = {n}\ninterface = "{name}"\n' for n, name in enumerate(names, 1))


NO_FILTERING = "vlans = [1] # the bridge does not filter VLANs: these exist\n"


@pytest.mark.parametrize("filtering, line", [(1, ""), (0, NO_FILTERING), (None, NO_FILTERING)])
def test_ports_in_the_order_in_which_the_bridge_got_them(describe, filtering, line):
    bridge = ("br7", {16: "b", 2: "c", 10: "a"})
    assert describe("br7", bridge, filtering=filtering) == (0, f'bridge = "br7"\n{line}{ports("c", "a", "b")}', "")


def test_a_bond_stands_for_its_members(describe):
    bridge = ("br0", {1: "eth0", 2: ("bond3", ["eth1", "eth2"]), 3: ("uplink", ["eth3"]), 4: ("core", ["eth4"])})
    trunks = '\n[[trunk]]\ninterface = "uplink"\nid = 1\n\n[[trunk]]\ninterface = "core"\nid = 2\n'
    expected = 'bridge = "br0"\n' + ports("eth0", "eth1", "eth2", "eth3", "eth4") + trunks
    assert describe("br0", bridge, filtering=1) == (0, expected, "")


def test_28_ports_and_not_one_more(describe):
    names = {number: f"v{number}" for number in range(1, 29)}
    assert describe("br0", ("br0", names), ("br1", {n: f"w{n}" for n in range(1, 30)}), filtering=1)[0] == 0
    status, output, said = describe("br1")
    assert (status, output) == (1, "") and "29 ports" in said and "at most 28" in said


@pytest.mark.parametrize("name, status, words", [
    ("nope", 1, "there is no bridge nope"),
    ("lo", 1, "there is no bridge lo"),
    ("br0", 1, "no interface is in bridge br0"),
    ("", 2, "usage"),
    ("--help", 2, "usage"),
])  # fmt: skip
def test_refused_in_one_sentence(describe, name, status, words):
    found, output, said = describe(name, ("br0", {}))
    assert (found, output) == (status, "") and words in said and said.count("\n") == 1


def test_the_daemon_takes_what_it_wrote_whatever_the_names(switch, describe):
    odd = 'q"\\x$(id)*'
    status, text, _ = describe("br0", ("br0", {1: "p1", 2: odd, 3: ("up", ["p3"])}), filtering=0)
    assert status == 0
    daemon = Daemon(switch, text=text)
    try:
        daemon.start()
        assert odd in daemon.ctl("show", "platform", "ports")
    finally:
        daemon.close()
