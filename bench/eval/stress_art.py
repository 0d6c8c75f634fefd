"""The pictures of the stress page set (sources in SOURCES.md). Each returns
a PIL image of the requested size in page pixels.

- cutout(): a product shot on white (the coffee cup cut out along drawn
  ellipses, with a soft shadow);
- vignette(): a photograph fading into the paper towards its edges;
- halftone(): a photograph as a 1-bit elliptical-dot screen in one ink,
  at `over` times the page resolution, so that the PDF rasteriser (and the
  screen's beat with the pixel grid: moire) decides what the scan shows;
  tint() is the same screen at one coverage (a screened tint box);
- icon(): a Tango icon rendered by rsvg-convert;
- plot(), equation(), survey_map(): matplotlib drawings (vector shapes
  rasterised at the page resolution);
- icon_window(): a file manager in icon view, drawn at screen resolution
  with Tango icons and printed at `scale` page pixels per screen pixel.
"""
import io
import subprocess

import numpy as np
from PIL import Image, ImageDraw, ImageFilter, ImageFont

import artwork

MATE = "/usr/share/backgrounds/mate/nature"
artwork.PHOTO_DIRS.append(MATE)  # the photographs this set adds to the shared loader
TANGO = "/usr/share/icons/Tango/scalable"
MPL_DATA = "/usr/share/matplotlib/mpl-data/sample_data"


def photo(name, w, h, rng, focus=(0.5, 0.5), zoom=1.0):
    return artwork.photo(name, w, h, rng, focus, zoom, grain=1.0)


def cutout(w, h, rng):
    """The coffee cup and saucer on white with a soft shadow below right."""
    src = artwork.load("coffee.png")
    mask = Image.new("L", src.size, 0)
    d = ImageDraw.Draw(mask)
    d.ellipse((76, 78, 480, 388), fill=255)
    d.ellipse((172, 16, 410, 205), fill=255)
    d.polygon([(172, 110), (410, 110), (380, 250), (200, 250)], fill=255)
    d.ellipse((395, 62, 425, 100), fill=255)
    pad = 60
    canvas = Image.new("RGB", (src.width + 2 * pad, src.height + 2 * pad), "white")
    shadow = Image.new("L", canvas.size, 0)
    ImageDraw.Draw(shadow).ellipse((pad + 96, pad + 120, pad + 510, pad + 420), fill=110)
    canvas.paste((120, 116, 110), (0, 0), shadow.filter(ImageFilter.GaussianBlur(22)))
    canvas.paste(src, (pad, pad), mask.filter(ImageFilter.GaussianBlur(1.5)))
    return canvas.resize((w, h), Image.LANCZOS, box=fit_box(canvas.size, w, h))


def fit_box(size, w, h):
    """The central crop of `size` with the aspect w:h."""
    sw, sh = size
    cw, ch = min(sw, sh * w / h), min(sh, sw * h / w)
    return ((sw - cw) / 2, (sh - ch) / 2, (sw + cw) / 2, (sh + ch) / 2)


def vignette(img, feather=0.35):
    """img fading to white outside an oval that fills 1 - feather of it."""
    w, h = img.size
    yy, xx = np.mgrid[0:h, 0:w]
    r = np.hypot((xx - w / 2) / (w / 2), (yy - h / 2) / (h / 2))
    alpha = np.clip((1 - r) / feather, 0, 1)[..., None] ** 1.5
    a = np.asarray(img, np.float32) * alpha + 255 * (1 - alpha)
    return Image.fromarray(np.uint8(np.rint(a)))


def _screen(coverage, period, angle):
    """1 where ink falls: an elliptical dot whose cells are `period` pixels."""
    h, w = coverage.shape
    yy, xx = np.mgrid[0:h, 0:w].astype(np.float32)
    a = np.deg2rad(angle)
    u = (xx * np.cos(a) + yy * np.sin(a)) / period
    v = (-xx * np.sin(a) + yy * np.cos(a)) / period
    spot = 0.5 - 0.3 * np.cos(2 * np.pi * u) - 0.2 * np.cos(2 * np.pi * v)
    return spot < coverage


def _inked(bits, ink):
    img = Image.fromarray(np.uint8(bits)).convert("P")
    img.putpalette([255, 255, 255, *ink] + [0] * 762)
    return img


def halftone(img, lpi, dpi, angle=45, over=3, ink=(20, 20, 20)):
    w, h = img.size
    big = img.convert("L").resize((w * over, h * over), Image.BICUBIC)
    coverage = 1 - np.asarray(big, np.float32) / 255
    return _inked(_screen(coverage, dpi * over / lpi, angle), ink)


def tint(w, h, share, lpi, dpi, angle=45, over=3, ink=(20, 20, 20)):
    return _inked(_screen(np.full((h * over, w * over), share, np.float32), dpi * over / lpi, angle), ink)


def icon(name, px):
    png = subprocess.run(["rsvg-convert", "-w", str(px), "-h", str(px), f"{TANGO}/{name}.svg"],
                         check=True, capture_output=True).stdout
    return Image.open(io.BytesIO(png)).convert("RGBA")


def _figure_png(fig, w, h):
    import matplotlib.pyplot as plt
    buf = io.BytesIO()
    fig.savefig(buf, format="png", dpi=fig.dpi, metadata={"Software": None})
    plt.close(fig)
    return Image.open(buf).convert("RGB").resize((w, h), Image.LANCZOS)


