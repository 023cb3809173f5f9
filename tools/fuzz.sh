#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs them.
#   tools/fuzz.sh run SECONDS [TARGET...]   fuzz each target for SECONDS,
#                                           new inputs go to a scratch copy
#   tools/fuzz.sh keep SECONDS TARGET       fuzz and keep new inputs in a
#                                           work folder out/fuzz-<target>
# A target is a file fuzz/<target>_fuzz.cpp; without targets named, all of
# them run. Crashes are written as out/crash-<target>-*; add each as
# fuzz/corpus/<target>/finding-<name>.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-run}
seconds=${2:-10}
shift $(( $# > 2 ? 2 : $# ))
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do
    source=${source#fuzz/}
    targets+=("${source%_fuzz.cpp}")
  done
fi

CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSTRIX_BUILD_FUZZERS=ON -DSTRIX_SANITIZE=ON -DSTRIX_BUILD_TESTS=OFF -DSTRIX_BUILD_PYTHON=OFF \
  >/dev/null
cmake --build build-fuzz -j2 --target "${targets[@]/#/fuzz_}"
mkdir -p out

for t in "${targets[@]}"; do
  if [ "$mode" = keep ]; then
    work=out/fuzz-$t
    mkdir -p "$work"
    seed=()
  else
    work=$(mktemp -d)
    seed=(-seed=1)  # short runs in the test command start the same way each time
  fi
  echo "fuzzing $t for ${seconds}s"
  # stderr of the target (the reader's messages) is closed; libFuzzer's own
  # report still appears.
  ./build-fuzz/fuzz/fuzz_"$t" "${seed[@]}" -max_total_time="$seconds" -close_fd_mask=2 -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix=out/crash-"$t"- \
    "$work" fuzz/corpus/"$t" 2>&1 | grep -E '^(stat::number_of_executed_units|stat::average_exec_per_sec|==|SUMMARY|Done)' || true
  if ls out/crash-"$t"-* >/dev/null 2>&1; then
    echo "fuzz: $t found a crash: $(ls out/crash-"$t"-*)" >&2
    exit 1
  fi
  [ "$mode" = keep ] || rm -rf "$work"
done
