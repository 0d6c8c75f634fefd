"""tavrin: find the picture regions of scanned pages and compress pages into
compact PDFs, from Python.

The functions run the ``tavrin`` program's own page pipeline on numpy arrays:

- ``detect(page, ...)``: picture regions, picture mask and page decision;
- ``compress(pages, ...)``: one PDF (bytes) from a sequence of pages;
- ``mmr``, ``jpeg``, ``flate``: the library's stream encoders on arrays.

A page is a ``uint8`` array of shape (height, width) for gray or
(height, width, 3) for RGB, at most 65535 pixels per side and 600 million
pixels; it is copied before processing. Options are the program's option
and parameter names with ``_`` for ``-`` (``range_sigma=8``, ``bg_dpi=150``,
``flate=True``, ``attr=False``, ``detect=False``, ``threads=1``,
``params="tuning.txt"``); they go through the program's option parser, so
they mean and check exactly what they do for ``tavrin detect`` and
``tavrin compress`` (the help of ``detect`` and ``compress`` ends with the
program's own list). A refused option raises ``OptionError`` with the
program's message.

Every call releases the GIL while the library works, so threads run in
parallel; MMR encodings (``mmr`` and the masks of ``compress``) take turns
within a process, because the library's MMR encoder is not reentrant.

``python3 -m tavrin.batch`` (also ``tavrin batch``) compresses many
documents on all cores or on a Dask cluster.
"""

from typing import Any, List, NamedTuple, Optional, Sequence, Tuple, Union
import json
import os

import numpy as np

from . import _native
from ._errors import Error, LibraryError, OptionError
from ._words import parsed

__all__ = ["detect", "compress", "mmr", "jpeg", "flate", "version", "Detection", "Region",
           "Error", "OptionError", "LibraryError"]

Rectangle = Tuple[int, int, int, int]
Tables = Union[None, str, os.PathLike, Sequence[Rectangle]]


class Region(NamedTuple):
    """A picture region in page pixels: left, top, width, height."""
    x: int
    y: int
    width: int
    height: int


class Detection:
    """The picture regions of one page, as ``tavrin detect`` reports them.

    Attributes:
        report: the page's entry of the program's JSON report (``picturePage``,
            ``iPictPixelNum``, ``coverage``, ``regions``, ``quarterPlane``,
            ``detectionReduction``, ...).
        parameters: the detection parameters used, as the report lists them.
        mask: the final picture mask, a bool array over the detector's quarter
            grid (``report["quarterPlane"]``); one mask pixel covers
            ``mask_scale`` x ``mask_scale`` page pixels.
    """

    def __init__(self, report: dict, parameters: dict, mask: np.ndarray):
        self.report = report
        self.parameters = parameters
        self.mask = mask

    @property
    def picture_page(self) -> bool:
        """True when pictures cover at least the page ratio (--page-ratio)."""
        return self.report["picturePage"]

    @property
    def coverage(self) -> float:
        """Share of the page's quarter grid covered by pictures, 0..1."""
        return self.report["coverage"]

    @property
    def pict_pixel_num(self) -> int:
        """Picture pixels of the mask (the library's iPictPixelNum)."""
        return self.report["iPictPixelNum"]

    @property
    def regions(self) -> List[Region]:
        """Connected picture areas as boxes in page pixels."""
        return [Region(r["x"], r["y"], r["width"], r["height"]) for r in self.report["regions"]]

    @property
    def mask_scale(self) -> int:
        """Page pixels per mask pixel along each side."""
        return 4 * self.report["detectionReduction"]

    def __repr__(self) -> str:
        return (f"Detection(picture_page={self.picture_page}, coverage={self.coverage:.3f}, "
                f"regions={self.regions})")


def _page(array: Any, what: str = "page") -> np.ndarray:
    a = np.asarray(array)
    if a.dtype != np.uint8:
        raise TypeError(f"{what}: expected a uint8 array, got {a.dtype}")
    return a


def detect(page: np.ndarray, dpi: float = 300, attr: Optional[bool] = None, tables: Tables = None,
           **params: Any) -> Detection:
    """Find the photographs, illustrations and halftones of a page.

    The detection of ``tavrin detect``: the library's runDetectPict on the
    page's quarter-resolution gray image and attribute map.

    Args:
        page: uint8 array, (height, width) gray or (height, width, 3) RGB.
        dpi: the page's resolution, 10..10000 dots per inch.
        attr: False: no attribute map (text is not told from pictures);
            None or True: the program's map.
        tables: rectangles to leave out of the picture search: a tables file
            name, or (x0, y0, x1, y1) rectangles in page pixels (inclusive).
        **params: the options of ``tavrin detect`` listed below (without
            ``--``, ``_`` for ``-``), for example range_sigma=8,
            min_width=24, page_ratio=0.1, threads=1, params="tuning.txt"
            (a ``name = value`` file), dump="dumps" (debug dumps). The
            output options (overlay, json, quiet) do not apply.

    Returns:
        A Detection: ``picture_page`` (the page decision), ``coverage``,
        ``pict_pixel_num`` (iPictPixelNum), ``regions`` (boxes in page
        pixels), ``mask`` (the picture mask) and ``report`` (the page's
        entry of the program's JSON report).

    Raises:
        OptionError: an option the program refuses (its message).
        Error: a page the program cannot take (``exit_code`` 4) or a failed
            detection (``exit_code`` 1).
        TypeError: a page that is not a uint8 array.
    """
    a = _page(page)
    with parsed("detect", dict(params, dpi=dpi, attr=attr, tables=tables)) as options:
        report, mask = _native.detect(a, options)
    report = json.loads(report)
    page_report = report["pages"][0]
    page_report.pop("overlay", None)
    return Detection(page_report, report["parameters"], mask)


