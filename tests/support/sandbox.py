#!/usr/bin/python3
"""A small machine of its own for lodestard: fixed paths stay fixed, nothing outside is touched.

    sandbox.py [--bind-ro PATH]... [--setenv NAME VALUE]... [--size-tmp BYTES]
               [--share-net] [--chdir DIR] -- command args

Runs a command in a bubblewrap sandbox with its own mounts, processes, shared memory and network
(loopback only). Inside, the caller is the ordinary user "user" (1000), whether root or anybody
else started it:

    fresh, writable   /home/user, /home/tiny (64 KiB, to be filled up), /tmp, /run, /var (with
                      /var/run -> /run), /etc/xdg/varn, /etc/lodestard, /etc/geoclue, /sys, the
                      root itself
    read-only         the rest of /etc and /usr, the checkout, every --bind-ro path
    provided          /usr/bin/python2.6 (the system's python3) and
                      /usr/lib/lodestard-tests/fake_orv.py (the checkout's engines/fake_orv.py)

The environment holds nothing of the caller's but TERM. Everything inside dies with the first
process, and with the caller. Two sandboxes know nothing of each other.

As a module:  Sandbox(bind_ro=[build]).popen(["lodestard", "-v"]), .run([...]), .execute([...]).
"""

import argparse
import os
import shutil
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

CHECKOUT = Path(__file__).resolve().parents[2]
PYTHON = "/usr/bin/python3"
HOME = "/home/user"
RUNTIME = "/run/user/1000"
SMALL_HOME = "/home/tiny"
SMALL_HOME_BYTES = 64 * 1024

ETC_FILES = {
    "passwd": "root:x:0:0:root:/root:/bin/sh\n"
              "user:x:1000:1000:user:/home/user:/bin/sh\n"
              "nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n",
    "group": "root:x:0:\nuser:x:1000:\nnogroup:x:65534:\n",
    "nsswitch.conf": "passwd: files\ngroup: files\nhosts: files\n",
    "machine-id": "5ba2c8e0d7f14b3f9c60a1e24d83f719\n",
}
HOST_ACCOUNTS = {".pwd.lock", "shadow", "gshadow", "passwd-", "group-", "shadow-", "gshadow-"}


class SandboxError(Exception):
    """The sandbox cannot be made here; the text says why."""


@dataclass
class Sandbox:
    """What the sandbox shows of the host. Nothing is made before a command is run."""

    bind_ro: list = field(default_factory=list)      # paths shown at their own place, read-only
    files: dict = field(default_factory=dict)        # paths inside, and the bytes that only the user may read there
    environment: dict = field(default_factory=dict)  # added to the clean one
    size_tmp: int = 0                                # bytes of /tmp, 0 for the default
    share_net: bool = False                          # keep the caller's network
    test_engine: bool = True                         # provide it and its interpreter
    chdir: str = HOME

    def popen(self, command, **options):
        """Starts the command; the keyword arguments are subprocess.Popen's."""
        arguments, descriptors = self._bubblewrap(command)
        try:
            kept = tuple(options.pop("pass_fds", ())) + tuple(descriptors)
            return subprocess.Popen(arguments, pass_fds=kept, **options)
        finally:
            for descriptor in descriptors:
                os.close(descriptor)

    def run(self, command, **options):
        """Runs the command to its end and returns its exit status."""
        with self.popen(command, **options) as process:
            return process.wait()

    def execute(self, command):
        """Replaces this process by the sandboxed command; does not return."""
        arguments, descriptors = self._bubblewrap(command)
        for descriptor in descriptors:
            os.set_inheritable(descriptor, True)
        sys.stdout.flush()
        sys.stderr.flush()
        os.execv(arguments[0], arguments)

    def _bubblewrap(self, command):
        program = shutil.which("bwrap")
        if not program:
            raise SandboxError("bubblewrap is not installed (tools/install-deps installs it)")
        descriptors = []
        setup = self._namespaces() + self._tree(descriptors) + self._surroundings()
        argument_file = _memory_file("arguments", b"".join(os.fsencode(str(a)) + b"\0" for a in setup))
        descriptors.append(argument_file)
        return [program, "--args", str(argument_file), "--", *map(str, command)], descriptors

    def _namespaces(self):
        # An ordinary user inside, also for root: then file modes mean the same for everybody.
        arguments = ["--unshare-user", "--uid", "1000", "--gid", "1000", "--unshare-pid", "--unshare-ipc",
                     "--unshare-uts", "--hostname", "lodestard", "--die-with-parent", "--cap-drop", "ALL"]
        return arguments if self.share_net else arguments + ["--unshare-net"]

    def _tree(self, descriptors):
        tree = ["--tmpfs", "/", "--proc", "/proc", "--dev", "/dev"]
        for directory in ("/usr", "/usr/bin", "/usr/lib", "/etc", "/etc/xdg"):
            tree += ["--dir", directory]
        tree += _top_level_links() + _usr() + (_test_engine() if self.test_engine else []) + self._etc(descriptors)
        for directory in ("/sys", "/run", "/run/lock", "/run/user", "/var", "/var/lib", "/var/cache", "/home", HOME):
            tree += ["--dir", directory]
        tree += ["--perms", "0700", "--dir", RUNTIME, "--symlink", "/run", "/var/run"]
        tree += ["--size", SMALL_HOME_BYTES, "--tmpfs", SMALL_HOME]
        tree += ["--size", self.size_tmp] if self.size_tmp else []
        tree += ["--perms", "1777", "--tmpfs", "/tmp", "--symlink", "/tmp", "/var/tmp"]
        # The checkout and the build may lie below /home or /tmp: they come last.
        tree += ["--ro-bind", CHECKOUT, CHECKOUT]
        for path in self.bind_ro:
            place = os.path.abspath(path)
            tree += ["--ro-bind", place, place]
        for path, content in self.files.items():
            descriptors.append(_memory_file(os.path.basename(path), content))
            tree += ["--perms", "0600", "--file", descriptors[-1], path]
        return tree

    @staticmethod
    def _etc(descriptors):
        arguments = []
        for entry in _entries("/etc", without={"xdg", "lodestard", "geoclue", *HOST_ACCOUNTS, *ETC_FILES}):
            arguments += _as_it_is(entry)
        if os.path.isdir("/etc/xdg"):
            for entry in _entries("/etc/xdg", without={"varn"}):
                arguments += _as_it_is(entry)
        for name, content in ETC_FILES.items():
            descriptors.append(_memory_file(name, content.encode()))
            arguments += ["--perms", "0644", "--file", descriptors[-1], f"/etc/{name}"]
        return arguments + ["--dir", "/etc/xdg/varn", "--dir", "/etc/lodestard", "--dir", "/etc/geoclue"]

    def _surroundings(self):
        environment = {
            "PATH": "/usr/bin:/usr/sbin:/bin:/sbin", "LANG": "C.UTF-8", "TERM": os.environ.get("TERM", "dumb"),
            "HOME": HOME, "USER": "user", "LOGNAME": "user", "SHELL": "/bin/sh",
            "XDG_RUNTIME_DIR": RUNTIME, "XDG_CONFIG_HOME": f"{HOME}/.config", "XDG_CACHE_HOME": f"{HOME}/.cache",
            "XDG_DATA_HOME": f"{HOME}/.local/share", "PYTHONDONTWRITEBYTECODE": "1", **self.environment,
        }
        arguments = ["--clearenv"]
        for name, value in environment.items():
            arguments += ["--setenv", name, value]
        return arguments + ["--chdir", self.chdir]


