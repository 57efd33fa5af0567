"""The command shell against the running daemon: what it shows is what the daemon has, as text and as JSON."""

import json
import subprocess

import pytest
from lab import calls, netns
from lab.daemon import program
from lab.frames import SOLICIT, from_client, mac_number
from lab.switch import BRIDGE


def test_what_is_set_is_shown(idle):
    for line in (
        "dhcpv6-snooping",
        "undo dhcpv6-snooping port-down-action fast-remove",
        "interface ethernet 0/4 dhcpv6-snooping trust",
        "interface ethernet 0/2 dhcpv6-snooping max-clients 7",
        "vlan 10 dhcpv6-snooping max-clients 9",
    ):
        assert idle.ctl(*line.split()) == ""
    result, outs = calls.call(idle.link, calls.GLOBAL_INFO, bytes(8))
    assert (result, outs[0]) == (0, calls.u32(1) + calls.u32(0))
    assert calls.port_info(idle.link, 4) == {"trust": 1, "maximum": 2048, "clients": 0}
    assert calls.port_info(idle.link, 2) == {"trust": 0, "maximum": 7, "clients": 0}
    assert calls.call(idle.link, calls.VLAN_MAX_GET, calls.u32(10), calls.u32(0), calls.u32(0))[1][1] == calls.u32(9)
    shown = json.loads(idle.ctl("--json", "show", "dhcpv6-snooping", "interfaces"))
    assert [row["max_clients"] for row in shown["interfaces"]] == [2048, 7, 2048, 2048]
    assert [row["trusted"] for row in shown["interfaces"]] == [False, False, False, True]


def test_clients_as_text_and_as_json(daemon, learn):
    learn(1, mac_number(1), "2001:db8::1", "2001:db8::2", "2001:db8:5::/48")
    learn(2, mac_number(2), "2001:db8::3", tags=(10,))
    text = daemon.ctl("show", "dhcpv6-snooping", "clients")
    shown = json.loads(daemon.ctl("--json", "show", "dhcpv6-snooping", "clients"))["clients"]
    table = daemon.clients()
    assert [row["mac"] for row in shown] == list(table)
    for row in shown:
        record = table[row["mac"]]
        assert (row["vlan"], row["port"]) == (record["vlan"], f"0/{record['port']}")
        leases = {lease["address"] if "/" in lease["address"] else f"{lease['address']}/128" for lease in row["leases"]}
        assert leases == set(record["leases"])
        assert all(lease["address"] in text for lease in row["leases"]) and row["mac"] in text
    alone = daemon.ctl("show", "dhcpv6-snooping", "client", mac_number(2))
    assert "2001:db8::3" in alone and "2001:db8::1" not in alone


def test_clients_that_no_server_has_answered(daemon, sent, learn):
    """They are counted where they take a place: in the table, on their port, in their VLAN."""
    def shown(what):
        return json.loads(daemon.ctl("--json", "show", "dhcpv6-snooping", what))

    learn(1, mac_number(1), "2001:db8::1")
    sent(1, *(from_client(SOLICIT, mac_number(number)) for number in range(2, 5)))
    sent(2, from_client(SOLICIT, mac_number(5), tags=(10,)))
    daemon.ctl(*"interface ethernet 0/1 dhcpv6-snooping max-clients 6".split())
    clients = shown("clients")
    assert [row["mac"] for row in clients.pop("clients")] == [mac_number(1)]
    assert clients == {"acknowledged": 1, "pending": 4, "room": 2043}
    rows = [(row["clients"], row["pending"], row["room"]) for row in shown("interfaces")["interfaces"]]
    assert rows == [(4, 3, 2), (1, 1, 2047), (0, 0, 2048), (0, 0, 2048)]
    vlans = {row["vlan"]: (row["clients"], row["pending"], row["room"]) for row in shown("vlans")["vlans"]}
    assert (vlans[1], vlans[10]) == ((4, 3, 2044), (1, 1, 2047))


