#!/usr/bin/env bash
# Builds strix and converts the bundled example solution file.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake -S . -B build >/dev/null
cmake --build build -j2 --target strix
mkdir -p out
./build/strix examples/example.b out/example.b
cmp examples/example.b out/example.b && echo "copied examples/example.b to out/example.b"
