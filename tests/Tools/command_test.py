"""The command line: exit codes, messages, what is told, what is left behind."""
import json
import os
import signal
import stat
import subprocess
import time

import numpy as np
from PIL import Image

from support import Skip, case, make_tiff, packed, seen, tiff_page


def small(t, name="small.ppm"):
    t.path(name).write_bytes(b"P6\n3 2\n255\n" + bytes(range(18)))
    return t.path(name)


def left(t):
    return sorted(os.listdir(t.home))


@case("Command.HelpAndVersion")
def help_and_version(t):
    assert t.ok("--version").startswith("rvimg ")
    commands = ("info", "convert", "flip", "mirror", "crop", "fill", "combine", "orient", "dither", "depth", "gray",
                "palette", "resize", "thumbnail", "rotate", "deskew", "chart")
    assert all(command in t.ok("--help") for command in commands)
    for command in commands:
        assert "Usage: rvimg " + command in t.ok(command, "--help")


@case("Command.WrongUsage",
      ("nothing", ""), ("unknown command", "paint"), ("unknown option", "info --wrong"), ("no files", "info"),
      ("one file", "convert a.ppm"), ("three files", "convert a.ppm b.ppm c.ppm"), ("no ending", "convert small.ppm out"),
      ("unknown ending", "convert small.ppm out.doc"), ("unknown format", "convert small.ppm out.ppm --format doc"),
      ("quality 0", "convert small.ppm out.ppm --quality 0"), ("quality high", "flip small.ppm out.ppm --quality 101"),
      ("compression", "convert small.ppm out.ppm --compress best"), ("page 0", "flip small.ppm out.ppm --page 0"),
      ("chart kind", "chart out.ppm --kind oil"), ("chart size", "chart out.ppm --size 100"),
      ("chart size too", "chart out.ppm --size 100x99999"), ("size", "info small.ppm --max-size lots"),
      ("orientation", "orient small.ppm out.ppm --to north"),
      ("no area", "crop small.ppm out.ppm"), ("no colour", "fill small.ppm out.ppm"),
      ("colour", "fill small.ppm out.ppm --colour 12345"),
      ("mode", "combine small.ppm out.ppm --with small.ppm --mode mix"), ("no mode", "combine a.ppm b.ppm --with c.ppm"),
      ("place", "combine small.ppm out.ppm --with small.ppm --mode add --at 1"),
      ("method", "dither small.ppm out.ppm --method best"), ("colours", "dither small.ppm out.ppm --colours 257"),
      ("fixed colours", "dither small.ppm out.ppm --palette fixed --colours 10"), ("no depth", "depth small.ppm out.ppm"),
      ("depth", "depth small.ppm out.ppm --bits 9"), ("palette of none", "depth small.ppm out.ppm --bits 24 --palette gray"),
      ("gray depth", "gray small.ppm out.ppm --bits 4"), ("palette of what", "palette small.ppm out.ppm"),
      ("palette for what", "palette small.ppm --from small.ppm"),
      ("area", "fill small.ppm out.ppm --colour 123456 --area 3x0+1+1"),
      ("area too", "fill small.ppm out.ppm --colour 123456 --area 3x1-1+1"),
      *[(f"shape {i}", arguments) for i, arguments in enumerate((
          "resize small.ppm b.ppm", "resize small.ppm b.ppm --size 0x0", "resize small.ppm b.ppm --size 3",
          "resize small.ppm b.ppm --size 1x1 --percent 5", "resize small.ppm b.ppm --percent 5 --method odd",
          "rotate small.ppm b.ppm", "rotate small.ppm b.ppm --by 1x", "rotate small.ppm b.ppm --by 361",
          "deskew small.ppm b.ppm --corners 1,1", "deskew small.ppm b.ppm --corners 1,1 2,1 2,2 1;2"))])
def wrong_usage(t, arguments):
    small(t)
    t.fails(*arguments.split(), code=2)
    assert left(t) == ["small.ppm"]


