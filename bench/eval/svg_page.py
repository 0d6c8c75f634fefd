"""The layout engine of the stress page set: a page is written as an SVG
document whose user unit is one page pixel, turned into a PDF by
rsvg-convert (cairo; the fonts are embedded) and rasterised by pdftoppm
(poppler) at the page's resolution. Nothing here shares code with the
PIL typesetting of page_kit.py: other fonts (URW base 35, Computer Modern),
another rasteriser, other hinting and anti-aliasing.

Text is measured with the same font files through PIL to break lines;
justified lines place every word at its own x, so the two measures never
drift more than within one word. While it draws, a Page records the ground
truth: picture boxes with their kind, and one text box per block of lines
(the extent of its glyphs: ascent of the first line to descent of the last).
"""
import base64
import io
import os
import subprocess
import tempfile
from xml.sax.saxutils import escape

import numpy as np
from PIL import Image, ImageFont

URW = "/usr/share/fonts/opentype/urw-base35"
LYX = "/usr/share/fonts/truetype/lyx"
# key: (SVG family, weight, style, file measured through PIL)
FONTS = {
    "serif": ("C059", "normal", "normal", f"{URW}/C059-Roman.otf"),
    "serif-bold": ("C059", "bold", "normal", f"{URW}/C059-Bold.otf"),
    "serif-italic": ("C059", "normal", "italic", f"{URW}/C059-Italic.otf"),
    "book": ("P052", "normal", "normal", f"{URW}/P052-Roman.otf"),
    "book-bold": ("P052", "bold", "normal", f"{URW}/P052-Bold.otf"),
    "book-italic": ("P052", "normal", "italic", f"{URW}/P052-Italic.otf"),
    "bookman": ("URW Bookman", "300", "normal", f"{URW}/URWBookman-Light.otf"),
    "bookman-demi": ("URW Bookman", "600", "normal", f"{URW}/URWBookman-Demi.otf"),
    "sans": ("Nimbus Sans", "normal", "normal", f"{URW}/NimbusSans-Regular.otf"),
    "sans-bold": ("Nimbus Sans", "bold", "normal", f"{URW}/NimbusSans-Bold.otf"),
    "sans-italic": ("Nimbus Sans", "normal", "italic", f"{URW}/NimbusSans-Italic.otf"),
    "narrow": ("Nimbus Sans Narrow", "normal", "normal", f"{URW}/NimbusSansNarrow-Regular.otf"),
    "narrow-bold": ("Nimbus Sans Narrow", "bold", "normal", f"{URW}/NimbusSansNarrow-Bold.otf"),
    "gothic": ("URW Gothic", "normal", "normal", f"{URW}/URWGothic-Book.otf"),
    "gothic-demi": ("URW Gothic", "600", "normal", f"{URW}/URWGothic-Demi.otf"),
    "script": ("Z003", "normal", "italic", f"{URW}/Z003-MediumItalic.otf"),
    "mono": ("Nimbus Mono PS", "normal", "normal", f"{URW}/NimbusMonoPS-Regular.otf"),
    "cm": ("cmr10", "normal", "normal", f"{LYX}/cmr10.ttf"),
}
A4, LETTER, A3 = (8.268, 11.693), (8.5, 11.0), (11.693, 16.535)  # inches
INK = "#1c1a1a"
_measure = {}


def width_of(text, font, size):
    """Advance width of `text` in pixels at `size` pixels per em."""
    if font not in _measure:
        _measure[font] = ImageFont.truetype(FONTS[font][3], 1000)
    return _measure[font].getlength(text) * size / 1000


def wrap(text, font, size, width):
    lines, cur = [], ""
    for word in text.split():
        trial = f"{cur} {word}" if cur else word
        if width_of(trial, font, size) <= width or not cur:
            cur = trial
        else:
            lines.append(cur)
            cur = word
    return lines + ([cur] if cur else [])


