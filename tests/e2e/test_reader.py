"""Reading solution files: every check of the section reader, its messages
and source lines, and the designed end of any malformed or truncated file."""

import re
from concurrent.futures import ThreadPoolExecutor

from common import SRC, StrixCase, main, solgen
from solgen import Item, SolutionFile, arr, f64s, section_tuple, serialize, u32, u32s, u64

UNKNOWN_FORMAT = "ERROR: Unknown output format '\".xml\"'\n"


def full_item(kind="basic", **over):
    """A solution with every optional section for numvar 2, numcon 1,
    barvar pattern [3], acc pattern [2]."""
    fields = dict(pobj=1.5, dobj=-2.0, skx=b"bl", xx=[1, 2], slx=[0, 1], sux=[2, 3],
                  snx=[4, 5], barx=[1, 2, 3], bars=[4, 5, 6], skc=b"u", xc=[7], y=[8],
                  slc=[9], suc=[10], skn=b"bbx", doty=[11, 12])
    fields.update(over)
    return Item(kind, **fields)


def full_file(**over):
    fields = dict(numvar=2, numcon=1, numcone=3, numbarvar=1, numacc=1, barvar_pattern=[3],
                  acc_pattern=[2], solutions=[full_item("interior"), full_item("basic"),
                                              full_item("integer")],
                  names={"var": [b"x", b"y"], "barvar": [b"X"], "con": [b"c"],
                         "cone": [b"k1", b"k2", b"k3"], "acc": [b"a"]},
                  problem_name=b"p", objective_name=b"o", info_f64=[(b"t", 0.5)],
                  info_i32=[(b"i", 3)], info_i64=[(b"l", 4)])
    fields.update(over)
    return SolutionFile(**fields)


def replace(sections, name, fmt=None, payload=None):
    """Gives section `name` another format and/or payload."""
    name = name.encode()
    out = []
    for n, f, p in sections:
        if n == name:
            f = f if fmt is None else fmt.encode()
            p = p if payload is None else payload
        out.append((n, f, p))
    return out


def drop(sections, name):
    return [s for s in sections if s[0] != name.encode()]


class Accepted(StrixCase):
    """Valid files are read to the end: the run reaches the output-form
    check (status 7 for ".xml")."""

    def assertReads(self, data):
        self.write("in.b", data)
        r = self.strix("in.b", "out.xml")
        self.assertEqual((r.status, r.err), (7, UNKNOWN_FORMAT))

    def test_minimal_file_without_solutions(self):
        self.assertReads(SolutionFile().to_bytes())

    def test_every_optional_section(self):
        self.assertReads(full_file().to_bytes())

    def test_optional_sections_absent_one_at_a_time(self):
        for field in ("pobj", "dobj", "xx", "slx", "snx", "barx", "bars", "skc", "skn", "doty"):
            over = {field: None}
            if field == "slx":
                over.update(sux=None, snx=None)
            if field == "skc":
                # Cone statuses recheck the constraint statuses: drop them too.
                over.update(xc=None, y=None, skn=None)
            sf = full_file(solutions=[full_item(**over)])
            with self.subTest(absent=field):
                self.assertReads(sf.to_bytes())

    def test_solution_kinds_in_any_subset(self):
        for kinds in (["interior"], ["integer"], ["interior", "integer"], ["basic", "integer"]):
            with self.subTest(kinds=kinds):
                self.assertReads(full_file(solutions=[full_item(k) for k in kinds]).to_bytes())

    def test_unchecked_counts(self):
        # Variable statuses, cone statuses, bar and ACC values and name lists
        # are not compared with the sizes.
        sf = full_file(solutions=[full_item(skx=b"", skn=b"b" * 9, barx=[1], bars=[], doty=[])],
                       names={"var": [b"only one"]})
        self.assertReads(sf.to_bytes())

    def test_cone_statuses_without_constraint_statuses_when_numcon_is_0(self):
        sf = full_file(numcon=0, solutions=[full_item(skc=None, xc=None, y=None)])
        self.assertReads(sf.to_bytes())

    def test_non_minimal_and_chunked_prefixes(self):
        for form in (1, 2, 6):
            with self.subTest(extra_prefix_bytes=form):
                self.assertReads(full_file(form=form).to_bytes())
        # Chunked typed arrays come back empty (statuses, name lengths and
        # information items too), so a problem with no variables or
        # constraints survives them whole.
        sf = SolutionFile(solutions=[Item("basic", skx=b"bb", xx=[], skc=b"")], form="chunked",
                          names={"var": [b"a"]}, info_f64=[(b"t", 1.0)])
        self.assertReads(sf.to_bytes())

    def test_chunked_primal_values_are_dropped(self):
        sections = full_file(solutions=[full_item()]).sections()
        sections = replace(sections, "sol/basic/var/primal", payload=solgen.chunked(f64s([1, 2])))
        self.write("in.b", serialize(sections))
        self.assertAborted(self.strix("in.b", "out.xml"),
                           "InconsistentSolution: sol/basic/var/primal")


