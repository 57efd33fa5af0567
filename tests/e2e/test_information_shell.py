"""Options 18 and 37 as the command shell sets and shows them, down to the frame."""

import json

import pytest
from lab import information
from lab.frames import SOLICIT, from_client, ip_bytes
from lab.information import interface_id, remote_id
from test_information import CLIENT, OPTIONS


def shown(daemon):
    """What the shell shows of each option: (added, kind, content)."""
    rows = json.loads(daemon.ctl("--json", "show", "dhcpv6-snooping", "information"))["options"]
    return {row["option"]: (row["enabled"], row["kind"], row["content"]) for row in rows}


@pytest.mark.parametrize("words, content", [
    (("ipv4-address", "192.0.2.77"), bytes([192, 0, 2, 77])),
    (("ipv6-address", "2001:db8::77"), ip_bytes("2001:db8::77")),
    (("string", "cellar, rack 7"), b"cellar, rack 7"),
    (("user-defined", "{{{hostname}} on {port-name}.{inner-vlan}"), b"{lab-switch} on 0/1.0010"),
])  # fmt: skip
def test_from_the_line_to_the_frame(daemon, sent, words, content):
    for which in ("interface-id", "remote-id"):
        assert daemon.ctl("dhcpv6-snooping", "information", which, *words) == ""
    assert shown(daemon) == {18: (False, *words), 37: (False, *words)}
    for number in ("18", "37"):
        assert daemon.ctl("dhcpv6-snooping", "information", "option", number) == ""
    assert daemon.ctl("dhcpv6-snooping", "l2-relay") == ""
    assert shown(daemon) == {18: (True, *words), 37: (True, *words)}
    for text in words:
        assert daemon.ctl("show", "dhcpv6-snooping", "information").count(text) == 2
    came = from_client(SOLICIT, CLIENT, tags=(10,))
    added = interface_id(content) + remote_id(content)
    assert sent(1, came) == {4: [information.expected(SOLICIT, CLIENT, OPTIONS, added, relay=True, tags=(10,))]}

    assert daemon.ctl("undo", "dhcpv6-snooping", "l2-relay") == ""
    assert daemon.ctl("undo", "dhcpv6-snooping", "information", "option", "37") == ""
    assert sent(1, came) == {4: [information.expected(SOLICIT, CLIENT, OPTIONS, interface_id(content), tags=(10,))]}
    assert daemon.ctl("undo", "dhcpv6-snooping", "information", "interface-id") == ""
    added = interface_id(information.default_id(1, "lab-switch"))
    assert sent(1, came) == {4: [information.expected(SOLICIT, CLIENT, OPTIONS, added, tags=(10,))]}
    assert daemon.ctl("undo", "dhcpv6-snooping", "information", "option", "18") == ""
    assert sent(1, came) == {4: [came]}
    assert daemon.ctl("undo", "dhcpv6-snooping", "information", "remote-id") == ""
    assert shown(daemon) == {18: (False, "default", None), 37: (False, "default", None)}


def test_a_template_is_the_record_that_it_says(daemon):
    """Every element, in two lines; the shell's record is the one made here."""
    half = len(information.ELEMENTS) // 2
    words = ["{" + name + (":4094" if name == "vlan-address" else "") + "}" for name in information.ELEMENTS]
    for part in (words[:half], words[half:]):
        text = "-".join(part)
        daemon.ctl("dhcpv6-snooping", "information", "remote-id", "user-defined", text)
        assert information.policy(daemon)[2] == information.template(text)
