"""The rules check is tried on a small tree that keeps every rule, and on the same tree with one rule broken at a time."""

import pathlib
import subprocess

import pytest

CHECK = pathlib.Path(__file__).with_name("check-rules")
CORE = "l2/dhcp6snooping"

CLEAN = {
    f"{CORE}/main/main.cpp": '#include "l2/dhcp6snooping/mgmt/remotecalls.h"\n#include "platform/libvos.h"\n',
    f"{CORE}/base/frame.h": "#pragma once\n",
    f"{CORE}/base/text.h": "#pragma once\n#include <cstdint>\n",
    f"{CORE}/packet/snooping.cpp": '// a new word\n#include "l2/dhcp6snooping/base/option.h"\nconst char *a = "throw";\n',
    f"{CORE}/base/option.h": '#pragma once\n#include "l2/dhcp6snooping/base/wire.h"\n',
    f"{CORE}/base/wire.h": "#pragma once\n#include <span>\nstruct Bytes { Bytes(const Bytes &) = delete; };\n",
    f"{CORE}/mgmt/remotecalls.h": '#pragma once\n#include "l2/dhcp6snooping/base/wire.h"\n',
    f"{CORE}/mib/objects.h": "#pragma once\n",
    f"{CORE}/clients/table.cpp": '#include "l2/dhcp6snooping/sourceguard/filters.h"\n',
    f"{CORE}/sourceguard/filters.h": '#pragma once\n#include "l2/dhcp6snooping/clients/table.h"\n',
    "platform/libvos.h": '#pragma once\n#include <cstdint>\nextern "C" {\nextern uint32_t gul_ports;\nint vosUp(void);\n}\n',
    "platform/linux/loop.cpp": '#include <event2/event.h>\n#include "platform/libvos.h"\n',
}

# What is appended to which file, and words of the line that must come out.
BROKEN = [
    (f"{CORE}/packet/snooping.cpp", "#include <sys/socket.h>\n", "<sys/socket.h> is not a header"),
    (f"{CORE}/packet/snooping.cpp", '#include "platform/linux/loop.h"\n', "neither platform/lib*.h nor"),
    (f"{CORE}/packet/snooping.cpp", '#include "shell/report.h"\n', "neither platform/lib*.h nor"),
    (f"{CORE}/packet/snooping.cpp", '#include "l2/dhcp6snooping/mgmt/remotecalls.h"\n', "packet/ does not know mgmt/"),
    (f"{CORE}/packet/snooping.cpp", '#include "l2/dhcp6snooping/mib/objects.h"\n', "packet/ does not know mib/"),
    (f"{CORE}/base/text.h", '#include "l2/dhcp6snooping/clients/table.h"\n', "a pure file knows nobody"),
    (f"{CORE}/base/frame.h", '#include "l2/dhcp6snooping/clients/table.h"\n', "base/ does not know clients/"),
    (f"{CORE}/sourceguard/filters.h", '#include "l2/dhcp6snooping/infoopt/policy.h"\n', "sourceguard/ does not know infoopt/"),
    (f"{CORE}/mgmt/remotecalls.h", '#include "l2/dhcp6snooping/mib/objects.h"\n', "mgmt/ does not know mib/"),
    (f"{CORE}/base/option.h", '#include "l2/dhcp6snooping/base/frame.h"\n', "a pure file knows nobody"),
    (f"{CORE}/base/text.h", '#include "platform/libvos.h"\n', "a pure file knows nobody"),
    (f"{CORE}/packet/snooping.cpp", "int *p = new int;\n", "new is not used"),
    (f"{CORE}/packet/snooping.cpp", "void f() { throw 1; }\n", "throw is not used"),
    (f"{CORE}/packet/snooping.cpp", "auto &t = typeid(int);\n", "typeid is not used"),
    (f"{CORE}/packet/snooping.cpp", "#ifdef TESTING\n#endif\n", "conditional compilation"),
    (f"{CORE}/packet/snooping.cpp", "// " + "x" * 126 + "\n", "129 characters"),
    (f"{CORE}/packet/snooping.cpp", "\n" * 400, "403 lines"),
    ("platform/linux/loop.cpp", '#include "l2/dhcp6snooping/base/text.h"\n', "never includes the core"),
    ("platform/linux/loop.cpp", "void f() { try { } catch (...) { } }\n", "try is not used"),
    ("platform/libvos.h", "#include <event2/event.h>\n", "ties the declarations"),
    ("platform/libvos.h", '#include "platform/linux/loop.h"\n', "includes only its like"),
]


def tree(folder, path=None, more=""):
    for name, text in CLEAN.items():
        file = folder / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text + (more if name == path else ""))
    return folder


def check(folder, *arguments):
    done = subprocess.run([CHECK, "--root", folder, *arguments], capture_output=True, text=True, check=False)
    assert done.stderr == ""
    return done.returncode, done.stdout


def archive(folder, code):
    (folder / "a.cpp").write_text(code)
    subprocess.run(["g++", "-c", "-O1", "-o", folder / "a.o", folder / "a.cpp"], check=True)
    subprocess.run(["ar", "rcs", folder / "a.a", folder / "a.o"], check=True)
    return folder / "a.a"


def test_clean_tree(tmp_path):
    assert check(tree(tmp_path)) == (0, "")


@pytest.mark.parametrize("path, more, words", BROKEN, ids=[f"{words}" for _, _, words in BROKEN])
def test_violation(tmp_path, path, more, words):
    status, output = check(tree(tmp_path, path, more))
    assert status == 1
    assert words in output and path in output
    assert len(output.splitlines()) <= 2, output  # the rule that was broken, and no other file


ALLOWED = """
#include <cstdlib>
#include <cstring>
extern "C" { extern unsigned gul_ports; int vosUp(void); }
int f(void *a, void *b) { memcpy(a, b, gul_ports); free(a); return vosUp(); }
"""


def test_allowed_symbols(tmp_path):
    assert check(tree(tmp_path), "--archive", archive(tmp_path, ALLOWED)) == (0, "")


@pytest.mark.parametrize("code, name", [
    ('extern "C" int socket(int, int, int); int f() { return socket(1, 2, 3); }', "socket"),
    ("int *f() { return new int; }", "_Znwm"),
    ('extern "C" int vosDown(void); int f() { return vosDown(); }', "vosDown"),
])  # fmt: skip
def test_forbidden_symbols(tmp_path, code, name):
    status, output = check(tree(tmp_path), "--archive", archive(tmp_path, code))
    assert status == 1 and f": {name} is neither" in output


def test_empty_archive(tmp_path):
    status, output = check(tree(tmp_path), "--archive", archive(tmp_path, ""))
    assert status == 1 and "no symbol" in output
