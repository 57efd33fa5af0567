"""The daemon on a private switch. Every test has a switch of its own; the daemon is the development build, and a sanitizer
report fails the test that ran it."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from lab import flow, frames, kernel, sandbox, snmp, vlans  # noqa: E402
from lab.daemon import Daemon  # noqa: E402
from lab.kea import Kea  # noqa: E402
from lab.switch import Switch  # noqa: E402

LACKING = pytest.StashKey[int]()
# What these ask reaches the kernel only by a plain bridge and a socket; on a second kernel they are left out for their time.
ANY_KERNEL = {
    f"test_{name}"
    for name in (
        "check", "information", "information_names", "information_shell", "package", "package_installed", "runningconfig", "shell",
        "shell_config", "shell_exact", "shell_guard", "shell_information", "snmp_bindings", "snmp_clients", "snmp_hostile",
        "snmp_life", "snmp_set", "socket", "start_line", "startup_save",
    )
}  # fmt: skip


def pytest_addoption(parser):
    parser.addoption("--long", action="store_true", help="churn through 1,000,000 messages")
    parser.addoption("--second-kernel", action="store_true", help="leave out the tests that are the same on every kernel")
    parser.addoption("--part", default="1/1", help="M/N: every Nth test from the Mth on")


def pytest_configure(config):
    if not sandbox.inside():
        pytest.exit("these tests need namespaces of their own: ./test e2e [-- PYTEST-ARGUMENT...]", 2)
    config.addinivalue_line("markers", "needs(feature...): runs on a kernel that has these features of lab/kernel.py")


def _lacking(item):
    return [name for mark in item.iter_markers("needs") for name in mark.args if not kernel.has(name)]


def pytest_collection_modifyitems(config, items):
    """Leaves out what this kernel cannot run, what the run is not about, and the other parts' share."""
    part, parts = (int(number) for number in config.getoption("--part").split("/"))
    wanted = [item for item in items if not _lacking(item)]
    config.stash[LACKING] = len(items) - len(wanted)
    if config.getoption("--second-kernel"):
        wanted = [item for item in wanted if item.path.stem not in ANY_KERNEL]
    wanted = wanted[part - 1 :: parts]
    config.hook.pytest_deselected(items=[item for item in items if item not in set(wanted)])
    items[:] = wanted


def pytest_report_collectionfinish(config):
    lacking = config.stash[LACKING]
    return f"{lacking} tests want features that this kernel lacks; ./test kernel runs them" if lacking else []


@pytest.fixture
def switch():
    made = Switch()
    yield made
    made.close()


@pytest.fixture
def idle(switch):
    """A running daemon with everything at its start values."""
    made = Daemon(switch, extra="vlans = [1, 10, 20]\n")
    try:
        yield made.start()
    finally:
        made.close()


@pytest.fixture
def daemon(idle):
    """Snooping on, port 4 trusted."""
    return idle.snoop(4)


@pytest.fixture
def places(switch):
    """The bridge filters VLANs."""
    return vlans.Places(switch, vlans.PLACES)


@pytest.fixture
def sent(switch):
    """sent(port, frame...): what came out of which port."""
    return lambda port, *frames, **words: flow.sent(switch, port, *frames, **words)


class Network:
    """Real hosts: a server behind port 4, clients wherever a test starts them."""

    def __init__(self, switch):
        self.switch = switch
        self.running = []

    def server(self, port=4, **words):
        self.switch.speak(port)
        return self._keep(Kea(self.switch, port, **words))

    def client(self, kind, port, *arguments):
        self.switch.speak(port)
        return self._keep(kind(self.switch, port, *arguments))

    def _keep(self, program):
        self.running.append(program)
        return program

    def close(self):
        for program in reversed(self.running):
            program.close()


@pytest.fixture
def network(switch):
    made = Network(switch)
    yield made
    made.close()


@pytest.fixture
def learn(sent):
    """learn(port, mac, lease...): a client on the port gets leases from the server behind port 4."""

    def exchange(port, mac, *leases, valid=7200, tags=()):
        addresses = [lease for lease in leases if "/" not in lease]
        prefixes = [lease for lease in leases if "/" in lease]
        options = b""
        if addresses:
            options += frames.ia_na(addresses, preferred=valid, valid=valid)
        if prefixes:
            options += frames.ia_pd(prefixes, preferred=valid, valid=valid)
        request = frames.from_client(frames.REQUEST, mac, tags=tags)
        reply = frames.from_server(frames.REPLY, mac, options, tags=tags)
        assert sent(port, request) == {4: [request]}
        assert sent(4, reply) == {port: [reply]}

    return exchange


@pytest.fixture
def manager(idle):
    """The net-snmp tools, with an snmpd and the sub-agent between them and the daemon of `idle`."""
    with snmp.managed(idle) as made:
        yield made
