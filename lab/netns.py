"""Doing something in a network namespace: of this thread, or of a program."""

import contextlib
import ctypes
import os
import subprocess

CLONE_NEWNET = 0x40000000

libc = ctypes.CDLL(None, use_errno=True)


def path(name):
    return f"/run/netns/{name}"


def _set(descriptor):
    if libc.setns(descriptor, CLONE_NEWNET) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"setns: {os.strerror(number)}")


@contextlib.contextmanager
def entered(name):
    """This thread is in the namespace. What is opened there, a socket say, stays there."""
    back = os.open("/proc/self/ns/net", os.O_RDONLY)
    there = os.open(path(name), os.O_RDONLY)
    try:
        _set(there)
        yield
    finally:
        _set(back)
        os.close(there)
        os.close(back)


def sysctl(name, key, value):
    with entered(name), open(f"/proc/sys/{key.replace('.', '/')}", "w") as file:
        file.write(str(value))


def command(name, arguments, mounts=()):
    """The arguments that run a program in the namespace. Each of `mounts` becomes an empty folder of the program's own."""
    line = ["nsenter", f"--net={path(name)}"]
    if mounts:
        script = "".join(f"mount -t tmpfs tmpfs {folder} && " for folder in mounts) + 'exec "$@"'
        line += ["unshare", "--mount", "sh", "-c", script, "sh"]
    return line + list(arguments)


def run(name, *arguments, check=True):
    """Runs a program to its end and returns what it wrote."""
    return subprocess.run(command(name, arguments), check=check, capture_output=True, text=True).stdout
