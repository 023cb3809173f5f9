# The MEX files from an installed prefix under Octave, against the Python
# module: one octave-cli run evaluates every case and prints what it got,
# each array as its class, size and the hex of its bytes (a char as the byte
# of its code), and each line is compared with the same made from strix.read,
# strix.summary and the command's output, or with the failure Python raises.

import os
import re
import subprocess
import unittest

import numpy
import pandas
import strix

from e2e import EXAMPLE, INF, NAN, NEG_NAN, RAW, STRIX, Case, full_file, full_item, replace
from python_e2e import ARRAYS, FILES

# Names of every byte, NaNs of both signs, infinities, a subnormal.
ODDS = full_file(names={"var": [bytes(range(1, 128)), bytes(range(128, 256))], "acc": [b"a", b"b"],
                        "barvar": [b"X", b"\0Y"], "con": [b"c", b"\xe9"], "cone": [b"", b"k", b"\xff"]},
                 solutions=[full_item("interior", xx=[INF, -INF], slx=[NAN, NEG_NAN],
                                      y=[NEG_NAN, 5e-324]), full_item("integer")])
BAD = {"x.json": b'{"$schema" : 1}', "numvar.b": replace(full_file().sections(), "numvar", "L"),
       "xx.b": full_file(solutions=[full_item(xx=[1])])}

OCTAVE = r"""1;
function h = hexs(v)
  if ischar(v), v = uint8(double(v)); end
  h = sprintf('%02x', typecast(v(:), 'uint8'));
end
function dump(key, v)
  if isstruct(v) || iscell(v), printf('%s %s %s\n', key, class(v), mat2str(size(v))); end
  if isstruct(v)
    for i = 1:numel(v)
      for f = fieldnames(v)', dump(sprintf('%s(%d).%s', key, i, f{1}), v(i).(f{1})); end
    end
  elseif iscell(v)
    for i = 1:numel(v), dump(sprintf('%s{%d}', key, i), v{i}); end
  else
    printf('%s %s %s %s\n', key, class(v), mat2str(size(v)), hexs(v));
  end
end
function try_case(key, f)
  try, dump(key, f());
  catch e, printf('%s error %s %s\n', key, e.identifier, hexs(regexprep(e.message, '^strix_\w+: ', '')));
  end
end
function b = converted(in, out)
  strix_convert(in, out);
  f = fopen(out); b = fread(f, Inf, 'uint8=>uint8'); fclose(f);
end
"""


# The lines dump() prints for a value as the MEX files make it from Python's.
def dump(key, v, out):
    if isinstance(v, (dict, list)):
        rows = [v] if isinstance(v, dict) else v
        kind = "struct" if isinstance(v, dict) or v and isinstance(v[0], dict) else "cell"
        out.append(f"{key} {kind} [{len(rows)} 1]")
        for i, x in enumerate(rows):
            for f, y in x.items() if kind == "struct" else [(None, x)]:
                dump(f"{key}({i + 1}).{f}" if f else f"{key}{{{i + 1}}}", y, out)
        return out
    if isinstance(v, Failure):
        out.append(f"{key} error strix:{v.name} {v.message.encode('latin-1').hex()}".rstrip())
        return out
    if isinstance(v, str) or v is None:
        cls = "double" if v is None else "char"
        v = numpy.frombuffer((v or "").encode("latin-1"), numpy.uint8)
        size = f"[{min(v.size, 1)} {v.size}]"
    elif isinstance(v, tuple):  # a row of doubles
        v, cls, size = numpy.array(v, float), "double", f"[1 {len(v)}]"
    else:
        v = numpy.array(v)
        cls = "double" if v.dtype.kind == "f" else v.dtype.name  # uint8, int32 ...
        size = f"[{v.size} 1]" if v.ndim else "[1 1]"
    out.append(f"{key} {cls} {size} {v.tobytes().hex()}".rstrip())
    return out


def as_struct(s):
    items = {k: {"kind": k, "prosta": i.prosta, "solsta": i.solsta, "pobj": i.pobj, "dobj": i.dobj} |
             {a: getattr(i, a) for a in ARRAYS} for k, i in s.solutions.items()}
    names = {f"{k}_names": getattr(s, f"{k}_names") for k in ("var", "barvar", "con", "cone", "acc")}
    info = {f"info_{t}": {"names": list(getattr(s, f"info_{t}")), "values": numpy.array(
        list(getattr(s, f"info_{t}").values()), {"i32": numpy.int32, "i64": numpy.int64}.get(t, float))}
        for t in ("i32", "i64", "f64")}
    return ({"version": s.version} | {k: float(getattr(s, k)) for k in strix.SUMMARY_COLUMNS[6:]} |
            {"solutions": items, "barvar_pattern": s.barvar_pattern, "acc_pattern": s.acc_pattern} |
            names | info)


