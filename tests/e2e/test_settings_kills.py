"""A daemon that is killed while applications change settings: what was acknowledged is kept, all of it."""

import os
import random
import signal
import time

from gi.repository import Gio, GLib

from harness import files
from harness import settings as service
from harness.mailbox import Mailbox
from harness.settings import KEYS

ROUNDS = 200
KEY = "PrimarySuplServer"
BURST = 60            # changes that are on their way when the daemon is killed
LONGEST_LIFE = 0.015  # s, from the first acknowledgement


def server(number):
    """A text whose length tells its number, too."""
    return f"{number}." + "x" * (number % 61)


def change(settings, numbers, acknowledged):
    """Sends a change for each number, without waiting."""
    def answered(connection, result, number):
        try:
            if connection.call_finish(result).unpack() == (True,):
                acknowledged.append(number)
        except GLib.Error:
            pass  # the daemon was dead by then
    for number in numbers:
        settings.connection.call(service.SERVICE, service.PATH, service.INTERFACE, "setSetting",
                                 GLib.Variant("(sv)", (KEY, GLib.Variant("s", server(number)))), None,
                                 Gio.DBusCallFlags.NO_AUTO_START, 20000, None, answered, number)


def test_what_was_acknowledged_is_kept(stage):
    settings = stage.settings()
    sent, cut_short = 0, 0
    for _ in range(ROUNDS):
        daemon = stage.launch()
        stage.wait_serving()
        acknowledged = Mailbox("acknowledged changes")
        burst = range(sent + 1, sent + BURST + 1)
        change(settings, burst, acknowledged)
        acknowledged.wait_for(lambda number: number == burst[0])
        time.sleep(random.uniform(0, LONGEST_LIFE))  # any moment
        os.kill(daemon.pid, signal.SIGKILL)
        daemon.wait_exit()
        stage.session.wait_owner(service.SERVICE, present=False)
        settings.announced()  # the answers that were on their way have arrived
        sent = burst[-1]
        found = files.read_settings()
        kept = int(found[KEY].split(".")[0])
        assert kept in burst and kept >= max(acknowledged.items())
        assert found[KEY] == server(kept)
        assert set(found) == {row[0] for row in KEYS}
        cut_short += len(list(files.settings_path().parent.iterdir())) > 1
    print(f"{cut_short} of {ROUNDS} left an unfinished file behind")
    assert cut_short > 0  # else no kill came while a file was being written
    stage.daemon()
    assert stage.settings().get(KEY) == found[KEY]
    assert [path.name for path in files.settings_path().parent.iterdir()] == ["location_settings"]