class BadMark(StrixCase):
    def test_mark_value_is_printed_in_hex(self):
        for data, value in ((b"ABCD" + SolutionFile().to_bytes()[4:], "44434241"),
                            (b"NL", "00004c4e"), (b"", "00000000"), (b"nlob", "626f6c6e")):
            self.write("in.b", data)
            with self.subTest(data=data[:4]):
                self.assertAborted(self.strix("in.b", "out.xml"), f"Got bad BOM {value}",
                                   f"{SRC}:1036:IncompatibleFileError")


class FormatErrors(StrixCase):
    def assertFails(self, sections, line, message):
        self.write("in.b", serialize(sections))
        r = self.strix("in.b", "out.xml")
        self.assertAborted(r, f"{SRC}:{line}:{message}")

    def test_header_sections(self):
        base = full_file().sections()
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
        ]
        for name, fmt, line, message in cases:
            with self.subTest(section=name):
                self.assertFails(replace(base, name, fmt=fmt), line, message)
        # A missing required section is reported by the check of its place.
        for name, line in (("NLOSOLN", 1041), ("version", 1046), ("numvar", 1051),
                           ("numacc", 1070)):
            with self.subTest(missing=name):
                self.assertFails(drop(base, name), line, f"Expected section '{name}'")

    def test_solution_sections(self):
        base = full_file(solutions=[full_item("integer")]).sections()
        S = "sol/integer"
        cases = [
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
        ]
        for name, fmt, line, message in cases:
            with self.subTest(section=name, format=fmt):
                self.assertFails(replace(base, name, fmt=fmt), line, message)
        with self.subTest(missing="var/sta"):
            self.assertFails(drop(base, S + "/var/sta"), 1156,
                             "Expected section 'sol/xxx/var/sta'")

    def test_name_and_information_sections(self):
        base = full_file().sections()
        cases = [
            ("name/var", "[B", 1270, "Expected names section to have format '[I[B'"),
            ("name/acc", "[L[B", 1270, "Expected names section to have format '[I[B'"),
            ("name/problem", "[I", 1291, "Expected problem name to have format '[B'"),
            ("name/objective", "[b", 1300, "Expected objective name to have format '[B'"),
            ("inf/f64", "[B[B[l", 1315, "Expected 'inf/f64'"),
            ("inf/i32", "[B[B[l", 1329, "Expected 'inf/i32'"),
            ("inf/i64", "[B[B[i", 1341, "Expected 'inf/i64'"),
        ]
        for name, fmt, line, message in cases:
            with self.subTest(section=name):
                self.assertFails(replace(base, name, fmt=fmt), line, message)
        for name, line in (("inf/f64", 1315), ("inf/i32", 1329), ("inf/i64", 1341)):
            with self.subTest(missing=name):
                self.assertFails(drop(base, name), line, f"Expected '{name}'")

    def test_information_counts(self):
        base = full_file().sections()
        two_names = arr(bytes([1, 1])) + arr(b"ab")
        for name, values, line in (("inf/f64", arr(f64s([1.0])), 1323),
                                   ("inf/i32", arr(u32s([1])), 1335),
                                   ("inf/i64", arr(u64(1)), 1347)):
            with self.subTest(section=name):
                self.assertFails(replace(base, name, payload=two_names + values), line,
                                 f"Invalid '{name}' entry")

    def test_sections_out_of_place_end_as_missing_information(self):
        def fails_1315(sections):
            self.assertFails(sections, 1315, "Expected 'inf/f64'")

        # Kinds come in table order: interior after basic ends the solutions.
        fails_1315(full_file(solutions=[full_item("basic"), full_item("interior")]).sections())
        # The same kind twice.
        fails_1315(full_file(solutions=[full_item("basic"), full_item("basic")]).sections())
        # Constraint values without constraint statuses are skipped over and
        # then match nothing.
        fails_1315(full_file(solutions=[full_item(skc=None, y=None)]).sections())
        # A section the reader does not know.
        base = full_file().sections()
        fails_1315(base[:-4] + [section_tuple("sol/extra", "[B", arr(b""))] + base[-4:])
        # Names of twelve or fourteen characters that are not the problem or
        # objective names.
        for name in ("name/problex", "name/objectiv_"):
            fails_1315(base[:-4] + [section_tuple(name, "[B", arr(b"x"))] + base[-4:])
        # Names out of order.
        names = [i for i, s in enumerate(base) if s[0].startswith(b"name/")]
        swapped = list(base)
        swapped[names[0]], swapped[names[1]] = swapped[names[1]], swapped[names[0]]
        fails_1315(swapped)


