"""What a systemd unit takes from a program, taken from this process: capabilities, user, file systems, system calls.

The system calls that a unit allows are named by `systemd-analyze syscall-filter`; their numbers are those of the C library's
headers. What is not allowed ends the process."""

import ctypes
import errno
import os
import platform
import pwd
import re
import socket
import struct
import subprocess
import tempfile

from .sandbox import CLONE_NEWNS, MS_NODEV, MS_NOEXEC, MS_NOSUID, MS_PRIVATE, MS_REC, libc, mount

MS_RDONLY, MS_REMOUNT, MS_BIND, MS_MOVE = 1, 32, 4096, 8192
PR_SET_KEEPCAPS, PR_CAPBSET_DROP, PR_SET_SECCOMP, PR_SET_NO_NEW_PRIVS, PR_CAP_AMBIENT = 8, 24, 22, 38, 47
PR_CAP_AMBIENT_RAISE, SECCOMP_MODE_FILTER = 2, 2
CAPABILITY_VERSION_3 = 0x20080522
CAPABILITIES = {"CAP_NET_ADMIN": 12, "CAP_NET_RAW": 13}  # those that a unit may leave
DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
MOUNT_FLAGS = {"nosuid": MS_NOSUID, "nodev": MS_NODEV, "noexec": MS_NOEXEC, "noatime": 1 << 10, "nodiratime": 1 << 11,
               "relatime": 1 << 21}  # fmt: skip

# Instructions of a filter program, and what it may look at in the record of a call.
LOAD, EQUAL, SET, RETURN = 0x20, 0x15, 0x45, 0x06
NUMBER, ARCHITECTURE, ARGUMENTS = 0, 4, 16
ALLOW, KILL, NO_SUCH_CALL = 0x7FFF0000, 0x80000000, 0x00050000 | errno.ENOSYS
ARCHITECTURES = {"x86_64": 0xC000003E, "aarch64": 0xC00000B7, "riscv64": 0xC00000F3}
PROT_WRITE, PROT_EXEC = 2, 4
ANY_NAMESPACE = 0x7E020080
SET_ID_BITS = 0o6000


def _tool(*arguments):
    return subprocess.run(arguments, check=True, capture_output=True, text=True, stdin=subprocess.DEVNULL).stdout


def allowed_calls(names):
    """The numbers of the system calls of these sets ("@file-system") and names."""
    sets, current = {}, None
    for line in _tool("systemd-analyze", "--no-pager", "syscall-filter").splitlines():
        word = line.strip()
        if line.startswith("@"):
            current = sets.setdefault(word, [])
        elif current is not None and word and word[0] != "#":
            current.append(word)
    numbers = call_numbers()
    wanted, found = list(names), set()
    while wanted:
        name = wanted.pop()
        if name.startswith("@"):
            wanted += sets[name]
        elif name in numbers:  # a set also names the calls of other architectures
            found.add(numbers[name])
    return found


def call_numbers():
    text = _tool("cc", "-E", "-dM", "-include", "sys/syscall.h", "-x", "c", "/dev/null")
    return {name: int(number) for name, number in re.findall(r"#define __NR_(\w+) (\d+)$", text, re.M)}


class Program:
    """A filter program under construction. Jumps are forward and short: each test stands in front of what it decides."""

    def __init__(self):
        self.code = []

    def add(self, operation, value, yes=0, no=0):
        self.code.append(struct.pack("=HBBI", operation, yes, no, value & 0xFFFFFFFF))

    def verdict(self, what):
        self.add(RETURN, what)

    def load(self, where):
        self.add(LOAD, where)

    def load_argument(self, index):
        self.load(ARGUMENTS + 8 * index)

    def on_call(self, number, tests):
        """For this call the tests, made by `tests(program)`, decide."""
        part = Program()
        tests(part)
        part.load(NUMBER)  # not decided
        self.add(EQUAL, number, 0, len(part.code))
        self.code += part.code


def _families(allowed):
    def tests(program):
        program.load_argument(0)
        for family in allowed:
            program.add(EQUAL, family, 0, 1)
            program.verdict(ALLOW)
        program.verdict(KILL)

    return tests


def _without(index, bits):
    """Ends the process when the argument has one of the bits."""

    def tests(program):
        program.load_argument(index)
        program.add(SET, bits, 0, 1)
        program.verdict(KILL)

    return tests


def _not_both(index, one, other):
    def tests(program):
        program.load_argument(index)
        program.add(SET, one, 0, 2)
        program.add(SET, other, 0, 1)
        program.verdict(KILL)

    return tests


def filter_program(unit):
    numbers = call_numbers()
    program = Program()
    program.load(ARCHITECTURE)
    program.add(EQUAL, ARCHITECTURES[platform.machine()], 1, 0)
    program.verdict(KILL)
    program.load(NUMBER)
    families = [getattr(socket, name) for name in unit.get("RestrictAddressFamilies").split()]
    checks = [("socket", _families(families)), ("socketpair", _families(families))]
    if unit.get("MemoryDenyWriteExecute") == "yes":
        checks += [("mmap", _not_both(2, PROT_WRITE, PROT_EXEC)), ("mprotect", _without(2, PROT_EXEC))]
        checks += [("pkey_mprotect", _without(2, PROT_EXEC)), ("shmat", _without(2, 0o100000))]
    if unit.get("RestrictNamespaces") == "yes":
        checks += [("clone", _without(0, ANY_NAMESPACE)), ("unshare", _without(0, ANY_NAMESPACE)), ("setns", _never)]
        checks += [("clone3", _absent)]  # its flags are out of sight; programs fall back to clone
    if unit.get("RestrictRealtime") == "yes":
        checks += [("sched_setscheduler", _never)]
    if unit.get("RestrictSUIDSGID") == "yes":
        checks += [(name, _without(1, SET_ID_BITS)) for name in ("chmod", "fchmod")] + [("fchmodat", _without(2, SET_ID_BITS))]
    if unit.get("LockPersonality") == "yes":
        checks += [("personality", _never)]
    for name, tests in checks:
        if name in numbers:
            program.on_call(numbers[name], tests)
    for number in sorted(allowed_calls(unit.get("SystemCallFilter").split())):
        program.add(EQUAL, number, 0, 1)
        program.verdict(ALLOW)
    program.verdict(KILL)
    return b"".join(program.code)


