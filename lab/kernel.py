"""What the running kernel can do beyond what every test needs."""

import functools
import subprocess


def _makes(*words):
    """Whether an interface of this kind can be made here, and what ip(8) tells of it."""
    made = subprocess.run(["ip", "link", "add", "probe0", *words], capture_output=True, check=False)
    if made.returncode != 0:
        return ""
    told = subprocess.run(["ip", "-d", "link", "show", "probe0"], capture_output=True, text=True, check=True).stdout
    subprocess.run(["ip", "link", "del", "probe0"], check=True)
    return told


def _makes_on_a_bridge(*words):
    """The same on top of another interface; the loopback takes none on itself."""
    subprocess.run(["ip", "link", "add", "probe1", "type", "bridge"], check=True)
    try:
        return _makes("link", "probe1", *words)
    finally:
        subprocess.run(["ip", "link", "del", "probe1"], check=True)


def _matches_the_bridge():
    """Whether a rule can name the bridge of the port that a packet came by (nft_meta_bridge)."""
    rule = 'table bridge probe { chain c { type filter hook prerouting priority 0; meta ibrname "br0" accept; }; }'
    return subprocess.run(["nft", "--check", rule], capture_output=True, check=False).returncode == 0


FEATURES = {
    "vlan_filtering": lambda: bool(_makes("type", "bridge", "vlan_filtering", "1")),  # a kernel without it tells of it, too
    "bonding": lambda: bool(_makes("type", "bond")),
    "8021q": lambda: bool(_makes_on_a_bridge("type", "vlan", "id", "2")),
    "meta_bridge": _matches_the_bridge,
}


@functools.cache
def has(feature):
    """Asks the kernel, in this network namespace; KeyError for a feature that nobody knows."""
    return FEATURES[feature]()
