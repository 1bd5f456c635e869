"""What commands do to pictures, as they are displayed."""
import json

import numpy as np

from support import case, displayed, make_tiff, random_bytes, same, seen, tiff_page


def colour_page(t, orientation):
    """A picture of 31 x 17 stored pixels of 24 bits; and how it looks."""
    page = tiff_page(31, 17, 8, photometric=2, samples=3, orientation=orientation)
    source = make_tiff(t.path("source.tif"), [page])
    return source, displayed(seen(source), orientation).copy()


@case("Working.FillAndCrop", *[(f"orientation {o}", o) for o in range(1, 9)])
def fill_and_crop(t, orientation):
    """An area is where it is seen; what of it lies outside is left away."""
    t.has("tiff")
    source, shown = colour_page(t, orientation)
    for area, rows, columns in (("6x5+3+2", slice(2, 7), slice(3, 9)), ("90x4+5+1", slice(1, 5), slice(5, None)),
                                (None, slice(None), slice(None))):
        place = ("--area", area) if area else ()
        wanted = shown.copy()
        wanted[rows, columns, :3] = (0xFFFF, 0x8080, 0x0101)
        filled = t.to("tif", source, "--colour", "#FF8001", *place, command="fill")
        same(displayed(seen(filled), orientation), wanted)
        if area:
            same(displayed(seen(t.to("tif", source, *place, command="crop")), orientation), shown[rows, columns])
    for command in (("fill", "--colour", "white"), ("crop",)):
        t.fails(command[0], source, "out.tif", *command[1:], "--area", "1x1+31+17", says="outside the picture")


@case("Working.Orient", *[(f"orientation {o}", o) for o in range(1, 9)])
def orient(t, orientation):
    """Stored in another way, a picture looks the same; upright, every format holds it."""
    t.has("tiff")
    source, shown = colour_page(t, orientation)
    upright = t.to("ppm", source, command="orient")
    same(seen(upright)[..., :3], shown[..., :3])
    for name, wanted in (("left-bottom", 8), ("bottom-left", 4), ("right-top", 6)):
        turned = t.to("tif", source, "--to", name, command="orient")
        assert json.loads(t.ok("info", "--json", turned))[0]["pages"][0]["viewPerspective"] == wanted
        same(displayed(seen(turned), wanted), shown)


@case("Working.FillAlpha")
def fill_alpha(t):
    t.path("a.pam").write_bytes(b"P7\nWIDTH 3\nHEIGHT 2\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" +
                                random_bytes(24))
    t.ok("fill", "a.pam", "b.pam", "--color", "01020304")
    assert t.path("b.pam").read_bytes().endswith(bytes((1, 2, 3, 4)) * 6)


@case("Working.Combine", *[(f"orientation {o}", o) for o in range(1, 9)])
def combine(t, orientation):
    """The other picture lies where it is seen, in its own orientation; another order of its components does no harm."""
    t.has("tiff")
    source, shown = colour_page(t, orientation)
    other = t.to("bmp", make_tiff(t.path("other.tif"), [tiff_page(9, 7, 8, photometric=2, samples=3, seed=2)]))
    laid = seen(other)[:, :, :3]
    wanted = shown.copy()
    part = wanted[4:11, 6:15, :3]
    part[...] = np.minimum(part.astype(int) + laid[:len(part), :part.shape[1]], 0xFFFF)
    same(displayed(seen(t.to("tif", source, "--with", other, "--mode", "add", "--at", "6+4", command="combine")),
                   orientation), wanted)
    t.fails("combine", source, "out.tif", "--with", other, "--mode", "add", "--at", "31+17", says="outside")
    t.path("gray.pgm").write_bytes(b"P5\n2 1\n255\n\x01\x02")
    t.fails("combine", source, "out.tif", "--with", "gray.pgm", "--mode", "add", says="another kind")


@case("Working.CombineColours")
def combine_colours(t):
    """Which bit is black does not matter; other palettes have to be the same."""
    t.path("a.pbm").write_bytes(b"P4\n8 1\n\xf0")
    t.path("b.pam").write_bytes(b"P7\nWIDTH 8\nHEIGHT 1\nDEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" +
                                bytes(4) + b"\1" * 4)
    t.ok("combine", "a.pbm", "c.pbm", "--with", "b.pam", "--mode", "and")
    assert t.path("c.pbm").read_bytes() == t.path("a.pbm").read_bytes()
    t.path("gray.pgm").write_bytes(b"P5\n2 1\n255\n\x01\x02")
    t.has("tiff")
    coloured = make_tiff(t.path("p.tif"), [tiff_page(9, 7, 8, photometric=3, palette=[(i, 0, i) for i in range(256)])])
    t.fails("combine", "gray.pgm", "out.tif", "--with", coloured, "--mode", "xor", says="palette")
