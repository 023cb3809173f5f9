"""Builder of solution files for tests, examples and benchmarks.

Writes the "NLOB" mark and any sections with any name, format and payload,
with minimal, non-minimal or chunked length prefixes, so that valid and
malformed files can be made at will. Standard library only.

    sf = SolutionFile(numvar=2, numcon=1, solutions=[Item("basic", skx=b"bl", ...)])
    data = sf.to_bytes()                        # a valid file
    secs = sf.sections()                        # [(name, format, payload), ...]
    secs[3] = section_tuple("numvar", "L", u64(2))
    data = serialize(secs)                      # a malformed one

Command line:
    solgen.py example OUT           the bundled example file
    solgen.py large OUT --numvar N --numcon M [--round] [--seed S]
"""

import argparse
import random
import struct
import sys
from array import array

MARK = b"NLOB"


# ------------------------------------------------------------ primitives

def prefix(n, extra=None):
    """Length prefix for n bytes: top three bits of the first byte count the
    further bytes (big-endian), its low five bits start the value. `extra`
    forces that many further bytes (a non-minimal prefix)."""
    if extra is None:
        extra = 0
        while n >> (5 + 8 * extra):
            extra += 1
    if extra > 7 or n >> (5 + 8 * extra):
        raise ValueError(f"{n} does not fit a prefix with {extra} extra bytes")
    head = (extra << 5) | (n >> (8 * extra))
    if head == 0xE0:
        raise ValueError("that prefix would read as the chunked mark")
    return bytes([head]) + (n & ((1 << (8 * extra)) - 1)).to_bytes(extra, "big")


def chunked(data, chunk=65535):
    """Chunked array: 0xE0, then chunks of a 16-bit big-endian length and
    bytes, then a zero length."""
    out = bytearray([0xE0])
    for i in range(0, len(data), chunk):
        piece = data[i:i + chunk]
        out += len(piece).to_bytes(2, "big") + piece
    return bytes(out + b"\0\0")


def arr(data, form=None):
    """An array item: form None (minimal prefix), an int (that many extra
    prefix bytes) or "chunked"."""
    data = bytes(data)
    if form == "chunked":
        return chunked(data)
    return prefix(len(data), form) + data


def u32(v): return struct.pack("<I", v & 0xFFFFFFFF)
def i32(v): return struct.pack("<i", v)
def u64(v): return struct.pack("<Q", v & 0xFFFFFFFFFFFFFFFF)
def i64(v): return struct.pack("<q", v)
def f64(v): return struct.pack("<d", v)


def _pack(code, values):
    a = array(code, values)
    if sys.byteorder != "little":
        a.byteswap()
    return a.tobytes()


def f64s(values): return _pack("d", values)
def u32s(values): return _pack("I", values)
def i32s(values): return _pack("i", values)
def u64s(values): return _pack("Q", values)
def i64s(values): return _pack("q", values)


def _b(s):
    return s.encode("latin-1") if isinstance(s, str) else bytes(s)


def section_tuple(name, fmt, payload):
    return (_b(name), _b(fmt), bytes(payload))


def section(name, fmt, payload):
    """One section: name length, name, format length, format, payload."""
    name, fmt = _b(name), _b(fmt)
    return bytes([len(name)]) + name + bytes([len(fmt)]) + fmt + bytes(payload)


def serialize(sections, mark=MARK):
    return mark + b"".join(section(*s) for s in sections)


# ------------------------------------------------------- whole files

class Item:
    """One solution. None means the section is absent. Arrays are lists of
    numbers or ready-made payload bytes; statuses are bytes."""

    def __init__(self, kind, prosta=b"PRIM_AND_DUAL_FEAS", solsta=b"OPTIMAL", pobj=None,
                 dobj=None, skx=b"", xx=None, slx=None, sux=None, snx=None, barx=None,
                 bars=None, skc=None, xc=None, y=None, slc=None, suc=None, skn=None,
                 doty=None):
        self.kind = kind
        self.prosta, self.solsta = _b(prosta), _b(solsta)
        self.pobj, self.dobj = pobj, dobj
        self.skx, self.skc, self.skn = skx, skc, skn
        self.xx, self.slx, self.sux, self.snx = xx, slx, sux, snx
        self.barx, self.bars = barx, bars
        self.xc, self.y, self.slc, self.suc = xc, y, slc, suc
        self.doty = doty


