"""The MIB module read with the net-snmp tools over a real snmpd: all of it, by name, and at OIDs that nobody should ask for."""

import itertools
import json
import os
import shlex
import subprocess

import pytest
from lab import calls, frames, snmp
from lab.frames import mac_number
from lab.snmp import INTEGER, NO_INSTANCE, NO_OBJECT, TEXT

ARC = 2**32 - 1


def shown(daemon, words):
    return json.loads(daemon.ctl("--json", *f"show {words}".split()))


def on(truth):
    return 1 if truth else 2


def arcs(mac):
    return "".join(f".{byte}" for byte in frames.mac_bytes(mac))


def duration(seconds):
    texts = [f"{seconds // 86400}d", f"{seconds // 3600 % 24}h", f"{seconds // 60 % 60}m", f"{seconds % 60}s"]
    return "".join(itertools.dropwhile(lambda text: text[:-1] == "0", texts[:3])) + texts[3]


def column(oid, rows):
    return {f"{oid}.{index}": value for index, value in rows.items()}


def expected(daemon):
    """The walk that fits what the shell shows. Lease times are left to the caller."""
    general, guard = shown(daemon, "dhcpv6-snooping"), shown(daemon, "ipv6-source-guard")
    ports = {int(port["port"][2:]): port for port in shown(daemon, "dhcpv6-snooping interfaces")["interfaces"]}
    guarded = {int(port["port"][2:]): port["guarded"] for port in shown(daemon, "ipv6-source-guard interfaces")["interfaces"]}
    vlans = {vlan["vlan"]: vlan for vlan in shown(daemon, "dhcpv6-snooping vlans")["vlans"]}
    interface, remote = shown(daemon, "dhcpv6-snooping information")["options"]
    clients = {arcs(mac)[1:]: (mac, client) for mac, client in sorted(daemon.clients().items())}
    leases = {index: [lease.removesuffix("/128") for lease in client["leases"]] for index, (_, client) in clients.items()}
    kinds = {"ipv4-address": 1, "ipv6-address": 2, "default": 3, "string": 4, "user-defined": 5}

    def content(option):
        return option["content"] if option["kind"] in ("ipv4-address", "ipv6-address", "string") else ""

    walk = {".1.0": on(general["snooping"])}
    walk |= column(".2.1.1", {number: number for number in ports})
    walk |= column(".2.1.2", {number: on(port["trusted"]) for number, port in ports.items()})
    walk |= column(".2.1.3", {number: port["max_clients"] for number, port in ports.items()})
    walk |= column(".2.1.4", {number: on(is_on) for number, is_on in guarded.items()})
    walk |= column(".3.1.1", {number: number for number in vlans})
    walk |= column(".3.1.2", {number: vlan["max_clients"] for number, vlan in vlans.items()})
    walk |= {".4.0": on(general["fast_remove"])}
    walk |= column(".6.1.1", {index: frames.mac_bytes(mac) for index, (mac, _) in clients.items()})
    walk |= column(".6.1.2", {index: client["vlan"] for index, (_, client) in clients.items()})
    walk |= column(".6.1.3", {index: client["port"] for index, (_, client) in clients.items()})
    walk |= column(".6.1.4", {index: len(client["leases"]) for index, (_, client) in clients.items()})
    walk |= column(".6.1.5", {index: ",".join(held[:5]) for index, held in leases.items()})
    walk |= column(".6.1.6", {index: ",".join(held[5:]) for index, held in leases.items() if len(held) > 5})
    walk |= column(".6.1.7", dict.fromkeys(clients))
    walk |= {".8.0": ",".join(str(vlan) for vlan in guard["exempt_vlans"])}
    walk |= {".20.1.0": int(interface["enabled"]), ".20.2.0": int(remote["enabled"])}
    walk |= {".20.3.0": kinds[remote["kind"]], ".20.4.0": content(remote)}
    walk |= {".20.5.0": kinds[interface["kind"]], ".20.6.0": content(interface)}
    return walk


LINES = (
    "interface ethernet 0/2 dhcpv6-snooping max-clients 17",
    "interface ethernet 0/2 ipv6-source-guard",
    "undo dhcpv6-snooping port-down-action fast-remove",
    "undo ipv6-source-guard vlan 10,20,4000",
    "dhcpv6-snooping information option 37",
    "dhcpv6-snooping information remote-id ipv6-address 2001:db8::77",
    'dhcpv6-snooping information interface-id string "rack 7"',
)


def configure(daemon):
    for line in LINES:
        daemon.ctl(*shlex.split(line))


