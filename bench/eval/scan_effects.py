"""What a flatbed scanner does to a printed page.

Applied to a clean composition (float RGB or gray, 0..255), in the order a
physical scan sees it: the sheet lies skewed on the glass, dust and hairs sit
on it, the lamp lights it unevenly, the optics blur it, the paper's tint and
texture show, the sensor adds noise and lifts black, and the result is
quantised (and maybe stored as JPEG by the caller). Every random choice comes
from the generator passed in, so a page is the same bytes on every run.
"""
import numpy as np
from PIL import Image, ImageDraw, ImageFilter


def skew(page, degrees, truth_boxes):
    """Rotates the sheet about its centre (white beyond it) and returns the
    page and the boxes moved with it (axis-aligned hull of each corner set)."""
    w, h = page.size
    rotated = page.rotate(degrees, resample=Image.BICUBIC, fillcolor="white")
    a = np.deg2rad(degrees)
    c, s, cx, cy = np.cos(a), np.sin(a), w / 2, h / 2
    moved = []
    for x, y, bw, bh in truth_boxes:
        xs = np.array([x, x + bw, x, x + bw]) - cx
        ys = np.array([y, y, y + bh, y + bh]) - cy
        # PIL turns counter-clockwise on screen (y down).
        rx, ry = xs * c + ys * s + cx, -xs * s + ys * c + cy
        x0, y0 = max(0, int(np.floor(rx.min()))), max(0, int(np.floor(ry.min())))
        x1, y1 = min(w, int(np.ceil(rx.max()))), min(h, int(np.ceil(ry.max())))
        moved.append([x0, y0, x1 - x0, y1 - y0])
    return rotated, moved


def dust(page, rng, specks=900, blobs=6, hairs=2):
    """Dark specks of dust (0.5-3 px), a few smudges of dirt and hairs."""
    draw = ImageDraw.Draw(page)
    w, h = page.size
    dark = (lambda v: v) if page.mode == "L" else (lambda v: (v, v, v))
    for _ in range(specks):
        x, y, r = rng.uniform(0, w), rng.uniform(0, h), rng.uniform(0.5, 3.0)
        draw.ellipse((x - r, y - r, x + r, y + r), fill=dark(int(rng.uniform(20, 140))))
    smudge = Image.new("L", page.size, 0)
    sd = ImageDraw.Draw(smudge)
    for _ in range(blobs):
        x, y = rng.uniform(0, w), rng.uniform(0, h)
        rx, ry = rng.uniform(15, 70), rng.uniform(10, 45)
        sd.ellipse((x - rx, y - ry, x + rx, y + ry), fill=int(rng.uniform(25, 70)))
    for _ in range(hairs):
        pts = [(rng.uniform(0, w), rng.uniform(0, h))]
        heading = rng.uniform(0, 2 * np.pi)
        for _ in range(60):
            heading += rng.normal(0, 0.15)
            pts.append((pts[-1][0] + 6 * np.cos(heading), pts[-1][1] + 6 * np.sin(heading)))
        sd.line(pts, fill=170, width=2)
    smudge = smudge.filter(ImageFilter.GaussianBlur(3))
    a = np.asarray(page, np.float32)
    m = np.asarray(smudge, np.float32) / 255.0
    if a.ndim == 3:
        m = m[..., None]
    return Image.fromarray(np.clip(a * (1 - 0.8 * m), 0, 255).astype(np.uint8))


def show_through(page, back, strength=0.035):
    """The mirrored print of the sheet's back shining faintly through."""
    ghost = back.convert("L").resize(page.size).transpose(Image.FLIP_LEFT_RIGHT)
    ghost = ghost.filter(ImageFilter.GaussianBlur(2.5))
    g = 1 - strength * (1 - np.asarray(ghost, np.float32) / 255.0)
    a = np.asarray(page, np.float32)
    return Image.fromarray(np.clip(a * (g if a.ndim == 2 else g[..., None]), 0, 255).astype(np.uint8))


def smooth_field(rng, w, h, cell, amplitude):
    """Low-frequency noise (paper cloudiness): a coarse random grid upsampled."""
    coarse = rng.normal(0, 1, (h // cell + 2, w // cell + 2)).astype(np.float32)
    img = Image.fromarray(coarse, mode="F").resize((w + 2 * cell, h + 2 * cell), Image.BICUBIC)
    return 1 + amplitude * np.asarray(img)[cell:cell + h, cell:cell + w]


def scan(page, rng, gray, blur=0.75, noise=1.8, paper=(247, 244, 236), texture=0.009,
         light=None):
    """Returns the scanned page (PIL, 'L' if gray else 'RGB').

    light: None, or (edge, depth), the lamp's fall-off: 'left'/'right'/'top'
    darkened by up to `depth` (a share) at that edge, quadratically."""
    page = page.convert("L" if gray else "RGB").filter(ImageFilter.GaussianBlur(blur))
    a = np.asarray(page, np.float32) / 255.0
    h, w = a.shape[:2]
    field = smooth_field(rng, w, h, 96, texture)
    if light:
        edge, depth = light
        t = {"left": np.linspace(1, 0, w)[None, :], "right": np.linspace(0, 1, w)[None, :],
             "top": np.linspace(1, 0, h)[:, None]}[edge]
        field = field * (1 - depth * t ** 2)
    tint = np.float32(np.mean(paper)) if gray else np.array(paper, np.float32)
    black = 14.0
    if a.ndim == 3:
        field = field[..., None]
    a = black + (tint - black) * a * field
    a += rng.normal(0, noise, a.shape).astype(np.float32)
    return Image.fromarray(np.clip(np.rint(a), 0, 255).astype(np.uint8))
