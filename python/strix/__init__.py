"""Solution files of the conic solver, read straight into NumPy arrays.

    import strix
    solution = strix.read("model.b")            # or bytes, or a binary file
    item = solution.solutions["interior"]
    item.xx                                     # numpy.float64, read-only
    strix.status_key_names(item.skx)            # "bas", "low", ... "unk"
    strix.convert("model.b", "model.json.gz")   # what the strix command does

Arrays are views of the reader's own memory, kept alive by the views; an
absent section reads as an empty array. Failures raise strix.Error and its
subclasses (FormatError, IncompatibleFileError, InconsistentSolution,
CompressionError), OSError, or ValueError for names the command refuses.
"""

import numpy as _np

from ._strix import (CompressionError, Error, FormatError, IncompatibleFileError,
                     InconsistentSolution, Solution, SolutionItem, convert, read,
                     status_key_name)

_KEY_NAMES = _np.array([status_key_name(key) for key in range(256)])


def status_key_names(keys):
    """The names of status keys ("bas", "supbas", "low", "upr", "fix", "inf",
    "unk" for any other byte), as an array of the keys' shape."""
    return _KEY_NAMES[_np.asarray(keys, dtype=_np.uint8)]


__all__ = ["CompressionError", "Error", "FormatError", "IncompatibleFileError",
           "InconsistentSolution", "Solution", "SolutionItem", "convert", "read",
           "status_key_name", "status_key_names"]
