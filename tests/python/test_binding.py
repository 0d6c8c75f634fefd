"""The module against the program it binds, and its encoders against
independent decoders and hand-worked streams."""

import io
import json
import sys
import threading
import time
import zlib

import numpy as np
import pytest
from PIL import Image

import tavrin
from conftest import page, program, write_pnm


@pytest.mark.parametrize("options, words", [
    ({}, []),
    ({"flate": True, "sampling": 444, "range_sigma": 8, "min_contrast": 60},
     ["--flate", "--sampling", "444", "--range-sigma", "8", "--min-contrast", "60"]),
    ({"detect": False, "bg_dpi": 150}, ["--no-detect", "--bg-dpi", "150"]),
])
def test_compress_gives_the_programs_bytes(tmp_path, options, words):
    pages = [page(1), page(2, rgb=False)]
    tiff = tmp_path / "doc.tif"
    Image.fromarray(pages[0]).save(tiff, save_all=True, append_images=[Image.fromarray(pages[1])], dpi=(300, 300))
    program("compress", tiff, "-o", tmp_path / "doc.pdf", "-q", *words)
    assert tavrin.compress(pages, **options) == (tmp_path / "doc.pdf").read_bytes()


def test_a_parameter_file_sets_what_options_set(tmp_path):
    (tmp_path / "tuning.txt").write_text("min-contrast = 90\nsampling = 444\n")
    assert tavrin.compress([page()], params=tmp_path / "tuning.txt") == \
        tavrin.compress([page()], min_contrast=90, sampling=444) != tavrin.compress([page()])


def test_detect_reports_what_the_program_reports(tmp_path):
    p = page()
    program("detect", write_pnm(tmp_path / "p.ppm", p), "--dpi", 300, "--json", tmp_path / "p.json",
            "--overlay", tmp_path / "o.png", "-q")
    report = json.loads((tmp_path / "p.json").read_text())
    d = tavrin.detect(p)
    expected = report["pages"][0]
    del expected["overlay"]
    assert d.report == expected and d.parameters == report["parameters"]
    assert d.picture_page and len(d.regions) == 1
    # The mask is the detector's: on its quarter plane, with iPictPixelNum
    # pixels, and its extent in page pixels holds the reported region.
    plane = d.report["quarterPlane"]
    assert d.mask.shape == (plane["height"], plane["width"]) and d.mask.sum() == d.pict_pixel_num
    ys, xs = np.nonzero(d.mask)
    r = d.regions[0]
    assert xs.min() * 4 <= r.x and ys.min() * 4 <= r.y
    assert r.x + r.width <= (xs.max() + 1) * 4 and r.y + r.height <= (ys.max() + 1) * 4
    # A table over the whole page leaves nothing to find.
    assert tavrin.detect(p, tables=[(0, 0, 799, 999)]).regions == []


@pytest.mark.parametrize("name, value", [("min_contrast", 500), ("sampling", 411), ("bg_dpi", "x"), ("bogus", 1)])
def test_option_errors_read_as_the_programs(tmp_path, name, value):
    word = f"--{name.replace('_', '-')}={value}"
    done = program("compress", write_pnm(tmp_path / "p.pgm", page(rgb=False)), word, check=False)
    assert done.returncode == 2
    with pytest.raises(tavrin.OptionError) as e:
        tavrin.compress([page()], **{name: value})
    assert f"tavrin: {e.value}\n" == done.stderr and e.value.exit_code == 2


@pytest.mark.parametrize("call, error, text", [
    (lambda: tavrin.detect(np.zeros((50, 40), np.float32)), TypeError, "uint8"),
    (lambda: tavrin.detect(np.zeros((50, 40, 4), np.uint8)), tavrin.Error, "(height, width, 3)"),
    (lambda: tavrin.compress([np.zeros((0, 40), np.uint8)]), tavrin.Error, "empty"),
    (lambda: tavrin.compress([page()], output="x.pdf"), TypeError, "output"),
    (lambda: tavrin.detect(page(), tables=[(5, 0, 4, 9)]), tavrin.OptionError, "tables:1: expected x0 <= x1"),
    (lambda: tavrin.mmr(np.full((4, 4), 255, np.uint8)), ValueError, "0 and 1"),
    (lambda: tavrin.jpeg(np.zeros((4, 4), np.uint8)), tavrin.LibraryError, "returned 11"),
    (lambda: tavrin.jpeg(page(), sampling=411), ValueError, "sampling must lie in 0..5"),
])
def test_errors(call, error, text):
    with pytest.raises(error, match=None) as e:
        call()
    assert text in str(e.value)
    if error is tavrin.LibraryError:
        assert e.value.status == 11


@pytest.mark.parametrize("rows, stream", [
    # all white: one V0 code per row, then the end-of-facsimile block
    ([[0] * 8, [0] * 8], "c0040040"),
    # horizontal mode 001 + white 2 (0111) + black 3 (10), then V0 to the row's end
    ([[0, 0, 1, 1, 1, 0, 0, 0]], "2f40040040"),
])
def test_mmr_hand_coded(rows, stream):
    assert tavrin.mmr(np.array(rows, np.uint8)).hex() == stream
    assert tavrin.mmr(np.array(rows, bool)).hex() == stream


@pytest.mark.parametrize("sampling, factors", [(420, (2, 2)), (422, (2, 1)), (444, (1, 1))])
def test_jpeg_decodes_with_an_independent_reader(sampling, factors):
    p = page()[400:840, 100:700]
    stream = tavrin.jpeg(p, quality=90, sampling=sampling)
    im = Image.open(io.BytesIO(stream))
    assert im.size == (600, 440) and im.layer[0][1:3] == factors
    error = np.asarray(im, float) - p
    assert 10 * np.log10(255 ** 2 / np.mean(error ** 2)) > 30
    assert zlib.decompress(tavrin.flate(stream)) == stream


def test_threads_run_while_the_library_works():
    """With a switch interval longer than the test, this thread gets the GIL
    only when the other thread gives it up: it sees the other thread inside
    detect only if detect releases the GIL."""
    p, inside, seen = page(), [False], 0

    def work():
        for _ in range(3):
            inside[0] = True
            tavrin.detect(p, threads=1)
            inside[0] = False

    interval = sys.getswitchinterval()
    sys.setswitchinterval(30)
    try:
        worker = threading.Thread(target=work)
        worker.start()
        while worker.is_alive():
            time.sleep(0.001)
            seen += inside[0]
    finally:
        sys.setswitchinterval(interval)
    assert seen > 0
