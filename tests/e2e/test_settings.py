"""The settings service: every key, its files, its signals and its refusals."""

import os
import signal
import stat
import time
from pathlib import Path

import pytest
from gi.repository import Gio, GLib

from harness import files, wire
from harness.mailbox import wait_until
from harness.peers import FakeBluez
from harness.settings import KEYS

SUPL_SERVER = os.environ["LODESTARD_SUPL_SERVER"]
ADDRESS = "00:1A:7D:DA:71:13"
NAME_KEY, ADDRESS_KEY = "SatellitePositioningExternalName", "SatellitePositioningExternalAddress"
INTERNAL_KEY = "SatellitePositioningInternal"
WRITABLE = [key for key, _, _, writable in KEYS if writable]
FIXED = [key for key, _, _, writable in KEYS if not writable]
SEEDED = [row for row in KEYS if row[0] != "InternalGpsDisabled"]
OTHER = {"b": lambda value: not value, "i": lambda value: value + 7, "s": lambda value: value + "changed"}


def default_of(row):
    return SUPL_SERVER if row[2] is None else row[2]


def text_of(value):
    return str(value).lower() if isinstance(value, bool) else str(value)


def other_value(row):
    return OTHER[row[1]](default_of(row))


def stored():
    return files.read_settings() if files.settings_path().exists() else {}


def wait_stored(condition, what="the settings file holds it"):
    return wait_until(lambda: condition(stored()), what)


def seed_lines(daemon):
    return [text for text in daemon.messages("Debug") if " setting: " in text]


def row_id(row):
    return row[0]


# ---- the table

@pytest.mark.parametrize("row", KEYS, ids=row_id)
def test_a_key_has_its_type_its_default_and_its_writer(stage, row):
    key, kind, _, writable = row
    daemon, settings = stage.daemon(), stage.settings()
    before = settings.get_variant(key)
    assert (before.get_type_string(), before.unpack()) == (kind, default_of(row))
    new = other_value(row) if key not in (NAME_KEY, ADDRESS_KEY) else ""  # those two ask bluez
    assert settings.set(key, new) == writable
    refusal = f'User is not allowed to change value for: "{key}"'
    assert daemon.has_message(refusal, "Warning") == (not writable)
    assert settings.get(key) == (new if writable else default_of(row))
    if writable:
        assert settings.announced()[0] == key
        assert stored()[key].strip('"') == text_of(new)  # on disk when the call returns
    else:
        assert settings.announced() == []


def test_the_first_start_writes_every_default(stage):
    daemon = stage.daemon()
    expected = {row[0]: text_of(default_of(row)) for row in KEYS}
    wait_stored(lambda found: {key: value.strip('"') for key, value in found.items()} == expected)
    assert seed_lines(daemon) == [f'Use default setting:  "{row[0]}" = "{text_of(default_of(row))}"' for row in SEEDED]


def test_the_operators_values_seed_what_the_user_lacks(stage):
    files.operator_settings(SuplFallback=False, PrimarySuplServer="supl.operator.example", PrimarySuplServerUsage=3)
    daemon, settings = stage.daemon(), stage.settings()
    lines = seed_lines(daemon)
    assert 'Use operator setting:  "SuplFallback" = "false"' in lines
    assert 'Use operator setting:  "PrimarySuplServer" = "supl.operator.example"' in lines
    assert 'Use operator setting:  "PrimarySuplServerUsage" = "3"' in lines
    assert 'Use default setting:  "Positioning" = "true"' in lines
    assert [line.split('"')[1] for line in lines] == [row[0] for row in SEEDED]
    assert settings.get("PrimarySuplServer") == "supl.operator.example"
    wait_stored(lambda found: found.get("SuplFallback") == "false" and found.get("PrimarySuplServerUsage") == "3")


def test_the_users_values_are_kept(stage):
    files.user_settings(Positioning=False, PrimarySuplServer="supl.user.example")
    files.operator_settings(Positioning=True, PrimarySuplServer="supl.operator.example", SuplFallback=False)
    daemon, settings = stage.daemon(), stage.settings()
    lines = seed_lines(daemon)
    assert lines[0] == 'Keep previous setting:  "Positioning" = "false"'
    assert 'Keep previous setting:  "PrimarySuplServer" = "supl.user.example"' in lines
    assert 'Use operator setting:  "SuplFallback" = "false"' in lines
    assert settings.get("PrimarySuplServer") == "supl.user.example"
    assert daemon.has_message("Settings: Satellite positioning [OFF]")


