"""Conversion benchmark: strix against floors measured in the same run.

The page opens with a summary: the wall seconds of converting a file of
1,000,000 variables and 500,000 constraints (17-digit values) to each form on
one core and on all the cores the process may use, and the variables per
second that makes. It is drawn from the scaling section's runs, so it comes
with every run that includes that section (the default, and --scaling); a run
of --ratios alone leaves the page's summary as it was.

The ratio section generates large solution files with the project's builder,
converts them with the built strix to every form, every run on all the cores
the process may use, and compares each conversion's median wall time with the
floor that bounds it: {fmt} formatting the same doubles with a compiled format
into memory (JSON, text), copying the file with cp (task archive, .b copy),
and the zstd and ISA-L libraries alone (compressed forms). Each compressed
form also takes turns with the pipeline a user would build instead, strix
writing the plain form to standard output piped into `zstd -3 -T0` or
`igzip -3 -T<cores>`, whose output must decompress to the plain conversion's
bytes; the task archive's compressed forms are timed against `igzip -3` and
`zstd -3` on the .task file, and sizes are compared with `igzip -3`,
`zstd -3` and `gzip -3` on the plain output. The Python module's strix.read
is timed in-process against the ".task" conversion and against json.load of
the command's JSON. Peak resident memory comes from /usr/bin/time of each
child. Ratios that rest on a time of a few hundredths of a second (cp of the
file, or a difference of two conversions) are marked as on a noisy floor,
with the sizes of their terms under the table. With --report, the ratios are
also drawn as a chart beside the report (FILE's name with ".png").

The scaling section converts a file of 1,000,000 variables and 500,000
constraints (17-digit values) pinned to one core and to two (taskset; with
exactly two processors, two cores are all of them and run without taskset),
and on all the process may use where that is more than two; it times each
stage of a conversion on one core, and projects from those times each form's
wall time on 4, 8 and 16 cores, set against strix piped into the zstd and
igzip commands; with --baseline, another strix binary takes turns with this
one on one core. Its chart goes to FILE's name with "-scaling.png".

    python3 bench/run.py [--ratios | --scaling] [--numvar N] [--numcon M] [--runs 5]
                         [--baseline BIN] [--report FILE]

The report file keeps what lies outside the sections this script writes, so
notes added by hand survive a run of one section.
"""

import argparse
import datetime
import os
import platform
import random
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from array import array

try:
    import matplotlib
except ImportError:
    # matplotlib, like the module's numpy, is Debian's: another interpreter
    # first on the PATH hands over to the system one.
    if os.path.realpath(sys.executable) != os.path.realpath("/usr/bin/python3") and \
            os.path.exists("/usr/bin/python3"):
        os.execv("/usr/bin/python3", ["/usr/bin/python3", *sys.argv])
    sys.exit("bench/run.py needs python3-matplotlib (bash tools/setup.sh installs it)")
matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import matplotlib.patches  # noqa: E402
import matplotlib.ticker  # noqa: E402

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


def pinned(cpus):
    return ["taskset", "-c", cpus] if cpus else []


def fresh(out):
    """Every run writes a new file: the previous output is removed and the
    file system synced before the clock starts, so neither dropping old pages
    nor the background writeback of earlier runs lands in a measurement."""
    if os.path.exists(out):
        os.remove(out)
    os.sync()


