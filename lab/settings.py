"""Random configurations: the lines that make one, and the running configuration that a daemon must then print."""

import ipaddress

VLANS = (1, 2, 10, 20, 30, 4094)  # that have limits of their own
TEXT_PIECES = (" ", "?", "!", "#", "\\", "'", "%s", "{", "}", "é", "日本", "undo", "a", "Z9", "--json", ";", "$HOME",
               "<port>")  # fmt: skip
ELEMENTS = ("{hostname}", "{port-name}", "{port}", "{outer-vlan}", "{inner-vlan}", "{client-mac}", "{system-mac}", "{chassis}",
            "{switch-address}", "{vlan-address:7}", "{vlan-address:4094}", "{slot}", "{subslot}", "{port-kind}", "{pon}",
            "{onu}", "{serial}", "{onu-id}")  # fmt: skip
INFORMATION = "dhcpv6-snooping information"


def vlan_texts(vlans, longest=110):
    """The VLANs as list texts: ranges from three on, as many as fit into a text; all but the last end with a comma."""
    items, vlans = [], sorted(vlans)
    while vlans:
        run = 1
        while run < len(vlans) and vlans[run] == vlans[0] + run:
            run += 1
        items.append(str(vlans[0]) if run == 1 else f"{vlans[0]}-{vlans[run - 1]}")
        vlans = vlans[run:]
    texts = [""]
    for index, item in enumerate(items):
        item += "," if index + 1 < len(items) else ""
        if len(texts[-1]) + len(item) > longest:
            texts.append("")
        texts[-1] += item
    return [text for text in texts if text]


def _text(random, longest):
    """A text of that many bytes at most, which keeps no double quote."""
    text = random.choice("xyz?! ")
    while random.random() < 0.8 and len((text + "日本").encode()) + 6 <= longest:
        text += random.choice(TEXT_PIECES)
    return text


def _template(random):
    text = ""
    for _ in range(random.randint(1, 7)):
        text += random.choice(ELEMENTS) if random.random() < 0.6 else _text(random, 12).replace("{", "{{")
    return text if len(text.encode()) <= 128 else "{hostname}"


def _identity(random, name):
    """The line of an id, or nothing for the default one."""
    head = f"{INFORMATION} {name}"
    return random.choice((
        [],
        [f"{head} ipv4-address {ipaddress.IPv4Address(random.getrandbits(32))}"],
        [f"{head} ipv6-address {ipaddress.IPv6Address(random.getrandbits(128))}"],
        [f'{head} string "{_text(random, 79)}"'],
        [f'{head} user-defined "{_template(random)}"'],
    ))  # fmt: skip


def _block(entry, lines):
    return [entry, *lines, "quit"] if lines else []


def _limit(random):
    return [f"dhcpv6-snooping max-clients {random.choice((0, 1, 2047, random.randint(2, 2046)))}"] * random.randint(0, 1)


def _port(random):
    state = random.choice(([], [], ["dhcpv6-snooping trust"], ["ipv6-source-guard"]))
    return state + _limit(random)


def _exempt(random):
    return random.choice((
        set(),
        {random.randint(1, 4094)},
        set(range(1, 4095)),
        set(random.sample(range(1, 4095), random.randint(2, 300))),
        set(range(1 + random.randint(0, 1), 4095, 2)),
    ))  # fmt: skip


def binding(number, form, ports):
    """The line of a binding; address and MAC belong to the number, the form says how much is bound."""
    line = f"ipv6-source-guard bind ip 2001:db8::{number:x}"
    line += f" mac 02:00:00:00:{number // 256:02x}:{number % 256:02x}" if form > 0 else ""
    line += f" interface ethernet 0/{ports[number % len(ports)]}" if form > 1 else ""
    return line + (f" vlan {number % 4094 + 1}" if form > 2 else "")


def make(random, ports):
    """(what to say, what the daemon must print) for ports and the VLANs of VLANS; the first in an order that means the same."""
    switches = [["dhcpv6-snooping"], ["undo dhcpv6-snooping port-down-action fast-remove"], ["dhcpv6-snooping l2-relay"]]
    blocks = [switch for switch in switches if random.random() < 0.5]
    blocks += [_block(f"interface ethernet 0/{port}", _port(random)) for port in ports]
    blocks += [_block(f"vlan {vlan}", _limit(random)) for vlan in VLANS]
    for number, name in ((18, "interface-id"), (37, "remote-id")):
        blocks += [[f"{INFORMATION} option {number}"]] if random.random() < 0.5 else []
        blocks.append(_identity(random, name))
    exempt = _exempt(random)
    blocks += [[f"undo ipv6-source-guard vlan {text}"] for text in vlan_texts(exempt)]
    numbers = random.sample(range(1, 65536), random.randint(0, 12))
    bindings = [binding(number, random.randint(0, 3), ports) for number in numbers]
    said = [block for block in blocks if block]
    random.shuffle(said)
    lines = [line for block in said for line in block] + bindings
    printed = [line for block in blocks for line in block] + bindings[::-1]
    return lines, (["!!!DHCPv6 snooping"] if printed else []) + printed
