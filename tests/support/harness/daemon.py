"""The real daemon as a child process: its arguments, its environment, its lines, its end."""

import glob
import os
import re
import signal
import subprocess
import threading

from harness.mailbox import DEADLINE, Mailbox

LINE = re.compile(r"^(\d\d:\d\d:\d\d) (Debug|Warning|Critical|Fatal): (.*)$", re.DOTALL)
SANITIZER_REPORT = re.compile(r"(ERROR: (Address|Leak)Sanitizer|runtime error:|SUMMARY: \w+Sanitizer)")
INIT_DONE = "PositionDaemon::init() done."


def binary():
    path = os.environ.get("LODESTARD_BINARY", "")
    assert os.access(path, os.X_OK), f"LODESTARD_BINARY is {path!r}: build the daemon first"
    return path


def faketime_library():
    found = glob.glob("/usr/lib/*/faketime/libfaketime.so.1")
    assert found, "libfaketime is missing"
    return found[0]


class Daemon:
    """One process. `faketime` is libfaketime's specification ("+0 x60"); `preload` lists libraries;
    an environment value of None removes the variable."""

    def __init__(self, session, system, arguments=("-v",), environment=None, faketime=None, preload=(),
                 wrapper=(), cwd="/"):
        self.stdout = Mailbox("lodestard's output")
        self.stderr = Mailbox("lodestard's standard error")
        variables = {
            **os.environ,
            "DBUS_SESSION_BUS_ADDRESS": session.address if session else "unix:path=/nonexistent",
            "DBUS_SYSTEM_BUS_ADDRESS": system.address if system else "unix:path=/nonexistent",
            # Preloaded libraries stand before the sanitizer's own; only exit status 99 is its report.
            "ASAN_OPTIONS": "verify_asan_link_order=0:exitcode=99:detect_leaks=1",
            "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1:exitcode=99",
            "LSAN_OPTIONS": f"suppressions={os.path.dirname(__file__)}/lsan.supp:print_suppressions=0",
        }
        libraries = list(preload)
        if faketime:
            libraries.append(faketime_library())
            variables["FAKETIME"] = faketime
        if libraries:
            variables["LD_PRELOAD"] = ":".join(libraries)
        variables.update(environment or {})
        self._process = subprocess.Popen(
            [*wrapper, binary(), *arguments], env={n: v for n, v in variables.items() if v is not None}, cwd=cwd,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        self._threads = [self._reader(self._process.stdout, self.stdout),
                         self._reader(self._process.stderr, self.stderr)]

    @staticmethod
    def _reader(pipe, mailbox):
        def read():
            for line in pipe:
                mailbox.append(line.decode("utf-8", "replace").removesuffix("\n"))
            mailbox.close()
            pipe.close()
        thread = threading.Thread(target=read, daemon=True)
        thread.start()
        return thread

    @property
    def pid(self):
        return self._process.pid

    # ---- lines

    def lines(self):
        return self.stdout.items()

    def messages(self, level=None):
        """The texts of the message lines, of one level or of all."""
        found = (LINE.match(line) for line in self.lines())
        return [m[3] for m in found if m and level in (None, m[2])]

    def wait_for_line(self, wanted, timeout=None, after=0, count=1):
        """Waits for a line that holds a text (or matches a pattern) and returns it."""
        return self.stdout.wait_for(wanted, after=after, timeout=timeout, count=count)

    def wait_for_message(self, text, level=None, timeout=None, after=0, count=1):
        """Waits for a message with exactly this text; returns the line's index."""
        def wanted(line):
            found = LINE.match(line)
            return bool(found) and found[3] == text and level in (None, found[2])
        wanted.__qualname__ = f"{level or 'message'} {text!r}"
        return self.stdout.wait_index(wanted, after=after, timeout=timeout, count=count)

    def has_message(self, text, level=None):
        return text in self.messages(level)

    def mark(self):
        """A place in the output, for `after`."""
        return len(self.stdout)

    def wait_ready(self, timeout=None):
        self.wait_for_line(INIT_DONE, timeout)
        return self

    # ---- the end

    def signal(self, number):
        os.kill(self.pid, number)

    def is_running(self):
        return self._process.poll() is None

    def wait_exit(self, timeout=None):
        """The exit status; negative is the signal that ended the process. All output has arrived then."""
        status = self._process.wait(DEADLINE if timeout is None else timeout)
        for thread in self._threads:
            thread.join(DEADLINE)
        return status

    def stop(self):
        """Ends the process if it still runs and fails on a sanitizer's report."""
        try:
            if self.is_running():
                self.signal(signal.SIGCONT)
                self.signal(signal.SIGTERM)
            self.wait_exit(5)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self.wait_exit()
            raise AssertionError("lodestard did not end on SIGTERM") from None
        finally:
            self.check_sanitizers()

    def check_sanitizers(self):
        reports = [line for line in self.stderr.items() if SANITIZER_REPORT.search(line)]
        assert not reports, "\n".join(self.stderr.items())