def timed(cmd, out, cpus=None, status=0):
    """Runs cmd, which writes the file out, on the processors cpus (taskset's
    list; None: any) and expects it to end with status; returns (wall seconds,
    peak RSS in MB). The peak comes from /usr/bin/time: a child forked from
    this (large) interpreter would count the interpreter's pages in its own
    peak."""
    fresh(out)
    with tempfile.NamedTemporaryFile("r") as rss:
        start = time.perf_counter()
        proc = subprocess.run([*pinned(cpus), "/usr/bin/time", "-o", rss.name, "-f", "%M", *cmd],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        wall = time.perf_counter() - start
        if proc.returncode != status:
            raise RuntimeError(f"{cmd} ended with {proc.returncode}, not {status}: "
                               f"{proc.stderr!r}")
        return wall, int(rss.read().split()[-1]) / 1024.0


def timed_pipeline(script, out, cpus):
    """Wall seconds of a shell pipeline that writes out, every process of it
    on the processors cpus."""
    fresh(out)
    start = time.perf_counter()
    subprocess.run([*pinned(cpus), "bash", "-c", "set -o pipefail; " + script], check=True)
    return time.perf_counter() - start


def run_times(cmd, out, runs, cpus=None):
    """The wall seconds of each of runs runs of cmd, and their largest peak RSS
    in MB."""
    results = [timed(cmd, out, cpus) for _ in range(runs)]
    return [r[0] for r in results], max(r[1] for r in results)


def median_run(cmd, out, runs, cpus=None):
    walls, rss = run_times(cmd, out, runs, cpus)
    return statistics.median(walls), rss


def floor_seconds(floors, what, path, runs, cpus=None):
    values = []
    for _ in range(runs):
        out = subprocess.run([*pinned(cpus), floors, what, path], capture_output=True, text=True,
                             check=True)
        values.append(float(out.stdout))
    return statistics.median(values)


def taking_turns(*runners, runs):
    """Runs each of runners (callables returning a measurement) once untimed,
    then runs times each, taking turns and changing which goes first, so that
    drift of the machine falls on all alike. Returns one list of measurements
    per runner; the i-th of each ran next to each other."""
    for r in runners:
        r()
    times = [[] for _ in runners]
    for i in range(runs):
        for j in range(len(runners)):
            k = (i + j) % len(runners)
            times[k].append(runners[k]())
    return times


def plain(form):
    return form[:form.index(".", 1)] if form.count(".") > 1 else form


def compression(form):
    """The compression suffix of a form, or ""."""
    return form[len(plain(form)):]


# What a user would build instead of a compressed form: strix writing the
# plain form to standard output, piped into a compression tool on n threads;
# by compression suffix, that tool, and the command that unpacks its output.
PIPE_TOOLS = {".zst": lambda n: "zstd -q -3 -T0", ".gz": lambda n: f"igzip -3 -T{n} -c"}
UNPACK = {".zst": "zstd -dc", ".gz": "gzip -dc"}


def table_cell(text):
    """text in a markdown table's cell: a "|" is escaped, even within code."""
    return text.replace("|", "\\|")


def pipeline_label(form, n="<cores>"):
    return f"strix -{plain(form)} | {PIPE_TOOLS[compression(form)](n)}"


def pipeline(strix, src, form, dest, cpus, n):
    """A callable that runs the pipeline standing for the compressed form
    (its tool on n threads) on src into dest, every process of it on the
    processors cpus, and returns its wall seconds."""
    tool = PIPE_TOOLS[compression(form)](n)
    script = (f"{shlex.quote(strix)} {shlex.quote(src)} -{plain(form)} | {tool} > "
              f"{shlex.quote(dest)}")
    return lambda: timed_pipeline(script, dest, cpus)


def same_document(packed, form, expected):
    """Fails unless packed, a file of the compressed form, unpacks to exactly
    the bytes of the file expected."""
    unpack = UNPACK[compression(form)]
    if subprocess.run(f"{unpack} {shlex.quote(packed)} | cmp -s - {shlex.quote(expected)}",
                      shell=True).returncode:
        raise RuntimeError(f"{packed} does not unpack to the bytes of {expected}")


def build(build_dir, python=True):
    subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                    "-DSTRIX_BUILD_BENCHMARKS=ON", "-DSTRIX_BUILD_TESTS=OFF"], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "-j2", "--target", "strix", "strix_floors"],
                   check=True, stdout=subprocess.DEVNULL)
    if python:
        subprocess.run(["cmake", "--build", build_dir, "-j2", "--target", "strix_python"],
                       check=True, stdout=subprocess.DEVNULL)
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
    ncores = len(os.sched_getaffinity(0))
    with open("/proc/loadavg") as f:
        load = f.read().split()[0]
    rows, checks = [], []

    def out(form):
        return os.path.join(work, "out" + form)

    times, walls = {}, {}

    def conversion(name, cmd, dest):
        walls[name], rss = run_times(cmd, dest, runs)
        times[name] = statistics.median(walls[name])
        rows.append((name, times[name], size_mb / times[name], rss))

    for form in FORMS:
        conversion(form, [strix, path, out(form)], out(form))
    # .b.zst input, decompressed to a .b copy
    zin = os.path.join(work, "in.b.zst")
    subprocess.run(["zstd", "-q", "-f", "-3", path, "-o", zin], check=True)
    conversion(".b.zst -> .b", [strix, zin, out(".b")], out(".b"))

    fl = {
        "fmt {}": floor_seconds(floors, "format-json", path, runs),
        "fmt {:24.16g}": floor_seconds(floors, "format-txt", path, runs),
        "zstd -d (lib)": floor_seconds(floors, "unzstd", zin, runs),
        "zstd json (lib)": floor_seconds(floors, "zstd", out(".json"), runs),
        "gzip json (lib)": floor_seconds(floors, "gzip", out(".json"), runs),
        "zstd task (lib)": floor_seconds(floors, "zstd", out(".task"), runs),
    }
    cp_dst = os.path.join(work, "cp.b")
    walls["cp"] = run_times(["cp", path, cp_dst], cp_dst, runs)[0]
    fl["cp"] = statistics.median(walls["cp"])

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

    # Each compressed form against the pipeline a user would build instead,
    # on the same cores, taking turns; the pipeline must hold the same
    # document as the plain conversion.
    piped = {}
    for form in (f for f in FORMS if compression(f)):
        dest = os.path.join(work, "pipe" + form)
        built, pipe = taking_turns(lambda form=form: timed([strix, path, out(form)], out(form))[0],
                                   pipeline(strix, path, form, dest, None, ncores), runs=runs)
        same_document(dest, form, out(plain(form)))
        piped[form] = {"built": statistics.median(built), "pipe": statistics.median(pipe),
                       "bytes": os.path.getsize(out(form)), "pipe bytes": os.path.getsize(dest)}

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

    # Ratios that rest on a few hundredths of a second: cp of the file, and a
    # difference of two conversions' medians. They stand, marked, with the
    # sizes of their terms under the table.
    def runs_of(name):
        w = walls[name]
        return f"{statistics.median(w):.3f} s (runs {min(w):.3f}–{max(w):.3f})"

    differences = ((".b.zst -> .b", ".b"), (".task.zst", ".task"))
    noisy = {
        "cp": f"cp copies this {size_mb:.0f} MB file in {runs_of('cp')}; a time this small "
              "moves with the page cache's state (the writeback of earlier copies, whether the "
              "input's pages are cached), and the ratio moves with it.",
        "difference": "the numerator is the difference of two conversions' medians and carries "
                      "the noise of both: " +
                      "; ".join(f"{a} {runs_of(a)} less {b} {runs_of(b)} = "
                                f"{times[a] - times[b]:.3f} s" for a, b in differences) + ".",
    }

    def check(name, ratio, limit, floor=""):
        checks.append((name, ratio, limit, "ok" if ratio <= limit else "OVER", floor))

    check(".json / fmt {}", times[".json"] / fl["fmt {}"], 1.25)
    check(".txt / fmt {:24.16g}", times[".txt"] / fl["fmt {:24.16g}"], 1.25)
    check(".task / cp", times[".task"] / fl["cp"], 2.0, "cp")
    check(".b / cp", times[".b"] / fl["cp"], 2.0, "cp")
    check("(.b.zst -> .b - .b) / zstd -d", (times[".b.zst -> .b"] - times[".b"]) /
          fl["zstd -d (lib)"], 1.2, "difference")
    check("(.json.zst - .json) / zstd", (times[".json.zst"] - times[".json"]) /
          fl["zstd json (lib)"], 1.1)
    check("(.json.gz - .json) / gzip", (times[".json.gz"] - times[".json"]) /
          fl["gzip json (lib)"], 1.1)
    check("(.task.zst - .task) / zstd", (times[".task.zst"] - times[".task"]) /
          fl["zstd task (lib)"], 1.1, "difference")
    for form, pp in piped.items():
        check(f"{form} / ({pipeline_label(form, ncores)})", pp["built"] / pp["pipe"], 1.0)
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
    lines += ["", f"Each compressed form taking turns with the pipeline a user would build "
              f"instead, on the same {ncores} cores; each pipeline's output unpacks to the bytes "
              "of the plain conversion.", "",
              "| form | pipeline | built-in s | pipeline s | built-in / pipeline | built-in bytes "
              "| pipeline bytes | size ratio |", "|---|---|---|---|---|---|---|---|"]
    lines += [f"| {f} | `{table_cell(pipeline_label(f, ncores))}` | {pp['built']:.3f} | "
              f"{pp['pipe']:.3f} | {pp['built'] / pp['pipe']:.2f} | {pp['bytes']} | "
              f"{pp['pipe bytes']} | {pp['bytes'] / pp['pipe bytes']:.4f} |"
              for f, pp in piped.items()]
    lines += ["", "| Python | median s | peak RSS MB |", "|---|---|---|"]
    lines += [f"| {k} | {t:.3f} | {m:.1f} |" for k, (t, m) in py.items()]
    lines += [f"| .task conversion, taking turns with strix.read | "
              f"{times['.task (with strix.read)']:.3f} | |"]
    lines += ["", "| ratio | measured | target | | note |", "|---|---|---|---|---|"]
    lines += [f"| {table_cell(n)} | {r:.2f} | {lim} | {v} | "
              f"{f'noisy floor ({floor})' if floor else ''} |" for n, r, lim, v, floor in checks]
    for k, note in noisy.items():
        lines += ["", f"Noisy floor ({k}): {note}"]
    return "\n".join(lines) + "\n", checks


