"""The policy file of the side channel, on a bus with Debian's own defaults for the system bus."""

from pathlib import Path

import pytest
from gi.repository import Gio, GLib

from harness import files, sidechannel, wire
from harness.mailbox import Mailbox
from harness.road import Road
from harness.sidechannel import FIXED, SideChannelPeer

POLICY = Path(__file__).resolve().parents[2] / "packaging" / "dbus" / "com.varn.lodestard.vesk.conf"
CALL = (sidechannel.NAME, sidechannel.PATH)


@pytest.fixture
def system(stage):
    """Makes the system bus for somebody who is in these groups."""
    def make(lodestard, lodestard_vesk):
        files.groups(user=True, lodestard=lodestard, lodestard_vesk=lodestard_vesk)
        return stage.use_system(policy=POLICY)
    yield make
    files.groups(user=True)


def refusal(call, *arguments):
    with pytest.raises(GLib.Error) as caught:
        call(*arguments)
    return caught.value.message


@pytest.mark.parametrize("peer_group", [True, False])
def test_outside_its_group_the_daemon_may_not_own_the_name(stage, system, peer_group):
    system(lodestard=False, lodestard_vesk=peer_group)
    daemon = stage.launch("-v")
    assert daemon.wait_exit() == 1
    assert daemon.errors() == ["init failed."]
    assert not daemon.has_message("PositionDaemon::init() VESK server done.")
    assert "com.varn.lodestard.vesk" in daemon.messages("Critical")[-1]  # the bus's own words


def test_a_peer_in_its_group_asks_and_hears(stage, system):
    bus = system(lodestard=True, lodestard_vesk=True)
    road = Road(stage, geoclue=False)
    peer = SideChannelPeer(bus)
    client = road.satellite_client()
    peer.request(sidechannel.START)
    assert peer.ask(FIXED) == 1
    road.report(client, wire.position(45.0, 22.5))
    assert peer.positions.wait_for(lambda _: True)[0] == pytest.approx(45.0, abs=1e-7)
    assert "positionMessage" in bus.introspect(*CALL)
    bus.call(bus.connect(), *CALL, "org.freedesktop.DBus.Peer", "Ping")


def test_a_stranger_may_not_call(stage, system):
    bus = system(lodestard=True, lodestard_vesk=False)
    daemon = stage.daemon()
    stranger = bus.connect()
    for interface, member, arguments in ((sidechannel.NAME, "request", GLib.Variant("(i)", (FIXED,))),
                                         ("org.freedesktop.DBus.Peer", "Ping", None),
                                         ("org.freedesktop.DBus.Introspectable", "Introspect", None)):
        assert "AccessDenied" in refusal(bus.call, stranger, *CALL, interface, member, arguments)
    assert not any("VESKRequest" in text for text in daemon.messages())


def test_a_stranger_hears_nothing(stage, system):
    bus = system(lodestard=True, lodestard_vesk=False)
    road = Road(stage, geoclue=False)
    stranger = SideChannelPeer(bus)
    settings = stage.settings()
    assert settings.set("WiFiPositioning", False)  # the daemon tells the peers of it
    road.settle()
    bus.owner_of("com.example.Anything")  # the bus has passed on what came before
    assert (stranger.settings.items(), stranger.positions.items()) == ([], [])


def test_signals_to_the_owner_alone_still_arrive(system):
    """As network-positioning services of the machine address theirs."""
    bus = system(lodestard=True, lodestard_vesk=False)
    owner, service = bus.connect(), bus.connect()
    bus.own(owner, sidechannel.NAME)
    heard = Mailbox("signals to the owner")
    owner.signal_subscribe(None, "com.example.Service", "Changed", None, None, Gio.DBusSignalFlags.NONE,
                           lambda *_: heard.append("Changed"))
    service.emit_signal(owner.get_unique_name(), "/com/example", "com.example.Service", "Changed", None)
    service.flush_sync(None)
    heard.wait_for("Changed")
