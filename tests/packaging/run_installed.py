#!/usr/bin/python3
"""Runs tests in a sandbox in which packages can be installed: what ctest calls.

    run_installed.py DIR FILE... [pytest arguments]

DIR holds the packages. Inside, dpkg knows the machine's own packages, so dependencies are checked; the
directories into which the packages unpack are writable, and hold links to what the machine has there.
Nothing of the build is shown, nor what the machine has of these packages: what is not installed is not there.
"""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))
from sandbox import CHECKOUT, PYTHON, Sandbox  # noqa: E402

MACHINE = "/.machine"  # the machine's own directories, inside
WRITABLE_ANYWAY = {"/usr", "/usr/bin", "/usr/lib", "/etc", "/var", "/run"}
# Where the maintainer scripts write.
SCRIPTS_DIRECTORIES = ("/etc/systemd", "/etc/systemd/system", "/etc/systemd/system/multi-user.target.wants",
                       "/etc/systemd/user")
DPKG = "/var/lib/dpkg"


def contents_of(packages):
    """Every path of the packages, by its place on a machine where /lib is a link into /usr; directories end in /."""
    for package in packages:
        names = subprocess.run(["dpkg-deb", "--fsys-tarfile", package], check=True, stdout=subprocess.PIPE).stdout
        listed = subprocess.run(["tar", "-t"], input=names, check=True, stdout=subprocess.PIPE).stdout.decode()
        for path in (line.lstrip(".") for line in listed.splitlines()):
            yield path if not path.startswith("/lib/") else f"{os.path.realpath('/lib')}{path[4:]}"


def is_ours(path):
    """What an earlier installation, or the administrator after it, may have left on this machine."""
    return any(part.startswith(("lodestar", "orvd-gpsd")) for part in path.split("/"))


class Machine(Sandbox):
    """The sandbox with places for packages; `copies` is a directory of the host for them."""

    def __init__(self, packages, copies, **options):
        super().__init__(test_engine=False, **options)
        self._copies = Path(copies)
        contents = set(contents_of(packages))
        directories = {path.rstrip("/") for path in contents if path.endswith("/")} | set(SCRIPTS_DIRECTORIES)
        self._directories = {path for path in directories if path and os.path.isdir(path) and not is_ours(path)}
        self._files = {path for path in contents if not path.endswith("/")}

    def _tree(self, descriptors):
        tree = super()._tree(descriptors)
        directories = self._directories - WRITABLE_ANYWAY
        tops = {path for path in directories if not any(path.startswith(f"{other}/") for other in directories)}
        for top in sorted(tops):
            self._copy(top)
            tree += ["--ro-bind", top, f"{MACHINE}{top}", "--bind", f"{self._copies}{top}", top]
        return tree + ["--ro-bind", DPKG, f"{MACHINE}{DPKG}"]

    def _copy(self, directory):
        """A directory with a link for each entry, and a copy of each that packages write into."""
        target = Path(f"{self._copies}{directory}")
        target.mkdir(parents=True)
        for entry in os.scandir(directory):
            if entry.path in self._files or is_ours(entry.path):
                continue
            if entry.path in self._directories:
                self._copy(entry.path)
            elif entry.is_symlink():
                (target / entry.name).symlink_to(os.readlink(entry.path))
            else:
                (target / entry.name).symlink_to(f"{MACHINE}{entry.path}")


def main():
    directory = Path(sys.argv[1]).resolve()
    packages = sorted(path for path in directory.glob("*.deb") if "-dbgsym_" not in path.name)
    if not packages:
        sys.exit(f"run_installed: no packages in {directory}")
    files = [os.path.abspath(a) if os.path.exists(a) else a for a in sys.argv[2:]]
    with tempfile.TemporaryDirectory() as copies:
        machine = Machine(packages, copies, bind_ro=[directory], environment={
            "PYTHONPATH": f"{CHECKOUT}/tests/support", "PACKAGES": "\n".join(map(str, packages)), "MACHINE": MACHINE})
        sys.exit(machine.run([PYTHON, "-m", "pytest", "-v", "-p", "no:cacheprovider", "-p", "no:tmpdir", "--color=no",
                              f"--rootdir={CHECKOUT}/tests", *files]))


if __name__ == "__main__":
    main()