def ratio_chart(png, files):
    """Every checked ratio as measured / target, one bar per file: a bar that
    passes the line at 1.0 misses its target. A ratio on a noisy floor is
    dotted, and its label says so."""
    names = []
    for _, checks in files:
        names += [c[0] for c in checks if c[0] not in names]
    limits = {c[0]: c[2] for _, checks in files for c in checks}
    noisy = {c[0] for _, checks in files for c in checks if c[4]}
    clip = 2.0
    fig, ax = plt.subplots(figsize=(11, 1.2 + 0.36 * len(names)))
    height = 0.8 / len(files)
    for i, (label, checks) in enumerate(files):
        value = {c[0]: c[1] / c[2] for c in checks}
        ys = [k - 0.4 + height * (i + 0.5) for k, n in enumerate(names) if n in value]
        xs = [value[n] for n in names if n in value]
        bars = ax.barh(ys, [min(x, clip) for x in xs], height=height, label=label,
                       color=f"C{i}")
        for bar, x, n in zip(bars, xs, (n for n in names if n in value)):
            hatch = ("///" if x > 1.0 else "") + ("..." if n in noisy else "")
            if hatch:
                bar.set_hatch(hatch)
                bar.set_edgecolor("black")
            ax.text(min(max(x, 0.0), clip) + 0.01, bar.get_y() + height / 2,
                    f"{x:.2f}" + (" (clipped)" if x > clip else ""), va="center", fontsize=7)
    target = ax.axvline(1.0, color="red", linestyle="--", linewidth=1.2, label="target")
    ax.set_yticks(range(len(names)))
    # A "$" would start mathematical text.
    ax.set_yticklabels([n.replace("$", r"\$") + f"  (target {limits[n]})" +
                        ("  [noisy floor]" if n in noisy else "") for n in names], fontsize=8)
    ax.invert_yaxis()
    ax.set_xlim(min(0.0, *(c[1] / c[2] for _, cs in files for c in cs)), clip + 0.25)
    ax.set_xlabel("measured / target (past 1.0: over target)")
    ax.set_title("strix conversions against their targets")
    ax.grid(axis="x", alpha=0.3)
    # The files' colours plain: a bar container would lend its first bar's hatch.
    patch = matplotlib.patches.Patch
    handles = [target] + [patch(color=f"C{i}", label=label) for i, (label, _) in enumerate(files)]
    handles += [patch(facecolor="white", edgecolor="black", hatch=hatch, label=label)
                for hatch, label in (("///", "over target"), ("...", "noisy floor (a term of a "
                                                                     "few hundredths of a second)"))]
    ax.legend(handles=handles, loc="lower right", fontsize=8)
    fig.tight_layout()
    fig.savefig(png, dpi=110)
    plt.close(fig)


