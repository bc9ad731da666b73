"""A screen of the test's own: an X server that nobody sees, and a keyboard in front of it."""

import os
import subprocess

from harness.mailbox import DEADLINE, wait_until

KEY_PAUSE = 0.2  # between two tries of a key: dialogs ignore what is typed before they can be read


class Display:
    """`authority` is a file of cookies: only who brings one may use the display then."""

    def __init__(self, size="1366x768x24", authority=None):
        self.environment = {"XAUTHORITY": str(authority)} if authority else {}
        read, write = os.pipe()
        self._server = subprocess.Popen(
            ["/usr/bin/Xvfb", "-displayfd", str(write), "-screen", "0", size, "-nolisten", "tcp", "-noreset",
             *(["-auth", str(authority)] if authority else [])],
            pass_fds=(write,), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write)
        with os.fdopen(read, encoding="ascii") as number:
            self.name = ":" + number.readline().strip()  # once it takes connections
        assert self.name != ":", "Xvfb does not start"
        self.environment["DISPLAY"] = self.name

    def _xdotool(self, *arguments):
        return subprocess.run(["/usr/bin/xdotool", *arguments], env={**os.environ, **self.environment}, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=DEADLINE).stdout

    def windows(self, title):
        """Ids of the windows that are to be seen and have exactly this title."""
        return self._xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()

    def wait_window(self, title):
        """Waits until a window with this title has the keyboard."""
        def has_keyboard():
            focus = self._xdotool("getwindowfocus").split()
            return focus and focus[0] in self.windows(title)
        wait_until(has_keyboard, f"the window {title!r} has the keyboard")

    def wait_no_window(self, title):
        wait_until(lambda: not self.windows(title), f"no window {title!r} is left")

    def press(self, key, until):
        """Types the key (in xdotool's words: "Return", "alt+a") until the condition holds."""
        def pressed():
            self._xdotool("key", key)
            return until()
        wait_until(pressed, f"{key} has its effect", poll=KEY_PAUSE)

    def stop(self):
        self._server.kill()
        self._server.wait()
