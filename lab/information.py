"""Options 18 (Interface-Id) and 37 (Remote-Id): what the daemon is told to add, and the frames that should come of it.

An id is set as a manager does it, with a type and a value; a user-defined id is a record of 1968 bytes made from a line of
literals and elements in braces, such as "port {port} of {hostname}", where "{{" stands for a brace."""

import re
import struct

from . import calls, frames
from .frames import RELAY_FORW, SERVER_PORT, option

REMOTE, INTERFACE = 0, 1  # which id: option 37's, option 18's
IPV4, IPV6, DEFAULT, STRING, USER_DEFINED = 1, 2, 3, 4, 5
ENTERPRISE = 47119  # unless the switch file names another

ELEMENTS = ("switch-address hostname port-name port-kind system-mac chassis slot subslot port outer-vlan inner-vlan client-mac "
            "vlan-address pon onu serial onu-id").split()  # fmt: skip
SLOTS = 18  # of elements and of literals; element 0 is not used
TEMPLATE = struct.Struct("129s" + "65s" * SLOTS + "x" + f"{SLOTS}I" + "33s" * SLOTS + "2x")
assert TEMPLATE.size == 1968

POLICY = struct.Struct("=III80s4xQII80sQ")
assert POLICY.size == 200


def template(text):
    """The record of a user-defined id. Bytes that are no UTF-8 are surrogates in the text."""
    literals, kinds, vlans = [""], [0], [""]
    for brace, element, vlan, character in re.findall(r"(\{\{)|\{([a-z0-9-]+)(?::(\d+))?\}|(.)", text, re.S):
        if element:
            kinds.append(ELEMENTS.index(element) + 1)
            vlans.append(vlan)
            literals.append("")
        else:
            literals[-1] += "{" if brace else character
    return packed(text, literals, kinds, vlans)


def packed(text, literals, kinds, vlans):
    def filled(texts):
        return [texts[k].encode(errors="surrogateescape") if k < len(texts) else b"" for k in range(SLOTS)]

    kinds = kinds + [0] * (SLOTS - len(kinds))
    return TEMPLATE.pack(text.encode(errors="surrogateescape"), *filled(literals), *kinds, *filled(vlans))


def enable(daemon, interface=True, remote=True, relay=False):
    daemon.call(calls.OPTION18, int(interface))
    daemon.call(calls.OPTION37, int(remote))
    daemon.call(calls.L2_RELAY, int(relay))


def set_id(daemon, which, kind, value=b""):
    daemon.call(calls.ID_SET, which, kind, value)


def policy(daemon):
    """What is in force: (the record's numbers and values, option 18's template, option 37's template)."""
    record, interface, remote = daemon.call(calls.INFO_GET, bytes(POLICY.size), bytes(TEMPLATE.size), bytes(TEMPLATE.size))
    names = ("strategy", "option37", "remote", "remoteValue", "remoteHeld", "option18", "interface", "interfaceValue",
             "interfaceHeld")  # fmt: skip
    return dict(zip(names, POLICY.unpack(record))), interface, remote


# ---- What should come out ------------------------------------------------------------------------------------------------


def interface_id(content):
    return option(18, content)


def remote_id(content, enterprise=ENTERPRISE):
    return option(37, struct.pack("!I", enterprise) + content)


def default_id(port, host_name):
    return bytes([0, port]) + host_name.encode()


def wrapped(message, added, peer, hops=0):
    """The Relay-Forward around a message. Its Relay Message option says how long the message was before something was added:
    whoever goes by that finds the added options behind it, among the relay's own."""
    header = bytes([RELAY_FORW, hops]) + bytes(16) + frames.ip_bytes(peer)
    return header + struct.pack("!HH", 9, len(message)) + message + added


def expected(kind, mac, options, added, relay=False, **words):
    """What leaves toward the servers when this client message came in."""
    message = frames.message(kind, options=options)
    if not relay:
        return frames.from_client(kind, mac, payload=message + added, **words)
    payload = wrapped(message, added, frames.link_local(mac))
    return frames.from_client(kind, mac, payload=payload, port=SERVER_PORT, **words)
