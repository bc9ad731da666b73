#!/usr/bin/python3
"""Runs a program under the restrictions of a systemd unit, with bubblewrap in systemd's place.

    unit.py UNIT [DROP-IN]... -- command args

Understands what the units of packaging/systemd say and refuses everything else, so that nothing is
added there without being tried here. Works inside the tests' sandbox, where there is no systemd.

As a module:  Unit.read(*files).values and .says(key, value).
"""

import errno
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
from pathlib import Path

CLONE_NEW_ANYTHING = 0x7E020080  # the flags that make a namespace
WRITE, EXECUTE = 2, 4            # of a mapping
LINUX_PERSONALITY = 0
CONDITIONAL = {"socket", "mmap", "mprotect", "pkey_mprotect", "clone", "clone3", "unshare", "setns", "personality",
               "chmod", "fchmod", "fchmodat", "sched_setscheduler"}
SET_ID_BITS = 0o6000
REALTIME = (1, 2)                # SCHED_FIFO, SCHED_RR

# What an ordinary user cannot do anyway, what bubblewrap always does, what concerns systemd itself; and a
# /proc of its own, which a sandbox inside a sandbox cannot have.
NOTHING_TO_DO = {"AmbientCapabilities", "CapabilityBoundingSet", "KeyringMode", "NoNewPrivileges", "PrivateUsers",
                 "ProtectClock", "ProtectControlGroups", "ProtectKernelLogs", "ProtectKernelModules",
                 "ProtectKernelTunables", "ProtectProc", "ProcSubset", "RemoveIPC", "IPAddressDeny", "IPAddressAllow", "SystemCallArchitectures",
                 "SystemCallErrorNumber", "UMask"}
NO_RESTRICTION = {"Type", "BusName", "ExecStart", "Restart", "RestartSec", "Slice", "User", "Group", "EnvironmentFile"}
LISTS = {"SystemCallFilter", "RestrictAddressFamilies", "ReadWritePaths"}


