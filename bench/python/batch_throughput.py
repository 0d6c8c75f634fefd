#!/usr/bin/python3
"""Throughput of the bundled sample pages: the program one process at a
time and two at a time, the module in one process, tavrin batch on a
LocalCluster of one and of two workers, two threads inside the module, and
the Dask scheduler's overhead per task. Every figure is the median of
REPEATS runs, printed with the load average around it, since the machine
may be shared.

  PYTHONPATH=build/apps/python /usr/bin/python3 bench/python/batch_throughput.py [build]
"""

import os
import resource
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import numpy as np

import tavrin
from tavrin import _native, batch

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build")
PROGRAM = os.path.join(BUILD, "apps", "tavrin", "tavrin")
SAMPLES = [os.path.join(ROOT, "samples", n) for n in ("sample-page.jpg", "text-page.jpg")]
DOCUMENTS = 8   # the two sample pages, four times each
REPEATS = 3


def cpu_seconds(who=resource.RUSAGE_SELF):
    r = resource.getrusage(who)
    return r.ru_utime + r.ru_stime


def measure(name, run, pages=DOCUMENTS, cpu=lambda: cpu_seconds() + cpu_seconds(resource.RUSAGE_CHILDREN)):
    """Runs `run` REPEATS times; prints pages per second (wall clock), the
    processor time per page (`cpu`: every process involved) and the load."""
    rates, costs, loads = [], [], []
    for _ in range(REPEATS):
        load, used = os.getloadavg()[0], cpu()
        start = time.perf_counter()
        run()
        rates.append(pages / (time.perf_counter() - start))
        costs.append((cpu() - used) / pages)
        loads.append((load + os.getloadavg()[0]) / 2)
    print(f"{name:52s} {statistics.median(rates):5.2f} pages/s, {statistics.median(costs):5.3f} CPU s/page "
          f"(runs {', '.join(f'{r:.2f}' for r in rates)} pages/s; load {min(loads):.1f}..{max(loads):.1f})",
          flush=True)


def documents(folder):
    paths = []
    for i in range(DOCUMENTS):
        path = os.path.join(folder, f"doc{i}.jpg")
        os.symlink(SAMPLES[i % 2], path)
        paths.append(path)
    return paths


def programs_in_parallel(paths, out, at_once):
    running = []
    for i, path in enumerate(paths):
        running.append(subprocess.Popen([PROGRAM, "compress", path, "-o", os.path.join(out, f"p{i}.pdf"), "-q"]))
        if len(running) == at_once:
            running.pop(0).wait()
    for p in running:
        p.wait()


def main():
    from distributed import Client, LocalCluster
    print(f"{os.cpu_count()} cores; {DOCUMENTS} one-page documents (the two A4 300-dpi sample pages)")
    with tempfile.TemporaryDirectory() as tmp:
        paths, out = documents(tmp), os.path.join(tmp, "out")
        os.mkdir(out)
        options = _native.parse_options("compress", [])
        measure("tavrin compress, one process at a time", lambda: programs_in_parallel(paths, out, 1))
        os.environ["OMP_NUM_THREADS"] = "1"
        measure("  the same, OMP_NUM_THREADS=1", lambda: programs_in_parallel(paths, out, 1))
        del os.environ["OMP_NUM_THREADS"]
        measure("tavrin compress, two processes at a time", lambda: programs_in_parallel(paths, out, 2))
        # Idle team threads sleep at once instead of spinning on the core the
        # other process needs.
        os.environ["OMP_WAIT_POLICY"] = "passive"
        measure("  the same, OMP_WAIT_POLICY=passive", lambda: programs_in_parallel(paths, out, 2))
        del os.environ["OMP_WAIT_POLICY"]
        measure("module, one process, one document after the other",
                lambda: [_native.compress_file(p, options, False) for p in paths])
        for workers in (1, 2):
            start = time.perf_counter()
            with LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None,
                              silence_logs=50) as cluster, Client(cluster) as client:
                started = time.perf_counter() - start

                def run_batch():
                    jobs = batch.plan(paths, [], os.path.join(tmp, f"b{workers}-{time.perf_counter()}"), False)
                    assert all(r["status"] == "done" for r in batch.run(jobs, [], client))

                def cluster_cpu():  # the workers, and the scheduler and client in this process
                    return sum(client.run(cpu_seconds).values()) + cpu_seconds()

                measure(f"tavrin batch, LocalCluster of {workers} worker(s)", run_batch, cpu=cluster_cpu)
                print(f"    cluster started in {started:.1f} s")
                rss = client.run(lambda: resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
                print(f"    peak resident memory per worker: {max(rss.values()) / 1024:.0f} MiB")
                if workers == 2:
                    tasks, used = 2000, cpu_seconds()
                    start = time.perf_counter()
                    client.gather(client.map(int, range(tasks), pure=False))
                    print(f"    empty tasks: {(time.perf_counter() - start) / tasks * 1e3:.2f} ms each (wall), "
                          f"{(cpu_seconds() - used) / tasks * 1e3:.2f} ms of scheduler and client processor time "
                          f"({tasks} tasks)")
        from PIL import Image
        page = np.asarray(Image.open(SAMPLES[0]))

        def threads(n):
            def work():
                for _ in range(4 // n):
                    tavrin.detect(page, threads=1)
            ts = [threading.Thread(target=work) for _ in range(n)]
            for t in ts:
                t.start()
            for t in ts:
                t.join()

        measure("module detect, 4 pages on one thread (serial filters)", lambda: threads(1), pages=4)
        measure("module detect, 4 pages on two threads (serial filters)", lambda: threads(2), pages=4)


if __name__ == "__main__":
    main()
