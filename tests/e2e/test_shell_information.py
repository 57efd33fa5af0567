"""The command shell's lines for options 18 and 37 against the running daemon: what it holds afterwards, what it sends, and
what the shell shows of it."""

import json
import subprocess

import pytest
from lab import calls, frames, information
from lab.daemon import program
from lab.frames import SOLICIT, from_client, mac_number
from lab.information import DEFAULT, INTERFACE, IPV4, IPV6, REMOTE, STRING, USER_DEFINED

HEAD = "dhcpv6-snooping information"
EMPTY = bytes(1968)
TEMPLATE = "{{{hostname}}/{port-name} é:{outer-vlan}{vlan-address:10}?"
LINES = f"""\
{HEAD} option 18
{HEAD} option 37
{HEAD} interface-id user-defined "{TEMPLATE}"
{HEAD} remote-id string " Zürich \\ # ? "
"""


def policy(daemon):
    """The policy record by its fields, and the templates of options 18 and 37."""
    record, interface, remote = daemon.call(calls.INFO_GET, bytes(200), EMPTY, EMPTY)
    strategy, *rest = information.POLICY.unpack(record)
    names = ("enabled", "type", "value", "held")
    halves = [dict(zip(names, rest[at : at + 4], strict=True)) for at in (0, 4)]
    return {"strategy": strategy, REMOTE: halves[0], INTERFACE: halves[1]}, interface, remote


def shown(daemon):
    return json.loads(daemon.ctl("--json", "show", "dhcpv6-snooping", "information"))


def replay(daemon, lines, *arguments):
    return subprocess.run(
        [program("snoopctl"), *arguments],
        input=lines, env=daemon.environment(), capture_output=True, text=True, timeout=30, check=False,
    )  # fmt: skip


@pytest.mark.parametrize("name, which", [("interface-id", INTERFACE), ("remote-id", REMOTE)])
def test_every_kind_arrives(idle, name, which):
    held = policy(idle)[0]
    assert (held["strategy"], held[which]["type"], held[which]["held"]) == (3, DEFAULT, 0)
    for words, kind, value in (
        (("ipv4-address", "10.0.0.1"), IPV4, bytes((10, 0, 0, 1))),
        (("ipv6-address", "2001:db8::1"), IPV6, frames.ip_bytes("2001:db8::1")),
        (("string", "two words"), STRING, b"two words\0"),
        (("string", "x" * 79), STRING, b"x" * 79 + b"\0"),
    ):
        assert idle.ctl(*HEAD.split(), name, *words) == ""
        held = policy(idle)[0][which]
        assert (held["type"], held["value"][: len(value)], held["held"]) == (kind, value, 0)
    assert idle.ctl(*HEAD.split(), name, "user-defined", TEMPLATE) == ""
    held, *templates = policy(idle)
    assert held[which]["type"] == USER_DEFINED and held[which]["held"] != 0
    assert templates[0 if which == INTERFACE else 1] == information.template(TEMPLATE)
    assert templates[1 if which == INTERFACE else 0] == EMPTY
    assert idle.ctl("undo", *HEAD.split(), name) == ""
    assert (policy(idle)[0][which]["type"], policy(idle)[1:]) == (DEFAULT, (EMPTY, EMPTY))
    assert policy(idle)[0][1 - which]["type"] == DEFAULT


@pytest.mark.parametrize("number, which", [(18, INTERFACE), (37, REMOTE)])
def test_options_are_switched_one_by_one(idle, number, which):
    idle.ctl(*f"{HEAD} option {number}".split())
    held = policy(idle)[0]
    assert (held[which]["enabled"], held[1 - which]["enabled"]) == (1, 0)
    idle.ctl(*f"undo {HEAD} option {number}".split())
    assert policy(idle)[0][which]["enabled"] == 0


@pytest.mark.parametrize("way", ["pipe", "file", "arguments"])
def test_every_way_in_means_the_same(idle, tmp_path, way):
    if way == "pipe":
        done = [replay(idle, LINES)]
    elif way == "file":
        (tmp_path / "lines").write_text(LINES)
        done = [replay(idle, "", "-f", str(tmp_path / "lines"))]
    else:
        done = [replay(idle, "", line) for line in LINES.splitlines()]
    assert [(one.returncode, one.stdout, one.stderr) for one in done] == [(0, "", "")] * len(done)
    assert shown(idle) == {
        "l2_relay": False,
        "strategy": "replace",
        "options": [
            {"option": 18, "name": "interface-id", "enabled": True, "kind": "user-defined", "content": TEMPLATE},
            {"option": 37, "name": "remote-id", "enabled": True, "kind": "string", "content": " Zürich \\ # ? "},
        ],
    }
    assert policy(idle)[1] == information.template(TEMPLATE)


def test_what_is_refused_changes_nothing(idle):
    idle.ctl(*HEAD.split(), "remote-id", "user-defined", TEMPLATE)
    before = policy(idle)
    for words, said in (
        (("string", "x" * 80), "80 bytes: allowed are 1 to 79"),
        (("string", ""), "0 bytes: allowed are 1 to 79"),
        (("string", 'a"b'), "the double quote at column 2"),
        (("string", "a\nb"), '"\\x0a" at column 2'),
        (("string", "two", "words"), "a text with blanks is put in double quotes"),
        (("user-defined", "{port} {hostnme}"), '"{hostnme}" at column 8 of the template is not an element: nearest is {host'),
        (("user-defined", "{port}" * 18), '"{port}" at column 103 of the template is one element too many'),
        (("user-defined", "x" * 65), "it stands for 65 bytes, allowed are 64"),
        (("user-defined", "{port}" + "x" * 60 + "{port}" + "y" * 60), '"yyyy" at column 129 of the template is too much'),
        (("ipv4-address", "10.0.0.256"), "is not an IPv4 address"),
    ):  # fmt: skip
        status, output, error = idle.ctl(*HEAD.split(), "remote-id", *words, check=False)
        assert (status, output) == (2, "") and said in error, error
    assert policy(idle) == before


def test_what_a_client_message_gets(daemon, sent):
    done = replay(daemon, f'{HEAD} option 18\n{HEAD} interface-id user-defined "{{client-mac}} on {{port}}?"\n')
    assert (done.returncode, done.stderr) == (0, "")
    mac = mac_number(0xBEEF)
    content = f"{mac.replace(':', '').upper()} on 2?".encode()
    plain = from_client(SOLICIT, mac)
    (frame,) = sent(2, plain)[4]
    assert len(frame) == len(plain) + 4 + len(content)
    assert frame.endswith(frames.option(18, content))
