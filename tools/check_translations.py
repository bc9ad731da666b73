#!/usr/bin/python3
"""Fails when the translations do not hold the texts of the sources, or when one is unfinished.

    check_translations.py [--update]

--update brings the .ts files up to date; what is new is then to be translated.
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

SOURCES = pathlib.Path(__file__).resolve().parent.parent / "clients" / "lodestar-dialogs"
TEMPLATE = "lodestar-dialogs.ts"
PLURALS_ONLY = ("lodestar-dialogs_en.ts",)  # the sources are English, but for their plural forms


def update(file):
    tool = shutil.which("lupdate", path="/usr/lib/qt6/bin:/usr/bin")
    if not tool:
        sys.exit("lupdate is missing: tools/install-deps installs it")
    plurals = ["-pluralonly"] if file.name in PLURALS_ONLY else []
    subprocess.run([tool, "-silent", "-locations", "none", "-no-obsolete", *plurals, SOURCES, "-ts", file], check=True)


def messages(file):
    """Context, text and whether the translation is complete."""
    for context in ElementTree.parse(file).iter("context"):
        for message in context.iter("message"):
            translation = message.find("translation")
            yield (context.findtext("name"), message.findtext("source")), translation.get("type") != "unfinished"


def offences(file):
    with tempfile.TemporaryDirectory() as folder:
        fresh = pathlib.Path(folder) / file.name
        shutil.copy(file, fresh)
        update(fresh)
        written, wanted = dict(messages(file)), dict(messages(fresh))
    yield from (f"{file.name}: missing: {text}" for text in wanted if text not in written)
    yield from (f"{file.name}: not in the sources: {text}" for text in written if text not in wanted)
    if file.name != TEMPLATE:
        yield from (f"{file.name}: not translated: {text}" for text, is_done in written.items() if not is_done)


def main():
    files = sorted((SOURCES / "translations").glob("*.ts"))
    if sys.argv[1:] == ["--update"]:
        for file in files:
            update(file)
        return 0
    found = [line for file in files for line in offences(file)]
    print("\n".join(found) if found else f"{len(files)} translations are up to date")
    return 1 if found or not files else 0


if __name__ == "__main__":
    sys.exit(main())
