#!/usr/bin/python3
"""Composes the evaluation page sets of the tavrin program, with ground truth.

  compose_pages.py --set main|holdout --out DIR

writes DIR/NAME.png (or .jpg) at 300 dpi and DIR/NAME.json per page, and
DIR/truth.json with every page's truth. The 'main' set (14 pages) is for
tuning; 'holdout' (10 pages, other seed, layouts and mostly other images)
checks that the tuning carries over.

A page is typeset from real prose (texts/, 8-12 pt body, larger headings,
captions) around pictures, then run through scan_effects: skew, dust,
uneven light, blur, paper tint and texture, sensor noise; some pages gray,
some colour, two stored as JPEG. The truth gives the page size and dpi,
every picture box (page pixels, x y w h) with its kind (photo, halftone,
illustration, screenshot) and the text blocks. Boxes are those of the
printed picture; on the skewed page the hull of the turned box.

Deterministic: one seed per set, and every page draws from its own
generator seeded from it, so the same bytes come out on every run.
truth-main.json and truth-holdout.json beside this script are copies of
the truth it writes, so that a change of layout shows in review; the
preview-*.jpg show a page and a detail of the halftone. Sources and
licences: SOURCES.md.
"""
import argparse
import json
import os

import numpy as np

import artwork
import scan_effects
from page_kit import A3, A4, INK, LETTER, Flow, Page, Prose, columns, font, pt

SEEDS = {"main": 1101, "holdout": 2207}


def place(page, img, x, y, kind, source, box=None):
    page.img.paste(img, (x, y))
    page.picture(kind, box or [x, y, img.width, img.height], source)


def caption(page, x, y, width, text, fnt):
    return page.lines(x, y + 18, text, fnt, width, fill=(60, 60, 60)) + 40


def title_block(page, x, y, width, title, subtitle, tfont, sfont, fill=INK):
    y = page.lines(x, y, title, tfont, width, fill=fill, leading=1.15) + 30
    if subtitle:
        y = page.lines(x, y, subtitle, sfont, width, fill=(70, 70, 70)) + 20
    page.draw.line((x, y, x + width, y), fill=(40, 40, 40), width=3)
    return y + 50


def running_head(page, x0, x1, label, number, fnt):
    page.line((x0, 110), label, fnt, fill=(80, 80, 80))
    page.line((x1 - fnt.getlength(str(number)), 110), str(number), fnt, fill=(80, 80, 80))
    page.draw.line((x0, 160, x1, 160), fill=(60, 60, 60), width=2)


