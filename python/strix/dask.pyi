# Types of strix.dask, for editors and type checkers.
from typing import Iterable, Literal, Optional, Union

import dask.dataframe

from ._strix import Names, Path

Sources = Union[str, bytes, Iterable[Path]]

def summary(sources: Sources, *, files_per_partition: int = 64,
            errors: Literal["raise", "report"] = "raise") -> dask.dataframe.DataFrame: ...
def variables(sources: Sources, kind: str = "interior",
              vectors: Names = None) -> dask.dataframe.DataFrame: ...
def constraints(sources: Sources, kind: str = "interior",
                vectors: Names = None) -> dask.dataframe.DataFrame: ...
