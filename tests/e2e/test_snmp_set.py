"""Settings made with snmpset over a real snmpd: every writable object, good values and bad ones with the exact error, several
in one request, and what becomes of a request that fails half way."""

import pytest
from lab import calls, information
from lab.frames import mac_number
from lab.information import DEFAULT, IPV4, IPV6, REMOTE, STRING, USER_DEFINED
from lab.snmp import INTEGER, NO_INSTANCE, TEXT

UNSIGNED, ADDRESS = "u", "a"  # types that no object has
MOST = 2**31 - 1

# object -> (start value, values that are taken, (value, error)...)
NUMBERS = {
    ".1.0": (1, (2, 1), (0, "wrongValue"), (3, "wrongValue"), (-1, "wrongValue"), (MOST, "wrongValue")),
    ".4.0": (1, (2, 1), (0, "wrongValue"), (3, "wrongValue")),
    ".2.1.2.1": (2, (1, 2), (0, "wrongValue"), (3, "wrongValue")),
    ".2.1.3.1": (2048, (0, 1, 2048), (2049, "wrongValue"), (-1, "wrongValue"), (MOST, "wrongValue")),
    ".2.1.4.1": (2, (1, 2), (0, "wrongValue"), (3, "wrongValue")),
    ".3.1.2.10": (2048, (0, 1, 2048), (2049, "wrongValue"), (-1, "wrongValue")),
    ".20.1.0": (0, (1, 0), (2, "wrongValue"), (-1, "wrongValue")),
    ".20.2.0": (0, (1, 0), (2, "wrongValue")),
    ".20.3.0": (3, (3,), (0, "wrongValue"), (5, "wrongValue")),
    ".20.5.0": (3, (3,), (0, "wrongValue"), (5, "wrongValue")),
}
READ_ONLY = (".2.1.1.1", ".3.1.1.10", *(f".6.1.{column}.2.12.0.0.0.1" for column in range(1, 8)))
NOT_THERE = (".2", ".2.1.5.1", ".5.0", ".9.0", ".20.7.0", ".99")


@pytest.fixture
def snooping(idle, manager):
    idle.snoop()
    return idle


@pytest.mark.parametrize("oid", NUMBERS)
def test_number(snooping, manager, oid):
    start, good, *bad = NUMBERS[oid]
    assert manager.get(oid) == start
    for value in good:
        assert manager.set((oid, INTEGER, value)) == "ok"
        assert manager.get(oid) == value
    for value, error in bad:
        assert manager.set((oid, INTEGER, value)) == f"{error} {oid}"
        assert manager.get(oid) == good[-1]
    for kind, value in ((TEXT, "1"), (UNSIGNED, 1), (ADDRESS, "10.0.0.1")):
        assert manager.set((oid, kind, value)) == f"wrongType {oid}"
    assert manager.get(oid) == good[-1]


def test_numbers_arrive(snooping, manager):
    """What is set is what the daemon goes by, not only what it answers."""
    triples = ((".1.0", 2), (".4.0", 2), (".2.1.2.3", 1), (".2.1.3.1", 5), (".2.1.4.2", 1), (".3.1.2.20", 6), (".20.1.0", 1))
    assert manager.set(*((oid, INTEGER, value) for oid, value in triples)) == "ok"
    assert '"snooping": false' in snooping.ctl("--json", "show", "dhcpv6-snooping")
    assert calls.port_info(snooping.link, 3)["trust"] == 1
    assert calls.port_info(snooping.link, 1)["maximum"] == 5
    assert snooping.guarded(2)["guarded"] == 1
    assert int.from_bytes(snooping.call(calls.VLAN_MAX_GET, 20, 0, 0)[1], "little") == 6
    policy = information.policy(snooping)[0]
    assert (policy["option18"], policy["option37"]) == (1, 0)
    assert '"fast_remove": false' in snooping.ctl("--json", "show", "dhcpv6-snooping")


