# Types of the package, for editors and type checkers.
from typing import Iterable, Literal, Tuple, Union

import numpy
import pandas
from numpy.typing import ArrayLike, NDArray

from . import _strix
from ._strix import CompressionError as CompressionError
from ._strix import Error as Error
from ._strix import FormatError as FormatError
from ._strix import IncompatibleFileError as IncompatibleFileError
from ._strix import InconsistentSolution as InconsistentSolution
from ._strix import Solution as Solution
from ._strix import SolutionItem as SolutionItem
from ._strix import __version__ as __version__
from ._strix import convert as convert
from ._strix import read as read
from ._strix import status_key_name as status_key_name

def status_key_names(keys: ArrayLike) -> NDArray[numpy.str_]: ...
SUMMARY_COLUMNS: Tuple[str, ...]

def summary(sources: Union[str, bytes, Iterable[_strix.Path]], *, threads: int = 0,
            errors: Literal["raise", "report"] = "raise") -> pandas.DataFrame: ...
