"""The Debian package by itself: what it holds, that its own tests ran, its programs, unit and manual."""

import re
import stat
import subprocess

import lab.package
import pytest
from lab.machine import ROOT

FILES = """
/etc/snoopd6
/lib/systemd/system/snoopd6.service
/usr/bin/snoopctl
/usr/lib/sysusers.d/snoopd6.conf
/usr/sbin/snoopd6
/usr/sbin/snoopd6-describe
/usr/share/bash-completion/completions/snoopctl
/usr/share/doc/snoopd6/README.md.gz
/usr/share/doc/snoopd6/changelog.gz
/usr/share/doc/snoopd6/examples/switch.toml
/usr/share/man/man1/snoopctl.1.gz
/usr/share/man/man5/snoopd6-switch.toml.5.gz
/usr/share/man/man8/snoopd6-describe.8.gz
/usr/share/man/man8/snoopd6.8.gz
""".split()


@pytest.fixture(scope="module")
def package():
    if tools := lab.package.missing():
        pytest.skip(f"the package is not tested: there is no {', '.join(tools)} (scripts/setup build lab test package)")
    return lab.package.build()


def dpkg_deb(package, *arguments):
    return subprocess.run(["dpkg-deb", *arguments, str(package)], check=True, capture_output=True, text=True).stdout


@pytest.fixture(scope="module")
def contents(package, tmp_path_factory):
    """The files of the package, unpacked."""
    folder = tmp_path_factory.mktemp("contents")
    subprocess.run(["dpkg-deb", "-x", str(package), str(folder)], check=True)
    return folder


def test_its_own_tests_ran_when_it_was_built(package):
    log = (package.parent / "log").read_text()
    assert "100% tests passed, 0 tests failed" in log
    for name in ("unit", "shell_test", "contract_recording", "contract_linux", "linux_unit"):
        assert re.search(rf"Test +#\d+: {name} \.+ +Passed", log), name


def test_version_and_dependencies(package):
    version = re.search(r"project\(snoopd6 VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]
    assert dpkg_deb(package, "-W", "--showformat=${Package} ${Version}").split() == ["snoopd6", version]
    depends = dpkg_deb(package, "-W", "--showformat=${Depends}")
    for library in ("libc6", "libedit2", "libevent-core-2.1-7", "libmnl0", "libnftables1", "libnftnl11", "libstdc++6"):
        assert re.search(rf"(^|, ){re.escape(library)} ", depends + " "), (library, depends)
    assert package.name == f"snoopd6_{version}_{dpkg_deb(package, '-W', '--showformat=${Architecture}')}.deb"


def test_files(contents):
    for name in FILES:
        path = contents / name.lstrip("/")
        assert path.exists(), name
        assert path.is_dir() or path.stat().st_size > 0, name
    assert list((contents / "etc/snoopd6").iterdir()) == []  # the switch file is the administrator's
    for name in ("usr/bin/snoopctl", "usr/sbin/snoopd6", "usr/sbin/snoopd6-describe"):
        assert stat.S_IMODE((contents / name).stat().st_mode) == 0o755


def test_the_programs_are_hardened(contents):
    for name in ("usr/bin/snoopctl", "usr/sbin/snoopd6"):
        text = subprocess.run(["readelf", "-hldsW", contents / name], check=True, capture_output=True, text=True).stdout
        assert re.search(r"Type: +DYN", text), "not position independent"
        assert "GNU_RELRO" in text and re.search(r"FLAGS_1\).*NOW.*PIE|FLAGS_1\).*PIE.*NOW", text)
        assert re.search(r"GNU_STACK .* RW ", text)
        assert "__stack_chk_fail" in text and "_chk@GLIBC" in text
        assert "RUNPATH" not in text and "asan" not in text


def test_lintian(package):
    line = ["lintian", "--tag-display-limit", "0", "--allow-root", "--fail-on", "error,warning", str(package)]
    done = subprocess.run(line, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout + done.stderr


def test_manual_pages(contents):
    for page in FILES:
        if "/man/" not in page:
            continue
        path = contents / page.lstrip("/")
        plain = path.with_suffix("")
        plain.write_bytes(subprocess.run(["zcat", path], check=True, capture_output=True).stdout)
        lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", plain], capture_output=True, text=True, check=False)
        assert lint.stdout + lint.stderr == ""
        plain.unlink()


def test_the_manual_has_the_commands(contents):
    page = contents / "usr/share/man/man1/snoopctl.1.gz"
    text = subprocess.run(["mandoc", "-Tascii", "-O", "width=200", page], check=True, capture_output=True, text=True).stdout
    text = re.sub(r".\x08", "", text)
    assert "@commands@" not in text
    commands, behind = text.split("\nCOMMANDS\n")[1].split("\nFILES\n")
    for line in ("interface ethernet", "dhcpv6-snooping trust", "ipv6-source-guard bind ip", "show running-config", "save"):
        assert line in commands, line
    assert "EXAMPLES" in behind


def test_unit(contents):
    text = (contents / "lib/systemd/system/snoopd6.service").read_text()
    settings = dict(line.partition("=")[::2] for line in text.splitlines() if "=" in line and line[0] != "#")
    assert settings["AmbientCapabilities"] == settings["CapabilityBoundingSet"] == "CAP_NET_ADMIN CAP_NET_RAW"
    assert settings["Type"] == "notify" and settings["User"] == settings["Group"] == "snoopd6"
    assert settings["ConditionPathExists"] == "/etc/snoopd6/switch.toml"
    assert int(settings["TimeoutStartSec"]) > 60
    assert "ProtectKernelTunables" not in settings and "ProtectHostname" not in settings