def test_interfaces_that_the_switch_file_does_not_have(daemon, switch):
    def shown():
        return json.loads(daemon.ctl("--json", "show", "platform"))["unlisted_interfaces"]

    assert shown() == [] and "Not in the switch file  none" in daemon.ctl("show", "platform")
    switch.ip("link", "add", "spare", "type", "veth", "peer", "name", "other")
    switch.ip("link", "set", "spare", "master", BRIDGE)
    daemon.until(lambda: shown() == ["spare"], "it is shown")
    assert "Not in the switch file  spare" in daemon.ctl("show", "platform")
    switch.ip("link", "set", "other", "master", BRIDGE)
    daemon.until(lambda: shown() == ["spare", "other"], "so is the second")
    switch.ip("link", "set", "spare", "nomaster")
    daemon.until(lambda: shown() == ["other"], "one left the bridge")


@pytest.mark.parametrize("words, left", [
    ("all", []),
    ("interface ethernet 0/1", [3]),
    ("vlan 10", [1, 2]),
    (f"mac {mac_number(2)}", [1, 3]),
    ("ip 2001:db8::1", [2, 3]),
])  # fmt: skip
def test_clear(daemon, learn, words, left):
    learn(1, mac_number(1), "2001:db8::1")
    learn(1, mac_number(2), "2001:db8::2")
    learn(2, mac_number(3), "2001:db8::3", tags=(10,))
    daemon.ctl(*f"clear dhcpv6-snooping clients {words}".split())
    assert set(daemon.clients()) == {mac_number(number) for number in left}


def test_refusals_name_the_range(idle):
    for line, words in (
        ("interface ethernet 0/2 dhcpv6-snooping max-clients 2049", ("2049", "2048")),
        ("interface ethernet 0/29 dhcpv6-snooping trust", ("0/29", "28")),
        ("vlan 4095 dhcpv6-snooping max-clients 3", ("4095", "4094")),
    ):
        status, output, said = idle.ctl(*line.split(), check=False)
        assert status != 0 and output == ""
        assert all(word in said for word in words), said
    assert calls.port_info(idle.link, 2)["maximum"] == 2048


LINES = "! setup\ndhcpv6-snooping\ninterface ethernet 0/2\ndhcpv6-snooping max-clients 9999\ndhcpv6-snooping trust\nquit\n"


def replay(daemon, *arguments):
    """Runs LINES: (exit status, errors)."""
    done = subprocess.run(
        [program("snoopctl"), *arguments],
        input=LINES, env=daemon.environment(), capture_output=True, text=True, timeout=30, check=False,
    )  # fmt: skip
    return done.returncode, done.stderr


def test_a_file_ends_with_the_first_line_that_fails(idle):
    status, said = replay(idle, "-f", "-")
    assert status == 2
    assert said == (
        'standard input:4: dhcpv6-snooping max-clients 9999: "9999" is not a number of clients: allowed are 0 to 2048\n'
        "standard input: 5 lines, 1 failed, 2 not run; --keep-going runs the others\n"
    )
    assert calls.port_info(idle.link, 2)["trust"] == 0


def test_a_file_goes_on_when_it_is_told(idle):
    status, said = replay(idle, "--keep-going", "-f", "-")
    assert status == 2
    assert said.startswith("standard input:4: dhcpv6-snooping max-clients 9999: ")
    assert said.endswith("\nstandard input: 5 lines, 1 failed\n")
    assert calls.port_info(idle.link, 2)["trust"] == 1


def test_platform_tables_are_the_kernels(daemon, switch, sent):
    sent(1, from_client(SOLICIT, mac_number(1)))
    ports = json.loads(daemon.ctl("--json", "show", "platform", "ports"))["ports"]
    indexes = [int(netns.run(switch.namespace, "ip", "-o", "link", "show", f"p{port}").split(":")[0]) for port in switch.ports]
    assert [row["ifindex"] for row in ports] == indexes
    macs = daemon.ctl("show", "platform", "macs")
    assert mac_number(1) in macs
    counters = json.loads(daemon.ctl("--json", "show", "platform", "counters"))["counters"]
    assert counters[0]["delivered"] == daemon.counters(1)["delivered"]


def test_debug_lines_come_and_go(daemon, sent):
    assert "receive dhcpv6" not in daemon.log()
    daemon.ctl("debug", "dhcpv6-snooping")
    sent(1, from_client(SOLICIT, mac_number(1)))
    line = f"receive dhcpv6 SOLICIT msg, record user: mac {mac_number(1)}, vlan 1, port 0/1"
    assert line in daemon.log()
    daemon.ctl("undo", "debug", "dhcpv6-snooping")
    sent(1, from_client(SOLICIT, mac_number(2)))
    assert mac_number(2) not in daemon.log()
