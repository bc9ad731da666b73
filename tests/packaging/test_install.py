"""What `cmake --install` lays down, wherever it is told to."""

import os
import re
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["LODESTARD_BUILD"])

CHECKOUT = Path(__file__).resolve().parents[2]
INTERFACES = list((CHECKOUT / "docs" / "dbus").iterdir())

# Place below the prefix, and whether it is a program.
FILES = {
    "bin/lodestard": True,
    "bin/lodestar-dialogs": True,
    "bin/lodestar-watch": True,
    "sbin/orvd-gpsd": True,
    "lib/lodestard-tests/fake_orv.py": True,
    "lib/systemd/system/orvd-gpsd.service": False,
    "lib/systemd/user/lodestard.service": False,
    "lib/systemd/user/lodestard.service.d/lodestard-test-engine.conf": False,
    "lib/sysusers.d/lodestard.conf": False,
    "lib/sysusers.d/orvd-gpsd.conf": False,
    "share/bash-completion/completions/lodestar-watch": False,
    "share/dbus-1/services/com.varn.location.ui.service": False,
    "share/dbus-1/services/com.varn.lodestard.client.service": False,
    "share/dbus-1/services/com.varn.lodestard.settings.service": False,
    "share/dbus-1/system.d/com.varn.lodestard.vesk.conf": False,
    **{f"share/doc/lodestard/{name}.md": False for name in ("administration", "dbus", "engine-protocol")},
    **{f"share/doc/lodestard/dbus/{path.name}": False for path in INTERFACES},
    "share/man/man1/lodestar-dialogs.1": False,
    "share/man/man1/lodestar-watch.1": False,
    "share/man/man7/lodestard-tests.7": False,
    "share/man/man8/lodestard.8": False,
    "share/man/man8/orvd-gpsd.8": False,
}


def install(target, *arguments):
    subprocess.run(["cmake", "--install", BUILD, *arguments], check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, "DESTDIR": str(target)})


@pytest.fixture(scope="module")
def opt(tmp_path_factory):
    """An installation below /opt/lodestard, gathered in a directory of its own."""
    target = tmp_path_factory.mktemp("opt")
    install(target, "--prefix", "/opt/lodestard")
    return target / "opt/lodestard"


def test_every_file_is_there_and_no_other(opt):
    found = {str(path.relative_to(opt)): os.access(path, os.X_OK) for path in opt.rglob("*") if path.is_file()}
    assert found == FILES


def test_nothing_lies_outside_the_prefix(opt):
    assert [path.name for path in opt.parents[1].iterdir()] == ["opt"]
    assert [path.name for path in opt.parent.iterdir()] == ["lodestard"]


def test_the_list_of_what_was_installed_is_whole(opt):
    manifest = (BUILD / "install_manifest.txt").read_text(encoding="utf-8").splitlines()
    assert sorted(manifest) == sorted(f"/opt/lodestard/{name}" for name in FILES)


def activation(opt, name):
    """The lines of an activation file."""
    lines = (opt / f"share/dbus-1/services/{name}.service").read_text(encoding="utf-8").splitlines()
    return [line for line in lines if not line.startswith("#")]


@pytest.mark.parametrize("name, program, unit", [("com.varn.lodestard.client", "lodestard", "lodestard.service"),
                                                 ("com.varn.location.ui", "lodestar-dialogs", None)])
def test_the_bus_starts_the_installed_program(opt, name, program, unit):
    assert activation(opt, name) == ["[D-BUS Service]", f"Name={name}", f"Exec=/opt/lodestard/bin/{program}",
                                     *([f"SystemdService={unit}"] if unit else [])]


def test_the_settings_name_is_started_by_way_of_the_client_name(opt):
    header, name, command, unit = activation(opt, "com.varn.lodestard.settings")
    assert (header, name, unit) == ("[D-BUS Service]", "Name=com.varn.lodestard.settings",
                                    "SystemdService=lodestard.service")
    assert command.startswith("Exec=/usr/bin/dbus-send ") and "string:com.varn.lodestard.client" in command


@pytest.mark.parametrize("unit, command", [("user/lodestard.service", "/opt/lodestard/bin/lodestard"),
                                           ("system/orvd-gpsd.service",
                                            "/opt/lodestard/sbin/orvd-gpsd $ORVD_GPSD_OPTIONS")])
def test_the_unit_starts_the_installed_program(opt, unit, command):
    lines = (opt / "lib/systemd" / unit).read_text(encoding="utf-8").splitlines()
    assert [line for line in lines if line.startswith("ExecStart=")] == [f"ExecStart={command}"]


def test_the_daemons_page_names_the_documents_that_are_installed(opt):
    page = (opt / "share/man/man8/lodestard.8").read_text(encoding="utf-8").replace("\\-", "-")
    assert ".I /opt/lodestard/share/doc/lodestard\n" in page
    named = set(re.findall(r"[\w-]+\.md", page))
    assert named == {path.name for path in (opt / "share/doc/lodestard").glob("*.md")}


def test_installed_documents_only_point_at_what_is_installed(opt):
    documents = list((opt / "share/doc/lodestard").glob("*.md"))
    for document in documents:
        for target in re.findall(r"\]\((?!https?:)([^)#]+)", document.read_text(encoding="utf-8")):
            assert (document.parent / target).exists(), f"{document.name}: {target}"


def test_the_prefix_that_the_build_was_made_for(tmp_path):
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8").splitlines()
    (prefix,) = [line.split("=", 1)[1] for line in cache if line.startswith("CMAKE_INSTALL_PREFIX:")]
    install(tmp_path)
    service = Path(f"{tmp_path}{prefix}/share/dbus-1/services/com.varn.lodestard.client.service")
    assert f"Exec={prefix}/bin/lodestard\n" in service.read_text(encoding="utf-8")


def test_the_context_name_starts_nobody(opt):
    """Who subscribes there wants to hear of a daemon that runs, and must not start one."""
    assert not any("context" in path.name for path in opt.rglob("*.service"))
