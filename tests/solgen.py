# Builder of solution files: sections of any name, format and payload, and
# whole files described by their contents (SolutionFile, Item); edit the
# list that sections() returns to make a malformed file.

from array import array
from types import SimpleNamespace


# Array length prefix: the first byte's top three bits count the further
# (big-endian) bytes, its low five bits start the value; `extra` forces more
# further bytes than needed.
def prefix(n, extra=None):
    if extra is None:
        extra = next(e for e in range(8) if n >> (5 + 8 * e) == 0)
    return bytes([extra << 5 | n >> (8 * extra)]) + (n % (1 << 8 * extra)).to_bytes(extra, "big")


# An array: minimal prefix (form None), `form` extra prefix bytes, or
# "chunked": 0xE0, chunks with 16-bit big-endian lengths, a zero length.
def arr(data, form=None):
    data = bytes(data)
    if form != "chunked":
        return prefix(len(data), form) + data
    chunks = (data[i:i + 65535] for i in range(0, len(data), 65535))
    return b"\xe0" + b"".join(len(c).to_bytes(2, "big") + c for c in chunks) + b"\0\0"


def pack(code, values):
    return array(code, values).tobytes()  # the host's order: little-endian, as strix needs


# The mark, then per section: name length, name, format length, format, payload.
def serialize(sections, mark=b"NLOB"):
    return mark + b"".join(bytes([len(n)]) + n.encode() + bytes([len(f)]) + f.encode() + bytes(p)
                           for n, f, p in sections)


# Solution sections in file order with the fields of their payloads; a
# section is written when its first field is given (not None).
ITEM_SECTIONS = [("/pobj", "pobj"), ("/dobj", "dobj"), ("/var/sta", "skx"), ("/var/primal", "xx"),
                 ("/var/dual", "slx sux snx"), ("/barvar/primal", "barx"),
                 ("/barvar/dual", "bars"), ("/con/sta", "skc"), ("/con/primal", "xc"),
                 ("/con/dual", "y slc suc"), ("/cone/sta", "skn"), ("/acc/dual", "doty")]


# One solution: statuses and status keys are bytes, objectives numbers,
# values sequences of numbers.
def Item(kind, prosta=b"PRIM_AND_DUAL_FEAS", solsta=b"OPTIMAL", **fields):
    keys = " ".join(k for _, k in ITEM_SECTIONS).split()
    return SimpleNamespace(kind=kind, prosta=prosta, solsta=solsta,
                           **dict.fromkeys(keys) | {"skx": b""} | fields)


class SolutionFile:
    def __init__(self, **fields):
        self.__dict__.update(
            version=(10, 1, 28), numvar=0, numbarvar=0, numcon=0, numcone=0, numacc=0,
            barvar_pattern=None, acc_pattern=None, solutions=(), names={}, problem_name=None,
            objective_name=None, info_f64=(), info_i32=(), info_i64=(), form=None)
        self.__dict__.update(fields)

    def arr(self, data):
        return arr(data, self.form)

    # (format, payload) of a value: a number is "d", bytes "[B", a sequence
    # of numbers "[d".
    def value(self, v):
        if isinstance(v, (int, float)):
            return "d", pack("d", [v])
        return ("[B", self.arr(v)) if isinstance(v, bytes) else ("[d", self.arr(pack("d", v)))

    def sections(self):
        s = [("NLOSOLN", "[B", self.arr(b"strix test file")),
             ("version", "III", pack("I", self.version))]
        s += [(k, "I", pack("I", [getattr(self, k)])) for k in ("numvar", "numbarvar", "numcon",
                                                                "numcone")]
        s.append(("numacc", "L", pack("Q", [self.numacc])))
        for key in ("barvar", "acc"):
            if getattr(self, key + "_pattern") is not None:
                s.append((key + "/pattern", "[L", self.arr(pack("Q", getattr(self, key + "_pattern")))))
        for it in self.solutions:
            s.append(("sol/" + it.kind, "[B[B", self.arr(it.prosta) + self.arr(it.solsta)))
            for suffix, keys in ITEM_SECTIONS:
                values = [getattr(it, k) for k in keys.split()]
                if values[0] is not None:
                    parts = [self.value(v) for v in values if v is not None]
                    s.append(("sol/" + it.kind + suffix, "".join(f for f, _ in parts),
                              b"".join(p for _, p in parts)))
        for kind in ("var", "barvar", "con", "cone", "acc"):
            if kind in self.names:
                names = self.names[kind]
                s.append(("name/" + kind, "[I[B",
                          self.arr(pack("I", map(len, names))) + self.arr(b"".join(names))))
        for key in ("problem", "objective"):
            if getattr(self, key + "_name") is not None:
                s.append(("name/" + key, "[B", self.arr(getattr(self, key + "_name"))))
        for key, fmt, code in (("f64", "d", "d"), ("i32", "i", "i"), ("i64", "l", "q")):
            items = getattr(self, "info_" + key)
            s.append(("inf/" + key, "[B[B[" + fmt, self.arr(bytes(len(n) for n, _ in items)) +
                      self.arr(b"".join(n for n, _ in items)) + self.arr(pack(code, [v for _, v in items]))))
        return s + [("end", "", b"")]  # a closing section, never examined

    def to_bytes(self):
        return serialize(self.sections())
