#!/usr/bin/python3
"""Evaluates `tavrin` on a page set made by compose_pages.py.

  evaluate.py --pages DIR --out DIR [--tavrin PATH] [--tavrin-args "..."]

For every page, in sequence:
  1. `tavrin detect` (JSON report) and `tavrin compress` (PDF), each timed as
     a whole process, with the extra options of --tavrin-args (an option
     that `tavrin detect --help` does not list is passed to compress only);
  2. the PDF rendered at the page's resolution (the truth's dpi; 300 on
     the main and holdout sets) by `mutool draw` (gray for gray pages);
  3. the one-JPEG reference: the page as one 300-dpi JPEG, quality 75,
     wrapped in a PDF by img2pdf; "share" = tavrin PDF bytes / its bytes;
  4. a plain JPEG of the same size: at 300, 150 and 100 dpi (on a page of
     another resolution the same shares of it, labelled alike; reduced with
     Lanczos), the highest quality (bisection over 1..95) whose JPEG file is
     no larger than the tavrin PDF, decoded and scaled back to the page's
     resolution bilinearly as a viewer would. The best of the three is the one with
     the lowest CER, ties going to the higher worst picture PSNR; on a page
     without text the highest worst picture PSNR; on a page with neither,
     the highest whole-page PSNR;
  5. DjVu's wavelet codec: `c44` (one layer) with -size lowered until the
     .djvu file is no larger than the tavrin PDF, rendered by `ddjvu` at
     the page's size;
  6. tesseract (English, one thread) reads the truth's text blocks of the
     source page (cached by the page's and truth's hash in --cache) and of
     each rendering (see read_text); CER, worst picture PSNR
     and detection recall/precision are computed as metrics.py describes.
     CER is shown only for pages whose truth has text.
Prints one Markdown table (and writes it to OUT/table.md, every figure to
OUT/results.json). OUT also receives, per page, the PDF, the detection
report, the 300-dpi rendering (NAME-render.png) and an overlay
(NAME-boxes.png: truth green, detected red).
"""
import argparse
import hashlib
import io
import json
import os
import re
import shlex
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
from PIL import Image, ImageDraw

import metrics

Image.MAX_IMAGE_PIXELS = None
OCR_ENV = {**os.environ, "OMP_THREAD_LIMIT": "1"}


def run(cmd, **kw):
    """(seconds, completed process); raises with the tool's message on failure."""
    t = time.perf_counter()
    p = subprocess.run(cmd, capture_output=True, **kw)
    elapsed = time.perf_counter() - t
    if p.returncode:
        raise RuntimeError(f"{' '.join(map(str, cmd))}: exit {p.returncode}: {p.stderr.decode(errors='replace')[-400:]}")
    return elapsed, p


def options(tavrin, command):
    """{option: takes a value} as listed by `tavrin COMMAND --help`."""
    text = run([tavrin, command, "--help"])[1].stdout.decode()
    found = {}
    for m in re.finditer(r"^\s+(?:(-\w), )?(--[\w-]+)( [A-Z]+)?", text, re.M):
        for name in filter(None, (m[1], m[2])):
            found[name] = bool(m[3])
    return found


def detect_args(args, detect_opts, all_opts):
    out, i = [], 0
    while i < len(args):
        name = args[i].split("=")[0]
        n = 2 if all_opts.get(name) and "=" not in args[i] else 1
        if not args[i].startswith("-") or name in detect_opts:
            out += args[i:i + n]
        i += n
    return out


def read_text(arr, truth, tmp):
    """tesseract's reading of the truth's text blocks, in their order, each
    cropped (in gray, with a white margin) from the page with the picture
    boxes blanked. Reading block by block fixes the reading order, which a
    whole-page reading may change between two renderings of the same page;
    what OCR makes of a photograph would only add noise (a screenshot's
    small text is judged by PSNR)."""
    img = Image.fromarray(arr).convert("L")
    for x, y, w, h in (p["box"] for p in truth["pictures"]):
        img.paste(255, (x, y, x + w, y + h))
    paths = []
    for i, (x, y, w, h) in enumerate(truth["text"]):
        crop = Image.new("L", (w + 60, h + 60), 255)
        crop.paste(img.crop((x, y, x + w, y + h)), (30, 30))
        paths.append(os.path.join(tmp, f"block{i}.png"))
        crop.save(paths[-1], compress_level=1)
    listing = os.path.join(tmp, "blocks.txt")
    with open(listing, "w") as f:
        f.write("\n".join(paths) + "\n")
    return run(["tesseract", listing, "-", "--dpi", str(truth["dpi"]), "-l", "eng"], env=OCR_ENV)[1].stdout.decode()


