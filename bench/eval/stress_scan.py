"""The scan model of the stress page set, unlike scan_effects.py in every step.

The printed sheet (RGB, 0..1, ink on white) is first made physical: its
ink is multiplied onto a paper whose colour may be yellowed or dyed, with
directional fibres and mottling, aged edges and foxing spots; the reverse
side bleeds through. Then the scanner sees it: a fold shadow, the sheet
turned on the glass with the lid showing in the corners, defocus, the
colour channels of the line sensor out of register, a tone curve,
signal-dependent (shot) noise with fixed-pattern column gains and lamp
flicker by row, and finally 8-bit quantisation (JPEG quality and chroma
subsampling are chosen by the caller). Every random draw comes from the
generator passed in.
"""
import numpy as np
from PIL import Image
from scipy import ndimage


def noise(rng, shape):
    return rng.standard_normal(shape, dtype=np.float32)


def paper(rng, h, w, colour, fibres=0.008, mottle=0.006):
    """Reflectance of the sheet (h, w, 3): fibres stretched along x, and a
    cloudy mottle a few millimetres across."""
    fib = ndimage.gaussian_filter(noise(rng, (h, w)), (1.0, 3))
    fib *= fibres / max(fib.std(), 1e-6)
    cloud = Image.fromarray(noise(rng, (h // 40 + 2, w // 40 + 2)), "F").resize((w + 80, h + 80), Image.BICUBIC)
    tex = 1 + fib + mottle * np.asarray(cloud)[:h, :w]
    return np.clip(tex[..., None] * (np.array(colour, np.float32) / 255), 0, 1)


def aged(a, rng, edge=(0.80, 0.70, 0.50), width=0.06, spots=0):
    """Browner towards the sheet's edges (a share `width` of its width) and
    `spots` brown foxing spots."""
    h, w = a.shape[:2]
    dy = np.minimum(np.arange(h), np.arange(h)[::-1])[:, None]
    dx = np.minimum(np.arange(w), np.arange(w)[::-1])[None, :]
    t = np.exp(-np.minimum(dy, dx) / (width * w))[..., None]
    a = a * (1 - t * (1 - np.array(edge, np.float32)))
    brown = 1 - np.array((0.75, 0.55, 0.35), np.float32)
    for _ in range(spots):
        cy, cx, r = int(rng.uniform(0, h)), int(rng.uniform(0, w)), rng.uniform(4, 18)
        y0, x0, n = max(0, cy - 60), max(0, cx - 60), 121
        yy, xx = np.ogrid[y0:min(h, y0 + n), x0:min(w, x0 + n)]
        m = np.exp(-((yy - cy) ** 2 + (xx - cx) ** 2) / (2 * r * r))[..., None]
        a[y0:y0 + n, x0:x0 + n] *= 1 - 0.25 * m * brown
    return a


def bleed_through(a, back, strength, blur):
    """The reverse side (an RGB 0..1 sheet) seen through the paper: mirrored,
    blurred by the paper's thickness, a share `strength` of its darkness."""
    h, w = a.shape[:2]
    ghost = np.asarray(Image.fromarray(np.uint8(back.mean(axis=2) * 255)).resize((w, h)), np.float32) / 255
    ghost = ndimage.gaussian_filter(ghost[:, ::-1], blur)
    return a * (1 - strength * (1 - ghost))[..., None]


def fold(a, at, axis, depth=0.16, width=18):
    """A crease across the sheet at row (axis 0) or column (axis 1) `at`:
    a shadow on one side of it and a thin highlight on the other."""
    n = a.shape[axis]
    t = (np.arange(n) - at) / width
    profile = 1 - depth * np.exp(-np.where(t < 0, t * t, 9 * t * t)) + 0.03 * np.exp(-((t - 0.8) * 4) ** 2)
    shape = (n, 1, 1) if axis == 0 else (1, n, 1)
    return a * profile.reshape(shape)


def turn(a, degrees, boxes, lid):
    """The sheet turned by `degrees` (counter-clockwise) about its centre,
    the scanner's lid (`lid`, RGB 0..1) showing in the corners; returns the
    image and each box (x, y, w, h) moved: the hull of its turned corners,
    clipped to the image."""
    h, w = a.shape[:2]
    out = np.stack([ndimage.rotate(a[..., c], degrees, reshape=False, order=1, cval=-1) for c in range(3)], -1)
    out = np.where(out < 0, np.array(lid, np.float32), out)
    r = np.deg2rad(degrees)
    c, s, cx, cy = np.cos(r), np.sin(r), (w - 1) / 2, (h - 1) / 2
    moved = []
    for x, y, bw, bh in boxes:
        xs, ys = np.array([x, x + bw, x, x + bw]) - cx, np.array([y, y, y + bh, y + bh]) - cy
        rx, ry = xs * c + ys * s + cx, -xs * s + ys * c + cy
        x0, y0 = max(0, int(np.floor(rx.min()))), max(0, int(np.floor(ry.min())))
        x1, y1 = min(w, int(np.ceil(rx.max()))), min(h, int(np.ceil(ry.max())))
        moved.append([x0, y0, x1 - x0, y1 - y0])
    return out, moved


def sensor(a, rng, blur=0.7, register=0.0, gamma=1.0, black=0.07, white=0.97, shot=0.012, read=0.004,
           columns=0.004, flicker=0.002):
    """The optics and sensor: Gaussian defocus (`blur` px), red and blue
    rows shifted by +/- `register` px, a tone curve from `black` to `white`
    with `gamma`, shot noise of standard deviation shot * sqrt(level) plus
    `read` noise, column gains and row offsets (fixed pattern, flicker)."""
    h, w = a.shape[:2]
    a = ndimage.gaussian_filter(a, (blur, blur, 0))
    if register:
        a[..., 0] = ndimage.shift(a[..., 0], (register, 0), order=1, mode="nearest")
        a[..., 2] = ndimage.shift(a[..., 2], (-register, 0), order=1, mode="nearest")
    a = black + (white - black) * np.clip(a, 0, 1) ** gamma
    a = a * (1 + columns * noise(rng, (1, w, 1)))
    a += flicker * ndimage.gaussian_filter1d(noise(rng, (h, 1, 1)), 3, axis=0) * 3
    a += np.sqrt(np.clip(a, 0, 1)) * shot * noise(rng, a.shape)
    a += read * noise(rng, a.shape)
    return np.clip(np.rint(a * 255), 0, 255).astype(np.uint8)
