"""Manual pages, completion and versions say what the programs say."""

import os
import re
import subprocess
from pathlib import Path

import pytest

BUILD = Path(os.environ["LODESTARD_BUILD"])
CHECKOUT = Path(__file__).resolve().parents[2]
TEST_ENGINE = CHECKOUT / "engines/fake_orv.py"
PROGRAMS = {"lodestar-watch.1": "clients/lodestar-watch/lodestar-watch",
            "lodestar-dialogs.1": "clients/lodestar-dialogs/lodestar-dialogs",
            "orvd-gpsd.8": "engines/orvd-gpsd/orvd-gpsd",
            "lodestard-tests.7": TEST_ENGINE}
DAEMON_PAGE = CHECKOUT / "packaging/man/lodestard.8.in"
VERSION = re.search(r"^project\(lodestard VERSION ([0-9.]+) ", (CHECKOUT / "CMakeLists.txt").read_text(), re.M)[1]
DAEMON_OPTIONS = {"-l", "--logfile", "-nl", "--no-logfile", "-v", "--verbose", "-nv", "--no-verbose", "-w", "--warning",
                  "-nw", "--no-warning", "-d", "--daemon"}


def rendered(page):
    """The page as plain text; troff has nothing to complain of."""
    result = subprocess.run(["man", "--warnings", "--encoding=UTF-8", "--local-file", page], text=True, check=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "1000", "MANROFFOPT": "-ww"})
    assert result.stderr == ""
    return result.stdout.replace("\N{HYPHEN}", "-").replace("\N{MINUS SIGN}", "-")


def options(text):
    return set(re.findall(r"(?<![\w-])--?[a-zA-Z][\w-]*", text))


def help_of(page):
    return subprocess.run([BUILD / PROGRAMS[page], "--help"], text=True, check=True, stdout=subprocess.PIPE,
                          env={**os.environ, "COLUMNS": "200"}).stdout


@pytest.mark.parametrize("page", PROGRAMS)
def test_the_page_explains_the_options_of_the_program(page):
    explained = set()
    for line in rendered(CHECKOUT / "packaging/man" / page).splitlines():
        if re.match(r" {7}-", line):
            explained |= options(line)
    offered = set()
    for line in help_of(page).splitlines():
        if re.match(r" +-", line):
            offered |= options(line.split("  ", 2)[1])
    assert explained == offered and "--version" in offered


def test_the_daemons_page_explains_its_options():
    explained = set()
    for line in rendered(DAEMON_PAGE).splitlines():
        if re.match(r" {7}-", line):
            explained |= options(line)
    assert explained == DAEMON_OPTIONS


@pytest.mark.parametrize("page", [*PROGRAMS, DAEMON_PAGE.name])
def test_the_page_says_what_anybody_asks(page):
    headings = re.findall(r"^[A-Z][A-Z -]+$", rendered(CHECKOUT / "packaging/man" / page), re.M)
    assert {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES", "SEE ALSO"} <= set(headings)


def test_the_test_engines_page_explains_its_commands():
    offered = help_of("lodestard-tests.7").split("JSON:\n")[1].split("\nOptions:")[0]
    explained = set(re.findall(r"\w+", rendered(CHECKOUT / "packaging/man/lodestard-tests.7")))
    names = set(re.findall(r"^  (\w+)|\| ([a-z]+)", offered, re.M))
    names = {first or second for first, second in names}
    assert len(names) > 15 and not names - explained


@pytest.mark.parametrize("words, expected", [
    (["lodestar-watch", "--s"], {"--satellites", "--seconds"}),
    (["lodestar-watch", "--methods", "n"], {"network"}),
    (["lodestar-watch", "-s", ""], set())])
def test_completion(words, expected):
    assert complete(words) == expected


def test_completion_knows_every_long_option():
    assert complete(["lodestar-watch", "--"]) == {o for o in options(help_of("lodestar-watch.1")) if o.startswith("--")}


def complete(words):
    script = ('source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _lodestar_watch; '
              'printf "%s\\n" "${COMPREPLY[@]}"; complete -p "$1" >&2')
    result = subprocess.run(["bash", "--norc", "-c", script, CHECKOUT / "packaging/bash-completion/lodestar-watch",
                             *words], text=True, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert "_lodestar_watch" in result.stderr
    return set(result.stdout.split())


def test_one_version_everywhere():
    texts = {name: (CHECKOUT / name).read_text(encoding="utf-8") for name in ("packaging/debian/changelog", "CHANGELOG.md")}
    assert re.match(r"lodestard \((.*)\)", texts["packaging/debian/changelog"])[1] == VERSION
    assert re.search(r"^## ([0-9.]+)", texts["CHANGELOG.md"], re.M)[1] == VERSION
    for page in (CHECKOUT / "packaging/man").iterdir():
        assert f'"lodestard {VERSION}"' in page.read_text(encoding="utf-8").splitlines()[0]
    said = subprocess.run([TEST_ENGINE, "--version"], check=True, text=True, stdout=subprocess.PIPE).stdout
    assert said == f"fake_orv.py {VERSION}\n"
