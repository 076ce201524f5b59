"""Pictures in linear light, and the PQ BT.2020 samples that carry them. Plain Python, so that nothing need be installed.

A picture is a list of rows of (r, g, b) in cd/m2, BT.2020 primaries."""
from functools import lru_cache


@lru_cache(maxsize=1 << 18)
def pq(cd_m2):
    """PQ signal, 0 to 1 (SMPTE ST 2084)."""
    y = (max(cd_m2, 0.0) / 10000) ** (2610 / 16384)
    return ((3424 / 4096 + 2413 / 128 * y) / (1 + 2392 / 128 * y)) ** (2523 / 32)


@lru_cache(maxsize=1 << 18)
def ycbcr(pixel):
    """10-bit limited-range codes, not rounded (BT.2020 non-constant luminance)."""
    r, g, b = (pq(channel) for channel in pixel)
    y = 0.2627 * r + 0.6780 * g + 0.0593 * b
    return 64 + 876 * y, 512 + 896 * (b - y) / 1.8814, 512 + 896 * (r - y) / 1.4746


def planes(picture):
    """Rows of Y, Cb and Cr codes, 4:2:0."""
    coded = [[ycbcr(pixel) for pixel in row] for row in picture]
    luma = [[int(y + 0.5) for y, _, _ in row] for row in coded]
    chroma = []
    for component in (1, 2):
        rows = []
        for upper, lower in zip(coded[::2], coded[1::2]):
            one, two = [p[component] for p in upper], [p[component] for p in lower]
            rows.append([int((a + b + c + d) / 4 + 0.5) for a, b, c, d in zip(one[::2], one[1::2], two[::2], two[1::2])])
        chroma.append(rows)
    return luma, chroma[0], chroma[1]


def yuv420p10(picture):
    return b"".join(code.to_bytes(2, "little") for plane in planes(picture) for row in plane for code in row)


def p010(picture):
    luma, cb, cr = planes(picture)
    words = [code for row in luma for code in row]
    for cb_row, cr_row in zip(cb, cr):
        for pair in zip(cb_row, cr_row):
            words.extend(pair)
    return b"".join((code << 6).to_bytes(2, "little") for code in words)


def blank(width, height, pixel=(0.0, 0.0, 0.0)):
    return [[pixel] * width for _ in range(height)]


def fill(picture, left, top, right, bottom, pixel):
    left, right = max(int(left), 0), min(int(right), len(picture[0]))
    for row in picture[max(int(top), 0):min(int(bottom), len(picture))]:
        row[left:right] = [pixel] * max(right - left, 0)


def glow(picture, x0, y0, radius, halo, pixel):
    """A disc of light with a soft halo, added to what is there."""
    for y in range(max(int(y0 - halo), 0), min(int(y0 + halo) + 1, len(picture))):
        row = picture[y]
        for x in range(max(int(x0 - halo), 0), min(int(x0 + halo) + 1, len(row))):
            distance = ((x - x0) ** 2 + (y - y0) ** 2) ** 0.5
            if distance >= halo:
                continue
            share = 1.0 if distance <= radius else ((halo - distance) / (halo - radius)) ** 4
            # Rounded: the fewer distinct values, the faster the coding.
            row[x] = tuple(round(old + share * new, 1 if old + share * new > 20 else 2)
                           for old, new in zip(row[x], pixel))
