#!/usr/bin/python3
"""Fails when docs/capabilities.md names a test that is not there.

In its tables stand `file` or `file::test`, with files below tests/. A row without one is a capability that
nothing proves.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs" / "capabilities.md"
NAMED = re.compile(r"`([\w/.-]+\.(?:py|cpp))(?:::(\w+))?`")


def row_offences(proofs, tests):
    named = NAMED.findall(proofs)
    if not named:
        yield "names no test"
    for file, test in named:
        path = tests / file
        if not path.is_file():
            yield f"{file} is not below {tests.name}/"
        elif test and not re.search(rf"\b(def|void) {test}\(", path.read_text(encoding="utf-8")):
            yield f"{file} has no {test}"


def offences(text, tests):
    for number, line in enumerate(text.splitlines(), 1):
        cells = line.strip().strip("|").split(" | ")
        if not line.startswith("|") or line.startswith("|---") or cells[0].strip() == "capability":
            continue
        yield from (f"{number}: {offence}" for offence in row_offences(cells[-1] if len(cells) == 2 else "", tests))


def main():
    text = DOCUMENT.read_text(encoding="utf-8")
    found = [f"{DOCUMENT.name}:{offence}" for offence in offences(text, ROOT / "tests")]
    count = len(NAMED.findall(text))
    print("\n".join(found) if found else f"{count} tests are named, and there")
    return 1 if found or not count else 0


if __name__ == "__main__":
    sys.exit(main())
