"""What the documents point at is there, and the test that they tell a newcomer to run."""

import re
from pathlib import Path

import pytest

CHECKOUT = Path(__file__).resolve().parents[2]
DOCUMENTS = sorted(path.relative_to(CHECKOUT) for folder in (".", "bench", "docs", "engines", "tests")
                   for path in (CHECKOUT / folder).glob("*.md"))


def text_of(document):
    return (CHECKOUT / document).read_text(encoding="utf-8")


def anchors(document):
    """The headings, as links write them."""
    headings = re.findall(r"^#+ (.*)$", text_of(document), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


@pytest.mark.parametrize("document", DOCUMENTS, ids=str)
def test_links_lead_somewhere(document):
    for path, anchor in re.findall(r"\]\((?!https?:)([^)#\s]*)#?([^)\s]*)\)", text_of(document)):
        target = (CHECKOUT / document).parent / path if path else CHECKOUT / document
        assert target.exists(), path
        assert not anchor or anchor in anchors(target), f"{path}#{anchor}"


def end_to_end_commands():
    for document in DOCUMENTS:
        for file, word in re.findall(r"run_e2e\.py(?: --build \S+)? (tests/e2e/\S+\.py)(?: -k (\S+))?", text_of(document)):
            yield pytest.param(file, word, id=f"{document}: {file} {word}")


@pytest.mark.parametrize("file, word", end_to_end_commands())
def test_a_command_runs_a_test(file, word):
    tests = re.findall(r"^def (test_\w+)", text_of(file), re.M)
    assert [name for name in tests if word in name]


def test_the_programs_that_are_to_be_built_have_sources():
    named = {name for document in DOCUMENTS for name in re.findall(r"build/dev/(tests/\S+)", text_of(document))}
    assert named and not [name for name in named if not (CHECKOUT / f"{name}.cpp").exists()]
