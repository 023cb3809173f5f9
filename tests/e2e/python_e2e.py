# The Python package as its users meet it: installed by pip into a fresh
# virtual environment from a copy of the source and used from elsewhere, and
# the module's tables, blocks, text, repr and pickles checked against the
# command's JSON document and text report and pandas' own comparison.

import ast
import glob
import io
import json
import os
import pickle
import re
import shutil
import struct
import subprocess
import sys
import unittest
from pathlib import Path

import numpy
import pandas
import strix
from pandas.testing import assert_frame_equal

from e2e import (COUNTS, EXAMPLE, RAW, ROOT, SMALL, STRIX, Case, full_file, full_item, noisy,
                 readme_blocks)
from solgen import Item, SolutionFile

KINDS = ("var", "barvar", "con", "cone", "acc")
ARRAYS = "skx skc skn xx slx sux snx xc y slc suc barx bars doty".split()
COLUMNS = {"var": ("xx", "slx", "sux", "snx"), "con": ("xc", "slc", "suc", "y")}
# Names missing, empty and odd; full value vectors and none; bar pattern
# [3, 1] and ACC pattern [2, 1] over the right number of values and too few
# or too many, patterns claiming more than there is, an empty block, no ACC
# pattern. The first three have no bar variables: their reports list all rows.
FILES = [EXAMPLE, SMALL, full_file(40, numbarvar=0, names={"var": [b"v\xff"] * 30 + [b""]}),
         full_file(), full_file(solutions=[Item("basic", barx=[1, 2, 3], bars=[1] * 6, doty=[5])]),
         SolutionFile(numbarvar=2, numacc=2, barvar_pattern=[2**63, 2**62],
                      acc_pattern=[2**64 - 1, 5],
                      solutions=[Item("basic", barx=[1, 2], bars=[3], doty=[4])]),
         SolutionFile(numvar=4, numbarvar=2, barvar_pattern=[0, 2],
                      solutions=[Item("basic", xx=[1] * 4, barx=[1, 2, 3], doty=[4])])]


# The command's JSON document, its raw statuses as latin-1 and its bare
# non-finite tokens made Python's.
def json_doc(out):
    return json.loads(re.sub(r"([\[,])(-?)(inf|nan)(?=[,\]])", lambda m: m[1] + (
        "NaN" if m[3] == "nan" else m[2] + "Infinity"), out.decode("latin-1")))


# {(kind, "var" or "con"): [(name, status)]} of the text report's rows;
# quoted names carry Python's escapes.
def report_rows(text):
    rows, kind, table = {}, None, None
    for line in text.splitlines():
        if m := re.fullmatch(r"  Solution (\w+)", line):
            kind = m[1]
        elif line in ("    Variables", "    Constraints"):
            table = rows.setdefault((kind, line.strip()[:3].lower()), [])
        elif m := re.match(r'      ("(?:[^"\\]|\\.)*"|\S+) *: (\S+)', line):
            table.append((ast.literal_eval(m[1]) if m[1][0] == '"' else m[1], m[2]))
    return rows


# Everything a solution holds, in plain Python values; arrays and objectives
# as bytes. With a selection (kinds, vectors, names), what a read that keeps
# only those holds: the rest empty or absent.
def fields(s, kinds=None, vectors=ARRAYS, names=True):
    return ([getattr(s, k) for k in ("version", *COUNTS, "info_i32", "info_i64", "info_f64")] +
            [getattr(s, k + "_names") if names else [] for k in KINDS] +
            [s.barvar_pattern.tobytes(), s.acc_pattern.tobytes()] +
            [(k, i.kind, i.prosta, i.solsta, struct.pack("dd", i.pobj, i.dobj),
              *(getattr(i, a).tobytes() if a in vectors else b"" for a in ARRAYS))
             for k, i in s.solutions.items() if kinds is None or k in kinds])


# A binary file that Python reads and cannot seek (a pipe, a socket).
class Unseekable(io.BytesIO):
    def seekable(self):
        return False


