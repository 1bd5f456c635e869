#!/usr/bin/env python3
"""Runs the benchmarks and prints ours beside memcpy and beside the other libraries, services beside their best peer.

usage: report.py BENCHMARK [--json FILE] [--filter REGEX] [--repetitions N]

BENCHMARK is the built rvkrn_bench. Every measurement is repeated, the repetitions of all of them mixed, and the median
is shown. "x copy" is the time over that of a memcpy of the job's bytes in the same process. What no copy can be the
measure of (files, threads) is held to the fastest of those who do the same work: "x peer" is the time over theirs.
--json keeps the raw results.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

# The most that a job may take, in copies of its bytes.
TARGETS = {
    "read all rows": 1.1,
    "write all rows": 1.1,
    "new 50 MB, first write": 3.0,
    "flip 8": 1.4,
    "flip 24": 1.2,
    "mirror 1": 3.0,
    "mirror 8": 1.9,
    "mirror 24": 1.9,
    "copy 24": 1.1,
    "copy rect 24": 1.3,
    "copy rect 1 odd": 2.5,
    "fill 24": 1.05,
    "AND 1": 1.5,
    "XOR 1": 1.5,
    "AND 1 shifted": 2.5,
    "XOR 1 shifted": 2.5,
    "add 8": 1.2,
    "add 24": 1.3,
    "over 32": 1.4,
    "rotate 90 1": 11.0,
    "rotate 90 8, 4000x3000": 5.5,
    "rotate 90 8, 4096x4096": 4.0,
    "rotate 90 24, 4000x3000": 4.5,
    "rotate 90 24, 4096x4096": 3.2,
    "rotate 180 1": 3.0,
    "rotate 180 8": 1.6,
    "rotate 180 24": 2.0,
    "bits to bytes": 1.6,
    "24 to gray": 0.8,
    "gray to 24": 0.7,
    "Floyd-Steinberg 8 to 1": 60.0,
    "ordered 8 to 1": 1.6,
    "Floyd-Steinberg 24 to 256": 55.0,
    "rotate 30 nearest 1": 240.0,
    "rotate 30 nearest 8": 14.0,
    "rotate 30 nearest 24": 7.0,
    "rotate 30 bilinear 8": 35.0,
    "rotate 30 bilinear 24": 14.0,
    "deskew 1": 230.0,
    "resize nearest 8 down": 1.5,
    "resize nearest 8 up": 2.6,
    "resize nearest 24 down": 0.9,
    "resize nearest 24 up": 2.3,
    "bilinear 8 down": 3.0,
    "bilinear 8 up": 4.5,
    "bilinear 24 down": 1.6,
    "bilinear 24 up": 3.0,
    "spline 8 up": 20.0,
    "spline 24 up": 20.0,
    "area 24 down": 6.0,
    "page to gray 1/4": 2.5,
    "page to gray": 60.0,
    "page to runs": 20.0,
    "runs to page": 20.0,
}
YARDSTICKS = {
    "read all rows": "memcpy row by row",
    "write all rows": "memcpy row by row",
    "new 50 MB, first write": "memset of memory in use",
    **{job: "memset" for job in ("fill 24", "fill 8", "fill 1", "fill 24, small", "fill 1, compressed")},
}
LINE = re.compile(r"mirror line (\d+)$")
LINE_PIXELS = 4000 * 1000  # pixels that one iteration mirrors
HERE = os.path.dirname(os.path.abspath(__file__))


def measure(binary, repetitions, wanted):
    """The benchmark's own JSON."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        command = [binary, f"--benchmark_out={out.name}", "--benchmark_out_format=json",
                   f"--benchmark_repetitions={repetitions}", "--benchmark_report_aggregates_only=true",
                   "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.05"]
        if wanted:
            command.append(f"--benchmark_filter={wanted}")
        run = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
        if run.returncode != 0:
            sys.exit(f"{run.stderr}{binary} ended with {run.returncode}")
        with open(out.name, encoding="utf-8") as file:
            text = file.read()
    if not text:
        sys.exit("no measurement has such a name")
    return json.loads(text)


def medians(raw):
    """{job: {who: ms}}, the jobs with a target first and in their order. Without those that are no times."""
    jobs = {}
    for entry in raw["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry.get('error_message', 'failed')}")
        if entry.get("aggregate_name") != "median" or "bytes" in entry or "psnr" in entry:
            continue
        job, who = entry["run_name"].removesuffix("/real_time").rsplit("/", 1)
        jobs.setdefault(job, {})[who] = entry["real_time"]
    order = list(TARGETS)
    return dict(sorted(jobs.items(), key=lambda item: order.index(item[0]) if item[0] in order else len(order)))


def pillow():
    """What Pillow takes, from a process of its own; empty where there is no Pillow."""
    for python in dict.fromkeys((sys.executable, "/usr/bin/python3")):
        try:
            run = subprocess.run([python, os.path.join(HERE, "pillow_bench.py")], capture_output=True, text=True,
                                 check=True)
            return json.loads(run.stdout)
        except (OSError, subprocess.CalledProcessError, json.JSONDecodeError):
            continue
    return {}


