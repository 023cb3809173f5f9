#!/usr/bin/env python3
"""Reading only what is asked for, and many files at once: each target as a
ratio of two measurements taken in the same run, medians of --runs, the two
sides taking turns.

    python3 bench/sweeps.py [--build build] [--baseline OTHER_BUILD] [--runs 5]
                            [--numvar 2000000] [--files 200] [--report FILE]

--build names a CMake build tree of strix with the Python module
(build/python); --baseline another one, whose full read is timed against
this one's (A/B). Every read runs in a fresh interpreter: resident memory
after `import strix`, and the peak during the read (the kernel's peak is
reset after the import). Prints a markdown section; --report also puts it
into FILE (docs/benchmark.md), between its marks.
"""
import argparse
import datetime
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from run import large, machine, write_report  # noqa: E402

# Times one strix.read in a fresh interpreter: prints seconds, the resident
# memory (bytes) after import, the peak during the read (the kernel's peak
# is reset after the import) and the xx arrays' bytes.
READ = r"""
import sys, time, strix
def status(key):
    with open("/proc/self/status") as f:
        return next(int(l.split()[1]) * 1024 for l in f if l.startswith(key))
kw = eval(sys.argv[2])
with open("/proc/self/clear_refs", "w") as f:
    f.write("5")
base = status("VmRSS:")
t = time.perf_counter()
s = strix.read(sys.argv[1], **kw)
t = time.perf_counter() - t
print(t, base, status("VmHWM:"), sum(i.xx.nbytes for i in s.solutions.values()))
"""

# The summary table of many files, by strix.summary and by a loop of full
# reads; prints both times and whether the tables are equal.
MANY = r"""
import glob, sys, time, pandas, strix
files = sorted(glob.glob(sys.argv[1]))
def by_loop():
    rows = []
    for f in files:
        s = strix.read(f)
        rows += strix._summary_rows(f, s)
    return strix._summary_table(rows)
t = time.perf_counter(); loop = by_loop(); t_loop = time.perf_counter() - t
t = time.perf_counter(); table = strix.summary(sys.argv[1]); t_summary = time.perf_counter() - t
pandas.testing.assert_frame_equal(table, loop)
print(t_loop, t_summary)
"""


def python(build, code, *args):
    env = dict(os.environ, PYTHONPATH=os.path.join(build, "python"))
    out = subprocess.run(["/usr/bin/python3", "-c", code, *args], env=env, check=True,
                         capture_output=True, text=True).stdout
    return [float(x) for x in out.split()]


def taking_turns(runs, *sides):
    """Medians per side of each value the sides measure, the sides run in turn."""
    got = [[] for _ in sides]
    for _ in range(runs):
        for k, side in enumerate(sides):
            got[k].append(side())
    return [[statistics.median(v) for v in zip(*g)] for g in got]


def wall(cmd):
    t = time.perf_counter()
    subprocess.run(cmd, shell=True, check=True)
    return [time.perf_counter() - t]


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--build", default=os.path.join(os.path.dirname(HERE), "build"))
    p.add_argument("--baseline")
    p.add_argument("--runs", type=int, default=5)
    p.add_argument("--numvar", type=int, default=2_000_000)
    p.add_argument("--files", type=int, default=200)
    p.add_argument("--report")
    a = p.parse_args()
    work = tempfile.mkdtemp(prefix="strix-sweeps-")
    mb = 1 << 20
    checks, lines = [], []

    def check(what, value, limit, unit=""):
        ok = value <= limit
        checks.append(ok)
        lines.append(f"| {what} | {value:.4g}{unit} | {limit:.4g}{unit} | "
                     f"{'ok' if ok else 'OVER'} |")

    try:
        n = a.numvar
        big = os.path.join(work, "big.b")
        with open(big, "wb") as f:
            f.write(large(n, n // 2).to_bytes())
        subprocess.run(["zstd", "-q", "-3", "-T0", big, "-o", big + ".zst"], check=True)
        size = os.path.getsize(big) / mb
        read = lambda path, kw="{}", build=a.build: python(build, READ, path, kw)  # noqa: E731
        read(big)  # into the page cache
        (full, none, xx) = taking_turns(a.runs, lambda: read(big), lambda: read(
            big, "dict(vectors=())"), lambda: read(big, "dict(vectors=('xx',))"))
        check("`vectors=()` time / full read", none[0] / full[0], 1 / 100)
        check("`vectors=()` peak memory above the import", (none[2] - none[1]) / mb, 4, " MB")
        check("`vectors=('xx',)` time / full read", xx[0] / full[0], 1 / 3)
        check("`vectors=('xx',)` peak memory above the import / xx arrays",
              (xx[2] - xx[1]) / xx[3], 1.10)
        (zst, unzstd) = taking_turns(a.runs, lambda: read(big + ".zst", "dict(vectors=())"),
                                     lambda: wall(f"zstd -q -dc {big}.zst > /dev/null"))
        check("`.zst` `vectors=()` time / `zstd -dc FILE > /dev/null`", zst[0] / unzstd[0], 1.1)
        check("`.zst` `vectors=()` peak memory above the import", (zst[2] - zst[1]) / mb, 16,
              " MB")
        if a.baseline:
            (new, old) = taking_turns(a.runs, lambda: read(big),
                                      lambda: read(big, build=a.baseline))
            check("full read / the baseline's full read (A/B)", new[0] / old[0], 1.10)
        os.remove(big + ".zst")
        os.remove(big)

        runs = os.path.join(work, "runs")
        os.mkdir(runs)
        one = os.path.join(runs, "r0000.b")
        with open(one, "wb") as f:
            f.write(large(300_000, 150_000).to_bytes())
        for i in range(1, a.files):  # copies, not links: each file is opened and read
            shutil.copyfile(one, os.path.join(runs, f"r{i:04d}.b"))
        pattern = os.path.join(runs, "*.b")
        python(a.build, MANY, pattern)  # into the page cache
        (loop, summary) = zip(*[python(a.build, MANY, pattern) for _ in range(a.runs)])
        loop, summary = statistics.median(loop), statistics.median(summary)
        check(f"`strix.summary` of {a.files} files / a loop of full reads (same table)",
              summary / loop, 1 / 50)
    finally:
        shutil.rmtree(work, ignore_errors=True)

    text = "\n".join([
        f"## Reading only what is asked for, {datetime.date.today()}", "",
        f"Machine: {machine()}", "",
        f"A {size:.0f} MB plain file of {n} variables and {n // 2} constraints (and its `.zst`, "
        f"level 3); {a.files} files of 300000 variables each; {a.runs} runs, medians, sides "
        f"taking turns, all files in the page cache. Full read {full[0] * 1000:.1f} ms, "
        f"`vectors=()` {none[0] * 1000:.2f} ms, `vectors=('xx',)` {xx[0] * 1000:.1f} ms, "
        f"`.zst` `vectors=()` {zst[0] * 1000:.0f} ms against `zstd -dc` "
        f"{unzstd[0] * 1000:.0f} ms; the {a.files}-file table {summary * 1000:.0f} ms against "
        f"{loop * 1000:.0f} ms.", "",
        "| target | measured | limit | |", "|---|---|---|---|", *lines, ""])
    print(text)
    if a.report:
        write_report(a.report, {"sweeps": text})
    sys.exit(0 if all(checks) else 1)


if __name__ == "__main__":
    main()
