"""tavrin: find the picture regions of scanned pages and compress pages into
compact PDFs, from Python.

The functions run the ``tavrin`` program's own page pipeline on numpy arrays:

- ``detect(page, ...)``: picture regions, picture mask and page decision;
- ``compress(pages, ...)``: one PDF (bytes) from a sequence of pages;
- ``mmr``, ``jpeg``, ``flate``: the library's stream encoders on arrays.

A page is a ``uint8`` array of shape (height, width) for gray or
(height, width, 3) for RGB, at most 65535 pixels per side and 600 million
pixels; it is copied before processing. Options are the program's option
and parameter names with ``_`` for ``-`` (``range_sigma=8``, ``quality=40``,
``levels=1``, ``flate=True``, ``attr=False``, ``detect=False``, ``threads=1``,
``params="tuning.txt"``); they go through the program's option parser, so
they mean and check exactly what they do for ``tavrin detect`` and
``tavrin compress`` (see ``tavrin COMMAND --help``). A refused option raises
``OptionError`` with the program's message.

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
        **params: the program's detection options, for example
            space_sigma (2), range_sigma (5), min_width (16), min_height
            (16), min_area (512), min_fill (0.2), max_high_attr (0.3),
            page_ratio (0.05), label_passes (9), threads (1 or 2),
            params (a ``name = value`` file), dump (a debug dump directory).
            Sizes are quarter-resolution pixels of a 300-dpi page (1/75
            inch) and scale with the resolution.

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

    Each page is split into text masks (MMR image masks painted in the ink's
    measured colours) over a reduced-resolution JPEG background; picture
    regions stay in the background. The bytes are those ``tavrin compress``
    writes for the same pages and options.

    Args:
        pages: uint8 arrays, (height, width) gray or (height, width, 3) RGB.
        **options: the program's options, for example dpi (the pages'
            resolution; default 300), bg_dpi (100), quality (1..100; default
            50 with pictures, 30 without), chroma_offset (0), sampling
            (420, 422, 444 or 0..5), flate (False), levels (1..4; default 3),
            min_contrast (50), detect (False: no picture detection), tables
            (as for ``detect``), params (a ``name = value`` file) and the
            detection options of ``detect``.

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


def jpeg(image: np.ndarray, quality: int = 75, chroma_offset: int = 0, sampling: Union[int, str] = 420,
         dpi: float = 300) -> bytes:
    """Encode a gray or RGB image as a baseline JPEG stream.

    Args:
        image: uint8 array, (height, width) gray or (height, width, 3) RGB.
        quality: 1..100.
        chroma_offset: chrominance quality = quality + offset, -99..99 (RGB).
        sampling: 420, 422, 444, or the library's mode 0..5 (RGB).
        dpi: density written into the JFIF header.

    Returns:
        The JPEG bytes from the library's Tavrin_MakeJPGStream.

    Raises:
        LibraryError: the encoder's status: 11 for a libjpeg error,
            including a stream longer than the image's raw size (the
            library's buffer), which tiny images give.
        OptionError: a value the program refuses.
    """
    a = _page(image, "jpeg")
    o = _native.parse_options("compress", [f"--quality={quality}", f"--chroma-offset={chroma_offset}",
                                           f"--sampling={sampling}", f"--dpi={dpi}"])
    return _native.jpeg(a, o.quality, o.chroma_offset, o.sampling, o.dpi)


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
