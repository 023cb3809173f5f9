#!/usr/bin/env python3
"""Each compressed form against the pipeline a user would build, on one core
and on two, and two cores against one: each target a ratio of two
measurements taken in the same run, medians of --runs, the sides taking
turns.

    python3 bench/pipelines.py [--build build] [--baseline OTHER_STRIX] [--runs 5]
                               [--numvar 2000000] [--report FILE]

The pipeline is strix writing the plain form to standard output piped into
`zstd -q -3 -T0` or `igzip -3 -T<cores>`, every process on the same cores
(`taskset -c 0`, `taskset -c 0,1`). Files of --numvar variables and half as
many constraints, 17-digit and small round values. With --baseline, another
strix binary takes turns with this one on one core (A/B). Prints a markdown
section; --report also puts it into FILE (docs/benchmark.md), between its
marks.
"""
import argparse
import datetime
import os
import shutil
import statistics
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from run import large, machine, pipeline, timed, taking_turns, write_report  # noqa: E402

COMPRESSED = [".json.zst", ".json.gz", ".txt.gz", ".task.zst", ".task.gz"]
SCALED = [".json", ".txt", ".json.zst", ".json.gz", ".txt.gz", ".task.gz", ".task.zst"]
CORES = {"one core": "0", "two cores": "0,1"}


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--build", default="build")
    p.add_argument("--baseline")
    p.add_argument("--runs", type=int, default=5)
    p.add_argument("--numvar", type=int, default=2_000_000)
    p.add_argument("--report")
    a = p.parse_args()
    strix = os.path.join(a.build, "strix")
    work = tempfile.mkdtemp(prefix="strix-pipelines-")
    lines, checks = [], []

    def check(what, ratio, limit):
        checks.append(ratio <= limit)
        lines.append(f"| {what} | {ratio:.2f} | {limit:.2f} | "
                     f"{'ok' if ratio <= limit else '**over**'} |")

    try:
        for label, round_values in (("17-digit", False), ("round", True)):
            src = os.path.join(work, "in.b")
            with open(src, "wb") as f:
                f.write(large(a.numvar, a.numvar // 2, round_values).to_bytes())
            out = os.path.join(work, "out")

            def conversion(form, cpus, binary=strix):
                return lambda: timed([binary, src, out + form], out + form, cpus)[0]

            medians = {}
            for cores, cpus in CORES.items():
                for form in COMPRESSED:
                    mine, theirs = taking_turns(
                        conversion(form, cpus),
                        pipeline(strix, src, form, out + "-pipe", cpus, cpus.count(",") + 1),
                        runs=a.runs)
                    medians[form, cpus] = statistics.median(mine)
                    check(f"{label}, {cores}: `{form}` / its pipeline",
                          medians[form, cpus] / statistics.median(theirs), 1.0)
            for form in SCALED:
                if (form, "0") not in medians:
                    one, two = taking_turns(conversion(form, "0"), conversion(form, "0,1"),
                                            runs=a.runs)
                    medians[form, "0"], medians[form, "0,1"] = map(statistics.median, (one, two))
                check(f"{label}: `{form}` two cores / one core",
                      medians[form, "0,1"] / medians[form, "0"],
                      0.65 if form == ".task.zst" else 0.6)
            if a.baseline:
                for form in COMPRESSED + [".json", ".txt"]:
                    new, old = taking_turns(conversion(form, "0"),
                                            conversion(form, "0", a.baseline), runs=a.runs)
                    check(f"{label}, one core: `{form}` / the baseline's (A/B)",
                          statistics.median(new) / statistics.median(old), 1.05)
    finally:
        shutil.rmtree(work, ignore_errors=True)

    text = "\n".join([
        f"## Against the pipelines, on one core and two, {datetime.date.today()}", "",
        f"Machine: {machine()}", "",
        f"{a.numvar} variables, {a.numvar // 2} constraints; {a.runs} runs, medians, the sides "
        "taking turns; every process of a run pinned to the same cores.", "",
        "| ratio | measured | limit | |", "|---|---|---|---|", *lines, ""])
    print(text)
    if a.report:
        write_report(a.report, {"pipelines": text})
    sys.exit(0 if all(checks) else 1)


if __name__ == "__main__":
    main()
