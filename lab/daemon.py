"""snoopd6 on a private switch: started, ready, stopped or killed, and its command shell. Every stop looks for what the
sanitizers of a development build reported."""

import glob
import os
import pathlib
import shutil
import signal
import subprocess
import time

from . import calls, frames, netns, patience

ROOT = pathlib.Path(__file__).resolve().parent.parent
TIMEOUT = patience.seconds(30.0)  # seconds until the daemon must be ready or gone; development builds on a busy machine are slow
SANITIZER_EXIT = 99
NAMED = 'hostname "$1" && exec "$2"'  # a program on a machine of this name
ANY_MAC = "00:00:00:00:00:00"


def build_folder():
    return pathlib.Path(os.environ.get("SNOOPD6_BUILD", ROOT / "build" / "debug"))


def program(name):
    """Path of a built program."""
    folder = {"snoopd6": "platform/linux", "snoopctl": "shell", "snoopd6-agentx": "agentx"}[name]
    path = build_folder() / folder / name
    if not path.exists():
        raise FileNotFoundError(f"{path} is not built")
    return str(path)


def switch_file(ports, bridge="br0", extra="", lines=()):
    """The text of a switch file with ports 1.. on interfaces p1.., further lines at its top, and further lines of ports, by
    port."""
    lines = dict(lines)
    text = f'bridge = "{bridge}"\n{extra}'
    for port in ports:
        text += f'\n[[port]]\nnumber = {port}\ninterface = "p{port}"\n{lines.get(port, "")}'
    return text


class SanitizerReport(AssertionError):
    """The daemon broke a rule of the language or of memory."""