def test_walk_is_what_the_shell_shows(idle, manager, learn):
    assert manager.walk() == expected(idle)
    idle.snoop(4)
    learn(1, mac_number(2), "2001:db8::2", "2001:db8:2::/56", valid=90061)
    learn(2, mac_number(1), *(f"2001:db8::1:{n}" for n in range(7)), valid=59)
    configure(idle)
    walk = manager.walk()
    wanted = expected(idle)
    assert list(walk) == list(wanted)
    times = {oid: value for oid, value in walk.items() if oid.startswith(".6.1.7.")}
    assert walk | dict.fromkeys(times) == wanted
    for (mac, client), text in zip(sorted(idle.clients().items()), times.values(), strict=True):
        left = list(client["leases"].values())
        for part, seconds in zip(text.split(","), left, strict=True):
            assert part in [duration(seconds + later) for later in range(10)], (mac, part, seconds)


def test_every_way_to_walk_meets_the_same(idle, manager, learn):
    idle.snoop(4)
    for number in range(1, 11):
        learn(1, mac_number(number), *(f"2001:db8::{number:x}:{n}" for n in range(number)))
    configure(idle)
    wanted = list(expected(idle))
    assert list(manager.walk()) == list(manager.bulkwalk(at_once=7)) == list(manager.bulkwalk(at_once=100)) == wanted
    stepped, at = [], manager.next("")
    while at is not None:
        stepped.append(at[0])
        at = manager.next(at[0])
    assert stepped == wanted
    values = manager.get(*wanted)
    assert len(values) == len(wanted) and NO_INSTANCE not in values and NO_OBJECT not in values


def test_tables_by_name(idle, manager, learn):
    """With the module's file, the tools show tables, names and named values."""
    idle.snoop(4)
    learn(1, mac_number(0xC0FFEE), "2001:db8::5", "2001:db8:2::/56")
    configure(idle)
    idle.ctl(*"ipv6-source-guard bind ip 2001:db8::9".split())  # not made by a manager: not in the table
    status, table = manager.named("snmptable", f"{snmp.NAME}::dhcp6snoopingClientTable", options=("-Cf", ";"))
    assert status == 0, table
    title, names, *rows = [line.split(";") for line in table.splitlines() if line]
    assert title == [f"SNMP table: {snmp.NAME}::dhcp6snoopingClientTable"]
    assert names == ["client6MacAddr", "client6VlanId", "client6PortId", "client6LeaseNum", "client6IpAddrStr",
                     "client6IpAddrStr2", "client6LeaseTime"]  # fmt: skip
    (row,) = rows
    assert row[:6] == ["2:c:0:c0:ff:ee", "1", "1", "2", "2001:db8::5,2001:db8:2::/56", "?"]
    asked = ("dhcp6snoopingOnOff.0", "portTrustMode.4", "portTrustMode.1", "portIpSourceGuardMode.2",
             "dhcp6snoopingInfoRemoteId.0", "client6PortId.2.12.0.192.255.238")  # fmt: skip
    status, said = manager.named("snmpget", *(f"{snmp.NAME}::{name}" for name in asked))
    assert status == 0, said
    assert [line.split(" = ")[1] for line in said.splitlines()] == [
        "INTEGER: on(1)", "INTEGER: trusted(1)", "INTEGER: untrusted(2)", "INTEGER: on(1)", "INTEGER: ipv6(2)", "INTEGER: 1",
    ]  # fmt: skip
    status, table = manager.named("snmptable", f"{snmp.NAME}::dhcp6snoopingBindTable")
    assert status == 0 and "No entries" in table


# ---- The module's file --------------------------------------------------------------------------------------------------


def test_file_is_in_order():
    done = subprocess.run(
        ["smilint", "-m", "-s", "-l", "6", str(snmp.FILE)],
        env=dict(os.environ, SMIPATH=str(snmp.BASE)), capture_output=True, text=True, check=False,
    )  # fmt: skip
    lines = (done.stdout + done.stderr).splitlines()
    # Index columns can be read here, although a module of this form should hide them.
    accessible = [line for line in lines if "{index-element-accessible} warning: index element `" in line]
    assert lines == accessible and len(lines) == 4


MIB, GET, TEST = 0x8004, 2, 5  # message, operations
NO_SUCH_OBJECT, WRONG_TYPE, NOT_WRITABLE = 1, 7, 11  # results
NUMBER, OCTETS = 1, 2