def _doubles(v, form=None):
    if isinstance(v, (bytes, bytearray)):
        return arr(v, form)
    return arr(f64s(v), form)


class SolutionFile:
    """A solution file described by its contents; `form` picks the length
    prefix of every array (see `arr`)."""

    def __init__(self, version=(10, 1, 28), numvar=0, numbarvar=0, numcon=0, numcone=0,
                 numacc=0, barvar_pattern=None, acc_pattern=None, solutions=(), names=None,
                 problem_name=None, objective_name=None, info_f64=(), info_i32=(),
                 info_i64=(), form=None, closing=(b"end", b"")):
        self.version = version
        self.numvar, self.numbarvar, self.numcon = numvar, numbarvar, numcon
        self.numcone, self.numacc = numcone, numacc
        self.barvar_pattern, self.acc_pattern = barvar_pattern, acc_pattern
        self.solutions = list(solutions)
        self.names = names or {}  # "var", "barvar", "con", "cone", "acc" -> [bytes]
        self.problem_name, self.objective_name = problem_name, objective_name
        self.info_f64, self.info_i32, self.info_i64 = info_f64, info_i32, info_i64
        self.form = form
        self.closing = closing

    def _a(self, data):
        return arr(data, self.form)

    def sections(self):
        a = self._a
        s = [section_tuple("NLOSOLN", "[B", a(b"strix test file")),
             section_tuple("version", "III", b"".join(u32(v) for v in self.version)),
             section_tuple("numvar", "I", u32(self.numvar)),
             section_tuple("numbarvar", "I", u32(self.numbarvar)),
             section_tuple("numcon", "I", u32(self.numcon)),
             section_tuple("numcone", "I", u32(self.numcone)),
             section_tuple("numacc", "L", u64(self.numacc))]
        if self.barvar_pattern is not None:
            s.append(section_tuple("barvar/pattern", "[L", a(u64s(self.barvar_pattern))))
        if self.acc_pattern is not None:
            s.append(section_tuple("acc/pattern", "[L", a(u64s(self.acc_pattern))))
        for it in self.solutions:
            s += self._item_sections(it)
        for kind in ("var", "barvar", "con", "cone", "acc"):
            if kind in self.names:
                names = [_b(n) for n in self.names[kind]]
                s.append(section_tuple("name/" + kind, "[I[B",
                                       a(u32s([len(n) for n in names])) + a(b"".join(names))))
        if self.problem_name is not None:
            s.append(section_tuple("name/problem", "[B", a(_b(self.problem_name))))
        if self.objective_name is not None:
            s.append(section_tuple("name/objective", "[B", a(_b(self.objective_name))))
        for name, fmt, items, pack in (("inf/f64", "[B[B[d", self.info_f64, f64s),
                                       ("inf/i32", "[B[B[i", self.info_i32, i32s),
                                       ("inf/i64", "[B[B[l", self.info_i64, i64s)):
            names = [_b(n) for n, _ in items]
            s.append(section_tuple(name, fmt, a(bytes(len(n) for n in names)) +
                                   a(b"".join(names)) + a(pack([v for _, v in items]))))
        if self.closing is not None:
            s.append(section_tuple(*self.closing, b""))
        return s

    def _item_sections(self, it):
        S = "sol/" + it.kind
        d = lambda v: _doubles(v, self.form)  # noqa: E731
        s = [section_tuple(S, "[B[B", self._a(it.prosta) + self._a(it.solsta))]
        if it.pobj is not None:
            s.append(section_tuple(S + "/pobj", "d", f64(it.pobj)))
        if it.dobj is not None:
            s.append(section_tuple(S + "/dobj", "d", f64(it.dobj)))
        if it.skx is not None:
            s.append(section_tuple(S + "/var/sta", "[B", self._a(it.skx)))
        if it.xx is not None:
            s.append(section_tuple(S + "/var/primal", "[d", d(it.xx)))
        if it.slx is not None:
            if it.snx is None:
                s.append(section_tuple(S + "/var/dual", "[d[d", d(it.slx) + d(it.sux)))
            else:
                s.append(section_tuple(S + "/var/dual", "[d[d[d",
                                       d(it.slx) + d(it.sux) + d(it.snx)))
        if it.barx is not None:
            s.append(section_tuple(S + "/barvar/primal", "[d", d(it.barx)))
        if it.bars is not None:
            s.append(section_tuple(S + "/barvar/dual", "[d", d(it.bars)))
        if it.skc is not None:
            s.append(section_tuple(S + "/con/sta", "[B", self._a(it.skc)))
        if it.xc is not None:
            s.append(section_tuple(S + "/con/primal", "[d", d(it.xc)))
        if it.y is not None:
            s.append(section_tuple(S + "/con/dual", "[d[d[d", d(it.y) + d(it.slc) + d(it.suc)))
        if it.skn is not None:
            s.append(section_tuple(S + "/cone/sta", "[B", self._a(it.skn)))
        if it.doty is not None:
            s.append(section_tuple(S + "/acc/dual", "[d", d(it.doty)))
        return s

    def to_bytes(self):
        return serialize(self.sections())


