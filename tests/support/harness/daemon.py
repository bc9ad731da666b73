"""The real daemon as a child process: its arguments, its environment, its lines, its end."""

import glob
import os
import re
import select
import signal
import subprocess
import threading

from harness.mailbox import DEADLINE, Mailbox, wait_until

LINE = re.compile(r"^(\d\d:\d\d:\d\d) (Debug|Warning|Critical|Fatal): (.*)$", re.DOTALL)
SANITIZER_REPORT = re.compile(r"(ERROR: (Address|Leak)Sanitizer|runtime error:|SUMMARY: \w+Sanitizer)")
SETTINGS_SERVICE = "com.varn.lodestard.settings"
INIT_DONE = "PositionDaemon::init() done."


def binary():
    path = os.environ.get("LODESTARD_BINARY", "")
    assert os.access(path, os.X_OK), f"LODESTARD_BINARY is {path!r}: build the daemon first"
    return path


def is_sanitized():
    """Is this a build with the sanitizers?"""
    with open(os.path.join(os.environ["LODESTARD_BUILD"], "CMakeCache.txt"), encoding="utf-8") as cache:
        return "-fsanitize=address" in cache.read()


def faketime_library():
    found = glob.glob("/usr/lib/*/faketime/libfaketime.so.1")
    assert found, "libfaketime is missing"
    return found[0]


def preloadable(library):
    """A place of the library that LD_PRELOAD can name: blanks and colons separate there."""
    link = f"/.preload-{os.path.basename(library)}"  # beside the places that are emptied before each test
    if not os.path.lexists(link):
        os.symlink(library, link)
    return link


class _Lines:
    """Moves the lines of a pipe into a mailbox: on a thread, and at once when somebody asks."""

    def __init__(self, pipe, mailbox):
        self._pipe, self._mailbox = pipe, mailbox
        self._rest = b""
        self._open = True
        self._lock = threading.Lock()
        threading.Thread(target=self._run, daemon=True).start()

    def _run(self):
        while self._open:
            select.select([self._pipe], [], [])
            self.drain()
        self._mailbox.close()
        self._pipe.close()

    def drain(self):
        """Takes in what has been written by now."""
        with self._lock:
            while self._open and select.select([self._pipe], [], [], 0)[0]:
                chunk = os.read(self._pipe.fileno(), 65536)
                self._open = bool(chunk)
                *lines, self._rest = (self._rest + chunk).split(b"\n")
                if not chunk and self._rest:
                    lines.append(self._rest)
                for line in lines:
                    self._mailbox.append(line.decode("utf-8", "replace"))


class Daemon:
    """One process. `faketime` is libfaketime's specification ("+0 x60"), or a clock that the test moves; `preload`
    lists libraries; an environment value of None removes the variable."""

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
            "LSAN_OPTIONS": f"suppressions='{os.path.dirname(__file__)}/lsan.supp':print_suppressions=0",
        }
        libraries = [preloadable(library) for library in preload]
        if isinstance(faketime, str):
            libraries.append(faketime_library())
            variables["FAKETIME"] = faketime
        elif faketime:
            libraries.append(preloadable(faketime.library))
            variables.update(faketime.environment)
        if libraries:
            variables["LD_PRELOAD"] = ":".join(libraries)
        variables.update(environment or {})
        self._detached_pid = None
        self._process = subprocess.Popen(
            [*wrapper, binary(), *arguments], env={n: v for n, v in variables.items() if v is not None}, cwd=cwd,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        self._pipes = [_Lines(self._process.stdout, self.stdout), _Lines(self._process.stderr, self.stderr)]

    @property
    def pid(self):
        return self._detached_pid or self._process.pid

    def wait_detached(self, bus):
        """For -d: waits for the parent's end, then for the child to serve; `pid` is the child's from then on."""
        status = self._process.wait(DEADLINE)
        bus.wait_owner(SETTINGS_SERVICE)
        self._detached_pid = bus.pid_of(SETTINGS_SERVICE)
        return status

    # ---- lines

    def lines(self):
        """All lines that the daemon has written by now."""
        self._drain()
        return self.stdout.items()

    def errors(self):
        """What stands on standard error by now."""
        self._drain()
        return self.stderr.items()

    def _drain(self):
        for pipe in self._pipes:
            pipe.drain()

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
        return len(self.lines())

    def wait_ready(self, timeout=None):
        self.wait_for_line(INIT_DONE, timeout)
        return self

    def wake_ups(self):
        """How often each thread has given up the processor to wait, by thread."""
        tasks = [task.name for task in os.scandir(f"/proc/{self.pid}/task")]
        return {task: int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)$", self.proc(f"task/{task}/status"), re.M)[1])
                for task in tasks}

    # ---- the end

    def signal(self, number):
        os.kill(self.pid, number)

    def is_running(self):
        if self._detached_pid:
            return os.path.exists(f"/proc/{self._detached_pid}")
        return self._process.poll() is None

    def proc(self, name):
        """A text file of the process below /proc."""
        with open(f"/proc/{self.pid}/{name}", encoding="utf-8") as file:
            return file.read()

    def status(self, name):
        """One field of /proc/PID/status."""
        return re.search(rf"^{name}:\s*(.*)$", self.proc("status"), re.MULTILINE)[1]

    def wait_exit(self, timeout=None):
        """The exit status; negative is the signal that ended the process. All output has arrived then."""
        status = self._process.wait(DEADLINE if timeout is None else timeout)
        if self._detached_pid:
            wait_until(lambda: not self.is_running(), "the detached process has ended", timeout)
            status = None  # its parent was not this test
        self._drain()  # not to the end of the pipes: a test engine that it started may hold them
        return status

    def stop(self):
        """Ends the process if it still runs and fails on a sanitizer's report."""
        try:
            if self.is_running():
                self.signal(signal.SIGCONT)
                self.signal(signal.SIGTERM)
            self.wait_exit()
        except (subprocess.TimeoutExpired, AssertionError):
            self.signal(signal.SIGKILL)
            self.wait_exit()
            raise AssertionError("lodestard did not end on SIGTERM") from None
        finally:
            self._end_children()
            self.check_sanitizers()

    def _end_children(self):
        """A test engine that the daemon started outlives it, in its process group."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass

    def check_sanitizers(self):
        assert not any(SANITIZER_REPORT.search(line) for line in self.errors()), "\n".join(self.errors())