SCALING_FORMS = [".json", ".txt", ".json.zst", ".json.gz", ".txt.gz", ".task", ".task.zst",
                 ".task.gz", ".b"]
# The task archive and the byte copy pass the input's values on with nothing
# to format or compress: a second core has nothing to take over, so the
# two-core target leaves them out.
UNSCALED = (".task", ".b")
PLAIN = (".json", ".txt", ".task", ".b")
# The floors binary's single-thread compressor for each compression suffix.
ENGINE = {".zst": "zstd", ".gz": "gzip"}
CORES = (1, 2, 4, 8, 16)
# The compressed forms whose pipelines the projection is set against.
PROJECTED_PIPELINES = (".json.zst", ".json.gz")


def spread(values):
    """The range of a set of runs relative to their median."""
    return (max(values) - min(values)) / statistics.median(values)


def project(read, work, serial, cores, parallel):
    """wall(P) = read + max(work / P, serial), and the name of its largest term
    (the writing where it ties with the parallel work, which then holds
    nothing else)."""
    terms = {"reading": read, "writing": serial, parallel: work / cores}
    return read + max(work / cores, serial), max(terms, key=terms.get)


def scaling(path, numvar, numcon, strix, floors, baseline, work, runs):
    """The scaling section: one core against two, the A/B against a baseline
    binary, stage times on one core and the projection. Returns (markdown,
    all targets met, what the chart draws)."""
    cpus = sorted(os.sched_getaffinity(0))
    if len(cpus) < 2:
        sys.exit("the scaling section needs two processors")
    # One core, two, and all the process may use (taskset's lists; None: no
    # taskset). With exactly two processors, two are all of them: that leg
    # runs without taskset and stands for both.
    one = str(cpus[0])
    legs = {"1": one, "2": f"{cpus[0]},{cpus[1]}" if len(cpus) > 2 else None}
    if len(cpus) > 2:
        legs["all"] = None
    size_mb = os.path.getsize(path) / 1e6
    with open("/proc/loadavg") as f:
        load = f.read().split()[0]
    checks = []

    def out(form):
        return os.path.join(work, "scale" + form)

    def run(binary, form, cpu_list):
        return lambda: timed([binary, path, out(form)], out(form), cpu_list)

    # One core against two (and all).
    cores = {}
    for form in SCALING_FORMS:
        results = taking_turns(*(run(strix, form, c) for c in legs.values()), runs=runs)
        w = {k: [r[0] for r in rs] for k, rs in zip(legs, results)}
        rss = {k: max(r[1] for r in rs) for k, rs in zip(legs, results)}
        w1, w2 = w["1"], w["2"]
        m1, m2 = statistics.median(w1), statistics.median(w2)
        cores[form] = {"1": m1, "2": m2, "all": statistics.median(w.get("all", w2)), "w1": w1,
                       "w2": w2, "ratio": m2 / m1, "pairs": [b / a for a, b in zip(w1, w2)],
                       "rss1": rss["1"], "rss2": rss["2"]}
        if form not in UNSCALED:
            checks.append(m2 / m1 <= 0.6)

    # The baseline binary and this one taking turns on one core.
    ab = {}
    for form in SCALING_FORMS if baseline else ():
        rb, rc = taking_turns(lambda: run(baseline, form, one)()[0],
                              lambda: run(strix, form, one)()[0], runs=runs)
        mb, mc = statistics.median(rb), statistics.median(rc)
        noise = max(spread(rb), spread(rc))
        ab[form] = {"base": mb, "cur": mc, "ratio": mc / mb, "noise": noise,
                    "pairs": [c / b for b, c in zip(rb, rc)], "ok": mc / mb <= 1 + noise}
        checks.append(ab[form]["ok"])

    # Stage times on one core. Reading: the whole input is read and checked
    # before an unknown output form ends the run with status 7.
    xml = os.path.join(work, "scale.xml")
    read = statistics.median(timed([strix, path, xml], xml, one, status=7)[0]
                             for _ in range(runs))
    dst = os.path.join(work, "scale.cp")
    write = {p: median_run(["cp", out(p), dst], dst, runs, one)[0] for p in PLAIN}
    compress = {f: floor_seconds(floors, ENGINE[compression(f)], out(plain(f)), runs, one)
                for f in SCALING_FORMS if plain(f) != f}
    fmt_floor = {".json": floor_seconds(floors, "format-json", path, runs, one),
                 ".txt": floor_seconds(floors, "format-txt", path, runs, one)}
    fmt = {p: max(0.0, cores[p]["1"] - read - write[p]) for p in PLAIN if p != ".b"}
    fmt[".b"] = 0.0

    # The byte copy passes the input on as it comes, without reading it as a
    # solution first: its model is the write alone.
    proj = {}
    for form in SCALING_FORMS:
        p = plain(form)
        work_s = fmt[p] + compress.get(form, 0.0) + write[p]
        name = "format" if p == form else "format+compress"
        proj[form] = {n: project(0.0 if form == ".b" else read, work_s, write[p], n, name)
                      for n in CORES}

    # The pipelines: measured on one core and two, taking turns, and projected
    # with one more pass of the JSON through the pipe.
    pipes = {}
    for charged in PROJECTED_PIPELINES:
        dest = os.path.join(work, "pipe" + charged)
        p1, p2 = taking_turns(pipeline(strix, path, charged, dest, one, 1),
                              pipeline(strix, path, charged, dest, legs["2"], 2), runs=runs)
        same_document(dest, charged, out(plain(charged)))
        work_s = fmt[".json"] + compress[charged] + 2 * write[".json"]
        pipes[pipeline_label(charged)] = {
            "1": statistics.median(p1), "2": statistics.median(p2),
            "proj": {n: project(read, work_s, write[".json"], n, "format+compress")
                     for n in CORES}}

    lines = [f"{os.path.basename(path)}, {size_mb:.1f} MB: {numvar} variables, {numcon} "
             f"constraints, random 17-digit values. {runs} runs of each (medians); runs that "
             "are compared take turns, after an untimed run of each. One core is "
             f"`taskset -c {one}`, two cores " +
             (f"`taskset -c {legs['2']}`, all {len(cpus)} cores no taskset." if legs["2"] else
              "the two the process may use (no taskset)."), "",
             f"1-minute load before the runs: {load}", "",
             "### One core against two", "",
             "| form | 1 core s | range | 2 cores s | range | 2 cores / 1 core | target | | "
             "peak RSS MB, 1 core | 2 cores |", "|---|---|---|---|---|---|---|---|---|---|"]
    for form in SCALING_FORMS:
        c = cores[form]
        verdict = ("" if form in UNSCALED else "ok" if c["ratio"] <= 0.6 else "OVER")
        lines.append(f"| {form} | {c['1']:.3f} | {min(c['w1']):.3f}–{max(c['w1']):.3f} | "
                     f"{c['2']:.3f} | {min(c['w2']):.3f}–{max(c['w2']):.3f} | "
                     f"{c['ratio']:.2f} | {'—' if form in UNSCALED else '0.6'} | {verdict} | "
                     f"{c['rss1']:.1f} | {c['rss2']:.1f} |")
    lines += ["", "`.task` and `.b` pass the input's values on with nothing to format or "
              "compress, so they have no two-core target.", "",
              "### Against the baseline, one core", ""]
    if ab:
        lines += [f"Baseline: `{baseline}`. Noise is the larger relative range (max − min "
                  "over median) of the two binaries' own runs; the current binary is slower "
                  "than noise where current / baseline exceeds 1 + noise. Pair "
                  "ratios: the range of current / baseline over the runs made next to each "
                  "other.", "",
                  "| form | baseline s | current s | current / baseline | pair ratios | noise "
                  "| |", "|---|---|---|---|---|---|---|"]
        lines += [f"| {f} | {a['base']:.3f} | {a['cur']:.3f} | {a['ratio']:.3f} | "
                  f"{min(a['pairs']):.2f}–{max(a['pairs']):.2f} | ±{a['noise']:.3f} | "
                  f"{'ok' if a['ok'] else 'SLOWER'} |" for f, a in ab.items()]
    else:
        lines.append("Not run: no `--baseline BIN` given.")
    lines += ["", "### Stages on one core", "",
              "Reading: `strix in.b out.xml`, which reads and checks the whole input and ends "
              "with status 7. Formatting: the one-core conversion to the plain form less "
              "reading and writing (the {fmt} floor on the same doubles, for comparison). "
              "Compressing: the zstd or ISA-L library alone, one thread, level 3, on the plain "
              "output. Writing: `cp` of the plain output to a new file.", "",
              "| form | reading s | formatting s | compressing s | writing s | {fmt} floor s |",
              "|---|---|---|---|---|---|"]
    for form in SCALING_FORMS:
        p = plain(form)
        floor = f"{fmt_floor[p]:.3f}" if p in fmt_floor and p == form else ""
        comp = f"{compress[form]:.3f}" if form in compress else "—"
        rd, fm = ("—", "—") if form == ".b" else (f"{read:.3f}", f"{fmt[p]:.3f}")
        lines.append(f"| {form} | {rd} | {fm} | {comp} | {write[p]:.3f} | {floor} |")
    lines += ["", "### Projection to more cores", "",
              "A conversion reads the whole input on one thread, then formats, compresses and "
              "writes as a pipeline: formatting and compressing spread over the P cores, while "
              "one thread hands the pieces to the file. So wall(P) ≈ read + max((format + "
              "compress + write) / P, write): the parallel work shares the P cores with the "
              "writing thread's own, and that one thread bounds it from below (at P = 1 this "
              "is the sum of the stages). The pipelines run the same stages and pass the JSON "
              "once more through the pipe, charged as one more write of it: wall(P) ≈ read + "
              "max((format + compress + 2 × write) / P, write). `.b` copies the input's bytes "
              "as they come, without reading it as a solution: its model is the write alone.",
              "",
              "Each cell: seconds, then the largest term (reading, the parallel work, or "
              "writing). At 1 and 2 cores, measured / projected.", "",
              "| form | 1 core | 2 cores | " + " | ".join(f"{n} cores" for n in CORES[2:]) + " |",
              "|---|---|---|" + "---|" * len(CORES[2:])]

    def row(label, measured, pr):
        cells = [f"{measured[str(n)]:.3f} / {pr[n][0]:.3f} {pr[n][1]}" for n in CORES[:2]]
        cells += [f"{pr[n][0]:.3f} {pr[n][1]}" for n in CORES[2:]]
        return f"| {label} | " + " | ".join(cells) + " |"

    lines += [row(f, cores[f], proj[f]) for f in SCALING_FORMS]
    lines += [row(f"`{table_cell(label)}`", pp, pp["proj"]) for label, pp in pipes.items()]
    data = {"cores": cores, "ab": ab, "proj": proj, "pipes": pipes, "ncores": len(cpus),
            "one": one, "size_mb": size_mb}
    return "\n".join(lines) + "\n", all(checks), data


