"""The running configuration as callers of the socket get it: the largest one whole, and one that changes between two pages."""

import struct

import pytest
from lab import calls
from lab.daemon import Daemon, switch_file
from lab.frames import SOLICIT, from_client, ip_bytes, mac_bytes, mac_number

RUNNING_CONFIG, FILES, CHANGED = 0x8001, 7, -3
PORTS, BINDINGS = 28, 2000
SNMP_ADD, SNMP_DELETE, SNMP_DELETE_ALL = 20, 21, 22
ODD = [vlan for vlan in range(1, 4095) if vlan % 2]


def page(link, offset, generation):
    """(result, total, next, generation, text)."""
    result, answer = calls.ask(link, RUNNING_CONFIG, struct.pack("<II", offset, generation))
    if result != 0:
        assert answer == b""
        return result, 0, 0, 0, ""
    total, after, generation, length = struct.unpack_from("<IIII", answer)
    assert len(answer) == 16 + length
    return result, total, after, generation, answer[16:].decode()


def whole(link):
    text, after, generation = "", 0, 0
    while True:
        result, total, after, generation, part = page(link, after, generation)
        assert result == 0
        text += part
        if after == 0:
            assert len(text) == total
            return text


@pytest.fixture
def largest(switch):
    """28 ports, of which the bridge has four, and every VLAN there can be."""
    made = Daemon(switch, text=switch_file(range(1, PORTS + 1), extra=f"vlans = {list(range(1, 4095))}\n"))
    try:
        yield made.start()
    finally:
        made.close()


def exemption_lines():
    """VLANs 1, 3, 5 ... in texts of at most 110 characters, one kept free for the comma."""
    texts = [str(ODD[0])]
    for vlan in ODD[1:]:
        if len(texts[-1]) + 1 + len(str(vlan)) + 1 <= 110:
            texts[-1] += f",{vlan}"
        else:
            texts[-1] += ","
            texts.append(str(vlan))
    return [f"undo ipv6-source-guard vlan {text}" for text in texts]


def configure(daemon):
    """Everything at once; the lines that must come of it."""
    lines = ["!!!DHCPv6 snooping", "dhcpv6-snooping", "undo dhcpv6-snooping port-down-action fast-remove"]
    lines += ["dhcpv6-snooping l2-relay"]
    daemon.call(calls.START)
    daemon.call(calls.FAST_REMOVE, 0)
    daemon.call(calls.L2_RELAY, 1)
    for port in range(1, PORTS + 1):
        daemon.call(calls.PORT_MODE if port % 2 else calls.GUARD, port, port % 2)
        daemon.call(calls.PORT_MAX, port, port)
        how = "dhcpv6-snooping trust" if port % 2 else "ipv6-source-guard"
        lines += [f"interface ethernet 0/{port}", how, f"dhcpv6-snooping max-clients {port}", "quit"]
    daemon.call(calls.VLANS_MAX, 5, calls.vlan_list(*range(1, 4095)))
    for vlan in range(1, 4095):
        lines += [f"vlan {vlan}", "dhcpv6-snooping max-clients 5", "quit"]
    daemon.call(calls.OPTION18, 1)
    daemon.call(calls.ID_SET, 1, 4, b"cabinet 7")
    daemon.call(calls.OPTION37, 1)
    daemon.call(calls.ID_SET, 0, 2, ip_bytes("2001:db8::37"))
    lines += ["dhcpv6-snooping information option 18", 'dhcpv6-snooping information interface-id string "cabinet 7"']
    lines += ["dhcpv6-snooping information option 37", "dhcpv6-snooping information remote-id ipv6-address 2001:db8::37"]
    daemon.exempt(*ODD)
    lines += exemption_lines()
    for number in range(1, BINDINGS + 1):
        daemon.bind(f"2001:db8::1:{number:x}", mac_number(number), 1 + 2 * (number % 14), number)
    lines += [
        f"ipv6-source-guard bind ip 2001:db8::1:{number:x} mac {mac_number(number)}"
        f" interface ethernet 0/{1 + 2 * (number % 14)} vlan {number}"
        for number in range(BINDINGS, 0, -1)
    ]
    return lines


