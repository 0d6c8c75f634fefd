"""The exceptions of the tavrin package (raised by its compiled part too)."""

from typing import Optional


class Error(Exception):
    """A failure of the tavrin pipeline.

    ``exit_code`` is the exit code the ``tavrin`` program gives for the same
    failure (1 processing, 2 option, 3 input file, 4 image); ``status`` is
    the library's status code when a library call failed, else None.
    """

    exit_code: int = 1
    status: Optional[int] = None


class OptionError(Error, ValueError):
    """An option or parameter the program refuses (its exit code 2); the
    message is the program's own."""

    exit_code = 2


class LibraryError(Error):
    """A library encoder returned a status other than 0; ``status`` holds it
    (11 JPEG, 19 Flate, 20 MMR)."""
