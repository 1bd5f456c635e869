#!/usr/bin/env python3
"""Public headers compile as C11 and C++20, each alone and all in any order, with every compiler there is.

usage: check_headers.py
"""
import concurrent.futures
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COMPILERS = {
    "c": ["gcc", "clang", "x86_64-w64-mingw32-gcc-posix"],
    "c++": ["g++", "clang++", "x86_64-w64-mingw32-g++-posix"],
}
STANDARD = {"c": "c11", "c++": "c++20"}


def texts():
    """What to compile: a title and the headers in their order."""
    headers = sorted(header.relative_to(ROOT / "Include").as_posix() for header in (ROOT / "Include").rglob("*.h"))
    for header in headers:
        yield header + " alone, twice", [header, header]
    # A header that needs an earlier one fails in one of these two orders, or alone.
    yield "all headers", headers
    yield "all headers, backwards", headers[::-1]


def compile_one(language, compiler, title, headers):
    source = "".join(f'#include "{header}"\n' for header in headers)
    done = subprocess.run([compiler, f"-std={STANDARD[language]}", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow",
                           "-Wundef", "-Werror", "-fsyntax-only", "-I", ROOT / "Include", "-x", language, "-"],
                          input=source, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return None if done.returncode == 0 else f"{compiler}: {title}\n{done.stdout}"


def main():
    jobs = []
    for language, compilers in COMPILERS.items():
        for compiler in compilers:
            if shutil.which(compiler) is None:
                sys.exit(f"{compiler} is missing")
            jobs += [(language, compiler, title, headers) for title, headers in texts()]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = [problem for problem in pool.map(lambda job: compile_one(*job), jobs) if problem]
    if found:
        sys.exit("\n".join(found))
    print(f"{len(jobs)} compilations")


if __name__ == "__main__":
    main()
