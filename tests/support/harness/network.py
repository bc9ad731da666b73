"""What tests of network positions share: places, log lines, and the client that waits for them."""

from harness import client as app
from harness.geoclue import Place
from harness.road import EMPTY_FIX

HOUR = 3600000
SENDING = "PositionDaemon: Sending Network Location request to VESK."
FALLBACK = "PositionDaemon::onPositionUpdateVESK: Unknown location. Fallback to SUPL"
HANDED_ON = "PositionDaemon::onPositionUpdateSUPL"
HELSINKI = Place(60.17, 24.94, accuracy=50.0)
TAMPERE = Place(61.5, 23.76, accuracy=60.0)


def finished(error):
    return f"VESKComm::veskRequestFinished vsek_err: {error}"


def network_client(stage, interval=HOUR, methods=app.NON_SATELLITE, extra=0):
    client = stage.client()
    client.start(methods, interval, extra)
    return client


def wait_for_empty(client, after=0):
    """Waits for one empty fix: its bytes, and that it tells of no place."""
    callback = client.wait_for("positionUpdate", after=after)
    assert callback.value == EMPTY_FIX


def only_fix(client):
    """The one callback that the client has got by now."""
    client.sync()
    (callback,) = client.callbacks.items()
    return callback