def print_jobs(jobs, peers_of_job):
    copies = {job: times for job, times in jobs.items()
              if "kernel" in times and "copy" in times and not LINE.match(job)}
    if not copies:
        return
    print(f"{'job':24}{'ours ms':>9}{'x copy':>8}{'target':>8}  {'':7} others: ms, x copy")
    for job, times in copies.items():
        ratio = times["kernel"] / times["copy"]
        target = TARGETS.get(job)
        verdict = "" if target is None else "reached" if ratio <= target else "missed"
        others = [f"{who} {ms:.3f}, {ms / times['copy']:.2f}"
                  for who, ms in sorted(times.items(), key=lambda item: item[1]) if who not in ("kernel", "copy")]
        if job in peers_of_job:
            other = peers_of_job[job]
            others.append(f"{other['who']} {other['ms']:.3f}, {other['ms'] / other['copy_ms']:.2f}")
        target = "" if target is None else f"{target:g}"
        print(f"{job:24}{times['kernel']:9.3f}{ratio:8.2f}{target:>8}  {verdict:7} {'; '.join(others)}")
    for job, yardstick in YARDSTICKS.items():
        if job in jobs:
            print(f"  {job}: the copy is {yardstick}, {jobs[job].get('copy', 0):.3f} ms")


def is_ours(who):
    return who.startswith("kernel")


def print_services(jobs):
    services = {job: times for job, times in jobs.items()
                if "kernel" in times and "copy" not in times and len(times) > 1}
    if not services:
        return
    print(f"\n{'job':40}{'ours ms':>9}{'x peer':>8}  {'best peer':20} others: ms, x peer")
    for job, times in sorted(services.items(), key=lambda item: [int(part) if part.isdigit() else part
                                                                 for part in re.split(r"(\d+)", item[0])]):
        peers = [who for who in times if not is_ours(who)] or [who for who in times if who != "kernel"]
        peer, best = min(((who, times[who]) for who in peers), key=lambda item: item[1])
        others = [f"{who} {ms:.3f}, {ms / best:.2f}" for who, ms in sorted(times.items(), key=lambda item: item[1])
                  if who not in ("kernel", peer)]
        print(f"{job:40}{times['kernel']:9.3f}{times['kernel'] / best:8.2f}  {peer:20} {'; '.join(others)}")


def print_lines(jobs):
    lines = {int(LINE.match(job).group(1)): times for job, times in jobs.items() if LINE.match(job)}
    if not lines:
        return
    print("\nR_MirrorLine, one row of 4000 pixels in the cache")
    print(f"{'bits':>6}{'ns/pixel':>10}{'GB/s':>8}{'x copy':>8}")
    for bits, times in sorted(lines.items()):
        nanoseconds = times["kernel"] * 1e6 / LINE_PIXELS
        ratio = times["kernel"] / times["copy"] if "copy" in times else 0
        print(f"{bits:6}{nanoseconds:10.4f}{bits / 8 / nanoseconds:8.1f}{ratio:8.2f}")


def print_held(raw):
    held = [entry for entry in raw["benchmarks"] if entry.get("aggregate_name") == "median" and "bytes" in entry]
    if not held:
        return
    print("\nBytes of memory that a picture takes in each placement")
    for entry in held:
        job, who = re.sub("/iterations:[0-9]*|/real_time", "", entry["run_name"]).rsplit("/", 1)
        print(f"{job.removesuffix(' held'):16}{who:20}{entry['bytes']:12,.0f}, {entry['bytes'] / entry['of']:.2f} of its rows")


def print_quality(raw):
    made = [entry for entry in raw["benchmarks"] if entry.get("aggregate_name") == "median" and "psnr" in entry]
    if not made:
        return
    print("\nWhat a picture keeps with a palette that was made for it")
    for entry in sorted(made, key=lambda entry: -entry["psnr"]):
        job, who = re.sub("/iterations:[0-9]*|/real_time", "", entry["run_name"]).rsplit("/", 1)
        print(f"{job:24}{who.removesuffix(' quality'):30}{entry['psnr']:6.2f} dB")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("benchmark")
    parser.add_argument("--json", metavar="FILE", help="keep the raw results there")
    parser.add_argument("--filter", default="", metavar="REGEX", help="run these measurements only")
    parser.add_argument("--repetitions", type=int, default=9, metavar="N")
    arguments = parser.parse_args()

    raw = measure(arguments.benchmark, arguments.repetitions, arguments.filter)
    from_pillow = pillow()
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as file:
            json.dump({"kernel": raw, "pillow": from_pillow}, file, indent=1)

    context = raw["context"]
    missing = [name for name in context.get("missing", "").split(", ") if name]
    if not from_pillow:
        missing.append("Pillow")
    jobs = medians(raw)
    print_jobs(jobs, from_pillow)
    print_services(jobs)
    print_lines(jobs)
    print_held(raw)
    print_quality(raw)
    print(f"\nOne thread but for work items, medians of {arguments.repetitions}, on {context.get('num_cpus', '?')} processors of "
          f"{context.get('mhz_per_cpu', '?')} MHz.")
    if missing:
        print("Not installed, so not measured: " + ", ".join(missing))


if __name__ == "__main__":
    main()
