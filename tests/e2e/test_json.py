"""The JSON document (.json and .jtask): parsed and checked against the schema
and against the values the builder put into the file, and compared byte for
byte with documents written out by hand."""

import json
import os
import struct

import jsonschema

from common import EXAMPLE, SOURCE_DIR, StrixCase, main, solgen
from solgen import Item, SolutionFile

SCHEMA_ID = "https://strix.example.org/json/solution/schema#"
KEY_NAMES = {ord("b"): "bas", ord("s"): "supbas", ord("l"): "low", ord("u"): "upr",
             ord("x"): "fix", ord("*"): "inf"}
NEG_NAN = struct.unpack("<d", bytes.fromhex("000000000000f8ff"))[0]


def key_names(data):
    return [KEY_NAMES.get(c, "unk") for c in (data or b"")]


def lowered(data):
    return bytes(c + 32 if 0x41 <= c <= 0x5A else c for c in data).decode("latin-1")


def blocks(pattern, values):
    out, pos = [], 0
    for n in pattern or []:
        out.append([float(v) for v in values[pos:pos + n]])
        pos += n
    return out


def expected_document(sf):
    """The document as parsed JSON, built from what the builder was given."""
    solutions = {}
    for it in sf.solutions:
        d = {"prosta": lowered(it.prosta), "solsta": lowered(it.solsta),
             "skx": key_names(it.skx), "skc": key_names(it.skc)}
        if it.skn:
            d["skn"] = key_names(it.skn)
        for key in ("xx", "xc", "slx", "sux", "snx", "slc", "suc", "y"):
            if getattr(it, key):
                d[key] = [float(v) for v in getattr(it, key)]
        for key, pattern in (("barx", sf.barvar_pattern), ("bars", sf.barvar_pattern),
                             ("doty", sf.acc_pattern)):
            if getattr(it, key):
                d[key] = blocks(pattern, getattr(it, key))
        solutions[it.kind] = d

    def group(items):
        return {name.decode("latin-1"): value for name, value in items}

    return {"$schema": SCHEMA_ID,
            "Task/INFO": {"numvar": sf.numvar, "numcon": sf.numcon, "numcone": sf.numcone,
                          "numbarvar": sf.numbarvar, "numacc": sf.numacc,
                          "nollover": list(sf.version)},
            "Task/solutions": solutions,
            "Task/information": {"int32": group(sf.info_i32), "int64": group(sf.info_i64),
                                 "double": group(sf.info_f64)}}


def ordered(value):
    """Objects as lists of (key, value) pairs, so that comparing also checks
    the key order."""
    if isinstance(value, dict):
        return [(k, ordered(v)) for k, v in value.items()]
    if isinstance(value, list):
        return [ordered(v) for v in value]
    return value


# One integer solution with every array and an interior one with almost
# nothing; the whole document below is written out by hand.
SMALL = SolutionFile(
    version=(9, 0, 105), numvar=2, numcon=1, numcone=1, numbarvar=1, numacc=1,
    barvar_pattern=[3], acc_pattern=[2],
    solutions=[
        Item("interior", prosta=b"UNKNOWN", solsta=b"UNKNOWN", skx=b""),
        Item("integer", prosta=b"PRIM_FEAS", solsta=b"INTEGER_OPTIMAL", pobj=1.0, dobj=2.0,
             skx=b"sx", xx=[1.5, -0.0], slx=[0.0001, 1e-05], sux=[1e15, 1e16], snx=[-3, 0.1],
             barx=[1, 2, 3], bars=[0.5, 0.25, 0.125], skc=b"*", xc=[1e100], y=[-2.5],
             slc=[0], suc=[7], skn=b"k", doty=[5, 6])],
    names={"var": [b"x", b"y"]}, problem_name=b"p",
    info_f64=[(b"time", 0.3)], info_i32=[(b"iters", -3), (b"threads", 4)],
    info_i64=[(b"big", 2 ** 40)])

