"""SNMP on a private switch: a real snmpd as master agent, the daemon's sub-agent, and the net-snmp tools as manager. All of it
runs in the switch's namespace, on its loopback."""

import ast
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

from . import daemon, netns, patience

PORT = 1161
ROOT = "1.3.6.1.4.1.47119.1.2.4.9"
NAME = "TQZ-L2-DHCP6SNOOPING-MIB"
FILE = daemon.ROOT / "mibs" / NAME
BASE = daemon.ROOT / "tests" / "mibs"  # the modules that FILE imports from
TIMEOUT = patience.seconds(20.0)
INTEGER, TEXT, HEX = "i", "s", "x"  # types of a set
NO_OBJECT, NO_INSTANCE, END = "No Such Object", "No Such Instance", "No more variables"

CONFIGURATION = """\
agentaddress udp:127.0.0.1:{port}
rwcommunity lab 127.0.0.1
master agentx
agentXSocket {folder}/master
agentXTimeout 5
agentXRetries 1
{extra}
"""


class Snmpd:
    """The master agent. `extra` are further lines of its configuration."""

    def __init__(self, switch, extra=""):
        self.switch = switch
        self.folder = pathlib.Path("/run") / f"{switch.prefix}snmp"
        self.folder.mkdir()
        self.file = self.folder / "snmpd.conf"
        self.file.write_text(CONFIGURATION.format(port=PORT, folder=self.folder, extra=extra))
        self.output = self.folder / "log"
        self.process = None

    @property
    def master(self):
        return f"{self.folder}/master"

    def start(self):
        line = ["snmpd", "-f", "-Lo", "-C", "-c", str(self.file), "-I", "-smux", "-p", str(self.folder / "pid")]
        environment = dict(os.environ, SNMP_PERSISTENT_DIR=str(self.folder / "state"), MIBS="")
        with open(self.output, "ab") as log:
            self.process = subprocess.Popen(
                netns.command(self.switch.namespace, line), env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )
        end = time.monotonic() + TIMEOUT
        while not pathlib.Path(self.master).exists():
            if self.process.poll() is not None or time.monotonic() > end:
                raise AssertionError(f"snmpd did not start; its log:\n{self.output.read_text()}")
            time.sleep(0.02)
        return self

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def kill(self):
        """Without a word; the socket's file stays."""
        self.process.kill()
        self.process.wait()
        self.process = None

    def stop(self):
        """Asks it to end; its sub-agents are told."""
        self.process.terminate()
        try:
            self.process.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"snmpd did not stop; its log:\n{self.output.read_text()}") from None
        self.process = None
        pathlib.Path(self.master).unlink(missing_ok=True)

    def close(self):
        if self.process is not None:
            self.kill()
        shutil.rmtree(self.folder)


class SubAgent:
    """The daemon's sub-agent. `before` are words in front of its command line."""

    def __init__(self, running, master, before=()):
        self.running = running
        self.line = [*before, daemon.program("snoopd6-agentx"), "-x", str(master)]
        self.process = None

    def start(self):
        with open(self.running.output, "ab") as log:
            self.process = subprocess.Popen(
                netns.command(self.running.switch.namespace, self.line), env=self.running.environment(),
                stdin=subprocess.DEVNULL, stdout=log, stderr=log,
            )  # fmt: skip
        return self

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process = None
        self.running.check_sanitizers()

    def close(self):
        """Asks it to end, and fails unless it ran, and ended, as it should."""
        if self.process is None:
            return
        gone = self.process.poll()
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(TIMEOUT)
        finally:
            self.process.kill()
            self.process = None
        self.running.check_sanitizers()
        if gone is not None or status != 0:
            raise AssertionError(f"snoopd6-agentx ended with status {status}; the log:\n{self.running.log()}")


def _value(text):
    """A value as the tools print it: a number, a text, bytes, or the words that stand for none."""
    for words in (NO_OBJECT, NO_INSTANCE, END):
        if text.startswith(words):
            return words
    kind, _, rest = text.partition(": ")
    if kind == "INTEGER":
        return int(rest)
    if kind == "Hex-STRING":
        return bytes.fromhex(rest)
    if kind == "STRING":
        return re.sub(r"\\(.)", r"\1", rest[1:-1])
    if text == '""':
        return ""
    raise AssertionError(f"the tools print {text!r}")


