"""tavrin batch: one PDF (and optionally one JSON report) per document, on
all cores of this machine or on a Dask distributed cluster.

Dask does all the scheduling: each document is one task (a multi-page file
is one task too, because its PDF is assembled in one process), run on a
worker by ``process_document``; locally the workers are a LocalCluster of
one single-threaded process per core. A worker writes its outputs itself,
atomically, so inputs and outputs must be on storage every worker sees.
The client only plans, submits (at most a window of tasks at a time, so
that the scheduler's state stays small for any batch size), records the
summary and draws the progress bar. A PDF under its final name marks a
finished document: a rerun skips it, so a batch killed anywhere, scheduler
included, resumes by running the same command again. A task whose worker
died is rerun by Dask on another worker.
"""

import argparse
import csv
import glob
import logging
import os
import sys
import time
import uuid
from typing import Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple

from . import _native
from ._errors import Error, OptionError

IMAGE_EXTENSIONS = {".png", ".tif", ".tiff", ".jpg", ".jpeg", ".pnm", ".pbm", ".pgm", ".ppm"}
SUMMARY_FIELDS = ["input", "status", "pages", "input_bytes", "pdf_bytes", "report_bytes", "seconds",
                  "worker", "output", "message"]

DESCRIPTION = """\
Compresses every document into DIR/NAME.pdf (and DIR/NAME.json, the detection
report, with --json), as `tavrin compress` does, on all cores of this machine
or on the Dask cluster of --scheduler. A document whose PDF exists is skipped,
so running the same command again finishes an interrupted batch. A summary CSV
lists every input with its status (done, skipped, failed), sizes and time; a
failed document does not stop the batch.

INPUT is an image file, a directory (its PNG, TIFF, JPEG and PNM files) or a
quoted glob pattern ('scans/**/*.tif'); outputs keep the inputs' paths below
the directory or the pattern's fixed part. Any other option is an option of
`tavrin compress` (see tavrin compress --help), for example --bg-dpi 150.

exit codes: 0 every document done or skipped, 1 a document failed or the
cluster was lost, 2 bad command line or no input documents
"""


class Job(NamedTuple):
    source: str
    pdf: str
    report: Optional[str]


class UsageError(Exception):
    pass


# ---- planning -----------------------------------------------------------------

def _glob_root(pattern: str) -> str:
    parts = pattern.split(os.sep)
    fixed = []
    for part in parts[:-1]:
        if glob.has_magic(part):
            break
        fixed.append(part)
    return os.sep.join(fixed) or "."


def _manifest_entries(path: str) -> List[Tuple[str, str]]:
    try:
        with open(path, encoding="utf-8") as f:
            lines = [line.split("#", 1)[0].strip() for line in f]
    except OSError as e:
        raise UsageError(f"{path}: cannot read the manifest: {e.strerror}")
    base = os.path.dirname(path)
    return [(os.path.join(base, entry), entry if not os.path.isabs(entry) else os.path.basename(entry))
            for entry in lines if entry]


def sources(inputs: Sequence[str], manifests: Sequence[str]) -> List[Tuple[str, str]]:
    """(input file, output path relative to the output directory without
    extension) for every document named by the inputs and manifests."""
    found = []
    for given in inputs:
        if os.path.isdir(given):
            names = sorted(n for n in os.listdir(given) if os.path.splitext(n)[1].lower() in IMAGE_EXTENSIONS)
            found += [(os.path.join(given, n), n) for n in names if os.path.isfile(os.path.join(given, n))]
        elif glob.has_magic(given):
            root = _glob_root(given)
            matches = [m for m in sorted(glob.glob(given, recursive=True)) if os.path.isfile(m)]
            if not matches:
                print(f"tavrin batch: note: '{given}' matches no file", file=sys.stderr)
            found += [(m, os.path.relpath(m, root)) for m in matches]
        else:
            found.append((given, os.path.basename(given)))
    for manifest in manifests:
        found += _manifest_entries(manifest)
    return [(source, os.path.splitext(rel)[0]) for source, rel in found]


def plan(inputs: Sequence[str], manifests: Sequence[str], out_dir: str, reports: bool) -> List[Job]:
    jobs, claimed = [], {}
    for source, stem in sources(inputs, manifests):
        job = Job(source, os.path.join(out_dir, stem + ".pdf"),
                  os.path.join(out_dir, stem + ".json") if reports else None)
        earlier = claimed.setdefault(os.path.normpath(job.pdf), source)
        if earlier != source:
            raise UsageError(f"'{earlier}' and '{source}' would both be written to '{job.pdf}'")
        if len(claimed) > len(jobs):  # not a repeated input
            jobs.append(job)
    if not jobs:
        raise UsageError("no input documents")
    return jobs


