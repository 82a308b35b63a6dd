#!/usr/bin/env python3
"""Draws the dialog icons (card, keypad, rule met/unmet, PIN change, unlock, failure) next to this script.

The .ico files are checked in; run this only to change the artwork. Pure Python: each
size is drawn with 4x4 supersampling and stored as a 32-bit DIB with alpha (plus the
1-bit mask that older readers of the format still expect).
"""

import os
import struct

SIZES = (16, 32, 48)
SUBSAMPLES = 4


def rgba(hex_colour, alpha=1.0):
    value = int(hex_colour.lstrip("#"), 16)
    return ((value >> 16) & 255, (value >> 8) & 255, value & 255, alpha)


class RoundRect:
    def __init__(self, x0, y0, x1, y1, radius, colour, colour_bottom=None):
        self.x0, self.y0, self.x1, self.y1 = x0, y0, x1, y1
        self.radius = min(radius, (x1 - x0) / 2, (y1 - y0) / 2)
        self.colour = colour
        self.colour_bottom = colour_bottom

    def contains(self, x, y):
        if not (self.x0 <= x < self.x1 and self.y0 <= y < self.y1):
            return False
        r = self.radius
        cx = min(max(x, self.x0 + r), self.x1 - r)
        cy = min(max(y, self.y0 + r), self.y1 - r)
        return (x - cx) ** 2 + (y - cy) ** 2 <= r * r

    def colour_at(self, y):
        if self.colour_bottom is None:
            return self.colour
        t = (y - self.y0) / max(self.y1 - self.y0, 1e-9)
        return tuple(a + (b - a) * t for a, b in zip(self.colour, self.colour_bottom))


class Segment:
    """A stroke of the given width with round ends, from (x0, y0) to (x1, y1)."""

    def __init__(self, x0, y0, x1, y1, width, colour):
        self.x0, self.y0, self.x1, self.y1 = x0, y0, x1, y1
        self.half = width / 2
        self.colour = colour

    def contains(self, x, y):
        dx, dy = self.x1 - self.x0, self.y1 - self.y0
        length2 = dx * dx + dy * dy
        t = 0.0 if length2 == 0 else max(0.0, min(1.0, ((x - self.x0) * dx + (y - self.y0) * dy) / length2))
        px, py = self.x0 + t * dx - x, self.y0 + t * dy - y
        return px * px + py * py <= self.half * self.half

    def colour_at(self, y):
        return self.colour


def outlined(x0, y0, x1, y1, radius, edge, fill, fill_bottom=None, width=1.0):
    """A shape with a border of `width` pixels: the border colour below, the fill inset on top."""
    return [
        RoundRect(x0, y0, x1, y1, radius, edge),
        RoundRect(x0 + width, y0 + width, x1 - width, y1 - width, max(radius - width, 0), fill, fill_bottom),
    ]


def render(size, shapes):
    """Composites the shapes (painter's order) into straight-alpha RGBA rows, top row first."""
    rows = []
    step = 1.0 / SUBSAMPLES
    for py in range(size):
        row = []
        for px in range(size):
            acc = [0.0, 0.0, 0.0, 0.0]  # premultiplied
            for sy in range(SUBSAMPLES):
                y = py + (sy + 0.5) * step
                for sx in range(SUBSAMPLES):
                    x = px + (sx + 0.5) * step
                    r = g = b = a = 0.0
                    for shape in shapes:
                        if shape.contains(x, y):
                            cr, cg, cb, ca = shape.colour_at(y)
                            r = cr * ca + r * (1 - ca)
                            g = cg * ca + g * (1 - ca)
                            b = cb * ca + b * (1 - ca)
                            a = ca + a * (1 - ca)
                    acc[0] += r
                    acc[1] += g
                    acc[2] += b
                    acc[3] += a
            n = SUBSAMPLES * SUBSAMPLES
            alpha = acc[3] / n
            if alpha <= 0:
                row.append((0, 0, 0, 0))
            else:
                row.append(tuple(round(min(c / n / alpha, 255)) for c in acc[:3]) + (round(alpha * 255),))
        rows.append(row)
    return rows


def snap(value):
    return float(round(value))


