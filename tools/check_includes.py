#!/usr/bin/env python3
"""Includes point downwards: each folder of src/ knows only itself and the floors below it; the system stands behind
src/Platform and R_Types.h; kernels stand alone; tools and tests of the interface know only the public headers.

usage: check_includes.py
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# From the ground up. Folders of one floor do not know each other.
FLOORS = [
    ["Platform"],
    ["Common", "Kernel/Pixels"],
    ["Kernel/Base"],
    ["Kernel/Services"],
    ["Kernel/Rows"],
    ["Kernel/Core"],
    ["Kernel/Colour", "Kernel/Geometry"],
    ["Kernel/Lists"],
]
FLOOR_OF = {folder: number for number, floor in enumerate(FLOORS) for folder in floor}

# The standard headers that neither throw nor own memory.
STANDARD = set("""algorithm array atomic bit cerrno cfloat climits clocale cmath compare concepts cstdarg cstddef cstdint
cstdio cstdlib cstring initializer_list iterator limits new numeric optional span string_view tuple type_traits utility
float.h limits.h locale.h stdarg.h stddef.h stdint.h string.h""".split())
KERNEL_STANDARD = {"stddef.h", "stdint.h", "string.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def folder_of(path):
    """The folder on a floor that a path below src/ belongs to; None for others."""
    return next((folder for folder in FLOOR_OF if path.startswith(folder + "/")), None)


def target_of(file, name):
    """What a quoted include names, relative to the root."""
    for start in (file.parent, ROOT / "src", ROOT / "Include"):
        if (start / name).is_file():
            return (start / name).resolve().relative_to(ROOT).as_posix()
    return None


def system_problem(place, name):
    if re.match(r"src/Kernel/Pixels/Simd/\w+_", place):
        return None if name in KERNEL_STANDARD else f"kernels include only {', '.join(sorted(KERNEL_STANDARD))}"
    if place.startswith("src/Platform/") or place == "Include/R_Types.h":
        return None
    return None if name in STANDARD else "only src/Platform and R_Types.h include the system's headers"


def quoted_problem(file, place, name):
    target = target_of(file, name)
    if target is None:
        return "is not a header of the kernel" if place.startswith(("src/", "Include/")) else None
    if place.startswith("Include/"):
        return None if target.startswith("Include/") else "public headers know only each other"
    if place in ("bench/Kernels_bench.cpp", "bench/DitherRows_bench.cpp") and target.startswith(
        ("src/Kernel/Pixels/", "src/Kernel/Colour/Dither.h")
    ):
        return None  # the variants of a row kernel are not reached by any public call
    if place.startswith(("tools/", "tests/Abi/", "bench/")):
        return "callers know only the public headers" if target.startswith("src/") else None
    if not place.startswith("src/") or target.startswith("Include/"):
        return None
    own, other = folder_of(place[4:]), folder_of(target[4:])
    if own is None or other is None:
        return "stands in a folder that has no floor"
    if own != other and FLOOR_OF[other] >= FLOOR_OF[own]:
        return f"{own} may not know {other}"
    return None


def problems(file):
    place = file.relative_to(ROOT).as_posix()
    for mark, name in INCLUDE.findall(file.read_text()):
        if mark == '"':
            problem = quoted_problem(file, place, name)
        else:
            problem = system_problem(place, name) if place.startswith(("src/", "Include/")) else None
        if problem:
            yield f"{place}: #include {name}: {problem}"


def main():
    files = [file for folder in ("Include", "src", "tools", "tests/Abi", "bench")
             for file in sorted((ROOT / folder).rglob("*")) if file.suffix in (".h", ".c", ".cpp", ".inc")]
    found = [problem for file in files for problem in problems(file)]
    if found:
        sys.exit("\n".join(found))
    print(f"{len(files)} files point the allowed way")


if __name__ == "__main__":
    main()
