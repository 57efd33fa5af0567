"""What `save` keeps is what the daemon had, whoever configured it, and nothing else: strings, templates and bindings of SNMP
managers and of callers of the socket are the same after the next start, and so is every other setting."""

import random
import struct
import threading

import pytest
from lab import calls, information, settings, snmp
from lab.daemon import ANY_MAC
from lab.frames import UDP, ethernet, ip_bytes, ip_text, ipv6, mac_bytes, mac_number, mac_text, udp
from lab.information import DEFAULT, INTERFACE, IPV4, IPV6, REMOTE, STRING, USER_DEFINED
from lab.snmp import HEX, INTEGER, TEXT
from test_shell_config import Service

OPEN_ALL = b"\nundo ipv6-source-guard vlan 1-4094\n!"
INTERFACE_TYPE, INTERFACE_TEXT = ".20.5.0", ".20.6.0"


@pytest.fixture
def service(switch):
    made = Service(switch, extra=f"vlans = [{', '.join(map(str, settings.VLANS))}]\n")
    yield made
    made.close()


# ---- What the daemon has -------------------------------------------------------------------------------------------------

MARKS = (b"! Saved configuration of snoopd6. Its last line says that it is complete.\n", b"! End of the saved configuration.\n")

def identity(kind, value, held, template):
    """What counts of an id."""
    if kind == STRING:
        return kind, value.partition(b"\0")[0]
    if kind == USER_DEFINED:
        return kind, template if held else None
    return kind, {IPV4: value[:4], IPV6: value[:16], DEFAULT: b""}[kind]


def bindings(daemon):
    """Newest first: (address, MAC, port, VLAN)."""
    found, start = [], 1
    while start:
        outs = daemon.call(calls.BIND_GET, start, bytes(2), bytes(2), bytes(64 * calls.BINDING.size))
        start, count = (struct.unpack("<H", out)[0] for out in outs[1:3])
        for index in range(count):
            address, mac, port, vlan = calls.BINDING.unpack_from(outs[3], index * calls.BINDING.size)
            found.append((ip_text(address), mac_text(mac), port, vlan))
    return found


def everything(daemon):
    """Every setting, as remote calls tell it."""
    policy, interface, remote = information.policy(daemon)
    return {
        "global": daemon.call(calls.GLOBAL_INFO, bytes(8))[0],
        "ports": [(calls.port_info(daemon.link, port)["trust"], calls.port_info(daemon.link, port)["maximum"],
                   daemon.call(calls.GUARD_GET, port, 0)[1]) for port in daemon.switch.ports],
        "vlans": [daemon.call(calls.VLAN_MAX_GET, vlan, 0, 0)[1] for vlan in settings.VLANS],
        "options": (policy["option18"], policy["option37"]),
        "interface": identity(policy["interface"], policy["interfaceValue"], policy["interfaceHeld"], interface),
        "remote": identity(policy["remote"], policy["remoteValue"], policy["remoteHeld"], remote),
        "exempt": daemon.call(calls.EXEMPT_GET, bytes(512))[0],
        "bindings": bindings(daemon),
        "filters": daemon.filters(),
    }  # fmt: skip


def restarted(service):
    """Every setting after `save`, the end of the daemon and its next start; the file that was saved, without its marks."""
    assert service.ctl("save").startswith("Saved ")
    head, *lines, end = service.startup.read_bytes().splitlines(keepends=True)
    assert (head, end) == MARKS
    saved = b"".join(lines)
    assert service.stop() == 0
    service.start()
    assert service.ready() == "startup file in force"
    return everything(service), saved


def configure(service):
    """A guarded switch, with something to lose: the lines that make it."""
    service.start()
    assert service.ready() == "no startup file"
    service.snoop(4).guard(1, 2).exempt(20)
    service.call(calls.PORT_MAX, 1, 7)
    service.call(calls.VLANS_MAX, 5, calls.vlan_list(10))
    service.bind("2001:db8::1", mac_number(1), 1, 10)
    return service.ctl("show", "running-config").splitlines()


