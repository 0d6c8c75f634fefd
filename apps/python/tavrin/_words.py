"""Keyword arguments as the tavrin program's option words.

Every keyword becomes ``--name=value`` (``_`` for ``-``, True/False as
yes/no; True for a flag such as ``no_detect`` gives the bare ``--no-detect``)
and goes through the program's own option parser, so the module
accepts exactly the options and parameters the program accepts, with the
same messages. Table rectangles given as numbers are written to a
temporary tables file for the same reason: the program's reader checks them.
"""

import contextlib
import os
import tempfile
from typing import Any, Dict, Iterator, List, Optional

from . import _native
from ._errors import Error

# Options that name the program's output files or its printing: a function
# that returns its result has no use for them.
_OUTPUT_OPTIONS = {"output", "json", "overlay", "quiet", "explain"}


def _is_flag(command: str, word: str) -> bool:
    try:
        _native.parse_options(command, [word])
        return True
    except Error:
        return False


def words(command: str, options: Dict[str, Any]) -> List[str]:
    """The option words of keyword arguments (None = the program's default)."""
    out = []
    for name, value in options.items():
        if name in _OUTPUT_OPTIONS:
            raise TypeError(f"unexpected keyword argument '{name}': the result is returned, not written")
        if value is None:
            continue
        option = "--" + name.replace("_", "-")
        if value is True and _is_flag(command, option):
            out.append(option)
            continue
        if isinstance(value, bool):
            value = "yes" if value else "no"
        value = os.fspath(value) if isinstance(value, os.PathLike) else str(value)
        # The parser reads a parameter file only from a separate word; every
        # other value goes inline, where yes/no cannot be taken for a page.
        out += ["--params", value] if name == "params" else [f"{option}={value}"]
    return out


@contextlib.contextmanager
def parsed(command: str, options: Dict[str, Any]) -> Iterator[Any]:
    """The program's parsed options for ``command``, with ``tables`` given
    as a file name or as (x0, y0, x1, y1) rectangles; an error that names the
    temporary tables file names ``tables`` instead."""
    options = dict(options)
    tables = options.pop("tables", None)
    if tables is None or isinstance(tables, (str, os.PathLike)):
        yield _native.parse_options(command, words(command, dict(options, tables=tables)))
        return
    with tempfile.NamedTemporaryFile("w", prefix="tavrin-tables-", suffix=".txt") as f:
        for rect in tables:
            f.write(" ".join(str(v) for v in rect) + "\n")
        f.flush()
        try:
            yield _native.parse_options(command, words(command, dict(options, tables=f.name)))
        except Error as e:
            e.args = tuple(str(a).replace(f.name, "tables") for a in e.args)
            raise
