"""Broken, truncated and hostile files: a clear message or a whole picture, never a crash, never half a file."""
import os
import struct

import numpy as np
from PIL import Image

from support import case, make_bmp, make_tiff, png, random_bytes, run, tiff_page

SAMPLES = 60  # of each broken file
SIZE = 24, 18


def picture(mode):
    channels = {"RGB": 3, "RGBA": 4}.get(mode, 1)
    if mode == "1":
        return Image.frombytes("L", SIZE, random_bytes(SIZE[0] * SIZE[1])).convert("1")
    image = Image.frombytes(mode, SIZE, random_bytes(SIZE[0] * SIZE[1] * channels))
    if mode == "P":
        image.putpalette(list(random_bytes(768)))
    return image


def saved(mode, ending, **options):
    def make(t):
        picture(mode).save(t.path("whole." + ending), **options)
        return t.path("whole." + ending)
    return make


def rle(t):
    runs = b"".join(bytes((6, y, 0, 5, 1, 2, 3, 4, 5, 0, 13, y, 0, 0)) for y in range(18)) + b"\0\1"
    return make_bmp(t.path("whole.bmp"), 24, 18, 8, runs, palette=random_bytes(1024), compression=1)


def fields(t):
    return make_bmp(t.path("whole.bmp"), 24, 18, 16, random_bytes(48 * 18), (0xF800, 0x7E0, 0x1F), compression=3)


def tiled(t):
    picture("RGB").save(t.path("plain.tif"))
    run("tiffcp", "-t", "-w", "16", "-l", "16", "-c", "lzw", "-p", "separate", t.path("plain.tif"), t.path("whole.tif"))
    return t.path("whole.tif")


def pages(t):
    return make_tiff(t.path("whole.tif"), [tiff_page(24, 18, bits, seed=bits, dpi=200) for bits in (1, 8, 16)])


def plain(t):
    t.path("whole.pgm").write_bytes(b"P2 24 18 255\n" + b" ".join(b"%d" % v for v in random_bytes(24 * 18)))
    return t.path("whole.pgm")


# A picture of each way to be stored, and what reads and writes it.
WHOLE = (
    ("png", saved("RGB", "png", dpi=(90, 90)), "png"), ("png palette", saved("P", "png", transparency=b"\0\1\2"), "png"),
    ("jpeg", saved("RGB", "jpg", quality=70), "jpeg"), ("jpeg progressive", saved("RGB", "jpg", progressive=True), "jpeg"),
    ("tiff pages", pages, "tiff"), ("tiff tiles", tiled, "tiff"),
    ("tiff g4", saved("1", "tif", compression="group4"), "tiff"),
    ("tiff deflate", saved("RGBA", "tif", compression="tiff_adobe_deflate"), "tiff"),
    ("tiff jpeg", saved("RGB", "tif", compression="jpeg"), "tiff"),
    ("tiff packbits", saved("P", "tif", compression="packbits"), "tiff"),
    ("bmp", saved("P", "bmp"), "bmp"), ("bmp runs", rle, "bmp"), ("bmp fields", fields, "bmp"),
    ("pam", saved("RGB", "ppm"), "ppm"), ("pgm plain", plain, "pgm"), ("pbm", saved("1", "ppm"), "pbm"),
)


def survives(t, data, must_fail=False):
    """Reads a file of these bytes; 0 and a whole output, or 1, a message and no output."""
    t.path("hurt").write_bytes(data)
    target = t.path("out.tif" if t.offers("tiff") else "out.pam")
    before = set(os.listdir(t.home))
    done = t.call("flip", "hurt", target, timeout=60)
    message = done.stderr.decode(errors="replace")
    assert done.returncode in (0, 1), f"exit {done.returncode}: {message}"
    failed = message.startswith("rvimg: ") and "; written as " not in message  # which a good picture may be told of
    assert (done.returncode == 1) == failed and "Sanitizer" not in message, message
    assert message.count("\n") <= 1, message
    if done.returncode == 0:
        assert not must_fail, "a broken file was taken for whole"
        t.ok("info", target)
        target.unlink()
    assert set(os.listdir(t.home)) <= before, os.listdir(t.home)
    return done.returncode == 1