def without_ids(saved):
    """The lines of a file but for the two of the ids."""
    lines = saved.decode().split("\n")
    ids = [line for line in lines if line.startswith(("dhcpv6-snooping information interface-id ",
                                                      "dhcpv6-snooping information remote-id "))]  # fmt: skip
    assert len(ids) == 2 and lines.pop() == ""
    return [line for line in lines if line not in ids]


# ---- Strings and templates -----------------------------------------------------------------------------------------------

TEXTS = (
    b'x"' + OPEN_ALL,
    b'x"\r\nundo dhcpv6-snooping\r\ninterface ethernet 0/1\r\nundo ipv6-source-guard\r\nquit',
    b'x"\nundo all\n"',
    b'\\n\\x22\\x41\\"',
    b"\\x41",
    b'!"#?',
    bytes(range(1, 65)),
    bytes(range(192, 256)),
    b"\x1b[2J\xc2\x9b31m\x7f\xff",
    "Keller, Schrank 7 ü".encode(),
)


@pytest.mark.parametrize("first, second", zip(TEXTS[::2], TEXTS[1::2], strict=True))
def test_strings_of_other_managers(service, first, second):
    lines = configure(service)
    with snmp.managed(service) as manager:
        assert manager.set((INTERFACE_TEXT, HEX, first.hex()), (INTERFACE_TYPE, INTEGER, STRING)) == "ok"
        information.set_id(service, REMOTE, STRING, second)
        before = everything(service)
        assert (before["interface"], before["remote"]) == ((STRING, first), (STRING, second))
        after, saved = restarted(service)
    assert after == before
    assert without_ids(saved) == lines
    shown = service.ctl("show", "running-config")
    assert shown.encode() == saved


@pytest.mark.parametrize("text", [
    b'{hostname}"' + OPEN_ALL,
    b'"\r\nundo dhcpv6-snooping\r\n{port-name}\r\n\xff',
    b"{vlan-address:10}\\n",
    b"\\{{\n" * 20,
])  # fmt: skip
def test_templates_of_other_managers(service, text):
    lines = configure(service)
    record = information.template(text.decode(errors="surrogateescape"))
    assert record.startswith(text + b"\0")
    for which in (INTERFACE, REMOTE):
        information.set_id(service, which, USER_DEFINED, record)
    before = everything(service)
    after, saved = restarted(service)
    assert after == before
    assert after["interface"] == after["remote"] == (USER_DEFINED, record)
    assert without_ids(saved) == lines


def random_text(rng, longest):
    pieces = (b'"', b"\n", b"\r\n", b"\\", b"\\x22", b"!", b"#", b" ", b"?", b'"' + OPEN_ALL, b'"\nundo all\n',
              rng.randbytes(5))  # fmt: skip
    text = b"".join(rng.choice(pieces) for _ in range(rng.randint(0, 5))).replace(b"\0", b"0")
    return text if len(text) <= longest else b'"'


def random_settings(rng, daemon):
    for which in (INTERFACE, REMOTE):
        kind = rng.choice((IPV4, IPV6, DEFAULT, STRING, STRING))
        information.set_id(daemon, which, kind, random_text(rng, 79) if kind == STRING else rng.randbytes(16))
    daemon.call(calls.OPTION18, rng.randint(0, 1))
    daemon.call(calls.OPTION37, rng.randint(0, 1))
    daemon.exempt(*rng.sample(range(1, 4095), rng.randint(0, 40)))
    for number in range(rng.randint(0, 8)):
        mac = rng.choice((ANY_MAC, mac_number(number + 100)))
        daemon.bind(f"2001:db8:1::{number + 1:x}", mac, rng.randint(0, 6), rng.choice((0, rng.randint(1, 4094))))


def test_any_configuration_is_loaded_again(service):
    """Without a new start, and so more of them."""
    configure(service)
    service.ctl("undo", "all")
    file = str(service.folder / "saved")
    for seed in range(25):
        random_settings(random.Random(seed), service)
        before = everything(service)
        service.ctl("save", file)
        service.ctl("undo", "all")
        assert service.ctl("load", file).endswith(" 0 failed\n")
        assert everything(service) == before, f"seed {seed}"
        service.ctl("undo", "all")


