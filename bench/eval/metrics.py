"""The measures of the evaluation.

CER: tesseract's reading of a rendering against its reading of the source
page. Both are whitespace-normalised (every run of whitespace, line breaks
included, becomes one space; ends trimmed); CER = Levenshtein distance
(insertions, deletions, substitutions of characters, each costing 1) /
length of the source reading.

Picture PSNR: 10 log10(255^2 / MSE) inside a box, the MSE taken over all
channels of the page's own mode (gray pages in gray, colour pages in RGB);
identical pixels give 99 dB.

Detection: regions matched one-to-one at IoU >= 0.5, greedily from the
highest IoU down; recall = matched truth area / truth area, precision =
matched detected area / detected area (box areas in page pixels).
"""
import numpy as np


def normalise(text):
    return " ".join(text.split())


def levenshtein(a, b):
    """Edit distance, one row of the table at a time (numpy over b)."""
    if len(a) < len(b):
        a, b = b, a
    if not b:
        return len(a)
    bb = np.frombuffer(b.encode("utf-32-le"), dtype=np.uint32)
    prev = np.arange(len(b) + 1, dtype=np.int32)
    codes = np.frombuffer(a.encode("utf-32-le"), dtype=np.uint32)
    for i, c in enumerate(codes, 1):
        sub = prev[:-1] + (bb != c)
        cur = np.empty_like(prev)
        cur[0] = i
        cur[1:] = np.minimum(prev[1:] + 1, sub)
        # Insertions run along the row: a running minimum of (cur[j] - j) + j.
        cur = np.minimum.accumulate(cur - np.arange(len(cur))) + np.arange(len(cur))
        prev = cur
    return int(prev[-1])


def cer(source_text, other_text):
    src, other = normalise(source_text), normalise(other_text)
    return levenshtein(src, other) / len(src) if src else None


def psnr(a, b):
    mse = np.mean((a.astype(np.float64) - b.astype(np.float64)) ** 2)
    return 99.0 if mse == 0 else min(99.0, 10 * np.log10(255.0 ** 2 / mse))


def worst_box_psnr(source, other, boxes):
    """Lowest PSNR over the boxes (x, y, w, h), or None without boxes."""
    values = [psnr(source[y:y + h, x:x + w], other[y:y + h, x:x + w]) for x, y, w, h in boxes]
    return min(values) if values else None


def iou(a, b):
    ix = max(0, min(a[0] + a[2], b[0] + b[2]) - max(a[0], b[0]))
    iy = max(0, min(a[1] + a[3], b[1] + b[3]) - max(a[1], b[1]))
    inter = ix * iy
    return inter / (a[2] * a[3] + b[2] * b[3] - inter) if inter else 0.0


def match(truth, found, threshold=0.5):
    """Pairs (truth index, found index) matched one-to-one at IoU >= threshold."""
    pairs = sorted(((iou(t, f), i, j) for i, t in enumerate(truth) for j, f in enumerate(found)), reverse=True)
    used_t, used_f, out = set(), set(), []
    for v, i, j in pairs:
        if v >= threshold and i not in used_t and j not in used_f:
            used_t.add(i), used_f.add(j), out.append((i, j))
    return out


def detection_areas(truth, found):
    """(matched truth area, truth area, matched found area, found area)."""
    area = lambda b: b[2] * b[3]
    pairs = match(truth, found)
    return (sum(area(truth[i]) for i, _ in pairs), sum(map(area, truth)),
            sum(area(found[j]) for _, j in pairs), sum(map(area, found)))
