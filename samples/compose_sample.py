#!/usr/bin/python3
"""Composes the bundled sample pages of the tavrin command.

  sample-page.jpg  A4, 300 dpi, colour: a two-column article with two
                   photographs (the page `tavrin` uses when no PAGE is given)
  text-page.jpg    A4, 300 dpi, gray: the article's continuation, text and a
                   ruled table only (no picture)

Both pages are rendered like a flatbed scan: off-white paper, slight optical
blur, sensor noise, stored as JPEG (quality 90) with a 300 dpi JFIF density.
The output is deterministic (fixed noise seed).

Material (every piece ships in a Debian 12 package; licences in LICENSE):
  - photographs coffee.png and chelsea.png from python3-skimage
    (skimage/data), both CC0 by their photographers;
  - fonts DejaVu Serif / DejaVu Sans from fonts-dejavu-core and
    fonts-dejavu-extra;
  - the text article.txt beside this script, written for this project (CC0).

Needs: python3-pil, python3-numpy, fonts-dejavu-core, fonts-dejavu-extra and
the two photographs (install python3-skimage, or extract its .deb with
`apt-get download python3-skimage && dpkg -x python3-skimage_*.deb DIR` and
pass --photos DIR/usr/lib/python3/dist-packages/skimage/data).

Usage: samples/compose_sample.py [--photos DIR] [--out DIR]
"""
import argparse
import os

import numpy as np
from PIL import Image, ImageDraw, ImageFilter, ImageFont

DPI = 300
PAGE_W, PAGE_H = 2480, 3508          # A4 at 300 dpi
MARGIN_X, MARGIN_TOP, MARGIN_BOTTOM = 210, 230, 250
GUTTER = 90
COL_W = (PAGE_W - 2 * MARGIN_X - GUTTER) // 2
FONT_DIR = "/usr/share/fonts/truetype/dejavu"
HERE = os.path.dirname(os.path.abspath(__file__))


def pt(points):
    """Font size in pixels at 300 dpi."""
    return round(points * DPI / 72)


def font(name, points):
    return ImageFont.truetype(os.path.join(FONT_DIR, name), pt(points))


BODY = font("DejaVuSerifCondensed.ttf", 10)
HEAD = font("DejaVuSans-Bold.ttf", 12)
TITLE = font("DejaVuSans-Bold.ttf", 30)
SUBTITLE = font("DejaVuSerif-Italic.ttf", 13)
CAPTION = font("DejaVuSerifCondensed-Italic.ttf", 8.5)
SMALL = font("DejaVuSans.ttf", 8)
TABLE_HEAD = font("DejaVuSans-Bold.ttf", 8.5)
LINE = round(pt(10) * 1.32)


def read_article():
    """[(kind, text)] with kind 'title', 'subtitle', 'head' or 'para'."""
    items = []
    with open(os.path.join(HERE, "article.txt"), encoding="utf-8") as f:
        for line in f:
            line = line.strip()
            if not line:
                continue
            if line.startswith("# "):
                items.append(("title", line[2:]))
            elif line.startswith("## ") and not any(k == "subtitle" for k, _ in items):
                items.append(("subtitle", line[3:]))
            elif line.startswith("## "):
                items.append(("head", line[3:]))
            else:
                items.append(("para", line))
    return items


def wrap(text, fnt, width):
    words, lines, cur = text.split(), [], ""
    for w in words:
        trial = w if not cur else cur + " " + w
        if fnt.getlength(trial) <= width:
            cur = trial
        else:
            lines.append(cur)
            cur = w
    if cur:
        lines.append(cur)
    return lines


def draw_justified(draw, x, y, line, fnt, width, last):
    words = line.split()
    if last or len(words) == 1:
        draw.text((x, y), line, font=fnt, fill=25)
        return
    total = sum(fnt.getlength(w) for w in words)
    gap = (width - total) / (len(words) - 1)
    cx = x
    for w in words:
        draw.text((round(cx), y), w, font=fnt, fill=25)
        cx += fnt.getlength(w) + gap


