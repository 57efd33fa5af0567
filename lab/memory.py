"""How much memory a process uses, and what must hold that it can be compared."""

import contextlib
import ctypes
import pathlib

PR_SET_THP_DISABLE = 41

libc = ctypes.CDLL(None, use_errno=True)


def resident(process):
    """KiB in use."""
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    raise AssertionError("no VmRSS")


@contextlib.contextmanager
def small_pages():
    """What is started here gets no huge pages: the kernel would put them in while it runs, whole, and so make it grow."""
    assert libc.prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0) == 0
    try:
        yield
    finally:
        assert libc.prctl(PR_SET_THP_DISABLE, 0, 0, 0, 0) == 0
