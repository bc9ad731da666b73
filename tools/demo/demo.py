"""What run-demo does: builds, and puts the demo on its stage inside the sandbox.

Shows live fixes and satellites. lodestard runs on private buses in a file tree of its own, with the
test engine (a simulated receiver) that it launches itself; lodestar-watch shows what applications
get: one that uses satellites, one that uses the network. On a display you are asked for consent
first; without one, and with --seconds, the demo gives it itself. Ctrl-C ends it and leaves nothing
behind; any number of demos can run side by side.
"""

import argparse
import fcntl
import os
import signal
import subprocess
import sys
from pathlib import Path

CHECKOUT = Path(__file__).resolve().parents[2]
STAGE = Path(__file__).resolve().with_name("stage.py")
sys.path.insert(0, str(CHECKOUT / "tests" / "support"))
import hostdisplay  # noqa: E402
from sandbox import PYTHON, Sandbox, SandboxError  # noqa: E402

PROGRAMS = {"lodestard": "src/daemon/lodestard", "lodestar-watch": "clients/lodestar-watch/lodestar-watch",
            "orvd-gpsd": "engines/orvd-gpsd/orvd-gpsd",
            "lodestar-dialogs": "clients/lodestar-dialogs/lodestar-dialogs"}
END_SECONDS = 10  # how long the stage may take to end


def say(text):
    print(text, file=sys.stderr, flush=True)


def whole_number(text):
    if not text.isdecimal() or int(text) == 0:
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number above 0")
    return int(text)


def read_arguments():
    parser = argparse.ArgumentParser(
        prog="run-demo", description=__doc__.split("\n\n", 1)[1], formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="Exit status: 0 fixes of each kind arrived, 1 some did not or something failed, 2 wrong usage.")
    parser.add_argument("--seconds", type=whole_number, metavar="N", help="end by itself after so long")
    parser.add_argument("--recording", type=Path, metavar="FILE",
                        help="replay a receiver's log through gpsfake, gpsd and orvd-gpsd instead")
    output = parser.add_mutually_exclusive_group()
    output.add_argument("--json", action="store_true", help="one line of JSON a report instead of a screen")
    output.add_argument("--plain", action="store_true", help="one line of text a report instead of a screen")
    parser.add_argument("--ttff", type=float, default=3.0, metavar="SECONDS",
                        help="the simulated receiver's time to first fix (3)")
    parser.add_argument("--build-dir", type=Path, metavar="DIR", help="run these programs, install and build nothing")
    options = parser.parse_args()
    if options.recording and not os.access(options.recording, os.R_OK):
        parser.error(f"cannot read {options.recording}")
    if not 0 <= options.ttff < 1e6:
        parser.error("--ttff wants a number of seconds")
    return options


def build(wanted):
    """Makes the release build where something is missing or out of date; returns its directory."""
    directory = CHECKOUT / "build" / "release"
    targets = list(wanted)
    if not is_writable(directory):
        if all((directory / PROGRAMS[target]).exists() for target in targets):
            return directory  # somebody else's build, as it is
        sys.exit(f"run-demo: {directory} cannot be written, and the programs are not built yet")
    directory.mkdir(parents=True, exist_ok=True)
    with open(directory / ".run-demo.lock", "w", encoding="utf-8") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            say("Another demo is building; waiting for it ...")
            fcntl.flock(lock, fcntl.LOCK_EX)
        if not is_configured(directory):
            say("Configuring the release build ...")
            run("cmake", "--preset", "release", quiet=True)
        if "no work to do" not in run("ninja", "-C", str(directory), "-n", *targets, quiet=True):
            say("Building " + ", ".join(targets) + ": the first time takes some minutes ...")
            run("cmake", "--build", "--preset", "release", "--target", *targets)
    return directory


def is_writable(directory):
    while not directory.exists():
        directory = directory.parent
    return os.access(directory, os.W_OK)


def is_configured(directory):
    """A cache that was made for this very place; one that moved with the checkout is dropped."""
    cache = directory / "CMakeCache.txt"
    if cache.exists() and f"CMAKE_HOME_DIRECTORY:INTERNAL={CHECKOUT}\n" not in cache.read_text(encoding="utf-8"):
        cache.unlink()
    return cache.exists() and (directory / "build.ninja").exists()


def run(*command, quiet=False):
    """Runs a build tool with nothing of the caller's settings; its output is returned or shown."""
    environment = {"PATH": "/usr/local/bin:/usr/bin:/bin", "LANG": "C.UTF-8", "TERM": os.environ.get("TERM", "dumb"),
                   "HOME": str(CHECKOUT / "build" / "release")}
    result = subprocess.run(command, cwd=CHECKOUT, env=environment, stdin=subprocess.DEVNULL, text=True, check=False,
                            stdout=subprocess.PIPE if quiet else sys.stderr,
                            stderr=subprocess.STDOUT if quiet else None)
    if result.returncode != 0:
        if quiet:
            say(result.stdout)
        sys.exit(f"run-demo: {command[0]} failed")
    return result.stdout


def play(options, directory, display):
    """Runs the stage to its end and returns the exit status. `display` is where the user is asked."""
    watch = ["--seconds", options.seconds] if options.seconds else []
    watch += ["--json"] if options.json else ["--plain"] if options.plain else []
    shown = [directory]
    environment = {"PYTHONPATH": CHECKOUT / "tests" / "support", "FAKE_ORV_OPTIONS": f"--ttff {options.ttff}",
                   **{name.upper().replace("-", "_"): directory / place for name, place in PROGRAMS.items()}}
    if options.recording:
        environment["RECORDING"] = options.recording.resolve()
        shown.append(options.recording.resolve())
    if display:
        shown += display.bind_ro
        environment.update(display.environment)
    else:
        del environment["LODESTAR_DIALOGS"]
        environment["ANSWERS_ITSELF"] = "the demo ends by itself" if options.seconds else "there is no display here"
    leash, leash_end = os.pipe()
    # Ctrl-C reaches everybody on the terminal. The sandbox outlives it: lodestar-watch gives the
    # terminal back, then the stage takes itself down.
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    sandbox = Sandbox(bind_ro=shown, files=display.files if display else {}, environment=environment)
    stage = sandbox.popen([PYTHON, STAGE, leash, *watch], pass_fds=(leash,))
    os.close(leash)
    pending = [leash_end]

    def end(*_):
        if pending:
            os.close(pending.pop())

    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)
    while True:
        try:
            return stage.wait(END_SECONDS)
        except subprocess.TimeoutExpired:
            if not pending:  # told to end, and still there: nothing inside outlives the sandbox
                stage.kill()


def main():
    options = read_arguments()
    # Who does not sit there to answer is not asked.
    display = None if options.seconds else hostdisplay.find(os.environ)
    unneeded = {"orvd-gpsd": not options.recording, "lodestar-dialogs": not display}
    wanted = [name for name in PROGRAMS if not unneeded.get(name)]
    directory = options.build_dir.resolve() if options.build_dir else build(wanted)
    for name in wanted:
        if not os.access(directory / PROGRAMS[name], os.X_OK):
            sys.exit(f"run-demo: no {name} below {directory}")
    try:
        status = play(options, directory, display)
    except SandboxError as error:
        sys.exit(f"run-demo: {error}")
    sys.exit(status if status in (0, 2) else 1)


if __name__ == "__main__":
    main()
