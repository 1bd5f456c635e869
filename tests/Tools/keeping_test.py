"""What survives: depth, palette, resolution, orientation and alpha, through every format that has a place for them;
and what is changed or refused where one has not. Flips and mirrors of every kind of picture."""
import numpy as np
from PIL import Image

from support import case, displayed, make_bmp, make_tiff, packed, pitch, png, random_bytes, same, seen, tiff_page

WIDTH, HEIGHT = 43, 17
ENDINGS = ("bmp", "jpg", "pbm", "pgm", "ppm", "pnm", "pam", "png", "tif")
NO_FIELD = ("ppm", "pnm", "pam", "bmp")


def colours(count):
    return [tuple(c) for c in np.random.default_rng(count).integers(0, 256, (count, 3)).tolist()]


def made(bits, photometric=1, samples=1, **fields):
    """A maker of TIFF pictures; fields are those of tiff_page."""
    def make(t, **more):
        source = make_tiff(t.path("made.tif"), [tiff_page(WIDTH, HEIGHT, bits, photometric, samples, dpi=120, **fields, **more)])
        return source
    return make


def made_555(t):
    rows = np.frombuffer(random_bytes(pitch(WIDTH, 16) * HEIGHT), "<u2") & 0x7FFF
    rows = rows.reshape(HEIGHT, -1).copy()
    rows[:, WIDTH:] = 0
    return make_bmp(t.path("made.bmp"), WIDTH, HEIGHT, 16, rows.tobytes())


def made_keyed(mode, key):
    def make(t):
        image = Image.frombytes(mode, (WIDTH, HEIGHT), random_bytes(WIDTH * HEIGHT * (3 if mode == "RGB" else 1)))
        if mode == "P":
            image.putpalette(random_bytes(768))
        image.save(t.path("made.png"), transparency=key)
        return t.path("made.png")
    return make


# Every kind of picture, and the formats that can hold it unchanged.
KINDS = (
    ("1 black and white", 1, made(1), "bmp pbm pgm pnm pam png tif"),
    ("1 white and black", 1, made(1, 0), "bmp pbm pgm pnm pam png tif"),
    ("1 two colours", 1, made(1, 3, palette=colours(2)), "bmp png tif"),
    ("2 gray", 2, made(2), "pgm pnm pam png tif"),
    ("2 palette", 2, made(2, 3, palette=colours(4)), "png tif"),
    ("3 gray", 3, made(3), "pgm pnm pam tif"),
    ("3 palette", 3, made(3, 3, palette=colours(8)), "tif"),
    ("4 gray", 4, made(4), "bmp pgm pnm pam png tif"),
    ("4 white to black", 4, made(4, 0), "bmp pgm pnm pam png tif"),
    ("4 palette", 4, made(4, 3, palette=colours(16)), "bmp png tif"),
    ("5 gray", 5, made(5), "pgm pnm pam tif"),
    ("6 gray", 6, made(6, 0), "pgm pnm pam tif"),
    ("7 palette", 7, made(7, 3, palette=colours(128)), "tif"),
    ("8 gray", 8, made(8), "bmp jpg pgm pnm pam png tif"),
    ("8 white to black", 8, made(8, 0), "bmp jpg pgm pnm pam png tif"),
    ("8 palette", 8, made(8, 3, palette=colours(256)), "bmp png tif"),
    ("12 gray", 12, made(12), "pgm pnm pam tif"),
    ("16 gray", 16, made(16), "pgm pnm pam png tif"),
    ("16 of which 10 count", 16, made(10), "pgm pnm pam tif"),
    ("16 signed", 16, made(16, format=2), "tif"),
    ("16 colour", 16, made_555, "bmp ppm pnm pam"),
    ("24", 24, made(8, 2, 3), "bmp jpg ppm pnm pam png tif"),
    ("32", 32, made(8, 2, 4, alpha=2), "bmp pam png tif"),
    ("32 premultiplied", 32, made(8, 2, 4, alpha=1), "tif"),
    ("48", 48, made(16, 2, 3), "ppm pnm pam png tif"),
    ("64", 64, made(16, 2, 4, alpha=2), "pam png tif"),
    ("8 with a transparent gray", 8, made_keyed("L", 200), "png"),
    ("8 with a transparent entry", 8, made_keyed("P", 77), "png"),
    ("24 with a transparent colour", 24, made_keyed("RGB", (9, 8, 7)), "png"),
)
# What a format has no field for, or writes in its own way.
FORGETS = {"bmp": {"order", "significantBits"}, "jpg": {"palette"}, "png": {"order"}, "tif": set()}
LOOSE = {"encoding", "viewPerspective", "orientation", "bytesPerLine"}


def kept(ending, info):
    forgotten = LOOSE | FORGETS.get(ending, {"order", "palette", "colors", "xResolution", "yResolution"})
    return {key: value for key, value in info.items() if key not in forgotten}


