#!/usr/bin/env python3
"""Holds tools/exports.txt to the public headers and to what the libraries export.

usage: check_exports.py headers         the list names what Include/ declares, and tags it rightly
       check_exports.py library FILE…   each library (.so or .DLL) exports the list and nothing else
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DECLARATION = re.compile(r"^R_API\b([^;(]*?)\b(\w+)\s*\(([^;]*)\)\s*R_NOEXCEPT\s*;", re.MULTILINE)


def listed():
    """The list: name -> tags."""
    entries = {}
    for line in (ROOT / "tools/exports.txt").read_text().splitlines():
        words = line.split("#")[0].split()
        if not words:
            continue
        if words[0] in entries:
            sys.exit(f"tools/exports.txt names {words[0]} twice")
        entries[words[0]] = set(words[1:])
    return entries


def declared():
    """The headers: name -> parameters."""
    entries = {}
    for header in sorted((ROOT / "Include").rglob("*.h")):
        text = re.sub(r"//[^\n]*", "", header.read_text())
        found = DECLARATION.findall(text)
        if len(found) != len(re.findall(r"^R_API\b", text, re.MULTILINE)):
            sys.exit(f"{header.relative_to(ROOT)}: a declaration with R_API cannot be read (R_NOEXCEPT missing?)")
        entries.update((name, parameters) for _, name, parameters in found)
    return entries


def exported(library):
    """What a library lets out; empty where its tables cannot be read."""
    if library.suffix.lower() == ".dll":
        text = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", library], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        table = text.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
        return set(re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table, re.MULTILINE))
    text = subprocess.run(["nm", "-D", "--defined-only", library], check=True, text=True, stdout=subprocess.PIPE).stdout
    return {line.split()[-1].split("@")[0] for line in text.splitlines()}


def differences(what, found, expected):
    lines = [f"{what} lets out {name}, which tools/exports.txt does not name" for name in sorted(found - expected)]
    return lines + [f"{what} lacks {name} of tools/exports.txt" for name in sorted(expected - found)]


def main(arguments):
    entries = listed()
    problems = []
    if arguments == ["headers"]:
        names = declared()
        problems += differences("Include/", set(names), set(entries))
        for name, tags in entries.items():
            takes_bitmap = re.search(r"\bBITMAPHANDLE\s*\*", names.get(name, "")) is not None
            if takes_bitmap != ("bitmap" in tags) or ("pixels" in tags and not takes_bitmap):
                problems.append(f"tools/exports.txt: the tags of {name} do not fit its declaration")
    elif len(arguments) > 1 and arguments[0] == "library":
        for library in map(pathlib.Path, arguments[1:]):
            problems += differences(library.name, exported(library), set(entries))
    else:
        sys.exit(__doc__)
    if problems:
        sys.exit("\n".join(problems))
    print(f"{len(entries)} names, all accounted for")


if __name__ == "__main__":
    main(sys.argv[1:])
