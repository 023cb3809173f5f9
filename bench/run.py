"""Conversion benchmark: strix against floors measured in the same run.

Generates large solution files with the project's builder, converts them with
the built strix to every form, and compares each conversion's median wall
time with the floor that bounds it: {fmt} formatting the same doubles with a
compiled format into memory (JSON, text), copying the file with cp (task
archive, .b copy), and the zstd and ISA-L libraries alone (compressed forms).
Compressed forms are also timed against the plain form and against the
reference tools `igzip -3` and `zstd -3` on the same plain output, and their
sizes are compared with `gzip -3` and `zstd -3` on that output. The Python
module's strix.read is timed in-process against the ".task" conversion and
against json.load of the command's JSON. Peak resident memory comes from
/usr/bin/time of each child.

    python3 bench/run.py [--numvar N] [--numcon M] [--runs 5] [--report FILE]
"""

import argparse
import datetime
import os
import platform
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from array import array

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, os.path.join(ROOT, "tests"))

from solgen import Item, SolutionFile  # noqa: E402

FORMS = [".json", ".txt", ".task", ".b", ".json.zst", ".json.gz", ".txt.gz", ".task.zst",
         ".task.gz"]


def large(numvar, numcon, round_values=False, seed=1):
    """A large file with full primal and dual vectors: 17-digit doubles, or
    small round values."""
    rng = random.Random(seed)

    def vec(n):
        if round_values:
            return array("d", (float(rng.randrange(-8, 9)) / 2 for _ in range(n)))
        # Finite, real-looking 17-digit doubles of moderate magnitude.
        return array("d", (rng.uniform(-1e6, 1e6) * 10 ** rng.randrange(-8, 3) for _ in range(n)))

    keys = b"blux"
    item = Item("basic", skx=bytes(keys[i % 4] for i in range(numvar)), xx=vec(numvar),
                slx=vec(numvar), sux=vec(numvar), snx=vec(numvar),
                skc=bytes(keys[i % 4] for i in range(numcon)), xc=vec(numcon), y=vec(numcon),
                slc=vec(numcon), suc=vec(numcon), pobj=1.0, dobj=1.0)
    return SolutionFile(numvar=numvar, numcon=numcon, solutions=[item],
                        info_f64=[(b"t", 1.0)], info_i32=[(b"i", 1)], info_i64=[(b"l", 1)])


def timed(cmd, out):
    """Runs cmd, which writes the file out; returns (wall seconds, peak RSS in
    MB). Every run writes a new file: the previous output is removed and the
    file system synced before the clock starts, so neither dropping old pages
    nor the background writeback of earlier runs lands in a measurement. The
    peak comes from /usr/bin/time: a child forked from this (large)
    interpreter would count the interpreter's pages in its own peak."""
    if os.path.exists(out):
        os.remove(out)
    os.sync()
    with tempfile.NamedTemporaryFile("r") as rss:
        start = time.perf_counter()
        proc = subprocess.run(["/usr/bin/time", "-o", rss.name, "-f", "%M", *cmd],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        wall = time.perf_counter() - start
        if proc.returncode != 0:
            raise RuntimeError(f"{cmd} failed ({proc.returncode}): {proc.stderr!r}")
        return wall, int(rss.read().split()[-1]) / 1024.0


def median_run(cmd, out, runs):
    results = [timed(cmd, out) for _ in range(runs)]
    return statistics.median(r[0] for r in results), max(r[1] for r in results)


def floor_seconds(floors, what, path, runs):
    values = []
    for _ in range(runs):
        out = subprocess.run([floors, what, path], capture_output=True, text=True, check=True)
        values.append(float(out.stdout))
    return statistics.median(values)


def build(build_dir):
    subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                    "-DSTRIX_BUILD_BENCHMARKS=ON", "-DSTRIX_BUILD_TESTS=OFF"], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "-j2", "--target", "strix", "strix_floors"],
                   check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "-j2", "--target", "strix_python"], check=True,
                   stdout=subprocess.DEVNULL)
    return os.path.join(build_dir, "strix"), os.path.join(build_dir, "bench", "strix_floors")


# Seconds of the timed statement in a fresh Debian interpreter with the
# module importable, and that child's peak RSS in MB.
PY_TIMED = """import json, sys, time, strix
start = time.perf_counter()
{}
print(time.perf_counter() - start)"""


def python_once(build_dir, statement):
    env = dict(os.environ, PYTHONPATH=os.path.join(build_dir, "python"))
    with tempfile.NamedTemporaryFile("r") as rss:
        out = subprocess.run(["/usr/bin/time", "-o", rss.name, "-f", "%M", "/usr/bin/python3",
                              "-c", PY_TIMED.format(statement)], env=env,
                             capture_output=True, text=True, check=True)
        return float(out.stdout), int(rss.read().split()[-1]) / 1024.0


