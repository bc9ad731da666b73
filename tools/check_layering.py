#!/usr/bin/env python3
"""Fails when a source below src/ includes what its folder may not.

The folder list is the architecture: daemon -> core -> engine, client, settings, network, gypsy ->
platform -> Qt and POSIX. Siblings meet only in core.
"""
import pathlib
import re
import sys

SIBLINGS = ("engine", "client", "settings", "network", "gypsy")
MAY_INCLUDE = {"platform": {"platform"}, "core": {"core", "platform", *SIBLINGS}, "daemon": {"daemon", "core", "platform"}}
MAY_INCLUDE.update({folder: {folder, "platform"} for folder in SIBLINGS})

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def offences(source_root):
    for path in sorted(source_root.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        folder = path.relative_to(source_root).parts[0]
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match or match.group(1).endswith(".moc"):
                continue
            target = match.group(1).split("/")[0]
            if "/" not in match.group(1) or target not in MAY_INCLUDE.get(folder, set()):
                yield f"{path}:{number}: {folder}/ may not include \"{match.group(1)}\""


def main():
    root = pathlib.Path(__file__).resolve().parent.parent / "src"
    found = list(offences(root))
    print("\n".join(found) if found else "layering holds")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
