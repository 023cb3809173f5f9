"""Shared helpers of the end-to-end suites: run the built strix binary in a
scratch directory and look at what it did; a solution file with every
optional section."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from types import SimpleNamespace

SOURCE_DIR = os.environ.get("STRIX_SOURCE_DIR",
                            os.path.dirname(os.path.dirname(os.path.dirname(
                                os.path.abspath(__file__)))))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tests"))

import solgen  # noqa: E402  (the builder lives one folder up)
from solgen import Item, SolutionFile  # noqa: E402

STRIX = os.path.abspath(os.environ.get("STRIX", os.path.join(SOURCE_DIR, "build", "strix")))
EXAMPLE = os.path.abspath(os.path.join(SOURCE_DIR, "examples", "example.b"))
SIGABRT = -signal.SIGABRT
SRC = "src\\strix\\strix"
UNKNOWN_XML = "ERROR: Unknown output format '\".xml\"'\n"


def full_item(kind="basic", n=2, **over):
    """A solution with every optional section, sized for `full_file(n)`."""
    v = [i * 0.5 - 3 for i in range(n)]
    fields = dict(pobj=1.5, dobj=-2.0, skx=bytes(b"bslux*k"[i % 7] for i in range(n)), xx=v,
                  slx=v[::-1], sux=v, snx=[1e300] * n, barx=[1, 2, 3, 4], bars=[-1, -2, -3, -4],
                  skc=b"ul", xc=[7, 8], y=[-8, float("inf")], slc=[9, 0], suc=[10, -0.0],
                  skn=b"bbx", doty=[11, 12, 13])
    fields.update(over)
    return Item(kind, **fields)


def full_file(n=2, **over):
    """n variables, two constraints, three cones, bar pattern [3, 1], ACC
    pattern [2, 1], all three kinds of solution, every name section and
    information names that need escaping."""
    fields = dict(
        version=(10, 2, 3), numvar=n, numcon=2, numcone=3, numbarvar=2, numacc=2,
        barvar_pattern=[3, 1], acc_pattern=[2, 1],
        solutions=[full_item(kind, n) for kind in ("interior", "basic", "integer")],
        names={"var": [b"v%d" % i for i in range(n)], "barvar": [b"X", b"Y"],
               "con": [b"c", b"d"], "cone": [b"k1", b"k2", b"k3"], "acc": [b"a", b"b"]},
        problem_name=b"p", objective_name=b"o",
        info_f64=[(b"a\tb", 0.5), (b"c\\d", -1e-300), (b'q"x', float("-inf"))],
        info_i32=[(b"\xc3\xa9t\x0c", -7), (b"n", 2 ** 31 - 1)],
        info_i64=[(b"line\nbreak\r", -2 ** 63), (b"big", 2 ** 40)])
    fields.update(over)
    return SolutionFile(**fields)


class StrixCase(unittest.TestCase):
    """Each test runs in a fresh scratch directory."""

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="strix-e2e-")
        self.addCleanup(shutil.rmtree, self.dir, True)

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()

    def strix(self, *args, stdin=b"", timeout=120):
        """Runs strix; the result has .status, .out (bytes) and .err (text)."""
        p = subprocess.run([STRIX, *args], input=stdin, capture_output=True, cwd=self.dir,
                           timeout=timeout)
        return SimpleNamespace(status=p.returncode, out=p.stdout, err=p.stderr.decode("latin-1"))

    def convert(self, source, out, stdin=b""):
        """Converts `source` (a SolutionFile or an input name) without a
        complaint and returns what was written to `out`, file or stdout."""
        if isinstance(source, SolutionFile):
            self.write("in.b", source.to_bytes())
            source = "in.b"
        r = self.strix(source, out, stdin=stdin)
        self.assertFine(r)
        return r.out if out.startswith("-") else self.read(out)

    def tool(self, *args, stdin=None):
        """Runs an independent tool (zstd, gzip, tar) and returns its stdout."""
        proc = subprocess.run(args, input=stdin, capture_output=True, cwd=self.dir, check=True)
        return proc.stdout

    def assertAborted(self, result, *lines):
        """Exactly these lines on standard error, then death by SIGABRT."""
        self.assertEqual(result.err, "".join(line + "\n" for line in lines))
        self.assertEqual(result.status, SIGABRT)

    def assertFine(self, result):
        self.assertEqual((result.status, result.err), (0, ""))


def main():
    unittest.main(verbosity=1)
