"""Log files: R&D mode, the marker file, the device-information banner and the message lines."""

import os
import re
import stat

import pytest

from harness import files
from harness.daemon import LINE
from harness.mailbox import wait_until

NAME = "/home/user/MyDocs/location_logs/lodestard_{}.log"
CREATING = "Creating log file: " + NAME
REQUESTED = "lodestard logfile requested by file."
MARKER = files.LOGS / "log_lodestard"
RULE = "-" * 39
KEYS = ("/component/product-name", "/component/product", "/component/hw-build", "/component/keppo",
        "/component/boot-reason", "/component/boot-mode", "/device/sw-release-ver", "/device/content-ver",
        "/device/hw-version", "/device/production-sn", "/device/product-code", "/device/order-number",
        "/device/basic-product-code", "/device/rd-mode", "/device/rd-flags")


@pytest.fixture
def documents():
    files.DOCUMENTS.mkdir(parents=True)
    return files.DOCUMENTS


@pytest.fixture
def rd_device(documents):
    files.rd_mode()
    return documents


def log(number=1):
    return files.LOGS / f"lodestard_{number}.log"


def logs_found():
    return sorted(path.name for path in files.LOGS.glob("*.log")) if files.LOGS.exists() else []


# ---- R&D mode decides

@pytest.mark.parametrize("value, rd_mode", [
    (b"enabled", True), (b"enabled\n", True), (b"enabledXYZ", True), (b"enabled\0\0", True), (b"enabled nonetheless", True),
    (b"enable", False), (b"enable\n", False), (b"Enabled", False), (b" enabled", False), (b"disabled", False),
    (b"", False), (None, False),
])
def test_a_log_file_exists_in_rd_mode_only(stage, documents, value, rd_mode):
    if value is not None:
        files.rd_mode(value)
    daemon = stage.daemon("-l")
    assert (CREATING.format(1) in daemon.lines()) == rd_mode
    assert logs_found() == (["lodestard_1.log"] if rd_mode else [])
    assert daemon.errors() == []


def test_without_rd_mode_the_marker_is_not_looked_at(stage, documents):
    files.LOGS.mkdir()
    MARKER.write_bytes(b"41")
    daemon = stage.daemon("-l")
    assert REQUESTED not in daemon.lines()
    assert MARKER.read_bytes() == b"41"
    assert logs_found() == []


@pytest.mark.parametrize("arguments, written", [
    ([], False), (["-l"], True), (["--logfile"], True), (["-l", "-nl"], False), (["--logfile", "--no-logfile"], False),
    (["-nl", "-l"], True), (["-nl"], False),
], ids=lambda value: " ".join(value) or "none" if isinstance(value, list) else None)
def test_the_arguments_ask_for_the_log_file(stage, rd_device, arguments, written):
    stage.daemon(*arguments)
    assert logs_found() == (["lodestard_1.log"] if written else [])


# ---- the marker counts

@pytest.mark.parametrize("content, number", [
    (b"41", 42), (b"41\n", 42), (b"41\n99", 42), (b"41\0junk", 42), (b"letters", 1), (b"12abc", 1), (b"", 1),
    (b"\n7", 1), (b"0", 1), (b"-5", -4), (b"999999999999999", 1),
])
def test_the_marker_gives_the_next_number_and_keeps_it(stage, rd_device, content, number):
    files.LOGS.mkdir()
    MARKER.write_bytes(content)
    daemon = stage.daemon()
    assert MARKER.read_bytes() == str(number).encode()
    assert [line for line in daemon.lines() if not LINE.match(line)] == [REQUESTED, CREATING.format(number)]
    assert logs_found() == [f"lodestard_{number}.log"]


def test_the_marker_turns_logging_on_whatever_the_arguments_say(stage, rd_device):
    files.LOGS.mkdir()
    MARKER.write_bytes(b"1")
    stage.daemon("-nl")
    assert logs_found() == ["lodestard_2.log"]


def test_a_marker_that_cannot_be_written_means_number_1(stage, rd_device):
    files.LOGS.mkdir()
    MARKER.write_bytes(b"41")
    MARKER.chmod(0o444)
    daemon = stage.daemon()
    assert REQUESTED in daemon.lines()
    assert MARKER.read_bytes() == b"41"
    assert logs_found() == ["lodestard_1.log"]


