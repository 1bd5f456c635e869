#!/usr/bin/env python3
"""Flip, mirror and dither with Pillow, each beside a memcpy of the job's bytes in the same process.

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


SIDE = 2048


def noisy_gradients():
    """A soft picture with noise, whose colours are as many as a photograph's."""
    ramp = Image.linear_gradient("L").resize((SIDE, SIDE))
    ways = (ramp, ramp.transpose(Image.Transpose.ROTATE_90), ramp.transpose(Image.Transpose.FLIP_TOP_BOTTOM))
    return Image.merge("RGB", [Image.blend(way, Image.effect_noise((SIDE, SIDE), 60), 0.2) for way in ways])


def ditherings():
    """job: name, bytes of the job, step"""
    picture = noisy_gradients()
    gray = picture.convert("L")
    palette = picture.quantize(256)
    dither = Image.Dither
    return {
        "Floyd-Steinberg 8 to 1": ("Pillow (8)", SIDE * SIDE, lambda: gray.convert("1")),
        "Floyd-Steinberg 24 to 256": (
            "Pillow (32)", 3 * SIDE * SIDE, lambda: picture.quantize(palette=palette, dither=dither.FLOYDSTEINBERG)),
        "nearest 24 to 256": (
            "Pillow (32)", 3 * SIDE * SIDE, lambda: picture.quantize(palette=palette, dither=dither.NONE)),
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


def turns():
    steps = {}
    for job, (mode, who, width, height, size, operation) in JOBS.items():
        picture = Image.new(mode, (width, height), 1)
        steps[job] = (who, size, lambda picture=picture, operation=operation: picture.transpose(operation))
    return steps


def main():
    Image.core.set_blocks_max(256)  # keeps freed pixels, so that new pages are not counted
    results = {}
    for job, (who, size, step) in {**turns(), **ditherings()}.items():
        blocks = [warm_block(size), warm_block(size)]
        source, target = (ctypes.addressof(ctypes.c_char.from_buffer(block)) for block in blocks)
        step()
        ours, copies = [], []
        for _ in range(REPETITIONS):
            ours.append(seconds(step))
            copies.append(seconds(lambda: ctypes.memmove(target, source, size)))
        results[job] = {
            "who": who,
            "ms": statistics.median(ours) * 1e3,
            "copy_ms": statistics.median(copies) * 1e3,
        }
    json.dump(results, sys.stdout)


if __name__ == "__main__":
    main()
