"""What other people's programs read in a frame. Two decoders that know nothing of each other, scapy and tshark, give the same
record of a frame, or one of them (or the frame) is wrong:

    tags       VLAN ids, the outer one first
    ports      UDP source and destination
    checksum   True when UDP's is right
    message    type, options as (code, content) in their order, and in a relay message hops, link, peer; the content of a Relay
               Message option is the inner message
"""

import os
import struct
import subprocess
import tempfile
import xml.etree.ElementTree

from . import patience

RELAYED = (12, 13)
RELAY_MESSAGE, INTERFACE_ID, REMOTE_ID = 9, 18, 37
LINK_ETHERNET = 1


# ---- scapy ---------------------------------------------------------------------------------------------------------------


def _scapy_option(layer):
    if layer.optcode == RELAY_MESSAGE:
        return RELAY_MESSAGE, _scapy_message(layer.message)
    if layer.optcode == INTERFACE_ID:
        return INTERFACE_ID, layer.ifaceid
    if layer.optcode == REMOTE_ID:
        return REMOTE_ID, struct.pack("!I", layer.enterprisenum) + layer.remoteid
    return layer.optcode, bytes(layer)[4 : 4 + layer.optlen]


def _scapy_message(layer):
    found = {"type": layer.msgtype, "options": []}
    if layer.msgtype in RELAYED:
        found |= {"hops": layer.hopcount, "link": layer.linkaddr, "peer": layer.peeraddr}
    layer = layer.payload
    while hasattr(layer, "optcode"):
        found["options"].append(_scapy_option(layer))
        layer = layer.payload
    assert not layer or layer.name == "Padding", f"scapy cannot read on at {layer!r}"
    return found


def by_scapy(frame):
    from scapy.all import UDP, Dot1Q, Ether  # takes a second to load

    packet = Ether(frame)
    bare = Ether(frame)
    del bare[UDP].chksum
    tags, tag = [], packet.getlayer(Dot1Q)
    while tag is not None:
        tags.append(tag.vlan)
        tag = tag.payload.getlayer(Dot1Q)
    return {
        "tags": tags,
        "ports": (packet[UDP].sport, packet[UDP].dport),
        "checksum": Ether(bytes(bare))[UDP].chksum == packet[UDP].chksum,
        "message": _scapy_message(packet[UDP].payload),
    }


# ---- tshark --------------------------------------------------------------------------------------------------------------


def _number(element, name):
    return int(element.find(f"field[@name='{name}']").get("show"), 0)


def _tshark_option(element):
    code = _number(element, "dhcpv6.option.type")
    length = _number(element, "dhcpv6.option.length")
    inner = element.find("proto[@name='dhcpv6']")
    if code == RELAY_MESSAGE:
        return code, _tshark_message(inner)
    content = bytes.fromhex(element.get("value"))[4:]
    assert len(content) == length
    return code, content


def _tshark_message(element):
    found = {"type": _number(element, "dhcpv6.msgtype")}
    if found["type"] in RELAYED:
        found |= {"hops": _number(element, "dhcpv6.hopcount")}
        for name in ("link", "peer"):
            found[name] = element.find(f"field[@name='dhcpv6.{name}addr']").get("show")
    found["options"] = [_tshark_option(field) for field in element.findall("field[@name='dhcpv6.option.type_str']")]
    return found


def _tshark_frame(packet):
    udp = packet.find("proto[@name='udp']")
    return {
        "tags": [_number(tag, "vlan.id") for tag in packet.findall("proto[@name='vlan']")],
        "ports": (_number(udp, "udp.srcport"), _number(udp, "udp.dstport")),
        "checksum": _number(udp, "udp.checksum.status") == 1,
        "message": _tshark_message(packet.find("proto[@name='dhcpv6']")),
    }


def pcap(frames):
    """The frames as a capture file."""
    head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, LINK_ETHERNET)
    return head + b"".join(struct.pack("<IIII", 0, 0, len(frame), len(frame)) + frame for frame in frames)


def by_tshark(frames):
    """One record for each frame; all in one run of the program."""
    with tempfile.NamedTemporaryFile(suffix=".pcap") as file:
        file.write(pcap(frames))
        file.flush()
        line = ["tshark", "-n", "-r", file.name, "-o", "udp.check_checksum:TRUE", "-T", "pdml"]
        environment = dict(os.environ, HOME=tempfile.gettempdir())  # no preferences but these
        done = subprocess.run(line, capture_output=True, text=True, timeout=patience.seconds(60), check=True, env=environment)
    packets = [_tshark_frame(packet) for packet in xml.etree.ElementTree.fromstring(done.stdout).findall("packet")]
    assert len(packets) == len(frames)
    return packets
