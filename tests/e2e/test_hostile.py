"""Small files that claim huge sizes end as designed under a 256 MB address
space limit: no allocation failure, no hang."""

import resource
import subprocess
import unittest

from common import SIGABRT, SRC, STRIX, StrixCase, main
from solgen import Item, SolutionFile, arr, f64s, prefix, section_tuple, serialize, u32

LIMIT = 256 << 20


def huge_prefix(data):
    """An array whose prefix claims 2^56 bytes but holds only `data`. (Seven
    further bytes, 0xE1 ...: 0xE0 itself is the chunked mark.)"""
    return prefix(1 << 56, 7) + data


def limited():
    resource.setrlimit(resource.RLIMIT_AS, (LIMIT, LIMIT))


def header(**sizes):
    """The seven leading sections of a file of these sizes."""
    return SolutionFile(**sizes).sections()[:7]


class HostileSizes(StrixCase):
    @classmethod
    def setUpClass(cls):
        # Sanitizer builds reserve terabytes of shadow memory at start and
        # cannot run under an address-space limit at all.
        if subprocess.run([STRIX], capture_output=True, preexec_fn=limited).returncode != 1:
            raise unittest.SkipTest("binary cannot start under the limit")

    def run_limited(self, data, out="out.xml"):
        self.write("in.b", data)
        proc = subprocess.run([STRIX, "in.b", out], capture_output=True, cwd=self.dir,
                              preexec_fn=limited, timeout=60)
        return proc.returncode, proc.stderr.decode("latin-1")

    def test_counts_far_beyond_the_data(self):
        sol = [section_tuple("sol/basic", "[B[B", arr(b"OPTIMAL") + arr(b"OPTIMAL")),
               section_tuple("sol/basic/var/sta", "[B", arr(b""))]
        cases = [
            # numvar 4e9 with a primal array that claims 2^56 bytes and holds 3 values
            (header(numvar=4_000_000_000) + sol +
             [section_tuple("sol/basic/var/primal", "[d", huge_prefix(f64s([1, 2, 3])))],
             "InconsistentSolution: sol/basic/var/primal"),
            # constraint duals are sized by numvar: three arrays claiming 2^56 bytes
            (header(numvar=2**31 - 1, numcon=1) + sol +
             [section_tuple("sol/basic/con/sta", "[B", arr(b"b")),
              section_tuple("sol/basic/con/dual", "[d[d[d", huge_prefix(f64s([1.0] * 1000)))],
             "InconsistentSolution: sol/basic/con/dual - y"),
            # an acc pattern that claims 2^56 bytes for numacc 2^62
            (header(numacc=2**62) + [section_tuple("acc/pattern", "[L", huge_prefix(bytes(64)))],
             f"{SRC}:1315:Expected 'inf/f64'"),
            # name lengths summing to 2^32 * 3 over a small buffer
            (header() + [section_tuple("name/var", "[I[B",
                                       arr(u32(2**32 - 1) * 3) + huge_prefix(b"abc"))],
             f"{SRC}:1315:Expected 'inf/f64'"),
            # a chunked array that never ends
            (header() + sol[:1] + [section_tuple("sol/basic/var/sta", "[B",
                                                 b"\xe0\xff\xff" + bytes(1000))],
             f"{SRC}:1315:Expected 'inf/f64'"),
            # information name lengths claiming 2^56 bytes: ten items, no values
            (header() + [section_tuple("inf/f64", "[B[B[d", huge_prefix(b"\x05" * 10))],
             f"{SRC}:1323:Invalid 'inf/f64' entry"),
        ]
        for i, (sections, line) in enumerate(cases):
            with self.subTest(case=i):
                self.assertEqual(self.run_limited(serialize(sections)), (SIGABRT, line + "\n"))

    def test_huge_patterns_are_written_without_reading_past_the_values(self):
        sf = SolutionFile(numvar=0, numbarvar=2, numacc=2, barvar_pattern=[2**63, 2**62],
                          acc_pattern=[2**64 - 1, 5],
                          solutions=[Item("basic", skx=b"", barx=[1, 2], bars=[3], doty=[4])])
        for out in ("out.json", "out.task", "out.json.zst"):
            with self.subTest(out=out):
                self.assertEqual(self.run_limited(sf.to_bytes(), out), (0, ""))
        self.assertIn(b'"barx" : [[1,2],[]]', self.read("out.json"))
        self.assertIn(b'"doty" : [[4],[]]', self.read("out.json"))


if __name__ == "__main__":
    main()