def test_a_later_operator_file_changes_nothing_before_a_reset(stage):
    first = stage.daemon()
    wait_stored(lambda found: len(found) == len(KEYS))
    first.stop()
    files.operator_settings(PrimarySuplServer="supl.operator.example")
    daemon, settings = stage.daemon(), stage.settings()
    assert all(line.startswith("Keep previous setting: ") for line in seed_lines(daemon))
    assert settings.get("PrimarySuplServer") == SUPL_SERVER
    assert settings.reset() is True
    assert settings.get("PrimarySuplServer") == "supl.operator.example"


def test_values_survive_a_restart(stage):
    stage.daemon()
    settings = stage.settings()
    assert settings.set("WiFiPositioning", False)
    assert settings.set("PrimarySuplServer", "name, with; odd=characters äö")
    stage.daemons[0].stop()
    daemon, settings = stage.daemon(), stage.settings()
    assert text_of(settings.get("WiFiPositioning")) == "false"
    assert settings.get("PrimarySuplServer") == "name, with; odd=characters äö"
    assert 'Keep previous setting:  "WiFiPositioning" = "false"' in seed_lines(daemon)


# ---- reading and writing

def test_an_unknown_key_is_answered_with_an_error_at_once(stage):
    daemon, settings = stage.daemon(), stage.settings()
    with pytest.raises(GLib.Error) as error:
        settings.call("getSetting", GLib.Variant("(s)", ("NoSuchKey",)), timeout=5)
    assert Gio.dbus_error_is_remote_error(error.value)
    assert Gio.dbus_error_get_remote_error(error.value) != "org.freedesktop.DBus.Error.NoReply"
    daemon.wait_for_message('Wrong location setting key: "NoSuchKey"', "Warning")
    assert settings.get("Positioning") is True


@pytest.mark.parametrize("key", ["NoSuchKey", "positioning", "", "Positioning ", "/Positioning"])
def test_an_unknown_key_cannot_be_written(stage, key):
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.set(key, True) is False
    daemon.wait_for_message(f'Location settings does not contain setting for: "{key}"', "Warning")
    assert settings.announced() == []


def test_a_key_of_the_file_that_no_table_knows_is_read_only(stage):
    files.user_settings(Stranger="here")
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.get("Stranger") == "here"
    assert settings.set("Stranger", "there") is False
    daemon.wait_for_message('User is not allowed to change value for: "Stranger"', "Warning")
    assert settings.get("Stranger") == "here"


def test_writing_the_same_value_is_announced_all_the_same(stage):
    stage.daemon()
    settings = stage.settings()
    for _ in range(2):
        assert settings.set("Positioning", True)
    assert settings.get("Positioning") is True
    assert settings.announced() == ["Positioning", "Positioning"]


@pytest.mark.parametrize("value", [
    GLib.Variant("s", "off the record"), GLib.Variant("i", -3), GLib.Variant("u", 4000000000), GLib.Variant("d", 2.5),
    GLib.Variant("x", -(1 << 40)), GLib.Variant("t", 1 << 40), GLib.Variant("n", -7), GLib.Variant("q", 7),
    GLib.Variant("y", 7), GLib.Variant("b", False),
], ids=lambda value: value.get_type_string())
def test_a_value_of_another_basic_type_is_accepted(stage, value):
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.set("NetworkPositioningMethod", value) is True
    assert settings.get("NetworkPositioningMethod") == value.unpack()
    assert not any("LocationSecureSettings" in text for text in daemon.messages("Critical"))


def test_variants_inside_variants_are_unwrapped(stage):
    stage.daemon()
    settings = stage.settings()
    assert settings.set("PrimarySuplServer", GLib.Variant("v", GLib.Variant("v", GLib.Variant("s", "inner")))) is True
    assert settings.get("PrimarySuplServer") == "inner"


