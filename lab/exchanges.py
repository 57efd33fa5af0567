"""What clients behind one port and the server behind another say to each other while something else goes on."""

from .frames import ADVERTISE, REPLY, REQUEST, SOLICIT, from_client, from_server, ia_na, mac_bytes, mac_number
from .storm import only_from

SERVER = "02:5e:00:00:00:01"
OF_CLIENTS, OF_SERVER = mac_bytes(mac_number(0))[:2], mac_bytes(SERVER)[:2]  # the first bytes of their MACs


def address_of(number):
    return f"2001:db8::{number:x}"


def asks(kind, number, tags=()):
    return from_client(kind, mac_number(number), transaction=kind << 16 | number, tags=tags)


def answers(kind, number, valid=7200, tags=()):
    leases = ia_na([address_of(number)], preferred=valid, valid=valid)
    return from_server(kind, mac_number(number), leases, kind << 16 | number, tags=tags, server=SERVER)


class Exchanges:
    """Each message is sent when the one before it has come out. `check` finds all of them, each once, in order, unchanged, and
    nothing else of theirs."""

    def __init__(self, daemon, switch, port, uplink):
        self.daemon, self.port, self.uplink = daemon, port, uplink
        self.client, self.server = only_from(switch.wire(port), OF_SERVER), only_from(switch.wire(uplink), OF_CLIENTS)
        self.asked, self.answered = [], []
        self.before = {port: daemon.counters(port), uplink: daemon.counters(uplink)}

    def ask(self, *message, **words):
        self._pass(self.client, asks(*message, **words), self.server, self.asked)

    def answer(self, *message, **words):
        self._pass(self.server, answers(*message, **words), self.client, self.answered)

    def _pass(self, here, frame, there, sent):
        sent.append(frame)
        here.send(frame)
        assert len(there.wait(len(sent))) == len(sent), f"message {len(sent)} to {there.name} did not come out"

    def whole(self, number, valid=7200, tags=()):
        self.ask(SOLICIT, number, tags=tags)
        self.answer(ADVERTISE, number, tags=tags)
        self.ask(REQUEST, number, tags=tags)
        self.answer(REPLY, number, valid, tags=tags)

    def run(self, numbers, enough):
        """An exchange for each number, and more of the last until it is enough. Numbers of the clients that were served."""
        numbers = list(numbers)
        for number in numbers:
            self.whole(number)
        while not enough():
            self.whole(numbers[-1])
        return numbers

    def check(self):
        assert self.server.take() == self.asked
        assert self.client.take() == self.answered
        for port, sent in ((self.port, self.asked), (self.uplink, self.answered)):
            counted = self.daemon.grown(port, self.before[port])
            counted.pop("sent")
            assert counted == {"received": len(sent), "delivered": len(sent)}, port