def scaling_chart(png, data):
    """Two cores against one and the A/B as bars, the projection as lines."""
    fig = plt.figure(figsize=(15, 10))
    grid = fig.add_gridspec(2, 6)
    forms = SCALING_FORMS

    def bars(ax, values, pairs, colors, lines_at, title, xlabel):
        ys = range(len(values))
        lo = [v - min(p) for v, p in zip(values, pairs)]
        hi = [max(p) - v for v, p in zip(values, pairs)]
        ax.barh(ys, values, xerr=[lo, hi], color=colors, capsize=3)
        for y, v in zip(ys, values):
            ax.text(0.02, y, f"{v:.2f}", va="center", color="white", fontsize=9,
                    fontweight="bold")
        for x, color, label in lines_at:
            ax.axvline(x, color=color, linestyle="--", linewidth=1.2, label=label)
        ax.set_yticks(list(ys))
        ax.set_yticklabels(forms[:len(values)])
        ax.invert_yaxis()
        ax.set_title(title, fontsize=10)
        ax.set_xlabel(xlabel)
        ax.grid(axis="x", alpha=0.3)
        ax.legend(fontsize=8, loc="best")

    # Blue: within target; red: over it; grey: no target.
    c = data["cores"]
    bars(fig.add_subplot(grid[0, :3]), [c[f]["ratio"] for f in forms],
         [c[f]["pairs"] for f in forms],
         ["grey" if f in UNSCALED else "C0" if c[f]["ratio"] <= 0.6 else "C3" for f in forms],
         [(0.6, "red", "target 0.6"), (1.0, "grey", "no gain")],
         "2 cores / 1 core (red: over target, grey: no target; whiskers: range of pairs)",
         "wall time on 2 cores / on 1 core")
    ax = fig.add_subplot(grid[0, 3:])
    if data["ab"]:
        ab = data["ab"]
        bars(ax, [ab[f]["ratio"] for f in forms], [ab[f]["pairs"] for f in forms],
             ["C0" if ab[f]["ok"] else "C3" for f in forms], [(1.0, "red", "baseline")],
             "current / baseline on 1 core (red: slower than noise; whiskers: range of pairs)",
             "wall time, current / baseline")
    else:
        ax.text(0.5, 0.5, "no baseline given", ha="center", va="center")
        ax.set_axis_off()

    groups = [("plain forms", [".json", ".txt", ".task", ".b"], []),
              ("Zstandard", [".json.zst", ".task.zst"], [pipeline_label(".json.zst")]),
              ("gzip", [".json.gz", ".txt.gz", ".task.gz"], [pipeline_label(".json.gz")])]
    for k, (title, fs, ps) in enumerate(groups):
        ax = fig.add_subplot(grid[1, 2 * k:2 * k + 2])
        series = [(f, c[f], data["proj"][f], "-") for f in fs]
        series += [(p, data["pipes"][p], data["pipes"][p]["proj"], ":") for p in ps]
        for i, (label, measured, pr, style) in enumerate(series):
            ax.plot(CORES, [pr[n][0] for n in CORES], style, color=f"C{i}", marker=".",
                    label=label + " (projected)")
            ax.plot(CORES[:2], [measured["1"], measured["2"]], "o", color=f"C{i}",
                    markerfacecolor="none", markersize=9)
        ax.plot([], [], "o", color="grey", markerfacecolor="none", label="measured")
        ax.set_xscale("log", base=2)
        ax.set_yscale("log")
        ax.set_xticks(CORES)
        ax.set_xticklabels([str(n) for n in CORES])
        ax.yaxis.set_major_formatter(matplotlib.ticker.FormatStrFormatter("%.3g"))
        ax.yaxis.set_minor_formatter(matplotlib.ticker.FormatStrFormatter("%.3g"))
        ax.tick_params(axis="y", which="minor", labelsize=7)
        ax.set_xlabel("cores")
        ax.set_ylabel("wall s (log)")
        ax.set_title(f"projection: {title}", fontsize=10)
        ax.grid(alpha=0.3, which="both")
        ax.legend(fontsize=7)
    fig.suptitle("strix on more cores: measured on 1 and 2, projected from one-core stage times")
    fig.tight_layout()
    fig.savefig(png, dpi=100)
    plt.close(fig)


