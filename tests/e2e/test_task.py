"""The task archive (.task): listed by GNU tar, extracted by Python's tarfile,
and compared byte for byte with an archive modelled here from the builder's
values."""

import io
import os
import re
import struct
import subprocess
import tarfile

from common import EXAMPLE, StrixCase, main, solgen
from solgen import Item, SolutionFile

# NLOM element types and widths
BYTE, INT32, INT64, DOUBLE = 1, 3, 4, 9
PACK = {INT32: "i", INT64: "q", DOUBLE: "d"}


def nlom(values, kind, flag=8, byte7=3):
    """An array member: the 40-byte header, then the raw little-endian values."""
    n = len(values or [])
    if kind == BYTE:
        data = bytes(values or b"")
    else:
        data = struct.pack(f"<{n}{PACK[kind]}", *(values or []))
    return b"NLOM" + bytes([flag, 0, kind, byte7]) + struct.pack("<QQQII", 1, n, n, 0, 0) + data


def escape_item_name(name):
    out = bytearray()
    for c in name:
        if c in (0x09, 0x0A, 0x0D, 0x5C):
            out += {0x09: b"\\t", 0x0A: b"\\n", 0x0D: b"\\r", 0x5C: b"\\\\"}[c]
        elif c < 0x20 or c >= 0x80:
            out += b"\\x%02x" % c
        else:
            out.append(c)
    return bytes(out)


def expected_members(sf):
    """(name, bytes) of every member, in archive order."""
    v = sf.version
    info = (f"nollover={v[0]}.{v[1]}.0.{v[2]}\nnumvar={sf.numvar}\nnumcon={sf.numcon}\n"
            f"numcone={sf.numcone}\nnumbarvar={sf.numbarvar}\nnumacc={sf.numacc}\n")
    members = [("Task/INFO", info.encode())]
    for label, items, kind in (("double", sf.info_f64, DOUBLE), ("int", sf.info_i32, INT32),
                               ("long", sf.info_i64, INT64)):
        names = b"".join(escape_item_name(n) + b"\n" for n, _ in items)
        members += [(f"Task/information/{label}items", names),
                    (f"Task/information/{label}", nlom([x for _, x in items], kind))]
    for it in sf.solutions:
        p = f"Task/solution/{it.kind}/"
        members += [(p + "status", b"prosta=" + it.prosta + b"\nsolsta=" + it.solsta + b"\n"),
                    (p + "skx", nlom(it.skx, BYTE)), (p + "skc", nlom(it.skc, BYTE))]
        if it.skn:
            members.append((p + "skn", nlom(it.skn, BYTE)))
        for key in ("xx", "xc", "y", "slc", "suc", "slx", "sux", "snx", "doty", "barx", "bars"):
            values = getattr(it, key)
            if values:
                flag = 0 if key in ("barx", "bars") else 8
                byte7 = 4 if key == "doty" else 3
                members.append((p + key, nlom([float(x) for x in values], DOUBLE, flag, byte7)))
    return members


def header(name, size):
    """The 512-byte header of one member, mode 0600, ids 1001, "nollo"."""
    h = bytearray(512)
    h[0:len(name)] = name.encode()
    h[100:124] = b"00000600" b"00001751" b"00001751"
    h[124:136] = b"00000000000\0" if size == 0 else b"%012o" % size
    h[136:148] = b"00000000000\0"
    h[148:156] = b" " * 8
    h[156] = ord("0")
    h[257:265] = b"ustar 00"
    h[265:270] = b"\0ollo"  # the user name's first byte is blanked after the copy
    h[297:302] = b"nollo"
    h[329:345] = b"0000000\0" b"0000000\0"
    total = sum(b - 256 if b >= 0x80 else b for b in h[:500])
    h[148:156] = b"0000000\0" if total == 0 else b"%08o" % (total & 0xFFFFFF)
    return bytes(h)


def expected_archive(members):
    out = bytearray()
    for name, data in members:
        out += header(name, len(data)) + data + bytes(-len(data) % 512)
    return bytes(out + bytes(1024))


def full_file():
    """Every optional section; more than 512 bytes in some members; item
    names that need escaping; an item with empty skx and no skn; an item
    without snx."""
    n = 70
    keys = bytes(b"bslux*k"[i % 7] for i in range(n))
    values = [i * 0.5 - 3 for i in range(n)]
    full = dict(pobj=1.5, dobj=-2.0, skx=keys, xx=values, slx=values[::-1], sux=values,
                snx=[1e300] * n, barx=[1, 2, 3, 4], bars=[-1, -2, -3, -4], skc=b"ul",
                xc=[7, 8], y=[-8, float("inf")], slc=[9, 0], suc=[10, -0.0], skn=b"bbx",
                doty=[11, 12, 13])
    return SolutionFile(
        version=(10, 2, 3), numvar=n, numcon=2, numcone=3, numbarvar=2, numacc=2,
        barvar_pattern=[3, 1], acc_pattern=[2, 1],
        solutions=[Item("interior", **full),
                   Item("basic", prosta=b"Prim_Feas\x01", solsta=b"", skx=b"", skc=b"ux"),
                   Item("integer", prosta=b"PRIM_FEAS", solsta=b"INTEGER_OPTIMAL",
                        **dict(full, snx=None, skn=None))],
        names={"var": [b"v%d" % i for i in range(n)], "barvar": [b"X", b"Y"],
               "con": [b"c", b"d"], "cone": [b"k1", b"k2", b"k3"], "acc": [b"a", b"b"]},
        problem_name=b"p", objective_name=b"o",
        info_f64=[(b"a\tb", 0.5), (b"c\\d", -1e-300), (b'q"x', float("-inf"))],
        info_i32=[(b"\xc3\xa9t\x0c", -7), (b"n", 2 ** 31 - 1)],
        info_i64=[(b"line\nbreak\r", -2 ** 63), (b"big", 2 ** 40)])