def _pyplot(w, h, dpi):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    plt.rcParams.update({"font.family": "serif", "font.serif": ["cmr10"], "mathtext.fontset": "cm",
                         "axes.formatter.use_mathtext": True, "font.size": 8})
    return plt, plt.figure(figsize=(w / dpi, h / dpi), dpi=dpi)


def plot(w, h, dpi, rng):
    """Measured decay with error bars, a fitted curve and a residual inset."""
    plt, fig = _pyplot(w, h, dpi)
    ax = fig.add_subplot()
    t = np.linspace(0.5, 12, 16)
    y = 3.1 * np.exp(-t / 4.2) + 0.25
    err = 0.08 + 0.05 * rng.random(t.size)
    ax.errorbar(t, y + rng.normal(0, 0.06, t.size), yerr=err, fmt="o", ms=3, color="k", capsize=2, lw=0.7)
    tt = np.linspace(0, 12.5, 200)
    ax.plot(tt, 3.1 * np.exp(-tt / 4.2) + 0.25, "k--", lw=0.8, label=r"fit, $\tau = 4.2$ h")
    ax.set_xlabel(r"time after release $t$ (h)")
    ax.set_ylabel(r"concentration $c$ (mg l$^{-1}$)")
    ax.legend(frameon=False)
    fig.tight_layout()
    return _figure_png(fig, w, h)


def equation(latex, points, dpi):
    """One display formula in Computer Modern, black on white, cropped."""
    plt, fig = _pyplot(4, 1, dpi)
    fig.text(0, 0.5, f"${latex}$", fontsize=points, va="center")
    buf = io.BytesIO()
    fig.savefig(buf, format="png", dpi=dpi, bbox_inches="tight", pad_inches=0.02)
    plt.close(fig)
    return Image.open(buf).convert("RGB")


def survey_map(w, h, dpi, rng):
    """Height tints and contours of matplotlib's topobathy sample, with
    rivers, roads and towns drawn over it, as a printed district map."""
    plt, fig = _pyplot(w, h, dpi)
    data = np.load(f"{MPL_DATA}/topobathy.npz")
    z = data["topo"][::-1].astype(float)
    ax = fig.add_axes((0, 0, 1, 1))
    ax.contourf(z, levels=14, cmap="gist_earth")
    ax.contour(z, levels=14, colors="#5a4a30", linewidths=0.35)
    ax.contour(z, levels=[0], colors="#1f4e9c", linewidths=1.2)
    ny, nx = z.shape
    for colour, width in (("#c0392b", 1.6), ("#c0392b", 1.6), ("#f1c40f", 1.1), ("#333333", 0.7)):
        p = rng.uniform([0, 0], [nx, ny])
        pts = [p]
        heading = rng.uniform(0, 2 * np.pi)
        for _ in range(60):
            heading += rng.normal(0, 0.25)
            pts.append(pts[-1] + 2.2 * np.array([np.cos(heading), np.sin(heading)]))
        pts = np.array(pts)
        ax.plot(pts[:, 0], pts[:, 1], color="white", lw=width + 1.2)
        ax.plot(pts[:, 0], pts[:, 1], color=colour, lw=width)
    for name in ("Aldmoor", "Kestle", "Brenhope", "Saltings", "Westcote"):
        x, y = rng.uniform([8, 8], [nx - 20, ny - 8])
        ax.plot(x, y, "s", color="black", ms=3)
        ax.text(x + 1.2, y + 0.8, name, fontsize=7, family="serif")
    ax.set_xlim(0, nx - 1)
    ax.set_ylim(0, ny - 1)
    ax.axis("off")
    return _figure_png(fig, w, h)


def icon_window(w, h, scale, items, rng):
    """A file manager window in icon view at (w / scale) x (h / scale)
    screen pixels, enlarged `scale` times with square pixels; items are
    (Tango icon, label) pairs."""
    sw, sh = w // scale, h // scale
    img = Image.new("RGB", (sw, sh), (250, 250, 249))
    d = ImageDraw.Draw(img)
    ui = ImageFont.truetype("/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf", 12)
    d.rectangle((0, 0, sw, 30), fill=(46, 52, 54))
    d.text((12, 8), "Photographs - Project archive", font=ui, fill="white")
    d.rectangle((0, 31, sw, 64), fill=(222, 222, 218))
    for i, label in enumerate(["Back", "Forward", "Up", "Reload", "Home"]):
        d.rounded_rectangle((8 + 70 * i, 36, 72 + 70 * i, 59), 4, fill=(238, 238, 236), outline=(160, 160, 160))
        d.text((16 + 70 * i, 41), label, font=ui, fill=(30, 30, 30))
    cols = max(1, (sw - 20) // 100)
    for k, (name, label) in enumerate(items):
        x, y = 20 + 100 * (k % cols), 80 + 92 * (k // cols)
        if y + 80 > sh:
            break
        ic = icon(name, 48)
        img.paste(ic, (x + 22, y), ic)
        d.text((x + 46 - ui.getlength(label) / 2, y + 56), label, font=ui, fill=(20, 20, 20))
    d.rectangle((0, sh - 22, sw, sh), fill=(222, 222, 218))
    d.text((10, sh - 19), f"{len(items)} items, {rng.integers(20, 90)} MB free", font=ui, fill=(60, 60, 60))
    d.rectangle((0, 0, sw - 1, sh - 1), outline=(40, 40, 40))
    return img.resize((sw * scale, sh * scale), Image.NEAREST).resize((w, h), Image.NEAREST)