def python_run(build_dir, statement, runs):
    results = [python_once(build_dir, statement) for _ in range(runs)]
    return statistics.median(r[0] for r in results), max(r[1] for r in results)


def machine():
    cpu = "unknown cpu"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return f"{platform.node()}: {cpu}, {os.cpu_count()} cores, {platform.system()} {platform.release()}"


def bench_file(label, path, vectors_mb, doubles, strix, floors, build_dir, work, runs):
    size_mb = os.path.getsize(path) / 1e6
    with open("/proc/loadavg") as f:
        load = f.read().split()[0]
    rows, checks = [], []

    def out(form):
        return os.path.join(work, "out" + form)

    times = {}
    for form in FORMS:
        wall, rss = median_run([strix, path, out(form)], out(form), runs)
        times[form] = wall
        rows.append((form, wall, size_mb / wall, rss))
    # .b.zst input, decompressed to a .b copy
    zin = os.path.join(work, "in.b.zst")
    subprocess.run(["zstd", "-q", "-f", "-3", path, "-o", zin], check=True)
    wall, rss = median_run([strix, zin, out(".b")], out(".b"), runs)
    times["in.zst"] = wall
    rows.append((".b.zst -> .b", wall, size_mb / wall, rss))

    fl = {
        "fmt {}": floor_seconds(floors, "format-json", path, runs),
        "fmt {:24.16g}": floor_seconds(floors, "format-txt", path, runs),
        "zstd -d (lib)": floor_seconds(floors, "unzstd", zin, runs),
        "zstd json (lib)": floor_seconds(floors, "zstd", out(".json"), runs),
        "gzip json (lib)": floor_seconds(floors, "gzip", out(".json"), runs),
        "zstd task (lib)": floor_seconds(floors, "zstd", out(".task"), runs),
    }
    cp_dst = os.path.join(work, "cp.b")
    fl["cp"] = median_run(["cp", path, cp_dst], cp_dst, runs)[0]

    # The reference tools on the plain outputs: igzip and zstd timed, gzip -3
    # only for its size.
    tools, sizes = {}, []
    for form, tool, suffix in ((".json", "igzip", ".gz"), (".txt", "igzip", ".gz"),
                               (".task", "igzip", ".gz"), (".json", "zstd", ".zst"),
                               (".task", "zstd", ".zst")):
        ref = os.path.join(work, "ref" + form + suffix)
        cmd = ([tool, "-3", "-f", "-o", ref, out(form)] if tool == "igzip" else
               [tool, "-q", "-3", "-f", out(form), "-o", ref])
        tools[f"{tool} -3 {form}"] = median_run(cmd, ref, runs)[0]
        sizes.append((form + suffix, f"{tool} -3 {form}", os.path.getsize(ref)))
    for form in (".json", ".txt", ".task"):
        with open(os.path.join(work, "ref.gz"), "wb") as f:
            subprocess.run(["gzip", "-3", "-c", out(form)], stdout=f, check=True)
        sizes.append((form + ".gz", f"gzip -3 {form}", os.path.getsize(f.name)))

    # The Python module: strix.read in-process, against the interpreter with
    # the module imported and against json.load of the command's JSON.
    # strix.read and the .task conversion take turns, after an untimed run of
    # each: both allocate ~100 MB afresh, which this VM's host backs at very
    # different speeds from one minute to the next.
    reads, tasks = [], []
    for i in range(runs + 1):
        reads.append(python_once(build_dir, f"strix.read({path!r})"))
        tasks.append(timed([strix, path, out(".task")], out(".task"))[0])
    times[".task (with strix.read)"] = statistics.median(tasks[1:])
    py = {"strix.read": (statistics.median(r[0] for r in reads[1:]), max(r[1] for r in reads)),
          "import only": python_run(build_dir, "pass", runs),
          "json.load": python_run(build_dir, f"json.load(open({out('.json')!r}))",
                                  min(runs, 3))}

    def check(name, ratio, limit):
        checks.append((name, ratio, limit, "ok" if ratio <= limit else "OVER"))

    check(".json / fmt {}", times[".json"] / fl["fmt {}"], 1.25)
    check(".txt / fmt {:24.16g}", times[".txt"] / fl["fmt {:24.16g}"], 1.25)
    check(".task / cp", times[".task"] / fl["cp"], 2.0)
    check(".b / cp", times[".b"] / fl["cp"], 2.0)
    check("(.b.zst -> .b  - .b) / zstd -d", (times["in.zst"] - times[".b"]) / fl["zstd -d (lib)"],
          1.2)
    check("(.json.zst - .json) / zstd", (times[".json.zst"] - times[".json"]) /
          fl["zstd json (lib)"], 1.1)
    check("(.json.gz - .json) / gzip", (times[".json.gz"] - times[".json"]) /
          fl["gzip json (lib)"], 1.1)
    check("(.task.zst - .task) / zstd", (times[".task.zst"] - times[".task"]) /
          fl["zstd task (lib)"], 1.1)
    check(".json.gz / .json", times[".json.gz"] / times[".json"], 2.0)
    check(".txt.gz / .txt", times[".txt.gz"] / times[".txt"], 2.5)
    check(".json.zst / .json", times[".json.zst"] / times[".json"], 2.3)
    check(".task.gz / igzip -3 .task", times[".task.gz"] / tools["igzip -3 .task"], 1.0)
    check(".task.zst / zstd -3 .task", times[".task.zst"] / tools["zstd -3 .task"], 1.0)
    # gzip -3 is a size target for 17-digit values only: on round values ISA-L's
    # best level is some 8 % larger than zlib's level 3, as igzip -3 is.
    size_limits = {".json.gz": 1.01, ".json.zst": 1.02}
    for form, ref, ref_size in sizes:
        if form in size_limits and (ref.startswith(("igzip", "zstd")) or label[0] == "1"):
            check(f"size {form} / {ref}", os.path.getsize(out(form)) / ref_size, size_limits[form])
    check("strix.read / .task (taking turns)", py["strix.read"][0] /
          times[".task (with strix.read)"], 1.3)
    check("strix.read / json.load (at most 1/20)", py["strix.read"][0] / py["json.load"][0],
          0.05)
    check(f"peak MB strix.read / (1.2 x {vectors_mb:.0f} + import only)",
          py["strix.read"][1] / (1.2 * vectors_mb + py["import only"][1]), 1.0)
    for form, _, _, rss in rows:
        if form == ".b" or form.endswith("-> .b"):
            check(f"peak MB {form} (limit 8)", rss, 8.0)
        else:
            check(f"peak MB {form} / (1.2 x {vectors_mb:.0f} + 32)", rss / (1.2 * vectors_mb + 32),
                  1.0)

    lines = [f"### {label}: {os.path.basename(path)}, {size_mb:.1f} MB, "
             f"{vectors_mb:.1f} MB of vectors", "", f"1-minute load before the runs: {load}", "",
             "| conversion | median s | MB/s of input | M doubles/s | peak RSS MB |",
             "|---|---|---|---|---|"]
    lines += [f"| {f} | {w:.3f} | {m:.0f} | {doubles / w / 1e6:.1f} | {r:.1f} |"
              for f, w, m, r in rows]
    lines += ["", "| floor | median s |", "|---|---|"]
    lines += [f"| {k} | {v:.3f} |" for k, v in fl.items()]
    lines += ["", "| reference tool | median s |", "|---|---|"]
    lines += [f"| {k} | {v:.3f} |" for k, v in tools.items()]
    lines += ["", "| output | bytes | reference | bytes | size ratio |", "|---|---|---|---|---|"]
    lines += [f"| {f} | {os.path.getsize(out(f))} | {r} | {n} | {os.path.getsize(out(f)) / n:.4f} |"
              for f, r, n in sizes]
    lines += ["", "| Python | median s | peak RSS MB |", "|---|---|---|"]
    lines += [f"| {k} | {t:.3f} | {m:.1f} |" for k, (t, m) in py.items()]
    lines += [f"| .task conversion, taking turns with strix.read | "
              f"{times['.task (with strix.read)']:.3f} | |"]
    lines += ["", "| ratio | measured | target | |", "|---|---|---|---|"]
    lines += [f"| {n} | {r:.2f} | {lim} | {v} |" for n, r, lim, v in checks]
    return "\n".join(lines) + "\n", all(c[3] == "ok" for c in checks)