@case("Broken.Truncated", *[(name, make, needs) for name, make, needs in WHOLE])
def truncated(t, make, needs):
    """Cut anywhere. What is missing more than the trailer's few bytes is missed."""
    t.has(needs)
    data = make(t).read_bytes()
    survives(t, data)
    step = max(1, len(data) // SAMPLES)
    slack = {"tiff": len(data), "pgm": 3}.get(needs, 16)  # TIFF may end with fields that are not needed
    for length in range(1, len(data), step):
        survives(t, data[:length], must_fail=length < len(data) - slack)
    if needs == "tiff":
        assert survives(t, data[:len(data) // 3])


@case("Broken.Flipped", *[(name, make, needs) for name, make, needs in WHOLE])
def flipped(t, make, needs):
    """Bytes changed at random, some of them in the header."""
    t.has(needs)
    data = make(t).read_bytes()
    random = np.random.default_rng(len(data))
    for attempt in range(SAMPLES):
        hurt = bytearray(data)
        reach = min(len(data), 120) if attempt % 2 else len(data)
        for at in random.integers(0, reach, 1 + attempt % 4):
            hurt[at] = random.choice([0, 1, 127, 128, 255, random.integers(256)])
        survives(t, bytes(hurt))


@case("Broken.InventedSizes")
def invented_sizes(t):
    """Small files that claim to be large pictures are turned down at once, whatever they are compressed with."""
    t.has("png", "tiff")
    hostile = {
        "png": png(25000, 25000, 8, 2, b""),
        "png side": png(0x7FFFFFFF, 0x7FFFFFFF, 8, 2, b""),
        "bmp": make_bmp(t.path("x.bmp"), 20000, 20000, 24, bytes(100)).read_bytes(),
        "bmp runs": make_bmp(t.path("x.bmp"), 20000, 20000, 8, bytes((0, 1)), palette=bytes(1024), compression=1).read_bytes(),
        "bmp height": make_bmp(t.path("x.bmp"), 1, -0x80000000, 24, bytes(100)).read_bytes(),
        "pbm": b"P4 100000 100000\n" + bytes(100),
        "pgm plain": b"P2 10000 10000 255\n" + b"1 " * 100,
    }
    page = tiff_page(8, 8, 8)
    for name, changes in (("tiff", {256: (4, [30000]), 257: (4, [30000])}),
                          ("tiff lzw", {256: (4, [40000]), 257: (4, [40000]), 259: 5}),
                          ("tiff tiles", {322: (4, [0xFFFFFFF0]), 323: (4, [0xFFFFFFF0]), 324: (4, [8]), 325: (4, [64])})):
        hostile[name] = make_tiff(t.path("x.tif"), [{**page, "fields": {**page["fields"], **changes}}]).read_bytes()
    for name, data in hostile.items():
        assert survives(t, data), name


@case("Broken.Loops")
def loops(t):
    """A TIFF whose last page links to its first ends all the same."""
    t.has("tiff")
    source = make_tiff(t.path("pages.tif"), [tiff_page(8, 8, 8), tiff_page(8, 8, 8)])
    data = bytearray(source.read_bytes())
    first = struct.unpack_from("<I", data, 4)[0]
    data[-4:] = struct.pack("<I", first)
    survives(t, bytes(data))


@case("Broken.WrongIndices")
def wrong_indices(t):
    """Indices past a short palette are black, and so is what is written of them."""
    t.has("png")
    t.path("short.png").write_bytes(png(4, 1, 8, 3, bytes((0, 0, 0, 3, 1)), [(255, 0, 0)]))
    target = t.to("png", t.path("short.png"))
    assert np.array(Image.open(target).convert("RGB")).tolist() == [[[255, 0, 0], [255, 0, 0], [0, 0, 0], [0, 0, 0]]]
