"""Many solution files on a Dask cluster: the files are read on the workers,
and only the tables asked for travel to the client.

    import strix.dask
    table = strix.dask.summary("runs/*.b").compute()
    xx = strix.dask.variables("runs/*.b", vectors=("xx",))
    xx[xx.name == "x1"].compute()

Needs Dask's dataframe and, for a cluster, distributed (strix[dask]).
"""

import os

import dask
import dask.dataframe as dd
import pandas

import strix

def _summary_items(files, report):
    """{item name: the Python types of its values} over the files."""
    return strix._item_types(strix._summary_reads(files, 1, report))


def _summary_part(files, items, report):
    return strix._summary_table(strix._summary_reads(files, 1, report), items, report)


def summary(sources, *, files_per_partition=64, errors="raise"):
    """strix.summary as a dask DataFrame computed on the workers, several
    files per partition. A first pass on the workers reads the names of the
    information items, so that every partition has the same columns."""
    report = strix._check_errors(errors)
    files = strix._paths(sources)
    chunks = [files[i:i + files_per_partition]
              for i in range(0, len(files), files_per_partition)] or [[]]
    types = {}
    for part in dask.compute(*[dask.delayed(_summary_items)(c, report) for c in chunks]):
        for name, t in part.items():
            types.setdefault(name, set()).update(t)
    items = strix._item_dtypes(types)
    meta = strix._summary_table([], items, report)
    return dd.from_map(_summary_part, chunks, items=items, report=report, meta=meta,
                       enforce_metadata=False)


def _table_part(file, kind, vectors, which, like):
    solution = strix.read(file, solutions=(kind,), vectors=vectors)
    item = solution.solutions.get(kind)
    frame = getattr(item, which)() if item is not None else like.iloc[:, 1:]
    frame.insert(0, "file", os.fsdecode(file))
    return frame.reindex(columns=like.columns).astype(like.dtypes.to_dict())


def _table(sources, kind, vectors, which):
    allowed = strix._strix._TABLE_VECTORS[which]  # status keys first, then the values
    vectors = allowed if vectors is None else (vectors,) if isinstance(vectors, str) else tuple(
        vectors)
    for name in vectors:
        if name not in allowed:
            raise ValueError(f"{name!r} is not a vector of the {which} (one of "
                             f"{', '.join(allowed)})")
    if kind not in strix._strix._SOLUTION_KINDS:
        raise ValueError(f"unknown solution kind {kind!r}")
    columns = {"file": "object", "name": "object"}
    columns.update({"status": "object"} if allowed[0] in vectors else {})
    columns.update({v: "float64" for v in allowed[1:] if v in vectors})
    meta = pandas.DataFrame({c: pandas.Series(dtype=t) for c, t in columns.items()})
    return dd.from_map(_table_part, strix._paths(sources), kind=kind, vectors=vectors,
                       which=which, like=meta, meta=meta, enforce_metadata=False)


def variables(sources, kind="interior", vectors=None):
    """A dask DataFrame of the variables of every file, one partition per
    file: the rows of item.variables() with a "file" column first. Each
    worker reads only the vectors asked for (None: skx, xx, slx, sux, snx);
    a value vector a file lacks is NaN, and a file without that solution
    kind has no rows."""
    return _table(sources, kind, vectors, "variables")


def constraints(sources, kind="interior", vectors=None):
    """As variables(), for the constraints (skc, xc, slc, suc, y)."""
    return _table(sources, kind, vectors, "constraints")


__all__ = ["constraints", "summary", "variables"]