def test_any_configuration_is_in_force_again(service):
    configure(service)
    for seed in (100, 101, 102):
        random_settings(random.Random(seed), service)
        before = everything(service)
        assert restarted(service)[0] == before, f"seed {seed}"
        service.ctl("undo", "all")
        service.snoop(4).guard(1, 2)


def test_a_string_that_changes_all_the_time(service):
    """Whatever `save` finds then, it writes no line of the string's."""
    configure(service)
    lines = {f'dhcpv6-snooping information interface-id {words}'.encode()
             for words in ('string "x"', 'escaped-string "x\\x22\\nundo ipv6-source-guard vlan 1-4094\\n!"')}  # fmt: skip
    service.ctl("save")
    fixed = set(service.startup.read_bytes().splitlines())
    ended = threading.Event()
    link = calls.connect(service.run)

    def change():
        number = 0
        while not ended.is_set():
            number += 1
            text = b'x"' + OPEN_ALL if number % 2 else b"x"
            assert calls.call(link, calls.ID_SET, calls.u32(INTERFACE), calls.u32(STRING), text)[0] == 0

    changing = threading.Thread(target=change)
    changing.start()
    try:
        for _ in range(20):
            status, _, said = service.ctl("save", check=False)
            assert status == 0 or (status == 3 and "changed at each of 16 attempts" in said), said
            found = set(service.startup.read_bytes().splitlines())
            assert found <= fixed | lines and fixed <= found
    finally:
        ended.set()
        changing.join()
        link.close()
    after, _ = restarted(service)
    assert after["exempt"] == calls.vlan_list(20)


# ---- Bindings ------------------------------------------------------------------------------------------------------------


def packet(source, vlan):
    segment = udp(source, "2001:db8:ff::1", 5000, 5001, b"data")
    return ethernet("02:dd:00:00:00:01", mac_number(99), ipv6(source, "2001:db8:ff::1", UDP, segment), tags=(vlan,))


def test_bindings_without_a_mac_keep_their_port(service, sent):
    """After save and start an address passes where it did before, and nowhere else."""
    configure(service)
    service.bind("2001:db8::2", port=1)
    service.bind("2001:db8::3", port=2, vlan=10)
    service.bind("2001:db8::4", vlan=10)
    service.bind("2001:db8::5", mac_number(5), vlan=10)
    service.bind("2001:db8::6", mac_number(6), 9, 10)  # which the switch does not have
    with snmp.managed(service) as manager:
        row = ((".7.1.1.1", INTEGER, 1), (".7.1.2.1", TEXT, "2001:db8::7"), (".7.1.4.1", INTEGER, 1), (".7.1.6.1", INTEGER, 4))
        assert manager.set(*row) == "ok"
    before = everything(service)
    assert before["bindings"][0] == ("2001:db8::7", ANY_MAC, 1, 0)

    def ways():
        return {(number, port, vlan): bool(sent(port, packet(f"2001:db8::{number}", vlan), trusted=()))
                for number in (2, 3, 4, 7) for port in (1, 2) for vlan in (10, 30)}  # fmt: skip

    open_before = ways()
    assert {way for way, passes in open_before.items() if passes} == {
        (2, 1, 10), (2, 1, 30), (3, 2, 10), (4, 1, 10), (4, 1, 30), (4, 2, 10), (4, 2, 30), (7, 1, 10), (7, 1, 30),
    }  # fmt: skip
    after, _ = restarted(service)
    assert after == before
    assert ways() == open_before
    assert service.ctl("show", "running-config").splitlines()[-7:] == [
        "ipv6-source-guard bind ip 2001:db8::7 interface ethernet 0/1",
        f"ipv6-source-guard bind ip 2001:db8::6 mac {mac_number(6)} interface ethernet 0/9 vlan 10",
        f"ipv6-source-guard bind ip 2001:db8::5 mac {mac_number(5)} vlan 10",
        "ipv6-source-guard bind ip 2001:db8::4 vlan 10",
        "ipv6-source-guard bind ip 2001:db8::3 interface ethernet 0/2 vlan 10",
        "ipv6-source-guard bind ip 2001:db8::2 interface ethernet 0/1",
        f"ipv6-source-guard bind ip 2001:db8::1 mac {mac_number(1)} interface ethernet 0/1 vlan 10",
    ]


