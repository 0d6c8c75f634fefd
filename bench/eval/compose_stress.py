#!/usr/bin/python3
"""Composes the 'stress' page set: pages made another way than compose_pages.py's,
to check that tuning on 'main' and 'holdout' carries over.

  compose_stress.py --out DIR

writes DIR/NAME.png (or .jpg) and DIR/NAME.json per page, and DIR/truth.json,
in the format of compose_pages.py (same keys, same meaning), so that
evaluate.py reads it unchanged.

How it differs: each page is laid out as SVG by svg_page.py, made a PDF by
rsvg-convert and rasterised by pdftoppm at the page's own resolution (300
dpi, two pages at 200 and two at 400; A4, one Letter, one A3); the fonts
are URW base 35 (C059, P052, Bookman, Nimbus Sans Narrow, URW Gothic, the
Z003 script) and Computer Modern; most photographs come from the MATE
desktop's nature backgrounds and skimage images the other sets leave out;
icons from the Tango theme; and stress_scan.py models the scan (paper
fibres, coloured or yellowed paper, bleed-through, fold shadows, a 4.6
degree turn with the lid in the corners, defocus, colour misregistration,
shot noise, JPEG at qualities 60-95).

Ground truth, as in the other sets: picture boxes (photo, halftone,
illustration, screenshot) in page pixels and one box per text block. Rules
of this set, where the other sets have no such case:
- a picture's box is what was printed of it: clipped to the sheet where it
  bleeds off the edge; on a white background (product shot, vignette) the
  extent of its visible pixels; text printed over a photograph belongs to
  the photograph (its box), not to the text;
- illustrations (drawings, maps, plots, logos, icons) are pictures, but a
  mark whose larger side is under 1 cm is not: it is neither picture nor
  text (small icons beside contact lines, a shop's 8 mm mark);
- flat colour is not a picture: a coloured banner with a white headline is
  a text block, a screened tint box is the text it holds, form boxes and
  rules are nothing;
- an equation block and a table are text; a plot is an illustration;
- handwriting in a script font is text.
On the turned page every box is the hull of its turned corners.

Deterministic: one seed for the set, every page its own generator seeded
from it and its name. truth-stress.json beside this script is a copy of
the truth written.
"""
import argparse
import itertools
import json
import os
import zlib

import numpy as np
from PIL import Image

import stress_art as art
import stress_scan as scan
from artwork import ink_box
from page_kit import columns, read_prose
from svg_page import A3, A4, INK, LETTER, Page, width_of, wrap

SEED = 3301
WHITE = (250, 249, 245)


def prose(names, start=0):
    """An endless stream of (kind, text) headings and paragraphs."""
    items = [it for it in read_prose(names) if it[0] in ("head", "para")]
    return itertools.islice(itertools.cycle(items), start, None)


def caption(p, x, y, width, text, points=8):
    return p.block(x, y + p.pt(points) * 1.6, width, text, "sans-italic", points, fill="#444")


def heading(p, x, y, text, font, points, fill=INK):
    """A heading line whose top is at y; returns the y below it."""
    p.label(x, y + p.pt(points) * 0.95, text, font, points, fill)
    return y + p.pt(points) * 1.45


# --- the pages ----------------------------------------------------------------

