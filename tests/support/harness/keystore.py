"""The configuration store of the handset, through its own command, as another program uses it."""

import os
import subprocess

from harness.mailbox import DEADLINE, wait_until

FOLDER = "/system/tavi/location/settings"
STORE = os.environ["LODESTARD_STATUS_KEYS"]
_GCONF_TYPES = {bool: "bool", int: "int", float: "float", str: "string"}
_READERS = {"bool": lambda text: text == "true", "int": int, "float": float, "string": str}


class KeyStore:
    """The status keys by their names. The value's Python type is the store's type; None is unset."""

    def __init__(self, bus, environment=None):
        self._environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": bus.address, **(environment or {})}

    def read(self, name):
        return self._read_dconf(f"{FOLDER}/{name}") if STORE == "dconf" else self._read_gconf(f"{FOLDER}/{name}")

    def write(self, name, value):
        text = str(value).lower() if isinstance(value, bool) else str(value)
        if STORE == "dconf":
            self._run("dconf", "write", f"{FOLDER}/{name}", text)
        else:
            self._run("gconftool-2", "--type", _GCONF_TYPES[type(value)], "--set", "--", f"{FOLDER}/{name}", text)

    def all(self):
        """What the four keys hold."""
        return {name: self.read(name) for name in ("magneticvariation", "satellitePositioning", "networkPositioning",
                                                   "VESK")}

    def wait_for(self, name, value):
        wait_until(lambda: self.read(name) == value, f"{name} is {value}", poll=0.05)

    def _read_dconf(self, path):
        text = self._run("dconf", "read", path)
        if text in ("", "true", "false"):
            return None if not text else text == "true"
        return float(text) if "." in text else int(text)

    def _read_gconf(self, path):
        kind = self._run("gconftool-2", "--get-type", path)
        return _READERS[kind](self._run("gconftool-2", "--get", path)) if kind in _READERS else None

    def _run(self, *command):
        return subprocess.run(command, env=self._environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              text=True, timeout=DEADLINE, check=True).stdout.strip()
