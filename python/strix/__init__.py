"""Solution files of the conic solver, read straight into NumPy arrays.

    import strix
    solution = strix.read("model.b")            # or bytes, or a binary file
    item = solution.solutions["interior"]
    item.xx                                     # numpy.float64, read-only
    strix.status_key_names(item.skx)            # "bas", "low", ... "unk"
    strix.convert("model.b", "model.json.gz")   # what the strix command does

    item.variables()                            # a pandas DataFrame: name, status, xx...

Arrays are read-only views of the reader's own memory, kept alive by the
views; an absent section reads as an empty array. Text from the file (names,
statuses, information items) is str with one character per byte:
.encode("latin-1") gives the bytes back. Failures raise strix.Error and its
subclasses (FormatError, IncompatibleFileError, InconsistentSolution,
CompressionError), OSError, or ValueError for names the command refuses.
"""

import numpy as _np

from . import _strix
from ._strix import (CompressionError, Error, FormatError, IncompatibleFileError,
                     InconsistentSolution, Solution, SolutionItem, __version__, status_key_name)


# Python functions, unlike the native ones, pickle by their names, so that
# pool.map(strix.read, files) can send them to worker processes.
def read(source):
    return _strix.read(source)


def convert(infile, outfile, *, threads=0):
    return _strix.convert(infile, outfile, threads=threads)


read.__doc__, convert.__doc__ = _strix.read.__doc__, _strix.convert.__doc__

_KEY_NAMES = _np.array([status_key_name(key) for key in range(256)])


def status_key_names(keys):
    """The names of status keys ("bas", "supbas", "low", "upr", "fix", "inf",
    "unk" for any other byte), as an array of the keys' shape."""
    return _KEY_NAMES[_np.asarray(keys, dtype=_np.uint8)]


__all__ = ["__version__", "CompressionError", "Error", "FormatError", "IncompatibleFileError",
           "InconsistentSolution", "Solution", "SolutionItem", "convert", "read",
           "status_key_name", "status_key_names"]
