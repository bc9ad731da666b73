"""A program of the session as a child process: its lines and its end."""

import os
import subprocess
import threading
from pathlib import Path

from harness.daemon import SANITIZER_REPORT
from harness.mailbox import DEADLINE, Mailbox


def built(place):
    """The program at this place of the build directory."""
    path = Path(os.environ["LODESTARD_BUILD"], place)
    assert path.exists(), f"{path} is missing: build it first"
    return str(path)


class Program:
    """One process; what it writes arrives in `lines` and `errors`."""

    def __init__(self, path, *arguments, environment):
        name = os.path.basename(path)
        self.lines, self.errors = Mailbox(name), Mailbox(f"{name}, standard error")
        self._process = subprocess.Popen([path, *arguments], env=environment, stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self._threads = [threading.Thread(target=self._read, args=pair, daemon=True) for pair in (
            (self._process.stdout, self.lines), (self._process.stderr, self.errors))]
        for thread in self._threads:
            thread.start()

    @staticmethod
    def _read(pipe, mailbox):
        for line in pipe:
            mailbox.append(line.removesuffix("\n"))
        mailbox.close()
        pipe.close()

    def signal(self, number):
        self._process.send_signal(number)

    def status(self):
        """The exit status, once it has ended; all output has arrived then."""
        status = self._process.wait(DEADLINE)
        for thread in self._threads:
            thread.join(DEADLINE)
        return status

    def stop(self):
        """Ends the process if it still runs and fails on a sanitizer's report."""
        if self._process.poll() is None:
            self._process.terminate()
        self.status()
        assert not any(SANITIZER_REPORT.search(line) for line in self.errors.items()), self.errors.items()