def test_nothing_is_configured(idle):
    result, total, after, generation, text = page(idle.link, 0, 0)
    assert (result, total, after, text) == (0, 0, 0, "")
    assert generation != 0


def test_the_largest_configuration(largest):
    lines = configure(largest)
    text = whole(largest.link)
    assert text == "".join(f"{line}\r\n" for line in lines)
    assert len(text) > 350_000

    # A change between two pages, and one that leaves everything as it is.
    _, total, after, generation, _ = page(largest.link, 0, 0)
    other = calls.connect(largest.run)
    largest.call(calls.L2_RELAY, 1)
    assert page(other, 0, 0)[3] == generation
    assert page(largest.link, after, generation)[0] == 0
    largest.call(calls.L2_RELAY, 0)
    assert page(largest.link, after, generation)[:2] == (0, total)  # nobody has asked for the new one yet
    assert page(other, 0, 0)[3] != generation
    assert page(largest.link, after, generation)[0] == CHANGED
    other.close()
    lines.remove("dhcpv6-snooping l2-relay")
    assert whole(largest.link) == "".join(f"{line}\r\n" for line in lines)

    largest.call(calls.STOP)
    assert calls.call(largest.link, calls.UNBIND_ALL)[0] == BINDINGS
    assert "bind" not in whole(largest.link)


def test_the_files_that_the_daemon_goes_by(idle):
    def files():
        (row,) = calls.table(idle.link, FILES, struct.Struct("<256s256s"))
        return [field.rstrip(b"\0").decode() for field in row]

    assert files() == [str(idle.file), str(idle.folder / "startup.conf")]


def test_paths_too_long_for_the_table_are_left_out(switch, monkeypatch):
    folder = "/run/" + "long" * 40 + "/" + "name" * 40
    monkeypatch.setenv("SNOOPD6_STARTUP", folder + "/startup.conf")
    made = Daemon(switch)
    try:
        made.start()
        (row,) = calls.table(made.link, FILES, struct.Struct("<256s256s"))
        assert row[0].rstrip(b"\0").decode() == str(made.file)
        assert row[1] == bytes(256)
    finally:
        made.close()


def test_rows_of_snmp_managers_are_no_configuration(idle):
    address, mac = ip_bytes("2001:db8::1"), mac_bytes(mac_number(1))
    idle.call(SNMP_ADD, 0, address, mac, 3, 10)
    assert whole(idle.link) == ""
    assert calls.call(idle.link, calls.BIND_COUNT, bytes(4))[1] == [bytes(4)]
    idle.call(SNMP_DELETE, address)
    assert calls.call(idle.link, SNMP_DELETE, address)[0] == calls.REFUSED
    idle.call(SNMP_DELETE_ALL)


def test_frames_pass_while_the_saved_configuration_is_replayed(switch, sent, tmp_path, monkeypatch):
    """A shell that takes its time holds up nothing but the report that the daemon is ready."""
    shell, go = tmp_path / "shell", tmp_path / "go"
    shell.write_text(f"#!/bin/sh\nwhile [ ! -e {go} ]; do sleep 0.05; done\n")
    shell.chmod(0o755)
    monkeypatch.setenv("SNOOPD6_SHELL", str(shell))
    made = Daemon(switch)
    (made.folder / "startup.conf").write_text("dhcpv6-snooping\n")
    try:
        made.start().snoop(4)
        for number in range(1, 4):
            frame = from_client(SOLICIT, mac_number(number))
            assert sent(1, frame) == {4: [frame]}
        assert "startup.conf" not in made.log()
        go.touch()
        made.until(lambda: "startup.conf is in force" in made.log(), "the replay has ended")
    finally:
        go.touch()
        made.close()
