"""Palettes and error diffusion on photographs, held to a model that has nothing but the rules."""
import numpy as np
from PIL import Image

from support import Skip, case
from colour_test import colours_of, pixels
from reading_test import SAMPLES

# Weights by rows, the pixel's own first and then from three columns before it to three behind.
KERNELS = {
    "floyd-steinberg": (16, [[7], [0, 0, 3, 5, 1]]),
    "stucki": (42, [[8, 4], [0, 2, 4, 8, 4, 2], [0, 1, 2, 4, 2, 1]]),
    "burkes": (32, [[8, 4], [0, 2, 4, 8, 4, 2]]),
    "sierra": (32, [[5, 3], [0, 2, 4, 5, 4, 2], [0, 0, 2, 3, 2]]),
    "stevenson-arce": (200, [[0, 32], [12, 0, 26, 0, 30, 0, 16], [0, 12, 0, 26, 0, 12], [5, 0, 12, 0, 12, 0, 5]]),
    "jarvis": (48, [[7, 5], [0, 3, 5, 7, 5, 3], [0, 1, 3, 5, 3, 1]]),
}


def measured(box):
    """A box of 15-bit colours and how often they are there, with its mean and variance."""
    colours, counts = np.array(list(box)), np.array(list(box.values()))
    weight, second = counts.sum(), sorted(counts)[-2] if len(box) > 1 else 0
    mean = ((colours * counts[:, None]).sum(0) + (weight - 1) // 2) // weight
    capped = np.minimum(counts, 4 * second) if second else counts
    spread = (capped[:, None] * (colours - mean) ** 2).sum(0)
    return box, mean, (spread + (capped.sum() - 1) // 2) // capped.sum()


def divided(box, mean, variance):
    colours = np.array(list(box))
    width = np.ptp(colours, axis=0)
    channel = variance.argmax() if width[variance.argmax()] else width.argmax()
    limit = min(mean[channel], colours[:, channel].max() - 1)
    return [measured({c: n for c, n in box.items() if (c[channel] <= limit) == low}) for low in (True, False)]


def palette_for(picture, wanted):
    """Entries, and the entry of each colour that is there."""
    kinds, counts = np.unique(picture.reshape(-1, 3) >> 3, axis=0, return_counts=True)
    rest, boxes, dominant = dict(zip(map(tuple, kinds.tolist()), counts.tolist())), [], 64
    while wanted >= dominant and len(rest) > 1:
        most, second = sorted(rest, key=rest.get)[:-3:-1]
        if rest[most] <= 2 * rest[second]:
            break
        boxes.append(measured({most: rest.pop(most)}))
        dominant += 1
    boxes.append(measured(rest))
    while len(boxes) < wanted:
        at = max(range(len(boxes)), key=lambda i: (boxes[i][2].sum(), len(boxes[i][0]), -i))
        if len(boxes[at][0]) < 2:
            break
        boxes[at], other = divided(*boxes[at])
        boxes.append(other)
    boxes.sort(key=lambda box: tuple(box[1]))
    entries = [tuple(int(m << 3 | m >> 2) for m in mean) for _, mean, _ in boxes]
    return entries, {colour: i for i, (box, _, _) in enumerate(boxes) for colour in box}


def nearest(palette, colour):
    def hues(c):
        return (c[0] < c[2], c[1] < min(c[0], c[2]), c[1] > max(c[0], c[2]))
    if colour == (0, 0, 0) and colour in (palette[0], palette[-1]):
        return 0 if palette[0] == colour else len(palette) - 1
    away = [sum((a - b) ** 2 for a, b in zip(entry, colour)) for entry in palette]
    best = [i for i, distance in enumerate(away) if distance == min(away)]
    return best[0] if min(away) == 0 else ([best[0]] + [i for i in best[1:] if hues(palette[i]) == hues(colour)])[-1]


def diffused(picture, method, palette, find):
    divisor, rows = KERNELS[method]
    spread = [(down, i + (1 if down == 0 else -3), weight) for down, row in enumerate(rows)
              for i, weight in enumerate(row) if weight]
    height, width = picture.shape[:2]
    sums = [[[0, 0, 0] for _ in range(width + 6)] for _ in range(height + 3)]
    out = np.zeros_like(picture)
    for y, row in enumerate(picture.tolist()):
        for x, pixel in enumerate(row):
            share = [abs(s) // divisor * (1 if s > 0 else -1) for s in sums[y][x + 3]]
            colour = tuple(min(max(v + s, 0), 255) for v, s in zip(pixel, share))
            out[y, x] = entry = palette[find(colour)]
            for down, right, weight in spread:
                cell = sums[y + down][x + 3 + right]
                for c in range(3):
                    cell[c] += weight * (colour[c] - entry[c])
    return out


@case("Model.Photographs", *[(method, method) for method in KERNELS])
def photographs(t, method):
    names = ("astronaut.png", "coffee.png")
    photos = [f for f in SAMPLES if f.endswith(names)]
    if not photos:
        raise Skip("no package with photographs (such as python3-skimage) is installed")
    t.has("png")
    for photo in photos:
        Image.open(photo).convert("RGB").crop((150, 60, 245, 131)).save(t.path("part.png"))
        part = pixels(t.path("part.png"))
        for wanted in (2, 90):
            palette, cells = palette_for(part, wanted)
            for i, entry in enumerate(palette):
                cells.setdefault(tuple(v >> 3 for v in entry), i)

            def find(colour):
                cell = tuple(v >> 3 for v in colour)
                if cell not in cells:
                    cells[cell] = nearest(palette, tuple(v << 3 for v in cell))
                return cells[cell]
            got = t.to("png", t.path("part.png"), "--method", method, "--palette", "optimized", "--colours", wanted,
                       command="dither")
            assert [tuple(c) for c in colours_of(t, got).tolist()][:len(palette)] == palette
            assert (pixels(got) == diffused(part, method, palette, find)).all(), f"{photo}, {wanted} colours"
