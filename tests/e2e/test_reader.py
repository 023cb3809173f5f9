"""Reading solution files: every check of the section reader, its messages
and source lines, and the designed end of any malformed or truncated file.
A file that reads to the end reaches the output-form check: status 7 for
".xml"."""

import re
from concurrent.futures import ThreadPoolExecutor

from common import SRC, UNKNOWN_XML, StrixCase, full_file, full_item, main, solgen
from solgen import Item, SolutionFile, arr, f64s, section_tuple, serialize, u32s, u64


def replace(sections, name, fmt=None, payload=None):
    """Gives section `name` another format and/or payload."""
    return [(n, f if fmt is None or n != name.encode() else fmt.encode(),
             p if payload is None or n != name.encode() else payload) for n, f, p in sections]


def drop(sections, name):
    return [s for s in sections if s[0] != name.encode()]


class Reader(StrixCase):
    def run_xml(self, data):
        self.write("in.b", data if isinstance(data, bytes) else serialize(data))
        return self.strix("in.b", "out.xml")

    def assertReads(self, data):
        r = self.run_xml(data)
        self.assertEqual((r.status, r.err), (7, UNKNOWN_XML))

    def assertFails(self, data, *lines):
        self.assertAborted(self.run_xml(data), *lines)


class Sections(Reader):
    def test_valid_files(self):
        sol = lambda **over: full_file(solutions=[full_item(**over)])  # noqa: E731
        cases = {
            "minimal": SolutionFile(),
            "every section": full_file(),
            # Variable statuses, cone statuses, bar and ACC values and name
            # lists are not compared with the sizes.
            "unchecked counts": full_file(
                solutions=[full_item(skx=b"", skn=b"b" * 9, barx=[1], bars=[], doty=[])],
                names={"var": [b"only one"]}),
            "cone statuses, numcon 0": full_file(
                numcon=0, solutions=[full_item(skc=None, xc=None, y=None)]),
            # Chunked typed arrays come back empty (statuses, name lengths and
            # information items too), so sizes 0 survive them whole.
            "chunked": SolutionFile(solutions=[Item("basic", skx=b"bb", xx=[], skc=b"")],
                                    form="chunked", names={"var": [b"a"]},
                                    info_f64=[(b"t", 1.0)]),
            # Cone statuses recheck the constraint statuses: drop them together.
            "no skc": sol(skc=None, xc=None, y=None, skn=None),
            "no var/dual": sol(slx=None, sux=None, snx=None),
        }
        for form in (1, 2, 6):
            cases[f"{form} extra prefix bytes"] = full_file(form=form)
        for kinds in (("interior",), ("integer",), ("interior", "integer"), ("basic", "integer")):
            cases[" ".join(kinds)] = full_file(solutions=[full_item(k) for k in kinds])
        for field in ("pobj", "dobj", "xx", "snx", "barx", "bars", "skn", "doty"):
            cases["no " + field] = sol(**{field: None})
        for name, sf in cases.items():
            with self.subTest(name):
                self.assertReads(sf.to_bytes())

    def test_bad_mark_is_printed_in_hex(self):
        for data, value in ((b"ABCD" + SolutionFile().to_bytes()[4:], "44434241"),
                            (b"NL", "00004c4e"), (b"", "00000000"), (b"nlob", "626f6c6e")):
            with self.subTest(data=data[:4]):
                self.assertFails(data, f"Got bad BOM {value}", f"{SRC}:1036:IncompatibleFileError")

    def test_wrong_formats(self):
        S = "sol/integer"
        cases = [
            ("NLOSOLN", "[I", 1041, "Expected section 'NLOSOLN'"),
            ("version", "II", 1046, "Expected section 'version'"),
            ("numvar", "L", 1051, "Expected section 'numvar'"),
            ("numbarvar", "i", 1055, "Expected section 'numbarvar'"),
            ("numcon", "", 1060, "Expected section 'numcon'"),
            ("numcone", "II", 1065, "Expected section 'numcone'"),
            ("numacc", "I", 1070, "Expected section 'numacc'"),
            ("barvar/pattern", "[I", 1092, "Invalid format in 'sol/xxx/barvar/pattern'"),
            ("acc/pattern", "[l", 1102, "Expected section 'sol/xxx/acc/pattern'"),
            (S, "[B", 1116, "Expected section 'sol/xxx'"),
            (S + "/pobj", "L", 1144, "Invalid section 'sol/xxx/pobj'"),
            (S + "/dobj", "", 1150, "Invalid section 'sol/xxx/dobj'"),
            (S + "/var/sta", "[I", 1156, "Expected section 'sol/xxx/var/sta'"),
            (S + "/var/primal", "[l", 1162, "Invalid format in 'sol/xxx/var/primal'"),
            (S + "/var/dual", "[d", 1172, "Invalid format in 'sol/xxx/var/dual'"),
            (S + "/var/dual", "[d[d[d[d", 1172, "Invalid format in 'sol/xxx/var/dual'"),
            (S + "/barvar/primal", "[L", 1191, "Invalid format in 'sol/xxx/barvar/primal'"),
            (S + "/barvar/dual", "d", 1198, "Invalid format in 'sol/xxx/barvar/dual'"),
            (S + "/con/sta", "[b", 1207, "Expected section 'sol/xxx/con/sta'"),
            (S + "/con/primal", "[d[d", 1215, "Invalid format in 'sol/xxx/con/primal'"),
            (S + "/con/dual", "[d[d", 1224, "Invalid format in 'sol/xxx/con/dual'"),
            # The cone statuses reuse the constraint-status message.
            (S + "/cone/sta", "[I", 1241, "Expected section 'sol/xxx/con/sta'"),
            (S + "/acc/dual", "[L", 1250, "Invalid format in 'sol/xxx/acc/dual'"),
            ("name/var", "[B", 1270, "Expected names section to have format '[I[B'"),
            ("name/acc", "[L[B", 1270, "Expected names section to have format '[I[B'"),
            ("name/problem", "[I", 1291, "Expected problem name to have format '[B'"),
            ("name/objective", "[b", 1300, "Expected objective name to have format '[B'"),
            ("inf/f64", "[B[B[l", 1315, "Expected 'inf/f64'"),
            ("inf/i32", "[B[B[l", 1329, "Expected 'inf/i32'"),
            ("inf/i64", "[B[B[i", 1341, "Expected 'inf/i64'"),
        ]
        base = full_file(solutions=[full_item("integer")]).sections()
        for name, fmt, line, message in cases:
            with self.subTest(section=name, format=fmt):
                self.assertFails(replace(base, name, fmt=fmt), f"{SRC}:{line}:{message}")
        # A missing required section is reported by the check of its place.
        where = {name: (line, message) for name, _, line, message in cases}
        for name in ("NLOSOLN", "version", "numvar", "numacc", S + "/var/sta", "inf/f64",
                     "inf/i32", "inf/i64"):
            with self.subTest(missing=name):
                self.assertFails(drop(base, name), "{}:{}:{}".format(SRC, *where[name]))

    def test_information_counts(self):
        two_names = arr(bytes([1, 1])) + arr(b"ab")
        for name, values, line in (("inf/f64", arr(f64s([1.0])), 1323),
                                   ("inf/i32", arr(u32s([1])), 1335),
                                   ("inf/i64", arr(u64(1)), 1347)):
            with self.subTest(section=name):
                self.assertFails(replace(full_file().sections(), name, payload=two_names + values),
                                 f"{SRC}:{line}:Invalid '{name}' entry")

    def test_sections_out_of_place_end_as_missing_information(self):
        base = full_file().sections()
        names = [i for i, s in enumerate(base) if s[0].startswith(b"name/")]
        swapped = list(base)
        swapped[names[0]], swapped[names[1]] = swapped[names[1]], swapped[names[0]]
        cases = [
            # Kinds come in table order: interior after basic ends the solutions.
            full_file(solutions=[full_item("basic"), full_item("interior")]).sections(),
            full_file(solutions=[full_item("basic"), full_item("basic")]).sections(),
            # Constraint values without constraint statuses are skipped over
            # and then match nothing.
            full_file(solutions=[full_item(skc=None, y=None)]).sections(),
            swapped,  # names out of order
        ] + [  # an unknown section; names of the problem and objective names' lengths
            base[:-4] + [section_tuple(name, "[B", arr(b"x"))] + base[-4:]
            for name in ("sol/extra", "name/problex", "name/objectiv_")]
        for i, sections in enumerate(cases):
            with self.subTest(case=i):
                self.assertFails(sections, f"{SRC}:1315:Expected 'inf/f64'")

    def test_inconsistent_counts_name_the_real_solution(self):
        cases = [
            (dict(xx=[1]), "/var/primal"),
            (dict(slx=[1], sux=[1], snx=[1]), "/var/primal - slx"),
            (dict(sux=[1, 2, 3]), "/var/primal - sux"),
            (dict(snx=[1]), "/var/primal - snx"),
            (dict(skc=b""), "/con/sta"),
            (dict(xc=[]), "/con/primal"),
            (dict(y=[1, 2, 3], slc=[1, 2, 3], suc=[1, 2, 3]), "/con/dual - y"),
            (dict(slc=[]), "/con/dual - slc"),
            (dict(suc=[1]), "/con/dual - sxc"),
            # Cone statuses check the constraint statuses they follow.
            (dict(skc=None, xc=None, y=None), "/con/sta"),
        ]
        for kind in ("interior", "basic", "integer"):
            for over, suffix in cases:
                with self.subTest(kind=kind, suffix=suffix):
                    self.assertFails(full_file(solutions=[full_item(kind, **over)]).to_bytes(),
                                     f"InconsistentSolution: sol/{kind}{suffix}")
        # Chunked doubles come back empty.
        self.assertFails(replace(full_file().sections(), "sol/interior/var/primal",
                                 payload=solgen.chunked(f64s([1, 2]))),
                         "InconsistentSolution: sol/interior/var/primal")