def upright(t, path):
    """Pixels in whatever form the picture has, top row first; two equal pictures give equal bytes."""
    exact = ("convert", "--exact", path)
    ending = "pam" if t.call(*exact, t.path("look.pam")).returncode == 0 else \
        "tif" if t.call(*exact, t.path("look.tif"), "--compress", "none").returncode == 0 else "png"
    t.has("tiff" if ending == "tif" else ending)
    return t.to(ending, path).read_bytes() if ending == "pam" else seen(t.to(ending, path)).tobytes()


def changed(t, source, target, before, ending):
    """Where a format has no such depth, another one that shows the same, as far as it has colours."""
    if before["transparency"] or before["signed"]:
        t.fails("convert", source, target, says="cannot hold")
        return
    t.tells("convert", source, target, "--quality", "100", says="cannot hold")
    plain = t.path("plain.pam")  # of what others read differently, if it can be had
    known = plain if t.call("convert", "--exact", source, plain).returncode == 0 else source
    after, old, new = t.info(target), seen(known).astype(float), seen(target).astype(float)
    if ending in ("pgm", "pbm") or before["premultiplied"]:  # as dark as before, on the whole
        weights = np.array((2, 5, 1)) / 8
        black = old[..., 3] / 0xFFFF if before["premultiplied"] else 1  # shows what alpha leaves of the colours
        old, new = (((pixels[..., :3] @ weights) * black).mean(keepdims=True) for pixels in (old, new))
        slack = 6000
    else:  # samples of more than 8 bits are cut
        columns = slice(0, 4 if after["alpha"] else 3)
        old, new, slack = old[..., columns], new[..., columns], (40 * 257 if ending == "jpg" else 300)
    same(np.round(old), np.round(new), slack)


@case("Keeping.EveryKind", *[(name, bits, make, ends.split()) for name, bits, make, ends in KINDS])
def every_kind(t, bits, make, endings):
    """Through each format and back: the same picture, and the same facts where the format has a place for them."""
    t.has("png", "jpeg", "tiff")
    source = make(t)
    before, pixels = t.info(source), upright(t, source)
    assert before["bitsPerPixel"] == bits
    for ending in ENDINGS:
        target = t.path("target." + ending)
        if ending not in endings:
            t.fails("convert", source, target, "--exact", says="cannot hold")
            assert not target.exists(), ending
            changed(t, source, target, before, ending)
            continue
        t.ok("convert", source, target, "--quality", "100")
        after = t.info(target)
        assert kept(ending, after) == kept(ending, before), f"{ending}: {after} instead of {before}"
        if ending == "jpg":
            same(seen(source)[..., :3], seen(target)[..., :3], slack=40 * 257 if bits == 24 else 3 * 257)
        else:
            assert upright(t, target) == pixels, f"{ending}: other pixels"


@case("Keeping.PaletteLengths",
      *[(f"{count} of {1 << bits}", bits, count) for bits, count in ((1, 1), (2, 3), (4, 11), (8, 17), (8, 2))])
def palette_lengths(t, bits, count):
    """Palettes are as long as the file made them; only an index without a colour makes them longer."""
    t.has("png")
    rows = b"".join(b"\0" + packed(np.arange(WIDTH) % count, bits) for _ in range(HEIGHT))
    t.path("short.png").write_bytes(png(WIDTH, HEIGHT, bits, 3, rows, colours(count)))
    for ending in ("png", "bmp") if bits != 2 else ("png",):
        info = t.info(t.to(ending, t.path("short.png")))
        assert info["bitsPerPixel"] == bits and info["palette"] == [list(c) for c in colours(count)], info
    palette = bytes((1, 2, 3, 0, 4, 5, 6, 0))
    source = make_bmp(t.path("beyond.bmp"), 4, 1, 8, bytes((0, 1, 5, 1)), palette=palette, colours=2)
    target = t.to("bmp", source)
    assert t.info(target)["palette"] == [[3, 2, 1], [6, 5, 4]] + [[0, 0, 0]] * 4
    assert target.read_bytes().endswith(bytes((0, 1, 5, 1)))


@case("Keeping.OrientationField", *[(str(o), o) for o in range(1, 9)])
def orientation_field(t, value):
    """TIFF, JPEG and PNG keep the orientation as a field and the rows as they are; others hold upright rows only."""
    t.has("jpeg", "tiff", "png", "exif")
    source = made(8, 2, 3)(t, orientation=value)
    tiff, jpeg, png_file = t.to("tif", source), t.to("jpg", source, "--quality", "100"), t.to("png", source)
    again = t.to("png", png_file)
    for target in (tiff, png_file, again):
        same(seen(target), seen(source))
    for target in (tiff, jpeg, png_file, again, t.to("tif", jpeg), t.to("png", jpeg), t.to("tif", png_file)):
        assert t.info(target)["viewPerspective"] == value
        known = Image.open(target)
        assert (known.tag_v2 if target.suffix == ".tif" else known.getexif()).get(274) == value
    for ending in NO_FIELD:
        if value not in (1, 4):
            t.fails("convert", source, t.path("no." + ending), says=t.info(source)["orientation"])
        else:
            same(seen(t.to(ending, source)), displayed(seen(source), value))


