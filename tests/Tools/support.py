"""What the tests of rvimg share: running it, other programs' view of a picture, and pictures made by hand."""
import json
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import zlib

import numpy as np

MAGICK = next((p for p in ("/usr/bin/convert-im6.q16", "/usr/bin/convert") if os.path.exists(p)), None)

LISTED = {"jpeg": "jpg", "tif": "tiff"}  # endings that --version lists under another name


class Skip(Exception):
    """The case cannot run here; the text says why."""


class Absent(Skip):
    """The build does not have the formats that the case is about."""

    def __init__(self, formats):
        super().__init__(f"this build has no {', '.join(formats)}")
        self.formats = formats


CASES = []


def case(name, *rows):
    """Registers a function as one case, or as one for each row; a row's first entry is its name."""
    def register(function):
        if not rows:
            CASES.append((name, function))
        for row in rows:
            CASES.append((f"{name}/{row[0]}", lambda t, row=row: function(t, *row[1:])))
        return function
    return register


class Tool:
    """rvimg, and a folder of its own for one case."""

    def __init__(self, command):
        self.command = command
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="rvimg-test-"))
        self.formats = None

    def fresh(self):
        """An empty folder for the next case."""
        shutil.rmtree(self.home, ignore_errors=True)
        self.home.mkdir()

    def path(self, name):
        return self.home / name

    def call(self, *arguments, **more):
        done = self.start(*arguments, **more)
        # Once in thousands of starts Wine itself ends with 1 before there is a program, which never fails without a
        # word: it is started once more.
        if "wine" in self.command[0] and done.returncode == 1 and not done.stdout + done.stderr:
            done = self.start(*arguments, **more)
        return done

    def start(self, *arguments, timeout=120, **more):
        # Through files: a server that Wine leaves behind would hold pipes open, and reading them would wait for it.
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            done = subprocess.run([*self.command, *map(str, arguments)], stdout=out, stderr=err, timeout=timeout,
                                  cwd=self.home, **more)
            out.seek(0)
            err.seek(0)
            done.stdout, done.stderr = out.read(), err.read()
        return done

    def needs_posix(self):
        if os.name != "posix" or "wine" in self.command[0]:
            raise Skip("Windows has no such thing")

    def offers(self, name):
        if self.formats is None:
            self.formats = self.call("--version").stdout.decode().split("formats:")[1].replace(",", " ").split()
        return LISTED.get(name, name) in self.formats

    def has(self, *formats):
        missing = [LISTED.get(name, name) for name in formats if not self.offers(name)]
        if missing:
            raise Absent(missing)

    def ok(self, *arguments, **more):
        done = self.call(*arguments, **more)
        assert done.returncode == 0, f"{arguments}: exit {done.returncode}: {done.stderr.decode()}"
        assert not done.stderr, f"{arguments} said {done.stderr.decode()}"
        return done.stdout.decode().replace("\r\n", "\n")

    def tells(self, *arguments, says):
        """Done, but not without saying something."""
        done = self.call(*arguments)
        message = done.stderr.decode(errors="replace")
        assert done.returncode == 0 and says in message, f"{arguments}: exit {done.returncode}: {message!r}, not {says!r}"
        return message

    def fails(self, *arguments, code=1, says="", **more):
        done = self.call(*arguments, **more)
        message = done.stderr.decode(errors="replace")
        assert done.returncode == code, f"{arguments}: exit {done.returncode}, not {code}: {message}"
        assert message.strip(), f"{arguments}: no message"
        assert says in message, f"{arguments}: {message!r} does not say {says!r}"
        return message

    def info(self, path, page=1):
        return json.loads(self.ok("info", "--json", path))[0]["pages"][page - 1]

    def to(self, ending, source, *options, command="convert"):
        """Writes a picture in a format; answers the new file."""
        target = self.path(f"{pathlib.Path(source).stem}-{command}{len(os.listdir(self.home))}.{ending}")
        self.ok(command, source, target, *options)
        return target


# --- Other programs

def run(*command, **more):
    try:
        return subprocess.run(list(map(str, command)), check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              **more).stdout
    except FileNotFoundError:
        raise Skip(f"{command[0]} is not installed") from None
    except subprocess.CalledProcessError as failure:
        raise AssertionError(f"{command}: {failure.stderr.decode(errors='replace')}") from None


def magick(*arguments, **more):
    if MAGICK is None:
        raise Skip("ImageMagick is not installed")
    return run(MAGICK, *arguments, **more)


def seen(path, page=0):
    """What another decoder sees, rows as stored: height x width x (red, green, blue, alpha) of 16 bits."""
    size = magick(f"{path}[{page}]", "-format", "%w %h", "info:").split()
    raw = magick(f"{path}[{page}]", "-depth", "16", "-endian", "LSB", "RGBA:-")
    return np.frombuffer(raw, "<u2").reshape(int(size[1]), int(size[0]), 4)


