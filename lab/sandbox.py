"""The namespaces of one run.

    python3 -m lab.sandbox COMMAND...

runs a command as root of network, mount and process namespaces of its own; an ordinary user gets a user namespace around
them. /run is an empty folder there, so that named network namespaces can be made and vanish with the run. When the run ends,
or is killed, the kernel ends every process in it.
"""

import ctypes
import os
import signal
import socket
import subprocess
import sys

CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWPID, CLONE_NEWNET = 0x00020000, 0x10000000, 0x20000000, 0x40000000
MS_NOSUID, MS_NODEV, MS_NOEXEC, MS_REC, MS_PRIVATE = 2, 4, 8, 0x4000, 0x40000
PR_SET_PDEATHSIG = 1
MARK = "SNOOPD6_LAB"  # inside: the network namespace that the run was given
STATUS_UNFIT = 3  # exit status when the machine cannot hold the lab

libc = ctypes.CDLL(None, use_errno=True)


class Unfit(Exception):
    """The machine lacks or forbids something; the text says what, in one sentence."""


def inside():
    return os.environ.get(MARK) == os.readlink("/proc/self/ns/net")


def _unshare(flag, what):
    if libc.unshare(flag) != 0:
        raise Unfit(f"the kernel refuses to make a {what} namespace: {os.strerror(ctypes.get_errno())}{_hint(flag)}.")


def _hint(flag):
    if flag != CLONE_NEWUSER:
        return ""
    for path, forbidding in (
        ("/proc/sys/user/max_user_namespaces", "0"),
        ("/proc/sys/kernel/unprivileged_userns_clone", "0"),
        ("/proc/sys/kernel/apparmor_restrict_unprivileged_userns", "1"),
    ):
        if os.path.exists(path) and open(path).read().strip() == forbidding:
            return f" ({path[len('/proc/sys/'):].replace('/', '.')} is {forbidding}; run as root, or allow it)"
    return " (run as root, or allow user namespaces)"


def mount(source, target, kind, flags=0, data=None):
    """mount(2). Raises OSError."""
    ok = libc.mount(source.encode(), target.encode(), kind.encode() if kind else None, flags, data.encode() if data else None)
    if ok != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"mount {kind or source} on {target}: {os.strerror(number)}")


def _enter():
    """Leaves this process in the new namespaces; its next child is the first process of the process namespace."""
    uid, gid = os.geteuid(), os.getegid()
    if uid != 0:
        _unshare(CLONE_NEWUSER, "user")
        for name, text in (("setgroups", "deny"), ("uid_map", f"0 {uid} 1"), ("gid_map", f"0 {gid} 1")):
            with open(f"/proc/self/{name}", "w") as file:
                file.write(text)
    _unshare(CLONE_NEWNS, "mount")
    _unshare(CLONE_NEWNET, "network")
    _unshare(CLONE_NEWPID, "process")
    mount("none", "/", None, MS_REC | MS_PRIVATE)


def _try(arguments, what):
    done = subprocess.run(arguments, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise Unfit(f"{what}: {' '.join(arguments)} says: {done.stderr.strip().splitlines()[0] if done.stderr else 'nothing'}")


def _furnish():
    """Mounts and checks, as the first process of the namespaces."""
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC)
    mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755")
    for folder in ("netns", "lock"):
        os.mkdir(f"/run/{folder}")
    os.environ[MARK] = os.readlink("/proc/self/ns/net")
    if not os.path.isdir("/proc/sys/net/ipv6"):
        raise Unfit("the kernel has no IPv6 (CONFIG_IPV6, or ipv6.disable=1 on its command line).")
    try:
        socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0).close()
    except OSError as error:
        raise Unfit(f"the kernel has no packet sockets (CONFIG_PACKET): {error.strerror}.") from error
    _try(["ip", "link", "set", "lo", "up"], "the loopback interface cannot be set up")
    _try(["ip", "link", "add", "check0", "type", "bridge"], "the kernel has no bridge (CONFIG_BRIDGE)")
    veth = ["ip", "link", "add", "check1", "type", "veth", "peer", "name", "check2"]
    _try(veth, "the kernel has no veth pairs (CONFIG_VETH)")
    _try(["ip", "netns", "add", "check"], "named network namespaces cannot be made")
    _try(["nft", "add", "table", "bridge", "check"], "the kernel has no nftables for bridges (CONFIG_NF_TABLES_BRIDGE)")
    for arguments in (("link", "del", "check0"), ("link", "del", "check1"), ("netns", "del", "check")):
        subprocess.run(["ip", *arguments], check=True)
    subprocess.run(["nft", "delete", "table", "bridge", "check"], check=True)


def _status(wait_status):
    code = os.waitstatus_to_exitcode(wait_status)
    return 128 - code if code < 0 else code


def _first(command):
    """The first process of the namespaces: furnishes them, runs the command, and collects every process that ends."""
    try:
        _furnish()
    except (Unfit, OSError) as error:
        print(f"lab: {error}", file=sys.stderr)
        return STATUS_UNFIT
    worker = os.fork()
    if worker == 0:
        signal.signal(signal.SIGINT, signal.default_int_handler)
        try:
            os.execvp(command[0], command)
        except OSError as error:
            print(f"lab: cannot run {command[0]}: {error.strerror}", file=sys.stderr)
            os._exit(127)
    signal.signal(signal.SIGTERM, lambda *_: os.kill(worker, signal.SIGTERM))
    while True:
        pid, status = os.wait()
        if pid == worker:
            return _status(status)


def run(command):
    """Runs the command in namespaces of its own and returns its exit status."""
    for folder in ("/usr/sbin", "/sbin"):
        if folder not in os.environ["PATH"].split(":"):
            os.environ["PATH"] += f":{folder}"
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # the command decides what an interrupt means
    try:
        _enter()
    except (Unfit, OSError) as error:
        print(f"lab: {error}", file=sys.stderr)
        return STATUS_UNFIT
    parent = os.getpid()
    first = os.fork()
    if first == 0:
        libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
        os._exit(_first(command) if os.getppid() in (0, parent) else 1)
    signal.signal(signal.SIGTERM, lambda *_: os.kill(first, signal.SIGTERM))
    signal.signal(signal.SIGHUP, lambda *_: os.kill(first, signal.SIGTERM))
    return _status(os.waitpid(first, 0)[1])


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: python3 -m lab.sandbox COMMAND...")
    sys.exit(run(sys.argv[1:]))
