"""What commands do to a picture's size and position."""
import numpy as np
from PIL import Image

from support import case, displayed, make_tiff, same, seen, tiff_page


@case("Shaping.ResizeAndRotate", *[(f"orientation {o}", o) for o in range(1, 9)])
def resize_and_rotate(t, orientation):
    """Sizes and angles are those of the displayed picture."""
    t.has("tiff")
    source = make_tiff(t.path("source.tif"), [tiff_page(31, 17, 8, photometric=2, samples=3, orientation=orientation)])
    shown = displayed(seen(source), orientation).copy()
    height, width = shown.shape[:2]
    def made(command, *options):
        result = t.to("tif", source, *options, command=command)
        return displayed(seen(result), t.info(result)["viewPerspective"])
    double = made("resize", "--size", f"{width * 2}x{height * 3}", "--method", "nearest")
    same(double, shown.repeat(3, axis=0).repeat(2, axis=1))
    assert made("resize", "--fit", "93x93").shape[:2] == ((51, 93) if width > height else (93, 51))
    assert made("resize", "--percent", "50").shape[:2] == (round(height / 2 + 0.01), round(width / 2 + 0.01))
    assert made("resize", "--size", f"x{height * 2}").shape[:2] == (height * 2, width * 2)
    assert made("thumbnail", "--size", "16").shape[:2] == ((9, 16) if width > height else (16, 9))
    same(made("thumbnail", "--size", "31"), shown)
    same(made("rotate", "--by", "90"), np.rot90(shown, -1))
    same(made("rotate", "--by", "-180"), shown[::-1, ::-1])
    turned = made("rotate", "--by", "45", "--keep-size", "--fill", "FF0080")
    assert turned.shape == shown.shape and tuple(turned[0, 0]) == (0xFFFF, 0, 0x8080, 0xFFFF)
    corners = ("3,2", "9,2", "9,7", "3,7")
    same(made("deskew", "--corners", *corners), shown[2:7, 3:9])
    same(made("deskew", "--corners", *(corners[1:] + corners[:1])), np.rot90(shown[2:7, 3:9]))


def sharpness(path):
    """How much neighbouring rows differ, by the sums of their pixels."""
    rows = np.array(Image.open(path).convert("L")).astype(float).sum(axis=1)
    return np.square(np.diff(rows)).sum()


@case("Shaping.Deskew", ("1 bit", "text", 1), ("24 bits", "text", 24))
def deskew(t, kind, bits):
    """Lines that were tilted are level again; what has none, or level ones, stays as it is."""
    t.ok("chart", "page.pbm", "--kind", kind, "--size", "1240x1754")
    page = Image.open(t.path("page.pbm"))
    for degrees in (-7.3, 0.6, 12.1):
        tilted = page.convert("RGB").rotate(degrees, Image.BICUBIC, fillcolor="white")
        name = "tilted.pbm" if bits == 1 else "tilted.ppm"
        (tilted.convert("1", dither=Image.NONE) if bits == 1 else tilted).save(t.path(name))
        level = t.to(name[-3:], name, "--keep-size", command="deskew")
        assert sharpness(level) > 0.4 * sharpness(t.path("page.pbm")), f"{degrees} degrees"
        assert sharpness(t.path(name)) < 0.1 * sharpness(t.path("page.pbm"))
    assert t.to("pbm", "page.pbm", command="deskew").read_bytes() == t.path("page.pbm").read_bytes()
    Image.new("L", (300, 200), 255).save(t.path("blank.pgm"))
    assert t.to("pgm", "blank.pgm", command="deskew").read_bytes() == t.path("blank.pgm").read_bytes()


@case("Shaping.ShapesThatCannotBe")
def shapes_that_cannot_be(t):
    t.path("a.pgm").write_bytes(b"P5\n2 1\n255\n\x01\x02")
    t.fails("deskew", "a.pgm", "b.pgm", "--corners", "0,0", "1,1", "1,0", "0,1", says="a.pgm")
    t.fails("resize", "a.pgm", "b.pgm", "--size", "2000000000x2000000000", says="a.pgm")