def fit(img, size, gray):
    """The rendering in the page's mode and size (cropped, or padded white)."""
    img = img.convert("L" if gray else "RGB")
    if img.size != size:
        canvas = Image.new(img.mode, size, "white")
        canvas.paste(img, (0, 0))
        img = canvas
    return np.asarray(img)


def one_jpeg_pdf_bytes(src, tmp):
    path = os.path.join(tmp, "q75.jpg")
    Image.fromarray(src).save(path, quality=75, dpi=(300, 300))
    return len(run(["img2pdf", path])[1].stdout)


def jpeg_at(src, dpi, budget):
    """(quality, bytes, decoded at 300 dpi) of the best JPEG within budget at
    `dpi`, or None when even quality 1 is too large."""
    img = Image.fromarray(src)
    small = img.resize((max(1, round(img.width * dpi / 300)), max(1, round(img.height * dpi / 300))),
                       Image.LANCZOS) if dpi != 300 else img

    def encode(q):
        buf = io.BytesIO()
        small.save(buf, "JPEG", quality=q, dpi=(dpi, dpi))
        return buf.getvalue()

    lo, hi, best = 1, 95, None
    while lo <= hi:
        q = (lo + hi) // 2
        data = encode(q)
        if len(data) <= budget:
            best, lo = (q, data), q + 1
        else:
            hi = q - 1
    if best is None:
        return None
    decoded = Image.open(io.BytesIO(best[1])).resize(img.size, Image.BILINEAR)
    return best[0], len(best[1]), np.asarray(decoded)


