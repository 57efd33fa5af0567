"""A save by root while another user may write into the folder: nothing that is planted there is followed."""

import os
import signal
import subprocess

import pytest
from lab.daemon import Daemon, program
from lab.machine import possible

MEMBER = 12345  # a user and a group without any right


@pytest.fixture
def service(switch):
    if not possible():
        pytest.skip("the user namespace of an ordinary user has a single user")
    made = Daemon(switch)
    made.shared = made.folder / "shared"  # as a group-writable folder is for its members
    made.shared.mkdir()
    made.shared.chmod(0o777)
    made.startup = made.shared / "startup.conf"
    made.environment = lambda: dict(
        Daemon.environment(made), SNOOPD6_STARTUP=str(made.startup), SNOOPD6_SHELL=program("snoopctl")
    )  # fmt: skip
    made.folder.chmod(0o755)
    made.secret = made.folder / "secret"
    made.secret.write_text("root's own\n")
    made.secret.chmod(0o600)
    yield made
    made.close()


def as_member(service, command):
    user = ["setpriv", f"--reuid={MEMBER}", f"--regid={MEMBER}", "--clear-groups"]
    subprocess.run([*user, "sh", "-c", f'cd "{service.shared}" && {command}'], check=True, timeout=30)


def untouched(service):
    assert service.secret.read_text() == "root's own\n" and service.secret.stat().st_mode & 0o7777 == 0o600


@pytest.mark.parametrize("name", ["startup.conf", "startup.conf.last-good"])
@pytest.mark.parametrize("plant, said", [
    ("ln -s {secret} {name}", "it is a symbolic link"), ("ln -s {folder}/made {name}", "it is a symbolic link"),
    ("mkfifo {name}", "it is not an ordinary file"), ("mkdir {name}", "it is not an ordinary file"),
])  # fmt: skip
def test_planted_in_the_place_of_a_file(service, name, plant, said):
    service.start()
    as_member(service, plant.format(secret=service.secret, folder=service.folder, name=name))
    status, output, error = service.ctl("save", check=False)
    assert (status, output, error) == (1, "", f"snoopctl: cannot write {service.shared}/{name}: {said}\n")
    untouched(service)
    assert not (service.folder / "made").exists()


@pytest.mark.parametrize("plant", ["ln -s {secret} {name}", "ln -s {folder}/made {name}", "mkfifo {name}", "touch {name}"])
def test_planted_under_the_name_of_the_new_file(service, plant):
    service.start()
    for name in (".startup.conf.new", ".startup.conf.last-good.new"):
        as_member(service, plant.format(secret=service.secret, folder=service.folder, name=name))
    assert service.ctl("save").startswith("Saved ")
    untouched(service)
    assert not (service.folder / "made").exists()
    for name in ("startup.conf", "startup.conf.last-good"):
        file = service.shared / name
        assert not file.is_symlink() and file.stat().st_uid == 0 and file.stat().st_mode & 0o7777 == 0o640


def test_planted_in_the_place_of_the_folder(service):
    """The folder itself leads elsewhere: somebody owns the one above it."""
    elsewhere = service.folder / "elsewhere"
    elsewhere.mkdir()
    service.start()
    service.shared.rmdir()
    service.shared.symlink_to(elsewhere)
    status, _, error = service.ctl("save", check=False)
    assert (status, error) == (1, f"snoopctl: cannot write {service.startup}: it is a symbolic link\n")
    assert list(elsewhere.iterdir()) == []


@pytest.mark.parametrize("name, plant", [
    ("x.conf", "ln -s {secret} x.conf"), ("x.conf", "ln -s {folder}/made x.conf"), ("way/x.conf", "ln -s {folder} way"),
    ("way/deeper/x.conf", "ln -s {folder} way && true"),
])  # fmt: skip
def test_a_save_to_a_file_follows_no_link(service, name, plant):
    (service.folder / "deeper").mkdir()
    service.start()
    before = sorted(path.name for path in service.folder.rglob("*"))
    as_member(service, plant.format(secret=service.secret, folder=service.folder))
    status, output, error = service.ctl("save", f"{service.shared}/{name}", check=False)
    assert (status, output) == (1, "") and "symbolic link" in error
    untouched(service)
    after = sorted(path.name for path in service.folder.rglob("*"))
    assert set(after) - set(before) <= {"x.conf", "way"} and not (service.folder / "x.conf").exists()


def test_a_member_who_races_gains_nothing(service):
    """Links that come and go all the time under every name."""
    service.start()
    names = "startup.conf startup.conf.last-good .startup.conf.new .startup.conf.last-good.new"
    racer = subprocess.Popen(
        ["setpriv", f"--reuid={MEMBER}", f"--regid={MEMBER}", "--clear-groups", "sh", "-c",
         f'cd "{service.shared}"; while :; do for n in {names}; do ln -sf {service.secret} $n; rm -f $n; done; done 2>&-'],
        stderr=subprocess.DEVNULL, start_new_session=True,
    )  # fmt: skip
    try:
        for _ in range(30):
            status, _, _ = service.ctl("save", check=False)
            assert status in (0, 1)
            untouched(service)
    finally:
        os.killpg(racer.pid, signal.SIGKILL)  # with the link that it is making
        racer.wait()
    for name in names.split():
        (service.shared / name).unlink(missing_ok=True)
    assert service.ctl("save").startswith("Saved ")
