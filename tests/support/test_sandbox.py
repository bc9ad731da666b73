"""The sandbox itself: what it shows, what it hides, and that nothing outlives it."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
SANDBOX = HERE / "sandbox.py"
WRITABLE = ("/home/user", "/home/tiny", "/tmp", "/run", "/var/lib", "/etc/xdg/varn", "/etc/lodestard",
            "/etc/geoclue", "/sys")


def sandboxed(*command, before=(), script=SANDBOX, options=(), **keywords):
    return subprocess.run([*before, "/usr/bin/python3", script, *options, "--", *command], text=True,
                          capture_output=True, timeout=60, check=False, **keywords)


def shell(text, **keywords):
    result = sandboxed("sh", "-c", text, **keywords)
    assert result.returncode == 0, result.stderr
    return result.stdout


def test_the_caller_is_an_ordinary_user_at_home():
    assert shell("id -un; id -u; pwd").split() == ["user", "1000", "/home/user"]


def test_the_fixed_places_are_fresh_and_writable():
    assert shell("find " + " ".join(WRITABLE) + " -xdev -type f") == ""  # the checkout may be bound below one
    shell("set -e; for place in " + " ".join(WRITABLE) + "; do echo x >$place/x; done")
    for place in WRITABLE:
        assert not os.path.exists(f"{place}/x"), f"{place} of the host was written"


def test_var_run_is_run():
    assert shell("mkdir /var/run/orvd && ls -d /run/orvd").strip() == "/run/orvd"


def test_the_small_home_can_be_filled():
    result = sandboxed("dd", "if=/dev/zero", "of=/home/tiny/x", "bs=1k", "count=65")
    assert "No space left" in result.stderr


def test_the_checkout_and_bound_paths_are_read_only(tmp_path):
    (tmp_path / "seen").write_text("here")
    assert shell(f"cat {tmp_path}/seen", options=["--bind-ro", str(tmp_path)]) == "here"
    for place in (tmp_path, HERE):
        result = sandboxed("touch", f"{place}/new", options=["--bind-ro", str(tmp_path)])
        assert "Read-only" in result.stderr
        assert not (place / "new").exists()


def test_emptying_the_places_leaves_what_is_bound_below_them(tmp_path):
    bound = tmp_path / "two words" / "and\\ more"  # the kernel escapes such paths where it lists mounts
    bound.mkdir(parents=True)
    (bound / "seen").write_text("here")
    script = ("import pathlib, sys; from harness import files; "
              "pathlib.Path('/tmp/x').touch(); files.clean_tree(); "
              "print(pathlib.Path(sys.argv[1]).read_text(), pathlib.Path('/tmp/x').exists())")
    result = sandboxed("python3", "-c", script, str(bound / "seen"),
                       options=["--bind-ro", str(bound), "--setenv", "PYTHONPATH", str(HERE)])
    assert (result.stdout, result.returncode) == ("here False\n", 0), result.stderr


def test_the_environment_holds_nothing_of_the_callers():
    result = sandboxed("env", env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/x", "XDG_DATA_DIRS": "/x",
                                   "POSITIONING_SOURCE": "FAKE", "USER": "somebody"})
    names = dict(line.split("=", 1) for line in result.stdout.splitlines())
    assert names["USER"] == "user" and names["HOME"] == "/home/user"
    assert not {"DBUS_SESSION_BUS_ADDRESS", "XDG_DATA_DIRS", "POSITIONING_SOURCE"} & names.keys()
    assert shell("echo $LODESTARD_X", options=["--setenv", "LODESTARD_X", "given"]).strip() == "given"


def test_the_old_interpreter_runs_and_finds_its_modules():
    assert shell("python2.6 -c 'import sys, gi; print(sys.prefix)'").strip() == "/usr"


def test_processes_and_network_are_its_own():
    seen = shell("ls /proc | grep -c '^[0-9]'; cat /proc/net/dev")
    assert int(seen.split()[0]) < 10
    assert [line.split(":")[0].strip() for line in seen.splitlines() if ":" in line] == ["lo"]
    shell("""python3 -c 'import socket; s = socket.create_server(("127.0.0.1", 2947)); """
          """socket.create_connection(s.getsockname()).close()'""")


