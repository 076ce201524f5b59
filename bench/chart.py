"""Bars of milliseconds per frame, as an SVG."""
from xml.sax.saxutils import escape

LEFT, WIDTH, ROW, BAR = 220, 440, 26, 16
OURS, PEER, COPY = "#2060a0", "#b5651d", "#999999"


def label_and_colour(name):
    if name == "memcpy":
        return "memcpy, one thread", COPY
    return (name, PEER) if name.startswith("FFmpeg") else (f"Lumivert {name}", OURS)


def panel(title, bars, top):
    """`bars` are (name, milliseconds), each panel on a scale of its own. The SVG lines and where the panel ends."""
    scale = WIDTH / max(ms for _, ms in bars)
    out = [f'<text x="16" y="{top + 16}" font-weight="bold">{escape(title)}</text>']
    y = top + 28
    for name, ms in bars:
        middle = y + BAR - 3
        label, colour = label_and_colour(name)
        out += [f'<text x="{LEFT - 8}" y="{middle}" text-anchor="end">{escape(label)}</text>',
                f'<rect x="{LEFT}" y="{y}" width="{max(1.0, ms * scale):.1f}" height="{BAR}" fill="{colour}"/>',
                f'<text x="{LEFT + ms * scale + 6:.1f}" y="{middle}">{f"{ms:.0f}" if ms >= 100 else f"{ms:.3g}"} ms</text>']
        y += ROW
    return out, y + 10


def draw(panels):
    body, y = [], 8
    for title, bars in panels:
        lines, y = panel(title, bars, y)
        body += lines
    width = LEFT + WIDTH + 80
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{y}" '
                      f'viewBox="0 0 {width} {y}" font-family="sans-serif" font-size="13">',
                      f'<rect width="{width}" height="{y}" fill="white"/>', *body, "</svg>", ""])