@pytest.mark.parametrize("value", [
    GLib.Variant("as", ["one", "two"]), GLib.Variant("(ii)", (1, 2)), GLib.Variant("a{sv}", {}),
    GLib.Variant("o", "/a/path"), GLib.Variant("g", "ii"), GLib.Variant("ai", [1, 2]),
    GLib.Variant("a(ss)", [("a", "b")]), GLib.Variant("v", GLib.Variant("(s)", ("deep",))),
], ids=lambda value: value.get_type_string())
def test_a_value_that_the_file_cannot_hold_is_refused(stage, value):
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.set("PrimarySuplServer", value) is False
    daemon.wait_for_message("LocationSecureSettings::set: Cannot write setting PrimarySuplServer to disk", "Critical")
    assert settings.get("PrimarySuplServer") == SUPL_SERVER
    assert settings.announced() == []
    assert daemon.errors() == []


def test_a_call_with_the_wrong_arguments_gets_an_error(stage):
    stage.daemon()
    settings = stage.settings()
    with pytest.raises(GLib.Error):
        settings.call("setSetting", GLib.Variant("(s)", ("Positioning",)))
    with pytest.raises(GLib.Error):
        settings.call("noSuchMethod")
    assert settings.get("Positioning") is True


# ---- back to the defaults

def test_a_reset_announces_each_key_that_changed_in_the_order_of_the_table(stage):
    stage.daemon()
    settings = stage.settings()
    rows = {row[0]: row for row in KEYS}
    for key in ("SuplForced", "Positioning", "PrimarySuplOnlyGprs", "NetworkPositioningMethod"):
        assert settings.set(key, other_value(rows[key]))
    assert settings.set("WiFiPositioning", True)  # written, and equal to its default
    settings.forget_changes()
    assert settings.reset() is True
    for key in ("Positioning", "NetworkPositioningMethod", "PrimarySuplOnlyGprs", "SuplForced"):
        assert settings.get(key) == rows[key][2]
    assert settings.announced() == ["Positioning", "NetworkPositioningMethod", "PrimarySuplOnlyGprs", "SuplForced"]


def test_a_reset_of_defaults_is_silent(stage):
    stage.daemon()
    settings = stage.settings()
    assert settings.reset() is True
    assert settings.announced() == []


def test_a_reset_after_a_restart_compares_values_and_not_texts(stage):
    first = stage.daemon()
    wait_stored(lambda found: len(found) == len(KEYS))
    first.stop()
    stage.daemon()
    settings = stage.settings()
    assert settings.reset() is True
    assert settings.announced() == []


def test_a_reset_covers_the_operators_keys_and_leaves_the_internal_receiver(stage):
    files.user_settings(SuplFallback=False, PrimarySuplServerUsage=9, InternalGpsDisabled=True)
    files.operator_settings(PrimarySuplServerUsage=5, InternalGpsDisabled=True)
    stage.daemon()
    settings = stage.settings()
    assert settings.reset() is True
    assert text_of(settings.get("PrimarySuplServerUsage")) == "5"
    assert text_of(settings.get("SuplFallback")) == "true"
    assert text_of(settings.get("InternalGpsDisabled")) == "false"
    assert settings.announced() == ["PrimarySuplServerUsage", "SuplFallback"]


# ---- the internal receiver

@pytest.mark.parametrize("content, logged, disabled", [
    (b"\0", "0", True), (b"\0\x01", "0", True), (b"\x01", "1", False), (b"\x01\n", "1", False), (b"0", "30", False),
    (b"\xff", "FF", False), (b"\x0a\n", "A", False), (b"", None, False), (b"\n", None, False), (None, None, False),
])
def test_the_product_decides_on_the_internal_receiver(stage, content, logged, disabled):
    files.user_settings(InternalGpsDisabled=not disabled)  # the product wins over the file
    files.operator_settings(InternalGpsDisabled=not disabled)
    if content is not None:
        files.sysinfo(files.INTERNAL_GPS, content)
    daemon, settings = stage.daemon(), stage.settings()
    lines = [text for text in daemon.messages("Debug") if text.startswith("Internal gps disabled value:")]
    assert lines == ([f"Internal gps disabled value: {logged}"] if logged else [])
    assert settings.get("InternalGpsDisabled") is disabled
    assert not any("InternalGpsDisabled" in line for line in seed_lines(daemon))
    wait_stored(lambda found: found.get("InternalGpsDisabled") == text_of(disabled))


