#!/usr/bin/env python3
"""The project speaks of itself alone: committed text names no outside document and no path of one machine.

usage: check_words.py
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# In pieces, so that this file does not hold what it looks for.
OUTSIDE = "s" + "pec"
WORDS = re.compile(rf"\b{OUTSIDE}(s|ified|ification|ifications)?\b|\bPart [1-8]\.[0-9]|left to the imple"
                   r"menter|\bissues? #?\d", re.IGNORECASE)
PATHS = re.compile("/(wo" + "rk|fa" + "rm)/|/tmp/ba" + "sh_|/ho" + r"me/\w")
# Messages to users stand as they always did, whatever their words.
MESSAGES = "src/Kernel/Base/StatusTexts.inc"
# A file format's own published text may be named.
PUBLISHED = re.compile(rf"(TIFF|PNG|JPEG|BMP|EXIF|Exif|Netpbm|ICC|ISO|RFC|IEEE|C\+\+)[^.;]* {OUTSIDE}", re.IGNORECASE)


def problems(name):
    try:
        text = (ROOT / name).read_text()
    except (UnicodeDecodeError, FileNotFoundError):
        return
    for number, line in enumerate(text.splitlines(), 1):
        if name != MESSAGES and WORDS.search(line) and not PUBLISHED.search(line):
            yield f"{name}:{number}: speaks of an outside document: {line.strip()}"
        if PATHS.search(line):
            yield f"{name}:{number}: carries a path of one machine: {line.strip()}"


def main():
    names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, text=True, stdout=subprocess.PIPE).stdout
    names = [name for name in names.split("\0") if name]
    found = [problem for name in names for problem in problems(name)]
    if found:
        sys.exit("\n".join(found))
    print(f"{len(names)} files read")


if __name__ == "__main__":
    main()