class Flow:
    """Fills column boxes with headings and justified paragraphs."""

    def __init__(self, draw, boxes):
        self.draw, self.boxes, self.box, self.y = draw, boxes, 0, boxes[0][1]

    def room(self, h):
        while self.box < len(self.boxes):
            x, top, bottom = self.boxes[self.box]
            if self.y + h <= bottom:
                return True
            self.box += 1
            if self.box < len(self.boxes):
                self.y = self.boxes[self.box][1]
        return False

    def head(self, text):
        if not self.room(LINE * 3):
            return False
        x = self.boxes[self.box][0]
        self.y += LINE // 2
        self.draw.text((x, self.y), text, font=HEAD, fill=20)
        self.y += round(LINE * 1.3)
        return True

    def para(self, text):
        """Places what fits; returns the words left over (or '')."""
        lines = wrap(text, BODY, COL_W)
        for i, line in enumerate(lines):
            if not self.room(LINE):
                return " ".join(" ".join(lines[i:]).split())
            x = self.boxes[self.box][0]
            draw_justified(self.draw, x, self.y, line, BODY, COL_W, i == len(lines) - 1)
            self.y += LINE
        self.y += LINE // 3
        return ""


def place_photo(page, draw, path, x, y, width, caption):
    photo = Image.open(path).convert("RGB")
    h = round(photo.height * width / photo.width)
    photo = photo.resize((width, h), Image.LANCZOS)
    page.paste(photo, (x, y))
    cy = y + h + 18
    for line in wrap(caption, CAPTION, width):
        draw.text((x, cy), line, font=CAPTION, fill=40)
        cy += round(pt(8.5) * 1.3)
    return cy + 30


def header(draw, items, page_no):
    y = MARGIN_TOP - 120
    draw.text((MARGIN_X, y), "TAVRIN SAMPLE QUARTERLY", font=SMALL, fill=60)
    label = f"page {page_no}"
    draw.text((PAGE_W - MARGIN_X - SMALL.getlength(label), y), label, font=SMALL, fill=60)
    draw.line((MARGIN_X, y + 50, PAGE_W - MARGIN_X, y + 50), fill=40, width=3)


def flow_items(flow, items):
    """Flows items until the boxes are full; returns the items left."""
    for i, (kind, text) in enumerate(items):
        if kind == "head":
            if not flow.head(text):
                return items[i:]
        else:
            rest = flow.para(text)
            if rest:
                return [("para", rest)] + items[i + 1:]
    return []


def scan(page, rng):
    """Optical blur, paper tint and sensor noise of a flatbed scan."""
    page = page.filter(ImageFilter.GaussianBlur(0.7))
    a = np.asarray(page).astype(np.float32)
    paper = np.array([246, 244, 238], np.float32) if a.ndim == 3 else np.float32(243)
    a = a * (paper / 255.0)
    a += rng.normal(0.0, 1.6, a.shape)
    return Image.fromarray(np.clip(np.rint(a), 0, 255).astype(np.uint8))


def sample_page(items, photos, rng):
    page = Image.new("RGB", (PAGE_W, PAGE_H), "white")
    draw = ImageDraw.Draw(page)
    header(draw, items, 1)
    title = next(t for k, t in items if k == "title")
    subtitle = next(t for k, t in items if k == "subtitle")
    y = MARGIN_TOP
    draw.text((MARGIN_X, y), title, font=TITLE, fill=15)
    y += pt(30) + 40
    for line in wrap(subtitle, SUBTITLE, PAGE_W - 2 * MARGIN_X):
        draw.text((MARGIN_X, y), line, font=SUBTITLE, fill=45)
        y += round(pt(13) * 1.3)
    y += 40
    draw.line((MARGIN_X, y, PAGE_W - MARGIN_X, y), fill=30, width=2)
    top = y + 60
    left_x, right_x = MARGIN_X, MARGIN_X + COL_W + GUTTER
    bottom = PAGE_H - MARGIN_BOTTOM
    # Left column: photograph on top, text below.
    text_top = place_photo(page, draw, os.path.join(photos, "coffee.png"), left_x, top, COL_W,
                           "Figure 1. A test shot and a finished cortado on the bar of a small "
                           "espresso bar. The first shot of the day is never served.")
    # Right column: text, the second photograph in the lower half, text.
    photo_top = top + 1180
    photo_end = place_photo(page, draw, os.path.join(photos, "chelsea.png"), right_x, photo_top,
                            COL_W, "Figure 2. Chelsea, the most reliable timer in the street, "
                            "on her usual window sill.")
    body = [it for it in items if it[0] in ("head", "para")]
    flow = Flow(draw, [(left_x, text_top, bottom), (right_x, top, photo_top - 40),
                       (right_x, photo_end, bottom)])
    rest = flow_items(flow, body)
    return scan(page, rng), rest