def ask(daemon, operation, oid, kind=0):
    """A request on an object, put to the daemon itself; only its result counts."""
    arcs = [int(arc) for arc in oid.split(".")]
    record = [operation, len(arcs), *arcs, *[0] * (128 - len(arcs)), kind, 1, 4]
    return calls.ask(daemon.link, MIB, b"".join(map(calls.u32, record)) + bytes(256))[0]


def objects_of(daemon):
    """The OIDs that the daemon knows objects by, of all that an object of such a module can have."""
    found = []
    for arc in range(1, 256):
        for below in ("", *(f".{n}" for n in range(1, 32)), *(f".1.{n}" for n in range(1, 32))):
            oid = f"{snmp.ROOT}.{arc}{below}"
            if not any(oid.startswith(f"{known}.") for known in found) and ask(daemon, GET, oid) != NO_SUCH_OBJECT:
                found.append(oid)
    return found


def test_file_and_daemon_agree(idle):
    """Every object of the file is one of the daemon's with the same OID, type and access, and there is no other."""
    objects = {name: node for name, node in snmp.module().items() if node["nodetype"] in ("scalar", "column")}
    assert sorted(node["oid"] for node in objects.values()) == sorted(objects_of(idle))
    for name, node in objects.items():
        own, other = (OCTETS, NUMBER) if snmp.is_text(node) else (NUMBER, OCTETS)
        instance = node["oid"] + (".0" if node["nodetype"] == "scalar" else ".1")
        answers = [ask(idle, TEST, instance, kind) for kind in (own, other)]
        if node["access"] == "readonly":
            assert answers == [NOT_WRITABLE, NOT_WRITABLE], name
        else:
            assert answers[0] not in (NOT_WRITABLE, WRONG_TYPE) and answers[1] == WRONG_TYPE, name


def test_file_names_the_indexes(idle, manager, learn):
    """The OIDs of a walk have as many arcs behind the column as the index is long."""
    idle.snoop(4)
    learn(1, mac_number(1), "2001:db8::1")
    assert manager.set((".7.1.2.1", TEXT, "2001:db8::9"), (".7.1.6.1", INTEGER, 4)) == "ok"
    nodes, walk = snmp.module(), manager.walk()
    rows = {name: node for name, node in nodes.items() if node["nodetype"] == "row"}
    assert len(rows) == 4
    for name, row in rows.items():
        (index,) = row["linkage"]
        entry = row["oid"].removeprefix(snmp.ROOT)
        lengths = {oid.count(".") - entry.count(".") - 1 for oid in walk if oid.startswith(f"{entry}.")}
        assert lengths == {6 if snmp.is_text(nodes[index]) else 1}, name


# ---- OIDs that nobody should ask for ------------------------------------------------------------------------------------

