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
CLASS = re.compile(r"^class R_EXPORT (\w+)[^;{]*\{(.*?)^\};", re.MULTILINE | re.DOTALL)
DECLARATION = re.compile(r"^R_API\b([^;(]*?)\b(\w+)\s*\(([^;]*)\)\s*R_NOEXCEPT\s*;", re.MULTILINE)


def listed():
    """The list: the functions, name -> tags, and the names of the classes."""
    functions, classes = {}, set()
    for line in (ROOT / "tools/exports.txt").read_text().splitlines():
        words = line.split("#")[0].split()
        if not words:
            continue
        name = words[1] if words[0] == "class" else words[0]
        if name in functions or name in classes:
            sys.exit(f"tools/exports.txt names {name} twice")
        if words[0] == "class":
            classes.add(name)
        else:
            functions[name] = set(words[1:])
    return functions, classes


def members(name, body):
    """What a class declares and does not delete: name::member."""
    body = re.sub(r"\{[^{}]*\}", ";", body)
    declarations = (" ".join(text.split()) for text in re.split(r";|\b(?:public|protected|private):", body))
    declarations = (text for text in declarations if "(" in text and not re.search(r"^alignas|\(\*|= *delete$", text))
    return {f"{name}::" + re.match(r".*?((?:operator *[^\s(]+|[~\w]+)) *\(", text)[1].replace(" ", "")
            for text in declarations}


def declared():
    """The headers: functions, name -> parameters, and classes, name -> members."""
    functions, classes = {}, {}
    for header in sorted((ROOT / "Include").rglob("*.h")):
        text = re.sub(r"//[^\n]*", "", header.read_text())
        found = DECLARATION.findall(text)
        if len(found) != len(re.findall(r"^R_API\b", text, re.MULTILINE)):
            sys.exit(f"{header.relative_to(ROOT)}: a declaration with R_API cannot be read (R_NOEXCEPT missing?)")
        functions.update((name, parameters) for _, name, parameters in found)
        found = CLASS.findall(text)
        if len(found) != len(re.findall(r"^(?:class|struct)\s+R_EXPORT\b", text, re.MULTILINE)):
            sys.exit(f"{header.relative_to(ROOT)}: a class with R_EXPORT cannot be read")
        classes.update((name, members(name, body)) for name, body in found)
    return functions, classes


def exported(library):
    """What a library lets out; empty where its tables cannot be read."""
    if library.suffix.lower() == ".dll":
        text = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", library], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        table = text.partition("[Ordinal/Name Pointer] Table")[2].partition("\n\n")[0]
        names = re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table, re.MULTILINE)
    else:
        text = subprocess.run(["nm", "-D", "--defined-only", library], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        names = [line.split()[-1].split("@")[0] for line in text.splitlines()]
    readable = subprocess.run(["c++filt"], check=True, text=True, input="\n".join(names), stdout=subprocess.PIPE).stdout
    return {symbol.partition("(")[0] for symbol in readable.splitlines()}  # overloads count as one


def expected(functions, classes):
    """What a library has to let out, and what it may let out besides."""
    must, may = set(functions), set()
    for name, names in classes.items():
        must |= names | {f"vtable for {name}", f"typeinfo for {name}"}
        may |= {f"typeinfo name for {name}", f"{name}::{name}", f"{name}::operator="}  # the compiler's own
    return must, may


def differences(what, found, must, may=frozenset()):
    lines = [f"{what} lets out {name}, which tools/exports.txt does not name" for name in sorted(found - must - may)]
    return lines + [f"{what} lacks {name} of tools/exports.txt" for name in sorted(must - found)]


def main(arguments):
    functions, classes = listed()
    names, bodies = declared()
    problems = []
    if arguments == ["headers"]:
        problems += differences("Include/", set(names) | set(bodies), set(functions) | classes)
        for name, tags in functions.items():
            takes_bitmap = re.search(r"\bBITMAPHANDLE\s*\*", names.get(name, "")) is not None
            if takes_bitmap != ("bitmap" in tags) or ("pixels" in tags and not takes_bitmap):
                problems.append(f"tools/exports.txt: the tags of {name} do not fit its declaration")
    elif len(arguments) > 1 and arguments[0] == "library":
        must, may = expected(functions, {name: bodies.get(name, set()) for name in classes})
        for library in map(pathlib.Path, arguments[1:]):
            problems += differences(library.name, exported(library), must, may)
    else:
        sys.exit(__doc__)
    if problems:
        sys.exit("\n".join(problems))
    print(f"{len(functions)} functions and {len(classes)} classes, all accounted for")


if __name__ == "__main__":
    main(sys.argv[1:])
