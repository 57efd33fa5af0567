"""The daemon on a private switch. Every test has a switch of its own; the daemon is the development build, and a sanitizer
report fails the test that ran it."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from lab import flow, frames, sandbox, snmp  # noqa: E402
from lab.daemon import Daemon  # noqa: E402
from lab.kea import Kea  # noqa: E402
from lab.switch import Switch  # noqa: E402


def pytest_addoption(parser):
    parser.addoption("--long", action="store_true", help="churn through 1,000,000 messages")


def pytest_configure():
    if not sandbox.inside():
        pytest.exit("these tests need namespaces of their own: ./test e2e [-- PYTEST-ARGUMENT...]", 2)


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
