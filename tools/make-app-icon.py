#!/usr/bin/env python3
"""Draws Sayvo's application icon (a white microphone on a rounded teal square) and writes it
as a macOS .icns of PNG images. No image library needed: the shapes are distance functions,
sampled with a little antialiasing. Usage: tools/make-app-icon.py app/macos/Sayvo.icns"""
import math
import struct
import sys
import zlib

TOP = (0x1F, 0x8A, 0x8A)
BOTTOM = (0x10, 0x4E, 0x63)
WHITE = (0xFF, 0xFF, 0xFF)


def rounded_box(x, y, cx, cy, half_w, half_h, radius):
    qx = abs(x - cx) - half_w + radius
    qy = abs(y - cy) - half_h + radius
    outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
    return outside + min(max(qx, qy), 0.0) - radius


def segment(x, y, ax, ay, bx, by):
    px, py, dx, dy = x - ax, y - ay, bx - ax, by - ay
    t = max(0.0, min(1.0, (px * dx + py * dy) / (dx * dx + dy * dy)))
    return math.hypot(px - dx * t, py - dy * t)


def lower_arc(x, y, cx, cy, radius):
    # The lower half of a circle: the microphone's cradle.
    if y >= cy:
        return abs(math.hypot(x - cx, y - cy) - radius)
    return min(math.hypot(x - (cx - radius), y - cy), math.hypot(x - (cx + radius), y - cy))


def coverage(distance, pixel):
    return max(0.0, min(1.0, 0.5 - distance / pixel))


def render(size):
    rows = []
    pixel = 1.0 / size
    for j in range(size):
        row = bytearray([0])
        y = (j + 0.5) / size
        for i in range(size):
            x = (i + 0.5) / size
            # The macOS icon grid: the tile fills about 80 % of the canvas.
            tile = coverage(rounded_box(x, y, 0.5, 0.5, 0.40, 0.40, 0.09), pixel)
            if tile <= 0.0:
                row += b"\0\0\0\0"
                continue
            stroke = 0.035
            glyph = min(
                rounded_box(x, y, 0.5, 0.38, 0.085, 0.17, 0.085),
                lower_arc(x, y, 0.5, 0.45, 0.16) - stroke / 2,
                segment(x, y, 0.5, 0.61, 0.5, 0.71) - stroke / 2,
                segment(x, y, 0.41, 0.71, 0.59, 0.71) - stroke / 2,
            )
            ink = coverage(glyph, pixel)
            mix = (y - 0.1) / 0.8
            colour = [round(TOP[k] + (BOTTOM[k] - TOP[k]) * mix) for k in range(3)]
            colour = [round(colour[k] + (WHITE[k] - colour[k]) * ink) for k in range(3)]
            row += bytes(colour) + bytes([round(255 * tile)])
        rows.append(bytes(row))
    return png(size, b"".join(rows))


def png(size, raw):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(
            ">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9))
            + chunk(b"IEND", b""))


def main():
    # PNG entries by type: 128, 256, 512 and 1024 (512 at twice the density) pixels.
    entries = b""
    for kind, size in ((b"ic07", 128), (b"ic08", 256), (b"ic09", 512), (b"ic10", 1024)):
        image = render(size)
        entries += kind + struct.pack(">I", len(image) + 8) + image
    with open(sys.argv[1], "wb") as out:
        out.write(b"icns" + struct.pack(">I", len(entries) + 8) + entries)


if __name__ == "__main__":
    main()