def test_every_start_with_the_marker_writes_a_new_file(stage, rd_device):
    files.LOGS.mkdir()
    MARKER.touch()
    for _ in range(2):
        stage.daemon().stop()
    assert logs_found() == ["lodestard_1.log", "lodestard_2.log"]
    assert MARKER.read_bytes() == b"2"


def test_without_the_marker_the_same_file_is_overwritten(stage, rd_device):
    stage.daemon("-l").stop()
    with log().open("a", encoding="ascii") as file:
        file.write("of the last start\n")
    stage.daemon("-l").stop()
    assert logs_found() == ["lodestard_1.log"]
    assert "of the last start" not in log().read_text()


# ---- where it goes

@pytest.mark.parametrize("user, home", [
    ("root", "/home/user"), (None, "/home/user"), ("bob", "/home/bob"), ("user", "/home/user"), ("", "/home/"),
])
def test_the_user_decides_where_the_file_goes(stage, user, home):
    files.rd_mode()
    os.makedirs(f"{home}/MyDocs")
    daemon = stage.daemon("-l", environment={"USER": user})
    assert f"Creating log file: {home}/MyDocs/location_logs/lodestard_1.log" in daemon.lines()
    assert os.path.exists(f"{home}/MyDocs/location_logs/lodestard_1.log")


@pytest.mark.parametrize("mask", [0o000, 0o077])
def test_directory_and_file_have_fixed_modes(stage, rd_device, mask):
    os.umask(mask)
    try:
        stage.daemon("-l")
    finally:
        os.umask(0o022)
    assert stat.S_IMODE(files.LOGS.stat().st_mode) == 0o755
    assert stat.S_IMODE(log().stat().st_mode) == 0o644


def test_a_detached_daemon_logs_with_the_same_modes(stage, rd_device):
    stage.launch("-d", "-l").wait_detached(stage.session)
    assert stat.S_IMODE(files.LOGS.stat().st_mode) == 0o755
    assert stat.S_IMODE(log().stat().st_mode) == 0o644
    wait_until(lambda: "PositionDaemon::init() done." in log().read_text(), "the log tells of the start")


# ---- what can go wrong never stops the daemon

def test_a_missing_documents_directory_is_reported(stage):
    files.rd_mode()
    daemon = stage.daemon("-l")
    assert daemon.errors() == ["Cannot create log file directory.", "Error creating logfile!"]
    assert CREATING.format(1) in daemon.lines()
    assert not files.DOCUMENTS.exists()


def test_a_file_in_the_place_of_the_directory_is_reported(stage, rd_device):
    files.LOGS.write_text("in the way")
    daemon = stage.daemon("-l")
    assert daemon.errors() == ["Cannot create log file.", "Error creating logfile!"]
    assert CREATING.format(1) in daemon.lines()
    assert files.LOGS.read_text() == "in the way"


def test_a_directory_without_write_permission_is_reported(stage, rd_device):
    files.LOGS.mkdir(mode=0o555)
    daemon = stage.daemon("-l")
    assert daemon.errors() == ["Cannot create log file.", "Error creating logfile!"]
    assert CREATING.format(1) in daemon.lines()
    assert logs_found() == []


def test_a_log_file_in_a_directory_without_write_permission_is_emptied_and_not_used(stage, rd_device):
    files.LOGS.mkdir()
    log().write_text("of an earlier start")
    files.LOGS.chmod(0o555)
    daemon = stage.daemon("-l")
    assert daemon.errors() == ["Cannot create log file."]
    assert log().read_bytes() == b""


def test_a_log_file_that_cannot_be_opened_is_reported(stage, rd_device):
    files.LOGS.mkdir()
    log().mkdir()
    daemon = stage.daemon("-l")
    assert daemon.errors() == ["Error creating logfile!"]


# ---- the banner