def table(page, x, y, width, rows, body, head, tint, stripe):
    """A ruled table with a tinted header row and striped body rows."""
    row_h = round(body.size * 1.9)
    shares = [0.26, 0.16, 0.21, 0.37]
    xs = [x] + [x + round(sum(shares[:i + 1]) * width) for i in range(len(shares))]
    for r, row in enumerate(rows):
        top = y + r * row_h
        if r == 0 or r % 2 == 0:
            page.draw.rectangle((x, top, x + width, top + row_h), fill=tint if r == 0 else stripe)
        for c, cell in enumerate(row):
            page.draw.text((xs[c] + 12, top + (row_h - body.size) // 2 - 2), cell,
                           font=head if r == 0 else body, fill=INK)
    bottom = y + row_h * len(rows)
    for r in range(len(rows) + 1):
        page.draw.line((x, y + r * row_h, x + width, y + r * row_h), fill=(40, 40, 40),
                       width=4 if r in (0, 1, len(rows)) else 1)
    for cx in xs:
        page.draw.line((cx, y, cx, bottom), fill=(40, 40, 40), width=2)
    page.text_box(x, y, x + width, bottom)
    return bottom


def tinted_box(page, box, tint, heading, prose, body, head, head_fill):
    x0, y0, x1, y1 = box
    page.draw.rectangle(box, fill=tint)
    page.line((x0 + 40, y0 + 30), heading, head, fill=head_fill)
    Flow(page, prose, body, head, head_fill).fill([(x0 + 40, y0 + 40 + round(head.size * 1.6),
                                                   x1 - x0 - 80, y1 - 30)])


# --- the kinds of page -------------------------------------------------------

def start(name, v, kind, gray, head_font, head_plus):
    """A blank page, its prose stream, and body and heading fonts."""
    page = Page(name, v.get("size", A4), kind, gray=gray)
    return page, Prose(v["prose"], v["start"]), font(v["body"], v["pt"]), font(head_font, v["pt"] + head_plus)

def magazine(name, rng, v):
    """Title, a wide photograph over the columns, two more photographs in the
    columns, justified text."""
    page, prose, body, head = start(name, v, "magazine", False, "DejaVuSans-Bold.ttf", 2)
    x0, x1 = 200, A4[0] - 200
    titles, subtitles = prose.titles()
    running_head(page, x0, x1, "WEEKEND MAGAZINE", 14, font("DejaVuSans.ttf", 8))
    y = title_block(page, x0, 230, x1 - x0, titles[0], subtitles[0],
                    font("DejaVuSerif-Bold.ttf", 28), font("DejaVuSerif-Italic.ttf", 13))
    (p0, p1, p2) = v["photos"]
    wide_h = 950
    place(page, artwork.photo(p0[0], x1 - x0, wide_h, rng, p0[1]), x0, y, "photo", p0[0])
    y = caption(page, x0, y + wide_h, x1 - x0, p0[2], font("DejaVuSerifCondensed-Italic.ttf", 8.5))
    xs, cw = columns(x0, x1, v["cols"], 80)
    bottom = A4[1] - 220
    ph = round(cw * 0.75)
    place(page, artwork.photo(p1[0], cw, ph, rng, p1[1]), xs[-1], y, "photo", p1[0])
    cap_end = caption(page, xs[-1], y + ph, cw, p1[2], font("DejaVuSerifCondensed-Italic.ttf", 8))
    low_y = bottom - ph - 120
    place(page, artwork.photo(p2[0], cw, ph, rng, p2[1]), xs[0], low_y, "photo", p2[0])
    caption(page, xs[0], low_y + ph, cw, p2[2], font("DejaVuSerifCondensed-Italic.ttf", 8))
    boxes = [(xs[0], y, cw, low_y - 40)] + [(x, y, cw, bottom) for x in xs[1:-1]]
    Flow(page, prose, body, head).fill(boxes + [(xs[-1], cap_end, cw, bottom)])
    return page, {}


def portrait(name, rng, v):
    """A photograph filling the page, a caption line and a folio."""
    page = Page(name, v["size"], "portrait", gray=v["gray"])
    w, h = page.size
    place(page, artwork.photo(v["photo"], w - 360, h - 560, rng, v["focus"]), 180, 200, "photo", v["photo"])
    page.lines(180, h - 330, v["caption"], font("DejaVuSerif-Italic.ttf", 10), w - 360, fill=(50, 50, 50))
    page.line((w // 2 - 20, h - 170), "23", font("DejaVuSerif.ttf", 9))
    return page, {}


def inset(name, rng, v):
    """Two text columns, a photograph inset in one of them."""
    page, prose, body, head = start(name, v, "inset", True, "DejaVuSans-Bold.ttf", 1)
    w, h = page.size
    x0, x1 = 230, w - 230
    running_head(page, x0, x1, "CHAPTER THREE", 41, font("DejaVuSerif-Italic.ttf", 8.5))
    xs, cw = columns(x0, x1, 2, 90)
    top, bottom = 260, h - 260
    ph = round(cw * v["aspect"])
    px = xs[v["column"]]
    py = top + v["at"]
    place(page, artwork.photo(v["photo"], cw, ph, rng, v["focus"]), px, py, "photo", v["photo"])
    cap = caption(page, px, py + ph, cw, v["caption"], font("DejaVuSerifCondensed-Italic.ttf", 8.5))
    boxes = [(xs[0], top, cw, bottom), (xs[1], top, cw, bottom)]
    c = v["column"]
    boxes[c:c + 1] = [(px, top, cw, py - 50), (px, cap, cw, bottom)]
    Flow(page, prose, body, head).fill(boxes)
    return page, {"light": ("right", 0.10)}


def newsletter(name, rng, v):
    """A coloured masthead band, coloured headings, tinted boxes, an optional
    photograph (the night-sky newsletter's is dark and low in texture)."""
    page, prose, body, head = start(name, v, "newsletter", v.get("gray", False), "FreeSansBold.ttf", 3)
    w, h = page.size
    accent = v["accent"]
    x0, x1 = 190, w - 190
    page.draw.rectangle((0, 0, w, 420), fill=accent)
    page.line((x0, 120), v["masthead"], font("FreeSansBold.ttf", 40), fill="white")
    page.line((x0, 320), v["issue"], font("FreeSans.ttf", 11), fill="white")
    titles, subtitles = prose.titles()
    y = 500
    page.line((x0, y), titles[0], font("FreeSansBold.ttf", 20), fill=accent)
    y += pt(20) + 60
    xs, cw = columns(x0, x1, 2, 90)
    bottom = h - 230
    box_top = bottom - v["box_h"]
    left = [(xs[0], y, cw, bottom)]
    right_top = y
    if v.get("photo"):
        ph = round(cw * v["aspect"])
        place(page, artwork.photo(v["photo"], cw, ph, rng, v["focus"], v.get("zoom", 1.0)),
              xs[1], y, "photo", v["photo"])
        right_top = caption(page, xs[1], y + ph, cw, v["caption"], font("FreeSansOblique.ttf", 8.5))
    Flow(page, prose, body, head, head_fill=accent).fill(left + [(xs[1], right_top, cw, box_top - 60)])
    tinted_box(page, (xs[1], box_top, x1, bottom), v["tint"], v["box_title"], Prose(v["box_prose"]),
               font(v["body"], v["pt"] - 0.5), font("FreeSansBold.ttf", v["pt"] + 1), accent)
    return page, {}


def poster(name, rng, v):
    """An A3 poster: headline, a large photograph, event details, small print."""
    page = Page(name, A3, "poster", gray=False)
    w, h = page.size
    page.draw.rectangle((0, 0, w, h), fill=v["ground"])
    page.lines(250, 220, v["headline"], font("DejaVuSans-Bold.ttf", 64), w - 500, fill=v["ink"], leading=1.1)
    pw, ph = w - 500, 2500
    place(page, artwork.photo(v["photo"], pw, ph, rng, v["focus"]), 250, 900, "photo", v["photo"])
    y = 900 + ph + 120
    for text, size in v["lines"]:
        y = page.lines(250, y, text, font("DejaVuSans.ttf", size), w - 500, fill=v["ink"]) + 30
    page.lines(250, h - 330, v["small"], font("DejaVuSans.ttf", 9), w - 500, fill=v["ink"])
    return page, {}


def halftone_page(name, rng, v):
    """A printed halftone photograph (a real dot screen) in a text page."""
    page, prose, body, head = start(name, v, "halftone", not v["colour"], "DejaVuSerifCondensed-Bold.ttf", 1)
    x0, x1 = 220, A4[0] - 220
    titles, subtitles = prose.titles()
    y = title_block(page, x0, 230, x1 - x0, titles[0], None, font("DejaVuSerif-Bold.ttf", 24), None)
    xs, cw = columns(x0, x1, 2, 80)
    Flow(page, prose, body, head).fill([(x, y, cw, y + 700) for x in xs])
    y += 760
    ph = 1300
    photo = artwork.photo(v["photo"], x1 - x0, ph, rng, v["focus"], grain=1.0)
    place(page, artwork.halftone(photo, v["lpi"], v["colour"]), x0, y, "halftone", v["photo"])
    y = caption(page, x0, y + ph, x1 - x0, v["caption"], font("DejaVuSerifCondensed-Italic.ttf", 8.5))
    Flow(page, prose, body, head).fill([(x, y, cw, A4[1] - 230) for x in xs])
    return page, {}


def line_art(name, rng, v):
    """Drawings and a chart with text around them."""
    page, prose, body, head = start(name, v, "line-art", v["gray"], "LiberationSans-Bold.ttf", 2)
    w, h = page.size
    x0, x1 = 210, w - 210
    titles, subtitles = prose.titles()
    y = title_block(page, x0, 220, x1 - x0, titles[0], subtitles[0], font("LiberationSans-Bold.ttf", 24),
                    font("LiberationSans-Italic.ttf", 12))
    xs, cw = columns(x0, x1, 2, 90)
    bottom = h - 230
    art_h = round(cw * 0.8)
    a, b = v["clipart"]
    art = artwork.clipart(a, cw, art_h)
    page.img.paste(art, (xs[0], y))
    page.picture("illustration", artwork.ink_box(art, xs[0], y), a)
    y_left = caption(page, xs[0], y + art_h, cw, v["captions"][0], font("LiberationSerif-Italic.ttf", 9))
    chart_y = bottom - 1000
    ch = artwork.chart(v["chart"], x1 - x0, 900, rng, v["captions"][2])
    page.img.paste(ch, (x0, chart_y))
    page.picture("illustration", artwork.ink_box(ch, x0, chart_y), "chart")
    small_h = round(cw * 0.9)
    art = artwork.clipart(b, cw, small_h)
    page.img.paste(art, (xs[1], y))
    page.picture("illustration", artwork.ink_box(art, xs[1], y), b)
    y_right = caption(page, xs[1], y + small_h, cw, v["captions"][1], font("LiberationSerif-Italic.ttf", 9))
    Flow(page, prose, body, head).fill([(xs[0], y_left, cw, chart_y - 60), (xs[1], y_right, cw, chart_y - 60)])
    return page, {}


def table_photo(name, rng, v):
    """Text, then a ruled table with tinted cells beside a photograph."""
    page, prose, body, head = start(name, v, "table", v["gray"], "DejaVuSans-Bold.ttf", 1)
    w, h = page.size
    x0, x1 = 210, w - 210
    xs, cw = columns(x0, x1, 2, 90)
    running_head(page, x0, x1, v["head"], 7, font("DejaVuSans.ttf", 8))
    Flow(page, prose, body, head).fill([(x, 260, cw, 1200) for x in xs])
    y = 1280
    page.line((xs[0], y), v["table_title"], font("DejaVuSans-Bold.ttf", 9))
    t_end = table(page, xs[0], y + 70, cw, v["rows"], font("DejaVuSans.ttf", 9), font("DejaVuSans-Bold.ttf", 9),
                  v["tint"], v["stripe"])
    ph = round(cw * 0.8)
    place(page, artwork.photo(v["photo"], cw, ph, rng, v["focus"]), xs[1], y, "photo", v["photo"])
    y = max(t_end + 60, caption(page, xs[1], y + ph, cw, v["caption"], font("DejaVuSans-Oblique.ttf", 8)))
    Flow(page, prose, body, head).fill([(x, y, cw, h - 240) for x in xs])
    return page, {}


def screenshots(name, rng, v):
    """A manual page: a wide window screenshot, text, a smaller dialog."""
    page, prose, body, head = start(name, v, "screenshots", False, "LiberationSans-Bold.ttf", 2)
    w, h = page.size
    x0, x1 = 220, w - 220
    running_head(page, x0, x1, "USER GUIDE", 52, font("LiberationSans-Regular.ttf", 8))
    page.line((x0, 240), v["title"], font("LiberationSans-Bold.ttf", 18))
    y = 400
    sh = 1100
    place(page, artwork.screenshot("files", x1 - x0, sh, rng), x0, y, "screenshot", "drawn")
    y = caption(page, x0, y + sh, x1 - x0, v["captions"][0], font("LiberationSans-Italic.ttf", 8.5))
    xs, cw = columns(x0, x1, 2, 90)
    dh = round(cw * 1.05)
    bottom = h - 240
    place(page, artwork.screenshot("settings", cw, dh, rng), xs[1], y, "screenshot", "drawn")
    cap = caption(page, xs[1], y + dh, cw, v["captions"][1], font("LiberationSans-Italic.ttf", 8.5))
    Flow(page, prose, body, head).fill([(xs[0], y, cw, bottom), (xs[1], cap, cw, bottom)])
    return page, {}


def text_only(name, rng, v):
    """Running text in columns and nothing else."""
    page, prose, body, head = start(name, v, "text", True, v["head"], 1)
    w, h = page.size
    x0, x1 = 230, w - 230
    running_head(page, x0, x1, v["running"], 88, font(v["body"], 8))
    xs, cw = columns(x0, x1, v["cols"], 90)
    Flow(page, prose, body, head).fill([(x, 260, cw, h - 250) for x in xs])
    return page, {}


def blank(name, rng, v):
    """An empty sheet; only the back's print shows through (added by scan)."""
    return Page(name, v["size"], "blank", gray=True), {"show_through": True}


# --- the two sets -------------------------------------------------------------

ROWS = [("Crossing", "Minutes", "Fare", "Remark"), ("North to south", "11", "2.40", "slack tide"),
        ("South to north", "14", "2.40", "ebb running"), ("With car", "11-20", "7.80", "six cars at most"),
        ("Bicycle", "11-20", "1.20", "free before 8"), ("Season ticket", "-", "96.00", "one month"),
        ("Night crossing", "18", "4.00", "Fridays only")]
SHOTS = [("Hive", "Frames", "Honey kg", "State in August"), ("1 orchard", "10", "14.5", "strong, calm"),
         ("2 orchard", "10", "9.0", "new queen"), ("3 willow", "8", "11.2", "swarmed in May"),
         ("4 willow", "10", "16.8", "strongest"), ("5 bank", "6", "3.5", "fed syrup"),
         ("6 bank", "10", "12.1", "calm")]

MAIN = [
    ("m01-magazine", magazine, dict(prose=["letterpress.txt", "ferry.txt"], start=0, body="DejaVuSerifCondensed.ttf",
        pt=9.5, cols=3, photos=[("chelsea.png", (0.5, 0.45), "The studio cat keeps the compositors company on the "
                                 "long afternoons of distributing type."),
                                ("coffee.png", (0.4, 0.5), "Coffee and proofs on the bench."),
                                ("rocket.jpg", (0.5, 0.3), "A poster printed for the launch of the new press.")])),
    ("m02-portrait", portrait, dict(size=A4, gray=False, photo="grace_hopper.jpg", focus=(0.5, 0.5), scan={"jpeg": 90},
        caption="Portrait of a naval officer and computer scientist, from the collection of the "
                "museum's reading room; the original print measures 8 by 10 inches.")),
    ("m03-inset", inset, dict(size=A4, prose=["ferry.txt", "bees.txt"], start=3, body="LiberationSerif-Regular.ttf",
        pt=10.5, photo="camera.png", focus=(0.45, 0.5), aspect=1.0, column=0, at=900,
        caption="The photographer who recorded the crossing for the village archive.")),
    ("m04-nightsky", newsletter, dict(size=A4, prose=["nightsky.txt"], start=0, body="FreeSerif.ttf", pt=10.5,
        accent=(20, 40, 90), masthead="THE DARK SKY", issue="Newsletter of the quarry observing group - autumn",
        photo="hubble_deep_field.jpg", focus=(0.5, 0.5), aspect=1.15,
        caption="A long exposure of a small patch of sky: almost every smudge is a galaxy.",
        tint=(222, 228, 242), box_title="Dates for the diary", box_prose=["garden.txt"], box_h=760)),
    ("m05-poster", poster, dict(photo="rocket.jpg", focus=(0.5, 0.45), ground=(250, 246, 236), ink=(20, 30, 60),
        headline="Launch Night at the Village Hall",
        lines=[("A talk with pictures on rockets, satellites and the people who build them", 22),
               ("Friday 14 March, doors open at seven, talk at half past seven", 18),
               ("Free entry. Tea, cake and telescopes on the lawn if the sky is clear.", 18)],
        small="Organised by the quarry observing group with the support of the parish council. "
              "The hall has step-free access; ask at the door for a seat at the front.")),
    ("m06-halftone", halftone_page, dict(prose=["letterpress.txt"], start=4, body="DejaVuSerifCondensed.ttf", pt=10,
        photo="coins.png", focus=(0.5, 0.5), lpi=100, colour=False,
        caption="Coins from a museum collection, printed with a 100-line screen as in the original pamphlet.")),
    ("m07-line-art", line_art, dict(size=A4, gray=False, prose=["ferry.txt"], start=5, body="LiberationSerif-Regular.ttf",
        pt=10, clipart=("animals/crawfish1_bw_ganson.svg", "buildings/lighthouse_matthew_gates_.svg"), chart="bar",
        captions=["The crayfish of the lower river, from the survey notebook.", "The light at the river mouth.",
                  "Crossings per week over one year"])),
    ("m08-table", table_photo, dict(size=A4, gray=True, prose=["ferry.txt"], start=1, body="DejaVuSerifCondensed.ttf",
        pt=10, head="THE LOWER RIVER", table_title="Table 2. Crossings and fares", rows=ROWS, tint=(200, 200, 200),
        stripe=(232, 232, 232), photo="coffee.png", focus=(0.5, 0.5),
        caption="The cafe on the north slipway opens with the first ferry.")),
    ("m09-screenshots", screenshots, dict(size=A4, prose=["ferry.txt", "bees.txt"], start=7,
        body="LiberationSans-Regular.ttf", pt=9.5, title="Finding and sorting your timetables",
        captions=["Figure 4. The file browser with the timetable folder open.",
                  "Figure 5. The preferences dialog."])),
    ("m10-blank", blank, dict(size=A4)),
    ("m11-speckled", text_only, dict(size=A4, prose=["bees.txt"], start=0, body="DejaVuSerif.ttf", head="DejaVuSerif-Bold.ttf",
        pt=10, cols=1, running="NOTES FROM THE APIARY", scan={"dust": True})),
    ("m12-skewed", table_photo, dict(size=A4, gray=False, prose=["bees.txt"], start=2, body="LiberationSerif-Regular.ttf",
        pt=10.5, head="A YEAR AMONG THE HIVES", table_title="Table 1. The hives at the end of summer", rows=SHOTS,
        tint=(250, 224, 150), stripe=(253, 243, 212), photo="astronaut.png", focus=(0.5, 0.35),
        caption="A visitor from the flying club, who came to see the bees.",
        scan={"skew": 1.8, "jpeg": 75})),
    ("m13-two-column", text_only, dict(size=A4, prose=["article.txt", "letterpress.txt"], start=0,
        body="DejaVuSerifCondensed.ttf", head="DejaVuSans-Bold.ttf", pt=9.5, cols=2, running="THE MORNING CUP",
        scan={"light": ("left", 0.14)})),
    ("m14-newsletter", newsletter, dict(size=A4, prose=["garden.txt"], start=0, body="LiberationSerif-Regular.ttf", pt=11,
        accent=(30, 110, 60), masthead="GREEN LANE GARDEN", issue="Members' newsletter - spring",
        photo="chelsea.png", focus=(0.5, 0.5), aspect=0.66, caption="The garden's most faithful visitor.",
        tint=(255, 238, 190), box_title="Compost corner", box_prose=["bees.txt"], box_h=900)),
]

HOLDOUT = [
    ("h01-magazine", magazine, dict(prose=["bees.txt", "nightsky.txt"], start=1, body="LiberationSerif-Regular.ttf",
        pt=10, cols=2, photos=[("astronaut.png", (0.5, 0.3), "A visitor from the flying club in her flight suit."),
                               ("clock_motion.png", (0.5, 0.5), "The hall clock, caught as it moved."),
                               ("ihc.png", (0.5, 0.5), "Pollen under the microscope, stained.")])),
    ("h02-portrait", portrait, dict(size=LETTER, gray=True, photo="camera.png", focus=(0.5, 0.5),
        caption="The photographer and his camera on the river meadow, an early morning in May.")),
    ("h03-halftone", halftone_page, dict(prose=["ferry.txt"], start=2, body="LiberationSerif-Regular.ttf", pt=10.5,
        photo="coffee.png", focus=(0.5, 0.5), lpi=85, colour=True,
        caption="Coffee at the slipway cafe, from the printed brochure (four-colour, 85-line screen).")),
    ("h04-line-art", line_art, dict(size=LETTER, gray=True, prose=["letterpress.txt"], start=3,
        body="DejaVuSerifCondensed.ttf", pt=10,
        clipart=("people/dancer_sketch_erich_schu_01.svg", "science/microscopio_architetto_f_01.svg"), chart="line",
        captions=["A sketch from the evening class.", "The microscope of the studio's paper tests.",
                  "Sky brightness at two sites"])),
    ("h05-screenshots", screenshots, dict(size=LETTER, prose=["garden.txt"], start=2, body="DejaVuSans.ttf", pt=9,
        title="Keeping the member list", captions=["Figure 1. The files of the garden's records.",
                                                   "Figure 2. Settings for the member list."])),
    ("h06-nightsky", newsletter, dict(size=LETTER, gray=True, prose=["nightsky.txt", "ferry.txt"], start=4,
        body="DejaVuSerifCondensed.ttf", pt=10, accent=(40, 40, 40), masthead="QUARRY NOTES",
        issue="Observing group bulletin - winter", photo="hubble_deep_field.jpg", focus=(0.3, 0.7), zoom=1.6,
        aspect=0.8, caption="Faint galaxies in a long exposure.", tint=(225, 225, 225),
        box_title="Observing list", box_prose=["nightsky.txt"], box_h=700)),
    ("h07-skewed", table_photo, dict(size=LETTER, gray=True, prose=["garden.txt"], start=1, body="FreeSerif.ttf", pt=11,
        head="GARDEN ACCOUNTS", table_title="Table 3. Hives kept on the garden's strip", rows=SHOTS,
        tint=(190, 190, 190), stripe=(228, 228, 228), photo="chelsea.png", focus=(0.6, 0.5),
        caption="The cat that guards the seed store.", scan={"skew": -2.6, "jpeg": 75})),
    ("h08-text", text_only, dict(size=LETTER, prose=["nightsky.txt", "garden.txt"], start=2, body="FreeSerif.ttf",
        head="FreeSansBold.ttf", pt=11, cols=2, running="QUARRY NOTES", scan={"light": ("top", 0.12), "jpeg": 90})),
    ("h09-speckled", newsletter, dict(size=A4, prose=["letterpress.txt"], start=3, body="DejaVuSerif.ttf", pt=9.5,
        accent=(140, 30, 40), masthead="THE COMPOSING STICK", issue="Studio letter - number 12",
        tint=(248, 220, 220), box_title="Evening classes", box_prose=["letterpress.txt"], box_h=800,
        scan={"dust": True})),
    ("h10-blank", blank, dict(size=LETTER)),
]


def compose(name, recipe, v, seed, back):
    rng = np.random.default_rng([seed, sum(map(ord, name))])
    page, opts = recipe(name, rng, v)
    opts = {**opts, **v.get("scan", {})}
    img, truth = page.img, page.truth()
    if opts.get("dust"):
        img = scan_effects.dust(img, rng)
    if opts.get("show_through"):
        img = scan_effects.show_through(img, back)
    if "skew" in opts:
        img, moved = scan_effects.skew(img, opts["skew"], [p["box"] for p in truth["pictures"]] + truth["text"])
        for p, box in zip(truth["pictures"], moved):
            p["box"] = box
        truth["text"] = moved[len(truth["pictures"]):]
    img = scan_effects.scan(img, rng, page.gray, light=opts.get("light"))
    return img, truth, opts.get("jpeg")


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--set", choices=SEEDS, default="main")
    ap.add_argument("--out", required=True)
    args = ap.parse_args()
    os.makedirs(args.out, exist_ok=True)
    pages = MAIN if args.set == "main" else HOLDOUT
    seed = SEEDS[args.set]
    everything, back = [], None
    for name, recipe, v in pages:
        img, truth, jpeg = compose(name, recipe, v, seed, back)
        if back is None:
            back = img
        truth["file"] = name + (".jpg" if jpeg else ".png")
        path = os.path.join(args.out, truth["file"])
        if jpeg:
            img.save(path, quality=jpeg, dpi=(300, 300))
        else:
            img.save(path, dpi=(300, 300), compress_level=6)
        with open(os.path.join(args.out, name + ".json"), "w") as f:
            json.dump(truth, f, indent=1)
        everything.append(truth)
        print(f"{truth['file']}: {len(truth['pictures'])} pictures, {len(truth['text'])} text blocks", flush=True)
    with open(os.path.join(args.out, "truth.json"), "w") as f:
        json.dump({"set": args.set, "seed": seed, "pages": everything}, f, indent=1)


if __name__ == "__main__":
    main()
