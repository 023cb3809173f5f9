"""Every form to files and to standard output, plain and compressed (.zst,
.gz, unpacked with the real zstd and gzip tools); the bytes the gzip buffer
drops at its 64 KiB boundaries; failed writes to a full device and to a
closed pipe."""

import os
import random
import signal
import subprocess

from common import EXAMPLE, SIGABRT, STRIX, UNKNOWN_XML, StrixCase, main, solgen

UNPACK = {"": ("cat",), ".zst": ("zstd", "-q", "-d", "-c"), ".gz": ("gzip", "-d", "-c")}
MAGIC = {"": b"", ".zst": b"\x28\xb5\x2f\xfd", ".gz": b"\x1f\x8b"}
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


class Compressed(StrixCase):
    def unpacked(self, source, out):
        compression = os.path.splitext(out)[1] if out.endswith(("zst", "gz")) else ""
        data = self.convert(source, out)
        self.assertTrue(data.startswith(MAGIC[compression]), data[:8])
        return self.tool(*UNPACK[compression], stdin=data)

    def test_every_form_to_file_and_stdout_equals_the_plain_file(self):
        for form in (".json", ".jtask", ".task", ".txt", ".b"):
            plain = self.convert(EXAMPLE, "plain" + form)
            self.assertGreater(len(plain), 0)
            for out in ("-" + form, "out" + form + ".zst", "-" + form + ".zst",
                        "out" + form + ".gz", "-" + form + ".gz"):
                with self.subTest(out=out):
                    self.assertEqual(self.unpacked(EXAMPLE, out), plain)

    def test_empty_outputs_are_valid_empty_streams(self):
        self.write("empty.b", b"")
        for compression in (".zst", ".gz"):
            with self.subTest(compression=compression):
                # The unknown form is refused after the file was created; the
                # buffer still finishes an empty stream into it.
                r = self.strix(EXAMPLE, "out.xml" + compression)
                self.assertEqual((r.status, r.err), (7, UNKNOWN_XML))
                self.assertEqual(self.tool(*UNPACK[compression],
                                           stdin=self.read("out.xml" + compression)), b"")
                self.assertEqual(self.unpacked("empty.b", "out.b" + compression), b"")
                self.assertEqual(self.unpacked("empty.b", "-.b" + compression), b"")

    def test_gzip_drops_the_byte_at_each_boundary_and_zstd_drops_none(self):
        expected = gzip_loss(RANDOM)
        self.assertEqual(len(expected), len(RANDOM) - 4)  # lost at 65536, 131073, 196610, 262147
        self.assertEqual(expected[65535:65537], RANDOM[65535:65538:2])
        # 65536 bytes fill the put area without overflowing it; one more byte
        # overflows it and is the one lost.
        for data, out, want in ((RANDOM, "out.b.gz", expected), (RANDOM, "-.b.gz", expected),
                                (RANDOM, "out.b.zst", RANDOM), (RANDOM, "-.b.zst", RANDOM),
                                (RANDOM[:65536], "out.b.gz", RANDOM[:65536]),
                                (RANDOM[:65537], "out.b.gz", RANDOM[:65536])):
            with self.subTest(n=len(data), out=out):
                self.write("in.b", data)
                self.assertEqual(self.unpacked("in.b", out), want)

    def test_large_writer_outputs_lose_the_same_bytes(self):
        self.write("in.b", solgen.large(4000, 2000, seed=3).to_bytes())
        for form in (".json", ".task", ".txt"):
            plain = self.convert("in.b", "plain" + form)
            self.assertGreater(len(plain), 3 * 65536)
            with self.subTest(form=form):
                self.assertEqual(self.unpacked("in.b", "out" + form + ".gz"), gzip_loss(plain))
                self.assertEqual(self.unpacked("in.b", "out" + form + ".zst"), plain)


class FailedWrites(StrixCase):
    def run_with_stdout(self, stdout, *args, **kw):
        proc = subprocess.run([STRIX, *args], stdout=stdout, stderr=subprocess.PIPE,
                              cwd=self.dir, timeout=120, **kw)
        return proc.returncode, proc.stderr.decode("latin-1")

    def test_full_device_and_closed_pipe(self):
        # Random bytes do not compress: the compressed stream must be written
        # long before the end. Writes to an uncompressed output are not
        # checked.
        self.write("in.b", random.Random(5).randbytes(1 << 20))
        for suffix, designed in ((".b.zst", (SIGABRT, "?:?: Unknown error\n")),
                                 (".b.gz", (SIGABRT, "?:?: Unknown error\n")), (".b", (0, ""))):
            with self.subTest(out="file" + suffix):
                os.symlink("/dev/full", self.path("out" + suffix))
                r = self.strix("in.b", "out" + suffix)
                self.assertEqual((r.status, r.err), designed)
            with self.subTest(out="-" + suffix), open("/dev/full", "wb") as full:
                self.assertEqual(self.run_with_stdout(full, "in.b", "-" + suffix), designed)
            for ignored in (False, True):
                with self.subTest(out="-" + suffix, closed_pipe=True, sigpipe_ignored=ignored):
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
