"""systemctl of a machine without systemd: starts, stops and shows one kind of service, the way its unit says.

    systemctl start|stop|reload|is-active NAME

It understands Type=notify units that run one program as a user of their own. What the unit allows the program is enforced by
the kernel as systemd would have it (see lab.confine), with one difference: a forbidden system call ends the process, so that
none goes unnoticed. A setting that is not known here is an error: what is not enforced should not seem to have been tested."""

import os
import pathlib
import pwd
import shlex
import signal
import socket
import struct
import subprocess
import sys
import time

from . import confine

UNITS = ("/etc/systemd/system", "/lib/systemd/system", "/usr/lib/systemd/system")
STATE = pathlib.Path("/run/lab-service")
READY = b"READY=1"

# What the kernel is asked to enforce, or what is carried out here.
ENFORCED = set(
    "AmbientCapabilities CapabilityBoundingSet Environment ExecReload ExecStart Group LockPersonality MemoryDenyWriteExecute "
    "NoNewPrivileges NotifyAccess PrivateDevices PrivateTmp ProtectHome ProtectSystem RestrictAddressFamilies "
    "RestrictNamespaces RestrictRealtime RestrictSUIDSGID RuntimeDirectory RuntimeDirectoryMode StateDirectory "
    "StateDirectoryMode SystemCallArchitectures SystemCallErrorNumber SystemCallFilter TimeoutStartSec Type UMask User".split()
)
# What has no effect on a program that keeps to the settings above, or is about what becomes of it when it fails.
BESIDE = set(
    "KeyringMode ProtectClock ProtectControlGroups ProtectKernelLogs ProtectKernelModules ProtectProc RemoveIPC Restart "
    "RestartSec".split()
)


class Unit:
    """The settings of a unit file, by section."""

    def __init__(self, name):
        self.name = name
        self.path = next((path for folder in UNITS if (path := pathlib.Path(folder) / f"{name}.service").exists()), None)
        if self.path is None:
            sys.exit(f"Failed to start {name}.service: Unit {name}.service not found.")
        self.sections = {}
        for line in self.path.read_text().splitlines():
            if line.startswith("["):
                section = self.sections.setdefault(line.strip("[]"), {})
            elif line and line[0] not in "#;":
                key, _, value = line.partition("=")
                section[key] = value
        if unknown := set(self.sections["Service"]) - ENFORCED - BESIDE:
            sys.exit(f"{self.path}: cannot be enforced here: {', '.join(sorted(unknown))}")

    def get(self, key, section="Service"):
        return self.sections[section][key]

    def state(self, what):
        return STATE / f"{self.name}.{what}"

    def wanted(self):
        return os.path.exists(self.get("ConditionPathExists", "Unit"))


def folder_of(unit, kind, parent):
    """The folder that a unit's RuntimeDirectory or StateDirectory names, made and given to its user; or None."""
    if f"{kind}Directory" not in unit.sections["Service"]:
        return None
    folder = pathlib.Path(parent) / unit.get(f"{kind}Directory")
    folder.mkdir(exist_ok=True)
    user = pwd.getpwnam(unit.get("User"))
    os.chown(folder, user.pw_uid, user.pw_gid)
    folder.chmod(int(unit.get(f"{kind}DirectoryMode"), 8))
    return folder


def listener(unit):
    """The socket that the service reports to. It says who reported."""
    path = unit.state("notify")
    path.unlink(missing_ok=True)
    made = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    made.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
    made.bind(str(path))
    path.chmod(0o666)
    return made


def await_ready(unit, process, reports):
    """Every report until the service is ready, as lines; each must come from the service's main process."""
    end = time.monotonic() + int(unit.get("TimeoutStartSec"))
    said = unit.state("said").open("ab")
    reports.settimeout(0.05)
    while time.monotonic() < end:
        try:
            text, ancillary, _, _ = reports.recvmsg(4096, socket.CMSG_SPACE(12))
        except TimeoutError:
            if process.poll() is not None:
                sys.exit(f"Job for {unit.name}.service failed: it ended with {process.returncode}.")
            continue
        pid, _, _ = struct.unpack("iII", ancillary[0][2])
        if unit.get("NotifyAccess") == "main" and pid != process.pid:
            sys.exit(f"{unit.name}.service: process {pid} reports, and {process.pid} may")
        said.write(text + b"\n")
        if READY in text.split(b"\n"):
            said.close()
            return
    process.kill()
    sys.exit(f"Job for {unit.name}.service failed because a timeout was exceeded.")


def confined(policy):
    try:
        confine.enter(policy)
    except OSError as error:
        print(f"cannot be confined: {error}", file=sys.stderr, flush=True)
        raise


def start(unit):
    if not unit.wanted():
        return  # as systemd: a condition that is not met is no failure
    if running(unit):
        return
    STATE.mkdir(exist_ok=True)
    runtime, state = folder_of(unit, "Runtime", "/run"), folder_of(unit, "State", "/var/lib")
    reports = listener(unit)
    environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin", "NOTIFY_SOCKET": str(unit.state("notify"))}
    environment |= {"STATE_DIRECTORY": str(state)} if state else {}
    environment |= dict(word.split("=", 1) for word in shlex.split(unit.sections["Service"].get("Environment", "")))
    policy = confine.policy(unit, writable=[str(folder) for folder in (runtime, state) if folder])
    with open(unit.state("log"), "ab") as log:
        process = subprocess.Popen(
            shlex.split(unit.get("ExecStart")), env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
            start_new_session=True, preexec_fn=lambda: confined(policy),
        )  # fmt: skip
    unit.state("pid").write_text(str(process.pid))
    await_ready(unit, process, reports)


def running(unit):
    """The process id of the service, or None."""
    try:
        pid = int(unit.state("pid").read_text())
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return None
    return None if state == "Z" else pid


def stop(unit):
    pid = running(unit)
    if pid is None:
        return
    os.kill(pid, signal.SIGTERM)
    end = time.monotonic() + 30
    while running(unit):
        if time.monotonic() > end:
            sys.exit(f"{unit.name}.service does not stop")
        time.sleep(0.01)
    pathlib.Path("/run", unit.get("RuntimeDirectory")).rmdir()


def reload(unit):
    pid = running(unit)
    if pid is None:
        sys.exit(f"{unit.name}.service is not active, cannot reload.")
    words = [str(pid) if word == "$MAINPID" else word for word in shlex.split(unit.get("ExecReload"))]
    subprocess.run(words, check=True)


def main(words):
    if len(words) != 2 or words[0] not in ("start", "stop", "reload", "is-active"):
        sys.exit("usage: systemctl start|stop|reload|is-active NAME")
    unit = Unit(words[1].removesuffix(".service"))
    if words[0] == "is-active":
        sys.exit(0 if running(unit) else 3)
    {"start": start, "stop": stop, "reload": reload}[words[0]](unit)


if __name__ == "__main__":
    main(sys.argv[1:])
