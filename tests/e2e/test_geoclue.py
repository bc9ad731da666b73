"""Network positions from Debian's own GeoClue daemon."""

import os

import pytest

from harness import client as app
from harness import files, stream
from harness.mailbox import wait_until
from harness.realgeoclue import PROGRAM, RealGeoClue
from harness.road import EMPTY_FIX

HOUR = 3600000


@pytest.fixture
def geoclue(stage, request):
    assert os.access(PROGRAM, os.X_OK), "geoclue-2.0 is not installed (tools/install-deps installs it)"
    geoclue = RealGeoClue(stage.system, getattr(request, "param", (60.17, 24.94, 500.0)))
    return stage.keep(geoclue, geoclue.close)


def test_its_position_reaches_an_application(stage, geoclue):
    daemon = stage.consented_daemon()
    client = stage.client()
    client.start(app.NON_SATELLITE, HOUR)
    fix = client.wait_for_fix()
    assert (fix.valid, fix.latitude, fix.longitude) == (True, pytest.approx(60.17), pytest.approx(24.94))
    assert fix.attributes == {stream.HORIZONTAL_ACCURACY: 500.0}
    assert geoclue.service.requests.items() == [b"{}"]
    assert daemon.has_message("VESKComm::veskRequestFinished vsek_err: 0", "Debug")
    wait_until(lambda: not geoclue.in_use(), "GeoClue goes idle")


def test_the_next_period_brings_what_it_knows_by_then(stage, geoclue):
    daemon = stage.consented_daemon()
    client = stage.client()
    client.start(app.NON_SATELLITE, 2000)
    client.wait_for_fix()
    # The network has not changed, so GeoClue tells the same without asking; the client has it.
    daemon.wait_for_message("VESKComm::veskRequestFinished vsek_err: 0", count=3)
    client.sync()
    assert len(client.fixes()) == 1
    client.stop()
    wait_until(lambda: not geoclue.in_use(), "GeoClue goes idle")


@pytest.mark.parametrize("geoclue", [None], indirect=True, ids=["nobody knows the network"])
def test_what_it_cannot_find_is_an_empty_fix_in_time(stage, geoclue):
    files.operator_settings(SuplFallback=False)
    daemon = stage.consented_daemon(faketime="+0 x10")
    client = stage.client()
    client.start(app.NON_SATELLITE, HOUR)
    client.wait_for_fix()
    assert client.received("positionUpdate")[0].value == EMPTY_FIX
    assert daemon.has_message("VESKComm::veskRequestFinished vsek_err: -2105")
    assert geoclue.service.requests.items() == [b"{}"]
    wait_until(lambda: not geoclue.in_use(), "GeoClue goes idle")
