"""Shared by the Python tests: the tavrin program and generated pages."""

import os
import subprocess

import numpy as np

PROGRAM = os.environ.get("TAVRIN_PROGRAM", "tavrin")


def program(*args, check=True):
    """Runs the tavrin program; returns the completed process."""
    done = subprocess.run([PROGRAM, *map(str, args)], capture_output=True, text=True)
    assert not check or done.returncode == 0, done.stderr
    return done


def page(seed=1, height=1000, width=800, rgb=True):
    """A small 300-dpi page: lines of text-like strokes above a photograph
    (smooth waves with grain), which the detector finds."""
    rng = np.random.default_rng(seed)
    p = np.full((height, width, 3), 245, np.uint8)
    for y in range(60, height * 3 // 10, 24):
        for x in range(60, width - 60, 14):
            if rng.random() < 0.8:
                p[y:y + 14, x:x + 3 + int(rng.integers(0, 6))] = 20
    h, w = height * 2 // 5, width * 5 // 8
    yy, xx = np.mgrid[0:h, 0:w]
    photo = np.clip(128 + 60 * np.sin(xx / 23) * np.cos(yy / 31) + rng.normal(0, 18, (h, w)), 0, 255)
    p[height * 21 // 50:][:h, width * 3 // 16:][:, :w] = (photo[..., None] * [1, 0.8, 0.6]).astype(np.uint8)
    return p if rgb else p[..., 0].copy()


def write_pnm(path, array):
    """PGM or PPM: a page file the program reads, without resolution."""
    kind = "P6" if array.ndim == 3 else "P5"
    with open(path, "wb") as f:
        f.write(f"{kind}\n{array.shape[1]} {array.shape[0]}\n255\n".encode() + array.tobytes())
    return str(path)
