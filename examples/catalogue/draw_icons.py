#!/usr/bin/env python3
"""Draws the catalogue's icons: `draw_icons.py` rewrites every PNG file in its own folder.

Shapes are signed distance functions over the unit square, so that every size is drawn anew, not scaled; edges
are smoothed over one pixel. Standard library only.
"""

import math
import pathlib
import struct
import zlib

SIZES = (16, 32, 48)


def circle(cx, cy, r):
    return lambda x, y: math.hypot(x - cx, y - cy) - r


def box(cx, cy, w, h, r=0.0, turn=0.0):
    c, s = math.cos(turn), math.sin(turn)

    def distance(x, y):
        px, py = x - cx, y - cy
        qx = abs(px * c + py * s) - w / 2 + r
        qy = abs(py * c - px * s) - h / 2 + r
        return math.hypot(max(qx, 0), max(qy, 0)) + min(max(qx, qy), 0) - r

    return distance


def line(ax, ay, bx, by, width):
    dx, dy = bx - ax, by - ay

    def distance(x, y):
        t = max(0.0, min(1.0, ((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy)))
        return math.hypot(x - ax - t * dx, y - ay - t * dy) - width / 2

    return distance


def ring(cx, cy, r, width):
    return lambda x, y: abs(math.hypot(x - cx, y - cy) - r) - width / 2


def polygon(points):
    def distance(x, y):
        best, inside = 9.0, False
        for (ax, ay), (bx, by) in zip(points, points[1:] + points[:1]):
            best = min(best, line(ax, ay, bx, by, 0)(x, y))
            if (ay > y) != (by > y) and x < ax + (y - ay) * (bx - ax) / (by - ay):
                inside = not inside
        return -best if inside else best

    return distance


def union(*shapes):
    return lambda x, y: min(shape(x, y) for shape in shapes)


def plate(top, bottom):
    """A rounded plate whose colour runs from top to bottom; every icon stands on one."""
    shape = box(0.5, 0.5, 0.92, 0.92, 0.2)
    return shape, lambda y: tuple(a + (b - a) * y for a, b in zip(top, bottom))


def flat(*colour):
    return lambda y: colour


WHITE = flat(255, 255, 255)
CREAM = flat(255, 244, 214)


def cafe_chess():
    pawn = union(
        circle(0.5, 0.3, 0.115),
        polygon([(0.44, 0.36), (0.56, 0.36), (0.63, 0.68), (0.37, 0.68)]),
        box(0.5, 0.42, 0.26, 0.05, 0.025),
        box(0.5, 0.73, 0.44, 0.1, 0.04),
    )
    return [plate((120, 78, 48), (66, 40, 24)), (pawn, CREAM)]


def ink_garden():
    left, right = circle(0.38, 0.42, 0.33), circle(0.66, 0.6, 0.33)
    return [
        plate((92, 190, 120), (24, 120, 92)),
        (lambda x, y: max(left(x, y), right(x, y)), WHITE),
        (line(0.24, 0.78, 0.6, 0.46, 0.035), flat(24, 120, 92)),
    ]


def tidepool():
    waves = [
        (lambda x, y, h=h: abs(y - h - 0.045 * math.sin(x * 14)) - 0.03 if 0.16 < x < 0.84 else 0.05)
        for h in (0.36, 0.52, 0.68)
    ]
    return [plate((72, 170, 240), (20, 70, 170))] + [(wave, WHITE) for wave in waves]


def loom():
    bars = [(box(0.5, h, 0.64, 0.09, 0.03), WHITE) for h in (0.32, 0.5, 0.68)]
    threads = [(box(v, 0.5, 0.06, 0.62, 0.02), flat(250, 190, 60)) for v in (0.32, 0.5, 0.68)]
    return [plate((196, 80, 130), (120, 34, 96))] + threads + bars


def starling():
    star = [
        (0.5 + r * math.sin(k * math.pi / 5), 0.53 - r * math.cos(k * math.pi / 5))
        for k in range(10)
        for r in [0.36 if k % 2 == 0 else 0.15]
    ]
    return [plate((64, 60, 130), (18, 18, 54)), (polygon(star), flat(255, 214, 90))]


def parcel():
    return [
        plate((240, 176, 90), (206, 116, 40)),
        (box(0.5, 0.52, 0.6, 0.5, 0.03), CREAM),
        (box(0.5, 0.52, 0.1, 0.5), flat(206, 116, 40)),
        (box(0.5, 0.42, 0.6, 0.04), flat(206, 116, 40)),
    ]


def lantern():
    return [
        plate((60, 66, 84), (26, 30, 42)),
        (circle(0.5, 0.54, 0.3), flat(255, 240, 190)),
        (circle(0.5, 0.54, 0.22), flat(255, 200, 70)),
        (box(0.5, 0.22, 0.2, 0.06, 0.02), WHITE),
        (box(0.5, 0.84, 0.2, 0.06, 0.02), WHITE),
    ]


def metronome():
    body = polygon([(0.42, 0.2), (0.58, 0.2), (0.74, 0.8), (0.26, 0.8)])
    return [
        plate((226, 96, 82), (160, 40, 52)),
        (body, CREAM),
        (line(0.5, 0.72, 0.68, 0.24, 0.035), flat(90, 30, 36)),
        (circle(0.62, 0.4, 0.055), flat(90, 30, 36)),
    ]


def postcard():
    return [
        plate((150, 205, 235), (90, 150, 210)),
        (box(0.5, 0.5, 0.68, 0.48, 0.04), WHITE),
        (union(line(0.2, 0.3, 0.5, 0.54, 0.035), line(0.5, 0.54, 0.8, 0.3, 0.035)), flat(90, 150, 210)),
    ]


def wayfinder():
    return [
        plate((236, 240, 244), (186, 196, 208)),
        (ring(0.5, 0.5, 0.32, 0.05), flat(60, 76, 96)),
        (polygon([(0.66, 0.34), (0.55, 0.55), (0.45, 0.45)]), flat(220, 60, 60)),
        (polygon([(0.34, 0.66), (0.45, 0.45), (0.55, 0.55)]), flat(60, 76, 96)),
    ]


def pixels(layers, size):
    rows = []
    for j in range(size):
        y = (j + 0.5) / size
        row = bytearray()
        for i in range(size):
            x = (i + 0.5) / size
            red = green = blue = alpha = 0.0
            for shape, colour in layers:
                cover = max(0.0, min(1.0, 0.5 - shape(x, y) * size))
                if cover == 0:
                    continue
                r, g, b = colour(y)
                whole = cover + alpha * (1 - cover)
                share = cover / whole
                red, green, blue = (c * (1 - share) + n * share for c, n in ((red, r), (green, g), (blue, b)))
                alpha = whole
            row += bytes(round(c) for c in (red, green, blue, alpha * 255))
        rows.append(bytes(row))
    return rows


def filtered(rows):
    """Each row as the difference from the one above it, which packs gradients well."""
    above = bytes(len(rows[0]))
    for row in rows:
        yield b"\x02" + bytes((a - b) & 255 for a, b in zip(row, above))
        above = row


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(rows):
    header = struct.pack(">IIBBBBB", len(rows), len(rows), 8, 6, 0, 0, 0)
    data = zlib.compress(b"".join(filtered(rows)), 9)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", data) + chunk(b"IEND", b"")


def main():
    folder = pathlib.Path(__file__).parent
    large = {cafe_chess: 256, loom: 256, postcard: 256}
    for drawing in (
        cafe_chess, ink_garden, tidepool, loom, starling, parcel, lantern, metronome, postcard, wayfinder
    ):
        for size in (*SIZES, large.get(drawing, 128)):
            name = f"{drawing.__name__.replace('_', '-')}-{size}.png"
            (folder / name).write_bytes(png(pixels(drawing(), size)))


if __name__ == "__main__":
    main()