class Truncated(Reader):
    """A valid file cut at every byte offset ends in one of the designed ways:
    a message of the reader and SIGABRT, or a complete read when the cut
    falls inside the last information section (arrays cut to nothing agree
    with each other) or the closing section, which is never examined."""

    DESIGNED = re.compile(
        r"(src\\strix\\strix:\d+:[^\n]*\n"
        r"|Got bad BOM [0-9a-f]{8}\nsrc\\strix\\strix:1036:IncompatibleFileError\n"
        r"|InconsistentSolution: [^\n]*\n)\Z")

    def test_every_cut(self):
        for data in (solgen.example().to_bytes(),
                     full_file(solutions=[full_item("interior")], form=1).to_bytes()):
            last_items = data.index(b"\x07inf/i64\x06[B[B[l") + 15
            for n in range(len(data)):
                self.write(f"cut{n}.b", data[:n])
            with ThreadPoolExecutor(max_workers=2) as pool:
                runs = pool.map(lambda n: self.strix(f"cut{n}.b", "out.xml"), range(len(data)))
                for n, r in enumerate(runs):
                    if r.status == 7:
                        self.assertEqual(r.err, UNKNOWN_XML, n)
                        self.assertGreaterEqual(n, last_items, n)
                    else:
                        self.assertEqual(r.status, -6, (n, r.err))
                        self.assertRegex(r.err, self.DESIGNED, n)


if __name__ == "__main__":
    main()
