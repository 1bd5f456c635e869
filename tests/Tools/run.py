#!/usr/bin/env python3
"""Tests of rvimg, as a person and other programs see it.

usage: run.py --rvimg PROGRAM [--runner wine] [--filter TEXT] [--thorough]
"""
import argparse
import collections
import os
import pathlib
import shutil
import sys
import time
import traceback

try:
    import numpy  # noqa: F401
    import PIL    # noqa: F401
except ImportError:
    # The packages belong to the system's own Python, which need not be the first in the path.
    if sys.executable == "/usr/bin/python3" or not os.path.exists("/usr/bin/python3"):
        sys.exit("python3-numpy and python3-pil are missing")
    os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.dont_write_bytecode = True

import support  # noqa: E402
import broken_test  # noqa: E402
import colour_test  # noqa: E402, F401
import command_test  # noqa: E402, F401
import keeping_test  # noqa: E402, F401
import model_test  # noqa: E402, F401
import reading_test  # noqa: E402, F401
import shaping_test  # noqa: E402, F401
import working_test  # noqa: E402, F401


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rvimg", required=True)
    parser.add_argument("--runner", help="what runs the program, such as wine")
    parser.add_argument("--filter", default="", help="only cases whose name contains this")
    parser.add_argument("--thorough", action="store_true", help="more broken files")
    options = parser.parse_args()
    broken_test.SAMPLES = 1500 if options.thorough else 12 if options.runner else 60
    program = os.path.abspath(options.rvimg)
    tool = support.Tool([options.runner, program] if options.runner else [program])
    failed, skipped, passed, absent = [], 0, 0, collections.Counter()
    for name, function in support.CASES:
        if options.filter not in name:
            continue
        started = time.monotonic()
        tool.fresh()
        told, verdict = "", "       OK "
        try:
            function(tool)
            passed += 1
        except support.Absent as reason:
            absent[reason.formats[0]] += 1
            continue
        except support.Skip as reason:
            skipped += 1
            told, verdict = f"skipped: {reason}\n", "  SKIPPED "
        except Exception:  # noqa: BLE001: whatever it is, the case has failed
            failed.append(name)
            told, verdict = traceback.format_exc(), "  FAILED  "
        took = (time.monotonic() - started) * 1000
        print(f"[ RUN      ] {name}\n{told}[{verdict}] {name} ({took:.0f} ms)", flush=True)
    for name, count in sorted(absent.items()):
        skipped += 1
        print(f"[ RUN      ] Formats.{name}\nskipped: this build has no {name}; {count} cases need it\n"
              f"[  SKIPPED ] Formats.{name} (0 ms)")
    shutil.rmtree(tool.home, ignore_errors=True)
    for name in failed:
        print(f"[  FAILED  ] {name}")
    print(f"{passed} passed, {len(failed)} failed" + (f", {skipped} skipped" if skipped else ""))
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
