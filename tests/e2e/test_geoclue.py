"""Network positions from Debian's own GeoClue daemon, and who there may refuse them."""

import os

import pytest

from harness import client as app
from harness import files, stream
from harness.geoclue import EXACT
from harness.mailbox import wait_until
from harness.realgeoclue import PROGRAM, Agent, OwnAgent, RealGeoClue
from harness.road import EMPTY_FIX

HOUR = 3600000
HELSINKI = (60.17, 24.94, 500.0)
DESKTOP_ID = "lodestard"


def start_geoclue(stage, place=HELSINKI, **options):
    assert os.access(PROGRAM, os.X_OK), "geoclue-2.0 is not installed (tools/install-deps installs it)"
    geoclue = RealGeoClue(stage.system, place, **options)
    return stage.keep(geoclue, geoclue.close)


@pytest.fixture
def geoclue(stage, request):
    geoclue = start_geoclue(stage, getattr(request, "param", HELSINKI))
    Agent(stage.system)
    return geoclue


def first_network_fix(stage):
    """The daemon, and the first fix that an application of network positions gets."""
    daemon = stage.consented_daemon()
    client = stage.client()
    client.start(app.NON_SATELLITE, HOUR)
    return daemon, client.wait_for_fix()


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


# ---- who may

def test_its_own_agent_is_enough(stage):
    start_geoclue(stage)
    agent = OwnAgent(stage.system)
    stage.keep(agent, agent.close)
    assert first_network_fix(stage)[1].valid


def test_no_agent_is_asked_about_a_program_of_the_system(stage):
    """So there need not be a desktop entry, which agents look for when they are asked."""
    start_geoclue(stage)
    agent = Agent(stage.system)
    assert first_network_fix(stage)[1].valid
    assert agent.asked.items() == []


@pytest.mark.parametrize("level, allowed", [(0, True), (EXACT, False)],
                         ids=["the user has switched location off", "the administrator refuses"])
def test_who_may_refuse(stage, level, allowed):
    files.operator_settings(SuplFallback=False)
    start_geoclue(stage, sections=f"[{DESKTOP_ID}]\nallowed={str(allowed).lower()}\nsystem=false\nusers=\n")
    Agent(stage.system, level)
    daemon, fix = first_network_fix(stage)
    assert not fix.valid
    assert daemon.has_message("VESKComm::veskRequestFinished vsek_err: -2104")
