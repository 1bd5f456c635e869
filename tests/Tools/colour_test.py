"""Depths, palettes and dithering, held to plain arithmetic on what other programs see."""
import numpy as np
from PIL import Image

from support import case, make_tiff, png, same, seen, tiff_page

METHODS = ("none", "floyd-steinberg", "stucki", "burkes", "sierra", "stevenson-arce", "jarvis", "ordered", "clustered")


def photo(t, ending="png"):
    """A small photographic chart; and its pixels, 8 bits a sample."""
    t.has(ending)
    file = t.path("photo." + ending)
    t.ok("chart", file, "--size", "160x120")
    return file, pixels(file)


def pixels(path):
    return (seen(path)[..., :3] // 257).astype(np.int64)


def colours_of(t, path):
    return np.array(t.info(path)["palette"])


def luminance(colours):
    return (2 * colours[..., 0] + 5 * colours[..., 1] + colours[..., 2] + 4) >> 3


def blurred(image):
    """Means of 8 x 8 pixels: what the eye makes of dots."""
    height, width = (side // 8 for side in image.shape[:2])
    return image[:height * 8, :width * 8].reshape(height, 8, width, 8, -1).mean(axis=(1, 3))


def distances(image, palette):
    return ((image[..., None, :] - palette) ** 2).sum(-1)


@case("Colour.Dither", *[(method, method) for method in METHODS])
def dither(t, method):
    """Every method shows the picture from afar, each in its own way; without one, edges are where the light changes."""
    source, shown = photo(t, "bmp")
    for count, bits, slack in ((2, 1, 60), (16, 4, 12), (256, 8, 5)):
        target = t.to("bmp", source, "--method", method, "--colours", count, command="dither")
        info = t.info(target)
        assert info["bitsPerPixel"] == bits and info["colors"] <= count
        off = np.abs(blurred(luminance(shown)) - blurred(luminance(pixels(target)))).mean()
        assert off < slack, f"{count} colours: {off:.1f} off"
    others = [t.to("bmp", source, "--method", m, command="dither").read_bytes() for m in METHODS if m != method]
    assert t.to("bmp", source, "--method", method, command="dither").read_bytes() not in others


@case("Colour.DitherPalettes")
def dither_palettes(t):
    source, _ = photo(t)
    t.path("mine.txt").write_text("#102030\n1 #ff8000\n  2\t#FFFFFF\n")
    mine = [[16, 32, 48], [255, 128, 0], [255] * 3]
    for palette, count, wanted in (("fixed", 8, [[v // 4 * 255, v // 2 % 2 * 255, v % 2 * 255] for v in range(8)]),
                                   ("gray", 4, [[v * 85] * 3 for v in range(4)]), ("mine.txt", 256, mine),
                                   ("mine.txt", 2, mine[:2])):
        target = t.to("png", source, "--palette", palette, "--colours", count, command="dither")
        assert t.info(target)["palette"] == wanted, palette
        assert len(np.unique(pixels(target).reshape(-1, 3), axis=0)) == len(wanted), "all of them are used"
    t.fails("dither", source, "out.png", "--palette", "own", says="no palette")
    t.fails("dither", source, "out.png", "--palette", source.name, says="photo.png: has no palette; it is 24-bit")
    t.path("bad.txt").write_text("#10203\n")
    t.fails("dither", source, "out.png", "--palette", "bad.txt", says="bad.txt: not a picture")


@case("Colour.DepthOfColours")
def depth_of_colours(t):
    """Every depth is there, and indices are nearest entries."""
    source, shown = photo(t)
    t.has("tiff")
    for bits, ending in ((16, "bmp"), (48, "tif")):
        back = t.to("png", t.to(ending, source, "--bits", bits, command="depth"), "--bits", 24, command="depth")
        same(pixels(back), shown if bits > 16 else shown >> 3 << 3 | shown >> 5)
    wide = seen(t.to("png", source, "--bits", 64, command="depth"))
    same(wide[..., :3], (shown * 257).astype(np.uint16))
    assert (wide[..., 3] == 65535).all()
    for bits in range(1, 9):
        target = t.to("tif", source, "--bits", bits, command="depth")
        palette, got = colours_of(t, target), pixels(t.to("png", target, "--bits", 24, command="depth"))
        assert t.info(target)["bitsPerPixel"] == bits and len(palette) <= 1 << bits
        same(((got - shown) ** 2).sum(-1), distances(shown, palette).min(-1))
    t.fails("depth", source, "out.tif", "--bits", 4, "--palette", "own", says="no palette")


@case("Colour.Gray")
def gray(t):
    source, shown = photo(t)
    t.has("tiff")
    same(pixels(t.to("pgm", source, command="gray"))[..., 0], luminance(shown))
    deep = make_tiff(t.path("deep.tif"), [tiff_page(21, 9, 16, 2, 3)])
    same(seen(t.to("png", deep, command="gray"))[..., 0].astype(np.int64), luminance(seen(deep)[..., :3].astype(np.int64)))
    # A gray picture stays gray in every depth, whatever it comes from.
    plain = t.to("png", source, command="gray")
    full = t.to("ppm", plain, "--bits", 24, command="depth")
    for bits in (4, 8, 12, 16):
        info = t.info(t.to("tif", full, "--bits", bits, command="depth"))
        assert (info["bitsPerPixel"], info["order"]) == (bits, "gray"), info


@case("Colour.ShowPalette")
def show_palette(t):
    """As text that can be read again, and as a picture that has the palette itself."""
    source, _ = photo(t, "bmp")
    t.fails("palette", source, says="has no palette")
    text = t.ok("palette", source, "--colours", 19)
    listed = [[int(line.split()[1][i:i + 2], 16) for i in (1, 3, 5)] for line in text.splitlines()]
    assert len(listed) == 19 and [int(line.split()[0]) for line in text.splitlines()] == list(range(19))
    t.path("listed.txt").write_text(text)
    t.ok("palette", source, "--colours", 19, "--swatches", "shown.bmp")
    assert t.ok("palette", "shown.bmp") == t.ok("palette", "listed.txt") == text
    shown = pixels(t.path("shown.bmp"))
    assert shown.shape == (64, 512, 3)
    assert shown[16, 16::32].tolist() == listed[:16] and shown[48, 80::171].tolist() == listed[16:]
    t.fails("palette", "shown.bmp", "--page", 2, says="no page 2")


@case("Colour.TakePalette")
def take_palette(t):
    source, shown = photo(t)
    t.path("mine.txt").write_text("#000000 #ff0000 #808080 #00ffff #ffffff")
    palette = np.array([[0, 0, 0], [255, 0, 0], [128] * 3, [0, 255, 255], [255] * 3])
    target = t.to("png", source, "--from", "mine.txt", command="palette")
    assert t.info(target)["bitsPerPixel"] == 4 and (colours_of(t, target) == palette).all()
    same(((pixels(target) - shown) ** 2).sum(-1), distances(shown, palette).min(-1))
    own = [(i * 16, 255 - i * 16, i) for i in range(16)]
    t.path("few.png").write_bytes(png(16, 1, 4, 3, b"\0\x01\x23\x45\x67\x89\xab\xcd\xef", own))
    false = t.to("png", t.path("few.png"), "--from", "mine.txt", "--keep-indices", command="palette")
    wanted = np.concatenate([palette, np.array(own)[5:]])
    assert (colours_of(t, false) == wanted).all()
    same(pixels(false)[0], wanted)
    t.fails("palette", source, "out.png", "--from", "mine.txt", "--keep-indices", says="no indices")


@case("Colour.WhatIsLeftOut")
def what_is_left_out(t):
    """Alpha and a transparent colour are not lost in silence; a format that holds less says what it got."""
    t.has("png", "tiff")
    clear = make_tiff(t.path("clear.tif"), [tiff_page(9, 7, 8, 2, 4, alpha=2)])
    for command in (("dither",), ("gray",), ("depth", "--bits", "48")):
        t.tells(command[0], clear, "out.png", *command[1:], says="clear.tif: the alpha is left out")
    Image.frombytes("RGB", (8, 4), bytes(range(96))).save(t.path("keyed.png"), transparency=(0, 1, 2))
    assert t.info("keyed.png")["transparency"]
    t.tells("dither", "keyed.png", "few.png", "--colours", "4", says="the transparent colour is left out")
    assert t.info("few.png")["transparency"] is None
    pages = make_tiff(t.path("pages.tif"), [tiff_page(9, 7, 5, 1), tiff_page(9, 7, 5, 1), tiff_page(9, 7, 16, 2, 3)])
    said = t.tells("convert", pages, "pages.pbm", says="5-bit gray; written as 1-bit black and white, dithered")
    assert len(said.splitlines()) == 2, "once for each kind of page"
    signed = make_tiff(t.path("signed.tif"), [tiff_page(9, 7, 16, format=2)])
    t.fails("gray", signed, "out.png", says="signed")
