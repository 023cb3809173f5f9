"""Shared helpers of the end-to-end suites: run the built strix binary in a
scratch directory and look at what it did."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SOURCE_DIR = os.environ.get("STRIX_SOURCE_DIR",
                            os.path.dirname(os.path.dirname(os.path.dirname(
                                os.path.abspath(__file__)))))
sys.path.insert(0, os.path.join(SOURCE_DIR, "tests"))

import solgen  # noqa: E402  (the builder lives one folder up)

STRIX = os.path.abspath(os.environ.get("STRIX", os.path.join(SOURCE_DIR, "build", "strix")))
EXAMPLE = os.path.abspath(os.path.join(SOURCE_DIR, "examples", "example.b"))
SIGABRT = -signal.SIGABRT
SRC = "src\\strix\\strix"


class Result:
    def __init__(self, proc):
        self.status = proc.returncode
        self.out = proc.stdout
        self.err = proc.stderr.decode("latin-1")


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
        proc = subprocess.run([STRIX, *args], input=stdin, capture_output=True,
                              cwd=self.dir, timeout=timeout)
        return Result(proc)

    def tool(self, *args, stdin=None):
        """Runs an independent tool (zstd, gzip, tar) and returns its stdout."""
        proc = subprocess.run(args, input=stdin, capture_output=True, cwd=self.dir, check=True)
        return proc.stdout

    def assertAborted(self, result, *lines):
        """The run wrote exactly these lines to standard error, nothing to
        standard output, and died by SIGABRT."""
        self.assertEqual(result.err, "".join(line + "\n" for line in lines))
        self.assertEqual(result.status, SIGABRT)

    def assertFine(self, result):
        self.assertEqual((result.status, result.err), (0, ""))


def main():
    unittest.main(verbosity=1)
