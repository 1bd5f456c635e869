#!/usr/bin/env python3
"""Counts what a run of the tests left behind.

usage: test_report.py DIR

DIR has a folder for each configuration. In it, NAME.result holds a kind and an exit code; a gtest also leaves NAME.xml,
and everything leaves NAME.log, from which the cases of a kind of that name are read. Ends with failure when a test failed, a program ended badly, or a configuration ran
nothing.
"""
import pathlib
import re
import sys
import xml.etree.ElementTree


class Count:
    def __init__(self):
        self.passed, self.failed, self.skipped = 0, [], []

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped

    def ran(self):
        return self.passed + len(self.failed)

    def __str__(self):
        return f"{self.passed} passed, {len(self.failed)} failed, {len(self.skipped)} skipped"


def tail(log):
    lines = log.read_text(errors="replace").splitlines()[-40:] if log.exists() else []
    return "\n".join("    " + line for line in lines)


def reason_of(skipped):
    """A skip's text without the place it stands at."""
    lines = (skipped.get("message") or "").splitlines()
    return " ".join(lines[1:]).strip() or "no reason given"


def count_cases(where, file, count):
    for case in xml.etree.ElementTree.parse(file).iter("testcase"):
        name = f"{where}: {case.get('classname')}.{case.get('name')}"
        failures, skipped = case.findall("failure"), case.find("skipped")
        if case.get("status") != "run":
            count.skipped.append(f"{name}: disabled in its source")
        elif failures:
            count.failed.append(name + "\n" + "\n".join("    " + (f.get("message") or "").replace("\n", "\n    ")
                                                        for f in failures))
        elif skipped is not None:
            count.skipped.append(f"{name}: {reason_of(skipped)}")
        else:
            count.passed += 1


def count_lines(where, log, count):
    """Cases that are told in lines like GoogleTest's; what a case prints stands between its first and its last line."""
    said = []
    for line in log.read_text(errors="replace").splitlines():
        verdict = re.match(r"\[ +(RUN|OK|FAILED|SKIPPED) +\] (\S.*?)( \(\d+ ms\))?$", line)
        if verdict is None:
            said.append(line)
        elif verdict[1] == "RUN":
            said = []
        elif verdict[3]:  # without a time it is the list at the end
            name = f"{where}: {verdict[2]}"
            if verdict[1] == "OK":
                count.passed += 1
            elif verdict[1] == "SKIPPED":
                count.skipped.append(f"{name}: {' '.join(said).removeprefix('skipped: ') or 'no reason given'}")
            else:
                count.failed.append(name + "".join("\n    " + text for text in said))


def count_result(file):
    """What one program or check has to say."""
    count = Count()
    kind, status = file.read_text().split()
    where = f"{file.parent.name}: {file.stem}"
    cases = file.with_suffix(".xml")
    if kind == "gtest" and cases.exists():
        count_cases(file.parent.name, cases, count)
    elif kind == "cases":
        count_lines(file.parent.name, file.with_suffix(".log"), count)
    elif kind == "check" and status == "0":
        count.passed = 1
    # A build counts only when it fails; a program that dies counts even if every test it told of passed.
    if status != "0" and not count.failed:
        count.failed.append(f"{where} ended with {status}\n{tail(file.with_suffix('.log'))}")
    return count


def main(directory):
    total = Count()
    configurations = sorted(folder for folder in pathlib.Path(directory).glob("*") if folder.is_dir())
    for folder in configurations:
        count = Count()
        for file in sorted(folder.glob("*.result")):
            count.add(count_result(file))
        if count.ran() == 0:
            count.failed.append(f"{folder.name}: no test ran")
        print(f"{folder.name}: {count.ran()} tests ran: {count}")
        total.add(count)
    for title, lines in (("Skipped:", total.skipped), ("Failed:", total.failed)):
        if lines:
            print(f"\n{title}")
            print("\n".join("  " + line for line in lines))
    print(f"\n{total}")
    return 0 if configurations and not total.failed else 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1]))