def _memory_file(name, content):
    """An open file that bubblewrap reads from its start."""
    descriptor = os.memfd_create(name)
    os.write(descriptor, content)
    os.lseek(descriptor, 0, os.SEEK_SET)
    return descriptor


def _entries(directory, without=()):
    return sorted((e for e in os.scandir(directory) if e.name not in without), key=lambda e: e.name)


def _as_it_is(entry):
    """A link stays a link (bubblewrap would follow it); all else is bound read-only."""
    if entry.is_symlink():
        return ["--symlink", os.readlink(entry.path), entry.path]
    return ["--ro-bind", entry.path, entry.path]


def _top_level_links():
    """/bin, /lib and their like: links into /usr on a merged system, folders elsewhere."""
    arguments = []
    for name in ("bin", "sbin", "lib", "lib32", "lib64", "libx32"):
        path = f"/{name}"
        if os.path.islink(path):
            arguments += ["--symlink", os.readlink(path), path]
        elif os.path.isdir(path):
            arguments += ["--ro-bind", path, path]
    return arguments


def _usr():
    """/usr with room for two more files. A bind for each of a thousand programs is slow, so
    /usr/bin is bound once, as /.bin, and holds a link for each program; only Python, which finds
    its library by where its own file lies, is bound itself."""
    arguments = ["--ro-bind", "/usr/bin", "/.bin"]
    for entry in _entries("/usr", without={"bin", "lib"}):
        arguments += _as_it_is(entry)
    for entry in _entries("/usr/lib", without={"lodestard-tests"}):
        arguments += _as_it_is(entry)
    for entry in _entries("/usr/bin", without={"python2.6"}):
        if entry.is_symlink() or entry.name.startswith("python3"):
            arguments += _as_it_is(entry)
        else:
            arguments += ["--symlink", f"/.bin/{entry.name}", entry.path]
    return arguments


def _test_engine():
    arguments = ["--symlink", "python3", "/usr/bin/python2.6", "--dir", "/usr/lib/lodestard-tests"]
    test_engine = CHECKOUT / "engines" / "fake_orv.py"
    if test_engine.exists():
        arguments += ["--ro-bind", test_engine, "/usr/lib/lodestard-tests/fake_orv.py"]
    return arguments


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bind-ro", metavar="PATH", action="append", default=[],
                        help="show a path of the host at its own place, read-only")
    parser.add_argument("--setenv", metavar=("NAME", "VALUE"), nargs=2, action="append", default=[],
                        help="add to the clean environment")
    parser.add_argument("--size-tmp", metavar="BYTES", type=int, default=0, help="size of /tmp")
    parser.add_argument("--share-net", action="store_true", help="keep the caller's network")
    parser.add_argument("--chdir", metavar="DIR", default=HOME, help="where the command starts")
    parser.add_argument("command", nargs="+")
    options = parser.parse_args()
    sandbox = Sandbox(bind_ro=options.bind_ro, environment=dict(options.setenv), size_tmp=options.size_tmp,
                      share_net=options.share_net, chdir=options.chdir)
    try:
        sandbox.execute(options.command)
    except SandboxError as error:
        sys.exit(f"sandbox: {error}")


if __name__ == "__main__":
    main()