class Manager:
    """The net-snmp tools. OIDs are given behind the module's, as in ".1.0", and come back so."""

    def __init__(self, switch):
        self.switch = switch

    def run(self, tool, *words, options=()):
        """(exit status, what was printed) of a tool that goes by numbers."""
        return self._run(tool, ["-On", *options], words, dict(MIBS=""))

    def named(self, tool, *words, options=()):
        """The same with the module's file."""
        return self._run(tool, options, words, dict(MIBS=NAME, MIBDIRS=f"{BASE}:{FILE.parent}"))

    def _run(self, tool, options, words, environment):
        line = [tool, "-v2c", "-c", "lab", "-t", str(patience.seconds(8)), "-r", "0", *options, f"udp:127.0.0.1:{PORT}", *words]
        done = subprocess.run(
            netns.command(self.switch.namespace, line),
            env=dict(os.environ, SNMP_PERSISTENT_DIR=f"/run/{self.switch.prefix}snmp/state", **environment),
            capture_output=True, text=True, check=False,
        )  # fmt: skip
        return done.returncode, done.stdout + done.stderr

    def _instances(self, tool, words, options=()):
        status, said = self.run(tool, *words, options=options)
        if status != 0:
            raise AssertionError(f"{tool} {' '.join(words)}: {said}")
        found = {}
        for line in said.splitlines():
            name, _, text = line.partition(" = ")
            oid = name.removeprefix(".").removeprefix(ROOT)
            assert oid not in found, f"{line}: for the second time"
            found[oid] = _value(text)
        return found

    def until_answers(self, timeout=TIMEOUT):
        """Returns when the module is there."""
        end = time.monotonic() + timeout
        while True:
            status, said = self.run("snmpget", f"{ROOT}.1.0")
            if status == 0 and "INTEGER" in said:
                return self
            if time.monotonic() > end:
                raise AssertionError(said)
            time.sleep(0.1)

    def walk(self, oid=""):
        """Every instance, in order."""
        found = self._instances("snmpwalk", [ROOT + oid])
        return {} if list(found.values()) in ([NO_OBJECT], [NO_INSTANCE], [END]) else found

    def bulkwalk(self, oid="", at_once=10):
        found = self._instances("snmpbulkwalk", [ROOT + oid], [f"-Cr{at_once}"])
        return {} if list(found.values()) in ([NO_OBJECT], [NO_INSTANCE], [END]) else found

    def get(self, *oids):
        """The value, or a list of them."""
        values = list(self._instances("snmpget", [ROOT + oid for oid in oids]).values())
        return values[0] if len(oids) == 1 else values

    def next(self, oid):
        """The instance behind this one, None when it is not in the module."""
        status, said = self.run("snmpgetnext", ROOT + oid)
        assert status == 0, said
        name, _, text = said.strip().partition(" = ")
        if not name.startswith(f".{ROOT}."):
            return None
        return name.removeprefix(f".{ROOT}"), _value(text)

    def set(self, *triples):
        """set((oid, type, value), ...) in one request: "ok", or the error and the object that it is about."""
        words = [word for oid, kind, value in triples for word in (ROOT + oid, kind, str(value))]
        status, said = self.run("snmpset", *words)
        if status == 0:
            return "ok"
        reason, failed = re.search(r"Reason: \(?(\w+)", said), re.search(r"Failed object: (\S+)", said)
        if not reason:
            raise AssertionError(said)
        return reason[1] + (" " + failed[1].removeprefix(".").removeprefix(ROOT) if failed else "")


@contextlib.contextmanager
def managed(running):
    """A manager of a running daemon, with what lies between them."""
    with contextlib.ExitStack() as stack:
        master = Snmpd(running.switch)
        stack.callback(master.close)
        master.start()
        agent = SubAgent(running, master.master)
        stack.callback(agent.close)
        agent.start()
        yield Manager(running.switch).until_answers()


def module():
    """The nodes of the module's file as smidump reads it, by name."""
    done = subprocess.run(
        ["smidump", "-k", "-f", "python", str(FILE)],
        env=dict(os.environ, SMIPATH=str(BASE)), capture_output=True, text=True, check=True,
    )  # fmt: skip
    return ast.literal_eval(done.stdout.partition("MIB = ")[2])["nodes"]


def is_text(node):
    """Whether an object of the file holds octets; else it is a number."""
    syntax = node["syntax"]["type"]
    return "OctetString" in syntax.get("basetype", "") or syntax.get("name") in ("DisplayString", "MacAddress")
