"""The command line: usage, suffix rules, exit statuses and the .b copy."""

import os
import random

from common import EXAMPLE, StrixCase, main

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


class Usage(StrixCase):
    def test_too_few_arguments(self):
        for args in ((), ("in.b",)):
            r = self.strix(*args)
            self.assertEqual((r.status, r.err, r.out), (1, USAGE, b""))

    def test_extra_arguments_are_ignored(self):
        self.write("in.b", b"abc")
        self.assertFine(self.strix("in.b", "out.b", "third", "fourth"))
        self.assertEqual(self.read("out.b"), b"abc")


class Names(StrixCase):
    def test_gzip_input_is_refused_before_anything_is_created(self):
        self.write("in.b.gz", b"whatever")
        r = self.strix("in.b.gz", "out.json")
        self.assertEqual((r.status, r.err), (2, "Compression type '\".gz\"' not supported for input\n"))
        self.assertFalse(os.path.exists(self.path("out.json")))

    def test_missing_input_aborts_and_creates_no_output(self):
        self.assertAborted(self.strix("missing.b", "out.b"), "?:?: Unknown error")
        self.assertFalse(os.path.exists(self.path("out.b")))

    def test_unknown_format_after_full_read(self):
        # The file is created first, the input read and checked, then the
        # form refused.
        r = self.strix(EXAMPLE, "out.xml")
        self.assertEqual((r.status, r.err), (7, "ERROR: Unknown output format '\".xml\"'\n"))
        self.assertEqual(self.read("out.xml"), b"")
        for name, suffix in (("x.JSON", ".JSON"), ("out.json.zst.gz", ".zst"),
                             ("noext", ""), ("a.b.c.d", ".d")):
            r = self.strix(EXAMPLE, name)
            self.assertEqual((r.status, r.err),
                             (7, f"ERROR: Unknown output format '\"{suffix}\"'\n"), name)
            self.assertTrue(os.path.exists(self.path(name)), name)

    def test_dash_alone_is_standard_output_with_an_empty_format(self):
        r = self.strix(EXAMPLE, "-")
        self.assertEqual((r.status, r.err, r.out), (7, "ERROR: Unknown output format '\"\"'\n", b""))

    def test_quotes_and_backslashes_in_the_suffix_are_escaped(self):
        r = self.strix(EXAMPLE, 'out.x"y\\z')
        self.assertEqual(r.status, 7)
        self.assertEqual(r.err, "ERROR: Unknown output format '\".x\\\"y\\\\z\"'\n")

    def test_bad_input_fails_before_the_format_is_looked_at(self):
        self.write("in.b", b"NLOB")
        self.assertAborted(self.strix("in.b", "out.xml"),
                           "src\\strix\\strix:1041:Expected section 'NLOSOLN'")
        self.assertEqual(self.read("out.xml"), b"")

    def test_uncreatable_output_is_silent(self):
        self.write("in.b", b"abc")
        self.assertFine(self.strix("in.b", "no/such/dir/out.b"))


class Copy(StrixCase):
    def test_file_to_file_copies_any_bytes(self):
        self.write("in.b", BLOB)
        self.assertFine(self.strix("in.b", "out.b"))
        self.assertEqual(self.read("out.b"), BLOB)

    def test_any_input_suffix_is_read_plain(self):
        self.write("notes.txt", b"not a solution file\n")
        self.assertFine(self.strix("notes.txt", "out.b"))
        self.assertEqual(self.read("out.b"), b"not a solution file\n")

    def test_empty_input(self):
        self.write("in.b", b"")
        self.assertFine(self.strix("in.b", "out.b"))
        self.assertEqual(self.read("out.b"), b"")

    def test_standard_input_and_output(self):
        r = self.strix("-.b", "-.b", stdin=BLOB)
        self.assertFine(r)
        self.assertEqual(r.out, BLOB)

    def test_dash_names_that_are_not_standard_input(self):
        # "-", "-.zst" and "./-.b" name files; only "-.b" and "-.b.zst" are stdin.
        for name in ("-", "./-.b"):
            self.write(name, b"from the file " + name.encode())
            r = self.strix(name, "out.b", stdin=b"from stdin")
            self.assertFine(r)
            self.assertEqual(self.read("out.b"), b"from the file " + name.encode())
        self.write("-.zst", self.tool("zstd", "-q", "-c", stdin=b"zst file"))
        self.assertFine(self.strix("-.zst", "out.b", stdin=b"ignored"))
        self.assertEqual(self.read("out.b"), b"zst file")

    def test_zstd_input_from_file_and_standard_input(self):
        packed = self.tool("zstd", "-q", "-c", "-19", stdin=BLOB)
        self.write("in.b.zst", packed)
        self.assertFine(self.strix("in.b.zst", "out.b"))
        self.assertEqual(self.read("out.b"), BLOB)
        r = self.strix("-.b.zst", "-.b", stdin=packed)
        self.assertFine(r)
        self.assertEqual(r.out, BLOB)

    def test_two_zstd_frames_read_as_one_stream(self):
        a = self.tool("zstd", "-q", "-c", stdin=BLOB[:5000])
        b = self.tool("zstd", "-q", "-c", stdin=BLOB[5000:])
        self.write("in.b.zst", a + b)
        self.assertFine(self.strix("in.b.zst", "out.b"))
        self.assertEqual(self.read("out.b"), BLOB)

    def test_corrupt_zstd_input_aborts_and_keeps_the_output_file(self):
        packed = bytearray(self.tool("zstd", "-q", "-c", stdin=BLOB))
        packed[len(packed) // 2:] = bytes(len(packed) - len(packed) // 2)
        self.write("in.b.zst", bytes(packed))
        self.assertAborted(self.strix("in.b.zst", "out.b"), "?:?: Unknown error")
        got = self.read("out.b")
        self.assertTrue(BLOB.startswith(got))


if __name__ == "__main__":
    main()
