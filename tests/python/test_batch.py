"""tavrin batch on a LocalCluster of two workers: outputs, the summary, a
damaged input, a rerun, and a worker killed in the middle of a batch."""

import csv
import os
import signal

import pytest
from distributed import Client, LocalCluster

from conftest import page, program, write_pnm
from tavrin import batch


@pytest.fixture(scope="module")
def client():
    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
            Client(cluster) as c:
        yield c


def documents(folder, count):
    os.makedirs(folder, exist_ok=True)
    return [write_pnm(folder / f"p{i}.pgm", page(i, 400, 320, rgb=False)) for i in range(count)]


def summary(path):
    with open(path) as f:
        return {os.path.basename(r["input"]): r for r in csv.DictReader(f)}


def test_batch_command(tmp_path, client):
    first, *_ = documents(tmp_path / "in", 3)
    (tmp_path / "in" / "bad.png").write_bytes(b"\x89PNG\r\n\x1a\n damaged")
    out = tmp_path / "out"
    run = ["batch", tmp_path / "in", "-o", out, "--json", "-q", "--min-contrast", "60"]
    done = program(*run, "--scheduler", client.cluster.scheduler_address, check=False)
    assert done.returncode == 1, done.stderr
    rows = summary(out / "summary.csv")
    assert {n: r["status"] for n, r in rows.items()} == {"p0.pgm": "done", "p1.pgm": "done", "p2.pgm": "done",
                                                          "bad.png": "failed"}
    assert "bad.png" in rows["bad.png"]["message"] and not (out / "bad.pdf").exists()
    # The batch's PDF is the program's; the report is the detection's.
    program("compress", first, "-o", tmp_path / "p0.pdf", "-q", "--min-contrast", "60")
    assert (out / "p0.pdf").read_bytes() == (tmp_path / "p0.pdf").read_bytes()
    assert int(rows["p0.pgm"]["pdf_bytes"]) == os.path.getsize(out / "p0.pdf")
    assert '"picturePage"' in (out / "p0.json").read_text()
    # A rerun on a cluster of its own does only what is missing.
    os.remove(out / "p1.pdf")
    program(*run, "--workers", 1, check=False)
    assert {n: r["status"] for n, r in summary(out / "summary.csv").items()} == {
        "p0.pgm": "skipped", "p1.pgm": "done", "p2.pgm": "skipped", "bad.png": "failed"}


@pytest.mark.parametrize("args, text", [(["--min-contrast", "500"], "--min-contrast: expected a whole number"),
                                        (["--workers", "0"], "--workers"), ([], "no input documents")])
def test_refused_before_any_work(tmp_path, args, text):
    done = program("batch", tmp_path / "empty*.pgm", "-o", tmp_path, *args, check=False)
    assert done.returncode == 2 and text in done.stderr and not os.listdir(tmp_path)


def test_output_names_follow_the_inputs(tmp_path):
    for rel in ["a/x.pgm", "b/x.pgm", "b/y.tif"]:
        os.makedirs(tmp_path / os.path.dirname(rel), exist_ok=True)
        (tmp_path / rel).write_bytes(b"")
    (tmp_path / "list.txt").write_text("# scans\na/x.pgm\nb/y.tif\n")
    out = str(tmp_path / "out")
    names = [os.path.relpath(j.pdf, out) for j in batch.plan([str(tmp_path / "**/*.pgm")], [], out, False)]
    assert names == ["a/x.pdf", "b/x.pdf"]
    names = [os.path.relpath(j.pdf, out) for j in batch.plan([], [str(tmp_path / "list.txt")], out, False)]
    assert names == ["a/x.pdf", "b/y.pdf"]
    with pytest.raises(batch.UsageError, match="would both be written"):
        batch.plan([str(tmp_path / "a"), str(tmp_path / "b")], [], out, False)


def test_a_killed_worker_loses_no_document(tmp_path, client):
    jobs = batch.plan(documents(tmp_path / "in", 12), [], str(tmp_path / "out"), False)
    rows, killed = [], []
    for row in batch.run(jobs, [], client):
        rows.append(row)
        busy = [w for w, tasks in client.processing().items() if tasks]
        if not killed and busy and len(rows) < len(jobs):
            pid = client.run(os.getpid, workers=busy[:1])[busy[0]]
            os.kill(pid, signal.SIGKILL)
            killed.append(pid)
    assert killed and sorted(r["status"] for r in rows) == ["done"] * len(jobs)
    for job in jobs:
        data = open(job.pdf, "rb").read()
        assert data.startswith(b"%PDF") and data.rstrip().endswith(b"%%EOF")
