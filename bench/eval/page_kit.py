"""Typesetting for the evaluation pages, and the ground truth they carry.

A Page is a white sheet (PIL 'RGB', 300 dpi) that records, as it is drawn,
every picture box with its kind and every block of text. Text is set from
the prose in texts/ (and the sample article) as a stream of headings and
paragraphs, flowed into column boxes, justified, with real font sizes in
points.
"""
import os

from PIL import Image, ImageDraw, ImageFont

DPI = 300
A4, A3, LETTER = (2480, 3508), (3508, 4961), (2550, 3300)
HERE = os.path.dirname(os.path.abspath(__file__))
FONT_DIRS = ["/usr/share/fonts/truetype/dejavu", "/usr/share/fonts/truetype/liberation2",
             "/usr/share/fonts/truetype/freefont"]
INK = (28, 28, 30)


def pt(points):
    """Points to pixels at 300 dpi."""
    return round(points * DPI / 72)


def font(name, points):
    for d in FONT_DIRS:
        path = os.path.join(d, name)
        if os.path.exists(path):
            return ImageFont.truetype(path, pt(points))
    raise FileNotFoundError(name)


def read_prose(names):
    """[(kind, text)] from the named texts; kind 'title', 'subtitle', 'head', 'para'."""
    items = []
    for name in names:
        path = os.path.join(HERE, "texts", name)
        if not os.path.exists(path):
            path = os.path.join(HERE, "..", "..", "samples", name)
        subtitle_seen = False
        with open(path, encoding="utf-8") as f:
            for line in f:
                line = line.strip()
                if line.startswith("# "):
                    items.append(("title", line[2:]))
                    subtitle_seen = False
                elif line.startswith("## ") and not subtitle_seen:
                    items.append(("subtitle", line[3:]))
                    subtitle_seen = True
                elif line.startswith("## "):
                    items.append(("head", line[3:]))
                elif line:
                    items.append(("para", line))
    return items


class Prose:
    """An endless stream of headings and paragraphs, starting at `start`."""

    def __init__(self, names, start=0):
        self.items = read_prose(names)
        self.body = [it for it in self.items if it[0] in ("head", "para")]
        self.i = start % len(self.body)
        self.pending = None

    def titles(self):
        return [t for k, t in self.items if k == "title"], [t for k, t in self.items if k == "subtitle"]

    def next(self):
        if self.pending:
            item, self.pending = self.pending, None
            return item
        item = self.body[self.i]
        self.i = (self.i + 1) % len(self.body)
        return item

    def push_back(self, item):
        self.pending = item


def wrap(text, fnt, width):
    lines, cur = [], ""
    for word in text.split():
        trial = word if not cur else cur + " " + word
        if fnt.getlength(trial) <= width or not cur:
            cur = trial
        else:
            lines.append(cur)
            cur = word
    return lines + ([cur] if cur else [])


class Page:
    def __init__(self, name, size, kind, gray=False):
        self.name, self.kind, self.gray = name, kind, gray
        self.img = Image.new("RGB", size, "white")
        self.draw = ImageDraw.Draw(self.img)
        self.pictures, self.text = [], []

    @property
    def size(self):
        return self.img.size

    def picture(self, kind, box, source):
        """Records a picture box (x, y, w, h) of kind photo, halftone,
        illustration or screenshot."""
        self.pictures.append({"kind": kind, "box": [int(v) for v in box], "source": source})

    def text_box(self, x0, y0, x1, y1):
        if x1 > x0 and y1 > y0:
            self.text.append([int(x0), int(y0), int(x1 - x0), int(y1 - y0)])

    def line(self, xy, text, fnt, fill=INK):
        """One line of text, recorded by its ink box."""
        self.draw.text(xy, text, font=fnt, fill=fill)
        self.text_box(*self.draw.textbbox(xy, text, font=fnt))

    def lines(self, x, y, text, fnt, width, fill=INK, leading=1.3):
        """A ragged-right block; returns the y below it."""
        top = y
        for ln in wrap(text, fnt, width):
            self.draw.text((x, y), ln, font=fnt, fill=fill)
            y += round(fnt.size * leading)
        self.text_box(x, top, x + width, y)
        return y

    def truth(self):
        w, h = self.size
        return {"name": self.name, "kind": self.kind, "width": w, "height": h, "dpi": DPI,
                "colour": not self.gray, "pictures": self.pictures, "text": self.text}


class Flow:
    """Fills column boxes (x, top, width, bottom) from a Prose stream with
    justified paragraphs and headings; records each filled box as text."""

    def __init__(self, page, prose, body, head, head_fill=INK, leading=1.3):
        self.page, self.prose, self.body, self.head = page, prose, body, head
        self.head_fill, self.line_h = head_fill, round(body.size * leading)

    def fill(self, boxes):
        for x, top, width, bottom in boxes:
            y = top
            while True:
                kind, text = self.prose.next()
                if kind == "head":
                    if y + 3 * self.line_h > bottom:
                        self.prose.push_back((kind, text))
                        break
                    y += self.line_h // 2 if y > top else 0
                    self.page.draw.text((x, y), text, font=self.head, fill=self.head_fill)
                    y += round(self.head.size * 1.45)
                    continue
                lines = wrap(text, self.body, width)
                for i, ln in enumerate(lines):
                    if y + self.line_h > bottom:
                        self.prose.push_back(("para", " ".join(lines[i:])))
                        break
                    self.justify(x, y, ln, width, i == len(lines) - 1)
                    y += self.line_h
                else:
                    y += self.line_h // 3
                    continue
                break
            self.page.text_box(x, top, x + width, min(y, bottom))

    def justify(self, x, y, line, width, last):
        words = line.split()
        if last or len(words) == 1:
            self.page.draw.text((x, y), line, font=self.body, fill=INK)
            return
        gap = (width - sum(self.body.getlength(w) for w in words)) / (len(words) - 1)
        for w in words:
            self.page.draw.text((round(x), y), w, font=self.body, fill=INK)
            x += self.body.getlength(w) + gap


def columns(x0, x1, n, gutter):
    """Left edges and width of n equal columns between x0 and x1."""
    width = (x1 - x0 - (n - 1) * gutter) // n
    return [x0 + i * (width + gutter) for i in range(n)], width
