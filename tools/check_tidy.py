#!/usr/bin/env python3
"""Runs clang-tidy over the library and the tool. A file whose text, headers and settings have been seen clean is not
looked at again.

usage: check_tidy.py BUILD   a build directory that has compile_commands.json
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def fingerprint(paths):
    whole = hashlib.sha256()
    for path in paths:
        whole.update(path.name.encode() + b"\0" + path.read_bytes() + b"\0")
    return whole.hexdigest()


def main(build):
    build = (ROOT / build).resolve()
    entries = json.loads((build / "compile_commands.json").read_text())
    sources = sorted({pathlib.Path(entry["file"]) for entry in entries})
    sources = [file for file in sources if file.is_relative_to(ROOT / "src") or file.is_relative_to(ROOT / "tools")]
    shared = [file for folder in ("Include", "src", "tools") for file in sorted((ROOT / folder).rglob("*"))
              if file.suffix in (".h", ".inc")]
    common = fingerprint([ROOT / ".clang-tidy", ROOT / "tools/.clang-tidy", *shared])
    seen = build / "tidy"
    seen.mkdir(exist_ok=True)

    def look(file):
        mark = seen / hashlib.sha256((common + fingerprint([file])).encode()).hexdigest()
        if mark.exists():
            return None
        done = subprocess.run(["clang-tidy", "--quiet", "-p", build, file], text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        if done.returncode == 0:
            mark.touch()
            return None
        return done.stdout

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = [problem for problem in pool.map(look, sources) if problem]
    if found:
        sys.exit("\n".join(found))
    print(f"{len(sources)} files looked at")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
