"""The Debian package of this tree, built once and again whenever anything that it is made from has changed."""

import hashlib
import os
import shutil
import subprocess

from .daemon import ROOT, build_folder

TOOLS = ("dpkg-buildpackage", "dh", "git", "lintian", "mandoc", "systemd-analyze", "apt")
PATIENCE = 900  # seconds for a build without a compiler's cache


def missing():
    """What is needed to make and look at a package, and is not there; empty when all is."""
    return [tool for tool in TOOLS if not shutil.which(tool)]


def _made_from():
    """A hash of every file that the package is made from, and of the packages installed here: the compiler is one."""
    line = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--deduplicate"]
    names = subprocess.run(line, cwd=ROOT, check=True, capture_output=True).stdout.split(b"\0")
    found = hashlib.sha256(subprocess.run(["dpkg-query", "-W"], check=True, capture_output=True).stdout)
    for name in sorted(filter(None, names)):
        path = ROOT / os.fsdecode(name)
        if path.exists():
            found.update(name + b"\0%o\0" % (path.stat().st_mode & 0o100) + hashlib.sha256(path.read_bytes()).digest())
    return found.hexdigest()


def build():
    """Path of the package. Beside it is the log of its build."""
    folder = build_folder() / "deb"
    stamp = folder / "made-from"
    wanted = _made_from()
    if not stamp.exists() or stamp.read_text() != wanted:
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        line = [ROOT / "packaging/build-deb", folder]
        with open(folder / "log", "w") as log:
            done = subprocess.run(line, stdin=subprocess.DEVNULL, stdout=log, stderr=log, timeout=PATIENCE, check=False)
        if done.returncode != 0:
            raise AssertionError(f"the package cannot be built:\n{(folder / 'log').read_text()[-6000:]}")
        stamp.write_text(wanted)
    (found,) = folder.glob("snoopd6_*.deb")
    return found