def card_shapes(s):
    # A payment-style card, landscape, with a gold contact chip on its left half.
    x0, x1 = snap(s * 0.04), snap(s * 0.96)
    y0, y1 = snap(s * 0.19), snap(s * 0.83)
    shapes = []
    if s >= 32:  # a soft shadow grounds the card; at 16 px it would only blur the edge
        shapes.append(RoundRect(x0 + 1, y0 + 1, x1 + 1, y1 + 1.5, s * 0.09, rgba("#000000", 0.22)))
    shapes += outlined(x0, y0, x1, y1, s * 0.09, rgba("#1B3F6E"), rgba("#4A8BD6"), rgba("#24599E"))

    cx0, cx1 = snap(s * 0.16), snap(s * 0.16 + max(s * 0.25, 5))
    cy0 = snap((y0 + y1) / 2 - max(s * 0.19, 4) / 2)
    cy1 = cy0 + snap(max(s * 0.19, 4))
    shapes += outlined(cx0, cy0, cx1, cy1, s * 0.04, rgba("#8A6A1C"), rgba("#F5D77A"), rgba("#D9AE3F"))
    if s >= 32:  # the chip's contact pads
        w = 1.0
        mid_y = snap((cy0 + cy1) / 2)
        mid_x = snap((cx0 + cx1) / 2)
        shapes.append(RoundRect(cx0 + 1, mid_y - w / 2, cx1 - 1, mid_y + w / 2, 0, rgba("#8A6A1C", 0.8)))
        shapes.append(RoundRect(mid_x - w / 2, cy0 + 1, mid_x + w / 2, cy1 - 1, 0, rgba("#8A6A1C", 0.8)))

    # Embossed lines standing for the card number and holder name.
    line_h = max(1.0, snap(s * 0.05))
    lx0 = snap(s * 0.52)
    for top, right in ((s * 0.42, s * 0.86), (s * 0.58, s * 0.74)):
        ty = snap(top)
        shapes.append(RoundRect(lx0, ty, snap(right), ty + line_h, line_h / 2, rgba("#FFFFFF", 0.85)))
    return shapes


def keypad_shapes(s):
    # A hand-held PIN pad: dark body, a small display, a grid of light keys.
    x0, x1 = snap(s * 0.14), snap(s * 0.86)
    y0, y1 = 0.0 if s < 24 else snap(s * 0.03), float(s) if s < 24 else snap(s * 0.97)
    shapes = []
    if s >= 32:
        shapes.append(RoundRect(x0 + 1, y0 + 1, x1 + 1, y1, s * 0.1, rgba("#000000", 0.22)))
    shapes += outlined(x0, y0, x1, y1, s * 0.1, rgba("#22272E"), rgba("#5A6572"), rgba("#3A424C"))

    inner_x0, inner_x1 = x0 + snap(s * 0.09), x1 - snap(s * 0.09)
    dy0 = y0 + snap(s * 0.09)
    dy1 = dy0 + max(2.0, snap(s * 0.17))
    shapes += outlined(inner_x0, dy0, inner_x1, dy1, s * 0.03, rgba("#1D3B4F"), rgba("#BFE8FF"), rgba("#8CCDEB"))

    cols, rows = 3, (3 if s < 24 else 4)
    gap = max(1.0, snap(s * 0.04))
    area_top = dy1 + max(1.0, snap(s * 0.07))
    area_bottom = y1 - max(2.0, snap(s * 0.08))
    key_w = float(int((inner_x1 - inner_x0 - gap * (cols - 1)) / cols))
    key_h = float(int((area_bottom - area_top - gap * (rows - 1)) / rows))
    grid_w = key_w * cols + gap * (cols - 1)
    left = inner_x0 + snap((inner_x1 - inner_x0 - grid_w) / 2)
    for row in range(rows):
        for col in range(cols):
            kx = left + col * (key_w + gap)
            ky = area_top + row * (key_h + gap)
            face = rgba("#F2F4F7")
            if rows == 4 and row == 3 and col != 1:
                # Cancel and OK keys in the bottom corners, as on most pads.
                face = rgba("#E25B4F") if col == 0 else rgba("#4CB866")
            shapes.append(RoundRect(kx, ky, kx + key_w, ky + key_h, min(key_w, key_h) * 0.25, face))
    return shapes


def badge(s, edge, top, bottom):
    # A round badge filling the icon, for the rule list's 16-pixel state icons.
    return outlined(0.5, 0.5, s - 0.5, s - 0.5, s / 2, rgba(edge), rgba(top), rgba(bottom))


def met_shapes(s):
    w = max(1.8, s * 0.13)
    return badge(s, "#1E6B2E", "#5BC46E", "#2E9444") + [
        Segment(s * 0.27, s * 0.52, s * 0.44, s * 0.69, w, rgba("#FFFFFF")),
        Segment(s * 0.44, s * 0.69, s * 0.74, s * 0.33, w, rgba("#FFFFFF")),
    ]


def unmet_shapes(s):
    w = max(1.8, s * 0.13)
    return badge(s, "#8E1F1A", "#EE6B5F", "#C83A2F") + [
        Segment(s * 0.32, s * 0.32, s * 0.68, s * 0.68, w, rgba("#FFFFFF")),
        Segment(s * 0.68, s * 0.32, s * 0.32, s * 0.68, w, rgba("#FFFFFF")),
    ]