def _never(program):
    program.verdict(KILL)


def _absent(program):
    program.verdict(NO_SUCH_CALL)


# ---- What a program is left with -----------------------------------------------------------------------------------


def policy(unit, writable):
    """Everything that `enter` needs, gathered while files can still be opened and programs run."""
    for key, value in (("ProtectSystem", "strict"), ("NoNewPrivileges", "yes"), ("SystemCallArchitectures", "native")):
        if unit.get(key) != value:
            raise ValueError(f"{key}={unit.get(key)} is not enforced here")
    user = pwd.getpwnam(unit.get("User"))
    return {
        "uid": user.pw_uid, "gid": user.pw_gid, "groups": os.getgrouplist(user.pw_name, user.pw_gid),
        "umask": int(unit.get("UMask"), 8),
        "ambient": [CAPABILITIES[name] for name in unit.get("AmbientCapabilities").split()],
        "bounding": [CAPABILITIES[name] for name in unit.get("CapabilityBoundingSet").split()],
        "writable": writable,
        "hidden": ["/home", "/root"] if unit.get("ProtectHome") == "yes" else [],
        "temporary": ["/tmp", "/var/tmp"] if unit.get("PrivateTmp") == "yes" else [],
        "devices": unit.get("PrivateDevices") == "yes",
        "filter": filter_program(unit),
    }  # fmt: skip


def _check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), f"{what}: {os.strerror(ctypes.get_errno())}")


def _prctl(option, *arguments):
    padded = [ctypes.c_ulong(value) for value in (*arguments, 0, 0, 0, 0)[:4]]
    _check(libc.prctl(option, *padded), f"prctl {option}")


def _own_devices():
    made = tempfile.mkdtemp()
    mount("tmpfs", made, "tmpfs", MS_NOSUID, "mode=0755")
    for name in DEVICES:
        open(f"{made}/{name}", "w").close()
        mount(f"/dev/{name}", f"{made}/{name}", None, MS_BIND)
    mount(made, "/dev", None, MS_MOVE)
    os.rmdir(made)


def _mounts():
    """(mount point, its flags) of everything that is mounted."""
    for line in open("/proc/self/mounts").read().splitlines():
        _, where, _, options, *_ = line.split()
        flags = sum(MOUNT_FLAGS.get(option, 0) for option in options.split(","))
        yield where.encode().decode("unicode_escape"), flags


def _file_systems(policy):
    _check(libc.unshare(CLONE_NEWNS), "unshare")
    mount("none", "/", None, MS_REC | MS_PRIVATE)
    for folder in policy["writable"]:
        mount(folder, folder, None, MS_BIND)
    for folder in policy["temporary"]:
        mount("tmpfs", folder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777")
    if policy["devices"]:
        _own_devices()
    # What another mount covers cannot be reached, and need not be closed.
    open_still = ("/proc", "/sys", "/dev", *policy["writable"], *policy["temporary"])
    for where, flags in _mounts():
        if os.path.exists(where) and not any(where == folder or where.startswith(f"{folder}/") for folder in open_still):
            mount("none", where, None, MS_REMOUNT | MS_BIND | MS_RDONLY | flags)
    for folder in policy["hidden"]:
        mount("tmpfs", folder, "tmpfs", MS_RDONLY | MS_NOSUID | MS_NODEV, "mode=0")


def _capabilities(policy):
    with open("/proc/sys/kernel/cap_last_cap") as file:
        last = int(file.read())
    for number in range(last + 1):
        if number not in policy["bounding"]:
            _prctl(PR_CAPBSET_DROP, number)
    _prctl(PR_SET_KEEPCAPS, 1)
    os.setgroups(policy["groups"])
    os.setresgid(policy["gid"], policy["gid"], policy["gid"])
    os.setresuid(policy["uid"], policy["uid"], policy["uid"])
    kept = sum(1 << number for number in policy["ambient"])
    header = struct.pack("=Ii", CAPABILITY_VERSION_3, 0)
    _check(libc.capset(header, struct.pack("=6I", kept, kept, kept, 0, 0, 0)), "capset")
    for number in policy["ambient"]:
        _prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, number)


def enter(policy):
    """Takes from this process what the unit does not allow. The next thing it does must be to start the program."""
    os.chdir("/")
    os.umask(policy["umask"])
    _file_systems(policy)
    _capabilities(policy)
    _prctl(PR_SET_NO_NEW_PRIVS, 1)
    code = ctypes.create_string_buffer(policy["filter"], len(policy["filter"]))
    program = struct.pack("@HP", len(policy["filter"]) // 8, ctypes.addressof(code))
    libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, program)
