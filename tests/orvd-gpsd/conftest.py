"""Fixtures of the tests of the orvd-gpsd program."""

import pytest

from fakegpsd import FakeGpsd
from orvd import EngineClient, OrvdGpsd


class Pieces:
    """Makes the processes and sockets of one test and ends them in reverse."""

    def __init__(self):
        self._ends = []
        self.engines = []

    def gpsd(self, **options):
        gpsd = FakeGpsd(**options)
        self._ends.append(gpsd.close)
        return gpsd

    def launch(self, *arguments, **options):
        engine = OrvdGpsd(*arguments, **options)
        self._ends.append(engine.stop)
        self.engines.append(engine)
        return engine

    def engine(self, gpsd, *arguments, **options):
        return self.launch(*arguments, port=gpsd.port, **options).wait_serving()

    def daemon(self, engine, **options):
        daemon = EngineClient(engine.socket_path, **options)
        self._ends.append(daemon.close)
        return daemon

    def close(self):
        for end in reversed(self._ends):
            try:
                end()
            except OSError:
                pass  # the test has ended it already


@pytest.fixture
def pieces(request):
    made = request.node.pieces = Pieces()
    yield made
    made.close()


@pytest.fixture
def stage(pieces):
    """gpsd, the engine, and a registered daemon."""
    gpsd = pieces.gpsd()
    engine = pieces.engine(gpsd)
    return gpsd, engine, pieces.daemon(engine).register()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Shows what the engine wrote beside the failure of its test."""
    report = (yield).get_result()
    if report.failed and hasattr(item, "pieces"):
        for engine in item.pieces.engines:
            report.sections.append(("orvd-gpsd", "\n".join(engine.log.items())))
