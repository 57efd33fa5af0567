"""The machine of tests/stock-kernel with virtual time, for counting what the kernel does: its clock advances by the same number
of nanoseconds with every instruction, so that a time measured there is a number of instructions, whatever else this machine
does meanwhile."""

import json
import os
import pathlib
import subprocess

PROGRAM = pathlib.Path(__file__).resolve().parent.parent / "tests" / "stock-kernel"
LIMIT = 1800  # seconds


def missing():
    """Why there is no such machine here, an empty text where there is one. Fetches its kernel the first time."""
    done = subprocess.run([PROGRAM, "--check"], capture_output=True, text=True, check=False)
    said = done.stderr.strip().splitlines() or [f"{PROGRAM.name} ends with status {done.returncode}"]
    return "" if done.returncode == 0 else said[-1].removeprefix("stock-kernel: ")


def answer(module, *arguments):
    """Runs a module as a program in a lab in the machine, and returns what it prints, read as JSON."""
    lab = ["/usr/bin/python3", "-m", "lab.sandbox", "/usr/bin/python3", "-m", module, *map(json.dumps, arguments)]
    line = [PROGRAM, "--virtual-time", "--limit", str(LIMIT), *lab]
    done = subprocess.run(line, stdout=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{done.stdout}bench/run: {module} failed in the emulated machine")
    return json.loads(done.stdout)


def instructions(time):
    """That this many nanoseconds are, in the machine."""
    return time / float(os.environ["SNOOPD6_VIRTUAL_TIME"])