# ---- the remembered external receiver

def test_a_known_receiver_is_returned(stage):
    bluez = FakeBluez(stage.system, [ADDRESS])
    files.user_settings(**{NAME_KEY: "Mouse", ADDRESS_KEY: ADDRESS, INTERNAL_KEY: False})
    stage.daemon()
    settings = stage.settings()
    assert settings.get(NAME_KEY) == "Mouse"
    assert settings.get(ADDRESS_KEY) == ADDRESS
    assert settings.announced() == []
    for _, _, method, arguments in bluez.calls.items():
        assert method != "FindDevice" or arguments == (ADDRESS,)  # asked by address also for the name


def test_bluez_is_asked_only_when_something_is_remembered(stage):
    bluez = FakeBluez(stage.system, [ADDRESS])
    stage.daemon()
    settings = stage.settings()
    assert settings.get(NAME_KEY) == settings.get(ADDRESS_KEY) == ""
    assert bluez.calls.items() == []


@pytest.mark.parametrize("adapter", ["/org/bluez/1234/hci0", None, "no bluez"])
@pytest.mark.parametrize("key", [NAME_KEY, ADDRESS_KEY])
def test_an_unknown_receiver_is_forgotten(stage, key, adapter):
    if adapter != "no bluez":
        FakeBluez(stage.system, [], adapter=adapter)
    files.user_settings(**{NAME_KEY: "Mouse", ADDRESS_KEY: ADDRESS, INTERNAL_KEY: True})
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.get(key) == ""
    other = ADDRESS_KEY if key == NAME_KEY else NAME_KEY
    assert daemon.has_message("External BT device removed. Not returning it.", "Debug")
    if adapter and adapter != "no bluez":
        assert daemon.has_message(f'Could not find device id: "{ADDRESS}"', "Debug")
    else:
        assert daemon.has_message("Could not find default bluetooth adapter", "Warning")
    assert settings.announced() == [key]  # the internal receiver was chosen already
    wait_stored(lambda found: found.get(key) in ("", '""') and found[other] in ("Mouse", ADDRESS))


def test_losing_the_external_receiver_falls_back_to_the_internal_one(stage):
    bluez = FakeBluez(stage.system, [ADDRESS])
    files.user_settings(**{NAME_KEY: "Mouse", ADDRESS_KEY: ADDRESS, INTERNAL_KEY: False})
    stage.daemon()
    settings = stage.settings()
    assert settings.get(NAME_KEY) == "Mouse"
    bluez.remove_device(ADDRESS)
    settings.forget_changes()
    assert settings.get(NAME_KEY) == ""
    assert settings.get(INTERNAL_KEY) is True
    assert settings.announced()[:1] == [NAME_KEY]
    assert INTERNAL_KEY in settings.announced()
    wait_stored(lambda found: found[ADDRESS_KEY] == ADDRESS and found[INTERNAL_KEY] == "true")


# ---- assistance data

@pytest.mark.parametrize("mask, digits", [(0x01, "1"), (0xFD, "11111101"), (0xFF, "11111111"), (0x02, None), (0, None),
                                          (0x11111111, None), (-1, None)])
def test_assistance_data_is_cleared_with_the_mask_given(stage, ready_engine, mask, digits):
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.clear_assistance(mask) is True
    assert ready_engine.expect(wire.DeleteAssistance).mask == mask & 0xFFFFFFFF
    lines = [text for text in daemon.messages("Debug") if text.startswith("deleteAssistanceData")]
    assert lines == ([f"deleteAssistanceData 0x {digits}"] if digits else [])
    assert daemon.has_message(f"Deleting GPS assistance data ( {mask} ).", "Debug")


def test_assistance_data_without_an_internal_receiver_is_nothing(stage):
    files.sysinfo(files.INTERNAL_GPS, b"\0")
    daemon, settings = stage.daemon(), stage.settings()
    assert settings.clear_assistance(0xFF) is True
    assert not any(text.startswith("Deleting GPS") for text in daemon.messages())


