"""The daemon's program called with words: it answers, and starts nothing."""

import subprocess

import pytest
from lab import netns
from lab.daemon import Daemon, program


def called(daemon, *words):
    """Runs the daemon's program to its end: (status, output, errors). It must not have started anything."""
    before = daemon.switch.ruleset()
    done = subprocess.run(
        netns.command(daemon.switch.namespace, [program("snoopd6"), *words]), env=daemon.environment(),
        stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30, check=False,
    )  # fmt: skip
    daemon.check_sanitizers()
    assert daemon.switch.ruleset() == before
    assert not daemon.run.exists()
    return done.returncode, done.stdout, done.stderr


@pytest.fixture
def stopped(switch):
    daemon = Daemon(switch)
    yield daemon
    daemon.close()


def test_help_and_version(stopped):
    for word in ("--help", "-h"):
        status, said, errors = called(stopped, word)
        assert (status, errors) == (0, "")
        assert "--check" in said and "--version" in said
    for word in ("--version", "-V"):
        status, said, errors = called(stopped, word)
        assert (status, errors) == (0, "") and said.startswith("snoopd6 0.")


@pytest.mark.parametrize("words", [["--nonsense"], ["start"], [""], ["--check", "now"], ["--check", "--help"], ["x" * 9000]])
def test_words_that_nobody_knows(stopped, words):
    status, said, errors = called(stopped, *words)
    assert (status, said) == (2, "")
    assert errors.startswith("snoopd6: ") and errors.endswith('"snoopd6 --help" has them all\n') and errors.count("\n") == 1


def test_check(stopped):
    startup = stopped.folder / "startup.conf"
    for word in ("--check", "-c"):
        status, said, errors = called(stopped, word)
        assert (status, errors) == (0, "")
        assert said.splitlines() == [
            f"{stopped.file}: bridge br0, ports 4, highest 0/4",
            f"{startup}: not there, nothing is snooped or guarded after a start",
        ]
    startup.write_text("! a comment\r\n\r\n  # another\ndhcpv6-snooping\r\ninterface ethernet 0/1 ipv6-source-guard")
    assert called(stopped, "--check")[1].splitlines()[1] == f"{startup}: lines 2, without the marks of a save"


def test_check_finds_faults(stopped):
    startup = stopped.folder / "startup.conf"
    startup.mkdir()
    status, said, errors = called(stopped, "--check")
    assert status == 1 and said == f"{stopped.file}: bridge br0, ports 4, highest 0/4\n"
    assert errors == f"snoopd6: {startup} is not an ordinary file: after a start nothing is snooped or guarded\n"
    startup.rmdir()
    startup.write_text("dhcpv6-snooping\n")
    stopped.file.write_text('bridge = "br0"\ncolour = "red"\n')
    status, said, errors = called(stopped, "--check")
    assert status == 1 and said == f"{startup}: lines 1, without the marks of a save\n"
    assert errors.startswith(f'snoopd6: {stopped.file}:2: unknown key "colour"')


def test_check_needs_no_right(stopped):
    line = ["setpriv", "--bounding-set=-all", "--inh-caps=-all", program("snoopd6"), "--check"]
    done = subprocess.run(line, env=stopped.environment(), capture_output=True, text=True, timeout=30, check=False)
    assert (done.returncode, done.stderr) == (0, "")