def test_the_exit_status_comes_through():
    assert sandboxed("sh", "-c", "exit 7").returncode == 7


def test_the_size_of_tmp_can_be_chosen():
    assert shell("df -B1 --output=size /tmp | tail -1", options=["--size-tmp", "65536"]).strip() == "65536"


# The sandboxed shell leaves a background process that holds the other end of the pipe.
LINGERING = "sleep 1000 & echo ready; exec sleep {}"


def test_what_it_started_dies_with_the_first_process():
    result = sandboxed("sh", "-c", LINGERING.format(0))  # returns only when the pipe is closed on all ends
    assert (result.returncode, result.stdout) == (0, "ready\n")


def test_everything_dies_with_the_caller():
    code = (f"import sys; sys.path.insert(0, {str(HERE)!r}); from sandbox import Sandbox; "
            f"Sandbox().run(['sh', '-c', {LINGERING.format(1000)!r}])")
    caller = subprocess.Popen(["/usr/bin/python3", "-c", code], stdout=subprocess.PIPE, text=True)
    assert caller.stdout.readline() == "ready\n"
    caller.send_signal(signal.SIGKILL)
    assert caller.stdout.read() == ""  # end of file: nobody inside holds the pipe any more
    caller.wait(10)


def test_two_sandboxes_know_nothing_of_each_other():
    sys.path.insert(0, str(HERE))
    from sandbox import Sandbox
    script = "mkdir /run/orvd && echo $1 >/tmp/$1 && echo made && read go && cat /tmp/one /tmp/two 2>&-; true"
    pair = [Sandbox().popen(["sh", "-c", script, "sh", name], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            for name in ("one", "two")]
    for process in pair:
        assert process.stdout.readline() == "made\n"
    assert [process.communicate("go\n", timeout=10)[0] for process in pair] == ["one\n", "two\n"]


def test_a_file_is_given_in_and_is_the_users_own():
    sys.path.insert(0, str(HERE))
    from sandbox import Sandbox
    script = "cat ~/.given; stat -c ' %a %U' ~/.given"
    with Sandbox(files={"/home/user/.given": b"\xff\n\0"}).popen(["sh", "-c", script], stdout=subprocess.PIPE) as process:
        assert process.communicate(timeout=10)[0] == b"\xff\n\0 600 user\n"


def test_an_honest_failure_without_bubblewrap():
    result = subprocess.run(["/usr/bin/python3", SANDBOX, "--", "true"], text=True, capture_output=True,
                            env={"PATH": "/nonexistent"}, check=False)
    assert result.returncode == 1
    assert result.stderr == "sandbox: bubblewrap is not installed (tools/install-deps installs it)\n"


@pytest.fixture
def nobodys_copy():
    """The support folder where an unprivileged user can read it."""
    directory = Path(tempfile.mkdtemp(prefix="sandbox-", dir="/tmp"))
    try:
        directory.chmod(0o755)
        (directory / "tests/support").mkdir(parents=True)
        shutil.copy(SANDBOX, directory / "tests/support/sandbox.py")
        yield directory / "tests/support/sandbox.py"
    finally:
        shutil.rmtree(directory)


def test_an_ordinary_user_gets_the_same_sandbox(nobodys_copy):
    drop = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.getuid() == 0 else []
    result = sandboxed("sh", "-c", "id -un && touch /etc/lodestard/x /home/user/x && ls /proc | grep -c '^[0-9]'",
                       before=drop, script=nobodys_copy, cwd="/")
    assert result.returncode == 0, result.stderr
    assert result.stdout.split()[0] == "user"
    assert "Read-only" in sandboxed("touch", f"{nobodys_copy.parent}/new", before=drop, script=nobodys_copy,
                                    cwd="/").stderr
