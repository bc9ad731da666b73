#!/usr/bin/python3
"""Runs end-to-end tests in one sandbox: what ctest calls, and what a person calls for one test.

    run_e2e.py [--build DIR] [--bind-ro PATH]... FILE... [pytest arguments]

    tests/support/run_e2e.py tests/e2e/test_startup.py -k usage
    tests/support/run_e2e.py --build build/asan tests/e2e/test_process.py -x

LODESTARD_BINARY names another daemon than DIR/src/daemon/lodestard, LODESTARD_STATUS_KEYS where that
one keeps the status keys. LODESTARD_DEADLINE is the longest wait in seconds for what must happen.
"""

import argparse
import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from sandbox import CHECKOUT, PYTHON, Sandbox, SandboxError  # noqa: E402

PASSED_ON = ("LODESTARD_BINARY", "LODESTARD_STATUS_KEYS", "LODESTARD_DEADLINE", "LODESTARD_SEED")


def find_binary(build):
    for place in ("src/daemon/lodestard", "lodestard"):
        if (build / place).exists():
            return build / place
    sys.exit(f"run_e2e: no lodestard below {build}: build it first")


def configured(build, option):
    """What the build was configured with."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    return next(line.split("=", 1)[1] for line in cache.splitlines()
                if line.startswith(f"{option}:"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=CHECKOUT / "build" / "dev", help="the build directory")
    parser.add_argument("--bind-ro", metavar="PATH", action="append", default=[], help="shown in the sandbox")
    options, rest = parser.parse_known_args()
    build = options.build.resolve()
    environment = {name: os.environ[name] for name in PASSED_ON if name in os.environ}
    environment.setdefault("LODESTARD_BINARY", str(find_binary(build)))
    environment.setdefault("LODESTARD_STATUS_KEYS", configured(build, "LODESTARD_STATUS_KEYS"))
    environment.update(LODESTARD_BUILD=str(build),
                       LODESTARD_SUPL_SERVER=configured(build, "LODESTARD_DEFAULT_SUPL_SERVER"),
                       LODESTARD_SHIM=str(build / "tests/support/failing-calls.so"), PYTHONPATH=f"{CHECKOUT}/tests/support")
    arguments = [os.path.abspath(a) if not a.startswith("-") and os.path.exists(a.split("::")[0]) else a for a in rest]
    binds = [build, os.path.dirname(environment["LODESTARD_BINARY"]), *options.bind_ro]
    sandbox = Sandbox(bind_ro=binds, environment=environment)
    try:
        sandbox.execute([PYTHON, "-m", "pytest", "-v", "-p", "no:cacheprovider", "-p", "no:tmpdir", "--color=no",
                         f"--rootdir={CHECKOUT}/tests", *arguments])
    except SandboxError as error:
        sys.exit(f"run_e2e: {error}")


if __name__ == "__main__":
    main()