def data_uri(img, fmt):
    buf = io.BytesIO()
    if fmt == "JPEG":
        img.convert("RGB").save(buf, "JPEG", quality=93)
    else:
        img.save(buf, "PNG", compress_level=3)
    return f"data:image/{fmt.lower()};base64," + base64.b64encode(buf.getvalue()).decode()


class Page:
    def __init__(self, name, kind, size_in, dpi=300, colour=True):
        self.name, self.kind, self.dpi, self.colour = name, kind, dpi, colour
        self.size_in = size_in
        self.w, self.h = round(size_in[0] * dpi), round(size_in[1] * dpi)
        self.parts, self.pictures, self.text = [], [], []

    # --- units -----------------------------------------------------------
    def pt(self, points):
        return points * self.dpi / 72

    def mm(self, millimetres):
        return round(millimetres * self.dpi / 25.4)

    # --- drawing ---------------------------------------------------------
    def add(self, svg):
        self.parts.append(svg)

    def rect(self, x, y, w, h, fill="none", stroke=None, width=1, extra=""):
        line = f' stroke="{stroke}" stroke-width="{width:.2f}"' if stroke else ""
        self.add(f'<rect x="{x:.2f}" y="{y:.2f}" width="{w:.2f}" height="{h:.2f}" fill="{fill}"{line} {extra}/>')

    def line(self, x0, y0, x1, y1, stroke=INK, width=2, extra=""):
        self.add(f'<line x1="{x0:.2f}" y1="{y0:.2f}" x2="{x1:.2f}" y2="{y1:.2f}" stroke="{stroke}" '
                 f'stroke-width="{width:.2f}" {extra}/>')

    def _span(self, x, y, text, font, size, fill, extra=""):
        family, weight, style, _ = FONTS[font]
        self.add(f'<text x="{x:.2f}" y="{y:.2f}" font-family="{family}" font-weight="{weight}" '
                 f'font-style="{style}" font-size="{size:.2f}" fill="{fill}" {extra}>{escape(text)}</text>')

    def words(self, x, y, words, font, size, fill, gap):
        """Words on one baseline, `gap` pixels apart (justified lines)."""
        for word in words:
            self._span(x, y, word, font, size, fill)
            x += width_of(word, font, size) + gap

    def label(self, x, y, text, font, points, fill=INK, anchor="start", record=True):
        """One line whose baseline is at y; returns its width in pixels."""
        size = self.pt(points)
        w = width_of(text, font, size)
        x0 = {"start": x, "middle": x - w / 2, "end": x - w}[anchor]
        self._span(x0, y, text, font, size, fill)
        if record:
            self.text_box(x0, y - 0.95 * size, x0 + w, y + 0.3 * size)
        return w

    def block(self, x, y, width, text, font, points, leading=1.25, justify=False, fill=INK, record=True):
        """A paragraph whose first baseline is at y; returns the next
        baseline below it (one blank quarter line after)."""
        size = self.pt(points)
        lines = wrap(text, font, size, width)
        for i, ln in enumerate(lines):
            self.set_line(x, y + i * size * leading, ln, font, size, width, fill,
                          justify and i < len(lines) - 1)
        bottom = y + (len(lines) - 1) * size * leading
        if record and lines:
            self.text_box(x, y - 0.95 * size, x + width, bottom + 0.3 * size)
        return bottom + size * leading * 1.25

    def set_line(self, x, y, line, font, size, width, fill, justify):
        words = line.split()
        if justify and len(words) > 1:
            gap = (width - sum(width_of(w, font, size) for w in words)) / (len(words) - 1)
            self.words(x, y, words, font, size, fill, gap)
        else:
            self._span(x, y, line, font, size, fill)

    def flow(self, columns, paragraphs, font, points, leading=1.25, justify=True, head_font=None,
             head_points=None, fill=INK):
        """Fills column boxes (x, top, width, bottom) from the iterator of
        (kind, text) items, breaking paragraphs across columns; records one
        text box per column."""
        size = self.pt(points)
        step = size * leading
        pending = None
        for x, top, width, bottom in columns:
            y, first = top + 0.95 * size, top + 0.95 * size
            while y + 0.3 * size <= bottom:
                kind, text = pending or next(paragraphs)
                pending = None
                if kind in ("head", "title", "subtitle") and head_font:
                    hsize = self.pt(head_points)
                    y += hsize * 0.4 if y > top + size else 0
                    hl = wrap(text, head_font, hsize, width)
                    if y + hsize * 1.2 * len(hl) + 2 * step > bottom:
                        pending = (kind, text)
                        break
                    for ln in hl:
                        self._span(x, y + hsize - size, ln, head_font, hsize, fill)
                        y += hsize * 1.2
                    y += step * 0.3
                    continue
                lines = wrap(text, font, size, width)
                room = int((bottom - 0.3 * size - y) // step) + 1
                for i, ln in enumerate(lines[:room]):
                    self.set_line(x, y + i * step, ln, font, size, width, fill,
                                  justify and i < len(lines) - 1)
                if room < len(lines):
                    pending = ("para", " ".join(lines[room:]))
                    y += room * step
                    break
                y += len(lines) * step + step * 0.35
            if y > first:
                self.text_box(x, top, x + width, min(bottom, y - step + 0.3 * size))

    def image(self, img, x, y, w=None, h=None, fmt="JPEG", kind=None, source=None, box=None, clip=None):
        """Places a PIL image at x, y (scaled to w x h if given); a picture
        kind records its box (default: the placed box, clipped to the page)."""
        w, h = w or img.width, h or img.height
        extra = f' clip-path="url(#{clip})"' if clip else ""
        self.add(f'<image x="{x:.2f}" y="{y:.2f}" width="{w:.2f}" height="{h:.2f}" preserveAspectRatio="none"'
                 f'{extra} xlink:href="{data_uri(img, fmt)}"/>')
        if kind:
            self.picture(kind, box or [x, y, w, h], source)

    def picture(self, kind, box, source):
        x, y, w, h = box
        x0, y0 = max(0, round(x)), max(0, round(y))
        x1, y1 = min(self.w, round(x + w)), min(self.h, round(y + h))
        self.pictures.append({"kind": kind, "box": [x0, y0, x1 - x0, y1 - y0], "source": source})

    def text_box(self, x0, y0, x1, y1):
        x0, y0 = max(0, int(np.floor(x0))), max(0, int(np.floor(y0)))
        x1, y1 = min(self.w, int(np.ceil(x1))), min(self.h, int(np.ceil(y1)))
        if x1 > x0 and y1 > y0:
            self.text.append([x0, y0, x1 - x0, y1 - y0])

    # --- output ----------------------------------------------------------
    def svg(self):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink" '
                f'width="{self.size_in[0]}in" height="{self.size_in[1]}in" viewBox="0 0 {self.w} {self.h}">\n'
                f'<rect width="{self.w}" height="{self.h}" fill="white"/>\n' + "\n".join(self.parts) + "\n</svg>\n")

    def render(self):
        """The printed sheet as an RGB array (0..1), before any scanning."""
        with tempfile.TemporaryDirectory() as tmp:
            svg, pdf = os.path.join(tmp, "page.svg"), os.path.join(tmp, "page.pdf")
            with open(svg, "w") as f:
                f.write(self.svg())
            subprocess.run(["rsvg-convert", "-f", "pdf", "-o", pdf, svg], check=True)
            subprocess.run(["pdftoppm", "-r", str(self.dpi), "-scale-to-x", str(self.w), "-scale-to-y",
                            str(self.h), "-singlefile", pdf, os.path.join(tmp, "page")], check=True)
            return np.asarray(Image.open(os.path.join(tmp, "page.ppm")), np.float32) / 255

    def truth(self):
        return {"name": self.name, "kind": self.kind, "width": self.w, "height": self.h, "dpi": self.dpi,
                "colour": self.colour, "pictures": self.pictures, "text": self.text}