@case("Command.Failures")
def failures(t):
    """The message starts with the file's name; an old output stays as it was, and nothing else appears."""
    small(t)
    t.path("old.bmp").write_bytes(b"old")
    t.path("text.txt").write_text("not a picture")
    t.path("empty.bmp").write_bytes(b"")
    t.path("folder.bmp").mkdir()
    before = left(t)
    for source, says in (("none.bmp", "no such file"), ("text.txt", "not a picture"), ("empty.bmp", "empty"),
                         ("folder.bmp", "directory")):
        for command in ("convert", "flip", "mirror"):
            message = t.fails(command, source, "old.bmp", says=says)
            assert message.startswith(f"rvimg: {source}: "), message
        t.fails("info", source, says=f"rvimg: {source}: ")
    t.fails("convert", "small.ppm", "folder.bmp", says="rvimg: folder.bmp: is a directory")
    t.fails("convert", "small.ppm", "nowhere/out.bmp", says="rvimg: nowhere/out.bmp: cannot write: there is no such")
    t.fails("convert", "small.ppm", "old.bmp", "--format", "pgm", "--exact",
            says="old.bmp: PGM cannot hold 24-bit colour")
    assert left(t) == before and t.path("old.bmp").read_bytes() == b"old"


@case("Command.InfoText")
def info_text(t):
    """One line for the file, one for each page; what cannot be read does not hide what can."""
    small(t)
    assert t.ok("info", "small.ppm").split("\n")[:2] == ["small.ppm: PPM", "  3 x 2, 24-bit colour, top-left, P6 raw"]
    done = t.call("info", "none.bmp", "small.ppm")
    assert done.returncode == 1 and b"3 x 2" in done.stdout and b"none.bmp" in done.stderr
    t.path("two.pnm").write_bytes(b"P4\n1 1\n\x80P5\n2 1\n15\n\x01\x02")
    text = t.ok("info", "two.pnm")
    assert "2 pages" in text and "page 1: 1 x 1, 1-bit black and white" in text and "page 2: 2 x 1, 4-bit gray" in text


@case("Command.InfoJson")
def info_json(t):
    small(t)
    t.path("half.pnm").write_bytes(b"P4\n9 1\n\x80\x80P5\n200000 1\n255\n")
    done = t.call("info", "--json", "small.ppm", "half.pnm", "none.bmp")
    assert done.returncode == 1 and b"half.pnm" in done.stderr and b"none.bmp" in done.stderr
    first, half, none = json.loads(done.stdout)
    assert first == {"file": "small.ppm", "format": "PPM", "pages": [
        {"page": 1, "width": 3, "height": 2, "bitsPerPixel": 24, "order": "RGB", "colors": 0, "alpha": False,
         "premultiplied": False, "signed": False, "significantBits": None, "transparency": None, "viewPerspective": 1,
         "orientation": "top-left", "xResolution": None, "yResolution": None, "encoding": "P6 raw", "bytesPerLine": 12,
         "size": 24}]}
    assert len(half["pages"]) == 1 and half["pages"][0]["palette"] == [[255, 255, 255], [0, 0, 0]]
    assert "truncated" in half["error"]
    assert none["format"] is None and none["pages"] == [] and none["error"]


@case("Command.ReplacingFiles")
def replacing_files(t):
    """The input itself may be the output; permissions and links of an old output stay."""
    source = small(t)
    before = source.read_bytes()
    t.ok("flip", source, source)
    assert source.read_bytes() == before[:11] + before[20:] + before[11:20]
    t.ok("flip", source, source)
    if os.name != "posix" or "wine" in t.command[0]:
        return
    t.path("target.ppm").write_bytes(b"")
    t.path("target.ppm").chmod(0o640)
    t.path("link.ppm").symlink_to("target.ppm")
    t.ok("convert", source, t.path("link.ppm"))
    assert t.path("link.ppm").is_symlink() and t.path("target.ppm").read_bytes() == before
    assert stat.S_IMODE(t.path("target.ppm").stat().st_mode) == 0o640
    assert left(t) == ["link.ppm", "small.ppm", "target.ppm"]


@case("Command.NamesThatAreNoText", ("no UTF-8", b"\xff"), ("a backslash", b"a\\b"))
def names_that_are_no_text(t, bytes_):
    """Where names are bytes, each is one: nothing is read, written or left under another."""
    t.needs_posix()
    data = small(t).read_bytes()
    odd = os.fsdecode(bytes_)
    t.path("a").mkdir()
    t.path("a/b").write_bytes(b"another")
    t.path(odd + ".d").mkdir()
    t.ok("convert", "small.ppm", f"{odd}.d/{odd}.ppm")
    t.ok("convert", f"{odd}.d/{odd}.ppm", odd + ".ppm")
    assert t.path(odd + ".ppm").read_bytes() == data
    assert os.listdir(t.path(odd + ".d")) == [odd + ".ppm"] and os.listdir(t.path("a")) == ["b"]
    os.mkfifo(t.path(odd + ".fifo"))
    reader = subprocess.Popen(["cat", t.path(odd + ".fifo")], stdout=subprocess.PIPE)
    t.ok("convert", "small.ppm", odd + ".fifo", "-f", "ppm")
    assert reader.communicate()[0] == data