SMALL_JSON = (
    b'{"$schema" : "https://strix.example.org/json/solution/schema#",'
    b'"Task/INFO":{"numvar" : 2, "numcon" : 1, "numcone" : 1, "numbarvar" : 1, "numacc" : 1, '
    b'"nollover":[9,0,105]},'
    b'"Task/solutions":{'
    b'"interior":{"prosta":"unknown","solsta":"unknown","skx" : [],"skc" : []},'
    b'"integer":{"prosta":"prim_feas","solsta":"integer_optimal",'
    b'"skx" : ["supbas","fix"],"skc" : ["inf"],"skn" : ["unk"],'
    b'"xx" : [1.5,-0],"xc" : [1e+100],"slx" : [0.0001,1e-05],'
    b'"sux" : [1000000000000000,1e+16],"snx" : [-3,0.1],"slc" : [0],"suc" : [7],"y" : [-2.5],'
    b'"barx" : [[1,2,3]],"bars" : [[0.5,0.25,0.125]],"doty" : [[5,6]]}},'
    b'"Task/information":{"int32":{"iters":-3,"threads":4},"int64":{"big":1099511627776},'
    b'"double":{"time":0.3}}}')


class JsonCase(StrixCase):
    @classmethod
    def setUpClass(cls):
        with open(os.path.join(SOURCE_DIR, "docs", "solution.schema.json")) as f:
            cls.validator = jsonschema.Draft202012Validator(json.load(f))

    def convert(self, sf, out="out.json"):
        """Converts `sf` and returns the document's bytes."""
        self.write("in.b", sf.to_bytes())
        r = self.strix("in.b", out)
        self.assertFine(r)
        return r.out if out.startswith("-") else self.read(out)

    def fragment(self, sf):
        """The document of `sf` with the constant head cut off."""
        doc = self.convert(sf)
        return doc[doc.index(b'"Task/solutions"'):]


class Example(JsonCase):
    def test_json_and_jtask_agree_parse_validate_and_hold_the_built_values(self):
        self.assertFine(self.strix(EXAMPLE, "out.json"))
        self.assertFine(self.strix(EXAMPLE, "out.jtask"))
        doc = self.read("out.json")
        self.assertEqual(self.read("out.jtask"), doc)
        self.assertTrue(doc.startswith(b"{") and doc.endswith(b"}}}"), doc[-20:])
        self.assertNotIn(b"\n", doc)
        parsed = json.loads(doc)
        self.validator.validate(parsed)
        self.assertEqual(parsed["$schema"], SCHEMA_ID)
        self.assertEqual(ordered(parsed), ordered(expected_document(solgen.example())))
        # The parsed example, spelled out where it matters most.
        interior = parsed["Task/solutions"]["interior"]
        self.assertEqual((interior["prosta"], interior["solsta"]),
                         ("prim_and_dual_feas", "optimal"))
        self.assertEqual(interior["skx"], ["bas", "low", "low"])
        self.assertEqual(parsed["Task/solutions"]["basic"]["skc"], ["upr", "bas"])
        self.assertEqual(parsed["Task/INFO"]["nollover"], [10, 1, 28])
        self.assertEqual(parsed["Task/information"]["double"],
                         {"optimizer_time": 0.125, "primal_obj": 2.5})

    def test_standard_output_gives_the_same_bytes(self):
        self.assertFine(self.strix(EXAMPLE, "out.json"))
        for name in ("-.json", "-.jtask"):
            r = self.strix(EXAMPLE, name)
            self.assertFine(r)
            self.assertEqual(r.out, self.read("out.json"), name)
        with open(EXAMPLE, "rb") as f:
            r = self.strix("-.b", "-.json", stdin=f.read())
        self.assertFine(r)
        self.assertEqual(r.out, self.read("out.json"))