class Inconsistent(StrixCase):
    def assertInconsistent(self, item, text, **file_over):
        self.write("in.b", full_file(solutions=[item], **file_over).to_bytes())
        self.assertAborted(self.strix("in.b", "out.xml"), f"InconsistentSolution: {text}")

    def test_each_count_check_names_the_real_solution(self):
        cases = [
            (dict(xx=[1]), "/var/primal"),
            (dict(slx=[1], sux=[1], snx=[1]), "/var/primal - slx"),
            (dict(sux=[1, 2, 3]), "/var/primal - sux"),
            (dict(snx=[1]), "/var/primal - snx"),
            (dict(skc=b""), "/con/sta"),
            (dict(xc=[]), "/con/primal"),
            (dict(y=[1, 2], slc=[1, 2], suc=[1, 2]), "/con/dual - y"),
            (dict(slc=[]), "/con/dual - slc"),
            (dict(suc=[1, 2]), "/con/dual - sxc"),
        ]
        for kind in ("interior", "basic", "integer"):
            for over, suffix in cases:
                with self.subTest(kind=kind, suffix=suffix):
                    self.assertInconsistent(full_item(kind, **over), f"sol/{kind}{suffix}")

    def test_cone_statuses_check_the_constraint_statuses(self):
        self.assertInconsistent(full_item(skc=None, xc=None, y=None), "sol/basic/con/sta")


class Truncated(StrixCase):
    """A valid file cut at every byte offset ends in one of the designed ways:
    a message of the reader and SIGABRT, or a complete read when the cut
    falls inside the last information section (arrays cut to nothing agree
    with each other) or the closing section, which is never examined."""

    DESIGNED = re.compile(
        r"(src\\strix\\strix:\d+:[^\n]*\n"
        r"|Got bad BOM [0-9a-f]{8}\nsrc\\strix\\strix:1036:IncompatibleFileError\n"
        r"|InconsistentSolution: [^\n]*\n)\Z")

    def check_every_cut(self, data):
        last_items = data.index(b"\x07inf/i64\x06[B[B[l") + 15
        for n in range(len(data)):
            self.write(f"cut{n}.b", data[:n])

        def run(n):
            return n, self.strix(f"cut{n}.b", "out.xml")

        with ThreadPoolExecutor(max_workers=2) as pool:
            for n, r in pool.map(run, range(len(data))):
                if r.status == 7:
                    self.assertEqual(r.err, UNKNOWN_FORMAT, n)
                    self.assertGreaterEqual(n, last_items, n)
                else:
                    self.assertEqual(r.status, -6, (n, r.err))
                    self.assertRegex(r.err, self.DESIGNED, n)

    def test_example_like_file(self):
        self.check_every_cut(solgen.example().to_bytes())

    def test_file_with_every_section(self):
        self.check_every_cut(full_file(solutions=[full_item("interior")], form=1).to_bytes())


if __name__ == "__main__":
    main()