@case("Command.DevicesAndPipes")
def devices_and_pipes(t):
    """What is no regular file is read and written as such, and never replaced."""
    t.needs_posix()
    source = small(t)
    data = source.read_bytes()
    assert json.loads(t.ok("info", "--json", "/dev/stdin", input=data))[0]["pages"][0]["width"] == 3
    assert t.ok("convert", source, "/dev/stdout", "--format", "ppm").encode() == data
    t.ok("convert", source, "/dev/null", "--format", "bmp")
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode)
    t.fails("convert", source, "/dev/full", "--format", "ppm", says="/dev/full: cannot write")


@case("Command.StandardStreams", ("bmp", "bmp"), ("ppm", "ppm"), ("png", "png"), ("tif", "tif"))
def standard_streams(t, ending):
    """- reads and writes pipes and files alike, in the input's format unless told another; memory has a name too."""
    t.has(ending)
    source = t.path("in." + ending)
    t.ok("chart", source.name, "--size", "1200x900", "--compress", "none")
    t.ok("mirror", source.name, "out." + ending)
    wanted = t.path("out." + ending).read_bytes()
    data = source.read_bytes()
    with open(source, "rb") as file:
        assert subprocess.run([*t.command, "mirror", "-q", "-", "-"], cwd=t.home, stdin=file, stdout=subprocess.PIPE,
                              check=True).stdout == wanted
    if "wine" in t.command[0]:
        raise Skip("what Wine leaves behind would hold the pipes")
    piped = subprocess.run([*t.command, "mirror", "-q", "-", "-"], cwd=t.home, input=data, stdout=subprocess.PIPE,
                           check=True).stdout
    assert piped == wanted
    memory = os.memfd_create("picture")
    os.write(memory, data)
    assert subprocess.run([*t.command, "mirror", "-q", f"/dev/fd/{memory}", "-", "-f", "bmp"], cwd=t.home,
                          pass_fds=[memory], stdout=subprocess.PIPE, check=True).stdout[:2] == b"BM"
    os.close(memory)
    half = subprocess.run([*t.command, "convert", "-", "-"], cwd=t.home, input=data[:5000], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE)
    assert half.returncode == 1 and half.stdout == b"" and b"rvimg: -: " in half.stderr, half


@case("Command.OutputThatNobodyTakes", *[(a, a) for a in ("--help", "info --json small.ppm", "convert small.ppm -")])
def output_that_nobody_takes(t, arguments):
    """What could not be told was not done: on a full device, and into a pipe without a reader."""
    t.needs_posix()
    small(t)
    ours, its = os.pipe()
    os.close(ours)
    with open("/dev/full", "wb") as full:
        for out in (full, its) if "small" in arguments else (full,):
            done = subprocess.run([*t.command, *arguments.split()], cwd=t.home, stdout=out, stderr=subprocess.PIPE)
            assert done.returncode == 1 and b"cannot write" in done.stderr, done
    os.close(its)


@case("Command.FullDisk")
def full_disk(t):
    """A write that fails leaves the old file alone, and no new one."""
    t.needs_posix()
    t.ok("chart", "chart.ppm", "--size", "400x300")
    for ending in filter(t.offers, ("bmp", "ppm", "png", "jpg", "tif")):
        t.path("old." + ending).write_bytes(b"old")
        before = left(t)
        limited = ["sh", "-c", 'trap "" XFSZ; ulimit -f 20; exec "$@"', "sh", *t.command]
        done = subprocess.run([*limited, "convert", "chart.ppm", "old." + ending, "--compress", "none"], cwd=t.home,
                              stderr=subprocess.PIPE)
        assert done.returncode == 1 and b"cannot write" in done.stderr, done
        assert left(t) == before and t.path("old." + ending).read_bytes() == b"old"