def main():
    p = argparse.ArgumentParser(description="strix conversion benchmark")
    p.add_argument("--numvar", type=int, default=2_000_000)
    p.add_argument("--numcon", type=int, default=1_000_000)
    p.add_argument("--runs", type=int, default=5)
    p.add_argument("--build", default=os.path.join(ROOT, "build-bench"))
    p.add_argument("--report", help="also write the results (markdown) to this file")
    args = p.parse_args()

    strix, floors = build(args.build)
    work = tempfile.mkdtemp(prefix="strix-bench-")
    try:
        n, m = args.numvar, args.numcon
        vectors_mb = (8 * 4 * (n + m) + n + m) / (1 << 20)
        report = [f"## strix benchmark, {datetime.date.today()}", "", f"Machine: {machine()}",
                  "", f"{n} variables, {m} constraints, {args.runs} runs each (medians).", ""]
        ok = True
        for label, round_values in (("17-digit values", False), ("small round values", True)):
            path = os.path.join(work, "round.b" if round_values else "real.b")
            with open(path, "wb") as f:
                f.write(large(n, m, round_values).to_bytes())
            text, good = bench_file(label, path, vectors_mb, 4 * (n + m), strix, floors,
                                    args.build, work, args.runs)
            ok &= good
            report.append(text)
            print(text, flush=True)
        if args.report:
            with open(args.report, "w") as f:
                f.write("\n".join(report))
        print("all ratios within target" if ok else "some ratios over target")
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
