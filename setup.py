"""pip's way in: `pip install --no-build-isolation .` builds the package strix
through the project's CMake (scikit-build), which installs the package and
nothing else into the wheel."""

import re
from pathlib import Path

from skbuild import setup

# The version has one home, the CMake project.
VERSION = re.search(r"project\(strix VERSION (\S+)",
                    (Path(__file__).parent / "CMakeLists.txt").read_text()).group(1)

setup(
    name="strix",
    version=VERSION,
    description="Solution files of a conic optimisation solver as NumPy arrays and tables",
    packages=["strix"],
    package_dir={"": "python"},
    cmake_install_dir="python",
    python_requires=">=3.9",
    install_requires=["numpy"],
    extras_require={"pandas": ["pandas"], "dask": ["pandas", "dask[dataframe]", "distributed"]},
)
