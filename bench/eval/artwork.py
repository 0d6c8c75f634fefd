"""The pictures placed on the evaluation pages (sources in SOURCES.md).

- photo(): a photograph from a Debian package, cropped to the box's aspect
  ratio around a focus point, resized, with the grain of a print;
- halftone(): the same printed through a real dot screen (one ink at 45
  degrees, or CMYK at 15/75/0/45 degrees), drawn at 4x the scan resolution
  and averaged down as a scanner's sensor does;
- clipart(): an openclipart drawing rendered by rsvg-convert;
- chart(): a bar or line chart drawn by matplotlib from seeded data;
- screenshot(): a desktop window with small UI text, drawn at screen
  resolution and printed at twice the size.
Every function returns an RGB PIL image of exactly the requested size.
"""
import io
import os
import subprocess

import numpy as np
from PIL import Image, ImageDraw

from page_kit import font

PHOTO_DIRS = ["/usr/lib/python3/dist-packages/skimage/data",
              "/usr/share/matplotlib/mpl-data/sample_data"]
CLIPART_DIR = "/usr/share/openclipart/svg"


def load(name):
    for d in PHOTO_DIRS:
        path = os.path.join(d, name)
        if os.path.exists(path):
            return Image.open(path).convert("RGB")
    raise FileNotFoundError(name)


def photo(name, w, h, rng, focus=(0.5, 0.5), zoom=1.0, grain=2.5):
    """Crops `name` to the aspect w:h (1/zoom of the largest such crop,
    centred near `focus` in 0..1 units), resizes and adds print grain."""
    src = load(name)
    sw, sh = src.size
    cw = min(sw, sh * w / h) / zoom
    ch = min(sh, cw * h / w)
    x0 = min(max(focus[0] * sw - cw / 2, 0), sw - cw)
    y0 = min(max(focus[1] * sh - ch / 2, 0), sh - ch)
    img = src.resize((w, h), Image.LANCZOS, box=(x0, y0, x0 + cw, y0 + ch))
    a = np.asarray(img, np.float32) + rng.normal(0, grain, (h, w, 1)).astype(np.float32)
    return Image.fromarray(np.clip(np.rint(a), 0, 255).astype(np.uint8))


def _screen(coverage, lpi, angle, over, y0):
    """Ink (1) where the rotated spot function lies below the coverage;
    y0 anchors the screen to the page when printing in strips."""
    h, w = coverage.shape
    period = 300 * over / lpi
    yy, xx = np.mgrid[y0:y0 + h, 0:w].astype(np.float32)
    a = np.deg2rad(angle)
    u = (xx * np.cos(a) + yy * np.sin(a)) / period
    v = (-xx * np.sin(a) + yy * np.cos(a)) / period
    spot = 0.5 - (np.cos(2 * np.pi * u) + np.cos(2 * np.pi * v)) / 4
    return (spot < coverage).astype(np.float32)


def halftone(img, lpi, colour, over=4, strip=128):
    """Prints img (RGB PIL) with a dot screen of `lpi` lines per inch."""
    w, h = img.size
    big = np.asarray(img.resize((w * over, h * over), Image.BILINEAR), np.float32) / 255.0
    if colour:
        k = 1 - big.max(axis=2)
        cmy = (1 - big - k[..., None]) / np.maximum(1 - k[..., None], 1e-3)
        inks = [(cmy[..., 0], 15, (0.0, 0.62, 0.9)), (cmy[..., 1], 75, (0.92, 0.05, 0.55)),
                (cmy[..., 2], 0, (1.0, 0.92, 0.0)), (k, 45, (0.1, 0.1, 0.1))]
    else:
        inks = [(1 - big.mean(axis=2), 45, (0.08, 0.08, 0.08))]
    out = np.empty((h, w, 3), np.float32)
    for r0 in range(0, h, strip):
        r1 = min(h, r0 + strip)
        rows = slice(r0 * over, r1 * over)
        acc = np.ones(((r1 - r0) * over, w * over, 3), np.float32)
        for cov, angle, ink in inks:
            dots = _screen(cov[rows], lpi, angle, over, r0 * over)
            acc *= 1 - dots[..., None] * (1 - np.array(ink, np.float32))
        out[r0:r1] = acc.reshape(r1 - r0, over, w, over, 3).mean(axis=(1, 3))
    return Image.fromarray(np.clip(np.rint(out * 255), 0, 255).astype(np.uint8))