# ---- the file

@pytest.mark.parametrize("user, home", [("user", "user"), ("root", "user"), ("bob", "bob")])
def test_the_user_decides_where_the_settings_lie(stage, user, home):
    stage.daemon(environment={"USER": user})
    assert stage.settings().set("WiFiPositioning", False)
    path = files.settings_path(Path("/home") / home)
    assert files.read_settings(path)["WiFiPositioning"] == "false"
    assert not path.is_symlink()
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    assert stat.S_IMODE(path.parent.stat().st_mode) == 0o700


def test_an_empty_user_is_taken_literally(stage):
    stage.daemon(environment={"USER": ""})
    assert stage.settings().set("WiFiPositioning", False)
    assert files.read_settings(Path("/home/.lodestard/private/location_settings"))["WiFiPositioning"] == "false"


def test_without_a_user_the_settings_live_in_memory(stage):
    """There is no file to write, as each change is told; the next start knows nothing of them."""
    def places():
        return [path for top in ("/home", "/tmp", "/run", "/var", "/etc/xdg") for path in Path(top).rglob("*location*")]

    root = os.listdir("/")
    daemon, settings = stage.daemon(environment={"USER": None}), stage.settings()
    assert settings.get("WiFiPositioning") is True
    assert settings.set("WiFiPositioning", False) is False
    assert daemon.messages("Critical")[-1] == "LocationSecureSettings::set: Cannot write setting WiFiPositioning to disk"
    assert settings.announced() == []
    assert settings.get("WiFiPositioning") is False
    assert (places(), os.listdir("/")) == ([], root)
    daemon.stop()
    stage.daemon(environment={"USER": None})
    assert settings.get("WiFiPositioning") is True


def fill(directory):
    """Writes until the file system is full."""
    filler = directory / "filler"
    with filler.open("wb", buffering=0) as file:
        size = 4096
        while size:
            try:
                file.write(b"x" * size)
            except OSError:
                size //= 2
    return filler


def test_a_full_disk_fails_the_write_and_the_next_one_makes_up_for_it(stage):
    daemon = stage.daemon(environment={"USER": files.SMALL_HOME.name})
    settings = stage.settings()
    path = files.settings_path(files.SMALL_HOME)
    assert settings.set("WiFiPositioning", False)
    settings.wait_for_change("WiFiPositioning")
    settings.forget_changes()
    filler = fill(files.SMALL_HOME)

    assert settings.set("Positioning", False) is False
    daemon.wait_for_message("LocationSecureSettings::set: Cannot write setting Positioning to disk", "Critical")
    assert settings.get("Positioning") is False  # changed in memory all the same
    assert settings.announced() == []
    assert files.read_settings(path)["Positioning"] == "true"

    filler.unlink()
    assert settings.set("CellularPositioning", False) is True
    settings.wait_for_change("CellularPositioning")
    found = files.read_settings(path)
    assert (found["WiFiPositioning"], found["Positioning"], found["CellularPositioning"]) == ("false",) * 3
    assert len(found) == len(KEYS)


def test_a_daemon_killed_while_it_writes_does_not_hold_up_the_next(stage):
    """Killed at ever later moments around the writing of its first file, again and again."""
    directory = files.settings_path().parent
    cut_short = 0
    for attempt in range(60):
        files.settings_path().unlink(missing_ok=True)
        daemon = stage.launch()
        stage.session.wait_owner("com.varn.lodestard.client")
        time.sleep(attempt * 0.0001)
        os.kill(daemon.pid, signal.SIGKILL)
        daemon.wait_exit()
        cut_short += any(path.name != "location_settings" for path in directory.iterdir())
        stage.session.wait_owner("com.varn.lodestard.client", present=False)
    print(f"{cut_short} of 60 left an unfinished file behind")
    stage.daemon()
    assert stage.settings().set("WiFiPositioning", False) is True
    assert stored()["WiFiPositioning"] == "false"
    assert [path.name for path in directory.iterdir()] == ["location_settings"]