class Unit:
    """The [Service] section of a unit and its drop-ins: the last value of a key, all values of a list."""

    def __init__(self, text):
        self.values, section = {}, ""
        for line in map(str.strip, text.splitlines()):
            if line.startswith("["):
                section = line
            elif section == "[Service]" and line and not line.startswith("#"):
                key, value = line.split("=", 1)
                before = self.values.get(key, []) if key in LISTS else []
                self.values[key] = [*before, value] if key in LISTS else value

    @classmethod
    def read(cls, *files):
        return cls("\n".join(Path(file).read_text(encoding="utf-8") for file in files))

    def says(self, key, value="yes"):
        return self.values.get(key) == value

    def bubblewrap(self, program):
        """The arguments that make the same surroundings; the program is shown wherever it lies."""
        unknown = set(self.values) - NOTHING_TO_DO - NO_RESTRICTION - set(LISTS) - set(self._places()) - {
            "MemoryDenyWriteExecute", "LockPersonality", "RestrictNamespaces", "RestrictRealtime", "RestrictSUIDSGID"}
        if unknown:
            raise ValueError(f"nobody knows what these mean here: {', '.join(sorted(unknown))}")
        arguments = ["--unshare-user", "--cap-drop", "ALL", "--die-with-parent"]
        for key, made in self._places().items():
            value = self.values.get(key, "no")
            if value != "no":
                arguments += made(value)
        if os.path.isabs(program):
            arguments += ["--ro-bind", program, program]
        if self.says("ProtectHome"):
            arguments += ["--remount-ro", "/home", "--remount-ro", "/run/user"]
        return arguments

    def _places(self):
        """What each setting makes, in the order of the mounts."""
        return {
            "ProtectSystem": lambda _strict: ["--ro-bind", "/", "/", *self._writable()],
            "ProtectHome": lambda _yes: ["--tmpfs", "/home", "--tmpfs", "/run/user"],
            "PrivateTmp": lambda _yes: ["--tmpfs", "/tmp"],
            "PrivateDevices": lambda _yes: ["--dev", "/dev"],
            "PrivateNetwork": lambda _yes: ["--unshare-net"],
            "PrivateIPC": lambda _yes: ["--unshare-ipc"],
            "ProtectHostname": lambda _yes: ["--unshare-uts"],
            "RuntimeDirectory": lambda name: ["--bind", f"/run/{name}", f"/run/{name}"],
            "RuntimeDirectoryMode": lambda mode: [],
        }

    def _writable(self):
        known = {"%u": os.environ["USER"], "%t": os.environ["XDG_RUNTIME_DIR"]}
        arguments = []
        for path in " ".join(self.values.get("ReadWritePaths", [])).split():
            for specifier, value in known.items():
                path = path.replace(specifier, value)
            arguments += ["--bind-try" if path.startswith("-") else "--bind", path.lstrip("-"), path.lstrip("-")]
        return arguments

    def prepare(self):
        """Makes what systemd makes before the program starts."""
        os.umask(int(self.values.get("UMask", "0022"), 8))
        if "RuntimeDirectory" in self.values:
            directory = Path("/run", self.values["RuntimeDirectory"])
            directory.mkdir(exist_ok=True)
            directory.chmod(int(self.values["RuntimeDirectoryMode"], 8))

    def allowed_calls(self):
        """The system calls that the filters leave: a list that begins with ~ takes away."""
        allowed = set()
        for line in self.values["SystemCallFilter"]:
            named = set().union(*map(calls_of, line.lstrip("~").split()))
            allowed = allowed - named if line.startswith("~") else allowed | named
        return allowed

    def filter(self):
        """The same as a program for the kernel, in an open file."""
        import seccomp
        rules = seccomp.SyscallFilter(seccomp.ERRNO(errno.EPERM))

        def allow(call, *conditions):
            rules.add_rule(seccomp.ALLOW, call, *conditions)

        def lacks(argument, bits):
            return seccomp.Arg(argument, seccomp.MASKED_EQ, bits, 0)

        for call in sorted(self.allowed_calls() - CONDITIONAL):
            try:
                allow(call)
            except RuntimeError:
                pass  # a call of another architecture
        families = {getattr(socket, name) for name in " ".join(self.values["RestrictAddressFamilies"]).split()}
        for family in families:
            allow("socket", seccomp.Arg(0, seccomp.EQ, int(family)))
        for family in set(range(46)) - families:
            rules.add_rule(seccomp.ERRNO(errno.EAFNOSUPPORT), "socket", seccomp.Arg(0, seccomp.EQ, family))
        for bits in (WRITE, EXECUTE):
            allow("mmap", lacks(2, bits))
        for call in ("mprotect", "pkey_mprotect"):
            allow(call, lacks(2, EXECUTE))
        allow("clone", lacks(0, CLONE_NEW_ANYTHING))
        rules.add_rule(seccomp.ERRNO(errno.ENOSYS), "clone3")
        allow("unshare", lacks(0, CLONE_NEW_ANYTHING))
        allow("personality", seccomp.Arg(0, seccomp.EQ, LINUX_PERSONALITY))
        for call, argument in (("chmod", 1), ("fchmod", 1), ("fchmodat", 2)):
            allow(call, lacks(argument, SET_ID_BITS))
        for policy in (0, 3, 5):  # all but the real-time ones
            allow("sched_setscheduler", seccomp.Arg(1, seccomp.EQ, policy))
        program = tempfile.TemporaryFile()
        rules.export_bpf(program)
        program.seek(0)
        return program


def calls_of(name):
    """A system call, or all those of a group of systemd's."""
    if not name.startswith("@"):
        return {name}
    listed = subprocess.run(["systemd-analyze", "syscall-filter", "--no-pager", name], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    words = [line.strip() for line in listed.splitlines()[1:] if line.strip() and not line.strip().startswith("#")]
    return set().union(*map(calls_of, words))


def run(arguments, program, command):
    """Runs the command to its end; SIGTERM goes on to it, as bubblewrap does not pass it on."""
    read_end, write_end = os.pipe()
    sandbox = subprocess.Popen(["/usr/bin/bwrap", *arguments, "--seccomp", str(program.fileno()), "--info-fd",
                                str(write_end), "--", *command], pass_fds=(program.fileno(), write_end))
    os.close(write_end)
    with open(read_end, encoding="utf-8") as information:
        child = json.load(information)["child-pid"]
    signal.signal(signal.SIGTERM, lambda *_: os.kill(child, signal.SIGTERM))
    return sandbox.wait()


def main():
    files, command = sys.argv[1:sys.argv.index("--")], sys.argv[sys.argv.index("--") + 1:]
    unit = Unit.read(*files)
    arguments = unit.bubblewrap(command[0])
    unit.prepare()
    with unit.filter() as program:
        sys.exit(run(arguments, program, command))


if __name__ == "__main__":
    main()