def displayed(pixels, orientation):
    """Stored rows as they are shown; orientations have the numbers of TIFF."""
    if orientation >= 5:
        pixels = pixels.swapaxes(0, 1)
    if orientation in (2, 3, 6, 7):
        pixels = pixels[:, ::-1]
    if orientation in (3, 4, 7, 8):
        pixels = pixels[::-1]
    return pixels


def same(a, b, slack=0):
    assert a.shape == b.shape, f"shapes {a.shape} and {b.shape}"
    off = np.abs(a.astype(np.int64) - b.astype(np.int64))
    assert off.max(initial=0) <= slack, f"{np.count_nonzero(off > slack)} values differ, by up to {off.max()}"


# --- Pictures made by hand

def random_bytes(count, seed=1):
    return np.random.default_rng(seed).integers(0, 256, count, dtype=np.uint8).tobytes()


def packed(samples, bits):
    """Samples of a row, most significant bit first; 16-bit ones little-endian."""
    if bits == 16:
        return np.asarray(samples, "<u2").tobytes()
    spread = (np.asarray(samples)[:, None] >> np.arange(bits - 1, -1, -1)) & 1
    return np.packbits(spread.astype(np.uint8)).tobytes()


def make_tiff(path, pages):
    """An uncompressed little-endian TIFF; a page is a dictionary: width, height, rows, and fields by number, each a
    (type, values) pair or a number, which becomes a SHORT."""
    out = bytearray(b"II*\0\0\0\0\0")
    link = 4
    for page in pages:
        data = b"".join(page["rows"])
        at = len(out)
        out += data + b"\0" * (len(data) % 2)
        fields = {256: (4, [page["width"]]), 257: (4, [page["height"]]), 273: (4, [at]), 278: (4, [page["height"]]),
                  279: (4, [len(data)]), 259: 1, **page["fields"]}
        entries = b""
        for tag, field in sorted(fields.items()):
            kind, values = field if isinstance(field, tuple) else (3, [field])
            body = struct.pack(f"<{len(values)}{'_BcHI______f'[kind]}" if kind != 5 else f"<{len(values)}I", *values)
            count = len(values) // (2 if kind == 5 else 1)
            if len(body) > 4:
                entries += struct.pack("<HHII", tag, kind, count, len(out))
                out += body + b"\0" * (len(body) % 2)
            else:
                entries += struct.pack("<HHI4s", tag, kind, count, body)
        struct.pack_into("<I", out, link, len(out))
        out += struct.pack("<H", len(fields)) + entries
        link = len(out)
        out += b"\0\0\0\0"
    path.write_bytes(out)
    return path


def tiff_page(width, height, bits, photometric=1, samples=1, seed=1, top=None, **fields):
    """A page of random samples. Fields: orientation, dpi, palette, alpha, format; the samples are under `values`."""
    top = (1 << bits) - 1 if top is None else top
    values = np.random.default_rng(seed).integers(0, top + 1, (height, width * samples))
    tags = {258: (3, [bits] * samples), 262: photometric, 277: samples}
    if "orientation" in fields:
        tags[274] = fields["orientation"]
    if "dpi" in fields:
        tags.update({282: (5, [fields["dpi"], 1]), 283: (5, [fields["dpi"] * 2, 1]), 296: 2})
    if "palette" in fields:
        tags[320] = (3, [v * 257 for channel in zip(*fields["palette"]) for v in channel])
    if "alpha" in fields:
        tags[338] = fields["alpha"]
    if "format" in fields:
        tags[339] = (3, [fields["format"]] * samples)
    return {"width": width, "height": height, "rows": [packed(row, bits) for row in values], "fields": tags,
            "values": values}


def make_bmp(path, width, height, bits, rows, masks=None, header=40, palette=b"", compression=0, colours=0):
    """rows: the bytes of the pixels as they stand in the file."""
    masks = struct.pack(f"<{len(masks)}I", *masks) if masks else b""
    info = struct.pack("<IiiHHIIiiII", header, width, height, 1, bits, compression, len(rows), 2835, 5669, colours, 0)
    info += masks if header == 40 else masks.ljust(header - 40, b"\0")
    at = 14 + len(info) + len(palette)
    path.write_bytes(struct.pack("<2sIII", b"BM", at + len(rows), 0, at) + info + palette + rows)
    return path


def png(width, height, bits, kind, rows, palette=()):
    """The bytes of a PNG file; rows begin with the number of their filter."""
    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))
    colours = chunk(b"PLTE", bytes(v for colour in palette for v in colour)) if palette else b""
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, bits, kind, 0, 0, 0)) + colours +
            chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def pitch(width, bits):
    return (width * bits + 31) // 32 * 4
