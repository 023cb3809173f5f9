"""The command line: usage, suffix rules, exit statuses and the .b copy."""

import os
import random

from common import EXAMPLE, SRC, StrixCase, main

USAGE = (
    "Syntax: strix INFILE OUTFILE\n"
    "  INFILE input solution file in .b or .b.zst format, '-.b' or '-.b.zst' to read from stdin\n"
    "  OUTFILE is the output file to write to, '-' plus extension meaning stdout. \n"
    "      Supported formats are:\n"
    "          -.json, -.json.zst, -.json.gz,\n"
    "          -.task, -.task.zst, -.task.gz,\n"
    "          -.b, -.b.zst, -.b.gz\n"
    "Compression supported:\n"
    "  ZSTD (input and output)\n")

# Every byte value, in a length that is no multiple of the 4096-byte pieces.
BLOB = bytes(range(256)) * 40 + random.Random(7).randbytes(100_003)


class Names(StrixCase):
    def test_usage_and_extra_arguments(self):
        for args in ((), ("in.b",)):
            r = self.strix(*args)
            self.assertEqual((r.status, r.err, r.out), (1, USAGE, b""))
        self.write("in.b", b"abc")
        self.assertFine(self.strix("in.b", "out.b", "third", "fourth"))
        self.assertEqual(self.read("out.b"), b"abc")
        # An output that cannot be created is silently lost.
        self.assertFine(self.strix("in.b", "no/such/dir/out.b"))

    def test_refused_and_missing_inputs_create_no_output(self):
        self.write("in.b.gz", b"whatever")
        r = self.strix("in.b.gz", "out.json")
        self.assertEqual((r.status, r.err), (2, "Compression type '\".gz\"' not supported for input\n"))
        self.assertAborted(self.strix("missing.b", "out.b"), "?:?: Unknown error")
        self.assertEqual(os.listdir(self.dir), ["in.b.gz"])

    def test_unknown_format_after_full_read(self):
        # The output is created first, the input read and checked, then the
        # form refused. Only one compression suffix is peeled; suffixes are
        # case-sensitive; the quoted suffix escapes quotes and backslashes.
        for name, quoted in (("out.xml", '".xml"'), ("x.JSON", '".JSON"'),
                             ("out.json.zst.gz", '".zst"'), ("noext", '""'), ("a.b.c.d", '".d"'),
                             ('out.x"y\\z', '".x\\"y\\\\z"'), ("-", '""')):
            with self.subTest(name=name):
                r = self.strix(EXAMPLE, name)
                self.assertEqual((r.status, r.err, r.out),
                                 (7, f"ERROR: Unknown output format '{quoted}'\n", b""))
                self.assertEqual(os.path.exists(self.path(name)), name != "-")
        self.assertEqual(self.read("out.xml"), b"")
        # A bad input fails before the form is looked at.
        self.write("in.b", b"NLOB")
        self.assertAborted(self.strix("in.b", "out.xml"), f"{SRC}:1041:Expected section 'NLOSOLN'")
        self.assertEqual(self.read("out.xml"), b"")


class Copy(StrixCase):
    def test_any_input_is_copied_unchecked(self):
        for name, data in (("in.b", BLOB), ("notes.txt", b"not a solution file\n"), ("e.b", b"")):
            with self.subTest(name=name):
                self.write(name, data)
                self.assertFine(self.strix(name, "out.b"))
                self.assertEqual(self.read("out.b"), data)
        self.assertEqual(self.convert("-.b", "-.b", stdin=BLOB), BLOB)

    def test_dash_names_that_are_not_standard_input(self):
        # "-", "-.zst" and "./-.b" name files; only "-.b" and "-.b.zst" are stdin.
        self.write("-.zst", self.tool("zstd", "-q", "-c", stdin=b"from the file -.zst"))
        for name in ("-", "./-.b", "-.zst"):
            if name != "-.zst":
                self.write(name, b"from the file " + name.encode())
            self.assertFine(self.strix(name, "out.b", stdin=b"from stdin"))
            self.assertEqual(self.read("out.b"), b"from the file " + name.encode())

    def test_zstd_input(self):
        # Frames in a row read as one stream; .b.zst to .b.zst is decoded and
        # encoded again; a solution file is parsed through the decoder too.
        zstd = lambda data: self.tool("zstd", "-q", "-c", "-19", stdin=data)  # noqa: E731
        self.write("in.b.zst", zstd(BLOB))
        self.assertFine(self.strix("in.b.zst", "out.b.zst"))
        self.assertEqual(self.tool("zstd", "-q", "-d", "-c", "out.b.zst"), BLOB)
        for data in (zstd(BLOB), zstd(BLOB[:5000]) + zstd(BLOB[5000:])):
            self.assertEqual(self.convert("-.b.zst", "-.b", stdin=data), BLOB)
        with open(EXAMPLE, "rb") as f:
            example = zstd(f.read())
        self.assertEqual(self.convert("-.b.zst", "-.json", stdin=example),
                         self.convert(EXAMPLE, "out.json"))

    def test_corrupt_zstd_input_aborts_and_keeps_the_output_file(self):
        packed = bytearray(self.tool("zstd", "-q", "-c", stdin=BLOB))
        packed[len(packed) // 2:] = bytes(len(packed) - len(packed) // 2)
        self.write("in.b.zst", bytes(packed))
        self.assertAborted(self.strix("in.b.zst", "out.b"), "?:?: Unknown error")
        self.assertTrue(BLOB.startswith(self.read("out.b")))
        # Garbage after a whole frame: every whole 4096-byte piece read before
        # the failing read is in the output.
        self.write("in.b.zst", self.tool("zstd", "-q", "-c", stdin=BLOB) + b"Z" * 200)
        self.assertAborted(self.strix("in.b.zst", "out.b"), "?:?: Unknown error")
        self.assertEqual(self.read("out.b"), BLOB[:len(BLOB) // 4096 * 4096])


if __name__ == "__main__":
    main()