def clipart(path, w, h):
    """The drawing fitted into w x h (aspect kept, centred) on white."""
    png = subprocess.run(["rsvg-convert", "-w", str(w), "-a", "-b", "white",
                          os.path.join(CLIPART_DIR, path)], check=True, capture_output=True).stdout
    art = Image.open(io.BytesIO(png)).convert("RGB")
    art.thumbnail((w, h), Image.LANCZOS)
    out = Image.new("RGB", (w, h), "white")
    out.paste(art, ((w - art.width) // 2, (h - art.height) // 2))
    return out


def ink_box(img, x, y):
    """The box (x, y, w, h) of the non-white pixels of img placed at x, y."""
    a = np.asarray(img.convert("L")) < 235
    rows, cols = np.flatnonzero(a.any(axis=1)), np.flatnonzero(a.any(axis=0))
    return [x + cols[0], y + rows[0], cols[-1] - cols[0] + 1, rows[-1] - rows[0] + 1]


def chart(kind, w, h, rng, title):
    """A bar chart (kind 'bar') or a line chart ('line') from seeded data."""
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    fig = plt.figure(figsize=(w / 300, h / 300), dpi=300)
    ax = fig.add_subplot()
    months = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]
    if kind == "bar":
        ax.bar(months, rng.integers(300, 1900, 12), color="#5b7fa6", edgecolor="black", linewidth=0.6)
        ax.set_ylabel("crossings per week")
    else:
        t = np.arange(12)
        for label, base in (("north site", 20), ("south site", 17)):
            ax.plot(months, base + 1.5 * np.sin(t / 2) + rng.normal(0, 0.4, 12), marker="o", label=label)
        ax.set_ylabel("sky brightness, mag/arcsec²")
        ax.legend(frameon=False)
    ax.set_title(title, fontsize=10)
    ax.grid(axis="y", linewidth=0.4)
    fig.tight_layout()
    buf = io.BytesIO()
    fig.savefig(buf, format="png", dpi=300, metadata={"Software": None})
    plt.close(fig)
    return Image.open(buf).convert("RGB").resize((w, h), Image.LANCZOS)


def screenshot(kind, w, h, rng):
    """A window ('files' browser or 'settings' dialog) drawn at half of w x h
    in screen pixels, then printed at twice the size."""
    sw, sh = w // 2, h // 2
    img = Image.new("RGB", (sw, sh), (242, 242, 240))
    d = ImageDraw.Draw(img)
    px = lambda n: n * 72 / 300  # font() takes points at 300 dpi; these are screen pixels
    ui, bold, small = font("DejaVuSans.ttf", px(11)), font("DejaVuSans-Bold.ttf", px(11)), font("DejaVuSans.ttf", px(10))
    d.rectangle((0, 0, sw - 1, 28), fill=(53, 84, 128))
    d.text((12, 7), "Ferry timetable — Files" if kind == "files" else "Preferences", font=bold, fill="white")
    for i, c in enumerate(((220, 90, 80), (230, 190, 70), (110, 180, 90))):
        d.ellipse((sw - 70 + 20 * i, 9, sw - 58 + 20 * i, 21), fill=c)
    d.rectangle((0, 29, sw - 1, 58), fill=(230, 230, 228))
    for i, label in enumerate(["File", "Edit", "View", "Go", "Help"]):
        d.text((12 + 52 * i, 37), label, font=ui, fill=(30, 30, 30))
    if kind == "files":
        d.rectangle((0, 59, 170, sh - 1), fill=(225, 229, 235))
        for i, label in enumerate(["Home", "Documents", "Pictures", "Timetables", "Archive", "Trash"]):
            if i == 3:
                d.rectangle((4, 68 + 26 * i, 166, 90 + 26 * i), fill=(170, 195, 230))
            d.text((16, 72 + 26 * i), label, font=ui, fill=(30, 30, 30))
        cols = [("Name", 182), ("Size", sw - 250), ("Modified", sw - 160)]
        for label, x in cols:
            d.text((x, 66), label, font=bold, fill=(40, 40, 40))
        d.line((172, 88, sw, 88), fill=(180, 180, 180))
        for r in range((sh - 100) // 22):
            y = 94 + 22 * r
            if r % 2:
                d.rectangle((171, y - 3, sw - 1, y + 18), fill=(250, 250, 250))
            d.text((182, y), f"crossing-{2019 + r % 5}-{r % 12 + 1:02d}.csv", font=small, fill=(20, 20, 20))
            d.text((sw - 250, y), f"{rng.integers(2, 900)} kB", font=small, fill=(60, 60, 60))
            d.text((sw - 160, y), f"{r % 28 + 1:02d}/{r % 12 + 1:02d}/2023", font=small, fill=(60, 60, 60))
    else:
        labels = ["Show hidden files", "Sort folders before files", "Open items with one click",
                  "Ask before emptying the trash", "Show thumbnails for local files",
                  "Count items in folders", "Use compact list view"]
        for i, label in enumerate(labels):
            y = 80 + 34 * i
            d.rectangle((24, y, 40, y + 16), outline=(90, 90, 90), fill="white")
            if rng.random() < 0.5:
                d.line((27, y + 8, 31, y + 13, 38, y + 3), fill=(40, 90, 170), width=3)
            d.text((52, y), label, font=ui, fill=(25, 25, 25))
        y = 80 + 34 * len(labels) + 10
        d.text((24, y), "Default view zoom:", font=ui, fill=(25, 25, 25))
        d.rectangle((200, y - 4, 320, y + 22), outline=(120, 120, 120), fill="white")
        d.text((210, y), "100 %", font=ui, fill=(25, 25, 25))
        for i, label in enumerate(["Cancel", "Apply"]):
            x = sw - 220 + 110 * i
            d.rounded_rectangle((x, sh - 50, x + 95, sh - 18), 6, fill=(53, 84, 128) if i else (225, 225, 225))
            d.text((x + 18, sh - 43), label, font=ui, fill="white" if i else (25, 25, 25))
    d.rectangle((0, 0, sw - 1, sh - 1), outline=(90, 90, 90))
    return img.resize((w, h), Image.BILINEAR)
