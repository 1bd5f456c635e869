"""Files that other programs wrote, pixel for pixel against what other decoders see in them."""
import glob
import os
import struct

import numpy as np
from PIL import Image

from support import Skip, case, magick, make_bmp, make_tiff, packed, pitch, random_bytes, run, same, seen, tiff_page

SAMPLES = sorted(f for pattern in ("skimage/data/*.png", "skimage/data/*.jpg", "skimage/data/*.tif",
                                   "matplotlib/mpl-data/sample_data/*.png", "matplotlib/mpl-data/sample_data/*.jpg",
                                   "matplotlib/mpl-data/images/*.png")
                 for root in ("/usr/lib/python3/dist-packages/", "/usr/share/") for f in glob.glob(root + pattern))
BROKEN_SAMPLES = {"truncated.jpg": "truncated", "multipage_rgb.tif": "floating-point"}


def agrees(t, source, page=0, slack=0):
    """The picture that we read and write is the one another decoder sees in the source."""
    family = "bmp" if str(source).endswith("bmp") else "pam"
    target = t.to("tif" if t.offers("tiff") else family, source, "--page", page + 1, "--compress", "none")
    same(seen(source, page), seen(target), slack)
    return t.info(source, page + 1)


def holds(info, **expected):
    found = {key: info[key] for key in expected}
    assert found == expected, f"{found} instead of {expected}"


