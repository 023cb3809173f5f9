"""Solution files of the conic solver, read straight into NumPy arrays.

    import strix
    solution = strix.read("model.b")            # or bytes, or a binary file
    item = solution.solutions["interior"]
    item.xx                                     # numpy.float64, read-only
    strix.status_key_names(item.skx)            # "bas", "low", ... "unk"
    strix.convert("model.b", "model.json.gz")   # what the strix command does

    item.variables()                            # a pandas DataFrame: name, status, xx...
    strix.read("model.b", vectors=("xx",))      # only what is asked for is read
    strix.summary("runs/*.b")                   # one row per file and solution

strix.dask does the same on a Dask cluster, imported when used.

Arrays are read-only views of the reader's own memory, kept alive by the
views; an absent section reads as an empty array. Text from the file (names,
statuses, information items) is str with one character per byte:
.encode("latin-1") gives the bytes back. Failures raise strix.Error and its
subclasses (FormatError, IncompatibleFileError, InconsistentSolution,
CompressionError), OSError, or ValueError for names the command refuses.
"""

import glob as _glob
import os as _os

import numpy as _np

from . import _strix
from ._strix import (CompressionError, Error, FormatError, IncompatibleFileError,
                     InconsistentSolution, Solution, SolutionItem, __version__, status_key_name)


# Python functions, unlike the native ones, pickle by their names, so that
# pool.map(strix.read, files) can send them to worker processes.
def read(source, *, solutions=None, vectors=None, names=True):
    return _strix.read(source, solutions=solutions, vectors=vectors, names=names)


def convert(infile, outfile, *, threads=0):
    return _strix.convert(infile, outfile, threads=threads)


read.__doc__, convert.__doc__ = _strix.read.__doc__, _strix.convert.__doc__

_KEY_NAMES = _np.array([status_key_name(key) for key in range(256)])


def status_key_names(keys):
    """The names of status keys ("bas", "supbas", "low", "upr", "fix", "inf",
    "unk" for any other byte), as an array of the keys' shape."""
    return _KEY_NAMES[_np.asarray(keys, dtype=_np.uint8)]


SUMMARY_COLUMNS = ("file", "kind", "prosta", "solsta", "pobj", "dobj", "numvar", "numcon",
                   "numcone", "numbarvar", "numacc")


def _paths(sources):
    if isinstance(sources, (str, bytes)):
        return sorted(_glob.glob(sources))
    return list(sources)


def _summary_rows(file, solution):
    """The summary rows of one file: one per solution, or one with the file's
    counts and no kind where it has none."""
    counts = (solution.numvar, solution.numcon, solution.numcone, solution.numbarvar,
              solution.numacc)
    info = {**solution.info_f64, **solution.info_i64, **solution.info_i32}
    items = [(kind, i.prosta, i.solsta, i.pobj, i.dobj) for kind, i in solution.solutions.items()]
    return [(file, *item, *counts, info) for item in items or [(None,) * 5]]


def _item_types(rows):
    """{item name: the Python types of its values} over the rows' information
    items (their 12th field)."""
    types = {}
    for row in rows:
        for name, value in row[11].items():
            types.setdefault(name, set()).add(type(value))
    return types


def _item_dtypes(types):
    """The items' columns, sorted: Int64 for integer items, float64 else."""
    return {name: "Int64" if t == {int} else "float64" for name, t in sorted(types.items())}


# The dtypes of the summary's first columns: names and statuses as objects,
# objective values as float64, counts as nullable integers.
_SUMMARY_DTYPES = (object,) * 4 + ("float64",) * 2 + ("Int64",) * 5


def _summary_table(rows, items=None, report=False):
    """The DataFrame of summary rows (their 12th field the information items,
    their optional error after it) with a column per item of `items`, a dict
    of names to dtypes (by default the union over the rows)."""
    import pandas
    if items is None:
        items = _item_dtypes(_item_types(rows))
    # One frame from typed columns, numbered and then named, so that an item
    # may share a name with a column before it: a frame built row by row and
    # converted column by column took three times as long.
    fields = list(zip(*(row[:11] for row in rows))) or [()] * 11
    columns = [pandas.array(field, dtype=dtype) for field, dtype in zip(fields, _SUMMARY_DTYPES)]
    columns += [pandas.array([row[11].get(name) for row in rows], dtype=dtype)
                for name, dtype in items.items()]
    table = pandas.DataFrame(dict(enumerate(columns)))
    table.columns = [*SUMMARY_COLUMNS, *items]
    if report:
        table["error"] = pandas.array([row[12] if len(row) > 12 else None for row in rows],
                                      dtype=object)
    return table


def _check_errors(errors):
    """Whether failures are reported in the table (or raised)."""
    if errors not in ("raise", "report"):
        raise ValueError(f"errors must be 'raise' or 'report', not {errors!r}")
    return errors == "report"


def _summary_reads(files, threads, report):
    """The summary rows of the files, read keeping no vectors and no names;
    a failed file's row ends in its exception's type and message."""
    rows = []
    reads = _strix.read_many(files, vectors=(), names=False, threads=threads,
                             raise_first=not report)
    for file, got in zip(files, reads):
        name = _os.fsdecode(file)
        if isinstance(got, BaseException):
            rows.append((name, *(None,) * 10, {}, f"{type(got).__name__}: {got}"))
        else:
            rows += _summary_rows(name, got)
    return rows


def summary(sources, *, threads=0, errors="raise"):
    """A pandas DataFrame of many solution files, one row per file and
    solution in the order given (one row without a kind for a file that has
    no solution): file, kind, prosta, solsta, pobj, dobj, numvar, numcon,
    numcone, numbarvar, numacc, then a column per information item, sorted
    (the union over the files; missing where a file lacks it). sources is an
    iterable of paths, or one glob pattern (expanded in sorted order). Files
    are read on at most `threads` C++ threads, the calling one among them
    (0: as many as the machine gives the process, capped by STRIX_THREADS),
    keeping no vectors and no names.
    errors="raise" raises the first failing file's exception;
    errors="report" gives a failing file one row whose "error" column holds
    the exception's type and message, and every other row None there."""
    report = _check_errors(errors)
    files = _paths(sources)
    return _summary_table(_summary_reads(files, threads, report), report=report)


__all__ = ["__version__", "CompressionError", "Error", "FormatError", "IncompatibleFileError",
           "InconsistentSolution", "Solution", "SolutionItem", "convert", "read",
           "status_key_name", "status_key_names", "summary"]