FIRST_OF = {"": ".1.0", ".1": ".1.0", ".2": ".2.1.1.1", ".2.1": ".2.1.1.1", ".2.1.2": ".2.1.2.1"}
ODD_NEXT = {
    ".0": ".1.0",
    ".1.0": ".2.1.1.1",
    ".1.1": ".2.1.1.1",
    ".1.0.0": ".2.1.1.1",
    f".1.{ARC}": ".2.1.1.1",
    ".2.1.2.0": ".2.1.2.1",
    ".2.1.2.1.0": ".2.1.2.2",
    ".2.1.2.1" + f".{ARC}" * 60: ".2.1.2.2",
    ".2.1.2.4": ".2.1.3.1",
    ".2.1.2.27": ".2.1.3.1",
    f".2.1.2.{ARC}": ".2.1.3.1",
    f".2.1.4.{ARC}": ".3.1.1.1",
    f".2.{ARC}": ".3.1.1.1",
    ".3.1.1.10": ".3.1.1.20",
    ".3.1.1.4093": ".3.1.2.1",
    ".3.1.1.4094": ".3.1.2.1",
    ".3.1.1.4095": ".3.1.2.1",
    f".3.1.2.{ARC}": ".4.0",
    ".5": ".6.1.1.2.12.0.0.0.1",
    ".6.1.1.0": ".6.1.1.2.12.0.0.0.1",
    ".6.1.1.2": ".6.1.1.2.12.0.0.0.1",
    ".6.1.1.2.12.0.0.0.0": ".6.1.1.2.12.0.0.0.1",
    ".6.1.1.2.12.0.0.0.1": ".6.1.1.2.12.0.0.0.2",
    ".6.1.1.2.12.0.0.0.1.0": ".6.1.1.2.12.0.0.0.2",
    ".6.1.1.2.12.0.0.0.256": ".6.1.2.2.12.0.0.0.1",
    ".6.1.1.2.12.0.0.1.0": ".6.1.2.2.12.0.0.0.1",
    ".6.1.1.1.256.0.0.0.0": ".6.1.1.2.12.0.0.0.1",
    f".6.1.1.{ARC}.0.0.0.0.0": ".6.1.2.2.12.0.0.0.1",
    ".6.1.1" + f".{ARC}" * 6: ".6.1.2.2.12.0.0.0.1",
    ".6.1.7" + f".{ARC}" * 40: ".7.1.1.5",
    ".6.1.6.0": ".6.1.6.2.12.0.0.0.2",
    ".6.1.6.2.12.0.0.0.2": ".6.1.7.2.12.0.0.0.1",
    ".7.1.1.0": ".7.1.1.5",
    ".7.1.1.5": ".7.1.2.5",
    ".7.1.1.240": ".7.1.2.5",
    f".7.1.1.{ARC}": ".7.1.2.5",
    f".7.1.6.{ARC}": ".8.0",
    ".9": ".20.1.0",
    ".20.6.0": None,
    ".21": None,
    f".{ARC}": None,
    f".{ARC}" * 80: None,
}
ODD_GET = {
    "": NO_OBJECT,
    ".1": NO_INSTANCE,
    ".1.1": NO_INSTANCE,
    ".1.0.0": NO_INSTANCE,
    f".1.{ARC}": NO_INSTANCE,
    ".2": NO_OBJECT,
    ".2.1": NO_OBJECT,
    ".2.1.2": NO_INSTANCE,
    ".2.1.2.0": NO_INSTANCE,
    ".2.1.2.5": NO_INSTANCE,
    ".2.1.2.1.1": NO_INSTANCE,
    ".2.1.2" + ".1" * 60: NO_INSTANCE,
    f".2.1.2.{ARC}": NO_INSTANCE,
    ".2.1.5.1": NO_OBJECT,
    ".3.1.2.0": NO_INSTANCE,
    ".3.1.2.4094": 2048,
    ".3.1.2.4095": NO_INSTANCE,
    f".3.1.2.{ARC}": NO_INSTANCE,
    ".6.1.1.2.12.0.0.0.99": frames.mac_bytes(mac_number(99)),
    ".6.1.2.2.12.0.0.0.99": NO_INSTANCE,
    ".6.1.1.2.12.0.0.0.256": NO_INSTANCE,
    ".6.1.1.2.12.0.0.0": NO_INSTANCE,
    ".6.1.1.2.12.0.0.0.1.0": NO_INSTANCE,
    ".6.1.1" + f".{ARC}" * 6: NO_INSTANCE,
    ".6.1.6.2.12.0.0.0.1": NO_INSTANCE,
    ".6.1.6.2.12.0.0.0.2": "2001:db8::2:5",
    ".7.1.1.0": NO_INSTANCE,
    ".7.1.2.1": "::",
    ".7.1.6.240": 1,
    ".7.1.6.241": NO_INSTANCE,
    f".7.1.6.{ARC}": NO_INSTANCE,
    ".7.1.6.5.0": NO_INSTANCE,
    ".20.7.0": NO_OBJECT,
    f".{ARC}" * 80: NO_OBJECT,
}


def test_odd_oids(idle, manager, learn):
    idle.snoop(4)
    learn(1, mac_number(1), *(f"2001:db8::1:{n}" for n in range(5)))
    learn(1, mac_number(2), *(f"2001:db8::2:{n}" for n in range(6)))
    made = ((".7.1.1.5", INTEGER, 5), (".7.1.2.5", TEXT, "2001:db8::9"), (".7.1.6.5", INTEGER, 4))
    assert manager.set(*made) == "ok"
    for oid, wanted in (FIRST_OF | ODD_NEXT).items():
        found = manager.next(oid)
        assert (found and found[0]) == wanted, oid
    for oid, wanted in ODD_GET.items():
        assert manager.get(oid) == wanted, oid


@pytest.mark.parametrize("oid", [".6.1.1.300", ".2.1.2.4294967295", ".7.1.1.4294967295", ".6.1.6"])
def test_walk_from_anywhere_ends(idle, manager, learn, oid):
    """From an odd place to the end of the module, each instance once and in order."""
    idle.snoop(4)
    learn(1, mac_number(1), "2001:db8::1")
    seen, at = [], manager.next(oid)
    while at is not None:
        seen.append([int(arc) for arc in at[0][1:].split(".")])
        at = manager.next(at[0])
    assert seen == sorted(seen) and len({tuple(one) for one in seen}) == len(seen) and seen[-1] == [20, 6, 0]