def photo(width=61, height=47, mode="RGB"):
    """A picture with smooth and busy places, in one of Pillow's modes."""
    y, x = np.mgrid[0:height, 0:width]
    rgb = np.stack([x * 255 // width, y * 255 // height, (x * y * 7) % 256, (x * 4 + y) % 256], -1).astype(np.uint8)
    if mode == "RGBA":
        return Image.fromarray(rgb)
    return Image.fromarray(rgb[..., :3]).convert(mode)


@case("Reading.PicturesOnThisMachine")
def pictures_on_this_machine(t):
    t.has("png", "jpeg", "tiff")
    if not SAMPLES:
        raise Skip("no package with pictures (such as python3-skimage) is installed")
    for source in SAMPLES:
        reason = BROKEN_SAMPLES.get(os.path.basename(source))
        if reason:
            t.fails("convert", source, t.path("no.tif"), says=reason)
            continue
        t.fresh()
        agrees(t, source)


@case("Reading.Pillow",
      *[(f"{mode}.{ending}", mode, ending, bits, order) for mode, ending, bits, order in (
          ("1", "png", 1, "gray"), ("L", "png", 8, "gray"), ("P", "png", 8, "palette"), ("RGB", "png", 24, "RGB"),
          ("RGBA", "png", 32, "RGB"), ("LA", "png", 32, "RGB"), ("I;16", "png", 16, "gray"), ("1", "tif", 1, "gray"),
          ("L", "tif", 8, "gray"), ("P", "tif", 8, "palette"), ("RGB", "tif", 24, "RGB"), ("RGBA", "tif", 32, "RGB"),
          ("LA", "tif", 32, "RGB"), ("I;16", "tif", 16, "gray"), ("1", "bmp", 1, "gray"), ("L", "bmp", 8, "gray"),
          ("P", "bmp", 8, "palette"), ("RGB", "bmp", 24, "BGR"), ("RGBA", "bmp", 32, "BGR"), ("1", "ppm", 1, "gray"),
          ("L", "ppm", 8, "gray"), ("RGB", "ppm", 24, "RGB"), ("L", "jpg", 8, "gray"), ("RGB", "jpg", 24, "RGB"))])
def from_pillow(t, mode, ending, bits, order):
    t.has(ending)
    source = t.path("source." + ending)
    if mode == "I;16":
        Image.fromarray(np.frombuffer(random_bytes(2 * 61 * 47), "<u2").reshape(47, 61)).save(source)
    else:
        photo(mode=mode).save(source, **({} if ending == "ppm" else {"dpi": (144, 144)}))
    info = agrees(t, source, slack=255 if (mode, ending) == ("P", "tif") else 0)  # its palette has 16 bits
    holds(info, width=61, height=47, bitsPerPixel=bits, order=order)
    if ending != "ppm" and mode != "I;16":
        holds(info, xResolution=144, yResolution=144)


@case("Reading.ImageMagick",
      ("png interlaced", "png", "-interlace PNG", 24), ("png 48", "png48", "", 48), ("png 64", "png64", "", 64),
      ("png 2-bit gray", "png", "-colorspace Gray -depth 2 -define png:color-type=0 -define png:bit-depth=2", 2),
      ("jpeg progressive", "jpg", "-interlace JPEG -quality 80", 24),
      ("jpeg 4:2:2", "jpg", "-sampling-factor 2x1", 24), ("jpeg 1:1:1 gray", "jpg", "-colorspace Gray", 8),
      ("tiff lzw", "tif", "-compress LZW", 24), ("tiff zip 48", "tif", "-compress Zip -depth 16", 48),
      ("tiff packbits 4-bit palette", "tif", "-colors 16 -type Palette -depth 4 -compress RLE", 4),
      ("tiff jpeg", "tif", "-compress JPEG", 24), ("tiff g4", "tif", "-monochrome -compress Group4", 1),
      ("tiff fax", "tif", "-monochrome -compress Fax", 1), ("tiff tiles", "tif", "-define tiff:tile-geometry=32x16", 24),
      ("tiff big-endian 16", "tif", "-colorspace Gray -depth 16 -endian MSB", 16),
      ("tiff alpha", "tif", "-alpha set -channel A -evaluate set 40% +channel -define tiff:alpha=unassociated", 32),
      ("bmp 4", "bmp3", "-colors 16 -type Palette", 4), ("bmp 1", "bmp3", "-monochrome", 1),
      ("bmp rle8", "bmp3", "-colors 200 -type Palette -compress RLE", 8), ("bmp core", "bmp2", "", 24),
      ("bmp v5 alpha", "bmp", "-alpha set -channel A -evaluate set 40% +channel", 32),
      ("pam", "pam", "-alpha set -channel A -evaluate set 40% +channel", 32), ("ppm 48", "ppm", "-depth 16", 48),
      ("ppm plain", "ppm", "-compress none", 24), ("pbm plain", "pbm", "-compress none", 1),
      ("pgm plain", "pgm", "-compress none", 8))
def from_magick(t, ending, options, bits):
    name = ending[:3]
    t.has(name)
    photo().save(t.path("photo.png"))
    source = t.path("source." + name)
    magick(t.path("photo.png"), *options.split(), f"{ending}:{source}")
    holds(agrees(t, source), bitsPerPixel=bits)


@case("Reading.LibtiffTools",
      ("strips of three rows", "-r 3 -c lzw"), ("tiles", "-t -w 16 -l 32 -c zip"), ("planes", "-p separate -c none"),
      ("planes in tiles", "-p separate -t -w 32 -l 16 -c lzw:2"), ("big-endian", "-B -c none"),
      ("bits reversed", "-f lsb2msb -c packbits"), ("BigTIFF", "-8 -c zip:2"), ("jpeg", "-r 16 -c jpeg:80"),
      ("jpeg in tiles", "-c jpeg:r:70 -t -w 16 -l 16"), ("zstd", "-c zstd"))
def from_tiffcp(t, options):
    t.has("tiff")
    for mode in ("RGB", "RGBA", "L", "1", "P"):
        if "jpeg" in options and mode not in ("RGB", "L"):
            continue
        if "separate" in options and mode in "1P" or ":2" in options and mode in "1P":
            continue
        source = t.path(f"{mode}.tif")
        photo(mode=mode).save(t.path("plain.tif"))
        run("tiffcp", *options.split(), t.path("plain.tif"), source)
        agrees(t, source, slack=255 if mode == "P" else 0)


@case("Reading.TiffLumaAndChroma", ("each pixel", 1), ("blocks of four", 2))
def tiff_luma_and_chroma(t, side):
    """Luma and chroma without JPEG go through libtiff's own conversion, in every orientation."""
    t.has("tiff")
    random = np.random.default_rng(side)
    luma, chroma = random.integers(0, 256, (16, 32)), random.integers(90, 166, (16 // side, 32 // side, 2))
    blocks = luma.reshape(16 // side, side, 32 // side, side).swapaxes(1, 2).reshape(16 // side, 32 // side, -1)
    full = chroma.repeat(side, 0).repeat(side, 1) - 128.0
    colour = np.stack([luma + 1.402 * full[..., 1], luma - 0.344136 * full[..., 0] - 0.714136 * full[..., 1],
                       luma + 1.772 * full[..., 0]], -1)
    page = {"width": 32, "height": 16, "rows": [np.concatenate([blocks, chroma], -1).astype(np.uint8).tobytes()],
            "fields": {258: (3, [8, 8, 8]), 262: 6, 277: 3, 530: (3, [side, side])}}
    for orientation in (1, 2, 3, 8):
        page["fields"][274] = orientation
        source = make_tiff(t.path("ycbcr.tif"), [page])
        holds(t.info(source), bitsPerPixel=24, viewPerspective=orientation)
        stored = seen(t.to("tif", source, "--compress", "none"))[..., :3] // 257
        same(stored, np.clip(colour, 0, 255).round(), slack=2)


@case("Reading.TiffSampleWidths",
      *[(f"{bits} bits {kind}", bits, photometric) for bits in range(1, 17)
        for kind, photometric in (("from black", 1), ("from white", 0))])
def tiff_sample_widths(t, bits, photometric):
    """Gray of every width that fits: the sample's value is the picture's, whatever white is."""
    t.has("tiff")
    page = tiff_page(37, 11, bits, photometric, dpi=300, seed=bits)
    source = make_tiff(t.path("gray.tif"), [page])
    depth = bits if bits <= 8 or bits == 12 else 16
    holds(t.info(source), bitsPerPixel=depth, order="gray", xResolution=300, yResolution=600,
          significantBits=None if bits <= 8 else bits)
    data = t.to("pgm" if bits > 1 else "pbm", source).read_bytes()
    levels = page["values"] if photometric == 1 else (1 << bits) - 1 - page["values"]
    if bits == 1:
        expected = b"".join(packed(1 - row, 1) for row in levels)
    else:
        expected = levels.astype(">u2" if bits > 8 else "u1").tobytes()
        assert data.startswith(b"P5\n37 11\n%d\n" % ((1 << bits) - 1)), data[:20]
    assert data.endswith(expected)


@case("Reading.TiffPalettes", *[(f"{bits} bits", bits) for bits in range(1, 9)])
def tiff_palettes(t, bits):
    t.has("tiff", "png")
    palette = [tuple(c) for c in np.random.default_rng(bits).integers(0, 256, (1 << bits, 3)).tolist()]
    page = tiff_page(29, 7, bits, 3, palette=palette)
    source = make_tiff(t.path("palette.tif"), [page])
    info = t.info(source)
    holds(info, bitsPerPixel=bits, order="palette", palette=[list(c) for c in palette])
    if bits in (1, 2, 4, 8):
        indices = np.array(Image.open(t.to("png", source)).convert("RGB"))
        same(indices, np.array(palette)[page["values"]])


@case("Reading.BmpLayouts",
      ("5-5-5", 16, None, 16), ("5-5-5 by fields", 16, (0x7C00, 0x3E0, 0x1F), 16), ("5-6-5", 16, (0xF800, 0x7E0, 0x1F), 24),
      ("4-4-4-4", 16, (0xF00, 0xF0, 0xF, 0xF000), 32), ("8-8-8 and nothing", 32, None, 24),
      ("8-8-8 and alpha unsaid", 32, None, 32),
      ("x-8-8-8 shifted", 32, (0xFF000000, 0xFF0000, 0xFF00), 24),
      ("alpha first", 32, (0xFF000000, 0xFF0000, 0xFF00, 0xFF), 32))
def bmp_layouts(t, bits, masks, depth):
    """Every way to cut a word into components, rows from either end; values are computed here from the words."""
    width, height = 21, 9
    words = np.frombuffer(random_bytes(width * height * bits // 8), f"<u{bits // 8}").reshape(height, width).copy()
    if bits == 32 and masks is None and depth == 24:
        words &= 0xFFFFFF
    rows = b"".join(row.tobytes().ljust(pitch(width, bits), b"\0") for row in words)
    header = 40 if masks is None or len(masks) == 3 else 108
    used = masks or ((0x7C00, 0x3E0, 0x1F) if bits == 16 else (0xFF0000, 0xFF00, 0xFF, 0xFF000000)[:depth // 8])
    levels = []
    for mask in used:
        top = mask // (mask & -mask)
        value = (words.astype(np.int64) & mask) // (mask & -mask)
        levels.append(value if depth == 16 else (value * 255 + top // 2) // top)
    expected = np.stack(levels, -1).astype(np.uint8)
    for signed_height in (height, -height):
        source = make_bmp(t.path("source.bmp"), width, signed_height, bits, rows, masks, header, compression=3 if masks else 0)
        holds(t.info(source), bitsPerPixel=depth, viewPerspective=4 if signed_height > 0 else 1, xResolution=72,
              yResolution=144)
        data = t.to("pam", source).read_bytes()
        body = np.frombuffer(data[-expected.size:], np.uint8).reshape(expected.shape)
        same(body, expected[::-1] if signed_height > 0 else expected)


@case("Reading.BmpRunLengths")
def bmp_run_lengths(t):
    """Runs, literals with and without padding, both kinds of jump, an early end; written by hand, decoded by hand."""
    palette = b"".join(bytes((i, 255 - i, i // 2, 0)) for i in range(256))
    runs = bytes((3, 7, 0, 3, 1, 2, 3, 0, 0, 2, 2, 0, 2, 9, 0, 0,    # 7 7 7 1 2 3 . . 9 9
                  10, 4, 0, 2, 0, 1, 0, 2, 3, 2, 2, 5, 0, 0, 0, 1))  # ten 4s, down; across 3 and down 2; 5 5
    rows = [[7, 7, 7, 1, 2, 3, 0, 0, 9, 9], [4] * 10, [0] * 10, [0] * 10, [0] * 10, [0] * 10]
    rows[4][3:5] = [5, 5]
    # The first jump after the full row stays in its column, which is past the row's last pixel.
    source = make_bmp(t.path("runs.bmp"), 10, 6, 8, runs.replace(bytes((0, 2, 0, 1, 0, 2, 3, 2)), bytes((0, 0, 0, 2, 3, 2))),
                      palette=palette, compression=1)
    data = t.to("bmp", source).read_bytes()
    stored = np.frombuffer(data[-6 * 12:], np.uint8).reshape(6, 12)[:, :10]
    same(stored, np.array(rows, np.uint8))
    nibbles = bytes((5, 0x12, 0, 5, 0x34, 0x56, 0x70, 0, 0, 0, 10, 0xAB, 0, 0, 0, 1))
    source = make_bmp(t.path("nibbles.bmp"), 10, 2, 4, nibbles, palette=palette[:64], compression=2)
    data = t.to("bmp", source).read_bytes()
    assert data[-16:] == bytes.fromhex("1212134567000000" "ababababab000000"), data[-16:].hex()
    for wrong in (bytes((13, 7, 0, 1)), bytes((0, 2, 13, 0, 0, 1)), bytes((0, 13)) + bytes(14), bytes((9, 7))):
        source = make_bmp(t.path("wrong.bmp"), 10, 1, 8, wrong, palette=palette, compression=1)
        t.fails("convert", source, t.path("no.bmp"))


@case("Reading.NetpbmMaxima",
      *[(f"{kind} {top}", kind, top, depth) for kind, top, depth in (
          (2, 1, 1), (5, 1, 1), (5, 3, 2), (2, 7, 3), (5, 15, 4), (5, 31, 5), (5, 63, 6), (2, 127, 7), (5, 200, 8),
          (5, 255, 8), (5, 1023, 16), (2, 4095, 12), (5, 1000, 16), (5, 65535, 16), (3, 31, 16), (6, 31, 16),
          (6, 100, 24), (3, 255, 24), (6, 1000, 48), (6, 65535, 48))])
def netpbm_maxima(t, kind, top, depth):
    """The depth follows from the maximum; a maximum of whole bits, and even grays up to 255, come back unchanged."""
    samples = 3 if kind in (3, 6) else 1
    values = np.random.default_rng(top).integers(0, top + 1, (9, 13 * samples))
    header = f"P{kind} # a comment\n13\n# another\n9 {top}\n".encode()
    plain = "\n".join(" ".join(map(str, row)) for row in values).encode()
    body = plain if kind < 4 else values.astype(">u2" if top > 255 else "u1").tobytes()
    source = t.path("source.pnm")
    source.write_bytes(header + body)
    holds(t.info(source), bitsPerPixel=depth, width=13, height=9)
    expected_top = {1000: 65535, 100: 255}.get(top, top)
    expected = (values * expected_top + top // 2) // top
    data = t.to("pam", source).read_bytes()
    assert f"MAXVAL {expected_top}\n".encode() in data, data[:80]
    assert data.endswith(expected.astype(">u2" if expected_top > 255 else "u1").tobytes())


@case("Reading.NetpbmStreams")
def netpbm_streams(t):
    """Raw pictures follow each other in one file, of different kinds too; each is a page."""
    bits, gray = packed([1, 0, 1, 1, 0, 0, 1, 0, 1], 1), bytes(range(9))
    stream = b"P4\n9 1\n" + bits + b"P5 9 1 255\n" + gray + b"P7\nWIDTH 3\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\nENDHDR\n" + gray[:6]
    source = t.path("stream.pnm")
    source.write_bytes(stream)
    assert [t.info(source, page)["bitsPerPixel"] for page in (1, 2, 3)] == [1, 8, 32]
    assert t.to("pnm", source, "--page", "2").read_bytes() == b"P5\n9 1\n255\n" + gray
    assert t.to("pam", source, "--page", "3").read_bytes().endswith(bytes((0, 0, 0, 1, 2, 2, 2, 3, 4, 4, 4, 5)))


@case("Reading.PamTupleTypes",
      *[(f"{kind or 'nothing'}, {depth}", kind, depth, expected) for kind, depth, expected in (
          ("", 1, 8), ("", 4, 32), ("BLACKANDWHITE", 1, 8), ("GRAYSCALE", 1, 8), ("RGB", 3, 24),
          ("BLACKANDWHITE_ALPHA", 2, 32), ("GRAYSCALE_ALPHA", 2, 32), ("RGB_ALPHA", 4, 32), ("RGB", 4, "disagree"),
          ("CMYK", 4, "CMYK pictures"), ("CMYK_ALPHA", 5, "CMYK pictures"), ("CMY", 3, "tuple type CMY are"),
          ("HSV", 3, "tuple type HSV are"), ("RGB and more", 3, "tuple type RGB and more are"))])
def pam_tuple_types(t, kind, depth, expected):
    """What four components mean is for the header to say: ink is not taken for light."""
    source = t.path("source.pam")
    source.write_bytes(f"P7\nTUPLTYPE {kind} \nWIDTH 3\nHEIGHT 2\nDEPTH {depth}\nMAXVAL 255\nENDHDR\n".encode() +
                       bytes(range(6 * depth)))
    if isinstance(expected, str):
        t.fails("info", source, says=expected)
    else:
        holds(t.info(source), bitsPerPixel=expected)


@case("Reading.Orientation", *[(str(o), o) for o in range(1, 9)])
def orientation(t, value):
    t.has("jpeg", "tiff", "png", "exif")
    exif = Image.Exif()
    exif[274] = value
    for name, options, resolution in (("turned.jpg", {"exif": exif, "dpi": (200, 100)}, 200), ("bare.jpg", {"exif": exif}, None),
                                      ("turned.png", {"exif": exif}, None), ("turned.tif", {"tiffinfo": {274: value}}, None)):
        photo().save(t.path(name), **options)
        holds(t.info(t.path(name)), viewPerspective=value, xResolution=resolution)
    data = t.path("turned.png").read_bytes()
    start, end = data.find(b"eXIf") - 4, data.find(b"IDAT") - 4
    t.path("late.png").write_bytes(data[:start] + data[end:-12] + data[start:end] + data[-12:])
    if value == 1:
        t.ok("convert", "late.png", "late.pam")
    else:
        t.fails("convert", "late.png", "late.pam", says="behind the pixels")


@case("Reading.ExifResolution")
def exif_resolution(t):
    """Where the JPEG header has no resolution the EXIF block may; its unit can be the centimetre."""
    t.has("jpeg", "exif")
    exif = Image.Exif()
    exif[282], exif[283], exif[296] = (100.0, 50.0, 3)
    photo().save(t.path("exif.jpg"), exif=exif)
    data = bytearray(t.path("exif.jpg").read_bytes())
    at = data.find(b"JFIF")
    data[at + 7] = 0  # the density's unit: none
    t.path("exif.jpg").write_bytes(data)
    holds(t.info(t.path("exif.jpg")), xResolution=254, yResolution=127)


@case("Reading.PngTransparency")
def png_transparency(t):
    """A transparent colour stays one; shades of transparency become alpha."""
    t.has("png")
    two = bytearray(b"\xff" * 200)
    two[3] = two[150] = 0
    for mode, transparency, bits, alpha, colour in (
            ("L", 17, 8, False, "index 17"), ("RGB", (1, 2, 3), 24, False, "#010203"), ("P", b"\xff" * 200, 8, False, None),
            ("P", bytes(range(0, 256, 2)), 32, True, None), ("P", bytes(two), 32, True, None)):
        source = t.path("source.png")
        photo(mode=mode).save(source, transparency=transparency)
        holds(t.info(source), bitsPerPixel=bits, alpha=alpha, transparency=colour)
        same(seen(source), seen(t.to("png", source)))


@case("Reading.RefusedByName")
def refused_by_name(t):
    """What the kernel has no bitmap for is called by its name."""
    t.has("jpeg", "tiff")
    floats = Image.fromarray(np.ones((4, 4), np.float32))
    for name, image, says in (("cmyk.jpg", photo(mode="CMYK"), "CMYK"), ("cmyk.tif", photo(mode="CMYK"), "CMYK"),
                              ("lab.tif", photo().convert("LAB"), "L*a*b*"), ("float.tif", floats, "floating-point")):
        image.save(t.path(name))
        t.fails("info", t.path(name), says=says)
    for bits, samples, photometric, says in ((32, 1, 1, "32-bit gray"), (4, 3, 2, "4-bit colour"), (8, 5, 2, "5 samples")):
        page = tiff_page(4, 4, 8, photometric, samples)
        page["fields"][258] = (3, [bits] * samples)
        t.fails("info", make_tiff(t.path("odd.tif"), [page]), says=says)
    t.path("float.pfm").write_bytes(b"PF\n1 1\n-1.0\n" + bytes(12))
    t.fails("info", t.path("float.pfm"), says="floating-point")
    source = make_bmp(t.path("wrap.bmp"), 4, 4, 24, b"\x89PNG", compression=5)
    t.fails("info", source, says="PNG")
    t.fails("info", make_bmp(t.path("ten.bmp"), 1, 1, 32, bytes(4), (0x3FF00000, 0xFFC00, 0x3FF), compression=3),
            says="more than 8 bits")


@case("Reading.TiffAlphaAndSigns")
def tiff_alpha_and_signs(t):
    t.has("tiff")
    for samples, alpha, premultiplied in ((4, 1, True), (4, 2, False), (2, 1, True), (2, 2, False)):
        for bits in (8, 16):
            photometric = 2 if samples == 4 else 1
            page = tiff_page(9, 5, bits, photometric, samples, alpha=alpha)
            source = make_tiff(t.path("alpha.tif"), [page])
            holds(t.info(source), bitsPerPixel=4 * bits, alpha=True, premultiplied=premultiplied)
            values = page["values"].reshape(5, 9, samples)
            colour = values if samples == 4 else values[..., [0, 0, 0, 1]]
            data = t.to("tif", source, "--compress", "none").read_bytes()
            assert colour.astype(f"<u{bits // 8}").tobytes() in data
    source = make_tiff(t.path("signed.tif"), [tiff_page(9, 5, 16, 1, format=2)])
    holds(t.info(source), bitsPerPixel=16, signed=True)
    holds(t.info(t.to("tif", source)), bitsPerPixel=16, signed=True)


@case("Reading.TiffFieldsOutOfRange")
def tiff_fields_out_of_range(t):
    """An impossible orientation or resolution is none; what the pixels' layout needs is not guessed."""
    t.has("tiff")
    good = make_tiff(t.path("good.tif"), [tiff_page(9, 5, 8)])
    for number, field in ((274, 0), (274, 9), (282, (11, [-72.0])), (283, (11, [-72.0]))):
        odd = tiff_page(9, 5, 8)
        odd["fields"][number] = field
        source = make_tiff(t.path("odd.tif"), [odd, odd])
        for page in (1, 2):
            holds(t.info(source, page), viewPerspective=1, xResolution=None)
            assert t.to("pgm", source, "--page", page).read_bytes() == t.to("pgm", good).read_bytes()
    odd["fields"][284] = 7
    message = t.fails("info", make_tiff(t.path("odd.tif"), [odd]), says="PlanarConfiguration")
    assert "odd.tif: Bad value" in message, message


@case("Reading.JpegDamageThatCostsNothing")
def harmless_damage(t):
    """Bytes between segments cost no pixel: the picture is read all the same."""
    t.has("jpeg")
    photo().save(t.path("whole.jpg"))
    data = t.path("whole.jpg").read_bytes()
    at = data.find(b"\xff\xdb")
    t.path("stuffed.jpg").write_bytes(data[:at] + struct.pack(">4s", b"junk") + data[at:])
    same(seen(t.to("ppm", t.path("whole.jpg"))), seen(t.to("ppm", t.path("stuffed.jpg"))))
