"""A machine to install on: this one, with every change kept in memory.

The folders that packages write to, /etc, /usr and /var, have an overlay each, in a mount namespace of its own. Programs run in
it see an ordinary Debian machine; when it is closed, everything that was done to those folders is gone. It needs to be root:
the user namespace of an ordinary user has one user and one group only, and packages have their own."""

import os
import pathlib
import subprocess
import sys

from . import netns

FOLDERS = ("/etc", "/usr", "/var")
ROOT = pathlib.Path(__file__).resolve().parent.parent
LAY_OVER = """
set -e
mount -t tmpfs -o mode=0755 tmpfs "$1"
cd "$1"
shift
for folder; do
    mkdir -p "upper$folder" "work$folder"
    mount -t overlay overlay -o "lowerdir=$folder,upperdir=$PWD/upper$folder,workdir=$PWD/work$folder" "$folder"
done
mount -t sysfs sysfs /sys # shows the interfaces of the network namespace that it was mounted in
echo mounted
exec cat
"""
SYSTEMCTL = f"""#!/bin/sh
PYTHONPATH={ROOT} exec {sys.executable} -m lab.service "$@"
"""


def possible():
    """Whether this process has more than one user to give to programs."""
    with open("/proc/self/uid_map") as file:
        return sum(int(line.split()[2]) for line in file) > 1


class Machine:
    """Lives from its making to `close`."""

    def __init__(self, folder, namespace):
        """`folder` is an empty one of the machine's own; programs run in the network namespace."""
        self.folder, self.namespace = pathlib.Path(folder), namespace
        self.commands = self.folder / "commands"  # in front of the machine's own
        self.commands.mkdir()
        self.home = self.folder / "home"
        self.home.mkdir()
        overlays = self.folder / "overlays"
        overlays.mkdir()
        self.holder = subprocess.Popen(
            netns.command(namespace, ["unshare", "--mount", "sh", "-c", LAY_OVER, "machine", str(overlays), *FOLDERS]),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        )  # fmt: skip
        if self.holder.stdout.readline() != "mounted\n":
            raise AssertionError(f"the machine's folders cannot be laid over this one's: {self.holder.stderr.read()}")
        systemctl = self.commands / "systemctl"
        systemctl.write_text(SYSTEMCTL)
        systemctl.chmod(0o755)

    def command(self, arguments):
        """The arguments that run a program on the machine."""
        return ["nsenter", "-t", str(self.holder.pid), "--mount", f"--net={netns.path(self.namespace)}", "--", *arguments]

    def run(self, *arguments, check=True, user=None, timeout=120):
        """Runs a program there, in the machine's home folder, and returns what it became (text)."""
        if user:
            arguments = ("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", *arguments)
        line = ["sh", "-c", 'cd "$1" && shift && exec "$@"', "sh", str(self.home), *arguments]
        done = subprocess.run(
            self.command(line), env=self.environment(), stdin=subprocess.DEVNULL, capture_output=True, text=True,
            timeout=timeout, check=False,
        )  # fmt: skip
        if check and done.returncode != 0:
            raise AssertionError(f"{' '.join(arguments)}: status {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    def environment(self):
        kept = {name: value for name, value in os.environ.items() if name in ("LANG", "SNOOPD6_LAB", "TERM")}
        path = f"{self.commands}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
        return kept | {"PATH": path, "HOME": "/root", "DEBIAN_FRONTEND": "noninteractive"}

    def exists(self, path):
        return self.run("test", "-e", path, check=False).returncode == 0

    def close(self):
        self.holder.stdin.close()
        self.holder.wait(30)
        self.holder.stdout.close()
        self.holder.stderr.close()