@case("Keeping.RowOrderOfBmp")
def row_order_of_bmp(t):
    """Rows from the bottom are BMP's habit and not a turn: other formats get them from the top, without a field."""
    t.has("jpeg", "tiff", "png")
    rows = random_bytes(pitch(WIDTH, 24) * HEIGHT)
    for height, perspective in ((HEIGHT, 4), (-HEIGHT, 1)):
        source = make_bmp(t.path("source.bmp"), WIDTH, height, 24, rows)
        assert t.info(t.to("bmp", source))["viewPerspective"] == perspective
        for ending in ("png", "tif", "ppm"):
            target = t.to(ending, source)
            assert t.info(target)["viewPerspective"] == 1
            same(seen(target), seen(source))
        assert 274 not in Image.open(t.to("jpg", source)).getexif()


@case("Turning.Tiff", *[(f"{bits} bits, {o}", made(bits, *kind), o) for bits, *kind in ((1,), (8, 2, 3)) for o in range(1, 9)])
def turning(t, make, orientation):
    """As displayed: upside down, left to right, and twice is as before."""
    t.has("tiff")
    source = make(t, orientation=orientation)
    shown = displayed(seen(source), orientation)
    for command, expected in (("flip", shown[::-1]), ("mirror", shown[:, ::-1])):
        once = t.to("tif", source, "--compress", "none", command=command)
        assert t.info(once)["viewPerspective"] == orientation
        same(displayed(seen(once), orientation), expected)
        twice = t.to("tif", once, "--compress", "none", command=command)
        assert twice.read_bytes() == t.to("tif", source, "--compress", "none").read_bytes()


@case("Turning.EveryPage")
def every_page(t):
    t.has("tiff")
    pages = [tiff_page(20 + i, 10 + i, bits, seed=i, dpi=100 + i) for i, bits in enumerate((1, 8, 16, 4))]
    source = make_tiff(t.path("pages.tif"), pages)
    target = t.to("tif", source, command="flip")
    for i in range(4):
        same(seen(target, i), seen(source, i)[::-1])
        assert t.info(target, i + 1)["xResolution"] == 100 + i
    one = t.to("tif", source, "--page", "3", command="mirror")
    same(seen(one), seen(source, 2)[:, ::-1])
    t.fails("convert", source, t.path("one.png"), "--page", "5", says="no page 5")
    t.fails("convert", source, t.path("one.bmp"), says="one page")
    assert not t.path("one.bmp").exists() and not t.path("one.png").exists()


@case("Writing.TiffCompressions",
      *[(f"{name} {bits}", name, bits) for name in ("none", "packbits", "lzw", "deflate", "zstd") for bits in (1, 8, 12, 24, 64)],
      ("g3 1", "g3", 1), ("g4 1", "g4", 1))
def tiff_compressions(t, name, bits):
    t.has("tiff")
    samples = 1 if bits <= 16 else 3 if bits == 24 else 4
    page = tiff_page(WIDTH, HEIGHT, bits // samples, 1 if samples == 1 else 2, samples, **({"alpha": 2} if samples == 4 else {}))
    source = make_tiff(t.path("source.tif"), [page])
    target = t.to("tif", source, "--compress", name)
    same(seen(target), seen(source))
    plain = {"none": "None", "packbits": "PackBits", "lzw": "LZW", "deflate": "AdobeDeflate", "zstd": "ZSTD", "g3": "CCITT",
             "g4": "CCITT"}[name]
    assert plain.lower() in t.info(target)["encoding"].lower() or name == "none"


@case("Writing.TiffJpeg")
def tiff_jpeg(t):
    t.has("tiff")
    smooth = np.add.outer(np.arange(64), np.arange(80)).astype(np.uint8)
    for image in (Image.fromarray(smooth), Image.fromarray(np.stack([smooth, smooth[::-1], 255 - smooth], -1))):
        image.save(t.path("source.png"))
        target = t.to("tif", t.path("source.png"), "--compress", "jpeg", "--quality", "95")
        same(seen(target), seen(t.path("source.png")), slack=14 * 257)
    t.fails("convert", make_tiff(t.path("one.tif"), [tiff_page(9, 9, 1)]), t.path("no.tif"), "--compress", "jpeg", says="jpeg")
    t.fails("convert", t.path("source.png"), t.path("no.tif"), "--compress", "g4", says="1-bit")


@case("Writing.JpegQuality")
def jpeg_quality(t):
    t.has("jpeg")
    t.ok("chart", t.path("chart.ppm"), "--size", "320x240")
    sizes = [len(t.to("jpg", t.path("chart.ppm"), "--quality", q).read_bytes()) for q in (20, 75, 95)]
    assert sizes == sorted(sizes) and sizes[0] * 3 < sizes[2], sizes
    # From 90 on, colour keeps its full resolution.
    assert [Image.open(t.to("jpg", t.path("chart.ppm"), "--quality", q)).layer[0][1] for q in (89, 90)] == [2, 1]