def test_exempt_vlans(snooping, manager, switch):
    oid = ".8.0"
    for text, back in (
        ("10", "10"), ("1,10,20-22", "1,10,20-22"), ("22,21,20,1", "1,20-22"), ("5,5,", "5"), ("4000-4094", "4000-4093"),
        ("", ""),
    ):  # fmt: skip
        assert manager.set((oid, TEXT, text)) == "ok"
        assert manager.get(oid) == back, text
    assert manager.set((oid, TEXT, "7,9")) == "ok"
    for text in ("0", "4095", "x", "1;2", "3-", "1-200", "2-130"):
        assert manager.set((oid, TEXT, text)) == f"commitFailed {oid}", text
        assert manager.get(oid) == "7,9"
    assert manager.set((oid, TEXT, "1-128")) == "ok"
    assert manager.set((oid, TEXT, "1" * 256)) == f"wrongLength {oid}"
    assert manager.set((oid, INTEGER, 5)) == f"wrongType {oid}"
    assert manager.get(oid) == "1-128"
    assert manager.set((oid, TEXT, ",".join(str(vlan) for vlan in range(1000, 1040, 2)))) == "ok"
    exempt = int.from_bytes(snooping.call(calls.EXEMPT_GET, bytes(512))[0], "big")
    assert exempt == int.from_bytes(calls.vlan_list(*range(1000, 1040, 2)), "big")


@pytest.mark.parametrize("kind, text, option", [(".20.3.0", ".20.4.0", "remote"), (".20.5.0", ".20.6.0", "interface")])
def test_ids(snooping, manager, kind, text, option):
    def held():
        policy = information.policy(snooping)[0]
        return policy[option], bytes(policy[f"{option}Value"])

    for number, content, raw in (
        (IPV4, "192.0.2.77", bytes((192, 0, 2, 77))),
        (IPV6, "2001:db8::77", bytes.fromhex("20010db8000000000000000000000077")),
        (STRING, "cellar, rack 7", b"cellar, rack 7\0"),
        (STRING, "x" * 64, b"x" * 64 + b"\0"),
    ):
        assert manager.set((text, TEXT, content), (kind, INTEGER, number)) == "ok"
        assert manager.get(kind, text) == [number, content]
        assert held()[0] == number and held()[1].startswith(raw)
    assert manager.set((text, TEXT, "x" * 65)) == f"wrongLength {text}"
    # A text that is no address leaves everything as it is, and the set succeeds.
    assert manager.set((kind, INTEGER, IPV4)) == "ok"
    assert manager.get(kind, text) == [STRING, "x" * 64]
    # The text alone goes by the kind that was set last.
    assert manager.set((text, TEXT, "192.0.2.78")) == "ok"
    assert manager.get(kind, text) == [IPV4, "192.0.2.78"]
    assert manager.set((kind, INTEGER, DEFAULT)) == "ok"
    assert manager.get(kind, text) == [DEFAULT, ""]
    # And the kind alone by the text that was set last.
    assert manager.set((kind, INTEGER, STRING)) == "ok"
    assert manager.get(kind, text) == [STRING, "192.0.2.78"]
    assert manager.set((text, TEXT, "")) == "ok"
    assert manager.get(kind, text) == [STRING, "192.0.2.78"]


def test_what_cannot_be_set(snooping, manager, learn):
    snooping.snoop(4)
    learn(1, mac_number(1), "2001:db8::1")
    before = [value for oid, value in manager.walk().items() if not oid.startswith(".6.1.7")]
    for oid in READ_ONLY:
        for kind, value in ((INTEGER, 1), (TEXT, "x")):
            assert manager.set((oid, kind, value)) == f"notWritable {oid}"
    for oid in NOT_THERE:
        assert manager.set((oid, INTEGER, 1)) == f"notWritable {oid}"
    for oid in (".1.1", ".1.0.0", ".4.1", ".20.1.1"):
        assert manager.set((oid, INTEGER, 1)) == f"notWritable {oid}"
    for oid in (".2.1.2.0", ".2.1.2.5", ".2.1.3.4294967295", ".2.1.3.1.1", ".3.1.2.30", ".3.1.2.0", ".3.1.2.4095"):
        assert manager.set((oid, INTEGER, 1)) == f"noCreation {oid}"
    assert [value for oid, value in manager.walk().items() if not oid.startswith(".6.1.7")] == before