def summary(numvar, numcon, runs, data):
    """The page's opening, from the scaling section's runs: how long converting
    its file to each form takes on one core and on all the process may use."""
    n, c = data["ncores"], data["cores"]
    lines = [f"## How long a conversion takes, {datetime.date.today()}", "",
             f"Machine: {machine()}", "",
             f"`strix in.b out.FORM` on a solution file of {numvar:,} variables and {numcon:,} "
             f"constraints ({data['size_mb']:.1f} MB, every vector full of random 17-digit "
             f"values): wall seconds, medians of {runs} runs, on one core (`taskset -c "
             f"{data['one']}`) and on all {n} cores the process may use (no taskset). The "
             "throughput counts variables (with their share of the constraints) per second.",
             "", f"| output | 1 core s | {n} cores s | million variables/s on {n} cores |",
             "|---|---|---|---|"]
    lines += [f"| {f} | {c[f]['1']:.3f} | {c[f]['all']:.3f} | {numvar / c[f]['all'] / 1e6:.1f} |"
              for f in FORMS]
    return "\n".join(lines) + "\n"


# In page order; bench/sweeps.py writes the last.
SECTIONS = ("summary", "ratios", "scaling", "sweeps", "pipelines")


def write_report(path, sections):
    """Writes each section between its marks, in place of its earlier version;
    what lies outside the marks (notes added by hand) stays. A file without
    marks is replaced by a full run of this script, and added to by any other."""
    text = ""
    if os.path.exists(path):
        with open(path) as f:
            text = f.read()
    if "<!-- bench:" not in text and {"ratios", "scaling"} <= sections.keys():
        text = ""
    for i, name in enumerate(SECTIONS):
        if name not in sections:
            continue
        begin, end = f"<!-- bench:{name} -->\n", f"<!-- /bench:{name} -->\n"
        block = begin + sections[name].rstrip("\n") + "\n" + end
        if begin in text and end in text:
            text = text[:text.index(begin)] + block + text[text.index(end) + len(end):]
            continue
        before = [f"<!-- /bench:{n} -->\n" for n in SECTIONS[:i]]
        after = [f"<!-- bench:{n} -->\n" for n in SECTIONS[i + 1:]]
        before = [m for m in before if m in text]
        after = [m for m in after if m in text]
        if before:
            at = text.index(before[-1]) + len(before[-1])
        elif after:
            at = text.index(after[0])
        else:
            at = len(text)
        head, tail = text[:at], text[at:]
        text = head + ("\n" if head else "") + block + ("\n" if tail else "") + tail
    with open(path, "w") as f:
        f.write(text)