def finished(job: Job) -> bool:
    return os.path.exists(job.pdf) and (job.report is None or os.path.exists(job.report))


def _row(job: Job, **fields) -> Dict[str, object]:
    row = dict.fromkeys(SUMMARY_FIELDS, "")
    row.update(input=job.source, output=job.pdf, **fields)
    return row


def _size(path: Optional[str]) -> object:
    try:
        return os.path.getsize(path) if path else ""
    except OSError:
        return ""


# ---- the task --------------------------------------------------------------

def process_document(job: Job, words: List[str]) -> Dict[str, object]:
    """Runs on a worker: compresses one document and writes its outputs
    atomically (the report first, then the PDF that marks it finished).
    Every failure is returned as the document's row, never raised."""
    start = time.perf_counter()
    row = _row(job, status="done", input_bytes=_size(job.source))
    try:
        from distributed import get_worker
        row["worker"] = get_worker().address
    except (ImportError, ValueError):
        pass
    try:
        options = _native.parse_options("compress", words)
        pdf, report, pages = _native.compress_file(job.source, options, job.report is not None)
        os.makedirs(os.path.dirname(job.pdf) or ".", exist_ok=True)
        if report is not None:
            report = report.encode()
            _native.write_file(job.report, report)
            row["report_bytes"] = len(report)
        _native.write_file(job.pdf, pdf)
        row.update(pages=pages, pdf_bytes=len(pdf))
    except Exception as e:  # recorded for this document; the batch goes on
        row.update(status="failed", message=str(e) or type(e).__name__)
    row["seconds"] = round(time.perf_counter() - start, 3)
    return row


# ---- the client ---------------------------------------------------------------

def run(jobs: Sequence[Job], words: List[str], client, window: Optional[int] = None) -> Iterator[Dict[str, object]]:
    """Yields one summary row per job: skipped ones first, then the others
    as their tasks finish on the cluster of `client`."""
    from distributed import as_completed
    todo = []
    for job in jobs:
        if finished(job):
            yield _row(job, status="skipped", input_bytes=_size(job.source), pdf_bytes=_size(job.pdf),
                       report_bytes=_size(job.report))
        else:
            todo.append(job)
    if window is None:
        window = max(64, 8 * sum(client.nthreads().values()))
    batch_id = uuid.uuid4().hex[:8]
    pending = iter(enumerate(todo))

    def submit(i_job):
        i, job = i_job
        future = client.submit(process_document, job, words, key=f"tavrin-compress-{batch_id}-{i}")
        jobs_of[future.key] = job
        return future

    jobs_of = {}
    flow = as_completed([submit(j) for _, j in zip(range(window), pending)])
    for future in flow:
        job = jobs_of.pop(future.key)
        try:
            # A result lost with its worker is computed again; result() waits.
            row = future.result()
        except Exception as e:
            if future.cancelled():  # the scheduler is gone
                raise
            # Dask gave up on the task (KilledWorker: its workers kept dying).
            row = _row(job, status="failed", input_bytes=_size(job.source),
                       message=f"the task failed on the cluster: {e!r}")
        yield row
        future.release()
        following = next(pending, None)
        if following is not None:
            flow.add(submit(following))


class _Progress:
    """A one-line bar on standard error, only on a terminal."""

    def __init__(self, total: int, shown: bool):
        self.total, self.shown = total, shown and sys.stderr.isatty()

    def update(self, done: int, failed: int) -> None:
        if self.shown:
            filled = done * 30 // max(1, self.total)
            sys.stderr.write(f"\r[{'#' * filled}{'-' * (30 - filled)}] {done} of {self.total} documents"
                             + (f", {failed} failed" if failed else ""))
            sys.stderr.flush()

    def close(self) -> None:
        if self.shown:
            sys.stderr.write("\r" + " " * 70 + "\r")


# ---- command line ---------------------------------------------------------------

def _parser() -> argparse.ArgumentParser:
    p = argparse.ArgumentParser(prog="tavrin batch", description=DESCRIPTION,
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                usage="tavrin batch INPUT... [-o DIR] [options] [compress options]")
    p.add_argument("inputs", nargs="*", metavar="INPUT", help="image file, directory or glob pattern")
    p.add_argument("--manifest", action="append", default=[], metavar="FILE",
                   help="a list of input files, one per line (# comments), relative to the manifest")
    p.add_argument("-o", "--output", default=".", metavar="DIR", help="output directory (default: .)")
    p.add_argument("--json", action="store_true", help="also write NAME.json, the detection report")
    p.add_argument("--summary", metavar="FILE", help="the summary CSV (default: DIR/summary.csv)")
    p.add_argument("--scheduler", metavar="ADDRESS",
                   help="a Dask scheduler (tcp://host:8786); default: a local cluster")
    p.add_argument("--workers", type=int, metavar="N",
                   help="local worker processes (default: one per core)")
    p.add_argument("-q", "--quiet", action="store_true", help="no progress bar, no summary line")
    return p