class TaskCase(StrixCase):
    def convert(self, sf, out="out.task"):
        self.write("in.b", sf.to_bytes())
        r = self.strix("in.b", out)
        self.assertFine(r)
        return r.out if out.startswith("-") else self.read(out)

    def assertArchive(self, data, members):
        """`data` is the archive of `members`, checked by GNU tar, by
        tarfile and against the modelled bytes."""
        self.write("check.task", data)
        listing = subprocess.run(["tar", "-tvf", "check.task"], capture_output=True, cwd=self.dir,
                                 env=dict(os.environ, TZ="UTC", LC_ALL="C"))
        self.assertEqual((listing.returncode, listing.stderr), (0, b""))
        lines = listing.stdout.decode().splitlines()
        self.assertEqual(len(lines), len(members), lines)
        for line, (name, content) in zip(lines, members):
            m = re.fullmatch(r"(\S+) (\S+)/(\S+) +(\d+) 1970-01-01 00:00 (.*)", line)
            self.assertIsNotNone(m, line)
            self.assertEqual((m[1], m[2], int(m[4]), m[5]),
                             ("-rw-------", "1001", len(content), name))
            self.assertIn(m[3], ("1001", "nollo"))  # the user name field reads as empty

        with tarfile.open(fileobj=io.BytesIO(data)) as tar:
            infos = tar.getmembers()
            self.assertEqual([i.name for i in infos], [name for name, _ in members])
            for info, (name, content) in zip(infos, members):
                with self.subTest(member=name):
                    self.assertEqual((info.mode, info.uid, info.gid, info.mtime, info.uname,
                                      info.gname, info.isreg()),
                                     (0o600, 1001, 1001, 0, "", "nollo", True))
                    self.assertEqual(tar.extractfile(info).read(), content)
            last = infos[-1]
            end = last.offset_data + (last.size + 511) // 512 * 512
        # Two zero blocks after the last member's padding and nothing more:
        # no padding to a record size.
        self.assertEqual(len(data) % 512, 0)
        self.assertEqual(len(data), end + 1024)
        self.assertEqual(data[end:], bytes(1024))
        self.assertEqual(data, expected_archive(members))


class Example(TaskCase):
    def test_example(self):
        self.assertFine(self.strix(EXAMPLE, "out.task"))
        members = expected_members(solgen.example())
        self.assertArchive(self.read("out.task"), members)
        # The modelled members, spelled out where it matters most.
        self.assertEqual(members[0][1], b"nollover=10.1.0.28\nnumvar=3\nnumcon=2\nnumcone=0\n"
                                        b"numbarvar=0\nnumacc=0\n")
        self.assertEqual([name for name, _ in members[7:]], [
            "Task/solution/interior/" + m for m in
            ("status", "skx", "skc", "xx", "xc", "y", "slc", "suc", "slx", "sux")] + [
            "Task/solution/basic/" + m for m in
            ("status", "skx", "skc", "xx", "xc", "y", "slc", "suc", "slx", "sux")])

    def test_standard_output_gives_the_same_bytes(self):
        self.assertFine(self.strix(EXAMPLE, "out.task"))
        r = self.strix(EXAMPLE, "-.task")
        self.assertFine(r)
        self.assertEqual(r.out, self.read("out.task"))


class Members(TaskCase):
    def test_every_optional_section(self):
        sf = full_file()
        members = expected_members(sf)
        self.assertArchive(self.convert(sf), members)
        got = dict(members)
        # A few members written out by hand.
        self.assertEqual(got["Task/information/doubleitems"], b'a\\tb\nc\\\\d\nq"x\n')
        self.assertEqual(got["Task/information/intitems"], b"\\xc3\\xa9t\\x0c\nn\n")
        self.assertEqual(got["Task/information/longitems"], b"line\\nbreak\\r\nbig\n")
        self.assertEqual(got["Task/solution/basic/status"], b"prosta=Prim_Feas\x01\nsolsta=\n")
        self.assertEqual(got["Task/solution/basic/skx"][:8], b"NLOM\x08\x00\x01\x03")
        self.assertEqual(len(got["Task/solution/basic/skx"]), 40)
        self.assertEqual(got["Task/solution/interior/barx"][:8], b"NLOM\x00\x00\x09\x03")
        self.assertEqual(len(got["Task/solution/interior/barx"]), 40 + 4 * 8)
        self.assertEqual(got["Task/solution/interior/doty"][:8], b"NLOM\x08\x00\x09\x04")
        self.assertEqual(got["Task/information/long"][:8], b"NLOM\x08\x00\x04\x03")
        self.assertEqual(got["Task/information/int"][:8], b"NLOM\x08\x00\x03\x03")
        self.assertNotIn("Task/solution/basic/skn", got)
        self.assertNotIn("Task/solution/integer/snx", got)
        self.assertEqual([n.rsplit("/", 1)[1] for n, _ in members
                          if n.startswith("Task/solution/interior/")],
                         ["status", "skx", "skc", "skn", "xx", "xc", "y", "slc", "suc", "slx",
                          "sux", "snx", "doty", "barx", "bars"])

    def test_no_solutions_and_empty_information_groups(self):
        members = expected_members(SolutionFile(version=(1, 2, 3)))
        self.assertEqual(len(members), 7)
        self.assertEqual(members[1], ("Task/information/doubleitems", b""))
        self.assertArchive(self.convert(SolutionFile(version=(1, 2, 3))), members)


if __name__ == "__main__":
    main()
