"""Writes the bundled example, examples/example.b, with the project's builder
of solution files: three named variables, two constraints, an interior and a
basic solution, information items.

    python3 examples/make_example.py [OUT]
"""

import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests"))

from solgen import Item, SolutionFile  # noqa: E402


def example():
    return SolutionFile(
        numvar=3, numcon=2, problem_name=b"example", objective_name=b"cost",
        solutions=[
            Item("interior", pobj=2.5, dobj=2.4999999998, skx=b"bll", xx=[1.0, 0.0, 1.5],
                 slx=[0.0, 2.5, 1e-09], sux=[0.0, 0.0, 0.0], skc=b"uu", xc=[1.0, 1.5],
                 y=[-2.5, -1e-10], slc=[0.0, 0.0], suc=[2.5, 1e-10]),
            Item("basic", pobj=2.5, dobj=2.5, skx=b"bll", xx=[1.0, 0.0, 1.5],
                 slx=[0.0, 2.5, 0.0], sux=[0.0, 0.0, 0.0], skc=b"ub", xc=[1.0, 1.5],
                 y=[-2.5, 0.0], slc=[0.0, 0.0], suc=[2.5, 0.0])],
        names={"var": [b"x1", b"x2", b""], "con": [b"budget", b"c\xe9"]},
        info_f64=[(b"optimizer_time", 0.125), (b"primal_obj", 2.5)],
        info_i32=[(b"iterations", 7), (b"num_threads", 2)], info_i64=[(b"nonzeros", 9)])


if __name__ == "__main__":
    with open(sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "example.b"), "wb") as f:
        f.write(example().to_bytes())
