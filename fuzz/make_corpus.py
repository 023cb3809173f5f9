"""Writes the seed corpus of the fuzz targets with the project's own builder:
valid solution files of every shape, each kind of malformed file, Zstandard
frames of them, and raw record streams. Run it again after changing the
builder; findings live beside the seeds as corpus/<target>/finding-*."""

import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests"))
sys.path.insert(0, os.path.join(HERE, "..", "examples"))

from make_example import example  # noqa: E402
from solgen import Item, SolutionFile, arr, pack, serialize  # noqa: E402


def item(kind, **over):
    f = dict(pobj=1.5, dobj=-2.0, skx=b"bl", xx=[1, 2], slx=[0, 1], sux=[2, 3], snx=[4, 5],
             barx=[1, 2, 3], bars=[4, 5, 6], skc=b"u", xc=[7], y=[8], slc=[9], suc=[10],
             skn=b"bbx", doty=[11, 12])
    f.update(over)
    return Item(kind, **f)


def full(**over):
    f = dict(numvar=2, numcon=1, numcone=3, numbarvar=1, numacc=1, barvar_pattern=[3],
             acc_pattern=[2], solutions=[item("interior"), item("basic"), item("integer")],
             names={"var": [b"x", b"y\xe9"], "barvar": [b"X"], "con": [b"c\""],
                    "cone": [b"k"], "acc": [b"a"]},
             problem_name=b"p", objective_name=b"o", info_f64=[(b"t", 0.5)],
             info_i32=[(b"i", 3)], info_i64=[(b"l", 4)])
    f.update(over)
    return SolutionFile(**f)


def solution_seeds():
    seeds = {
        "minimal": SolutionFile(),
        "example": example(),
        "full": full(),
        "full_nonminimal": full(form=2),
        "chunked": SolutionFile(solutions=[Item("basic", skx=b"b", xx=[])], form="chunked"),
        "no_barvar": full(numbarvar=0, barvar_pattern=None,
                          solutions=[item("basic", barx=None, bars=None)]),
        "acc_rows": full(numacc=3, acc_pattern=[2, 0, 1], solutions=[item("basic", barx=None,
                                                                         bars=None)],
                         numbarvar=0, barvar_pattern=None),
        "cone_without_con": full(numcon=0, solutions=[item("basic", skc=None, xc=None,
                                                           y=None)]),
        "short_names": full(names={"var": [b"only"]}),
    }
    out = {k: v.to_bytes() for k, v in seeds.items()}
    base = full().sections()
    out["bad_mark"] = b"ABCD" + out["minimal"][4:]
    out["bad_format"] = serialize([(n, "[d" if n == "sol/basic/con/dual" else f, p)
                                   for n, f, p in base])
    out["inconsistent"] = full(solutions=[item("basic", xx=[1])]).to_bytes()
    out["out_of_order"] = full(solutions=[item("basic"), item("interior")]).to_bytes()
    out["huge_counts"] = serialize([("NLOSOLN", "[B", arr(b"")),
                                    ("version", "III", bytes(12)),
                                    ("numvar", "I", pack("I", [4_000_000_000])),
                                    ("numbarvar", "I", pack("I", [2**31 - 1])),
                                    ("numcon", "I", pack("I", [2**31 - 1])),
                                    ("numcone", "I", pack("I", [5])),
                                    ("numacc", "L", pack("Q", [2**62])),
                                    ("sol/basic", "[B[B", b"\xe1" + bytes(7))])
    out["truncated"] = out["full"][:300]
    # Files that end inside arrays, headers and length prefixes: a read that
    # passes over an array must end there as a full read does.
    for n in range(7, len(out["full"]), 19):
        out[f"cut{n}"] = out["full"][:n]
    return out


def record_seeds():
    return {
        "prefixes": b"\x01a\x02[B" + b"\x00" + b"\x1f" + bytes(31) + b"\x20\x05abcde",
        "chunked": b"\x01a\x02[B\xe0\x00\x03abc\x00\x00\x01b\x02[d\xe0\x00\x08" + bytes(8) +
                   b"\x00\x00",
        "long_prefix": b"\x00\x00\xff" + bytes(16),
        "arrays": serialize([("s", "[d", arr(pack("d", [1.0, 2.0]), 3))] * 5, mark=b""),
    }


def write(folder, seeds):
    os.makedirs(folder, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(folder, "seed-" + name), "wb") as f:
            f.write(data)


def zstd(data, *flags):
    return subprocess.run(["zstd", "-q", "-c", *flags], input=data, capture_output=True,
                          check=True).stdout


def main():
    corpus = os.path.join(HERE, "corpus")
    sol = solution_seeds()
    write(os.path.join(corpus, "solution"), sol)
    write(os.path.join(corpus, "record"), record_seeds())
    # The zstd target reads its first byte as a piece-size pattern.
    zs = {"example": b"\x00" + zstd(sol["example"]),
          "full_l19": b"\x09" + zstd(sol["full"], "-19"),
          "two_frames": b"\x03" + zstd(b"a" * 5000) + zstd(sol["minimal"]),
          "empty": b"\x01" + zstd(b""),
          "big": b"\x05" + zstd(bytes(range(256)) * 2000),
          "corrupt": b"\x02" + zstd(sol["full"])[:-9] + b"\xff" * 9}
    write(os.path.join(corpus, "zstd_reader"), zs)


if __name__ == "__main__":
    main()