def example():
    """The bundled example: three named variables, two constraints, an
    interior and a basic solution, information items."""
    return SolutionFile(
        version=(10, 1, 28), numvar=3, numcon=2,
        solutions=[
            Item("interior", prosta=b"PRIM_AND_DUAL_FEAS", solsta=b"OPTIMAL",
                 pobj=2.5, dobj=2.4999999998, skx=b"bll", xx=[1.0, 0.0, 1.5],
                 slx=[0.0, 2.5, 1e-09], sux=[0.0, 0.0, 0.0], skc=b"uu", xc=[1.0, 1.5],
                 y=[-2.5, -1e-10], slc=[0.0, 0.0], suc=[2.5, 1e-10]),
            Item("basic", prosta=b"PRIM_AND_DUAL_FEAS", solsta=b"OPTIMAL", pobj=2.5,
                 dobj=2.5, skx=b"bll", xx=[1.0, 0.0, 1.5], slx=[0.0, 2.5, 0.0],
                 sux=[0.0, 0.0, 0.0], skc=b"ub", xc=[1.0, 1.5], y=[-2.5, 0.0],
                 slc=[0.0, 0.0], suc=[2.5, 0.0]),
        ],
        names={"var": [b"x1", b"x2", b""], "con": [b"budget", b"c\xe9"]},
        problem_name=b"example", objective_name=b"cost",
        info_f64=[(b"optimizer_time", 0.125), (b"primal_obj", 2.5)],
        info_i32=[(b"iterations", 7), (b"num_threads", 2)],
        info_i64=[(b"nonzeros", 9)])


def large(numvar, numcon, round_values=False, seed=1):
    """A large file with full primal and dual vectors: 17-digit doubles, or
    small round values."""
    rng = random.Random(seed)

    def vec(n):
        if round_values:
            return f64s(float(rng.randrange(-8, 9)) / 2 for _ in range(n))
        # Raw random bits give real-looking 17-digit doubles quickly; keep
        # them finite and of a moderate magnitude.
        vals = array("d", (rng.uniform(-1e6, 1e6) * 10 ** rng.randrange(-8, 3)
                           for _ in range(n)))
        return vals.tobytes()

    keys = b"blux"
    item = Item("basic", skx=bytes(keys[i % 4] for i in range(numvar)), xx=vec(numvar),
                slx=vec(numvar), sux=vec(numvar), snx=vec(numvar),
                skc=bytes(keys[i % 4] for i in range(numcon)), xc=vec(numcon), y=vec(numcon),
                slc=vec(numcon), suc=vec(numcon), pobj=1.0, dobj=1.0)
    return SolutionFile(numvar=numvar, numcon=numcon, solutions=[item],
                        info_f64=[(b"t", 1.0)], info_i32=[(b"i", 1)], info_i64=[(b"l", 1)])


def main(argv=None):
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sub = p.add_subparsers(dest="cmd", required=True)
    e = sub.add_parser("example")
    e.add_argument("out")
    g = sub.add_parser("large")
    g.add_argument("out")
    g.add_argument("--numvar", type=int, default=2_000_000)
    g.add_argument("--numcon", type=int, default=1_000_000)
    g.add_argument("--round", action="store_true")
    g.add_argument("--seed", type=int, default=1)
    args = p.parse_args(argv)
    sf = example() if args.cmd == "example" else large(args.numvar, args.numcon, args.round,
                                                        args.seed)
    with open(args.out, "wb") as f:
        f.write(sf.to_bytes())


if __name__ == "__main__":
    main()
