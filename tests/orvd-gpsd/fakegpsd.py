"""gpsd's side of its JSON protocol, played by the test: it says exactly what the test tells it to."""

import json
import socket
import threading

from harness.mailbox import DEADLINE, Mailbox


class FakeGpsd:
    """Listens on a port of its own choice; `port` gives it another. One client at a time is served."""

    def __init__(self, port=0):
        self.requests = Mailbox("gpsd")
        self._listener = socket.create_server(("127.0.0.1", port))
        self.port = self._listener.getsockname()[1]
        self._client = None
        self._watched = threading.Condition()
        self._connections = 0
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            client.sendall(b'{"class":"VERSION","release":"3.22","rev":"3.22","proto_major":3,"proto_minor":14}\r\n')
            threading.Thread(target=self._read, args=(client,), daemon=True).start()

    def _read(self, client):
        with client.makefile() as lines:
            for line in lines:
                self.requests.append(line.strip())
                if line.startswith("?WATCH") and '"enable":true' in line:
                    with self._watched:
                        self._client = client
                        self._connections += 1
                        self._watched.notify_all()
        self.requests.append("gone")

    def wait_watched(self, count=1):
        """Waits for the count-th client since the start that asked for reports."""
        with self._watched:
            assert self._watched.wait_for(lambda: self._connections >= count, DEADLINE), "nobody watches gpsd"
        return self

    @property
    def connections(self):
        with self._watched:
            return self._connections

    def say(self, *reports):
        self._client.sendall(b"".join(json.dumps(report, separators=(",", ":")).encode() + b"\r\n" for report in reports))

    def say_raw(self, data):
        self._client.sendall(data)

    def hang_up(self):
        """Ends the client's connection; the next one is welcome."""
        self._client.shutdown(socket.SHUT_RDWR)
        self._client.close()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)  # or the thread that waits in it keeps it open
        self._listener.close()
        if self._client:
            self._client.close()


def tpv(seconds=None, mode=3, lat=50.0, lon=4.0, **fields):
    """A fix report of a moment in 2023, so many seconds after its start."""
    report = {"class": "TPV", "device": "/dev/gps", "mode": mode}
    if seconds is not None:
        minutes, rest = divmod(seconds, 60)
        report["time"] = f"2023-11-14T22:{int(minutes):02}:{rest:06.3f}Z"
    if mode > 1:
        report.update(lat=lat, lon=lon, **fields)
    return report


def sky(*satellites, **fields):
    """A sky of satellites, each (PRN, used) or (PRN, used, signal, elevation, azimuth)."""
    listed = []
    for prn, used, *rest in satellites:
        signal, elevation, azimuth = rest or (30.0, 45.0, 90.0)
        entry = {"PRN": prn, "used": used, "ss": signal, "el": elevation, "az": azimuth}
        listed.append({key: value for key, value in entry.items() if value is not None})
    return {"class": "SKY", "device": "/dev/gps", "nSat": len(listed), "uSat": sum(s["used"] for s in listed),
            "satellites": listed, **fields}
