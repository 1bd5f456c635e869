#!/usr/bin/env python3
"""Flip and mirror with Pillow, each beside a memcpy of the job's bytes in the same process.

Prints one JSON object: {job: {"who": name, "ms": time, "copy_ms": time}}. Pillow holds 1-bit pixels in 8 bits and
24-bit ones in 32; the name says so.
"""

import ctypes
import json
import mmap
import statistics
import sys
import time

from PIL import Image

REPETITIONS = 15
# job: mode, name, width, height, bytes of the job, operation
JOBS = {
    "flip 1": ("1", "Pillow (8)", 2480, 3508, 312 * 3508, Image.Transpose.FLIP_TOP_BOTTOM),
    "flip 8": ("L", "Pillow", 4096, 4096, 4096 * 4096, Image.Transpose.FLIP_TOP_BOTTOM),
    "flip 24": ("RGB", "Pillow (32)", 4096, 4096, 3 * 4096 * 4096, Image.Transpose.FLIP_TOP_BOTTOM),
    "mirror 1": ("1", "Pillow (8)", 2480, 3508, 312 * 3508, Image.Transpose.FLIP_LEFT_RIGHT),
    "mirror 8": ("L", "Pillow", 4096, 4096, 4096 * 4096, Image.Transpose.FLIP_LEFT_RIGHT),
    "mirror 24": ("RGB", "Pillow (32)", 4096, 4096, 3 * 4096 * 4096, Image.Transpose.FLIP_LEFT_RIGHT),
}


def warm_block(size):
    block = mmap.mmap(-1, size, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    block.madvise(mmap.MADV_HUGEPAGE)
    ctypes.memset(ctypes.addressof(ctypes.c_char.from_buffer(block)), 1, size)
    return block


def seconds(step):
    start = time.perf_counter()
    step()
    return time.perf_counter() - start


def main():
    Image.core.set_blocks_max(256)  # keeps freed pixels, so that new pages are not counted
    results = {}
    for job, (mode, who, width, height, size, operation) in JOBS.items():
        blocks = [warm_block(size), warm_block(size)]
        source, target = (ctypes.addressof(ctypes.c_char.from_buffer(block)) for block in blocks)
        picture = Image.new(mode, (width, height), 1)
        picture.transpose(operation)
        ours, copies = [], []
        for _ in range(REPETITIONS):
            ours.append(seconds(lambda: picture.transpose(operation)))
            copies.append(seconds(lambda: ctypes.memmove(target, source, size)))
        results[job] = {
            "who": who,
            "ms": statistics.median(ours) * 1e3,
            "copy_ms": statistics.median(copies) * 1e3,
        }
    json.dump(results, sys.stdout)


if __name__ == "__main__":
    main()
