"""Fixtures of the end-to-end tests: a clean tree and a stage for each test."""

import pytest

from harness import files
from harness.road import Road
from harness.stage import Stage


@pytest.fixture(autouse=True)
def clean_tree():
    files.clean_tree()


@pytest.fixture
def stage(request):
    stage = Stage()
    request.node.stage = stage
    yield stage
    stage.close()


@pytest.fixture
def ready_engine(stage):
    """An engine that is there before the daemon starts."""
    return stage.engine()


@pytest.fixture
def display(stage):
    """A screen and a keyboard."""
    return stage.display()


@pytest.fixture
def road(stage):
    """A daemon with the user's consent and an engine that is ready."""
    return Road(stage)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Shows what each daemon wrote beside the failure of its test."""
    report = (yield).get_result()
    stage = getattr(item, "stage", None)
    if report.failed and stage:
        for number, daemon in enumerate(stage.daemons, start=1):
            report.sections.append((f"lodestard {number}, output", "\n".join(daemon.lines())))
            report.sections.append((f"lodestard {number}, standard error", "\n".join(daemon.errors())))
