#!/usr/bin/python3
"""Whole processes on one page, side by side with what a user would run instead:
`tavrin compress` against img2pdf of the page's JPEG, and `tavrin detect`
against leptonica's page segmentation (bench/lept_segment.cpp).

hyperfine times every command in rounds (a warm-up run, then --runs runs of
each command per round, the commands one after the other), so that a change of
load on a shared machine touches all of them alike; the table gives the best
and the median over all rounds, the CPU time (user + system, the lowest
round mean; all threads) and the ratios of the best times.

    bench/whole_process.py [--build build-bench] [--page samples/sample-page.jpg]
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default="build-bench", help="build directory (benchmarks on)")
    ap.add_argument("--page", default="samples/sample-page.jpg")
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--runs", type=int, default=3, help="runs of each command per round")
    args = ap.parse_args()

    tavrin = os.path.join(args.build, "apps/tavrin/tavrin")
    lept = os.path.join(args.build, "bench/lept_segment")
    for tool in (tavrin, lept):
        if not os.access(tool, os.X_OK):
            sys.exit(f"{tool} missing: build with -DTAVRIN_BUILD_BENCH=ON first")
    for tool in ("hyperfine", "img2pdf"):
        if shutil.which(tool) is None:
            sys.exit(f"{tool} missing: bash scripts/deps.sh bench")

    out = tempfile.mkdtemp(prefix="whole-process-")
    page = args.page
    commands = {
        "tavrin compress": f"{tavrin} compress {page} -o {out}/tavrin.pdf -q",
        "img2pdf": f"img2pdf {page} -o {out}/img2pdf.pdf",
        "tavrin detect": f"{tavrin} detect {page} --overlay {out}/overlay.png --json {out}/regions.json -q",
        "leptonica segmentation": f"{lept} {page} {out}/halftone.png",
    }
    times = {name: [] for name in commands}
    cpu = {name: [] for name in commands}  # per round: mean user + system time
    for _ in range(args.rounds):
        report = os.path.join(out, "round.json")
        cmd = ["hyperfine", "-N", "--style", "none", "--warmup", "1", "--runs", str(args.runs),
               "--export-json", report]
        for name, line in commands.items():
            cmd += ["--command-name", name, line]
        run = subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if run.returncode != 0:  # hyperfine's own warnings are shown only then
            sys.exit(run.stderr)
        with open(report) as f:
            for result in json.load(f)["results"]:
                times[result["command"]].extend(result["times"])
                cpu[result["command"]].append(result["user"] + result["system"])

    best = {name: min(t) for name, t in times.items()}
    print(f"page {page}, {args.rounds} rounds x {args.runs} runs, "
          f"load average {' '.join(f'{v:.2f}' for v in os.getloadavg())}")
    print(f"{'command':<24} {'best s':>8} {'median s':>9} {'cpu s':>7}")
    for name, t in times.items():
        print(f"{name:<24} {best[name]:8.3f} {statistics.median(t):9.3f} {min(cpu[name]):7.3f}")
    for ours, peer in (("tavrin compress", "img2pdf"), ("tavrin detect", "leptonica segmentation")):
        print(f"{ours} / {peer}: {best[ours] / best[peer]:.2f}x wall clock, "
              f"{min(cpu[ours]) / min(cpu[peer]):.2f}x cpu")
    shutil.rmtree(out)


if __name__ == "__main__":
    main()