def djvu_at(src, budget, tmp):
    """(bytes, decoded) of a one-layer c44 page within budget, or None.
    c44 -size stops at slice boundaries, so the target is bisected (from
    half the budget, to within 2 %)."""
    gray = src.ndim == 2
    pnm, djvu = os.path.join(tmp, "page.pnm"), os.path.join(tmp, "page.djvu")
    Image.fromarray(src).save(pnm, "PPM")
    lo, hi, best = budget // 2, budget, None
    while best is None or hi - lo > budget // 50:
        target = (lo + hi) // 2 if best is not None or lo > 100 else lo
        run(["c44", "-dpi", "300", "-size", str(target), pnm, djvu])
        if os.path.getsize(djvu) <= budget:
            lo, best = target, os.path.getsize(djvu)
            os.replace(djvu, djvu + ".best")
        elif target <= 100:
            return None
        else:
            hi = target
            if best is None:
                lo = max(100, lo // 2)
    out = os.path.join(tmp, "djvu.pnm")
    h, w = src.shape[:2]
    run(["ddjvu", "-format=" + ("pgm" if gray else "ppm"), f"-size={w}x{h}", djvu + ".best", out])
    return best, fit(Image.open(out), (w, h), gray)


def judge(src, arr, truth, src_text, tmp):
    """(CER or None, worst picture PSNR or None, whole-page PSNR or None);
    the whole page only counts on pages with neither text nor pictures."""
    boxes = [p["box"] for p in truth["pictures"]]
    with tempfile.TemporaryDirectory(dir=tmp) as own:
        c = metrics.cer(src_text, read_text(arr, truth, own)) if truth["text"] else None
    whole = None if truth["text"] or boxes else metrics.psnr(src, arr)
    return c, metrics.worst_box_psnr(src, arr, boxes), whole


def rank(result):
    """Sort key of a candidate (CER, worst PSNR, page PSNR): smaller is better."""
    c, worst, whole = result
    return (c or 0, -(worst if worst is not None else whole or 0))


def overlay(src, truth_boxes, found_boxes, path):
    img = Image.fromarray(src).convert("RGB")
    scale = 1000 / img.width
    img = img.resize((1000, round(img.height * scale)), Image.BILINEAR)
    d = ImageDraw.Draw(img)
    for boxes, colour, width in ((truth_boxes, (0, 170, 0), 5), (found_boxes, (220, 0, 0), 3)):
        for x, y, w, h in boxes:
            d.rectangle([round(v * scale) for v in (x, y, x + w, y + h)], outline=colour, width=width)
    img.save(path)


def evaluate_page(truth, pages, out, tavrin, args, dargs, cache):
    name, gray = truth["name"], not truth["colour"]
    page_path = os.path.join(pages, truth["file"])
    src = np.asarray(Image.open(page_path).convert("L" if gray else "RGB"))
    size = (truth["width"], truth["height"])
    pdf, report = os.path.join(out, name + ".pdf"), os.path.join(out, name + "-detect.json")
    t_detect, _ = run([tavrin, "detect", page_path, "--json", report,
                       "--overlay", os.path.join(out, name + "-tavrin-overlay.png"), "-q"] + dargs)
    t_compress, _ = run([tavrin, "compress", page_path, "-o", pdf, "-q"] + args)
    found = [[r["x"], r["y"], r["width"], r["height"]] for p in json.load(open(report))["pages"]
             for r in p["regions"]]
    row = {"page": name, "bytes": os.path.getsize(pdf), "t_compress": t_compress, "t_detect": t_detect}
    row["areas"] = metrics.detection_areas([p["box"] for p in truth["pictures"]], found)
    overlay(src, [p["box"] for p in truth["pictures"]], found, os.path.join(out, name + "-boxes.png"))

    with tempfile.TemporaryDirectory(dir=out) as tmp, ThreadPoolExecutor(2) as pool:
        key = hashlib.sha256(open(page_path, "rb").read() + json.dumps(truth).encode()).hexdigest()[:20]
        cached = os.path.join(cache, key + ".txt")
        if truth["text"] and not os.path.exists(cached):
            with open(cached, "w") as f:
                f.write(read_text(src, truth, tmp))
        src_text = open(cached).read() if truth["text"] else ""
        judged = lambda arr: pool.submit(judge, src, arr, truth, src_text, tmp)
        djvu = pool.submit(djvu_at, src, row["bytes"], tmp)
        render = os.path.join(out, name + "-render.png")
        run(["mutool", "draw", "-q", "-r", str(truth["dpi"]), "-c", "gray" if gray else "rgb", "-o", render, pdf])
        mine = judged(fit(Image.open(render), size, gray))
        row["share"] = row["bytes"] / one_jpeg_pdf_bytes(src, tmp)
        jpegs = [(f"{dpi} dpi q{got[0]}", judged(got[2]))
                 for dpi in (300, 150, 100) if (got := jpeg_at(src, dpi, row["bytes"]))]
        got = djvu.result()
        djvu = judged(got[1]) if got else None
        row["tavrin"] = mine.result()
        best = min(((rank(j.result()), j.result(), label) for label, j in jpegs), default=None,
                   key=lambda c: c[0])
        row["jpeg"], row["jpeg_used"] = (best[1], best[2]) if best else (None, "none fits")
        row["djvu"] = djvu.result() if djvu else None
    return row


def fmt(v, form, none="–"):
    return none if v is None else format(v, form)


def trio(row, index, form, scale=1.0):
    vals = [row[k][index] if row.get(k) else None for k in ("tavrin", "jpeg", "djvu")]
    return " / ".join(fmt(None if v is None else v * scale, form) for v in vals)


def markdown(rows):
    head = ("| page | bytes | share | CER % tavrin / JPEG / DjVu | worst picture PSNR dB tavrin / JPEG / DjVu "
            "| recall | precision | compress s | detect s | equal-size JPEG |")
    lines = [head, "|" + "---|" * 10]
    for r in rows:
        mt, t, mf, f = r["areas"]
        lines.append(f"| {r['page']} | {r['bytes']} | {r['share']:.1%} | {trio(r, 0, '.1f', 100)} | {trio(r, 1, '.1f')} "
                     f"| {fmt(mt / t if t else None, '.0%')} | {fmt(mf / f if f else None, '.0%')} "
                     f"| {r['t_compress']:.2f} | {r['t_detect']:.2f} | {r['jpeg_used']} |")
    mean = lambda v: sum(v) / len(v) if v else None
    col = lambda k, i: [r[k][i] for r in rows if r.get(k) and r[k][i] is not None]
    sums = [sum(r["areas"][i] for r in rows) for i in range(4)]
    total = sum(r["bytes"] for r in rows)
    one_jpeg = sum(r["bytes"] / r["share"] for r in rows)
    cers = " / ".join(fmt(None if mean(col(k, 0)) is None else 100 * mean(col(k, 0)), ".1f") for k in ("tavrin", "jpeg", "djvu"))
    psnrs = " / ".join(fmt(mean(col(k, 1)), ".1f") for k in ("tavrin", "jpeg", "djvu"))
    lines.append(f"| **all ({len(rows)})** | {total} | {total / one_jpeg:.1%} | {cers} | {psnrs} "
                 f"| {fmt(sums[0] / sums[1] if sums[1] else None, '.0%')} | {fmt(sums[2] / sums[3] if sums[3] else None, '.0%')} "
                 f"| {mean([r['t_compress'] for r in rows]):.2f} | {mean([r['t_detect'] for r in rows]):.2f} | |")
    lines.append("")
    lines.append("Summary row: total bytes, share of the summed one-JPEG PDFs, mean CER over pages with text, "
                 "mean of the pages' worst picture PSNR, recall and precision over all picture area, mean times.")
    for k, label in (("jpeg", "the equal-size JPEG"), ("djvu", "the equal-size DjVu page")):
        wins = sum(1 for r in rows if no_worse(r["tavrin"], r.get(k)))
        lines.append(f"tavrin no worse than {label} (CER and worst picture PSNR) on {wins} of {len(rows)} pages.")
    return "\n".join(lines)


def no_worse(mine, other):
    if other is None:
        return True
    cer_ok = mine[0] is None or other[0] is None or mine[0] <= other[0]
    psnr_ok = mine[1] is None or other[1] is None or mine[1] >= other[1]
    return cer_ok and psnr_ok


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--pages", required=True, help="folder written by compose_pages.py")
    ap.add_argument("--out", required=True)
    ap.add_argument("--tavrin", default="build/apps/tavrin/tavrin")
    ap.add_argument("--tavrin-args", default="", help="extra options of detect and compress")
    ap.add_argument("--cache", help="where the source pages' readings are kept (default OUT/../ocr-cache)")
    ap.add_argument("--only", help="evaluate only the pages whose name contains this")
    a = ap.parse_args()
    os.makedirs(a.out, exist_ok=True)
    cache = a.cache or os.path.join(os.path.dirname(os.path.abspath(a.out)), "ocr-cache")
    os.makedirs(cache, exist_ok=True)
    args = shlex.split(a.tavrin_args)
    detect_opts = options(a.tavrin, "detect")
    dargs = detect_args(args, detect_opts, {**options(a.tavrin, "compress"), **detect_opts})
    truth = json.load(open(os.path.join(a.pages, "truth.json")))
    rows = []
    for page in truth["pages"]:
        if a.only and a.only not in page["name"]:
            continue
        t = time.perf_counter()
        rows.append(evaluate_page(page, a.pages, a.out, a.tavrin, args, dargs, cache))
        print(f"{page['name']}: {time.perf_counter() - t:.0f} s", flush=True)
    table = markdown(rows)
    print(f"\ntavrin {' '.join(args) or '(defaults)'} on {truth['set']}\n\n{table}")
    with open(os.path.join(a.out, "table.md"), "w") as f:
        f.write(table + "\n")
    with open(os.path.join(a.out, "results.json"), "w") as f:
        json.dump({"set": truth["set"], "tavrin_args": args, "rows": rows}, f, indent=1)


if __name__ == "__main__":
    main()
