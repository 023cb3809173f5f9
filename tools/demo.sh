#!/usr/bin/env bash
# Builds strix and converts the bundled example solution file to JSON and to
# the text report, printing both.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake -S . -B build >/dev/null
cmake --build build -j2 --target strix
mkdir -p out
./build/strix examples/example.b out/example.json
echo "== out/example.json"
cat out/example.json
echo
echo "== text report (strix examples/example.b -.txt)"
./build/strix examples/example.b -.txt
