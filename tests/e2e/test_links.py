"""Links that go down, interfaces that go away and come back."""

from lab import calls, netns
from lab.frames import REPLY, SOLICIT, from_client, from_server, mac_number


def wait_link(daemon, port, state):
    daemon.until(lambda: calls.ports(daemon.link)[port]["link"] == state, f"port {port} has link {state}")


def test_link_down_removes_the_clients_of_the_port(daemon, switch, learn):
    learn(1, mac_number(1), "2001:db8::1")
    learn(1, mac_number(2), "2001:db8::2")
    learn(2, mac_number(3), "2001:db8::3")
    switch.link(1, "down")
    daemon.until(lambda: daemon.counted(1) == 0, "the clients of the port go")
    assert set(daemon.clients()) == {mac_number(3)}
    assert daemon.counted(2) == 1


def test_a_cable_pulled_at_the_far_end(daemon, switch, learn):
    learn(1, mac_number(1), "2001:db8::1")
    netns.run(switch.host(1), "ip", "link", "set", "eth0", "down")
    daemon.until(lambda: daemon.clients() == {}, "the client of the port goes")


def test_without_fast_remove_they_stay(daemon, switch, sent, learn):
    daemon.call(calls.FAST_REMOVE, 0)
    learn(1, mac_number(1), "2001:db8::1")
    switch.link(1, "down")
    wait_link(daemon, 1, 0)
    assert set(daemon.clients()) == {mac_number(1)}
    switch.link(1, "up")
    wait_link(daemon, 1, 1)
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(1, frame) == {4: [frame]}
    assert daemon.clients()[mac_number(1)]["leases"] == {"2001:db8::1/128": 7200}


def test_link_up_again_works_again(daemon, switch, learn):
    learn(1, mac_number(1), "2001:db8::1")
    switch.link(1, "down")
    daemon.until(lambda: daemon.clients() == {}, "the client of the port goes")
    switch.link(1, "up")
    wait_link(daemon, 1, 1)
    learn(1, mac_number(1), "2001:db8::1")
    assert daemon.clients()[mac_number(1)]["port"] == 1


def test_nothing_is_sent_into_a_port_that_is_down(daemon, switch, sent):
    switch.link(4, "down")
    wait_link(daemon, 4, 0)
    before = daemon.counters(1)["delivered"]
    switch.wire(1).send(from_client(SOLICIT, mac_number(1)))
    daemon.until(lambda: daemon.counters(1)["delivered"] == before + 1, "the message reaches the daemon")
    switch.link(4, "up")
    wait_link(daemon, 4, 1)
    frame = from_client(SOLICIT, mac_number(2))
    assert sent(1, frame) == {4: [frame]}


def test_interface_deleted_and_made_again(daemon, switch, sent, learn):
    learn(1, mac_number(1), "2001:db8::1")
    old = calls.ports(daemon.link)[1]["ifindex"]
    switch.unplug(1)
    daemon.until(lambda: calls.ports(daemon.link)[1]["ifindex"] == 0, "the interface is missed")
    assert daemon.clients() == {}
    switch.plug(1)
    wait_link(daemon, 1, 1)
    new = calls.ports(daemon.link)[1]
    assert new["ifindex"] not in (0, old) and new["forwarding"] == 1
    learn(1, mac_number(1), "2001:db8::1")
    learn(2, mac_number(2), "2001:db8::2")
    assert sent(1, from_server(REPLY, mac_number(2))) == {}  # the trap is set on the new interface too


def test_interface_that_comes_late(switch, sent):
    """A port of the switch file whose interface is not there yet."""
    from lab.daemon import Daemon

    switch.unplug(2)
    daemon = Daemon(switch).start()
    try:
        daemon.snoop(4)
        assert calls.ports(daemon.link)[2]["link"] == 0
        switch.plug(2)
        wait_link(daemon, 2, 1)
        frame = from_client(SOLICIT, mac_number(2))
        assert sent(2, frame) == {4: [frame]}
        assert daemon.counted(2) == 1
    finally:
        daemon.close()


def test_interface_taken_out_of_the_bridge(daemon, switch, sent):
    switch.ip("link", "set", "p1", "nomaster")
    daemon.until(lambda: calls.ports(daemon.link)[1]["forwarding"] == 0, "the port stops forwarding")
    before = daemon.counters(1)["dropState"]
    switch.wire(1).send(from_client(SOLICIT, mac_number(1)))
    daemon.until(lambda: daemon.counters(1)["dropState"] == before + 1, "the message is dropped")
    assert daemon.counted(1) == 0
    switch.ip("link", "set", "p1", "master", "br0")
    daemon.until(lambda: calls.ports(daemon.link)[1]["forwarding"] == 1, "the port forwards again")
    frame = from_client(SOLICIT, mac_number(1))
    assert sent(1, frame) == {4: [frame]}


def test_local_senders_leave_their_checksums_to_the_interface(daemon, switch):
    """A program of the host sends; its kernel leaves the UDP checksum unfinished, and the daemon finishes it."""
    import socket

    from lab import frames

    switch.speak(1)
    received = switch.wire(4)
    received.take()
    with netns.entered(switch.host(1)):
        program = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
        index = socket.if_nametoindex("eth0")
    own = switch.addresses(1, "link")[0]
    program.bind((own, frames.CLIENT_PORT, 0, index))
    for length in range(0, 9):
        payload = frames.message(SOLICIT, 0x100 + length, frames.option(65001, bytes(range(length))))
        program.sendto(payload, (frames.SERVERS, frames.SERVER_PORT, 0, index))

    def solicits():
        return [frame for frame in received.seen if frames.dhcp_kind(frame) == SOLICIT]

    received.until(lambda: len(solicits()) >= 9)
    program.close()
    assert [frames.transaction(frame) for frame in solicits()] == list(range(0x100, 0x109))
    assert all(frames.read(frame)["udp_ok"] for frame in solicits())
    assert received.unfinished == 0