def compress(pages: Sequence[np.ndarray], **options: Any) -> bytes:
    """Compress pages into one PDF, as ``tavrin compress`` does.

    Each page is split as ``tavrin compress`` splits it (see its options
    below): each photograph a JPEG of its own, the text bi-level masks (MMR,
    painted in the ink's colours), the rest a low-resolution JPEG
    background; the bytes are those ``tavrin compress`` writes for the same
    pages and options.

    Args:
        pages: uint8 arrays, (height, width) gray or (height, width, 3) RGB.
        **options: the options of ``tavrin compress`` listed below
            (without ``--``, ``_`` for ``-``), for example dpi=600 (the
            pages' resolution; default 300), preset="archive", bg_dpi=75,
            picture_psnr=36, sampling=444,
            flate=True, no_detect=True (no picture detection), tables (as for
            ``detect``), params="tuning.txt" (a ``name = value`` file). The
            output options (output, quiet, explain) do not apply.

    Returns:
        The PDF file's bytes.

    Raises:
        OptionError: an option the program refuses (its message).
        Error: a page the program cannot take or a failed step (the message
            names the page and the step).
        TypeError: a page that is not a uint8 array.
    """
    arrays = [_page(p, f"page {i + 1}") for i, p in enumerate(pages)]
    if not arrays:
        raise ValueError("compress: no pages")
    with parsed("compress", options) as parsed_options:
        return _native.compress(arrays, parsed_options)


def mmr(image: np.ndarray, dpi: float = 300) -> bytes:
    """Encode a bi-level image as a bare T.6 (MMR, CCITT Group 4) stream.

    Args:
        image: bool array, or uint8 array of 0 and 1; True/1 = black.
            Shape (height, width), at most 65535 per side.
        dpi: resolution recorded for the encoder; no effect on the bytes.

    Returns:
        The T.6 bytes from the library's Tavrin_bwToMmr.

    Raises:
        LibraryError: the encoder's status (20).
        ValueError: values other than 0 and 1, or a wrong shape.
    """
    a = np.asarray(image)
    if a.dtype != np.bool_ and (a.dtype != np.uint8 or (a.size and a.max() > 1)):
        raise ValueError("mmr: expected a bool array or a uint8 array of 0 and 1")
    if a.ndim != 2 or a.shape[1] == 0:
        raise ValueError("mmr: expected a (height, width) array")
    return _native.mmr(np.packbits(a.astype(np.bool_), axis=1), a.shape[1], float(dpi))


# The library's sampling modes by their usual names.
_SAMPLING = {420: 0, 422: 2, 444: 5}


def jpeg(image: np.ndarray, quality: int = 75, chroma_offset: int = 0, sampling: int = 420,
         dpi: float = 300) -> bytes:
    """Encode a gray or RGB image as a baseline JPEG stream.

    Args:
        image: uint8 array, (height, width) gray or (height, width, 3) RGB.
        quality: 1..100.
        chroma_offset: chrominance quality = quality + offset, -99..99 (RGB).
        sampling: 420, 422, 444, or the library's mode 0..5 (RGB).
        dpi: density written into the JFIF header, 1..655.

    Returns:
        The JPEG bytes from the library's Tavrin_MakeJPGStream.

    Raises:
        LibraryError: the encoder's status: 11 for a libjpeg error,
            including a stream longer than the image's raw size (the
            library's buffer), which tiny images give.
        ValueError: an argument out of its range.
    """
    a = _page(image, "jpeg")
    mode = _SAMPLING.get(sampling, sampling)
    for name, value, low, high in [("quality", quality, 1, 100), ("chroma_offset", chroma_offset, -99, 99),
                                   ("sampling", mode, 0, 5), ("dpi", dpi, 1, 655)]:
        if not low <= value <= high:
            raise ValueError(f"jpeg: {name} must lie in {low}..{high}, got {value}")
    return _native.jpeg(a, int(quality), int(chroma_offset), int(mode), float(dpi))


def flate(data: bytes) -> bytes:
    """Wrap bytes (a JPEG stream) in zlib (Flate), as the library does for
    ``[/FlateDecode /DCTDecode]`` backgrounds.

    Raises:
        LibraryError: the library's status (19).
    """
    return _native.flate(bytes(data))


def version() -> str:
    """The library's version text."""
    return _native.version()


# help() ends with the program's own option list, whatever options it has.
for _function, _command in ((detect, "detect"), (compress, "compress")):
    _function.__doc__ += (f"\n    The options of tavrin {_command} (as keywords: no '--', '_' for '-'):\n\n"
                          + "".join("    " + line + "\n" for line in _native.usage(_command).splitlines()))
