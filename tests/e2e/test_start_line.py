"""The one line that says what a start has come to."""

import re

from lab.daemon import Daemon, program, switch_file

LINE = re.compile(r"^snoopd6: (version .* is ready: .*)$", re.M)


def said(daemon):
    """What the daemon said when it was ready; once."""
    daemon.until(lambda: LINE.search(daemon.log()), "the line is there")
    (line,) = LINE.findall(daemon.log())
    return re.sub(r"^version \d+\.\d+\.\d+ ", "", line)


def test_without_a_saved_configuration(idle):
    assert said(idle) == "is ready: bridge br0, 4 ports, DHCPv6 snooping off, guarded: nothing"


def test_with_one(switch, monkeypatch):
    monkeypatch.setenv("SNOOPD6_SHELL", program("snoopctl"))
    daemon = Daemon(switch, text=switch_file((1, 3, 4)))
    (daemon.folder / "startup.conf").write_text(
        "dhcpv6-snooping\ninterface ethernet 0/4 dhcpv6-snooping trust\n"
        "interface ethernet 0/3 ipv6-source-guard\ninterface ethernet 0/1 ipv6-source-guard\n"
    )
    try:
        daemon.start()
        line = "is ready: bridge br0, 3 ports, DHCPv6 snooping on, guarded: port 0/1, 0/3"
        assert said(daemon) == line
        log = daemon.log()
        assert log.index("startup.conf is in force") < log.index("is ready")
    finally:
        daemon.close()