@case("Command.Interrupted", ("HUP", 1), ("INT", 2), ("TERM", 15))
def interrupted(t, number):
    """A signal ends the work as a signal does, without a half-written file."""
    t.needs_posix()
    t.path("old.ppm").write_bytes(b"old")
    work = subprocess.Popen([*t.command, "chart", "old.ppm", "--size", "6000x6000"], cwd=t.home,
                            preexec_fn=lambda: signal.signal(number, signal.SIG_DFL))  # nobody ignores it for us
    time.sleep(0.5)
    work.send_signal(number)
    assert work.wait(timeout=60) == -number
    assert left(t) == ["old.ppm"] and t.path("old.ppm").read_bytes() == b"old"
    # So it does while the tool waits: for bytes that do not come, or for a reader.
    os.mkfifo(t.path("fifo"))
    ours, its = os.pipe()
    for arguments in (("info", "-"), ("info", "fifo"), ("chart", "fifo", "--size", "16x16", "-f", "bmp")):
        work = subprocess.Popen([*t.command, *arguments], cwd=t.home, stdin=ours,
                                preexec_fn=lambda: signal.signal(number, signal.SIG_DFL))
        time.sleep(0.3)
        work.send_signal(number)
        assert work.wait(timeout=10) == -number
    os.close(ours)
    os.close(its)


@case("Command.Progress")
def progress(t):
    """A bar on a terminal when the work is long; none elsewhere, and none when it is not wanted."""
    t.needs_posix()
    for options, expected in (((), True), (("--quiet",), False)):
        ours, its = os.openpty()
        work = subprocess.Popen([*t.command, "chart", "chart.ppm", "--size", "1600x1600", *options], cwd=t.home, stderr=its)
        os.close(its)
        said = b""
        try:
            while chunk := os.read(ours, 4096):
                said += chunk
        except OSError:
            pass  # the terminal's other end is closed
        assert work.wait() == 0 and (b"drawing chart.ppm [" in said) == expected, said[:200]
        assert not expected or said.endswith(b"\r\x1b[K"), "the bar is wiped"


@case("Command.MaxSize")
def max_size(t):
    """Sizes that a header invents are refused before any memory is taken."""
    source = small(t)
    t.fails("convert", source, t.path("no.bmp"), "--max-size", "23", says="--max-size")
    t.ok("convert", source, t.path("yes.bmp"), "--max-size", "24")
    t.path("huge.ppm").write_bytes(b"P6\n30000 30000\n255\n" + bytes(1000))
    t.fails("info", t.path("huge.ppm"), "--max-size", "4GB", says="truncated")
    for size in ("0 5", "99999999999 1", "2000000000 2000000000"):
        t.path("odd.ppm").write_bytes(f"P6\n{size}\n255\n".encode() + bytes(100))
        t.fails("info", t.path("odd.ppm"))


@case("Command.Names")
def names(t):
    """Letters of any script, spaces, upper-case endings, formats by name."""
    source = small(t, "größe 图 .ppm")
    t.ok("convert", source, t.path("Übung.BMP"))
    t.ok("convert", source, t.path("без имени"), "--format", "BMP")
    assert t.path("без имени").read_bytes() == t.path("Übung.BMP").read_bytes()
    assert "größe 图 .ppm" in t.ok("info", "größe 图 .ppm")


@case("Chart.Kinds")
def charts(t):
    """Two pictures, the same every time, of the size that was asked for, with enough in them to look at."""
    t.ok("chart", "photo.ppm", "--size", "480x360")
    t.ok("chart", "again.ppm", "--size", "480x360", "--kind", "photo")
    assert t.path("photo.ppm").read_bytes() == t.path("again.ppm").read_bytes()
    pixels = np.array(Image.open(t.path("photo.ppm")))
    assert pixels.shape == (360, 480, 3) and len(np.unique(pixels.reshape(-1, 3), axis=0)) > 20000
    t.ok("chart", "page.pbm", "--kind", "text")
    page = np.array(Image.open(t.path("page.pbm")))
    assert page.shape == (3508, 2480) and 0.03 < 1 - page.mean() < 0.2, "ink on paper"
    t.ok("chart", "tiny.bmp", "--size", "16x16")
    t.ok("chart", "narrow.bmp", "--size", "17x900", "--kind", "text")