class Daemon:
    """One daemon's folder and, between start and stop, its process."""

    def __init__(self, switch, extra="", text=None, sanitizer="", host_name="lab-switch"):
        self.switch = switch
        self.host_name = host_name  # of the machine that the daemon finds itself on
        self.sanitizer = sanitizer  # further options of AddressSanitizer
        self.folder = pathlib.Path("/run") / f"{switch.prefix}snoopd6"
        self.run = self.folder / "run"
        self.folder.mkdir()
        self.file = self.folder / "switch.toml"
        self.file.write_text(text if text is not None else switch_file(switch.ports, extra=extra))
        self.output = self.folder / "log"
        self.process = None
        self.link = None

    def environment(self):
        report = self.folder / "sanitizer"
        return dict(
            os.environ,
            SNOOPD6_SWITCH=str(self.file),
            SNOOPD6_RUN=str(self.run),
            ASAN_OPTIONS=f"log_path={report}:exitcode={SANITIZER_EXIT}:detect_stack_use_after_return=1:{self.sanitizer}",
            UBSAN_OPTIONS=f"log_path={report}:print_stacktrace=1",
        )

    def start(self):
        """Starts the daemon and waits until it answers."""
        with open(self.output, "ab") as log:
            line = ["unshare", "--uts", "sh", "-c", NAMED, "sh", self.host_name, program("snoopd6")]
            self.process = subprocess.Popen(
                netns.command(self.switch.namespace, line),
                env=self.environment(), stdin=subprocess.DEVNULL, stdout=log, stderr=log,
            )  # fmt: skip
        end = time.monotonic() + TIMEOUT
        while True:
            try:
                self.link = calls.connect(self.run)
                calls.switch_status(self.link)
                return self
            except (FileNotFoundError, ConnectionRefusedError):
                if self.process.poll() is not None or time.monotonic() > end:
                    self.check_sanitizers()
                    raise AssertionError(f"snoopd6 did not start; its log:\n{self.log()}") from None
                time.sleep(0.005)

    def rename(self, host_name):
        """The daemon's machine gets another name."""
        subprocess.run(["nsenter", "-t", str(self.process.pid), "--uts", "hostname", host_name], check=True)

    def fail(self):
        """Runs a daemon that is expected to refuse to start: (exit status, what it wrote to standard error)."""
        done = subprocess.run(
            netns.command(self.switch.namespace, [program("snoopd6")]),
            env=self.environment(), stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT, check=False,
        )  # fmt: skip
        self.check_sanitizers()
        return done.returncode, done.stderr

    def log(self):
        return self.output.read_text(errors="replace") if self.output.exists() else ""

    def reports(self):
        return "".join(pathlib.Path(path).read_text(errors="replace") for path in glob.glob(f"{self.folder}/sanitizer.*"))

    def check_sanitizers(self):
        if reports := self.reports():
            raise SanitizerReport(reports)

    def _ended(self):
        if self.link:
            self.link.close()
            self.link = None
        status, self.process = self.process.wait(TIMEOUT), None
        self.check_sanitizers()
        return status

    def stop(self):
        """Asks the daemon to stop and returns its exit status."""
        self.process.send_signal(signal.SIGTERM)
        try:
            return self._ended()
        except subprocess.TimeoutExpired:
            raise AssertionError(f"snoopd6 did not stop; its log:\n{self.log()}") from None

    def kill(self):
        self.process.kill()
        self._ended()

    def pause(self):
        """Lets it sleep, whatever happens meanwhile, until `resume`."""
        self.process.send_signal(signal.SIGSTOP)

    def resume(self):
        self.process.send_signal(signal.SIGCONT)

    def close(self):
        """Stops the daemon if it runs, and fails unless it ran, and ended, as it should."""
        try:
            if self.process is not None:
                gone = self.process.poll()
                status = self._ended() if gone is not None else self.stop()
                if gone is not None or status != 0:
                    raise AssertionError(f"snoopd6 ended with status {status}; its log:\n{self.log()}")
        finally:
            if self.process is not None:
                self.process.kill()
                self.process.wait()
            shutil.rmtree(self.folder)

    def ctl(self, *words, check=True):
        """The command shell with these words: (exit status, output, errors), or only the output when it must succeed."""
        done = subprocess.run(
            [program("snoopctl"), *words], env=self.environment(), stdin=subprocess.DEVNULL, capture_output=True, text=True,
            timeout=TIMEOUT, check=False,
        )  # fmt: skip
        self.check_sanitizers()
        if not check:
            return done.returncode, done.stdout, done.stderr
        if done.returncode != 0:
            raise AssertionError(f"snoopctl {' '.join(words)}: {done.stdout}{done.stderr}")
        return done.stdout

    # ---- the remote calls that tests make again and again ----

    def call(self, number, *values):
        """A remote call with numbers or bytes; it must be accepted."""
        result, outs = calls.call(self.link, number, *(calls.u32(v) if isinstance(v, int) else v for v in values))
        assert result == 0, f"remote call {number}{values} answered {result}"
        return outs

    def snoop(self, *trusted):
        """Trusts the ports and switches snooping on."""
        for port in trusted:
            self.call(calls.PORT_MODE, port, 1)
        self.call(calls.START)
        return self

    def guard(self, *ports, mode=calls.GUARD_ON):
        for port in ports:
            self.call(calls.GUARD, port, mode)
        return self

    def bind(self, address, mac=ANY_MAC, port=0, vlan=0):
        """A configured binding; zeros stand for any."""
        self.call(calls.BIND, frames.ip_bytes(address), frames.mac_bytes(mac), port, vlan)

    def unbind(self, address):
        self.call(calls.UNBIND, frames.ip_bytes(address))

    def exempt(self, *vlans, operation=calls.EXEMPT_ADD):
        assert self.call(calls.EXEMPT, operation, calls.vlan_list(*vlans), bytes(512))[2] == bytes(512)

    def guarded(self, port):
        return calls.guard(self.link)[port]

    def filters(self):
        return calls.filters(self.link)

    def clients(self):
        return calls.clients(self.link)

    def counted(self, port):
        return calls.port_info(self.link, port)["clients"]

    def counted_in_vlan(self, vlan):
        return int.from_bytes(self.call(calls.VLAN_MAX_GET, vlan, 0, 0)[2], "little")

    def counters(self, port):
        return calls.counters(self.link)[port]

    def grown(self, port, before):
        """The counters of a port that have moved since, and by how much."""
        after = self.counters(port)
        return {name: after[name] - before[name] for name in after if after[name] != before[name]}

    def until(self, condition, what, timeout=TIMEOUT):
        """Waits for something that happens in the daemon; `condition` is asked again and again."""
        end = time.monotonic() + timeout
        while not condition():
            assert time.monotonic() < end, f"not within {timeout:.0f} s: {what}; the daemon's log:\n{self.log()}"
            time.sleep(0.01)
