# Types of strix.dask, for editors and type checkers.
from typing import Iterable, Literal, Optional, Union

from dask.dataframe.core import DataFrame

from ._strix import Names, Path

Sources = Union[str, bytes, Iterable[Path]]

def summary(sources: Sources, *, files_per_partition: int = 64,
            errors: Literal["raise", "report"] = "raise") -> DataFrame: ...
def variables(sources: Sources, kind: str = "interior",
              vectors: Names = None) -> DataFrame: ...
def constraints(sources: Sources, kind: str = "interior",
                vectors: Names = None) -> DataFrame: ...