def key_shapes(s):
    # A brass key lying across the icon: the PIN change window's small icon.
    edge, face = rgba("#7A5A12"), rgba("#E8C45A")
    w = max(2.6, s * 0.16)
    ring = max(7.0, s * 0.36)
    bow = outlined(s * 0.06, s * 0.06, s * 0.06 + ring, s * 0.06 + ring, ring / 2, edge, face)
    hole = max(2.0, s * 0.12)
    hx = s * 0.06 + ring / 2 - hole / 2
    bow += outlined(hx, hx, hx + hole, hx + hole, hole / 2, edge, rgba("#FFF4D0"))
    return bow + [
        Segment(s * 0.36, s * 0.36, s * 0.9, s * 0.9, w + 1.0, edge),
        Segment(s * 0.36, s * 0.36, s * 0.9, s * 0.9, w - 0.6, face),
        Segment(s * 0.66, s * 0.66, s * 0.52, s * 0.8, w, edge),
        Segment(s * 0.8, s * 0.8, s * 0.66, s * 0.94, w, edge),
    ]


def padlock_shapes(s):
    # An open padlock: the unlock dialogs' small icon. The shackle swings free on the right.
    edge = rgba("#5E6670")
    w = max(1.8, s * 0.12)
    body_x0, body_x1 = snap(s * 0.12), snap(s * 0.7)
    body_y0, body_y1 = snap(s * 0.44), snap(s * 0.96)
    left, right = s * 0.24, s * 0.58
    top = s * 0.1
    shackle = [
        Segment(left, body_y0, left, s * 0.3, w + 1.0, edge),
        Segment(left, s * 0.3, (left + right) / 2, top, w + 1.0, edge),
        Segment((left + right) / 2, top, right + s * 0.12, s * 0.22, w + 1.0, edge),
        Segment(left, body_y0, left, s * 0.3, w - 0.6, rgba("#C9D1DA")),
        Segment(left, s * 0.3, (left + right) / 2, top, w - 0.6, rgba("#C9D1DA")),
        Segment((left + right) / 2, top, right + s * 0.12, s * 0.22, w - 0.6, rgba("#C9D1DA")),
    ]
    body = outlined(body_x0, body_y0, body_x1, body_y1, s * 0.08, rgba("#7A5A12"), rgba("#F2CF63"), rgba("#D3A536"))
    hole = max(2.0, snap(s * 0.12))
    hx = snap((body_x0 + body_x1) / 2 - hole / 2)
    hy = snap((body_y0 + body_y1) / 2 - hole / 2)
    keyhole = [RoundRect(hx, hy, hx + hole, hy + hole, hole / 2, rgba("#5A3F08"))]
    return shackle + body + keyhole


def failure_shapes(s):
    # A red badge with an exclamation mark: an unlock that did not succeed.
    w = max(1.8, s * 0.14)
    return badge(s, "#8E1F1A", "#EE6B5F", "#C83A2F") + [
        Segment(s * 0.5, s * 0.24, s * 0.5, s * 0.56, w, rgba("#FFFFFF")),
        Segment(s * 0.5, s * 0.74, s * 0.5, s * 0.745, w * 1.1, rgba("#FFFFFF")),
    ]


def dib_entry(size, pixels):
    """One icon image: BITMAPINFOHEADER (double height), BGRA rows bottom-up, then the AND mask."""
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    colour = bytearray()
    for row in reversed(pixels):
        for r, g, b, a in row:
            colour += bytes((b, g, r, a))
    mask_stride = ((size + 31) // 32) * 4
    mask = bytearray()
    for row in reversed(pixels):
        bits = bytearray(mask_stride)
        for x, (_, _, _, a) in enumerate(row):
            if a == 0:
                bits[x // 8] |= 0x80 >> (x % 8)
        mask += bits
    return header + bytes(colour) + bytes(mask)


def write_ico(path, draw):
    images = [(size, dib_entry(size, render(size, draw(size)))) for size in SIZES]
    out = bytearray(struct.pack("<HHH", 0, 1, len(images)))
    offset = 6 + 16 * len(images)
    for size, data in images:
        out += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    for _, data in images:
        out += data
    with open(path, "wb") as f:
        f.write(out)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    write_ico(os.path.join(here, "card.ico"), card_shapes)
    write_ico(os.path.join(here, "keypad.ico"), keypad_shapes)
    write_ico(os.path.join(here, "rule_met.ico"), met_shapes)
    write_ico(os.path.join(here, "rule_unmet.ico"), unmet_shapes)
    write_ico(os.path.join(here, "key.ico"), key_shapes)
    write_ico(os.path.join(here, "unlock.ico"), padlock_shapes)
    write_ico(os.path.join(here, "failure.ico"), failure_shapes)


if __name__ == "__main__":
    main()
