"""The test engine as a process: start, socket file, options, end."""

import os
import select
import shlex
import signal
import socket
import subprocess
import sys
import time

import pytest

from orvpeer import DEADLINE, ENGINE, Daemon, wait_until


def run(*options, environment=None):
    return subprocess.run([sys.executable, ENGINE, *options], text=True, capture_output=True, timeout=DEADLINE,
                          env={**os.environ, **(environment or {})}, check=False)


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_it_and_removes_its_sockets(engine, tmp_path, number):
    running = engine()
    running.daemon().start()
    running.process.send_signal(number)
    assert running.process.wait(DEADLINE) == 0
    assert os.listdir(tmp_path) == ["log"]


def test_a_stale_socket_does_not_stop_the_next_start(engine, tmp_path):
    first = engine()
    first.process.kill()
    first.process.wait()
    assert os.path.exists(tmp_path / "orvd")
    second = engine()
    wait_until(lambda: not is_refused(second.path), "the new engine serves")
    assert second.daemon().start()[:2].hex() == "ef02"


def is_refused(path):
    try:
        Daemon(path).close()
    except ConnectionRefusedError:
        return True
    return False


def test_a_plain_file_in_the_way_is_replaced(engine, tmp_path):
    (tmp_path / "orvd").write_text("")
    running = engine()
    wait_until(lambda: not is_refused(running.path), "the engine serves")
    running.tell("quit")
    assert running.process.wait(DEADLINE) == 0
    assert not os.path.exists(running.path)


def test_a_second_engine_leaves_the_first_alone(engine):
    first = engine("--ttff", 0, "--rate", 10)
    daemon = first.daemon()
    daemon.start()
    second = run("--socket", first.path)
    assert (second.returncode, second.stderr) == (1, f"fake_orv: {first.path} is served already\n")
    assert daemon.fix().is_fix
    assert first.daemon().start(2)[:2].hex() == "ef02"


def test_an_engine_whose_path_was_taken_over_ends_and_leaves_the_path(engine, tmp_path):
    running = engine()
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as other:
        other.bind(str(tmp_path / "other"))
        os.rename(tmp_path / "other", running.path)
        assert running.process.wait(DEADLINE) == 0
        assert os.path.exists(running.path)


def test_a_path_that_cannot_be_bound_is_told(tmp_path):
    result = run("--socket", str(tmp_path / "nowhere" / "orvd"))
    assert result.returncode == 1 and result.stderr.startswith("fake_orv: cannot serve ")


def test_the_sockets_belong_to_the_user_alone_whatever_the_umask(engine):
    running = engine(before=["/bin/sh", "-c", 'umask 0; exec "$@"', "sh"])
    for path in (running.path, running.path + ".control"):
        assert os.stat(path).st_mode & 0o777 == 0o700


def test_without_a_connection_it_ends_after_a_while(engine):
    running = engine("--linger", 0.5)
    assert running.process.wait(DEADLINE) == 0


def test_a_connected_daemon_keeps_it_alive_and_its_going_ends_it(engine):
    running = engine("--linger", 0.3)
    daemon = running.daemon()
    begin = time.monotonic()
    while time.monotonic() < begin + 1.0:
        daemon.send("ef0c 0006 0000")
        assert daemon.receive()[:2].hex() == "ef0d"
        time.sleep(0.05)
    daemon.close()
    assert running.process.wait(DEADLINE) == 0


@pytest.fixture
def orphan(tmp_path):
    """An engine whose parent can be taken away: call it. Standard output is the engine's alone then."""
    path = tmp_path / "orvd"
    script = f"{shlex.quote(sys.executable)} {shlex.quote(str(ENGINE))} --socket {shlex.quote(str(path))} & read line"
    with subprocess.Popen(["/bin/sh", "-c", script], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as shell:
        wait_until(lambda: os.path.exists(f"{path}.control"), "it serves")
        yield path, shell
        tell(path, b"quit")


def tell(path, command):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as control:
        try:
            control.sendto(command, f"{path}.control")
        except (FileNotFoundError, ConnectionRefusedError):
            pass  # it has ended


def take_parent(shell):
    shell.kill()
    shell.wait()


def check_ended(shell):
    assert select.select([shell.stdout], [], [], DEADLINE)[0], "the engine is still there"
    assert shell.stdout.read() == b""


def test_it_serves_without_its_parent_and_ends_with_the_last_connection(orphan):
    path, shell = orphan
    daemon = Daemon(str(path))
    daemon.start()
    take_parent(shell)
    assert daemon.next(0xEF03)
    daemon.close()
    check_ended(shell)
    assert not os.path.exists(path)


def test_a_deaf_engine_does_not_outlive_its_parent(orphan):
    path, shell = orphan
    daemon = Daemon(str(path))
    tell(path, b"deaf")
    take_parent(shell)
    check_ended(shell)
    daemon.close()


def test_options_come_from_the_environment_and_the_command_line_wins(engine):
    running = engine("--start=20,10", environment={"FAKE_ORV_OPTIONS": "--ttff 0 --start '10,20'"})
    daemon = running.daemon()
    daemon.start()
    fix = daemon.report()
    assert fix.is_fix and abs(fix.position.lat - 20) < 0.01 and abs(fix.position.lon - 10) < 0.01


@pytest.mark.parametrize("options", [["extra"], ["--ttff", "-1"], ["--ttff", "soon"], ["--rate", "0"],
                                     ["--start", "91,0"], ["--start", "1"], ["--path", "/nonexistent"],
                                     ["--speed", "nan"], ["--wrong"]])
def test_wrong_options_are_refused(options):
    result = run(*options)
    assert result.returncode == 2 and "Usage:" in result.stderr and "Traceback" not in result.stderr


@pytest.mark.parametrize("text", ["", "1,1\n", "1,1\n1,1\n", "1,1\nnowhere\n"])
def test_a_path_file_without_a_path_is_refused(tmp_path, text):
    (tmp_path / "path").write_text(text)
    result = run("--socket", str(tmp_path / "orvd"), "--path", str(tmp_path / "path"))
    assert result.returncode in (1, 2) and "Traceback" not in result.stderr
    assert not os.path.exists(tmp_path / "orvd")


def test_help_tells_every_option_and_every_command(fake_orv):
    text = run("--help").stdout
    for option in ("socket", "control", "ttff", "seed", "start", "path", "speed", "rate", "supl-delay", "linger"):
        assert f"--{option}=" in text
    commands = [name[3:] for name in dir(fake_orv.Engine) if name.startswith("do_")]
    assert len(commands) == 18
    for command in commands:
        assert f" {command} " in text.replace("\n", " ")


def test_faked_time_shortens_intervals_too(engine):
    running = engine("--ttff", 20, before=["faketime", "-f", "+0 x40"])
    daemon = running.daemon()
    daemon.start(1, 20)
    begin = time.monotonic()
    first, second = daemon.fix(), daemon.fix()
    assert 19 <= second.seconds - first.seconds <= 30
    assert time.monotonic() - begin < 10, "sixty seconds were really waited for"