# strix.summary's rows: a missing value is [], an item's name a MATLAB
# field name (the first of the same name kept), integer items int64; file
# names as given, from `folder`.
def as_rows(table, folder):
    rows, fields = [], {}
    for name in table.columns[11:]:
        field = re.sub("[^A-Za-z0-9_]", "_", name if re.match("[A-Za-z]", name) else "x" + name)[:63]
        fields.setdefault(field, name)
    for _, r in table.iterrows():
        row = {k: None if r["kind"] is None else r[k] for k in strix.SUMMARY_COLUMNS[1:6]}
        row = {"file": r["file"].removeprefix(folder + "/")} | row | {
            k: float(r[k]) for k in strix.SUMMARY_COLUMNS[6:]}
        rows.append(row | {f: None if pandas.isna(r[n]) else numpy.int64(r[n])
                           if table[n].dtype == "Int64" else float(r[n]) for f, n in fields.items()})
    return rows


# A failure as the MEX files raise it: strix:NAME and the message.
class Failure:
    def __init__(self, name, message):
        self.name, self.message = name, message


# The names the MEX files give Python's failures: strix.Error's subclasses
# by their own, the others by their words.
WORDS = (("text report", "ReportError"), ("unknown", "InvalidArgument"),
         ("Compression type", "UnsupportedInput"), ("Unknown output", "UnknownFormat"))


class Matlab(Case):
    def test_octave_against_python(self):
        prefix_dir, path = os.path.join(self.dir, "prefix"), lambda name: os.path.join(self.dir, name)
        self.tool("cmake", "--install", os.path.dirname(STRIX), "--prefix", prefix_dir)
        files = [f"f{i}.b" for i in range(len(FILES) + 1)]
        for name, sf in list(zip(files, FILES[1:] + [RAW, ODDS])) + list(BAD.items()):
            self.write(name, sf)
        self.write("odds.b.zst", self.tool("zstd", "-c", files[-1]))
        self.write("none.b", full_file(kinds=()))  # one row without a kind
        files += [EXAMPLE, "odds.b.zst"]
        read = lambda f, **kw: lambda: as_struct(strix.read(path(f), **kw))  # noqa: E731
        summary = lambda f: lambda: as_rows(strix.summary(f), self.dir)  # noqa: E731
        output = lambda f, o: lambda: numpy.frombuffer(self.strix(f, o)[2], numpy.uint8)  # noqa
        convert = lambda f, o: lambda: strix.convert(path(f), path(o))  # noqa: E731
        chosen = dict(solutions=("basic", "integer"), vectors=("xx", "skc", "doty"), names=False)
        choose = "'solutions', {'basic', 'integer'}, 'vectors', {'xx', 'skc', 'doty'}, 'names', false"
        cases = [(f"strix_read('{f}')", read(f)) for f in files]
        cases += [(f"strix_read('{f}', {choose})", read(f, **chosen)) for f in files[-3:]]
        cases += [(f"strix_read('{n}')", read(n)) for n in BAD] + [
            ("strix_read('f3.b', 'solutions', 'interior', 'vectors', {})",
             read("f3.b", solutions="interior", vectors=())),
            ("strix_read('xx.b', 'vectors', {})", read("xx.b")),
            ("strix_read('no.b')", lambda: Failure("IOError", "no.b: cannot open: No such file or directory")),
            ("strix_read('f1.b', 'vectors', 'zz')", read("f1.b", vectors="zz")),
            ("strix_summary({%s})" % ", ".join(f"'{f}'" for f in files + ["none.b"]),
             summary([path(f) for f in files + ["none.b"]])),
            ("strix_summary('f*.b')", summary(path("f*.b"))),
            ("strix_summary({'f1.b', 'x.json'})", read("x.json")),
            ("converted('f3.b', 'o.json')", output("f3.b", "-.json")),
            ("converted('f1.b', 'o.txt.gz')", output("f1.b", "-.txt.gz")),
            ("converted('f4.b', 'o.txt')", convert("f4.b", "w.txt")),
            ("strix_convert('f1.b', 'o.xml')", convert("f1.b", "x.xml")),
            ("strix_convert('f1.b.gz', 'o.b')", convert("f1.b.gz", "o.b"))]
        with open(path("strix_cases.m"), "w") as f:
            f.write(OCTAVE + f"addpath('{prefix_dir}/share/strix/matlab');\n" +
                    "".join(f"try_case('c{i}', @() {expr});\n" for i, (expr, _) in enumerate(cases)))
        got = subprocess.run(["octave-cli", "-q", "strix_cases.m"], cwd=self.dir, capture_output=True,
                             check=True).stdout.decode().splitlines()
        want = []
        for i, (_, expected) in enumerate(cases):
            try:
                dump(f"c{i}", expected(), want)
            except (strix.Error, ValueError) as e:
                name = next((n for w, n in WORDS if w in str(e)), type(e).__name__)
                dump(f"c{i}", Failure(name, str(e).replace(self.dir + "/", "")), want)
        self.assertEqual([line.rstrip() for line in got], want)


if __name__ == "__main__":
    unittest.main(verbosity=1)
