"""A real gpsd, a receiver that is a recording, and a client that writes down what gpsd reports."""

import json
import socket
import subprocess
import tempfile
import threading
import time

from harness.mailbox import DEADLINE, Mailbox, wait_until

LINES_AT_ONCE = 4  # then a pause, so that nobody's buffers overflow
PAUSE = 0.001
QUIET = 0.5  # s; what comes later is missed by the witness and the engine alike


def _unread(connection):
    """How much of what was sent through a connection its other end has not read; both are on this machine."""
    ends = [f"0100007F:{name[1]:04X}" for name in (connection.getpeername(), connection.getsockname())]
    with open("/proc/net/tcp", encoding="ascii") as table:
        for fields in map(str.split, table):
            if fields[1:3] == ends:
                return int(fields[4].split(":")[1], 16)
    raise AssertionError("gpsd has closed its receiver")


class Gpsd:
    """gpsd on a port of the sandbox; its receiver is a connection to us."""

    def __init__(self, port=2947):
        self.port = port
        self._connection = None
        self._receiver = socket.create_server(("127.0.0.1", 0))
        self._receiver.settimeout(DEADLINE)
        control = tempfile.mkdtemp()
        # Without -n the receiver is opened when the first client watches.
        self._process = subprocess.Popen(
            ["/usr/sbin/gpsd", "-b", "-N", "-S", str(port), "-F", f"{control}/control",
             f"tcp://127.0.0.1:{self._receiver.getsockname()[1]}"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def feed(self, recording):
        """Sends the whole recording and returns when gpsd has read it to its end."""
        # It stays open to the end: gpsd forgets what it has not decoded of a receiver that goes away.
        self._connection, _ = self._receiver.accept()
        with open(recording, "rb") as file:
            for number, line in enumerate(file):
                self._connection.sendall(line)
                if number % LINES_AT_ONCE == 0:
                    time.sleep(PAUSE)
        wait_until(lambda: not _unread(self._connection), "gpsd has read the recording")

    def stop(self):
        """Ends gpsd: its clients see the end of the stream."""
        if self._process.poll() is None:
            self._process.terminate()
            try:
                self._process.wait(2)
            except subprocess.TimeoutExpired:
                self._process.kill()
        self._process.wait(DEADLINE)
        self._receiver.close()
        if self._connection:
            self._connection.close()


class Witness:
    """An independent client of gpsd: the JSON reports as they come."""

    def __init__(self, gpsd):
        self._messages = Mailbox("gpsd's reports")
        self._socket = wait_until(lambda: self._connect(gpsd.port), "gpsd answers")
        # For reading only: a file for both ways forgets what it has read when another thread writes.
        self._lines = self._socket.makefile("r", newline="\n")
        self._ended = threading.Event()
        threading.Thread(target=self._read, daemon=True).start()

    @staticmethod
    def _connect(port):
        try:
            return socket.create_connection(("127.0.0.1", port), DEADLINE)
        except ConnectionError:
            return None

    def _read(self):
        for line in self._lines:
            self._messages.append(json.loads(line))
        self._ended.set()

    def _ask(self, request, answer):
        after = len(self._messages)
        self._socket.sendall(request.encode())
        self._messages.wait_index(lambda message: message["class"] == answer, after=after)

    def watch(self):
        self._socket.settimeout(None)
        self._messages.wait_index(lambda message: message["class"] == "VERSION")
        self._ask('?WATCH={"enable":true,"json":true};\n', "WATCH")

    def wait_quiet(self):
        """gpsd names no end of what it decodes: it has come when nothing more is reported for a while."""
        seen, since = -1, time.monotonic()
        while seen < len(self._messages) or time.monotonic() - since < QUIET:
            if seen < len(self._messages):
                seen, since = len(self._messages), time.monotonic()
            time.sleep(PAUSE)

    def all_reports(self):
        """Everything that gpsd reported until it ended the connection."""
        wait_until(self._ended.is_set, "gpsd has ended the connection")
        return [m for m in self._messages.items() if m["class"] in ("TPV", "SKY")]
