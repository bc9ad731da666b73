"""The engine that a test scripts: a real sequenced-packet server in the test process."""

import os
import select
import socket
import struct
import threading

from harness import wire
from harness.mailbox import Mailbox

REAL = "/var/run/orvd/orvd.socket"
TEST = "/tmp/orvd"


class ScriptedEngine:
    """Records every message of the daemon and sends what the test tells it to.

    A context manager; `answer_privacy` lets it answer the registration as an engine does.
    """

    def __init__(self, path=REAL, answer_privacy=True):
        self.path = path
        self.received = Mailbox("engine")
        self.connections = Mailbox("engine connections")
        self.malformed = []  # packets that break the protocol; closing fails on any
        self._answer_privacy = answer_privacy
        self._cursor = 0
        self._lock = threading.RLock()
        self._peer = None
        self._listener = None
        self._reading = True
        self._hangs_up = False
        self._wake_read, self._wake_write = os.pipe()
        self._ended = False
        self.listen()
        self._thread = threading.Thread(target=self._serve, name="engine", daemon=True)
        self._thread.start()

    # ---- the door

    def listen(self):
        """Accepts connections (again)."""
        with self._lock:
            os.makedirs(os.path.dirname(self.path), exist_ok=True)
            if os.path.lexists(self.path):
                os.unlink(self.path)
            self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
            self._listener.bind(self.path)
            self._listener.listen(8)
        self._wake()

    def refuse(self):
        """No new connections: the socket file stays, nobody listens. An open connection goes on."""
        with self._lock:
            if self._listener:
                self._listener.close()
                self._listener = None
        self._wake()

    def disconnect(self):
        """Closes the daemon's connection, as a dying engine does."""
        with self._lock:
            assert self._peer, "nobody is connected"
            self._peer.close()
            self._peer = None
        self._wake()

    def hang_up(self, always=True):
        """Closes every connection as soon as it is accepted, from now on; the open one at once."""
        self._hangs_up = always
        if always:
            self.disconnect()

    def stop_reading(self):
        """Leaves the daemon's messages where they are until its sends block."""
        self._reading = False
        self._wake()

    def resume_reading(self):
        self._reading = True
        self._wake()

    def wait_connected(self, count=1, timeout=None):
        """Waits for the count-th connection since the start."""
        self.connections.wait_index("connected", timeout=timeout, count=count)

    # ---- talking

    def send(self, *packets):
        with self._lock:
            assert self._peer, "nobody is connected"
            for packet in packets:
                self._peer.send(packet)

    def expect(self, kind, timeout=None, **fields):
        """The next message of this kind with these fields, behind the one expected before.
        Others on the way are passed over."""
        def wanted(message):
            return isinstance(message, kind) and all(getattr(message, n) == v for n, v in fields.items())
        wanted.__qualname__ = f"{kind.__name__}({fields})"
        index = self.received.wait_index(wanted, after=self._cursor, timeout=timeout)
        self._cursor = index + 1
        return self.received.items()[index]

    def pending(self, kind=object):
        """Messages that arrived behind the last expected one, all that the daemon has sent by now."""
        self._drain()
        return [m for m in self.received.items()[self._cursor:] if isinstance(m, kind)]

    def all(self, kind=object):
        self._drain()
        return [m for m in self.received.items() if isinstance(m, kind)]

    def skip(self):
        """What arrived up to now is no longer of interest."""
        self._drain()
        self._cursor = len(self.received)

    # ---- inside

    def _wake(self):
        os.write(self._wake_write, b"w")

    def _serve(self):
        while not self._ended:
            with self._lock:
                sockets = [s for s in (self._listener, self._peer if self._reading else None) if s]
            try:
                ready, _, _ = select.select([self._wake_read, *sockets], [], [])
            except (OSError, ValueError):  # closed by another thread meanwhile
                continue
            if self._wake_read in ready:
                os.read(self._wake_read, 4096)
            self._accept()
            if self._reading:
                self._drain()

    def _accept(self):
        with self._lock:
            if not self._listener or not select.select([self._listener], [], [], 0)[0]:
                return
            peer, _ = self._listener.accept()
            if self._peer:
                self._peer.close()
            self._peer = None if self._hangs_up else peer
            if self._hangs_up:
                peer.close()
            self.connections.append("connected")

    def _drain(self):
        """Takes in everything that has been sent by now; called by any thread."""
        with self._lock:
            while self._peer:
                try:
                    packet = self._peer.recv(65536, socket.MSG_DONTWAIT)
                except BlockingIOError:
                    return
                except ConnectionError:
                    packet = b""
                if not packet:
                    self._peer.close()
                    self._peer = None
                    self.connections.append("closed by the daemon")
                    return
                try:
                    message = wire.parse(packet)
                except (AssertionError, ValueError, struct.error) as error:
                    self.malformed.append(f"{packet.hex()}: {error}")
                    continue
                if isinstance(message, wire.RegisterPrivacy) and self._answer_privacy:
                    self._peer.send(wire.privacy_registered())
                self.received.append(message)

    def close(self):
        self._ended = True
        self._wake()
        self._thread.join(5)
        with self._lock:
            for each in (self._peer, self._listener):
                if each:
                    each.close()
            self._peer = self._listener = None
        os.close(self._wake_read)
        os.close(self._wake_write)
        assert not self.malformed, f"the daemon sent malformed messages: {self.malformed}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
