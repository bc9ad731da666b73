"""The demo inside the sandbox: buses, engine, lodestard, and lodestar-watch in front.

    stage.py LEASH [lodestar-watch arguments]

LEASH is a descriptor; its end of file means that the demo is to end. Everything started here dies
with the sandbox. Runs with tests/support in PYTHONPATH; the programs come in LODESTARD,
LODESTAR_WATCH and ORVD_GPSD, a receiver's log in RECORDING. The user is asked for consent by
LODESTAR_DIALOGS on the display; without it the stage answers, and ANSWERS_ITSELF says why.
"""

import os
import select
import signal
import subprocess
import sys
import time
from pathlib import Path

from harness.buses import Bus
from harness.dialogs import NAME as DIALOGS
from harness.fakedialogs import FakeDialogs, Question

START_SECONDS = 30
ENGINE_SOCKET = Path("/run/orvd/orvd.socket")
OPERATOR_SETTINGS = Path("/etc/xdg/varn/location-settings.conf")
NETWORK_MILLISECONDS = "5000"  # between two positions of the network client
GPSD_PORT = "2947"  # on a loopback of the sandbox's own


class StageError(Exception):
    """Something does not start; the text says what."""


class AcceptingDialogs(FakeDialogs):
    """A user who allows positioning, and whom the network may not ask anything else."""

    def answer(self, path, interface, method, arguments, invocation):
        if method == "exit":
            invocation.return_value(None)
        else:
            Question(method, arguments, invocation).answer(method == "privacyDialog")


def say(text):
    print(text, file=sys.stderr, flush=True)


class Stage:
    def __init__(self, leash):
        self.leash = leash
        self.logs = {}

    def new_log(self, name):
        """A file for what `name` says, open for writing; only a failure shows it."""
        self.logs[name] = Path("/tmp", name.replace(" ", "-") + ".log")
        return open(self.logs[name], "wb")

    def start(self, name, *command, environment=None):
        """A program in the background, its output in a file; the terminal's Ctrl-C does not reach it."""
        with self.new_log(name) as log:
            return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
                                    env={**os.environ, **(environment or {})})

    def is_leashed(self):
        return not select.select([self.leash], [], [], 0)[0]

    def wait_until(self, condition, process, what):
        end = time.monotonic() + START_SECONDS
        while not condition():
            if not self.is_leashed():
                raise StageError("ended before it began")
            if process.poll() is not None or time.monotonic() > end:
                raise StageError(f"{what} does not start")
            time.sleep(0.05)

    def start_receiver_replay(self, recording):
        ENGINE_SOCKET.parent.mkdir()
        engine = self.start("orvd-gpsd", os.environ["ORVD_GPSD"], "--port", GPSD_PORT)
        self.wait_until(ENGINE_SOCKET.exists, engine, "orvd-gpsd")
        # Over and over, at a pace that can be watched.
        self.start("gpsfake", "/usr/bin/gpsfake", "-q", "-n", "-c", "0.1", "-P", GPSD_PORT, recording)

    def make_buses(self):
        dialogs = os.environ.get("LODESTAR_DIALOGS")
        return self.make_bus("session", {DIALOGS: dialogs} if dialogs else None), self.make_bus("system")

    def make_bus(self, kind, services=None):
        try:
            with self.new_log(f"{kind} bus") as log:
                return Bus(kind, services=services, log=log)
        except AssertionError as error:
            raise StageError(error) from None

    def ask_for_consent(self, session):
        """Sees to it that somebody answers; says on the terminal who."""
        why = os.environ.get("ANSWERS_ITSELF") or self.start_dialogs(session)
        if why:
            AcceptingDialogs(session)
            say(f"Positioning needs the user's consent. Since {why}, the demo gives it itself.")
        else:
            say("You are asked for consent on your display: positioning starts when you allow it.")

    def start_dialogs(self, session):
        """The first dialog's program, ahead of need: so it shows now whether the display can be used.
        Returns why not, if so. The bus starts it again for later dialogs."""
        dialogs = self.start("lodestar-dialogs", os.environ["LODESTAR_DIALOGS"],
                             environment={"DBUS_SESSION_BUS_ADDRESS": session.address})
        try:
            self.wait_until(lambda: session.owner_of(DIALOGS), dialogs, "lodestar-dialogs")
        except StageError:
            if not self.is_leashed():
                raise
            return "no dialog can be shown on this display"
        return None

    def start_daemon(self, source, session, system):
        addresses = {"DBUS_SESSION_BUS_ADDRESS": session.address, "DBUS_SYSTEM_BUS_ADDRESS": system.address}
        daemon = self.start("lodestard", os.environ["LODESTARD"], "-nl", "-nv", "-w",
                            environment={**addresses, "POSITIONING_SOURCE": source})
        self.wait_until(lambda: session.owner_of("com.varn.lodestard.client"), daemon, "lodestard")
        return addresses

    def watch(self, arguments, addresses):
        """lodestar-watch with the terminal, until it ends; its exit status."""
        watch = subprocess.Popen([os.environ["LODESTAR_WATCH"], *arguments], env={**os.environ, **addresses})
        process = os.pidfd_open(watch.pid)
        if process not in select.select([process, self.leash], [], [])[0]:
            watch.send_signal(signal.SIGTERM)
        return watch.wait()

    def show_logs(self):
        for name, log in self.logs.items():
            for line in log.read_text(encoding="utf-8", errors="replace").splitlines()[-15:]:
                say(f"  {name}: {line}")


def how_it_ends(arguments):
    if "--seconds" not in arguments:
        return "Ctrl-C ends the demo."
    return f"The demo ends after {arguments[arguments.index('--seconds') + 1]} s, or with Ctrl-C."


def play(stage, arguments):
    recording = os.environ.get("RECORDING")
    if recording:
        say(f"lodestard, fed with {os.path.basename(recording)} through gpsfake, gpsd and orvd-gpsd.")
        stage.start_receiver_replay(recording)
    else:
        say("lodestard, fed by the test engine: a simulated receiver that walks around.")
        say("Beside the satellite client a network client: every 5 s the engine looks up a coarse position for it.")
        say("While the engine starts, the network has no position yet.")
        OPERATOR_SETTINGS.write_text("[General]\nSuplForced=true\n", encoding="utf-8")
        arguments = [*arguments, "--network", NETWORK_MILLISECONDS]
    session, system = stage.make_buses()
    stage.ask_for_consent(session)
    say(how_it_ends(arguments))
    return stage.watch(arguments, stage.start_daemon("REAL" if recording else "FAKE", session, system))


def main():
    stage = Stage(int(sys.argv[1]))
    try:
        status = play(stage, sys.argv[2:])
    except StageError as error:
        say(f"run-demo: {error}.")
        stage.show_logs()
        return 1
    if status != 0:
        say("run-demo: fixes did not arrive." if status == 1 else f"run-demo: lodestar-watch ended with status {status}.")
        stage.show_logs()
    return status


if __name__ == "__main__":
    sys.exit(main())
