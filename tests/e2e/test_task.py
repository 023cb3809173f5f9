"""The task archive (.task): listed by GNU tar, extracted by Python's tarfile,
and compared byte for byte with an archive modelled here from the builder's
values."""

import io
import os
import re
import struct
import subprocess
import tarfile

from common import EXAMPLE, StrixCase, full_file, full_item, main, solgen
from solgen import Item, SolutionFile


def nlom(values, code="d", flag=8, byte7=3):
    """An array member: the 40-byte header, then the raw little-endian values
    (element type 1 for bytes, 3 for int32, 4 for int64, 9 for doubles)."""
    n = len(values or ())
    return (b"NLOM" + bytes([flag, 0, {"B": 1, "i": 3, "q": 4, "d": 9}[code], byte7]) +
            struct.pack(f"<QQQII{n}{code}", 1, n, n, 0, 0, *(values or ())))


def escape_item_name(name):
    named = {0x09: b"\\t", 0x0A: b"\\n", 0x0D: b"\\r", 0x5C: b"\\\\"}
    return b"".join(named.get(c) or (b"\\x%02x" % c if c < 0x20 or c >= 0x80 else bytes([c]))
                    for c in name)


def expected_members(sf):
    """(name, bytes) of every member, in archive order."""
    v = sf.version
    info = (f"nollover={v[0]}.{v[1]}.0.{v[2]}\nnumvar={sf.numvar}\nnumcon={sf.numcon}\n"
            f"numcone={sf.numcone}\nnumbarvar={sf.numbarvar}\nnumacc={sf.numacc}\n")
    members = [("Task/INFO", info.encode())]
    for label, items, code in (("double", sf.info_f64, "d"), ("int", sf.info_i32, "i"),
                               ("long", sf.info_i64, "q")):
        names = b"".join(escape_item_name(n) + b"\n" for n, _ in items)
        members += [(f"Task/information/{label}items", names),
                    (f"Task/information/{label}", nlom([x for _, x in items], code))]
    for it in sf.solutions:
        p = f"Task/solution/{it.kind}/"
        members += [(p + "status", b"prosta=" + it.prosta + b"\nsolsta=" + it.solsta + b"\n"),
                    (p + "skx", nlom(it.skx, "B")), (p + "skc", nlom(it.skc, "B"))]
        if it.skn:
            members.append((p + "skn", nlom(it.skn, "B")))
        for key in ("xx", "xc", "y", "slc", "suc", "slx", "sux", "snx", "doty", "barx", "bars"):
            values = getattr(it, key)
            if values:
                members.append((p + key, nlom(values, "d", 0 if key in ("barx", "bars") else 8,
                                              4 if key == "doty" else 3)))
    return members


def header(name, size):
    """The 512-byte header of one member, mode 0600, ids 1001, "nollo"."""
    h = bytearray(512)
    h[0:len(name)] = name.encode()
    h[100:157] = (b"00000600" b"00001751" b"00001751" +  # mode, uid, gid
                  (b"%012o" % size if size else b"00000000000\0") +  # size
                  b"00000000000\0" + b" " * 8 + b"0")  # mtime, checksum blanks, typeflag
    h[257:270] = b"ustar 00\0ollo"  # the user name's first byte is blanked after the copy
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


class Task(StrixCase):
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
                self.assertEqual((info.mode, info.uid, info.gid, info.mtime, info.uname,
                                  info.gname, info.isreg()),
                                 (0o600, 1001, 1001, 0, "", "nollo", True), name)
                self.assertEqual(tar.extractfile(info).read(), content, name)
            end = infos[-1].offset_data + (infos[-1].size + 511) // 512 * 512
        # Two zero blocks after the last member's padding and nothing more:
        # no padding to a record size.
        self.assertEqual(data[end:], bytes(1024))
        self.assertEqual(data, expected_archive(members))

    def test_example_and_no_solutions(self):
        # Seven members; an empty array is its 40-byte header alone: flag 8,
        # a zero byte, the type, 3, then the 64-bit 1 and zero counts.
        empty = expected_members(SolutionFile(version=(1, 2, 3)))
        self.assertEqual(empty[1:3], [("Task/information/doubleitems", b""),
                                      ("Task/information/double",
                                       b"NLOM\x08\x00\x09\x03\x01" + bytes(31))])
        self.assertEqual(len(empty), 7)
        self.assertArchive(self.convert(SolutionFile(version=(1, 2, 3)), "out.task"), empty)
        members = expected_members(solgen.example())
        self.assertArchive(self.convert(EXAMPLE, "out.task"), members)
        # The version has a constant 0 as its third part.
        self.assertEqual(members[0][1], b"nollover=10.1.0.28\nnumvar=3\nnumcon=2\nnumcone=0\n"
                                        b"numbarvar=0\nnumacc=0\n")

    def test_every_optional_section(self):
        # More than 512 bytes in some members; an item with empty skx and no
        # skn; an item without snx.
        sf = full_file(70, solutions=[
            full_item("interior", 70),
            Item("basic", prosta=b"Prim_Feas\x01", solsta=b"", skx=b"", skc=b"ux"),
            full_item("integer", 70, snx=None, skn=None)])
        members = expected_members(sf)
        self.assertArchive(self.convert(sf, "out.task"), members)
        got = dict(members)
        # The model, spelled out where it matters most.
        self.assertEqual(got["Task/information/doubleitems"], b'a\\tb\nc\\\\d\nq"x\n')
        self.assertEqual(got["Task/information/intitems"], b"\\xc3\\xa9t\\x0c\nn\n")
        self.assertEqual(got["Task/information/longitems"], b"line\\nbreak\\r\nbig\n")
        self.assertEqual(got["Task/solution/basic/status"], b"prosta=Prim_Feas\x01\nsolsta=\n")
        self.assertEqual(got["Task/solution/basic/skx"], b"NLOM\x08\x00\x01\x03\x01" + bytes(31))
        for name, head, size in (("solution/interior/barx", b"\0\0\x09\x03", 40 + 4 * 8),
                                 ("solution/interior/doty", b"\x08\0\x09\x04", 40 + 3 * 8),
                                 ("solution/interior/xx", b"\x08\0\x09\x03", 40 + 70 * 8),
                                 ("information/long", b"\x08\0\x04\x03", 40 + 2 * 8),
                                 ("information/int", b"\x08\0\x03\x03", 40 + 2 * 4)):
            self.assertEqual((got["Task/" + name][:8], len(got["Task/" + name])),
                             (b"NLOM" + head, size), name)


if __name__ == "__main__":
    main()