# The summary table made by hand from full reads: a row per file and
# solution, information items as columns (Int64 or float64 by their group),
# missing where a file lacks one; a file that fails has one row of its error.
def summary_by_hand(files, report=False):
    rows, items = [], {}
    for f in files:
        row = dict.fromkeys([*strix.SUMMARY_COLUMNS, "error"], None) | {"file": f}
        try:
            s = strix.read(f)
        except Exception as e:
            rows.append(row | {"error": f"{type(e).__name__}: {e}"})
            continue
        for group, dtype in (s.info_f64, "float64"), (s.info_i32, "Int64"), (s.info_i64, "Int64"):
            items |= dict.fromkeys(group, dtype)
            row |= group
        for kind, i in s.solutions.items() or [(None, None)]:
            rows.append(row | {k: getattr(s, k) for k in COUNTS} | {"kind": kind} | {
                k: getattr(i, k, None) for k in ("prosta", "solsta", "pobj", "dobj")})
    table = pandas.DataFrame(rows, columns=[*strix.SUMMARY_COLUMNS, *sorted(items), "error"])
    table = table.astype({"pobj": "float64", "dobj": "float64"} |
                         dict.fromkeys(COUNTS, "Int64") | items)
    return table if report else table.drop(columns="error")


class Python(Case):
    def load(self, sf):  # (solution, JSON document, text report) of a file
        if not isinstance(sf, str):
            self.write("in.b", sf)
        path = sf if isinstance(sf, str) else os.path.join(self.dir, "in.b")
        report = subprocess.run([STRIX, path, "-.txt"], capture_output=True).stdout
        return strix.read(path), json_doc(self.run_ok(path, "-.json")), report.decode("latin-1")

    # Tables against the report's names and statuses and the document's
    # values; blocks against the document's; every array read-only; text
    # byte for byte as str.
    def test_tables_blocks_and_text(self):
        for n, sf in enumerate(FILES):
            got, doc, report = self.load(sf)
            rows, info = report_rows(report), doc["Task/INFO"]
            self.assertEqual([got.version] + [getattr(got, k) for k in COUNTS],
                             [tuple(info["nollover"])] + [info[k] for k in COUNTS])
            self.assertEqual(list(got.solutions), list(doc["Task/solutions"]))
            for kind, item in got.solutions.items():
                want = doc["Task/solutions"][kind]
                self.assertEqual([list(strix.status_key_names(getattr(item, k))) for k in ARRAYS[:3]],
                                 [want.get(k, []) for k in ARRAYS[:3]], (n, kind))
                for k in ARRAYS[3:11]:  # NaN equals NaN
                    numpy.testing.assert_array_equal(getattr(item, k), numpy.array(
                        want.get(k, []), dtype=float), (n, kind, k))
                for table, frame in ("var", item.variables()), ("con", item.constraints()):
                    if n > 2:  # the report of a file with bar variables ends early
                        continue
                    names, keys = zip(*rows[kind, table]) if rows[kind, table] else ((), ())
                    expect = pandas.DataFrame({"name": list(names), "status": list(keys), **{
                        k: numpy.array(want[k], dtype=numpy.float64) for k in COLUMNS[table]
                        if k in want}})
                    assert_frame_equal(frame, expect, check_exact=True)
                    for k in expect.columns[2:]:  # bit for bit, NaN signs too
                        self.assertEqual(frame[k].to_numpy().tobytes(), getattr(item, k).tobytes())
                for k, pattern in ("barx", "barvar_pattern"), ("bars", "barvar_pattern"), (
                        "doty", "acc_pattern"):
                    blocks = getattr(item, k + "_blocks")()
                    self.assertEqual([b.tolist() for b in blocks],
                                     want.get(k, [[]] * len(getattr(got, pattern))), (n, k))
                self.assertFalse(any(getattr(item, a).flags.writeable for a in ARRAYS) or
                                 any(b.flags.writeable for b in blocks))
            self.assertFalse(got.barvar_pattern.flags.writeable or got.acc_pattern.flags.writeable)
        for sf in FILES[1:] + [RAW]:  # text in the file's bytes, here with odd ones
            got = strix.read(sf.to_bytes())
            self.assertEqual([[t.encode("latin-1") for t in getattr(got, k + "_names")]
                              for k in KINDS], [list(sf.names.get(k, [])) for k in KINDS])
            self.assertEqual([(i.kind, i.prosta.encode("latin-1"), i.solsta.encode("latin-1"))
                              for i in got.solutions.values()],
                             [(i.kind, i.prosta, i.solsta) for i in sf.solutions])
            self.assertEqual([{k.encode("latin-1"): v for k, v in getattr(got, g).items()}
                              for g in ("info_f64", "info_i32", "info_i64")],
                             [dict(sf.info_f64), dict(sf.info_i32), dict(sf.info_i64)])
        # repr in one line: the counts, and per solution its statuses and
        # objectives (as the example's report gives them).
        opt = "prosta='PRIM_AND_DUAL_FEAS' solsta='OPTIMAL' pobj=2.5 dobj="
        example = strix.read(EXAMPLE)
        self.assertEqual([repr(example), repr(example.solutions["basic"])], [
            f"<strix.Solution 10.1.28: numvar=3 numcon=2 numcone=0 numbarvar=0 numacc=0; "
            f"interior: {opt}2.4999999998; basic: {opt}2.5>",
            f"<strix.SolutionItem basic: {opt}2.5, numvar=3 numcon=2>"])
        # pandas is imported for a table only, and without it the table says
        # what to install.
        code = ("import sys, strix; s = strix.read(sys.argv[1]); repr(s); print('pandas' in "
                "sys.modules); sys.modules['pandas'] = None; s.solutions['basic'].variables()")
        p = subprocess.run([sys.executable, "-c", code, EXAMPLE], capture_output=True, text=True)
        self.assertEqual(p.stdout, "False\n")
        self.assertRegex(p.stderr, r"ImportError: strix tables need pandas: pip install "
                                   r"'strix\[pandas\]'")

    # A solution pickles to an equal one, in band and out of band, at about
    # the size of its arrays and names; equality sees a single changed bit.
    def test_pickles(self):
        big = full_file(20000, names={"var": [b"v%d" % i for i in range(20000)],
                                      "con": [b"c" * 300, b"d" * 70000]})
        for sf in FILES + [big]:
            got = self.load(sf)[0]
            size = (sum(getattr(i, a).nbytes for i in got.solutions.values() for a in ARRAYS) +
                    got.barvar_pattern.nbytes + got.acc_pattern.nbytes +
                    sum(len(n) for k in KINDS for n in getattr(got, k + "_names")))
            for protocol in (2, 4, 5, "out of band"):
                buffers = []
                data = pickle.dumps(got, protocol=5, buffer_callback=buffers.append) \
                    if protocol == "out of band" else pickle.dumps(got, protocol=protocol)
                back = pickle.loads(data, buffers=buffers)
                self.assertEqual((fields(back), back == got, back != got),
                                 (fields(got), True, False))
                if sf is big and protocol != 2:  # bytes as latin-1 text before protocol 3
                    self.assertLessEqual(len(data) + sum(len(b.raw()) for b in buffers), 1.1 * size)
        for one, other in ((full_file(kinds=("basic",)), full_file(kinds=("integer",))),
                           (full_file(), full_file(numcone=4)),
                           *[(full_file(solutions=[full_item(**{k: -1.5})]),
                              full_file(solutions=[full_item()])) for k in ("pobj", "dobj")],
                           *[(full_file(solutions=[full_item(**{k: v})]),
                              full_file(solutions=[full_item(**{k: v[:-1] + [-0.0]})]))
                             for k, v in (("xx", [1, 0.0]), ("doty", [1, 2, 0.0]))]):
            self.assertNotEqual(self.load(one)[0], self.load(other)[0])

    # A read that keeps part of a file holds what a full read holds of it and
    # fails as the full read fails, from every kind of source, also for
    # files that end anywhere; what is not kept is not read where the source
    # can seek; tables have the columns that were kept; unknown names are
    # refused by name.
    def test_selective_reads(self):
        import random
        rng = random.Random(5)
        whole = full_file().to_bytes()
        for n, sf in enumerate(FILES[1:5] + [RAW] + [whole[:k] for k in range(0, len(whole), 11)]):
            data = sf if isinstance(sf, bytes) else sf.to_bytes()
            self.write("f.b", data)
            self.write("f.b.zst", self.tool("zstd", "-c", stdin=data))
            try:
                full, failure = strix.read(data), None
            except strix.Error as e:
                full, failure = None, (type(e), str(e))
            for source in ("f.b", "f.b.zst", data, io.BytesIO(data), Unseekable(data)):
                kinds = rng.sample(["interior", "basic", "integer"], rng.randrange(4))
                vectors = rng.sample(ARRAYS, rng.randrange(len(ARRAYS) + 1))
                names = rng.random() < 0.5
                src = os.path.join(self.dir, source) if isinstance(source, str) else source
                try:
                    got = strix.read(src, solutions=kinds, vectors=vectors, names=names)
                except strix.Error as e:
                    self.assertEqual((type(e), str(e).removeprefix(f"{src}: ")), failure, n)
                    continue
                self.assertEqual(fields(got), fields(full, kinds, vectors, names), (n, source))
        got = strix.read(EXAMPLE, vectors=("xx", "skc", "y"), names=False, solutions="basic")
        item, back = got.solutions["basic"], pickle.loads(pickle.dumps(got)).solutions["basic"]
        self.assertEqual([list(got.solutions), list(item.variables()), list(item.constraints()),
                          list(back.constraints())], [["basic"], ["xx"]] + [["status", "y"]] * 2)
        # Only some kilobytes of a large file are read, through a path or a
        # Python file that seeks.
        self.write("big.b", noisy(100_000))
        path = os.path.join(self.dir, "big.b")
        file = open(path, "rb")
        self.addCleanup(file.close)
        rchar = lambda: int(Path("/proc/self/io").read_text().split()[1])  # noqa: E731
        for source in path, file:
            start = rchar()
            self.assertEqual(strix.read(source, vectors=()).numvar, 100_000)
            self.assertLess(rchar() - start, 64 << 10)
        for kw, name in (dict(vectors=("xx", "yy")), "'yy'"), (dict(solutions=["best"]), "'best'"):
            self.assertRaisesRegex(ValueError, name, strix.read, EXAMPLE, **kw)

    # strix.summary: a row per file and solution, by glob or list, on any
    # number of threads, equals the table made from full reads; failures are
    # raised (the first, naming its file) or reported in their rows.
    def test_summary(self):
        sfs = [full_file(i + 1, info_i32=[(b"iter", i)], info_f64=[(b"t%d" % (i % 2), i / 3)],
                         kinds=("interior", "basic", "integer")[i % 4:]) for i in range(5)]
        for i, sf in enumerate(sfs + [b"ABCD", full_file(solutions=[full_item(xx=[1])])]):
            self.write(f"r{i}.b", sf)
        files = sorted(glob.glob(os.path.join(self.dir, "r*.b")))
        good = files[:5]
        want = summary_by_hand(good)
        assert_frame_equal(strix.summary(os.path.join(self.dir, "r[0-4].b")), want)
        for threads in 1, 3:
            assert_frame_equal(strix.summary(good[::-1], threads=threads),
                               summary_by_hand(good[::-1]))
            assert_frame_equal(strix.summary(files, threads=threads, errors="report"),
                               summary_by_hand(files, report=True))
        with self.assertRaises(strix.IncompatibleFileError) as caught:
            strix.summary(files, threads=2)
        self.assertTrue(str(caught.exception).startswith(files[5] + ": "))
        self.assertRaises(FileNotFoundError, strix.summary, good + ["missing.b"])

    # strix.dask on a local cluster of two worker processes: the summary is
    # strix.summary's, the client's memory does not grow with the files'
    # arrays, and a table filtered on one variable is the rows picked from
    # full reads.
    def test_dask(self):
        import strix.dask
        from dask.distributed import Client, LocalCluster
        self.write("r0.b", full_file(50_000, numcon=2))
        for i in range(1, 200):
            os.link(os.path.join(self.dir, "r0.b"), os.path.join(self.dir, f"r{i:03d}.b"))
        files = sorted(glob.glob(os.path.join(self.dir, "r*.b")))
        with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
                Client(cluster):
            got = strix.dask.summary(files[:20], files_per_partition=8).compute()
            assert_frame_equal(got.reset_index(drop=True), strix.summary(files[:20]))
            growth = []
            for some in files[:20], files:
                Path("/proc/self/clear_refs").write_text("5")
                start = int(re.search(r"VmRSS:\s*(\d+)", Path("/proc/self/status").read_text())[1])
                self.assertEqual(len(strix.dask.summary(some).compute()), 3 * len(some))
                growth.append(int(re.search(r"VmHWM:\s*(\d+)",
                                            Path("/proc/self/status").read_text())[1]) - start)
            self.assertLess(growth[1] - growth[0], 20 << 10, growth)  # kB
            table = strix.dask.variables(files[:3], kind="basic", vectors=("xx", "skx"))
            got = table[table.name == "v7"].compute()
        rows = [(f, "v7", strix.status_key_name(s.skx[7]), s.xx[7]) for f in files[:3]
                for s in [strix.read(f).solutions["basic"]]]
        self.assertEqual(list(got.itertuples(index=False, name=None)), rows)

    # The README's commands on a copy of what git has (as a clone would),
    # without a package index: pip builds through CMake and installs the
    # package alone, which works from another folder, is what mypy --strict
    # expects, runs the README's examples and recipes, and uninstalls whole.
    def test_pip_install(self):
        src, work = os.path.join(self.dir, "src"), os.path.join(self.dir, "work")
        listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "-co", "--exclude-standard"],
                                capture_output=True).stdout.decode().split("\0")
        if listed == [""]:  # a source tree without git (an archive): all of it but build trees
            listed = [os.path.relpath(os.path.join(d, f), ROOT) for d, _, files in os.walk(ROOT)
                      if not os.path.relpath(d, ROOT).startswith(("build", ".git", "out"))
                      for f in files]
        for f in filter(os.path.isfile, (os.path.join(ROOT, f) for f in listed if f)):
            os.makedirs(os.path.dirname(src + f[len(ROOT):]), exist_ok=True)
            shutil.copy2(f, src + f[len(ROOT):])
        blocks = readme_blocks()
        env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"} | dict(
            CMAKE_BUILD_PARALLEL_LEVEL="2", PIP_NO_INDEX="1", PIP_NO_CACHE_DIR="1")
        run = lambda *args, cwd=work: subprocess.run(  # noqa: E731
            args, cwd=cwd, env=env, capture_output=True, text=True, check=True, timeout=600).stdout
        os.makedirs(os.path.join(work, "runs"))
        os.symlink(os.path.dirname(EXAMPLE), os.path.join(work, "examples"))
        run("bash", "-ec", next(c for lang, c in blocks if lang == "sh" and "venv" in c), cwd=src)
        py, pip = (os.path.join(src, "V", "bin", name) for name in ("python", "pip"))
        version = re.search(r"project\(strix VERSION (\S+)",
                            Path(ROOT, "CMakeLists.txt").read_text())[1]
        got = json.loads(run(py, "-c", "import json, strix, importlib.metadata as m; print(json."
                             "dumps([strix.__version__, m.version('strix'), sorted(m.requires('strix')), "
                             "strix.__file__]))"))
        site = os.path.dirname(os.path.dirname(got.pop()))
        self.assertEqual([got, os.path.dirname(site)[:len(src) + 3]], [
            [version, version, ["dask[dataframe] ; extra == 'dask'", "distributed ; extra == 'dask'",
                                "numpy", "pandas ; extra == 'dask'", "pandas ; extra == 'pandas'"]],
            src + "/V/"])
        # The README's example prints what the README says; mypy --strict
        # takes it and a program using every public name.
        example, printed = next(blocks[i:i + 2] for i, (lang, _) in enumerate(blocks)
                                if lang == "python")
        self.assertEqual(run(py, "-c", example[1]), printed[1])
        public = {n for o in (strix.Solution, strix.SolutionItem) for n in dir(o) if n[0] != "_"}
        self.assertEqual((public | set(strix.__all__)) - set(re.findall(r"\w+", TYPED)), set())
        for name, code in ("typed.py", TYPED), ("example.py", example[1]):
            Path(work, name).write_text(code)
        run(py, "-m", "mypy", "--strict", "--cache-dir", os.devnull, "typed.py", "example.py")
        # Both recipes of "Many files" give the table that the command's JSON
        # documents and the files' own statuses and objectives make.
        rows, dtypes = [], {}
        for i in range(6):
            sf = full_file(i + 1, info_i32=[(b"iter", i)], solutions=[
                full_item(k, i + 1, pobj=i / 4, dobj=-1.0 * i, prosta=b"P\xe9")
                for k in ("interior", "basic", "integer")[i % 3:]])
            name = f"runs/r{i}.b"
            self.write(os.path.join(work, name), sf)
            doc = json_doc(self.run_ok(os.path.join(work, name), "-.json"))
            info = {k: v for g, t in (("double", "float64"), ("int64", "Int64"), ("int32", "Int64"))
                    for k, v in doc["Task/information"][g].items() if not dtypes.update({k: t})}
            rows += [dict(file=name, kind=kind, prosta="P\xe9", solsta="OPTIMAL", pobj=i / 4,
                          dobj=-1.0 * i, **{k: doc["Task/INFO"][k] for k in COUNTS}, **info)
                     for kind in doc["Task/solutions"]]
        want = pandas.DataFrame(rows).astype(dict.fromkeys(COUNTS, "Int64") | dtypes)
        want = want[[*want.columns[:11], *sorted(want.columns[11:])]]
        for script, recipe in zip(("summary.py", "on_dask.py"),
                                  [c for lang, c in blocks if lang == "python" and "runs" in c]):
            Path(work, script).write_text(recipe)
            run(py, "-c", "import runpy, sys; runpy.run_path(sys.argv[1], run_name='__main__')"
                "['table'].to_pickle(sys.argv[2])", script, "table.pickle")
            got = pandas.read_pickle(os.path.join(work, "table.pickle"))
            assert_frame_equal(got.reset_index(drop=True), want)
        # The wheel held the package alone; uninstalling removes all of it.
        files = run(pip, "show", "-f", "strix").split("Files:\n")[1].split()
        self.assertEqual({f.split("/")[0] for f in files}, {"strix", f"strix-{version}.dist-info"})
        run(pip, "uninstall", "-y", "strix")
        self.assertFalse(any(os.path.lexists(os.path.join(site, f.split("/")[0])) for f in files))


