# End-to-end cases: the built strix on files from the builder. Its status,
# standard error and output are compared with texts worked out by hand or
# with models of the output forms written here, or checked by independent
# tools (zstd, gzip, zlib, GNU tar, tarfile, json, jsonschema). `e2e.py GROUP`
# runs one group of cases.

import errno
import json
import math
import os
import pty
import random
import re
import resource
import shlex
import signal
import struct
import subprocess
import sys
import tarfile
import tempfile
import unittest
import zlib
from concurrent.futures import ThreadPoolExecutor

import jsonschema

ROOT = os.environ.get("STRIX_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(ROOT, "tests"))
from solgen import Item, SolutionFile, arr, pack, prefix, serialize  # noqa: E402

STRIX = os.path.abspath(os.environ.get("STRIX", os.path.join(ROOT, "build", "strix")))
EXAMPLE = os.path.abspath(os.path.join(ROOT, "examples", "example.b"))
SRC, UNKNOWN = "src\\strix\\strix", "?:?: Unknown error\n"
# The command runs under STRIX_LAUNCHER, an emulator for another platform's
# build ("qemu-aarch64-static", "wine"). A Windows program that aborts exits
# with status 3, and its standard error, a text stream, ends lines with
# "\r\n"; qemu ends by the program's signal, with a line of its own.
LAUNCHER = shlex.split(os.environ.get("STRIX_LAUNCHER", ""))
WINE = any(os.path.basename(word).startswith("wine") for word in LAUNCHER)
ABORT = 3 if WINE else -signal.SIGABRT
with open(STRIX, "rb") as f:
    ARM64 = f.read(20)[18:] == b"\xb7\0"  # ELF machine 183
IGZIP = shlex.split(os.environ.get("STRIX_IGZIP", "igzip"))  # ISA-L's, for the target
EMULATOR_LINE = re.compile(rb"qemu: uncaught target signal \d+ \(.*\) - core dumped\n\Z")
XML = "ERROR: Unknown output format '\".xml\"'\n"
INF, NAN, NEG_NAN = float("inf"), float("nan"), struct.unpack("<d", b"\0" * 6 + b"\xf8\xff")[0]
BLOB = bytes(range(256)) * 40 + random.Random(7).randbytes(100_003)  # no multiple of 4096
UNPACK = {".zst": ("zstd", "-q", "-d", "-c"), ".gz": ("gzip", "-d", "-c")}


# Every run gets a 256 MB address space, so that sizes a file claims cannot
# be allocated. Sanitizer builds reserve terabytes of shadow memory at start
# and run without the limit, as do emulators, whose own buffers share it.
def limited():
    resource.setrlimit(resource.RLIMIT_AS, (256 << 20, 256 << 20))


LIMIT = limited if not LAUNCHER and subprocess.run([STRIX], capture_output=True,
                                                   preexec_fn=limited).returncode == 1 else None


# A solution with every optional section, for full_file(n).
def full_item(kind="basic", n=2, **over):
    v = [i * 0.5 - 3 for i in range(n)]
    return Item(kind, **{**dict(
        pobj=1.5, dobj=-2.0, skx=bytes(b"bslux*k"[i % 7] for i in range(n)), xx=v, slx=v[::-1],
        sux=v, snx=[1e300] * n, barx=[1, 2, 3, 4], bars=[-1, -2, -3, -4], skc=b"ul", xc=[7, 8],
        y=[-8, 5e-324], slc=[9, 0], suc=[10, -0.0], skn=b"bbx", doty=[11, 12, 13]), **over})


# n variables, two constraints, three cones, bar pattern [3, 1], ACC pattern
# [2, 1], every name section, the three kinds of solution.
def full_file(n=2, kinds=("interior", "basic", "integer"), **over):
    return SolutionFile(**{**dict(
        version=(10, 2, 3), numvar=n, numcon=2, numcone=3, numbarvar=2, numacc=2,
        barvar_pattern=[3, 1], acc_pattern=[2, 1], solutions=[full_item(k, n) for k in kinds],
        names={"var": [b"v%d" % i for i in range(n)], "barvar": [b"X", b"Y"], "con": [b"c", b"d"],
               "cone": [b"k1", b"k2", b"k3"], "acc": [b"a", b"b"]},
        problem_name=b"p", objective_name=b"o", info_f64=[(b"t", 0.5), (b"u", -1e-300)],
        info_i32=[(b"i", -7), (b"n", 2**31 - 1)], info_i64=[(b"l", -2**63), (b"m", 2**40)]),
        **over})


# n variables whose values are random finite doubles of any magnitude.
def noisy(n, seed=1):
    rng = random.Random(seed)
    vec = lambda: [v for v in struct.unpack(f"<{2 * n}d", rng.randbytes(16 * n))  # noqa: E731
                   if math.isfinite(v)][:n]
    it = Item("basic", skx=b"bl" * (n // 2), xx=vec(), slx=vec(), sux=vec(), snx=vec())
    return SolutionFile(numvar=n, solutions=[it])


# Not JSON on purpose: statuses and information names are written raw, and
# non-finite values as bare tokens. The bar pattern alone shapes barx; doty
# without a pattern has no blocks. The names need escaping in a task archive.
RAW = SolutionFile(
    numvar=4, numbarvar=2, barvar_pattern=[0, 2], info_f64=[(b'a\tb\\"', -INF)],
    info_i32=[(b"\xc3\xa9\x0c\x1f \x7f", -2**31)], info_i64=[(b"line\nbreak\r", -2**63)],
    solutions=[Item("basic", prosta=b'Prim_Feas_2"\\', solsta=b"\xc9T\x01", skx=b"bslux*kB\0\xe2",
                    xx=[INF, -INF, NAN, NEG_NAN], barx=[1, 2, 3], doty=[4]),
               Item("integer", prosta=b"", solsta=b"")])

# ------------------------------------------------------------ output models

KEYS = dict(zip(b"bslux*", ("bas", "supbas", "low", "upr", "fix", "inf")))
COUNTS = ("numvar", "numcon", "numcone", "numbarvar", "numacc")


# A field as the file holds it: a section's later arrays come only with its first.
def given(it, k):
    first = getattr(it, {"sux": "slx", "snx": "slx", "slc": "y", "suc": "y"}.get(k, k))
    return None if first is None else getattr(it, k)


# "{}" of a double: the shortest form that reads back, as Python's repr finds
# it (with the same range of plain notation), without repr's ".0".
def num(v):
    if v != v:
        return "-nan" if math.copysign(1, v) < 0 else "nan"
    return repr(float(v)).removesuffix(".0")


# The JSON document: counts with " : " and ", ", the version without blanks,
# statuses with A-Z lowered and nothing escaped, information names raw; the
# pattern alone gives the shape of barx, bars and doty.
def json_doc(sf):
    nums = lambda vs: ",".join(map(num, vs))  # noqa: E731
    keys = lambda k, b: f'"{k}" : [%s]' % ",".join('"%s"' % KEYS.get(c, "unk") for c in b)  # noqa
    sols = []
    for it in sf.solutions:
        f = [keys("skx", it.skx), keys("skc", it.skc or b"")]
        f += [keys("skn", it.skn)] if it.skn else []
        f += [f'"{k}" : [{nums(given(it, k))}]' for k in "xx xc slx sux snx slc suc y".split()
              if given(it, k)]
        for k, p in ("barx", sf.barvar_pattern), ("bars", sf.barvar_pattern), (
                "doty", sf.acc_pattern):
            v = getattr(it, k)
            f += [f'"{k}" : [%s]' % ",".join(f"[{nums(v[sum(p[:b]):][:n])}]" for b, n in
                                             enumerate(p or ()))] if v else []
        sols.append(b'"%s":{"prosta":"%s","solsta":"%s",%s}' % (
            it.kind.encode(), it.prosta.lower(), it.solsta.lower(), ",".join(f).encode()))
    info = lambda g, f=str: ",".join(f'"{n.decode("latin-1")}":{f(v)}' for n, v in g)  # noqa: E731
    counts = "".join(f'"{k}" : {getattr(sf, k)}, ' for k in COUNTS)
    return (('{"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{%s'
             '"nollover":[%d,%d,%d]},"Task/solutions":{' % (counts, *sf.version)).encode() +
            b",".join(sols) + ('},"Task/information":{"int32":{%s},"int64":{%s},"double":{%s}}}' % (
                info(sf.info_i32), info(sf.info_i64), info(sf.info_f64, num))).encode("latin-1"))


# An array member: "NLOM", flag, 0, element type, kind, u64 1, the count
# twice, eight zero bytes, then the little-endian values.
def nlom(values, code, flag=8, kind=3):
    return (b"NLOM" + bytes([flag, 0, {"B": 1, "i": 3, "q": 4, "d": 9}[code], kind]) +
            struct.pack(f"<QQQ8x{len(values)}{code}", 1, len(values), len(values), *values))


# (name, bytes) of every member of the task archive, in order. Item names are
# escaped: \t \n \r \\, and \xNN for other bytes below 0x20 or above 0x7f.
def task_members(sf):
    esc = {9: b"\\t", 10: b"\\n", 13: b"\\r", 92: b"\\\\"}
    m = [("Task/INFO", ("nollover=%d.%d.0.%d\n" % tuple(sf.version) + "".join(
        f"{k}={getattr(sf, k)}\n" for k in COUNTS)).encode())]
    for label, items, code in ("double", sf.info_f64, "d"), ("int", sf.info_i32, "i"), (
            "long", sf.info_i64, "q"):
        names = (b"".join(esc.get(c) or (b"\\x%02x" % c if c < 32 or c > 127 else bytes([c]))
                          for c in n) + b"\n" for n, _ in items)
        m += [(f"Task/information/{label}items", b"".join(names)),
              (f"Task/information/{label}", nlom([x for _, x in items], code))]
    for it in sf.solutions:
        p = f"Task/solution/{it.kind}/"
        m += [(p + "status", b"prosta=%s\nsolsta=%s\n" % (it.prosta, it.solsta)),
              (p + "skx", nlom(it.skx, "B")), (p + "skc", nlom(it.skc or b"", "B"))]
        m += [(p + k, nlom(given(it, k), "B" if k == "skn" else "d", 0 if k[:2] == "ba" else 8,
                           4 if k == "doty" else 3))
              for k in "skn xx xc y slc suc slx sux snx doty barx bars".split() if given(it, k)]
    return m


# ------------------------------------------------------------------ runner

class Case(unittest.TestCase):
    def setUp(self):  # a fresh scratch directory for each test
        scratch = tempfile.TemporaryDirectory(prefix="strix-e2e-")
        self.addCleanup(scratch.cleanup)
        self.dir = scratch.name

    def write(self, name, data):
        data = data.to_bytes() if isinstance(data, SolutionFile) else data
        with open(os.path.join(self.dir, name), "wb") as f:
            f.write(serialize(data) if isinstance(data, list) else data)

    def read(self, name):
        with open(os.path.join(self.dir, name), "rb") as f:
            return f.read()

    # (status, standard error, standard output); stdin is bytes or a file.
    def strix(self, *args, stdin=b"", program=STRIX, **kw):
        kw = dict(stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=LIMIT) | kw
        kw |= dict(input=stdin) if isinstance(stdin, bytes) else dict(stdin=stdin)
        for _ in range(3):
            p = subprocess.run([*LAUNCHER, program, *args], cwd=self.dir, timeout=120, **kw)
            # Status 1 without a word is not strix's (its usage text comes
            # with it): Wine, rarely and under load, ends a run so. Run again.
            if not (WINE and (p.returncode, p.stderr, p.stdout) == (1, b"", b"")):
                break
        err = p.stderr.replace(b"\r\n", b"\n") if WINE else EMULATOR_LINE.sub(b"", p.stderr)
        return p.returncode, err.decode("latin-1"), p.stdout

    # Converts `source` (a name, or bytes, sections or a SolutionFile written
    # to in.b) to `out`, expecting `status` and `err`; returns what was
    # written to `out`, file or standard output, unpacked if compressed.
    def run_ok(self, source, out, status=0, err="", **kw):
        if not isinstance(source, str):
            self.write("in.b", source)
            source = "in.b"
        got_status, got_err, stdout = self.strix(source, out, **kw)
        self.assertEqual((got_status, got_err), (status, err), out)
        data = stdout if out.startswith("-") else self.read(out)
        unpack = UNPACK.get(os.path.splitext(out)[1])
        if unpack and out.endswith(".gz"):  # one complete member, as zlib's inflate reads it,
            member = zlib.decompressobj(31)  # with a header of deflate, no name, time 0, Unix
            self.assertEqual((data[:10], member.decompress(data), member.eof, member.unused_data),
                             (bytes.fromhex("1f8b0800000000000003"),
                              self.tool(*unpack, stdin=data), True, b""))
        return self.tool(*unpack, stdin=data) if unpack else data

    def tool(self, *args, stdin=None):
        return subprocess.run(args, input=stdin, capture_output=True, cwd=self.dir, check=True,
                              env=dict(os.environ, TZ="UTC", LC_ALL="C")).stdout


# ------------------------------------------------------------------ driver

USAGE = ("Syntax: strix INFILE OUTFILE\n  INFILE input solution file in .b or .b.zst format, "
         "'-.b' or '-.b.zst' to read from stdin\n  OUTFILE is the output file to write to, '-' "
         "plus extension meaning stdout. \n      Supported formats are:\n          -.json, "
         "-.json.zst, -.json.gz,\n          -.task, -.task.zst, -.task.gz,\n          -.b, -.b.zst,"
         " -.b.gz\nCompression supported:\n  ZSTD (input and output)\n")


class Driver(Case):
    def test_names_and_statuses(self):
        for args in ((), ("in.b",)):
            self.assertEqual(self.strix(*args), (1, USAGE, b""))
        # Gzip input is refused; a missing input aborts; the input is opened
        # first, so neither leaves an output file.
        self.write("in.b.gz", b"x")
        gz = "Compression type '\".gz\"' not supported for input\n"
        self.assertEqual([self.strix("in.b.gz", "o.json")[:2], self.strix("missing.b", "o.b")[:2],
                          os.listdir(self.dir)], [(2, gz), (ABORT, UNKNOWN), ["in.b.gz"]])
        # Arguments after the second are ignored; an output that cannot be
        # created loses every byte silently.
        self.write("in.b", b"abc")
        self.assertEqual([self.strix("in.b", "out.b", "3rd", "4th")[:2], self.read("out.b"),
                          self.strix("in.b", "no/dir/out.b")[:2]], [(0, ""), b"abc", (0, "")])
        # The output is created, the input read and checked, then the form
        # refused: one compression suffix is peeled, suffixes are
        # case-sensitive, quotes and backslashes in the suffix are escaped
        # (no Windows name holds a quote).
        for name, quoted in (("out.xml", '".xml"'), ("x.JSON", '".JSON"'), ("noext", '""'),
                             ("-", '""'), ("out.json.zst.gz", '".zst"'), ("a.b.c.d", '".d"'),
                             *[('o.x"y\\z', '".x\\"y\\\\z"')] * (not WINE)):
            err = f"ERROR: Unknown output format '{quoted}'\n"
            self.assertEqual(self.run_ok(EXAMPLE, name, 7, err), b"")
        err = f"{SRC}:1041:Expected section 'NLOSOLN'\n"
        self.assertEqual(self.run_ok(b"NLOB", "out.xml", ABORT, err), b"")
        # The .b output copies any input unchecked. Only "-.b" and "-.b.zst"
        # name standard input; "-" and "-.zst" are files.
        files = {"in.b": BLOB, "notes.txt": b"no solution\n", "e.b": b"", "-": b"file -",
                 "./-.b": b"file ./-.b", "-.zst": self.tool("zstd", "-c", stdin=b"file -.zst")}
        for name, data in files.items():
            self.write(name, data)
        for name, want in [*files.items()][:5] + [("-.zst", b"file -.zst"), ("-.b", b"stdin")]:
            self.assertEqual(self.run_ok(name, "out.b", stdin=b"stdin"), want)
        # Each run above overwrote the output of the one before. Names beyond
        # ASCII, in and out:
        with open(EXAMPLE, "rb") as f:
            self.write("é.b", f.read())
        self.assertEqual([self.run_ok("é.b", "日本.b"), self.run_ok("日本.b", "é.json")],
                         [self.read("é.b"), self.run_ok(EXAMPLE, "-.json")])
        # A folder reads as an empty file, as it always has.
        os.mkdir(os.path.join(self.dir, "folder"))
        self.assertEqual(self.run_ok("folder", "out.b"), b"")

    # An output naming the input file, under any name, is refused before it
    # is created: the file keeps its bytes, the end is that of a missing input.
    def test_same_file_refused(self):
        self.write("x.b", BLOB)
        self.write("x.b.zst", self.tool("zstd", "-q", "-c", stdin=BLOB))
        os.link(os.path.join(self.dir, "x.b"), os.path.join(self.dir, "hard.b"))
        os.symlink("x.b", os.path.join(self.dir, "sym.b"))
        os.mkdir(os.path.join(self.dir, "sub"))
        windows = (("x.b", "X.B"), ("X.b", ".\\x.B"), ("x.b", "sub\\..\\x.b")) if WINE else ()
        for args in (("x.b", "x.b"), ("x.b", "./x.b"), ("x.b", "sub/../x.b"), ("x.b", "hard.b"),
                     ("sym.b", "x.b"), ("x.b", "sym.b"), ("x.b.zst", "x.b.zst"), ("-.b", "x.b"),
                     ("-.b.zst", "x.b.zst")) + windows:
            if args[0][0] != "-":
                got = self.strix(*args)
            elif WINE:  # Wine knows no file behind a descriptor it inherits: cmd redirects
                got = self.strix("/c", STRIX, *args, "<", args[1], program="cmd")
            else:
                with open(os.path.join(self.dir, args[1]), "rb") as f:
                    got = self.strix(*args, stdin=f)
            self.assertEqual((got, self.read("x.b"), self.tool(*UNPACK[".zst"], "x.b.zst")),
                             ((ABORT, UNKNOWN, b""), BLOB, BLOB), args)

    # Ctrl-C at the console removes the output that strix created or
    # truncated, as SIGINT does. Wine delivers the console's events where the
    # console is a terminal: ctrl_c.exe runs strix in it on half a file.
    @unittest.skipUnless(WINE, "the Windows console's Ctrl-C")
    def test_console_interrupted(self):
        self.write("in.b", noisy(30000))
        self.write("other", b"kept")
        for out, old in (("o.json", None), ("o.b.zst", b"old")):
            self.write(out, old) if old else None
            terminal, console = pty.openpty()
            p = subprocess.run([*LAUNCHER, os.environ["STRIX_CTRL_C"], STRIX, "in.b", out],
                               stdin=console, capture_output=True, cwd=self.dir, timeout=120)
            os.close(console), os.close(terminal)
            self.assertEqual((p.stderr, os.path.exists(os.path.join(self.dir, out)),
                              self.read("other")), (b"", False, b"kept"), out)

    # Interrupted, strix removes the output file that it created or truncated
    # and ends by the signal; a file it has not opened yet keeps its bytes, a
    # FIFO stays, a signal ignored at the start stays ignored. The input is a
    # FIFO holding half the file, more than a pipe holds: strix takes it only
    # after opening the output (or before, none of it).
    @unittest.skipIf(WINE, "signals, FIFOs and /proc are POSIX's")
    def test_interrupted(self):
        sf = noisy(30000)
        data, path, old = sf.to_bytes(), lambda name: os.path.join(self.dir, name), b"old"
        self.write("other", b"kept")
        for out, sig, how, want in (
                ("o.json", signal.SIGINT, "", False), ("o.b", signal.SIGTERM, old, False),
                ("o.b.zst", signal.SIGINT, old, False), ("o.json.gz", signal.SIGTERM, "", False),
                ("o.json", signal.SIGTERM, "early", old), ("p.json", signal.SIGINT, "fifo", True),
                ("o.json", signal.SIGHUP, "ignored", json_doc(sf))):
            os.mkfifo(path("in.b"))
            self.write(out, old) if how in (old, "early") else None
            reader = how == "fifo" and (os.mkfifo(path(out)) or os.open(path(out), os.O_NONBLOCK))
            action = signal.SIG_IGN if how == "ignored" else signal.SIG_DFL
            p = subprocess.Popen([*LAUNCHER, STRIX, "in.b", out], cwd=self.dir,
                                 stderr=subprocess.PIPE,
                                 preexec_fn=lambda: signal.signal(sig, action))
            while how == "early":  # strix has its handler and waits for its input; else feed it
                with open(f"/proc/{p.pid}/status") as f:
                    if int(re.search(r"SigCgt:\s*(\w+)", f.read())[1], 16) >> (sig - 1) & 1:
                        p.send_signal(sig)
                        break
            else:
                with open(path("in.b"), "wb") as f:
                    f.write(data[:len(data) // 2])
                    f.flush()
                    p.send_signal(sig)
                    f.write(data[len(data) // 2:] if how == "ignored" else b"")
            err = p.communicate(timeout=120)[1]
            got = self.read(out) if os.path.isfile(path(out)) else os.path.exists(path(out))
            self.assertEqual((p.returncode, err, got == want, self.read("other")),  # no diff of MBs
                             (0 if how == "ignored" else -sig, b"", True, b"kept"), (out, how))
            for name in {"in.b", out} & set(os.listdir(self.dir)):
                os.unlink(path(name))
            os.close(reader) if reader else None

    # The Windows command, and the C interface's DLL, each one file that
    # needs no DLL Windows lacks.
    @unittest.skipUnless(WINE, "a Windows build's imports")
    def test_imports(self):
        for name in STRIX, os.path.join(os.path.dirname(STRIX), "bin", "strix.dll"):
            dlls = {d.lower() for d in re.findall(r"DLL Name: (\S+)", self.tool(
                "x86_64-w64-mingw32-objdump", "-p", name).decode())}
            self.assertLessEqual({"kernel32.dll"}, dlls)
            self.assertLessEqual(dlls, {"kernel32.dll", "msvcrt.dll", "advapi32.dll", "ntdll.dll",
                                        "user32.dll", "shell32.dll", "ws2_32.dll", "bcrypt.dll"})

    def test_zstd_input(self):
        z = lambda data: self.tool("zstd", "-q", "-c", "-19", stdin=data)  # noqa: E731
        # Frames in a row are one stream, but a decompression call that
        # yields nothing (here an empty frame) ends it as the input's end does.
        ends = z(b"A" * 9) + z(b"") + z(b"B")
        self.assertEqual(self.tool(*UNPACK[".zst"], stdin=ends), b"A" * 9 + b"B")
        for data, out, want in ((z(BLOB), "out.b.zst", BLOB), (ends, "-.b", b"A" * 9),
                                (b"", "-.b", b""), (z(BLOB[:5000]) + z(BLOB[5000:]), "-.b", BLOB)):
            self.assertEqual(self.run_ok("-.b.zst", out, stdin=data), want)
        self.assertEqual(self.run_ok("-.b.zst", "-.json", stdin=self.tool("zstd", "-c", EXAMPLE)),
                         self.run_ok(EXAMPLE, "-.json"))
        # Corrupt frames: what was read before the failing read is written,
        # every whole piece of a good frame.
        packed = z(BLOB)
        for data in (packed[:len(packed) // 2] + bytes(len(packed) // 2 + 1), packed + b"Z" * 200):
            self.write("in.b.zst", data)
            out = self.run_ok("in.b.zst", "out.b", ABORT, UNKNOWN)
            self.assertEqual(out, BLOB[:len(out)])
        self.assertEqual(len(out), len(BLOB) // 4096 * 4096)


# ------------------------------------------------------------------ reader

S = "sol/integer"
# A section, a wrong format for it, and the line and message rejecting it.
BAD_FORMATS = [(n, f, line, f"Expected section '{n}'") for n, f, line in (
    ("NLOSOLN", "[I", 1041), ("version", "II", 1046), ("numvar", "L", 1051),
    ("numbarvar", "i", 1055), ("numcon", "", 1060), ("numcone", "II", 1065), ("numacc", "I", 1070))]
BAD_FORMATS += [(S + s, f, line, f"Invalid format in 'sol/xxx{s}'") for s, f, line in (
    ("/var/primal", "[l", 1162), ("/var/dual", "[d", 1172), ("/var/dual", "[d[d[d[d", 1172),
    ("/barvar/primal", "[L", 1191), ("/barvar/dual", "d", 1198), ("/con/primal", "[d[d", 1215),
    ("/con/dual", "[d[d", 1224), ("/acc/dual", "[L", 1250))] + [
    ("barvar/pattern", "[I", 1092, "Invalid format in 'sol/xxx/barvar/pattern'"),
    ("acc/pattern", "[l", 1102, "Expected section 'sol/xxx/acc/pattern'"),  # both wordings meant
    (S, "[B", 1116, "Expected section 'sol/xxx'"), (S + "/pobj", "L", 1144, "Invalid section "
                                                   "'sol/xxx/pobj'"),
    (S + "/dobj", "", 1150, "Invalid section 'sol/xxx/dobj'"),
    (S + "/var/sta", "[I", 1156, "Expected section 'sol/xxx/var/sta'"),
    (S + "/con/sta", "[b", 1207, "Expected section 'sol/xxx/con/sta'"),
    (S + "/cone/sta", "[I", 1241, "Expected section 'sol/xxx/con/sta'"),  # the message is reused
    ("name/var", "[B", 1270, "Expected names section to have format '[I[B'"),
    ("name/acc", "[L[B", 1270, "Expected names section to have format '[I[B'"),
    ("name/problem", "[I", 1291, "Expected problem name to have format '[B'"),
    ("name/objective", "[b", 1300, "Expected objective name to have format '[B'"),
    ("inf/f64", "[B[B[l", 1315, "Expected 'inf/f64'"), ("inf/i32", "[B[B[l", 1329, "Expected "
                                                        "'inf/i32'"),
    ("inf/i64", "[B[B[i", 1341, "Expected 'inf/i64'")]


def replace(sections, name, fmt=None, payload=None):
    return [(n, fmt if n == name and fmt is not None else f,
             payload if n == name and payload is not None else p) for n, f, p in sections]


# An array whose prefix claims 2^56 bytes (seven further bytes after 0xE1:
# 0xE0 itself is the chunked mark) but holds only `data`.
def huge(data):
    return prefix(1 << 56, 7) + data


class Reader(Case):
    def test_malformed_files(self):
        base = full_file(kinds=("integer",)).sections()
        cases = [(data, f"Got bad BOM {bom}\n{SRC}:1036:IncompatibleFileError") for data, bom in (
            (b"ABCD" + SolutionFile().to_bytes()[4:], "44434241"), (b"NL", "00004c4e"),
            (b"", "00000000"), (b"nlob", "626f6c6e"))]
        cases += [(replace(base, n, f), f"{SRC}:{line}:{text}") for n, f, line, text in BAD_FORMATS]
        # A missing required section is reported by the check of its place.
        msg = {n: f"{SRC}:{line}:{text}" for n, _, line, text in BAD_FORMATS}
        required = "NLOSOLN version numvar numacc sol/integer/var/sta inf/f64 inf/i32 inf/i64"
        cases += [([s for s in base if s[0] != n], msg[n]) for n in required.split()]
        cases += [(replace(base, n, payload=arr(b"\1\1") + arr(b"ab") + arr(pack(c, [1]))),
                   f"{SRC}:{line}:Invalid '{n}' entry") for n, c, line in (
            ("inf/f64", "d", 1323), ("inf/i32", "i", 1335), ("inf/i64", "q", 1347))]
        # Solutions out of table order, constraint values without constraint
        # statuses, names out of order, an unknown section, and names of the
        # lengths of "name/problem" and "name/objective" end the solutions or
        # names early and fail as missing information.
        at = [i for i, s in enumerate(base) if s[0].startswith("name/")][:2]
        swapped = [base[at[1 - at.index(i)]] if i in at else s for i, s in enumerate(base)]
        cases += [(s, msg["inf/f64"]) for s in [swapped] + [
            full_file(kinds=k).sections() for k in (("basic", "interior"), ("basic", "basic"))] + [
            full_file(solutions=[full_item(skc=None, y=None)]).sections()] + [
            base[:-4] + [(n, "[B", arr(b"x"))] + base[-4:] for n in ("sol/x", "name/problex",
                                                                    "name/objectiv_")]]
        # Counts checked against the sizes; the cone statuses recheck skc.
        for kind in ("interior", "basic", "integer"):
            cases += [(full_file(solutions=[full_item(kind, **over)]),
                       f"InconsistentSolution: sol/{kind}{suffix}") for over, suffix in (
                (dict(xx=[1]), "/var/primal"), (dict(slx=[1], sux=[1]), "/var/primal - slx"),
                (dict(sux=[1, 2, 3]), "/var/primal - sux"), (dict(snx=[1]), "/var/primal - snx"),
                (dict(skc=b""), "/con/sta"), (dict(xc=[]), "/con/primal"),
                (dict(y=[1, 2, 3], slc=[1, 2, 3], suc=[1, 2, 3]), "/con/dual - y"),
                (dict(slc=[]), "/con/dual - slc"), (dict(suc=[1]), "/con/dual - sxc"),
                (dict(skc=None, xc=None, y=None), "/con/sta"))]
        chunked = arr(pack("d", [1, 2]), "chunked")  # chunked doubles come back empty
        cases.append((replace(full_file().sections(), "sol/interior/var/primal", payload=chunked),
                      "InconsistentSolution: sol/interior/var/primal"))
        # Small files claiming huge sizes end as designed under the memory
        # limit, from a file or from standard input: no allocation, no hang.
        head = lambda **sizes: SolutionFile(**sizes).sections()[:7]  # noqa: E731
        sol = [("sol/basic", "[B[B", arr(b"OPTIMAL") * 2), ("sol/basic/var/sta", "[B", arr(b""))]
        primal = ("sol/basic/var/primal", "[d", huge(pack("d", [1])))
        dual = [("sol/basic/con/sta", "[B", arr(b"b")), ("sol/basic/con/dual", "[d[d[d", huge(
            pack("d", [1.0] * 1000)))]
        cases += [  # numvar 4e9 and a primal array claiming 2^56 bytes that holds 3 values
            (head(numvar=4_000_000_000) + sol + [primal],
             "InconsistentSolution: sol/basic/var/primal"),
            # constraint duals, sized by numvar: three arrays claiming 2^56 bytes
            (head(numvar=2**31 - 1, numcon=1) + sol + dual,
             "InconsistentSolution: sol/basic/con/dual - y"),
            # an ACC pattern of 2^56 bytes for numacc 2^62
            (head(numacc=2**62) + [("acc/pattern", "[L", huge(bytes(64)))], msg["inf/f64"]),
            # name lengths summing to 3 * (2^32 - 1) over a small buffer
            (head() + [("name/var", "[I[B", arr(pack("I", [2**32 - 1] * 3)) + huge(b"abc"))],
             msg["inf/f64"]),
            # a chunked array that never ends
            (head() + sol[:1] + [(sol[1][0], "[B", b"\xe0\xff\xff" + bytes(1000))], msg["inf/f64"]),
            # information name lengths claiming 2^56 bytes: ten items, no values
            (head() + [("inf/f64", "[B[B[d", huge(b"\x05" * 10))], f"{SRC}:1323:Invalid 'inf/f64' "
                                                                    "entry")]
        for source, err in cases:
            self.write("in.b", source)
            for name in ("in.b", "-.b"):
                self.assertEqual(self.strix(name, "out.xml", stdin=self.read("in.b"))[:2],
                                 (ABORT, err + "\n"), name)

    # A valid file cut at every byte ends in one of the designed ways: a
    # message of the reader and SIGABRT, or a complete read when the cut
    # falls in the last information section (arrays cut to nothing agree) or
    # in the closing section, which is never examined.
    def test_every_cut_of_a_file(self):
        designed = (r"(src\\strix\\strix:\d+:.*|Got bad BOM [0-9a-f]{8}\nsrc\\strix\\strix:1036:"
                    r"IncompatibleFileError|InconsistentSolution: .*)\n\Z")
        for data in (full_file().to_bytes(), full_file(kinds=("interior",), form=1).to_bytes()):
            for n in range(len(data)):
                self.write(f"cut{n}.b", data[:n])
            with ThreadPoolExecutor(max_workers=2) as pool:
                runs = pool.map(lambda n: self.strix(f"cut{n}.b", "out.xml")[:2], range(len(data)))
                for n, (status, err) in enumerate(runs):
                    if (status, err) != (7, XML) or n < data.index(b"\x07inf/i64\x06[B[B[l") + 15:
                        self.assertEqual(status, ABORT, (n, err))
                        self.assertRegex(err, designed, n)


# ----------------------------------------------------------------- writers

# Rows are "      {:<20}: {:6s}", then " {:24.16g}" per value or " {:>24s}"
# of "." for an absent array; the library left-aligns infinities and NaN in
# their columns. ACC rows are "    {}: {:6s} " then "{:24.16g}" (or "{:24s}"
# of "."), with constraint a's name, status and doty[a] in every row of ACC
# a. A missing status byte is "unk"; a missing or empty name, or one past
# the count (an ACC index past numcon), the default name; an ACC without a
# pattern entry has no rows.
VAR_HEADER = ("    # name                  sta                          xx"
              "                      slx                      sux                      snx\n")
CON_HEADER = ("    # name                  sta                          xc"
              "                      slc                      suc                        y\n")
DOTS = (" " * 24 + ".") * 4 + "\n"
X = '      "x\\b\\n\\r\\\\\\x0b\x7f"    '  # a quoted name of 16 characters, in 20 columns
SMALL = SolutionFile(
    numvar=3, numcon=2, numcone=1, numacc=4, acc_pattern=[2, 0, 1],
    names={"var": [b"x\b\n\r\\\x0b\x7f", b""], "con": [b"c\tx", b'a"b\xe9', b"z"],
           "cone": [b"K"], "acc": [b"never shown"]},
    solutions=[Item("interior", pobj=2.5, skx=b"bk*", xx=[1, 0, INF], slx=[0, 2.5, NAN],
                    sux=[1e20, -0.0, 1.5e-05], snx=[1e16, 1e15, -1e-05], skc=b"ux", doty=[7, 8],
                    xc=[0.1, 123456789012345678.0], y=[-2.5, 1e-300], slc=[0.0001, 0],
                    suc=[2.5, -INF]),
               Item("basic", prosta=b"PRIMAL_INFEAS", solsta=b"DUAL_INFEAS_CER", dobj=3.0,
                    skx=b"lu", skc=b"xs")])
SMALL_REPORT = (
    "Solutions\n  Solution interior\n    SolutionStatus optimal optimal\n"
    "    ProblemStatus feasible feasible\n    Objective 2.5 . \n    Variables\n" + VAR_HEADER +
    X + ': bas                           1                        0                    1e+20                    1e+16\n'
    '      var0001             : unk                           0                      2.5                       -0         1000000000000000\n'
    '      var0002             : inf    inf                      nan                                       1.5e-05                   -1e-05\n'
    "    Constraints\n" + CON_HEADER +
    '      "c\\tx"              : upr                         0.1                   0.0001                      2.5                     -2.5\n'
    '      "a\\"b\\xe9"          : fix       1.234567890123457e+17                        0 -inf                                       1e-300\n'
    "    AffineConicConstraints\n" + '    "c\\tx": upr                           7\n' * 2 +
    "    con0002: unk    ." + " " * 23 + "\n  Solution basic\n"
    "    SolutionStatus infeas_cert unknown\n    ProblemStatus infeasible unknown\n"
    "    Objective . 3\n    Variables\n" + VAR_HEADER + X + ": low   " + DOTS +
    "      var0001             : upr   " + DOTS + "      var0002             : unk   " + DOTS +
    "    Constraints\n" + CON_HEADER + '      "c\\tx"              : fix   ' + DOTS +
    '      "a\\"b\\xe9"          : supbas' + DOTS + "    AffineConicConstraints\n" +
    ('    "c\\tx": fix    .' + " " * 23 + "\n") * 2 + "    con0002: unk    ." + " " * 23 + "\n")
U = "unknown unknown"
SOLSTA = {b"OPTIMAL": "optimal optimal", b"PRIMAL_FEASIBLE": "feasible unknown",
          b"DUAL_FEASIBLE": "unknown feasible", b"PRIMAL_AND_DUAL_FEAS": "feasible feasible",
          b"PRIM_INFEAS_CER": "unknown infeas_cert", b"DUAL_INFEAS_CER": "infeas_cert unknown",
          b"PRIM_ILLPOSED_CER": "unknown illposed_cert",
          b"DUAL_ILLPOSED_CER": "illposed_cert unknown", b"INTEGER_OPTIMAL": "optimal unknown",
          b"OPTIMAL ": U, b"optimal": U, b"OPTIMA": U, b"": U, b"PRIM_AND_DUAL_FEAS": U,
          b"OPTIMAL\0": U}
PROSTA = {b"PRIM_FEAS": "feasible unknown", b"DUAL_FEAS": "unknown feasible",
          b"PRIM_AND_DUAL_FEAS": "feasible feasible", b"PRIMAL_INFEAS": "infeasible unknown",
          b"DUAL_INFEAS": "unknown infeasible", b"PRIM_AND_DUAL_INFEAS": "infeasible infeasible",
          b"ILL_POSED": "illposed illposed",
          b"PRIM_INFEAS_OR_UNBOUNDED": "infeasible_or_unbounded infeasible_or_unbounded",
          b"PRIM_INFEAS": U, b"PRIMAL_AND_DUAL_FEAS": U, b"prim_feas": U, b"ILL\0POSED": U,
          b"ILL_POSED\0": U, b"": U, b"X": U}


# The lines of a solution without objectives down to the variable rows.
OPENING = ("  Solution {}\n    SolutionStatus {}\n    ProblemStatus {}\n    Objective . . \n"
           "    Variables\n" + VAR_HEADER)


class Writers(Case):
    def test_json_and_task(self):
        with open(os.path.join(ROOT, "docs", "solution.schema.json")) as f:
            schema = jsonschema.Draft202012Validator(json.load(f))
        # Variable and cone statuses, bar and ACC values and name lists are
        # not compared with the sizes; a solution may lack any section but
        # the variable statuses; huge patterns over few values are cut
        # where the values end.
        sol = lambda **over: full_file(solutions=[full_item(**over)])  # noqa: E731
        empty = SolutionFile(numvar=2**31 - 1, numacc=2**63 - 1, version=(0, 65536, 7))
        patterns = SolutionFile(numbarvar=2, numacc=2, barvar_pattern=[2**63, 2**62],
                                acc_pattern=[2**64 - 1, 5], solutions=[
                                    Item("basic", barx=[1, 2], bars=[3], doty=[4])])
        files = [empty, patterns, full_file(), *(full_file(form=f) for f in (1, 2, 6)),
                 full_file(names={"var": [b"only one"]}),
                 sol(skx=b"", skn=b"b" * 9, barx=[1], bars=[], doty=[]),
                 sol(skc=None, xc=None, y=None, skn=None),
                 full_file(numcon=0, solutions=[full_item(skc=None, xc=None, y=None)]),
                 full_file(70, solutions=[full_item("interior", 70), Item("basic", skc=b"ux")])]
        files += [full_file(kinds=k) for k in (("interior",), ("integer",), ("basic", "integer"))]
        files += [sol(**{f: None}) for f in ("pobj", "dobj", "xx", "slx", "snx", "barx", "bars",
                                             "skn", "doty")]
        big = noisy(40000)  # a document of many pieces (some 4 MB)
        for sf in files + [big, RAW]:
            doc, members = self.run_ok(sf, "out.json"), task_members(sf)
            self.assertEqual((doc, self.run_ok(sf, "out.jtask.zst")), (json_doc(sf), doc))
            if sf is not RAW:
                schema.validate(json.loads(doc))
            # GNU tar lists the members and tarfile reads them: mode 0600, ids
            # 1001, mtime 0, the group "nollo" and the user name empty (its
            # first byte is zeroed); zeros pad each member to whole blocks
            # and two zero blocks end the archive.
            data, names = self.run_ok(sf, "t.task"), self.tool("tar", "-tf", "t.task").decode()
            self.assertEqual(names.split(), [n for n, _ in members])
            with tarfile.open(os.path.join(self.dir, "t.task")) as tar:
                got = [(i.name, i.mode, i.uid, i.gid, i.mtime, i.uname, i.gname, i.isreg(),
                        tar.extractfile(i).read(), data[i.offset_data + i.size:][:-i.size % 512])
                       for i in tar]
                self.assertEqual(got, [(n, 0o600, 1001, 1001, 0, "", "nollo", True, d,
                                        bytes(-len(d) % 512)) for n, d in members])
                self.assertEqual((len(data), data[-1024:]), (tar.offset + 1024, bytes(1024)))
        # Chunked typed arrays, statuses, names and information items come
        # back empty: the file reads as one without them.
        chunked = SolutionFile(solutions=[Item("basic", skx=b"bb", xx=[], skc=b"")],
                               names={"var": [b"a"]}, info_f64=[(b"t", 1.0)], form="chunked")
        self.assertEqual(self.run_ok(chunked, "out.json"),
                         json_doc(SolutionFile(solutions=[Item("basic")])))
        # The model, worked out by hand for the document without solutions.
        self.assertEqual(json_doc(empty), (
            b'{"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{'
            b'"numvar" : 2147483647, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, '
            b'"numacc" : 9223372036854775807, "nollover":[0,65536,7]},"Task/solutions":{},'
            b'"Task/information":{"int32":{},"int64":{},"double":{}}}'))

    def test_text_reports(self):
        self.assertEqual(self.run_ok(SMALL, "out.txt").decode("latin-1"), SMALL_REPORT)
        self.assertEqual(self.run_ok(SolutionFile(numvar=2**31 - 1, numcon=2**31 - 1), "out.txt"),
                         b"Solutions\n")
        # Statuses: whole, case-sensitive matches of the solver's spellings.
        rows = list(zip(("interior", "basic", "integer") * 5, SOLSTA.items(), PROSTA.items()))
        for i in range(0, len(rows), 3):
            sf = SolutionFile(solutions=[Item(k, solsta=s, prosta=p) for k, (s, _), (p, _) in
                                         rows[i:i + 3]])
            self.assertEqual(self.run_ok(sf, "-.txt").decode(), "Solutions\n" + "".join(
                OPENING.format(k, s, p) + "    Constraints\n" + CON_HEADER for k, (_, s), (_, p) in
                rows[i:i + 3]))
        # With bar variables the report ends after the first one's line: n =
        # trunc(sqrt(8L + 1) + 1) / 2 for the first pattern entry L (0 without
        # one; 8L + 1 wraps in 64 bits), then the column header, four fields
        # for three arguments, fails in the formatting library.
        for pattern, name, line in (([3, 6], b"", "barvar0000(3)"), ([1], b"", "barvar0000(2)"),
                                    ([6], b'X"0', '"X\\"0"(4)'), (None, b"", "barvar0000(1)"),
                                    ([2**61], b"", "barvar0000(1)")):
            sf = SolutionFile(numbarvar=2, barvar_pattern=pattern, names={"barvar": [name]},
                              solutions=[Item("interior"), Item("basic")])
            for out in ("out.txt", "-.txt"):
                self.assertEqual(self.run_ok(sf, out, ABORT, UNKNOWN).decode(),
                                 "Solutions\n" + OPENING.format("interior", "optimal optimal",
                                                                 "feasible feasible")
                                 + f"    BarVariables\n      {line}:\n")
        # Rows of many pieces before the bar variables are all written, in
        # order, at any thread count: the report without bar variables up to
        # its constraints, then the bar-variable lines.
        rows = noisy(20000)
        whole = self.run_ok(rows, "out.txt")
        rows.numbarvar, rows.barvar_pattern = 1, [1]
        for threads in ("1", "2", "5"):
            self.assertEqual(self.run_ok(rows, "-.txt.gz", ABORT, UNKNOWN,
                                         env=dict(os.environ, STRIX_THREADS=threads)),
                             gzip_kept(whole[:whole.index(b"    Constraints\n")] +
                                       b"    BarVariables\n      barvar0000(2):\n"))


# ------------------------------------------------------ compressed outputs

# What the gzip buffer passes on: the byte that arrives when its 65536-byte
# put area is full is consumed but never compressed, so bytes 65536,
# 65536 + 65537, ... are lost.
def gzip_kept(data):
    return b"".join(data[i:i + 65536] for i in range(0, len(data), 65537))


class Streams(Case):
    # Every form to a file and to standard output, plain and compressed, at
    # 1, 2 and 5 threads (STRIX_THREADS): the same bytes at every count, the
    # bytes the gzip buffer loses (65536 bytes fill its put area, one more
    # overflows it); empty outputs are valid empty streams, also of a form
    # refused after its file was created. Values of STRIX_THREADS that are
    # not positive integers are ignored, silently.
    def test_forms_and_compression(self):
        data = random.Random(11).randbytes(300_000)
        self.assertEqual((len(gzip_kept(data)), gzip_kept(data)[65535:65537]),
                         (len(data) - 4, data[65535:65538:2]))
        self.write("noisy.b", noisy(25000))  # text of several gzip chunks and many pieces
        for form in (".json", ".jtask", ".task", ".txt", ".b"):
            plain = self.run_ok("noisy.b", "plain" + form)
            self.assertGreater(len(plain), 5 << 16)
            for out in (f"-{form}", f"o{form}.zst", f"-{form}.zst", f"o{form}.gz", f"-{form}.gz"):
                want = gzip_kept(plain) if out[-3:] == ".gz" else plain
                raw = {}
                ignored = ("0", "x", "-3", "2.5", "") if out == f"o{form}.zst" else ()
                for threads in ("1", "2", "5") + ignored:
                    env = dict(os.environ, STRIX_THREADS=threads)
                    self.assertEqual(self.run_ok("noisy.b", out, env=env), want, (out, threads))
                    raw[threads] = self.read(out) if out[0] != "-" else None
                self.assertEqual(len(set(raw.values())), 1, out)
        for n, z in ((300_000, ".zst"), (65536, ".gz"), (65537, ".gz")):
            want = gzip_kept(data[:n]) if z == ".gz" else data[:n]
            self.assertEqual(self.run_ok(data[:n], "out.b" + z), want)
        # Deflate chunks end on a sync flush (an empty stored block) where the
        # engine has taken the first put area, then each further MiB.
        member, text = self.read("o.txt.gz"), gzip_kept(self.read("plain.txt"))
        ends = {len(zlib.decompressobj(31).decompress(member[:m.end()]))
                for m in re.finditer(b"\0\0\xff\xff", member)}
        self.assertGreater(len(text), 3 << 20)
        self.assertLessEqual(set(range(1 << 16, len(text), 1 << 20)), ends)
        # Each chunk is primed with the text before it: a random 30,000-byte
        # block repeated over five chunks takes some 58 kB, not 180 kB. The
        # engine's ARM64 code for this level finds nothing in primed text.
        repeated = random.Random(3).randbytes(30_000) * 120
        self.assertEqual(self.run_ok(repeated, "rep.b.gz"), gzip_kept(repeated))
        self.assertLess(len(self.read("rep.b.gz")), 200_000 if ARM64 else 80_000)
        # A document of one chunk is the member igzip makes at the same level.
        self.assertEqual(self.strix(EXAMPLE, "-.json.gz")[2], self.tool(
            *IGZIP, "-3", "-c", "-n", stdin=self.run_ok(EXAMPLE, "-.json")))
        self.write("empty.b", b"")
        for z in (".zst", ".gz"):
            self.assertEqual([self.run_ok("empty.b", "o.b" + z), self.run_ok("empty.b", "-.b" + z),
                              self.run_ok(EXAMPLE, "o.xml" + z, 7, XML)], [b""] * 3)

    # Compressing buffers check their writes: a full device ends the run in
    # the guarded region, also from the writers' output thread (large
    # documents) and from a document written in one piece (small ones).
    # Writes of an uncompressed output are not checked.
    def test_failed_writes(self):
        self.write("in.b", random.Random(5).randbytes(1 << 20))
        for n in (2000, 3500, 20000):  # JSON in one piece, in two, in many
            self.write(f"{n}.b", noisy(n))
        for source, out in (("in.b", "out.b.zst"), ("in.b", "out.b.gz"), ("in.b", "out.b"),
                            ("2000.b", "out.json.gz"), ("3500.b", "o.json.zst"),
                            ("20000.b", "out.json.zst"), ("20000.b", "out.txt.gz"),
                            ("20000.b", "out.task.zst")):
            os.symlink("/dev/full", os.path.join(self.dir, out))
            self.assertEqual(self.strix(source, out)[:2], (ABORT, UNKNOWN) if out[-2:] != ".b"
                             else (0, ""))
        for suffix, designed in (".b.zst", (ABORT, UNKNOWN)), (".b.gz", (ABORT, UNKNOWN)), (
                ".b", (0, "")):
            # A closed pipe fails a write as a full device does: this
            # interpreter ignores SIGPIPE, and strix inherits that.
            reader, writer = os.pipe()
            os.close(reader)
            with open("/dev/full", "wb") as full:
                got = [self.strix("in.b", "-" + suffix, stdout=f, restore_signals=False)[:2]
                       for f in (full, writer)]
            os.close(writer)
            self.assertEqual(got, [designed] * 2)


# ------------------------------------------- the library from a prefix and Python

# (language, text) of the README's fenced blocks, in order.
def readme_blocks():
    with open(os.path.join(ROOT, "README.md")) as f:
        return re.findall(r"```(\w*)\n(.*?)```", f.read(), re.S)


# A file that fails and what the library says of it, from C++ and from C.
FAILING = (("x.json", "x.json: not a solution file (it starts with bytes 7b 22 24 73)"),
           ("no.b", "no.b: cannot open: No such file or directory"))

# Reads a file's bytes from memory and through callbacks with and without
# skip, keeping the slx vectors: the length and last value of the interior
# one, and the interior xx's length (not kept), or the failure.
SOURCES = r"""#include <stdio.h>
#include <strix/strix.h>
static int64_t get(void* f, void* to, size_t n) { return (int64_t)fread(to, 1, n, f); }
static int64_t pass(void* f, uint64_t n) {
  long at = ftell(f), end = (fseek(f, 0, SEEK_END), ftell(f));
  long to = at + (long)n < end ? at + (long)n : end;
  return fseek(f, to, SEEK_SET) == 0 ? to - at : -1;
}
int main(int argc, char** argv) {
  static char bytes[1 << 16];
  FILE* f = fopen(argv[argc - 1], "rb");
  size_t size = fread(bytes, 1, sizeof bytes, f), n, xx;
  const strix_read_options slx = {STRIX_ALL_KINDS, 1u << STRIX_SLX, 1};
  for (int how = 0; how < 3; ++how) {
    strix_reader reader = {f, get, how == 2 ? pass : NULL};
    strix_solution* s;
    strix_error* e;
    rewind(f);
    strix_status status = how ? strix_read_callbacks(&reader, &slx, &s, &e)
                              : strix_read_memory(bytes, size, &slx, &s, &e);
    if (status != STRIX_OK) {
      printf("%s %s\n", strix_status_name(status), strix_error_message(e));
      strix_error_free(e);
      continue;
    }
    const double* v = strix_values(s, STRIX_INTERIOR, STRIX_SLX, &n);
    strix_values(s, STRIX_INTERIOR, STRIX_XX, &xx);
    printf("%zu %g %zu\n", n, v[n - 1], xx);
    strix_solution_free(s);
  }
  fclose(f);
}
"""


class Package(Case):
    # The README's examples against an installed copy: the C++ one built as
    # a consumer of the CMake package, the Python one with the installed
    # module; each prints the README's output block that follows it, and the
    # C++ one what() of a failure. Only the public headers are installed,
    # each compiles alone without warnings and names no library strix links,
    # and version.h says the package's version.
    def test_readme_examples_installed(self):
        blocks = readme_blocks()
        after = lambda lang: next(blocks[i:i + 2] for i, (l, _) in enumerate(blocks)  # noqa: E731
                                  if l == lang)
        prefix_dir, app = os.path.join(self.dir, "prefix"), os.path.join(self.dir, "app")
        self.tool("cmake", "--install", os.path.dirname(STRIX), "--prefix", prefix_dir)
        os.makedirs(os.path.join(self.dir, "examples"))
        os.symlink(EXAMPLE, os.path.join(self.dir, "examples", "example.b"))
        (_, code), (_, printed) = after("python")
        env = dict(os.environ, PYTHONPATH=os.path.join(prefix_dir, "lib/python3/dist-packages"))
        self.assertEqual(subprocess.run([sys.executable, "-c", code], cwd=self.dir, env=env,
                                        capture_output=True, check=True).stdout.decode(), printed)
        self.assertEqual(self.tool("gzip", "-d", "-c", "example.json.gz"),
                         self.run_ok(EXAMPLE, "-.json"))
        (_, code), (_, printed) = after("cpp")
        os.makedirs(app)
        include = os.path.join(prefix_dir, "include", "strix")
        headers = sorted(os.listdir(include))
        self.assertEqual(headers, ["array.h", "compress.h", "convert.h", "errors.h", "layout.h",
                                   "pool.h", "solution.h", "status.h", "streams.h", "strix.h",
                                   "version.h", "writers.h"])
        for h in headers:
            with open(os.path.join(include, h)) as f:
                self.assertNotRegex(f.read(), r"#include <(zlib|zstd|isa-l|fmt)", h)
            with open(os.path.join(app, f"h_{h[:-2]}.cpp"), "w") as f:
                f.write(f"#include <strix/{h}>\n")
        with open(os.path.join(prefix_dir, "lib", "cmake", "strix", "strixConfigVersion.cmake")) as f:
            version = re.search(r'set\(PACKAGE_VERSION "(\d+)\.(\d+)\.(\d+)"\)', f.read()).groups()
        with open(os.path.join(app, "h_version_numbers.cpp"), "w") as f:
            f.write('#include <string_view>\n#include <strix/version.h>\nstatic_assert(std::string_view('
                    'STRIX_VERSION) == "%s.%s.%s" && STRIX_VERSION_MAJOR == %s && STRIX_VERSION_MINOR == '
                    '%s && STRIX_VERSION_PATCH == %s);\n' % (version * 2))
        with open(os.path.join(app, "CMakeLists.txt"), "w") as f:
            f.write("cmake_minimum_required(VERSION 3.25)\nproject(app CXX)\n" +
                    next(text for lang, text in blocks if lang == "cmake") +
                    "file(GLOB units h_*.cpp)\nadd_library(headers OBJECT ${units})\n"
                    "target_compile_options(headers PRIVATE -Wall -Wextra -Wpedantic -Werror)\n"
                    "target_link_libraries(headers PRIVATE strix::strix)\n")
        with open(os.path.join(app, "app.cpp"), "w") as f:
            f.write(code)
        self.tool("cmake", "-S", app, "-B", app + "/build", "-DCMAKE_PREFIX_PATH=" + prefix_dir)
        self.tool("cmake", "--build", app + "/build", "-j2")
        self.assertEqual(self.tool(app + "/build/app", EXAMPLE).decode(), printed)
        self.write("x.json", b'{"$schema" : 1}')
        for name, said in FAILING:
            p = subprocess.run([app + "/build/app", name], cwd=self.dir, capture_output=True)
            self.assertEqual((p.returncode, p.stderr.decode(), p.stdout), (1, said + "\n", b""))

    # The README's C example built with nothing but pkg-config against an
    # installed prefix, under AddressSanitizer and LeakSanitizer (awake: a
    # copy without its last free leaks): it prints the block after it, and
    # for a failing file the C++ library's words. Bytes in memory and read
    # through callbacks (with and without skip) give the same as the file.
    # The library exports strix_* alone and has its SONAME.
    def test_c_interface_installed(self):
        blocks = readme_blocks()
        (_, code), (_, printed) = next(blocks[i:i + 2] for i, b in enumerate(blocks) if b[0] == "c")
        prefix_dir = os.path.join(self.dir, "prefix")
        self.tool("cmake", "--install", os.path.dirname(STRIX), "--prefix", prefix_dir)
        lib = os.path.join(prefix_dir, "lib")
        env = dict(os.environ, PKG_CONFIG_PATH=lib + "/pkgconfig", LD_LIBRARY_PATH=lib)
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "strix"], env=env, check=True,
                               capture_output=True, text=True).stdout.split()
        cut = code.rindex("strix_solution_free(s);")
        for name, text in ("app", code), ("leaky", code[:cut] + code[cut + 23:]), ("sources", SOURCES):
            self.write(name + ".c", text.encode())
            self.tool("cc", "-std=c11", "-Wall", "-Wextra", "-pedantic", "-Werror",
                      "-fsanitize=address", name + ".c", *flags, "-o", name)
        run = lambda *args: subprocess.run(args, cwd=self.dir, env=env, capture_output=True)  # noqa
        self.assertEqual(run("./app", EXAMPLE).stdout.decode(), printed)
        self.assertIn(b"ERROR: LeakSanitizer: detected memory leaks", run("./leaky", EXAMPLE).stderr)
        self.write("x.json", b'{"$schema" : 1}')
        for name, said in FAILING:
            p = run("./app", name)
            self.assertEqual((p.returncode, p.stderr.decode(), p.stdout), (1, said + "\n", b""))
        p = run("./sources", EXAMPLE)
        self.assertEqual((p.stdout, p.stderr), (b"3 1e-09 0\n" * 3, b""))
        self.assertEqual(run("./sources", "x.json").stdout.decode(), "IncompatibleFileError "
                         "not a solution file (it starts with bytes 7b 22 24 73)\n" * 3)
        so = os.path.join(lib, "libstrix.so.0")
        exported = [line.split()[-1] for line in self.tool("nm", "-D", "--defined-only", so).decode().splitlines()]
        self.assertEqual([n for n in exported if not n.startswith("strix_")], [])
        self.assertIn("strix_read_file", exported)
        self.assertRegex(self.tool("objdump", "-p", so).decode(), r"\n  SONAME +libstrix\.so\.0\n")

    # Each form converted in Python is the command's output byte for byte. A
    # failure raises an exception saying what failed in words (the reader's
    # checks in the command's own words) and naming the file, or the OSError
    # of the file that cannot be used; the next call works.
    def test_convert_and_failures(self):
        import shutil
        import strix
        many = noisy(12000)  # many pieces, and two gzip chunks
        self.write("noisy.b", many)
        for form in (".json", ".jtask", ".task", ".txt", ".b"):
            for z, threads in (("", 0), (".zst", 1), (".zst", 3), (".gz", 1), (".gz", 3)):
                self.strix("noisy.b", "cmd" + form + z)
                strix.convert(os.path.join(self.dir, "noisy.b"), os.path.join(self.dir, "py" + form + z),
                              threads=threads)
                self.assertEqual(self.read("py" + form + z), self.read("cmd" + form + z), form + z)
        self.assertRaises(ValueError, strix.convert, EXAMPLE, "x.json", threads=-1)
        path = lambda name: os.path.join(self.dir, name)  # noqa: E731
        base = full_file(kinds=("integer",)).sections()
        self.write("x.json", b'{"$schema" : 1}')
        self.write("bars.b", full_file())
        self.write("bad.b.zst", self.tool("zstd", "-c", EXAMPLE)[:-9] + b"Z" * 9)
        self.write("abcd.b", b"ABCD")
        self.write("numvar.b", replace(base, "numvar", "L"))
        self.write("xx.b", full_file(solutions=[full_item(xx=[1])]))
        os.symlink("/dev/full", path("full.json.zst"))
        os.symlink("/dev/full", path("full.b"))
        os.mkdir(path("folder"))
        os.symlink("noisy.b", path("same.b"))
        # As root no mode bits refuse a file; sysfs refuses to create one.
        os.chmod(path("folder"), 0o500)
        denied = "/sys/strix.b" if os.geteuid() == 0 else os.path.join(path("folder"), "x.b")
        bad_file = "{in}: not a solution file (it starts with bytes "
        failures = [  # (input, output, exception, its words, or (errno, file) of an OSError)
            ("x.json", "o.txt", strix.IncompatibleFileError, bad_file + "7b 22 24 73)"),
            ("abcd.b", "o.xml", strix.IncompatibleFileError, bad_file + "41 42 43 44)"),
            ("numvar.b", "o.xml", strix.FormatError,
             "{in}: malformed solution file: Expected section 'numvar'"),
            ("xx.b", "o.xml", strix.InconsistentSolution,
             "{in}: an array's length disagrees with the problem sizes: sol/basic/var/primal"),
            ("bad.b.zst", "o.b", strix.CompressionError,
             "{in}: corrupt Zstandard input (Data corruption detected)"),
            ("bars.b", "o.txt", strix.Error, "the text report cannot be written (argument not found)"),
            (EXAMPLE, "o.xml", ValueError, "ERROR: Unknown output format '\".xml\"'"),
            ("in.b.gz", "o.b", ValueError, "Compression type '\".gz\"' not supported for input"),
            ("noisy.b", "same.b", shutil.SameFileError,
             "input {in} and output {out} are the same file"),
            ("missing.b", "o.b", FileNotFoundError, (errno.ENOENT, "missing.b")),
            ("folder", "o.b", IsADirectoryError, (errno.EISDIR, "folder")),
            ("noisy.b", "no/dir/o.b", FileNotFoundError, (errno.ENOENT, "no/dir/o.b")),
            ("noisy.b", "folder", IsADirectoryError, (errno.EISDIR, "folder")),
            ("noisy.b", denied, PermissionError, (errno.EACCES, denied)),
            ("noisy.b", "full.b", OSError, (errno.ENOSPC, "full.b")),
            ("noisy.b", "full.json.zst", OSError, (errno.ENOSPC, "full.json.zst"))]
        for source, out, error, words in failures:
            with self.assertRaises(error) as caught:
                strix.convert(path(source), path(out))
            got = caught.exception
            if isinstance(words, tuple):
                self.assertEqual((got.errno, got.filename), (words[0], path(words[1])))
            else:
                self.assertEqual(str(got), words.format(**{"in": path(source), "out": path(out)}))
            if words[:4] == "{in}" and error is not strix.CompressionError:  # no name from bytes
                self.assertRaisesRegex(error, "^" + re.escape(words[6:]) + "$", strix.read,
                                       self.read(source))
            self.assertEqual(strix.read(EXAMPLE).numvar, 3)
        self.assertEqual([self.read("noisy.b"), os.listdir(path("folder"))],
                         [many.to_bytes(), []])
        self.assertRaises(IsADirectoryError, strix.read, path("folder"))


if __name__ == "__main__":
    unittest.main(verbosity=1)