def test_a_trusted_port_cannot_be_guarded(snooping, manager):
    snooping.snoop(4)
    assert manager.set((".2.1.4.4", INTEGER, 1)) == "commitFailed .2.1.4.4"
    assert manager.get(".2.1.4.4") == 2


# ---- Several in one request ---------------------------------------------------------------------------------------------


def test_in_the_order_given(snooping, manager):
    """The last of several values for one object is in force; kind before text is not text before kind."""
    assert manager.set((".2.1.3.1", INTEGER, 7), (".2.1.3.2", INTEGER, 8), (".2.1.3.1", INTEGER, 9)) == "ok"
    assert manager.get(".2.1.3.1", ".2.1.3.2") == [9, 8]
    # Untrusted first, then guarded: the other way round the guard would be refused.
    assert manager.set((".2.1.2.3", INTEGER, 1)) == "ok"
    assert manager.set((".2.1.4.3", INTEGER, 1), (".2.1.2.3", INTEGER, 2)) == "commitFailed .2.1.4.3"
    assert manager.get(".2.1.2.3", ".2.1.4.3") == [1, 2]
    assert manager.set((".2.1.2.3", INTEGER, 2), (".2.1.4.3", INTEGER, 1)) == "ok"
    assert manager.get(".2.1.2.3", ".2.1.4.3") == [2, 1]


def test_nothing_changes_when_a_test_fails(snooping, manager):
    before = manager.walk()
    assert manager.set((".2.1.3.1", INTEGER, 7), (".4.0", INTEGER, 2), (".2.1.3.2", INTEGER, 9999)) == "wrongValue .2.1.3.2"
    assert manager.set((".2.1.3.1", INTEGER, 7), (".99.0", INTEGER, 2), (".4.0", INTEGER, 2)) == "notWritable .99.0"
    assert manager.walk() == before


REFUSED = (".8.0", TEXT, "1-200")  # passes the test, cannot be carried out


def test_settings_are_set_back(snooping, manager):
    snooping.ctl(*"interface ethernet 0/2 dhcpv6-snooping max-clients 33".split())
    manager.set((".20.4.0", TEXT, "2001:db8::1"), (".20.3.0", INTEGER, IPV6), (".8.0", TEXT, "5-6"))
    before = manager.walk()
    numbers = {".2.1.3.1": 5, ".2.1.3.2": 6, ".3.1.2.10": 7, ".4.0": 2, ".2.1.2.3": 1, ".2.1.4.1": 1, ".20.1.0": 1}
    assert manager.set(*((oid, INTEGER, value) for oid, value in numbers.items()), REFUSED) == "commitFailed .8.0"
    assert manager.walk() == before
    for text, kind in (("rack", STRING), ("192.0.2.1", IPV4), ("", DEFAULT)):
        first, second = (".20.4.0", TEXT, text), (".20.3.0", INTEGER, kind)
        for changes in ((first, second), (second, first)):
            assert manager.set(*changes, REFUSED) == "commitFailed .8.0"
            assert manager.walk() == before, changes
    twice = ((".2.1.3.1", INTEGER, 5), (".2.1.3.2", INTEGER, 6), (".2.1.3.1", INTEGER, 7))
    assert manager.set(*twice, REFUSED) == "commitFailed .8.0"
    assert manager.walk() == before
    row = ".7.1.6.1"
    assert manager.set((".8.0", TEXT, "9"), *twice, (row, INTEGER, 6)) == f"resourceUnavailable {row}"
    assert manager.walk() == before


def test_what_cannot_be_set_back(snooping, manager, learn):
    """A user-defined id has no form that could be set; snooping that was off has forgotten its clients."""
    snooping.snoop(4)
    learn(1, mac_number(1), "2001:db8::1")
    information.set_id(snooping, REMOTE, USER_DEFINED, information.template("{port}"))
    assert manager.get(".20.3.0") == USER_DEFINED
    assert manager.set((".20.3.0", INTEGER, DEFAULT), REFUSED).startswith("undoFailed")
    assert manager.get(".20.3.0") == DEFAULT
    assert len(snooping.clients()) == 1
    assert manager.set((".1.0", INTEGER, 2), REFUSED) == "commitFailed .8.0"
    assert manager.get(".1.0") == 1 and snooping.clients() == {}
