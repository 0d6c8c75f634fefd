#!/usr/bin/python3
"""How the detector's cost grows: runs bench_vs_detector (A5, A4, A3 and the A4
page at 600 dpi; ours serial and parallel, OpenCV's pieces on 1 and 2 threads,
leptonica's segmentation), keeps the best repetition of each contender in
bench/results/detector-scaling.csv and plots it into detector-scaling.png:
time against the page's pixels, and time against threads on the A4 page.

    bench/plot_scaling.py [--build build-bench] [-- BENCHMARK OPTIONS]  # measure, plot
    bench/plot_scaling.py --replot                                      # plot the CSV again
"""
import argparse
import csv
import json
import os
import subprocess
import sys
import tempfile

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
RESULTS = os.path.join(HERE, "results")
CSV = os.path.join(RESULTS, "detector-scaling.csv")
PNG = os.path.join(RESULTS, "detector-scaling.png")
# Pixels of each page as the contenders receive it (sample_inputs.h).
PAGES = {"A5": 2480 * 1754, "A4": 2480 * 3508, "A3": 4960 * 3508, "A4-600dpi": 4960 * 7016}
STYLE = {
    "ours_serial": ("ours, serial", "C0", "-"),
    "ours_parallel": ("ours, parallel flag (2 threads)", "C0", "--"),
    "opencv_1thread": ("OpenCV pieces, 1 thread", "C1", "-"),
    "opencv_2threads": ("OpenCV pieces, 2 threads", "C1", "--"),
    "leptonica": ("leptonica pixGetRegionsBinary", "C2", "-"),
}


def measure(build, extra):
    program = os.path.join(build, "bench", "bench_vs_detector")
    if not os.access(program, os.X_OK):
        sys.exit(f"{program} missing: build with -DTAVRIN_BUILD_BENCH=ON first")
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run([program, f"--benchmark_out={out.name}", "--benchmark_out_format=json"]
                       + extra, check=True, stdout=subprocess.DEVNULL)
        report = json.load(open(out.name))
    rows = []
    for b in report["benchmarks"]:
        if b.get("aggregate_name") != "best":
            continue
        page, who = b["run_name"].split("/")[:2]
        rows.append({"page": page, "contender": who, "real_ms": f"{b['real_time']:.3f}",
                     "cpu_ms": f"{b['cpu_time']:.3f}"})
    rows.sort(key=lambda r: (PAGES[r["page"]], r["contender"]))
    os.makedirs(RESULTS, exist_ok=True)
    with open(CSV, "w", newline="") as f:
        f.write(f"# {report['context']['date']}, load average "
                f"{' '.join(f'{v:.2f}' for v in os.getloadavg())}\n")
        writer = csv.DictWriter(f, fieldnames=["page", "contender", "real_ms", "cpu_ms"])
        writer.writeheader()
        writer.writerows(rows)


def plot():
    with open(CSV) as f:
        rows = list(csv.DictReader(line for line in f if not line.startswith("#")))
    fig, (area, threads) = plt.subplots(1, 2, figsize=(11, 4.2))
    # The 300-dpi pages joined by lines, the 600-dpi A4 page (reduced to
    # 300 dpi by each contender) as a square apart.
    for who, (label, colour, dash) in STYLE.items():
        times = {r["page"]: float(r["real_ms"]) for r in rows if r["contender"] == who}
        pages = [p for p in ("A5", "A4", "A3") if p in times]
        area.plot([PAGES[p] / 1e6 for p in pages], [times[p] for p in pages], dash,
                  color=colour, marker="o", label=label)
        if "A4-600dpi" in times:
            area.plot([PAGES["A4-600dpi"] / 1e6], [times["A4-600dpi"]], "s", color=colour,
                      fillstyle="none" if dash == "--" else "full")
    for page, pixels in PAGES.items():
        area.annotate(page, (pixels / 1e6, 0), textcoords="offset points", xytext=(0, 4),
                      ha="center", fontsize=8, color="gray")
    area.set_xlabel("page pixels (millions); squares: A4 at 600 dpi")
    area.set_ylabel("best time (ms)")
    area.set_title("Time against page size")
    area.set_ylim(bottom=0)
    area.legend(fontsize=8, loc="upper left")

    a4 = {r["contender"]: float(r["real_ms"]) for r in rows if r["page"] == "A4"}
    for label, colour, serial, parallel in (("ours", "C0", "ours_serial", "ours_parallel"),
                                            ("OpenCV pieces", "C1", "opencv_1thread",
                                             "opencv_2threads")):
        threads.plot([1, 2], [a4[serial], a4[parallel]], "-o", color=colour, label=label)
    threads.plot([1], [a4["leptonica"]], "o", color="C2", label="leptonica (one thread)")
    threads.set_xticks([1, 2])
    threads.set_xlabel("threads")
    threads.set_ylabel("best time (ms)")
    threads.set_title("A4 page at 300 dpi: time against threads")
    threads.set_ylim(bottom=0)
    threads.legend(fontsize=8, loc="upper right")
    fig.tight_layout()
    fig.savefig(PNG, dpi=100)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default="build-bench")
    ap.add_argument("--replot", action="store_true", help="plot the saved CSV only")
    ap.add_argument("bench_args", nargs="*", help="after --: options for bench_vs_detector")
    args = ap.parse_args()
    if not args.replot:
        measure(args.build, args.bench_args)
    plot()
    print(PNG)


if __name__ == "__main__":
    main()
