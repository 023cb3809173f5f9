"""The JSON document (.json and .jtask), compared byte for byte with
documents written out by hand; the valid ones are also parsed and checked
against the schema."""

import json
import os
import struct

import jsonschema

from common import EXAMPLE, SOURCE_DIR, StrixCase, main
from solgen import Item, SolutionFile

HEAD = b'{"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{'
INF = float("inf")
NEG_NAN = struct.unpack("<d", bytes.fromhex("000000000000f8ff"))[0]

# examples/example.b, from the values solgen.example() puts into it.
EXAMPLE_JSON = HEAD + (
    b'"numvar" : 3, "numcon" : 2, "numcone" : 0, "numbarvar" : 0, "numacc" : 0, '
    b'"nollover":[10,1,28]},"Task/solutions":{'
    b'"interior":{"prosta":"prim_and_dual_feas","solsta":"optimal",'
    b'"skx" : ["bas","low","low"],"skc" : ["upr","upr"],"xx" : [1,0,1.5],"xc" : [1,1.5],'
    b'"slx" : [0,2.5,1e-09],"sux" : [0,0,0],"slc" : [0,0],"suc" : [2.5,1e-10],'
    b'"y" : [-2.5,-1e-10]},'
    b'"basic":{"prosta":"prim_and_dual_feas","solsta":"optimal",'
    b'"skx" : ["bas","low","low"],"skc" : ["upr","bas"],"xx" : [1,0,1.5],"xc" : [1,1.5],'
    b'"slx" : [0,2.5,0],"sux" : [0,0,0],"slc" : [0,0],"suc" : [2.5,0],"y" : [-2.5,0]}},'
    b'"Task/information":{"int32":{"iterations":7,"num_threads":2},"int64":{"nonzeros":9},'
    b'"double":{"optimizer_time":0.125,"primal_obj":2.5}}}')

# Every array: number forms at the edges of fixed notation, blocks, skn;
# names are never written.
SMALL = SolutionFile(
    version=(9, 0, 105), numvar=2, numcon=1, numcone=1, numbarvar=2, numacc=2,
    barvar_pattern=[2, 1], acc_pattern=[1, 1],
    solutions=[
        Item("integer", prosta=b"PRIM_FEAS", solsta=b"INTEGER_OPTIMAL", pobj=1.0, dobj=2.0,
             skx=b"sx", xx=[1.5, -0.0], slx=[0.0001, 1e-05], sux=[1e15, 1e16], snx=[-3, 0.1],
             barx=[1, 2, 3], bars=[0.5, 0.25, 0.125], skc=b"*", xc=[1e100], y=[-2.5],
             slc=[0], suc=[7], skn=b"k", doty=[5, 6])],
    info_f64=[(b"time", 0.3)], info_i32=[(b"iters", -3), (b"threads", 4)],
    info_i64=[(b"big", 2 ** 40)], names={"var": [b"x", b"y"]}, problem_name=b"p")

SMALL_JSON = HEAD + (
    b'"numvar" : 2, "numcon" : 1, "numcone" : 1, "numbarvar" : 2, "numacc" : 2, '
    b'"nollover":[9,0,105]},'
    b'"Task/solutions":{'
    b'"integer":{"prosta":"prim_feas","solsta":"integer_optimal",'
    b'"skx" : ["supbas","fix"],"skc" : ["inf"],"skn" : ["unk"],'
    b'"xx" : [1.5,-0],"xc" : [1e+100],"slx" : [0.0001,1e-05],'
    b'"sux" : [1000000000000000,1e+16],"snx" : [-3,0.1],"slc" : [0],"suc" : [7],"y" : [-2.5],'
    b'"barx" : [[1,2],[3]],"bars" : [[0.5,0.25],[0.125]],"doty" : [[5],[6]]}},'
    b'"Task/information":{"int32":{"iters":-3,"threads":4},"int64":{"big":1099511627776},'
    b'"double":{"time":0.3}}}')

# numvar is a 32-bit count and numacc a 64-bit one; no solution reads either.
EMPTY = SolutionFile(numvar=2 ** 31 - 1, numacc=2 ** 63 - 1, version=(0, 65536, 7))
EMPTY_JSON = HEAD + (
    b'"numvar" : 2147483647, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, '
    b'"numacc" : 9223372036854775807, "nollover":[0,65536,7]},"Task/solutions":{},'
    b'"Task/information":{"int32":{},"int64":{},"double":{}}}')

# Statuses are lowered (A-Z only) and never escaped, keys other than the six
# are "unk", non-finite values are bare tokens, information names are raw:
# the document is deliberately not JSON. The bar pattern alone shapes barx:
# values past its sum are left out; doty without a pattern has no blocks.
RAW = SolutionFile(
    numvar=4, numbarvar=2, barvar_pattern=[0, 2],
    solutions=[Item("basic", prosta=b'Prim_Feas_2"\\', solsta=b"\xc9T\x01", skx=b"bslux*kB\0\xe2",
                    xx=[INF, -INF, float("nan"), NEG_NAN], barx=[1, 2, 3], doty=[4]),
               Item("integer", prosta=b"", solsta=b"", skx=b"")],
    info_f64=[(b"x\ty", -INF)], info_i32=[(b'a"b', -2 ** 31)], info_i64=[(b"\xe9", -2 ** 63)])
RAW_JSON = HEAD + (
    b'"numvar" : 4, "numcon" : 0, "numcone" : 0, "numbarvar" : 2, "numacc" : 0, '
    b'"nollover":[10,1,28]},"Task/solutions":{"basic":{"prosta":"prim_feas_2"\\",'
    b'"solsta":"\xc9t\x01","skx" : ["bas","supbas","low","upr","fix","inf","unk","unk","unk",'
    b'"unk"],"skc" : [],"xx" : [inf,-inf,nan,-nan],"barx" : [[],[1,2]],"doty" : []},'
    b'"integer":{"prosta":"","solsta":"","skx" : [],"skc" : []}},'
    b'"Task/information":{"int32":{"a"b":-2147483648},"int64":{"\xe9":-9223372036854775808},'
    b'"double":{"x\ty":-inf}}}')


class Json(StrixCase):
    def test_documents_byte_for_byte(self):
        with open(os.path.join(SOURCE_DIR, "docs", "solution.schema.json")) as f:
            validator = jsonschema.Draft202012Validator(json.load(f))
        for name, source, expected in (("example", EXAMPLE, EXAMPLE_JSON),
                                       ("small", SMALL, SMALL_JSON), ("empty", EMPTY, EMPTY_JSON),
                                       ("raw", RAW, RAW_JSON)):
            if source is not RAW:
                validator.validate(json.loads(expected))
            for out in ("out.json", "out.jtask"):
                with self.subTest(name, out=out):
                    self.assertEqual(self.convert(source, out), expected)


if __name__ == "__main__":
    main()
