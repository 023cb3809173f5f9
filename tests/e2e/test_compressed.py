"""Compressed output (.zst, .gz) of every form, to files and to standard
output, unpacked with the real zstd and gzip tools; the bytes the gzip
buffer drops at its 64 KiB boundaries; failed writes to a full device and to
a closed pipe."""

import os
import random
import signal
import subprocess

from common import EXAMPLE, SIGABRT, STRIX, StrixCase, main, solgen

FORMS = (".json", ".jtask", ".task", ".txt", ".b")
UNPACK = {".zst": ("zstd", "-q", "-d", "-c"), ".gz": ("gzip", "-d", "-c")}
MAGIC = {".zst": b"\x28\xb5\x2f\xfd", ".gz": b"\x1f\x8b"}
UNKNOWN = "?:?: Unknown error\n"
RANDOM = random.Random(11).randbytes(300_000)


def gzip_loss(data):
    """What the gzip buffer passes on: its put area holds 65536 bytes, and the
    byte that overflows a full put area is consumed but never compressed, so
    bytes 65536, 65536 + 65537, ... are lost."""
    out, start, lost = bytearray(), 0, 65536
    while lost < len(data):
        out += data[start:lost]
        start, lost = lost + 1, lost + 65537
    return bytes(out + data[start:])


class CompressedCase(StrixCase):
    def unpack(self, data, compression):
        self.assertTrue(data.startswith(MAGIC[compression]), data[:8])
        return self.tool(*UNPACK[compression], stdin=data)

    def convert(self, infile, out):
        """Runs strix and returns what it wrote to `out` (a file or
        standard output)."""
        r = self.strix(infile, out)
        self.assertFine(r)
        return r.out if out.startswith("-") else self.read(out)

    def run_with_stdout(self, stdout, *args, **kw):
        proc = subprocess.run([STRIX, *args], stdout=stdout, stderr=subprocess.PIPE,
                              cwd=self.dir, timeout=120, **kw)
        return proc.returncode, proc.stderr.decode("latin-1")


class EveryForm(CompressedCase):
    def test_each_form_compressed_equals_the_plain_form(self):
        for form in FORMS:
            plain = self.convert(EXAMPLE, "plain" + form)
            self.assertGreater(len(plain), 0)
            for compression in (".zst", ".gz"):
                for base in ("out", "-"):
                    out = base + form + compression
                    with self.subTest(out=out):
                        self.assertEqual(self.unpack(self.convert(EXAMPLE, out), compression),
                                         plain)

    def test_zstd_input_to_zstd_output_round_trips(self):
        with open(EXAMPLE, "rb") as f:
            example = f.read()
        self.write("in.b.zst", self.tool("zstd", "-q", "-c", stdin=example))
        self.assertEqual(self.unpack(self.convert("in.b.zst", "out.b.zst"), ".zst"), example)
        r = self.strix("-.b.zst", "-.json.gz", stdin=self.read("in.b.zst"))
        self.assertFine(r)
        self.assertEqual(self.unpack(r.out, ".gz"), self.convert(EXAMPLE, "plain.json"))

    def test_empty_outputs_are_valid_empty_streams(self):
        for compression in (".zst", ".gz"):
            with self.subTest(compression=compression):
                # The unknown form is refused after the file was created; the
                # buffer still finishes an empty stream into it.
                r = self.strix(EXAMPLE, "out.xml" + compression)
                self.assertEqual((r.status, r.err),
                                 (7, "ERROR: Unknown output format '\".xml\"'\n"))
                self.assertEqual(self.unpack(self.read("out.xml" + compression), compression), b"")
                self.write("empty.b", b"")
                self.assertEqual(self.unpack(self.convert("empty.b", "out.b" + compression),
                                             compression), b"")
                r = self.strix("-.b", "-.b" + compression, stdin=b"")
                self.assertFine(r)
                self.assertEqual(self.unpack(r.out, compression), b"")


class PutAreaBoundaries(CompressedCase):
    def test_gzip_drops_the_byte_at_each_boundary_and_zstd_drops_none(self):
        self.write("in.b", RANDOM)
        expected = gzip_loss(RANDOM)
        self.assertEqual(len(expected), len(RANDOM) - 4)  # lost at 65536, 131073, 196610, 262147
        self.assertEqual(expected[65535:65537], RANDOM[65535:65538:2])
        for out in ("out.b.gz", "-.b.gz"):
            with self.subTest(out=out):
                self.assertEqual(self.unpack(self.convert("in.b", out), ".gz"), expected)
        for out in ("out.b.zst", "-.b.zst"):
            with self.subTest(out=out):
                self.assertEqual(self.unpack(self.convert("in.b", out), ".zst"), RANDOM)

    def test_boundaries_of_exactly_one_put_area(self):
        # 65536 bytes fill the put area without overflowing it; one more byte
        # overflows it and is the one lost.
        for n, expected in ((65536, RANDOM[:65536]), (65537, RANDOM[:65536])):
            self.write("in.b", RANDOM[:n])
            with self.subTest(n=n):
                self.assertEqual(self.unpack(self.convert("in.b", "out.b.gz"), ".gz"), expected)

    def test_large_writer_outputs_lose_the_same_bytes(self):
        self.write("in.b", solgen.large(4000, 2000, seed=3).to_bytes())
        for form in (".json", ".task", ".txt"):
            plain = self.convert("in.b", "plain" + form)
            self.assertGreater(len(plain), 3 * 65536)
            with self.subTest(form=form):
                self.assertEqual(self.unpack(self.convert("in.b", "out" + form + ".gz"), ".gz"),
                                 gzip_loss(plain))
                self.assertEqual(self.unpack(self.convert("in.b", "out" + form + ".zst"), ".zst"),
                                 plain)


class FailedWrites(CompressedCase):
    def setUp(self):
        super().setUp()
        # Random bytes do not compress: the compressed stream must be written
        # long before the end.
        self.write("in.b", random.Random(5).randbytes(1 << 20))

    def test_full_device(self):
        for suffix, designed in ((".b.zst", (SIGABRT, UNKNOWN)), (".b.gz", (SIGABRT, UNKNOWN)),
                                 # Writes to an uncompressed output are not checked.
                                 (".b", (0, ""))):
            with self.subTest(out="file" + suffix):
                os.symlink("/dev/full", self.path("out" + suffix))
                r = self.strix("in.b", "out" + suffix)
                self.assertEqual((r.status, r.err), designed)
            with self.subTest(out="-" + suffix):
                with open("/dev/full", "wb") as full:
                    self.assertEqual(self.run_with_stdout(full, "in.b", "-" + suffix), designed)

    def test_closed_pipe(self):
        for suffix, designed in ((".b.zst", (SIGABRT, UNKNOWN)), (".b.gz", (SIGABRT, UNKNOWN)),
                                 (".b", (0, ""))):
            for ignored in (False, True):
                with self.subTest(out="-" + suffix, sigpipe_ignored=ignored):
                    reader, writer = os.pipe()
                    os.close(reader)
                    try:
                        # This interpreter ignores SIGPIPE; restore_signals=False
                        # hands that on to strix.
                        got = self.run_with_stdout(writer, "in.b", "-" + suffix,
                                                   restore_signals=not ignored)
                    finally:
                        os.close(writer)
                    self.assertEqual(got, designed if ignored else (-signal.SIGPIPE, ""))


if __name__ == "__main__":
    main()