def banner(text):
    """The banner's lines and what follows it."""
    found = re.match(
        rf"\n\n\n{RULE}\n  lodestard start!\n     (\d\d:\d\d:\d\d)\n     (\d\d\.\d\d\.\d\d\d\d)\n{RULE}\n"
        rf"--------------DEVICE-INFO--------------\n(.*?\n){RULE}\n(.*)\Z", text, re.DOTALL)
    assert found, text
    return found.groups()


def test_the_banner_lists_every_key(stage, rd_device):
    values = {key: f"value of {key}" for key in KEYS}
    values["/device/rd-mode"] = "enabled, and more"
    for key, value in values.items():
        files.sysinfo(key, value.encode())
    stage.daemon("-l")
    _, _, information, _ = banner(log().read_text())
    assert information == "".join(f"{key}={values[key]}\n" for key in KEYS)


def test_unreadable_and_empty_values_are_marked(stage, rd_device):
    files.sysinfo("/component/hw-build", b"")
    files.sysinfo("/component/keppo", b"\n")
    files.sysinfo("/component/boot-mode", b"up to the NUL\0not this")
    for known in ("/component/product-name", "/device/sw-release-ver", "/device/hw-version"):
        files.sysinfo(known, b"known")
    stage.daemon("-l")
    _, _, information, _ = banner(log().read_text())
    lines = dict(line.split("=", 1) for line in information.splitlines())
    assert list(lines) == list(KEYS)
    assert lines["/component/boot-mode"] == "up to the NUL"
    assert lines["/device/rd-mode"] == "enabled"
    assert {key for key in KEYS if lines[key] == "<n/a>"} == set(KEYS) - {
        "/component/boot-mode", "/device/rd-mode", "/component/product-name", "/device/sw-release-ver",
        "/device/hw-version"}


def test_the_machine_itself_is_asked_for_its_identity(stage, rd_device):
    dmi = files.Path("/sys/class/dmi/id")
    dmi.mkdir(parents=True)
    (dmi / "product_name").write_text("Handset One\n")
    (dmi / "product_version").write_text("Rev 3\n")
    stage.daemon("-l")
    _, _, information, _ = banner(log().read_text())
    assert "/component/product-name=Handset One\n" in information
    assert "/device/hw-version=Rev 3\n" in information


def test_the_banner_carries_local_time_and_date(stage, rd_device):
    stage.daemon("-l", faketime="@2021-03-04 23:10:05", environment={"TZ": "UTC-3"})
    time, date, _, rest = banner(log().read_text())
    assert date == "04.03.2021"
    assert re.fullmatch(r"23:10:[0-5]\d", time)
    assert rest.startswith("23:10:")


def test_the_banner_is_for_the_file_only(stage, rd_device):
    daemon = stage.daemon("-l")
    assert not any("DEVICE-INFO" in line for line in daemon.lines())


# ---- the lines

def messages_in(text):
    return [LINE.match(line).groups()[1:] for line in banner(text)[3].splitlines()]


def test_the_file_gets_every_level_while_the_console_is_silent(stage, rd_device):
    daemon = stage.launch("-l", "-nw", "-nv")
    stage.wait_serving()
    found = messages_in(log().read_text())
    assert ("Debug", "PositionDaemon::init()") in found
    assert ("Warning", "Connection to orvd failed.") in found
    assert daemon.lines() == [CREATING.format(1)]


def test_console_and_file_tell_the_same(stage, rd_device):
    daemon = stage.daemon("-l")
    console = [LINE.match(line).groups()[1:] for line in daemon.lines() if LINE.match(line)]
    assert messages_in(log().read_text())[:len(console)] == console


def test_the_file_is_flushed_line_by_line(stage, rd_device):
    daemon = stage.daemon("-l")
    settings = stage.settings()
    settings.set("NoSuchKey", 1)
    expected = 'Location settings does not contain setting for: "NoSuchKey"'
    daemon.wait_for_message(expected, "Warning")
    assert messages_in(log().read_text())[-1] == ("Warning", expected)


def test_fatal_and_critical_lines_reach_the_file(stage, rd_device):
    first = stage.daemon()
    second = stage.launch("-l", "-nw")
    assert second.wait_exit() == 1
    assert messages_in(log().read_text())[-2:] == [
        ("Critical", "lodestard is already running."), ("Fatal", f"lodestard: Already running. pid: {first.pid}")]
