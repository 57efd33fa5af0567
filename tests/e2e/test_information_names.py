"""What options 18 and 37 say of the machine that the daemon runs on: its name, its addresses, its ports."""

import pytest
from lab import information
from lab.daemon import Daemon
from lab.frames import SOLICIT, from_client, mac_bytes
from lab.information import DEFAULT, INTERFACE, REMOTE, USER_DEFINED, default_id, interface_id, remote_id
from test_information import CLIENT, OPTIONS, system_mac


@pytest.fixture
def says(sent):
    """says(content, ...): the message of a client on the port gets an Interface-Id with this content."""

    def check(content, port=1, tags=()):
        assert sent(port, from_client(SOLICIT, CLIENT, tags=tags)) == {4: [with_id(content, tags)]}

    return check


@pytest.fixture
def comes_to_say(daemon, sent):
    """The same of what has just changed on the machine: the daemon hears of it in its time."""

    def wait(content, port=1, tags=()):
        came, expected = from_client(SOLICIT, CLIENT, tags=tags), {4: [with_id(content, tags)]}
        daemon.until(lambda: sent(port, came) == expected, f"the message says {content}", 5)

    return wait


def with_id(content, tags):
    return information.expected(SOLICIT, CLIENT, OPTIONS, interface_id(content), tags=tags)


def adds(daemon, line):
    """Option 18 alone, made of this line."""
    information.set_id(daemon, INTERFACE, USER_DEFINED, information.template(line))
    information.enable(daemon, remote=False)


def test_host_name(daemon, says, comes_to_say):
    information.enable(daemon, remote=False)
    says(default_id(1, "lab-switch"))
    daemon.rename("attic.example")
    comes_to_say(default_id(1, "attic.example"))
    adds(daemon, "at {hostname}.")
    says(b"at attic.example.")
    daemon.rename("n" * 64)
    comes_to_say(b"at " + b"n" * 64 + b".")


def test_system_mac(daemon, switch, says, comes_to_say):
    adds(daemon, "{system-mac}")
    says(mac_bytes(system_mac(switch)).hex().encode())
    switch.ip("link", "set", "br0", "address", "02:0a:0b:0c:0d:0e")
    comes_to_say(b"020a0b0c0d0e")


def test_enterprise_number(switch, sent):
    made = Daemon(switch, extra="enterprise = 4020000001\nvlans = [1, 10, 20]\n", host_name="isp")
    try:
        daemon = made.start().snoop(4)
        information.set_id(daemon, REMOTE, DEFAULT)
        information.enable(daemon, interface=False)
        frame = information.expected(SOLICIT, CLIENT, OPTIONS, remote_id(default_id(3, "isp"), 4020000001))
        assert sent(3, from_client(SOLICIT, CLIENT)) == {4: [frame]}
    finally:
        made.close()


def address(switch, interface, *words):
    switch.ip("addr", *words, "dev", interface)


def vlan_interface(switch, vlan):
    """The daemon goes by the name, so any kind of interface will do: not every kernel has VLAN interfaces."""
    switch.ip("link", "add", "name", f"br0.{vlan}", "type", "bridge")
    return f"br0.{vlan}"


def test_switch_address(daemon, switch, says, comes_to_say):
    """The address of the VLAN's interface, and where that is the bridge's own VLAN and there is none, of the bridge; always
    the present one."""
    adds(daemon, "[{switch-address}]")
    says(b"[0.0.0.0]")
    address(switch, "br0", "add", "192.0.2.1/24")
    comes_to_say(b"[192.0.2.1]")
    says(b"[0.0.0.0]", tags=(10,))
    tagged = vlan_interface(switch, 10)
    says(b"[0.0.0.0]", tags=(10,))
    address(switch, tagged, "add", "198.51.100.250/24")
    comes_to_say(b"[198.51.100.250]", tags=(10,))
    says(b"[198.51.100.250]", tags=(10, 20))
    says(b"[0.0.0.0]", tags=(20, 10))
    says(b"[192.0.2.1]")
    address(switch, tagged, "del", "198.51.100.250/24")
    address(switch, tagged, "add", "203.0.113.9/24")
    comes_to_say(b"[203.0.113.9]", tags=(10,))
    switch.ip("link", "del", tagged)
    comes_to_say(b"[0.0.0.0]", tags=(10,))


def test_vlan_address(daemon, switch, says, comes_to_say):
    """In hexadecimal, of whatever VLAN the line names, whoever asks."""
    adds(daemon, "{vlan-address:1}/{vlan-address:20}")
    says(b"00000000/00000000")
    address(switch, "br0", "add", "192.0.2.1/24")
    address(switch, vlan_interface(switch, 20), "add", "10.254.0.255/16")
    comes_to_say(b"c0000201/0afe00ff")
    says(b"c0000201/0afe00ff", tags=(10,))
    address(switch, "br0.20", "del", "10.254.0.255/16")
    comes_to_say(b"c0000201/00000000", tags=(10,))


@pytest.mark.parametrize("tags, vlans", [
    ((), b"0000/0001"),
    ((10,), b"0000/0010"),
    ((0x6000 | 10,), b"0000/0010"),
    ((10, 20), b"0010/0020"),
    ((10, 0x8000 | 4094), b"0010/4094"),
])  # fmt: skip
def test_vlans(daemon, says, tags, vlans):
    """A single tag is the customer's own; the priority is not part of a VLAN's number."""
    adds(daemon, "{outer-vlan}/{inner-vlan}")
    says(vlans, tags=tags)


def test_port_numbers(switch, says):
    """The numbers of the switch file, up to the highest."""
    numbers = {1: 17, 2: 28, 3: 1, 4: 4}
    text = 'bridge = "br0"\n'
    for port, number in numbers.items():
        text += f'\n[[port]]\nnumber = {number}\ninterface = "p{port}"\n'
    made = Daemon(switch, text=text, host_name="x")
    try:
        daemon = made.start().snoop(4)
        information.enable(daemon, remote=False)
        for port in (1, 2, 3):
            says(default_id(numbers[port], "x"), port)
        adds(daemon, "{port-name} {chassis}-{slot}-{subslot}-{port}")
        for port in (1, 2, 3):
            says(f"0/{numbers[port]} 0-0-0-{numbers[port]}".encode(), port)
    finally:
        made.close()