def _takes_value(word: str) -> bool:
    try:
        _native.parse_options("compress", [word])
    except OptionError as e:
        return ": missing " in str(e)  # "--dpi: missing value", "--params: missing file name"
    return False


def split_arguments(parser: argparse.ArgumentParser, argv: Sequence[str]) -> Tuple[List[str], List[str]]:
    """The batch's own words and `tavrin compress` option words; the
    program's parser tells which of its options take a value."""
    own_value = {s for a in parser._actions if a.nargs is None and a.option_strings for s in a.option_strings}
    own_flag = {s for a in parser._actions if a.nargs == 0 for s in a.option_strings}
    own, program = [], []
    words = list(argv)
    while words:
        w = words.pop(0)
        name = w.split("=", 1)[0]
        if name in own_value and "=" not in w:
            own += [w] + words[:1]
            del words[:1]
        elif name in own_value or w in own_flag or not w.startswith("-") or w == "-":
            own.append(w)
        else:
            program.append(w)
            if "=" not in w and _takes_value(w):
                program += words[:1]
                del words[:1]
    return own, program


def _local_client(workers: Optional[int]):
    from distributed import Client, LocalCluster
    n = workers or len(os.sched_getaffinity(0))
    cluster = LocalCluster(n_workers=n, threads_per_worker=1, processes=True, dashboard_address=None,
                           silence_logs=logging.ERROR)
    return Client(cluster), cluster


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = _parser()
    own, words = split_arguments(parser, sys.argv[1:] if argv is None else argv)
    args = parser.parse_args(own)
    try:
        _native.parse_options("compress", words)  # refuse bad options before any work
        if args.workers is not None and args.workers < 1:
            raise UsageError("--workers: expected a whole number from 1")
        jobs = plan(args.inputs, args.manifest, args.output, args.json)
    except (UsageError, OptionError) as e:
        print(f"tavrin batch: {e}", file=sys.stderr)
        return 2
    summary = args.summary or os.path.join(args.output, "summary.csv")

    from distributed import Client
    try:
        if args.scheduler:
            client, cluster = Client(args.scheduler), None
        else:
            client, cluster = _local_client(args.workers)
    except (OSError, TimeoutError) as e:
        print(f"tavrin batch: cannot start or reach the cluster: {e}", file=sys.stderr)
        return 1
    os.makedirs(os.path.dirname(summary) or ".", exist_ok=True)
    start = time.perf_counter()
    counts = {"done": 0, "skipped": 0, "failed": 0}
    pages = 0
    progress = _Progress(len(jobs), not args.quiet)
    # Rows reach the .part file as they come, so an interrupted batch still
    # leaves its record; the summary takes its name when the batch is over.
    with open(summary + ".part", "w", newline="") as f:
        table = csv.DictWriter(f, SUMMARY_FIELDS)
        table.writeheader()
        try:
            for row in run(jobs, words, client):
                table.writerow(row)
                f.flush()
                counts[row["status"]] += 1
                pages += row["pages"] if row["status"] == "done" else 0
                progress.update(sum(counts.values()), counts["failed"])
        except KeyboardInterrupt:
            progress.close()
            print("tavrin batch: interrupted; finished documents are kept", file=sys.stderr)
            return 130
        except Exception as e:
            progress.close()
            print(f"tavrin batch: lost the cluster ({e!r}); finished documents are kept, run the same "
                  f"command again to do the rest", file=sys.stderr)
            return 1
        finally:
            client.close()
            if cluster is not None:
                cluster.close()
    os.replace(summary + ".part", summary)
    progress.close()
    if not args.quiet:
        elapsed = time.perf_counter() - start
        print(f"{len(jobs)} documents: {counts['done']} done, {counts['skipped']} skipped, "
              f"{counts['failed']} failed; {pages} pages in {elapsed:.1f} s "
              f"({pages / elapsed if elapsed else 0:.1f} pages/s); summary: {summary}")
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    # Run as tavrin.batch, not as __main__, so that Dask sends the task
    # function to the workers by name rather than by value.
    from tavrin import batch
    sys.exit(batch.main())