def catalogue(name, rng):
    """Product shots on white and very light photographs in a 2 x 2 grid."""
    p = Page(name, "catalogue", A4)
    x0, x1 = p.mm(18), p.w - p.mm(18)
    p.image(art.icon("places/user-home", p.mm(8)), x0, p.mm(16), fmt="PNG")  # 8 mm mark: no picture
    p.label(x0 + p.mm(11), p.mm(16) + p.pt(17), "Harbour Street Homeware", "gothic-demi", 20)
    p.label(x0 + p.mm(11), p.mm(30), "Autumn catalogue. Prices include delivery within the county.", "gothic", 9.5,
            fill="#555555")
    p.line(x0, p.mm(36), x1, p.mm(36), stroke="#b23a1f", width=4)
    xs, cw = columns(x0, x1, 2, p.mm(10))
    ih = round(cw * 0.62)
    items = [
        (lambda: art.cutout(cw, ih, rng), "ink", "Espresso cup and saucer", "Glazed stoneware in harbour red, "
         "hand finished in the town's own pottery. The saucer takes a teaspoon and a biscuit; both pieces are "
         "safe in the dishwasher and the microwave.", "14.50"),
        (lambda: art.vignette(art.photo("YellowFlower.jpg", cw, ih, rng, (0.55, 0.5))), "ink",
         "Greetings card, marigold", "Printed on heavy uncoated board from a photograph taken in the walled "
         "garden, with a plain inside and a recycled envelope. Sold singly or in packs of six.", "2.80"),
        (lambda: art.photo("Aqua.jpg", cw, ih, rng, (0.55, 0.5)), "box", "Art print, water drop",
         "A high-speed photograph printed on matt archival paper, forty by thirty centimetres, signed on the "
         "back and sent rolled in a card tube.", "32.00"),
        (lambda: art.photo("Wood.jpg", cw, ih, rng, (0.5, 0.5)), "box", "Chopping board, bleached ash",
         "Cut from one plank of ash and oiled by hand. Each board is slightly different in grain and colour; "
         "the one shown measures forty five by thirty centimetres.", "38.00"),
    ]
    for k, (make, extent, title, text, price) in enumerate(items):
        x, y = xs[k % 2], p.mm(44) + (k // 2) * (ih + p.mm(56))
        img = make()
        p.image(img, x, y, kind="photo", source=title, box=ink_box(img, x, y) if extent == "ink" else None)
        y = heading(p, x, y + ih + p.mm(4), title, "serif-bold", 12)
        y = p.block(x, y + p.pt(9.5), cw, text, "serif", 9.5, justify=True)
        p.label(x, y + p.pt(4), price, "sans-bold", 12, fill="#b23a1f")
    p.block(x0, p.h - p.mm(28), x1 - x0, "Order by telephone or at the shop on Harbour Street, open every day "
            "except Tuesday from ten until five. Goods may be returned within thirty days in their packaging.",
            "gothic", 8.5)
    return p, dict(jpeg=(85, 2))


def dark_borders(name, rng):
    """A fundus photograph on its black ground, a framed print and a moon."""
    p = Page(name, "dark-border", A4)
    x0, x1 = p.mm(20), p.w - p.mm(20)
    y = heading(p, x0, p.mm(18), "Looking Closely", "book-bold", 26)
    xs, cw = columns(x0, x1, 2, p.mm(8))
    side = cw
    p.image(art.photo("retina.jpg", side, side, rng), xs[0], y + p.mm(4), kind="photo", source="retina.jpg")
    caption(p, xs[0], y + p.mm(4) + side, cw, "The back of a healthy eye, photographed through the pupil.")
    p.flow([(xs[1], y + p.mm(4), cw, y + p.mm(4) + side)], prose(["survey.txt"], 2), "book", 10)
    y += p.mm(4) + side + p.mm(22)
    fw, fh, frame = x1 - x0, p.mm(88), p.mm(5)
    p.rect(x0, y, fw, fh, fill="#111111")
    p.image(art.photo("TwoWings.jpg", fw - 2 * frame, fh - 2 * frame, rng, (0.6, 0.45)), x0 + frame, y + frame)
    p.picture("photo", [x0, y, fw, fh], "TwoWings.jpg")
    y = caption(p, x0, y + fh, fw, "Seeds leaving a dandelion head, mounted in a black frame for the exhibition.")
    mw = p.mm(45)
    p.image(art.photo("moon.png", mw, mw, rng), x1 - mw, y, kind="photo", source="moon.png")
    p.flow([(x0, y, x1 - mw - x0 - p.mm(8), p.h - p.mm(20))], prose(["nightsky.txt"], 3), "book", 10)
    return p, dict(sensor=dict(gamma=1.08))


def bleed(name, rng):
    """A photograph bleeding off the top and right edges of a Letter page,
    folded in three for the envelope."""
    p = Page(name, "bleed", LETTER)
    pw, ph = round(p.w * 0.6), p.mm(120)
    p.image(art.photo("Dune.jpg", pw + p.mm(5), ph + p.mm(5), rng, (0.5, 0.6)), p.w - pw, -p.mm(5),
            kind="photo", source="Dune.jpg")
    x0 = p.mm(16)
    y = heading(p, x0, p.mm(24), "Dune", "bookman-demi", 30)
    p.block(x0, y + p.pt(12), p.w - pw - x0 - p.mm(8), "A walk along the coast path from the harbour to the "
            "lighthouse, with the marram grass in seed.", "bookman", 12)
    xs, cw = columns(x0, p.w - p.mm(16), 3, p.mm(6))
    p.flow([(x, ph + p.mm(10), cw, p.h - p.mm(18)) for x in xs], prose(["harbour.txt"], 0), "bookman", 9.5,
           head_font="bookman-demi", head_points=11)
    return p, dict(paper=(250, 247, 238), folds=[(1 / 3, 0), (2 / 3, 0)])


def contact_sheet(name, rng):
    """Six small photographs in a grid with captions, scanned out of focus."""
    p = Page(name, "contact-sheet", A4, colour=False)
    x0, x1 = p.mm(20), p.w - p.mm(20)
    y = heading(p, x0, p.mm(18), "Members' prints, autumn meeting", "narrow-bold", 20)
    xs, cw = columns(x0, x1, 3, p.mm(7))
    ph = round(cw * 0.72)
    shots = [("cell.png", "A cell floating in saline"), ("motorcycle_left.png", "Garage, late evening"),
             ("LadyBird.jpg", "Ladybird on a grass stem"), ("RainDrops.jpg", "After the shower"),
             ("microaneurysms.png", "Retina detail"), ("GreenMeadow.jpg", "The meadow in May")]
    for k, (photo, text) in enumerate(shots):
        x, top = xs[k % 3], y + p.mm(4) + (k // 3) * (ph + p.mm(20))
        p.image(art.photo(photo, cw, ph, rng), x, top, kind="photo", source=photo)
        caption(p, x, top + ph, cw, f"{k + 1}. {text}", 8.5)
    top = y + p.mm(4) + 2 * (ph + p.mm(20)) + p.mm(4)
    xs, cw = columns(x0, x1, 2, p.mm(8))
    p.flow([(x, top, cw, p.h - p.mm(22)) for x in xs], prose(["harbour.txt"], 4), "narrow", 10,
           head_font="narrow-bold", head_points=11)
    return p, dict(sensor=dict(blur=1.7))


def poster(name, rng):
    """Headline printed over a full-bleed photograph; details below it."""
    p = Page(name, "poster", A4)
    ph = round(p.h * 0.66)
    p.image(art.photo("Garden.jpg", p.w, ph, rng, (0.6, 0.5)), 0, 0, kind="photo", source="Garden.jpg")
    x0 = p.mm(16)
    p.label(x0, p.mm(40), "SUMMER", "gothic-demi", 64, fill="white", record=False)
    p.label(x0, p.mm(40) + p.pt(62), "FLOWER SHOW", "gothic-demi", 64, fill="white", record=False)
    p.label(x0, p.mm(40) + p.pt(100), "in the walled garden", "gothic", 24, fill="white", record=False)
    y = ph + p.mm(14)
    y = heading(p, x0, y, "Saturday 9 and Sunday 10 August, ten until six", "gothic-demi", 20, fill="#7a2e0c")
    xs, cw = columns(x0, p.w - p.mm(16), 2, p.mm(10))
    p.block(xs[0], y + p.pt(12), cw, "Judging of the open classes on Saturday morning, with the prize giving at "
            "four. Plant stall, teas in the orangery and a brass band on the lawn on Sunday afternoon.", "gothic", 12)
    p.block(xs[1], y + p.pt(12), cw, "Entry forms from the garden shop or the harbour museum. Adults four pounds, "
            "children free. The garden is step free; assistance dogs only.", "gothic", 12)
    p.block(x0, p.h - p.mm(16), p.w - 2 * x0, "Saltings Garden Club, registered charity. Photograph: marigold in "
            "the walled garden. Printed on recycled paper.", "gothic", 8, fill="#555555")
    return p, dict(jpeg=(95, 0))


def banner(name, rng):
    """A full-width coloured banner with a white headline, a dark photograph
    right below it, text beside and under."""
    p = Page(name, "banner", A4)
    bh = p.mm(46)
    p.rect(0, 0, p.w, bh, fill="#0f5560")
    x0, x1 = p.mm(18), p.w - p.mm(18)
    p.label(x0, p.mm(24), "Weather Watch", "gothic-demi", 44, fill="white")
    p.label(x0, p.mm(37), "The coastal station's quarterly report", "gothic", 14, fill="white")
    pw, ph = round(p.w * 0.55), p.mm(92)
    p.image(art.photo("Storm.jpg", pw, ph, rng, (0.5, 0.4)), 0, bh, kind="photo", source="Storm.jpg")
    p.flow([(pw + p.mm(8), bh + p.mm(8), x1 - pw - p.mm(8), bh + ph)], prose(["nightsky.txt"], 1), "serif", 10)
    xs, cw = columns(x0, x1, 2, p.mm(8))
    top = bh + ph + p.mm(10)
    p.flow([(x, top, cw, p.h - p.mm(20)) for x in xs], prose(["harbour.txt"], 6), "serif", 10,
           head_font="sans-bold", head_points=11)
    return p, dict(sensor=dict(register=0.8))


def logos(name, rng):
    """A letterhead with an emblem, small contact icons (marks, not pictures),
    service icons of 18 mm (illustrations) and an icon-view screenshot."""
    p = Page(name, "logos", A4)
    x0, x1 = p.mm(18), p.w - p.mm(18)
    e = p.mm(24)
    p.add(f'<g transform="translate({x0},{p.mm(14)})"><circle cx="{e / 2}" cy="{e / 2}" r="{e / 2}" fill="#1b4f8a"/>'
          f'<path d="M{e * .12},{e * .62} Q{e * .3},{e * .42} {e * .5},{e * .6} T{e * .88},{e * .58} L{e * .82},'
          f'{e * .8} Q{e * .5},{e * .95} {e * .18},{e * .8} Z" fill="#ffffff"/>'
          f'<circle cx="{e * .66}" cy="{e * .32}" r="{e * .1}" fill="#f2b705"/></g>')
    p.picture("illustration", [x0, p.mm(14), e, e], "emblem")
    p.label(x0 + e + p.mm(6), p.mm(28), "Saltings Harbour Trust", "sans-bold", 24, fill="#1b4f8a")
    contacts = [("apps/internet-mail", "office@saltings-trust.example"), ("apps/internet-web-browser",
                "saltings-trust.example"), ("apps/office-calendar", "Open Monday to Friday")]
    s, cx = p.mm(7), x0 + e + p.mm(6)
    for icon, text in contacts:  # 7 mm icons: marks, not pictures
        p.image(art.icon(icon, s), cx, p.mm(33), fmt="PNG")
        cx += s + p.mm(2) + p.label(cx + s + p.mm(2), p.mm(33) + s * 0.75, text, "sans", 8.5) + p.mm(8)
    p.line(x0, p.mm(46), x1, p.mm(46), stroke="#1b4f8a", width=3)
    y = heading(p, x0, p.mm(54), "What the trust does", "sans-bold", 15)
    s = p.mm(18)
    services = [("devices/camera-photo", "Photographs the harbour wall every month from the same six points, so "
                 "that movement of the stones can be measured."),
                ("devices/printer", "Prints the tide tables, the museum guide and the newsletter, and posts them "
                 "free of charge to every household in the parish."),
                ("devices/network-wireless", "Runs the weather station on the pier head, whose readings are "
                 "published every ten minutes for fishermen and visitors.")]
    for icon, text in services:
        p.image(art.icon(icon, s), x0, y, fmt="PNG", kind="illustration", source=f"Tango {icon}")
        p.block(x0 + s + p.mm(8), y + p.pt(11), x1 - x0 - s - p.mm(8), text, "sans", 11)
        y += s + p.mm(8)
    ww, wh = x1 - x0, p.mm(95)
    items = [("places/folder", "Surveys"), ("places/folder", "Tides"), ("places/folder-remote", "Shared"),
             ("mimetypes/image-x-generic", "wall-01.png"), ("mimetypes/image-x-generic", "wall-02.png"),
             ("mimetypes/x-office-document", "minutes.odt"), ("mimetypes/x-office-spreadsheet", "levels.ods"),
             ("mimetypes/text-x-generic", "notes.txt"), ("mimetypes/audio-x-generic", "gulls.ogg"),
             ("mimetypes/video-x-generic", "storm.webm"), ("mimetypes/package-x-generic", "backup.tar"),
             ("apps/office-calendar", "rota.ics")]
    p.image(art.icon_window(ww, wh, 3, items, rng), x0, y, fmt="PNG", kind="screenshot", source="Tango icons")
    y = caption(p, x0, y + wh, ww, "The trust's photograph archive as it appears on the office computer.", 9)
    p.flow([(x0, y, x1 - x0, p.h - p.mm(20))], prose(["harbour.txt"], 2), "sans", 10.5)
    return p, {}


def science(name, rng):
    """A two-column paper at 400 dpi: plot, display equations, ruled table."""
    p = Page(name, "science", A4, dpi=400, colour=False)
    x0, x1 = p.mm(20), p.w - p.mm(20)
    p.label(p.w / 2, p.mm(26), "Dispersion of a Tracer Release in a Tidal Creek", "cm", 17, anchor="middle")
    p.label(p.w / 2, p.mm(34), "R. Penhallow and J. M. Treloar, Estuary Field Station", "cm", 11, anchor="middle")
    abstract = read_prose(["survey.txt"])[2][1]
    y = p.block(x0 + p.mm(12), p.mm(44), x1 - x0 - p.mm(24), abstract, "cm", 9, justify=True)
    xs, cw = columns(x0, x1, 2, p.mm(7))
    top = y + p.mm(2)
    eq_y = top + p.mm(62)
    stream = prose(["survey.txt"], 1)
    p.flow([(xs[0], top, cw, eq_y)], stream, "cm", 9.5, head_font="cm", head_points=11)
    for k, tex in enumerate([r"\frac{\partial c}{\partial t} + u\,\frac{\partial c}{\partial x} = "
                             r"D\,\frac{\partial^2 c}{\partial x^2} - k\,c",
                             r"c(x,t) = \frac{M}{A\sqrt{4\pi D t}}\,\exp\left(-\frac{(x-ut)^2}{4Dt}\right)"]):
        img = art.equation(tex, 11, p.dpi)
        ey = eq_y + p.mm(4) + k * p.mm(16)
        p.image(img, xs[0] + (cw - img.width) / 2, ey, fmt="PNG")
        p.text_box(xs[0] + (cw - img.width) / 2, ey, xs[0] + (cw + img.width) / 2, ey + img.height)
        p.label(xs[0] + cw, ey + img.height / 2 + p.pt(4), f"({k + 1})", "cm", 9.5, anchor="end")
    p.flow([(xs[0], eq_y + p.mm(38), cw, p.h - p.mm(22))], stream, "cm", 9.5, head_font="cm", head_points=11)
    plh = round(cw * 0.72)
    p.image(art.plot(cw, plh, p.dpi, rng), xs[1], top, fmt="PNG", kind="illustration", source="plot")
    y = caption(p, xs[1], top + plh, cw, "Figure 2. Concentration at station 3 with the fitted decay.")
    ty = y + p.mm(4)
    p.label(xs[1], ty, "Table 1. Fitted parameters at the six stations.", "cm", 9)
    rows = [("Station", "x (m)", "Peak (mg/l)", "Arrival (h)")] + [
        (str(i + 1), str(200 * i), f"{3.2 * np.exp(-i / 3.5):.2f}", f"{0.4 + 0.55 * i:.1f}") for i in range(6)]
    rh, t0 = p.pt(9.5) * 1.5, ty + p.mm(3)
    for r, row in enumerate(rows):
        for c, cell in enumerate(row):
            p.label(xs[1] + p.mm(2) + c * cw / 4, t0 + (r + 0.75) * rh + (p.mm(1) if r else 0), cell, "cm", 9.5,
                    record=False)
    p.text_box(xs[1], t0, xs[1] + cw, t0 + len(rows) * rh + p.mm(2))
    for yy, wdt in ((t0, 3), (t0 + rh + p.mm(0.5), 1.5), (t0 + len(rows) * rh + p.mm(2), 3)):
        p.line(xs[1], yy, xs[1] + cw, yy, width=wdt)
    p.flow([(xs[1], t0 + len(rows) * rh + p.mm(8), cw, p.h - p.mm(22))], stream, "cm", 9.5,
           head_font="cm", head_points=11)
    return p, dict(bleed=0.06)


def form(name, rng):
    """A form at 200 dpi: boxes, comb fields, check boxes, a ruled grid,
    filled in by hand; folded in half; stored as JPEG quality 60."""
    p = Page(name, "form", A4, dpi=200, colour=False)
    x0, x1 = p.mm(16), p.w - p.mm(16)
    p.label(x0, p.mm(22), "Application for a Mooring Permit", "sans-bold", 18)
    p.label(x0, p.mm(29), "Please write in capitals and tick the boxes that apply. Form HM-4", "sans", 9)
    hand = dict(font="script", points=14, fill="#16233f")
    y = p.mm(38)
    fields = [("Surname", "Penhallow"), ("First names", "Jory Martin"), ("Address", "4 Chapel Steps, Saltings"),
              ("Name of vessel", "Morwenna"), ("Length overall (m)", "7.4")]
    for label, value in fields:
        p.rect(x0, y, x1 - x0, p.mm(11), stroke=INK, width=1.5)
        p.label(x0 + p.mm(2), y + p.mm(4), label, "sans", 7.5)
        p.label(x0 + p.mm(45), y + p.mm(9), value, hand["font"], hand["points"], hand["fill"])
        y += p.mm(12)
    p.label(x0, y + p.mm(5), "Postcode", "sans", 9)
    code = "SA4 9QT"
    for i in range(8):
        bx = x0 + p.mm(25) + i * p.mm(7)
        p.rect(bx, y, p.mm(7), p.mm(8), stroke=INK, width=1.5)
        if i < len(code) and code[i] != " ":
            p.label(bx + p.mm(3.5), y + p.mm(6.5), code[i], "sans", 13, fill="#16233f", anchor="middle",
                    record=False)
    p.text_box(x0 + p.mm(25), y, x0 + p.mm(81), y + p.mm(8))
    y += p.mm(16)
    p.label(x0, y, "Type of mooring requested:", "sans-bold", 9.5)
    y += p.mm(4)
    for i, opt in enumerate(["Swinging mooring in the outer basin", "Pontoon berth, inner harbour",
                             "Drying berth against the wall", "Winter storage ashore"]):
        by = y + i * p.mm(8)
        p.rect(x0, by, p.mm(5), p.mm(5), stroke=INK, width=1.5)
        if i in (1, 3):
            p.line(x0 + p.mm(0.8), by + p.mm(0.8), x0 + p.mm(4.2), by + p.mm(4.2), stroke="#16233f", width=2.5)
            p.line(x0 + p.mm(4.2), by + p.mm(0.8), x0 + p.mm(0.8), by + p.mm(4.2), stroke="#16233f", width=2.5)
        p.label(x0 + p.mm(8), by + p.mm(4.2), opt, "sans", 9.5)
    y += p.mm(36)
    p.label(x0, y, "Previous moorings (last three years)", "sans-bold", 9.5)
    y += p.mm(3)
    cols = [0, 0.18, 0.55, 0.78, 1]
    head = ["Year", "Harbour", "Berth", "Fee paid"]
    rows = [("2021", "Porthmellin", "B 14", "310.00"), ("2022", "Saltings", "Pontoon 3", "385.00"),
            ("2023", "Saltings", "Pontoon 3", "402.50"), ("", "", "", ""), ("", "", "", "")]
    rh = p.mm(9)
    for r in range(len(rows) + 2):
        p.line(x0, y + r * rh, x1, y + r * rh, width=1.5 if r not in (0, 1) else 3)
    for c in cols:
        p.line(x0 + c * (x1 - x0), y, x0 + c * (x1 - x0), y + (len(rows) + 1) * rh, width=1.5)
    for c, text in enumerate(head):
        p.label(x0 + cols[c] * (x1 - x0) + p.mm(2), y + p.mm(6.3), text, "sans-bold", 9)
    for r, row in enumerate(rows):
        for c, text in enumerate(row):
            if text:
                p.label(x0 + cols[c] * (x1 - x0) + p.mm(3), y + (r + 1) * rh + p.mm(7), text, hand["font"], 13,
                        hand["fill"])
    y += (len(rows) + 1) * rh + p.mm(10)
    y = p.block(x0, y + p.pt(9), x1 - x0, "I declare that the vessel named above is insured against third party "
                "claims of at least two million pounds and that I will keep it in a seaworthy condition while it is "
                "moored in the harbour. I understand that the permit may be withdrawn if the fees are not paid "
                "within thirty days of the invoice.", "sans", 9, justify=True)
    p.line(x0, y + p.mm(14), x0 + p.mm(80), y + p.mm(14), width=1.5)
    p.label(x0, y + p.mm(19), "Signature", "sans", 8)
    p.label(x0 + p.mm(4), y + p.mm(12), "J. M. Penhallow", "script", 20, fill="#16233f")
    p.line(x1 - p.mm(60), y + p.mm(14), x1, y + p.mm(14), width=1.5)
    p.label(x1 - p.mm(60), y + p.mm(19), "Date", "sans", 8)
    p.label(x1 - p.mm(55), y + p.mm(12), "14 March 2024", "script", 16, fill="#16233f")
    p.rect(x0, p.h - p.mm(24), x1 - x0, p.mm(14), fill="#e6e6e6")
    p.label(x0 + p.mm(3), p.h - p.mm(18), "For office use only. Permit number, berth and date of issue.", "sans", 8)
    return p, dict(folds=[(1 / 2, 0)], jpeg=(60, 2), sensor=dict(blur=0.6))


def handwriting(name, rng):
    """A letter in a script font on ruled, yellowed notebook paper."""
    p = Page(name, "handwriting", A4)
    rule, margin = p.mm(8.5), p.mm(28)
    for k in range(4, int(p.h / rule)):
        p.line(0, k * rule, p.w, k * rule, stroke="#a8c4e0", width=2)
    p.line(margin, 0, margin, p.h, stroke="#e08a8a", width=2.5)
    letter = ("Saltings, Thursday evening. Dear Morwenna, thank you for the parcel of seeds, which came on Monday "
              "with the rain. The marigolds are already in their trays on the kitchen sill and the sweet peas can go "
              "out at the end of the month if the frosts keep away. The harbour has been busy all week because the "
              "masons are back on the wall, and the noise of the compressor starts at seven. Jory says the new stones "
              "are the colour of cheese and will never weather, but he said the same of the chapel steps. We have "
              "had no post boat since Friday and the shop is out of bread again, so I am baking. Come down in May "
              "when the garden opens, and bring the children; there is room in the loft for all of you. "
              "The museum wants the old photographs for its calendar, and I have lent them the one of "
              "Grandfather on the quay with the herring barrels. They say it will be the picture for December. "
              "Mrs Treloar has asked after you twice and sends her best. The weather has turned mild again, the "
              "swallows are not back yet but the first primroses are out along the lane to the chapel, and the "
              "boats went out this morning for the first time in a fortnight. "
              "With love from us both, Tamsin")
    fill, size = "#1d2d6b", p.pt(17)
    width = (p.w - margin - p.mm(18)) * 0.9
    y = 5 * rule - p.mm(1.5)
    for ln in wrap(letter, "script", size, width):
        x = margin + p.mm(4) + rng.normal(0, 3)
        for word in ln.split():  # each word a little off the line and of its own size, as written
            p.words(x, y + rng.normal(0, 1.6), [word], "script", size * rng.uniform(0.97, 1.03), fill, 0)
            x += width_of(word, "script", size) + size * rng.uniform(0.28, 0.4)
        y += rule
    p.text_box(margin, 5 * rule - p.mm(1.5) - size, p.w - p.mm(10), y - rule + 0.4 * size)
    return p, dict(paper=(246, 236, 208), aged=dict(spots=14))


def halftone_tint(name, rng):
    """A halftone photograph in a blue ink (150 lpi at 300 dpi: moire) beside
    a box tinted with the same screen at 18 per cent."""
    p = Page(name, "halftone-tint", A4)
    x0, x1 = p.mm(18), p.w - p.mm(18)
    y = heading(p, x0, p.mm(18), "The Salting Sheds", "serif-bold", 24)
    xs, cw = columns(x0, x1, 2, p.mm(8))
    p.flow([(x, y + p.mm(2), cw, y + p.mm(70)) for x in xs], prose(["harbour.txt"], 3), "serif", 10)
    top = y + p.mm(76)
    ph = p.mm(95)
    blue = (22, 44, 110)
    img = art.photo("motorcycle_left.png", cw, ph, rng, (0.45, 0.5))
    p.image(art.halftone(img, 150, p.dpi, ink=blue), xs[0], top, cw, ph, fmt="PNG", kind="halftone",
            source="motorcycle_left.png")
    caption(p, xs[0], top + ph, cw, "The workshop in the third shed, from the trust's newsletter.")
    p.image(art.tint(cw, ph, 0.18, 150, p.dpi, ink=blue), xs[1], top, cw, ph, fmt="PNG")
    ty = heading(p, xs[1] + p.mm(6), top + p.mm(5), "From the garden", "serif-bold", 13, fill="#162c6e")
    p.flow([(xs[1] + p.mm(6), ty, cw - p.mm(12), top + ph - p.mm(5))], prose(["garden.txt"], 2), "serif", 10,
           justify=False)
    p.flow([(x, top + ph + p.mm(16), cw, p.h - p.mm(20)) for x in xs], prose(["harbour.txt"], 8), "serif", 10,
           head_font="serif-bold", head_points=11)
    return p, dict(paper=(248, 248, 244))


def district_map(name, rng):
    """A coloured district map (an illustration) with a legend and text."""
    p = Page(name, "map", A4)
    x0, x1 = p.mm(18), p.w - p.mm(18)
    y = heading(p, x0, p.mm(18), "Walks from the Harbour", "gothic-demi", 24, fill="#30502a")
    mw, mh = x1 - x0, p.mm(130)
    p.image(art.survey_map(mw, mh, p.dpi, rng), x0, y + p.mm(3), fmt="PNG", kind="illustration",
            source="topobathy.npz")
    p.rect(x0, y + p.mm(3), mw, mh, stroke=INK, width=3)
    ly = y + p.mm(3) + mh + p.mm(6)
    for k, (colour, text) in enumerate([("#c0392b", "Main road"), ("#f1c40f", "Lane"), ("#333333", "Footpath"),
                                        ("#1f4e9c", "High-water line")]):
        lx = x0 + k * (mw / 4)
        p.rect(lx, ly, p.mm(8), p.mm(3), fill=colour)  # swatches under 1 cm: marks
        p.label(lx + p.mm(10), ly + p.mm(3), text, "gothic", 9)
    xs, cw = columns(x0, x1, 3, p.mm(7))
    p.flow([(x, ly + p.mm(10), cw, p.h - p.mm(20)) for x in xs], prose(["garden.txt", "harbour.txt"], 1),
           "gothic", 9.5, head_font="gothic-demi", head_points=10.5)
    return p, dict(sensor=dict(register=0.6))


def newspaper(name, rng):
    """An A3 newspaper page at 200 dpi on newsprint: six narrow columns,
    coarse halftones, show-through of the back."""
    p = Page(name, "newspaper", A3, dpi=200, colour=False)
    x0, x1 = p.mm(14), p.w - p.mm(14)
    p.label(p.w / 2, p.mm(30), "The Saltings Gazette", "book-bold", 52, anchor="middle")
    p.line(x0, p.mm(35), x1, p.mm(35), width=2)
    p.label(x0, p.mm(40), "Friday 14 March", "narrow", 9)
    p.label(x1, p.mm(40), "Price 80p", "narrow", 9, anchor="end")
    p.line(x0, p.mm(42), x1, p.mm(42), width=4)
    xs, cw = columns(x0, x1, 6, p.mm(4))
    span = lambda n: n * cw + (n - 1) * p.mm(4)
    y = p.mm(47)
    hl = p.block(x0, y + p.pt(30), span(4), "Harbour wall to be rebuilt after winter storms undermine the "
                 "seaward end", "book-bold", 30, leading=1.05)
    ph = p.mm(110)
    img = art.photo("Dune.jpg", round(span(4)), ph, rng, (0.4, 0.5))
    p.image(art.halftone(img, 100, p.dpi), x0, hl, span(4), ph, fmt="PNG", kind="halftone", source="Dune.jpg")
    cap = caption(p, x0, hl + ph, span(4), "The coast path above the harbour, where the council plans a new "
                  "viewing point.", 7.5)
    body = prose(["harbour.txt", "ferry.txt", "bees.txt", "garden.txt"], 0)
    bottom = p.h - p.mm(16)
    p.flow([(x, cap, cw, bottom) for x in xs[:4]], body, "narrow", 7.5, leading=1.18,
           head_font="narrow-bold", head_points=9)
    side = xs[4]
    sh = heading(p, side, y, "Crab prices at a ten-year high", "narrow-bold", 14)
    p.flow([(side, sh, span(2), sh + p.mm(40))], body, "narrow", 7.5, leading=1.18)
    sp = sh + p.mm(44)
    p.image(art.halftone(art.photo("LadyBird.jpg", round(span(2)), p.mm(55), rng), 85, p.dpi, angle=15), side, sp,
            span(2), p.mm(55), fmt="PNG", kind="halftone", source="LadyBird.jpg")
    c2 = caption(p, side, sp + p.mm(55), span(2), "Spring comes early to the allotments.", 7.5)
    p.flow([(x, c2, cw, bottom) for x in xs[4:]], body, "narrow", 7.5, leading=1.18,
           head_font="narrow-bold", head_points=9)
    for x, top in zip(xs[1:], [cap, cap, cap, y, c2]):
        p.line(x - p.mm(2), top, x - p.mm(2), bottom, width=1)
    return p, dict(paper=(238, 232, 214), fibres=0.012, bleed=0.12, aged=dict(edge=(0.9, 0.85, 0.7), spots=0))


def coloured_paper(name, rng):
    """A club notice printed on salmon paper, a photograph printed on it."""
    p = Page(name, "coloured-paper", A4)
    x0, x1 = p.mm(22), p.w - p.mm(22)
    p.label(p.w / 2, p.mm(32), "Saltings Garden Club", "bookman-demi", 30, anchor="middle")
    p.label(p.w / 2, p.mm(44), "Spring programme and plant sale", "bookman", 15, anchor="middle")
    pw, ph = p.mm(80), p.mm(60)
    p.image(art.photo("FreshFlower.jpg", pw, ph, rng, (0.55, 0.45)), x1 - pw, p.mm(56), kind="photo",
            source="FreshFlower.jpg")
    y = p.mm(60)
    for date, text in [("4 April", "Pricking out and potting on, in the church hall"),
                       ("18 April", "Visit to the walled garden, meet at the gate"),
                       ("2 May", "Plant sale on the quay, stalls from nine"),
                       ("16 May", "Talk: dry gardens by the sea"),
                       ("30 May", "Open gardens weekend, tickets from the museum")]:
        p.label(x0, y, date, "bookman-demi", 11)
        y = p.block(x0 + p.mm(26), y, x1 - pw - x0 - p.mm(32), text, "bookman", 11)
    p.flow([(x0, max(y, p.mm(56) + ph) + p.mm(6), x1 - x0, p.h - p.mm(24))], prose(["garden.txt"], 0),
           "bookman", 11, head_font="bookman-demi", head_points=12)
    return p, dict(paper=(250, 212, 190))


def nearly_empty(name, rng):
    """One small photograph and a caption at 400 dpi; the back shows through."""
    p = Page(name, "nearly-empty", A4, dpi=400)
    x, y, w, h = p.mm(32), p.mm(48), p.mm(36), p.mm(26)
    p.image(art.photo("TwoWings.jpg", w, h, rng, (0.6, 0.45)), x, y, kind="photo", source="TwoWings.jpg")
    p.block(x, y + h + p.mm(5), p.mm(70), "Plate 7. Dandelion seeds, photographed for the spring exhibition.",
            "book-italic", 9)
    p.label(p.w / 2, p.h - p.mm(15), "17", "book", 9, anchor="middle")
    return p, dict(bleed=0.06)


def turned(name, rng):
    """A magazine page turned by 4.6 degrees on the glass (dark lid in the
    corners), two photographs, stored as JPEG quality 70."""
    p = Page(name, "turned", A4)
    x0, x1 = p.mm(18), p.w - p.mm(18)
    y = heading(p, x0, p.mm(20), "Greener Than It Looks", "serif-bold", 26)
    pw, ph = round((x1 - x0) * 0.64), p.mm(85)
    p.image(art.photo("GreenMeadow.jpg", pw, ph, rng), x0, y + p.mm(2), kind="photo", source="GreenMeadow.jpg")
    p.flow([(x0 + pw + p.mm(7), y + p.mm(2), x1 - x0 - pw - p.mm(7), y + p.mm(2) + ph)],
           prose(["garden.txt"], 3), "serif", 10)
    top = y + ph + p.mm(10)
    xs, cw = columns(x0, x1, 3, p.mm(7))
    bh = round(cw * 0.8)
    p.image(art.photo("Blinds.jpg", cw, bh, rng), xs[2], top, kind="photo", source="Blinds.jpg")
    cap = caption(p, xs[2], top + bh, cw, "Light through a hosta leaf.", 8.5)
    stream = prose(["bees.txt", "garden.txt"], 2)
    p.flow([(xs[0], top, cw, p.h - p.mm(20)), (xs[1], top, cw, p.h - p.mm(20)), (xs[2], cap, cw, p.h - p.mm(20))],
           stream, "serif", 10, head_font="serif-bold", head_points=11)
    return p, dict(turn=(4.6, (0.16, 0.16, 0.17)), jpeg=(70, 2))


PAGES = [("s01-catalogue", catalogue), ("s02-dark-border", dark_borders), ("s03-bleed", bleed),
         ("s04-contact-sheet", contact_sheet), ("s05-poster", poster), ("s06-banner", banner), ("s07-logos", logos),
         ("s08-science", science), ("s09-form", form), ("s10-handwriting", handwriting),
         ("s11-halftone-tint", halftone_tint), ("s12-map", district_map), ("s13-newspaper", newspaper),
         ("s14-coloured-paper", coloured_paper), ("s15-nearly-empty", nearly_empty), ("s16-turned", turned)]


def compose(name, recipe, back):
    """(scanned PIL image, truth, printed sheet, JPEG settings or None)."""
    rng = np.random.default_rng([SEED, zlib.crc32(name.encode())])
    page, opts = recipe(name, rng)
    sheet = page.render()
    h, w = sheet.shape[:2]
    a = sheet * scan.paper(rng, h, w, opts.get("paper", WHITE), opts.get("fibres", 0.008))
    if "aged" in opts:
        a = scan.aged(a, rng, **opts["aged"])
    if opts.get("bleed") and back is not None:
        a = scan.bleed_through(a, back, opts["bleed"], page.dpi / 90)
    for share, axis in opts.get("folds", []):
        a = scan.fold(a, round(share * a.shape[axis]), axis, width=page.dpi / 16)
    truth = page.truth()
    if "turn" in opts:
        boxes = [p["box"] for p in truth["pictures"]] + truth["text"]
        a, moved = scan.turn(a, opts["turn"][0], boxes, opts["turn"][1])
        for p, box in zip(truth["pictures"], moved):
            p["box"] = box
        truth["text"] = moved[len(truth["pictures"]):]
    img = Image.fromarray(scan.sensor(a, rng, **{"blur": 0.45 * page.dpi / 300, **opts.get("sensor", {})}))
    return (img if page.colour else img.convert("L")), truth, sheet, opts.get("jpeg")


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--out", required=True)
    args = ap.parse_args()
    os.makedirs(args.out, exist_ok=True)
    everything, back = [], None
    for name, recipe in PAGES:
        img, truth, back, jpeg = compose(name, recipe, back)
        truth["file"] = name + (".jpg" if jpeg else ".png")
        path, dpi = os.path.join(args.out, truth["file"]), (truth["dpi"],) * 2
        if jpeg:
            img.save(path, quality=jpeg[0], subsampling=jpeg[1], dpi=dpi)
        else:
            img.save(path, dpi=dpi, compress_level=6)
        with open(os.path.join(args.out, name + ".json"), "w") as f:
            json.dump(truth, f, indent=1)
        everything.append(truth)
        print(f"{truth['file']}: {truth['width']} x {truth['height']} at {truth['dpi']} dpi, "
              f"{len(truth['pictures'])} pictures, {len(truth['text'])} text blocks", flush=True)
    with open(os.path.join(args.out, "truth.json"), "w") as f:
        json.dump({"set": "stress", "seed": SEED, "pages": everything}, f, indent=1)


if __name__ == "__main__":
    main()