class HandWritten(JsonCase):
    def test_small_document_byte_for_byte(self):
        for out in ("out.json", "out.jtask", "-.json"):
            with self.subTest(out=out):
                doc = self.convert(SMALL, out)
                self.assertEqual(doc, SMALL_JSON)
        parsed = json.loads(SMALL_JSON)
        self.validator.validate(parsed)
        self.assertEqual(ordered(parsed), ordered(expected_document(SMALL)))

    def test_no_solutions_and_empty_information_groups(self):
        doc = self.convert(SolutionFile(version=(1, 2, 3)))
        self.assertEqual(doc, (
            b'{"$schema" : "https://strix.example.org/json/solution/schema#",'
            b'"Task/INFO":{"numvar" : 0, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, '
            b'"numacc" : 0, "nollover":[1,2,3]},"Task/solutions":{},'
            b'"Task/information":{"int32":{},"int64":{},"double":{}}}'))
        self.validator.validate(json.loads(doc))

    def test_sizes_at_their_limits(self):
        # numvar is a 32-bit count and numacc a 64-bit one; no solution reads
        # either.
        doc = self.convert(SolutionFile(numvar=2 ** 31 - 1, numacc=2 ** 63 - 1,
                                        version=(0, 65536, 7)))
        self.assertIn(b'"numvar" : 2147483647, ', doc)
        self.assertIn(b'"numacc" : 9223372036854775807, "nollover":[0,65536,7]}', doc)

    def test_block_arrays_follow_their_patterns(self):
        cases = [
            # barvar pattern, barx, expected "barx" text
            ([3, 1], [1, 2, 3, 4], b'"barx" : [[1,2,3],[4]]'),
            ([0, 2], [1, 2], b'"barx" : [[],[1,2]]'),
            ([2], [1, 2, 3], b'"barx" : [[1,2]]'),  # values past the pattern are left out
            (None, [1, 2], b'"barx" : []'),  # no pattern: no blocks at all
        ]
        for pattern, barx, expected in cases:
            sf = SolutionFile(numbarvar=len(pattern or []), barvar_pattern=pattern,
                              solutions=[Item("basic", skx=b"", barx=barx)])
            with self.subTest(pattern=pattern):
                self.assertIn(b'"skc" : []' + b"," + expected + b"}}", self.fragment(sf))
        sf = SolutionFile(numacc=2, acc_pattern=[1, 1],
                          solutions=[Item("basic", skx=b"", doty=[5, 6])])
        self.assertIn(b'"skc" : [],"doty" : [[5],[6]]}}', self.fragment(sf))


class RawText(JsonCase):
    def test_non_finite_values_are_bare_tokens(self):
        inf = float("inf")
        sf = SolutionFile(numvar=4, solutions=[Item("basic", skx=b"bbbb",
                                                    xx=[inf, -inf, float("nan"), NEG_NAN])],
                          info_f64=[(b"t", -inf)], info_i32=[(b"i", 1)], info_i64=[(b"l", 1)])
        frag = self.fragment(sf)
        self.assertIn(b'"skc" : [],"xx" : [inf,-inf,nan,-nan]}}', frag)
        self.assertTrue(frag.endswith(b'"double":{"t":-inf}}}'), frag)
        with self.assertRaises(ValueError):
            json.loads(self.read("out.json"))

    def test_statuses_are_lowered_but_never_escaped(self):
        cases = [
            (b"Prim_Feas_2", b"prim_feas_2"),
            (b'A"B\\C', b'a"b\\c'),  # written raw: the document breaks
            (b"\xc9T\x01", b"\xc9t\x01"),  # bytes above 0x7F are not lowered
            (b"", b""),
        ]
        for prosta, expected in cases:
            sf = SolutionFile(solutions=[Item("integer", prosta=prosta, solsta=prosta, skx=b"")])
            with self.subTest(prosta=prosta):
                self.assertIn(b'{"integer":{"prosta":"' + expected + b'","solsta":"' + expected +
                              b'","skx" : []', self.fragment(sf))

    def test_status_keys_other_than_the_six_are_unk(self):
        sf = SolutionFile(numcon=8, solutions=[Item("basic", skx=b"bslux*", skc=b"BkL0 \x00\xe2.")])
        self.assertIn(b'"skx" : ["bas","supbas","low","upr","fix","inf"],'
                      b'"skc" : ["unk","unk","unk","unk","unk","unk","unk","unk"]}',
                      self.fragment(sf))

    def test_information_names_are_written_raw(self):
        sf = SolutionFile(info_i32=[(b'a"b', 1), (b"c\\d", -2147483648)],
                          info_i64=[(b"\xe9", -2 ** 63)], info_f64=[(b"x\ty", 1e-300)])
        self.assertTrue(self.fragment(sf).endswith(
            b'"Task/information":{"int32":{"a"b":1,"c\\d":-2147483648},'
            b'"int64":{"\xe9":-9223372036854775808},"double":{"x\ty":1e-300}}}'))


if __name__ == "__main__":
    main()