def remarks(service):
    return [line for line in service.ctl("show", "running-config").splitlines() if line.startswith("! ")]


@pytest.mark.parametrize("address, mac, port, vlan, why", [
    ("2001:db8::5", ANY_MAC, 29, 0, '"0/29" is not a port: allowed are 0/1 to 0/28'),
    ("2001:db8::5", mac_number(5), 2**32 - 1, 10, '"0/4294967295" is not a port: allowed are 0/1 to 0/28'),
    ("2001:db8::5", ANY_MAC, 1, 4095, '"4095" is not a VLAN: allowed are 1 to 4094'),
    ("::1", ANY_MAC, 0, 0, '"::1" cannot be bound: it is the loopback address, which never leaves a host'),
    ("ff02::1", ANY_MAC, 1, 0, '"ff02::1" cannot be bound: it is a multicast address, which names receivers and no sender'),
])  # fmt: skip
def test_bindings_that_no_line_makes(service, address, mac, port, vlan, why):
    configure(service)
    service.ctl("save")
    saved = service.startup.read_bytes()
    service.bind(address, mac, port, vlan)
    status, output, said = service.ctl("save", check=False)
    assert (status, output) == (1, "")
    assert said.startswith(f"snoopctl: nothing was saved: the binding of {address} to ")
    assert f" has no line, because {why}; " in said
    assert service.startup.read_bytes() == saved
    assert len(remarks(service)) == 1
    undo = f"undo ipv6-source-guard bind ip {address}"
    assert f'"{undo}" takes it back' in said
    service.ctl(*undo.split())
    assert remarks(service) == []
    service.ctl("save")
    assert service.startup.read_bytes() == saved


def test_ids_that_no_line_makes(service):
    configure(service)
    information.set_id(service, INTERFACE, USER_DEFINED, information.packed("{hostname}", ["", ""], [0, 16], ["", ""]))
    information.set_id(service, REMOTE, USER_DEFINED, information.template("{hostname}"))
    words = (calls.u32(REMOTE), calls.u32(STRING), b"x" * 80)  # refused, and the template is gone
    assert calls.call(service.link, calls.ID_SET, *words)[0] == calls.REFUSED
    status, output, said = service.ctl("save", check=False)
    assert (status, output) == (1, "") and not service.startup.exists()
    assert said == (
        'snoopctl: nothing was saved: the interface-id has no line, because its template does something else than its text '
        '"{hostname}" says; "undo dhcpv6-snooping information interface-id" takes it back; "show running-config" names 1 more\n'
    )
    assert len(remarks(service)) == 2
    for name in ("interface-id", "remote-id"):
        service.ctl("undo", "dhcpv6-snooping", "information", name)
    service.ctl("save")


def test_an_option_that_is_off_stays_off(service):
    """The daemon prints any number but 0 as on; on is 1."""
    configure(service)
    service.call(calls.OPTION18, 2)
    after, saved = restarted(service)
    assert b"option 18" not in saved
    assert after["options"] == (0, 0)


@pytest.mark.parametrize("address", ["::", "::1", "ff02::1", "::ffff:192.0.2.1"])
def test_what_is_no_source_is_not_bound(idle, address):
    line = f"ipv6-source-guard bind ip {address}"
    status, output, said = idle.ctl(*line.split(), check=False)
    assert (status, output) == (2, "")
    assert said.startswith(f'snoopctl: "{address}" cannot be bound: it is ')
    assert bindings(idle) == []
    idle.call(calls.BIND, ip_bytes(address), mac_bytes(ANY_MAC), 0, 0)
    assert len(bindings(idle)) == 1
    assert idle.ctl("undo", *line.split()) == ""
    assert bindings(idle) == []