# Every public name, for mypy --strict: wrong types in the stubs fail here.
TYPED = '''
import pickle
from typing import Dict, List, Tuple

import numpy
import strix
import strix.dask
from numpy.typing import NDArray

s: strix.Solution = pickle.loads(pickle.dumps(strix.read(b"")))
it: strix.SolutionItem = s.solutions["basic"]
counts: List[int] = [s.numvar, s.numcon, s.numcone, s.numbarvar, s.numacc, *s.version]
names: List[str] = s.var_names + s.barvar_names + s.con_names + s.cone_names + s.acc_names
info: Tuple[Dict[str, int], Dict[str, int], Dict[str, float]] = (s.info_i32, s.info_i64, s.info_f64)
patterns: List[NDArray[numpy.uint64]] = [s.barvar_pattern, s.acc_pattern]
keys: List[NDArray[numpy.uint8]] = [it.skx, it.skc, it.skn]
values: List[NDArray[numpy.float64]] = [it.xx, it.slx, it.sux, it.snx, it.xc, it.y, it.slc, it.suc,
                                        it.barx, it.bars, it.doty]
blocks: List[NDArray[numpy.float64]] = it.barx_blocks() + it.bars_blocks() + it.doty_blocks()
text: str = it.kind + it.prosta + it.solsta + strix.status_key_name(3) + strix.__version__
key_names: NDArray[numpy.str_] = strix.status_key_names(it.skx)
objectives: float = it.pobj + it.dobj
tables = [it.variables(), it.constraints()]
same: bool = s == strix.read("x.b") and isinstance(s, strix.Solution)
strix.convert("x.b", b"x.json")
part: strix.Solution = strix.read(b"", solutions=["basic"], vectors=("xx",), names=False)
table = strix.summary("runs/*.b", threads=2, errors="report")
sweep = [strix.dask.summary(["a.b"]), strix.dask.variables("*.b", "basic", ["xx"]),
         strix.dask.constraints("*.b", vectors=None)]
errors = (strix.Error, strix.FormatError, strix.IncompatibleFileError, strix.InconsistentSolution,
          strix.CompressionError)
'''

if __name__ == "__main__":
    unittest.main(verbosity=1)
