import importlib.util
import sys

import pytest

import orvpeer


@pytest.fixture
def engine(tmp_path):
    """Starts test engines: engine("--ttff", 0); all are gone after the test."""
    started = []

    def start(*options, **keywords):
        started.append(orvpeer.Engine(keywords.pop("directory", tmp_path), *options, **keywords))
        return started[-1]

    yield start
    for one in started:
        one.stop()


@pytest.fixture(scope="session")
def fake_orv():
    """The engine's script as a module, for what is pure in it."""
    sys.dont_write_bytecode = True
    spec = importlib.util.spec_from_file_location("fake_orv", orvpeer.ENGINE)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module
