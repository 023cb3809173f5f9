"""The text report (.txt): reports written out by hand, the designed end of a
report on bar variables, and reports without solutions."""

import time

from common import SIGABRT, StrixCase, main
from solgen import Item, SolutionFile

INF = float("inf")

# Three variables (one unnamed, one whose name needs escaping), two
# constraints, two ACCs of two rows and of none, and two solutions: one with
# every value, one with none.
SMALL = SolutionFile(
    numvar=3, numcon=2, numcone=1, numacc=2, acc_pattern=[2, 0],
    solutions=[
        Item("interior", prosta=b"PRIM_AND_DUAL_FEAS", solsta=b"OPTIMAL", pobj=2.5,
             skx=b"bk*", xx=[1, 0, INF], slx=[0, 2.5, float("nan")], sux=[1e20, -0.0, 1.5e-05],
             snx=[1e16, 1e15, -1e-05], skc=b"ux", xc=[0.1, 123456789012345678.0],
             y=[-2.5, 1e-300], slc=[0.0001, 0], suc=[2.5, -INF], doty=[7, 8]),
        Item("basic", prosta=b"PRIMAL_INFEAS", solsta=b"DUAL_INFEAS_CER", dobj=3.0,
             skx=b"lux", skc=b"xs")],
    names={"var": [b"x1", b"", b'a"b\xe9'], "con": [b"c\tx", b""], "cone": [b"K"],
           "acc": [b"never shown"]})

# Rows are "      {:<20}: {:6s}" then " {:24.16g}" per value, or " {:>24s}"
# with "." for an absent array. Infinities and NaN come out left-aligned in
# their 24 columns: that is how the formatting library pads non-finite values
# under "{:24.16g}". The ACC rows are "    {}: {:6s} " then "{:24.16g}" (or
# "{:24s}" with "."), repeating constraint 0's name and status and doty[0]
# for both rows of ACC 0.
VAR_HEADER = ("    # name                  sta                          xx"
              "                      slx                      sux                      snx\n")
CON_HEADER = ("    # name                  sta                          xc"
              "                      slc                      suc                        y\n")
DOTS = (" " * 24 + ".") * 4 + "\n"
SMALL_REPORT = (
    "Solutions\n"
    "  Solution interior\n"
    "    SolutionStatus optimal optimal\n"
    "    ProblemStatus feasible feasible\n"
    "    Objective 2.5 . \n"
    "    Variables\n"
    + VAR_HEADER +
    '      "x1"                : bas                           1                        0                    1e+20                    1e+16\n'
    '      var0001             : unk                           0                      2.5                       -0         1000000000000000\n'
    '      "a\\"b\\xe9"          : inf    inf                      nan                                       1.5e-05                   -1e-05\n'
    "    Constraints\n"
    + CON_HEADER +
    '      "c\\tx"              : upr                         0.1                   0.0001                      2.5                     -2.5\n'
    '      con0001             : fix       1.234567890123457e+17                        0 -inf                                       1e-300\n'
    "    AffineConicConstraints\n"
    '    "c\\tx": upr                           7\n'
    '    "c\\tx": upr                           7\n'
    "  Solution basic\n"
    "    SolutionStatus infeas_cert unknown\n"
    "    ProblemStatus infeasible unknown\n"
    "    Objective . 3\n"
    "    Variables\n"
    + VAR_HEADER +
    '      "x1"                : low   ' + DOTS +
    '      var0001             : upr   ' + DOTS +
    '      "a\\"b\\xe9"          : fix   ' + DOTS +
    "    Constraints\n"
    + CON_HEADER +
    '      "c\\tx"              : fix   ' + DOTS +
    '      con0001             : supbas' + DOTS +
    "    AffineConicConstraints\n"
    '    "c\\tx": fix    .                       \n'
    '    "c\\tx": fix    .                       \n'
).encode("latin-1")


class Report(StrixCase):
    def test_small_report(self):
        self.assertEqual(self.convert(SMALL, "out.txt"), SMALL_REPORT)

    def test_no_variables_and_no_constraints(self):
        sf = SolutionFile(solutions=[Item("basic", prosta=b"PRIM_AND_DUAL_FEAS",
                                          solsta=b"PRIMAL_AND_DUAL_FEAS", pobj=-0.0, dobj=1e-07)])
        self.assertEqual(self.convert(sf, "out.txt"), (
            "Solutions\n  Solution basic\n    SolutionStatus feasible feasible\n"
            "    ProblemStatus feasible feasible\n    Objective -0 1e-07\n    Variables\n"
            + VAR_HEADER + "    Constraints\n" + CON_HEADER).encode())

    def test_no_solutions_gives_the_one_line_quickly_whatever_the_sizes(self):
        start = time.monotonic()
        sf = SolutionFile(numvar=2 ** 31 - 1, numcon=2 ** 31 - 1)
        self.assertEqual(self.convert(sf, "out.txt"), b"Solutions\n")
        self.assertLess(time.monotonic() - start, 10)

    def test_report_ends_after_the_first_bar_variable_line(self):
        # Packed length L = 3: t = trunc(sqrt(8*3 + 1) + 1) = 6, n = t / 2 = 3.
        # The column header after it has four fields for three arguments; the
        # formatting error ends the report there.
        sf = SolutionFile(numvar=1, numbarvar=2, barvar_pattern=[3, 1],
                          solutions=[Item("interior", pobj=1.0, dobj=1.0, skx=b"b", xx=[1],
                                          barx=[1, 2, 3, 4], bars=[5, 6, 7, 8])])
        expected = ("Solutions\n  Solution interior\n    SolutionStatus optimal optimal\n"
                    "    ProblemStatus feasible feasible\n    Objective 1 1\n    Variables\n"
                    + VAR_HEADER + "      var0000             : bas                           1"
                    + DOTS[25:] + "    BarVariables\n      barvar0000(3):\n").encode()
        self.write("in.b", sf.to_bytes())
        r = self.strix("in.b", "out.txt")
        self.assertEqual((r.status, r.err, self.read("out.txt")),
                         (SIGABRT, "?:?: Unknown error\n", expected))
        # On standard output the abnormal end may lose what was not yet
        # flushed; what did arrive is the same text.
        r = self.strix("in.b", "-.txt")
        self.assertEqual((r.status, r.err), (SIGABRT, "?:?: Unknown error\n"))
        self.assertTrue(r.out.startswith(b"Solutions\n  Solution interior\n"), r.out)
        self.assertTrue(expected.startswith(r.out), r.out)

if __name__ == "__main__":
    main()