def main():
    started = time.perf_counter()
    p = argparse.ArgumentParser(description="strix conversion benchmark")
    which = p.add_mutually_exclusive_group()
    which.add_argument("--ratios", action="store_true",
                       help="run only the ratio sections, on all cores (the default runs "
                       "everything)")
    which.add_argument("--scaling", action="store_true",
                       help="run only the scaling section and the page's summary, which is "
                       "drawn from it")
    p.add_argument("--numvar", type=int,
                   help="variables of the generated files (default: 2,000,000 for the ratios, "
                   "1,000,000 for scaling and the summary)")
    p.add_argument("--numcon", type=int,
                   help="constraints (default: 1,000,000 for the ratios, 500,000 for scaling)")
    p.add_argument("--runs", type=int, default=5,
                   help="timed runs of each command, of which the median counts (default: 5)")
    p.add_argument("--baseline", metavar="BIN",
                   help="another strix executable to take turns with on one core (scaling)")
    p.add_argument("--build", default=os.path.join(ROOT, "build-bench"),
                   help="the Release build directory, configured and built here (default: "
                   "build-bench in the source tree)")
    p.add_argument("--report", help="also write the results (markdown) to this file, and the "
                   "charts beside it")
    args = p.parse_args()
    if args.baseline and not os.access(args.baseline, os.X_OK):
        p.error(f"--baseline {args.baseline}: not an executable")
    # The thread counts are the machine's and the tools' own: settings from
    # the environment would cap them.
    for var in ("STRIX_THREADS", "ZSTD_NBTHREADS", "ZSTD_CLEVEL"):
        if os.environ.pop(var, None) is not None:
            print(f"note: {var} ignored for the benchmark", file=sys.stderr)

    strix, floors = build(args.build, python=not args.scaling)
    stem = os.path.splitext(args.report)[0] if args.report else None
    work = tempfile.mkdtemp(prefix="strix-bench-")
    sections, ok = {}, True
    try:
        if not args.scaling:
            n, m = args.numvar or 2_000_000, args.numcon or 1_000_000
            vectors_mb = (8 * 4 * (n + m) + n + m) / (1 << 20)
            report = [f"## strix benchmark, {datetime.date.today()}", "",
                      f"Machine: {machine()}", "",
                      f"{n} variables, {m} constraints, {args.runs} runs each (medians), every "
                      f"run on all {len(os.sched_getaffinity(0))} cores the process may use.", ""]
            if stem:
                report += [f"![Every checked ratio as measured / target, per file]"
                           f"({os.path.basename(stem)}.png)", ""]
            files = []
            for label, round_values in (("17-digit values", False), ("small round values", True)):
                path = os.path.join(work, "round.b" if round_values else "real.b")
                with open(path, "wb") as f:
                    f.write(large(n, m, round_values).to_bytes())
                text, checks = bench_file(label, path, vectors_mb, 4 * (n + m), strix, floors,
                                          args.build, work, args.runs)
                ok &= all(c[3] == "ok" for c in checks)
                files.append((label, checks))
                report.append(text)
                print(text, flush=True)
                os.remove(path)
            sections["ratios"] = "\n".join(report)
            if stem:
                ratio_chart(stem + ".png", files)
        if not args.ratios:
            n, m = args.numvar or 1_000_000, args.numcon or 500_000
            path = os.path.join(work, "scale-in.b")
            with open(path, "wb") as f:
                f.write(large(n, m).to_bytes())
            text, good, data = scaling(path, n, m, strix, floors, args.baseline, work, args.runs)
            ok &= good
            head = [f"## Scaling with cores, {datetime.date.today()}", "", f"Machine: {machine()}",
                    ""]
            if stem:
                head += [f"![Two cores against one, the baseline, and the projection]"
                         f"({os.path.basename(stem)}-scaling.png)", ""]
                scaling_chart(stem + "-scaling.png", data)
            sections["scaling"] = "\n".join(head) + "\n" + text
            sections["summary"] = summary(n, m, args.runs, data)
            print(sections["scaling"], sections["summary"], sep="\n", flush=True)
        if args.report:
            write_report(args.report, sections)
        print("all ratios within target" if ok else "some ratios over target")
        print(f"benchmark took {time.perf_counter() - started:.0f} s")
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