def ruled_table(draw, x, y, width):
    rows = [("Time", "Dose g", "Yield g", "Seconds", "Note"),
            ("06:40", "18.0", "41.5", "21", "too fast, finer"),
            ("06:44", "18.0", "37.0", "26", "sour finish"),
            ("06:48", "18.1", "36.2", "28", "good"),
            ("06:51", "18.0", "36.0", "29", "good"),
            ("06:54", "18.0", "35.8", "29", "good, open door")]
    widths = [0.15, 0.16, 0.17, 0.20, 0.32]
    row_h = round(LINE * 1.35)
    xs = [x]
    for w in widths:
        xs.append(xs[-1] + round(w * width))
    draw.text((x, y), "Table 1. The notebook page of a Tuesday morning.", font=CAPTION, fill=40)
    y += round(pt(8.5) * 1.3) + 20
    for r, row in enumerate(rows):
        for c, cell in enumerate(row):
            fnt = TABLE_HEAD if r == 0 else BODY
            draw.text((xs[c] + 14, y + (row_h - pt(10)) // 2 - 4), cell, font=fnt, fill=25)
        y += row_h
    top = y - row_h * len(rows)
    for r in range(len(rows) + 1):
        draw.line((xs[0], top + r * row_h, xs[-1], top + r * row_h), fill=30,
                  width=4 if r in (0, 1, len(rows)) else 2)
    for cx in xs:
        draw.line((cx, top, cx, y), fill=30, width=2)
    return y + 50


def text_page(rest, items, rng):
    page = Image.new("L", (PAGE_W, PAGE_H), 255)
    draw = ImageDraw.Draw(page)
    header(draw, items, 2)
    top = MARGIN_TOP
    left_x, right_x = MARGIN_X, MARGIN_X + COL_W + GUTTER
    bottom = PAGE_H - MARGIN_BOTTOM
    table_top = top + 1650
    flow = Flow(draw, [(left_x, top, bottom), (right_x, top, table_top - 30)])
    left = flow_items(flow, rest)
    # The article's opening again, so that the page is full of text.
    if not left:
        left = [it for it in items if it[0] in ("head", "para")]
    table_end = ruled_table(draw, right_x, table_top, COL_W)
    flow.boxes.append((right_x, table_end, bottom))
    flow.box = min(flow.box, len(flow.boxes) - 1)
    flow.y = max(flow.y, table_end) if flow.box == len(flow.boxes) - 1 else flow.y
    flow_items(flow, left)
    return scan(page, rng)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--photos", default="/usr/lib/python3/dist-packages/skimage/data")
    ap.add_argument("--out", default=HERE)
    args = ap.parse_args()
    rng = np.random.default_rng(20240601)
    items = read_article()
    page, rest = sample_page(items, args.photos, rng)
    page.save(os.path.join(args.out, "sample-page.jpg"), quality=90, dpi=(DPI, DPI))
    text_page(rest, items, rng).save(os.path.join(args.out, "text-page.jpg"), quality=90,
                                     dpi=(DPI, DPI))


if __name__ == "__main__":
    main()
