"""Which recording goes down the road: --recording FILE, or the generated one."""

import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parents[1] / "orvd-gpsd"))

from harness.stage import Stage  # noqa: E402

GENERATOR = Path(__file__).with_name("make_recording.py")


def pytest_addoption(parser):
    parser.addoption("--recording", type=Path, help="a receiver's log; the generated recording without it")


def pytest_report_header(config):
    return f"recording: {config.getoption('--recording') or 'generated'}"


@pytest.fixture
def recording(request):
    given = request.config.getoption("--recording")
    if given:
        return given
    made = Path(tempfile.mkdtemp(), "generated.log")  # in the sandbox, and gone with it
    subprocess.run([sys.executable, GENERATOR, made], check=True)
    return made


@pytest.fixture
def stage():
    stage = Stage()
    yield stage
    stage.close()
