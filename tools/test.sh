#!/usr/bin/env bash
# Builds strix twice (optimised, and with AddressSanitizer and
# UndefinedBehaviorSanitizer on the portable fallbacks of the POSIX platform
# layer), runs every test in both, replays the fuzz corpus and checks the
# formatting. Installs missing Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

jobs=2
cmake -S . -B build -DSTRIX_WERROR=ON >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

# The sanitized build leaves out the Linux-only calls, so that the fallbacks
# every other POSIX system takes are built and tested here too.
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSTRIX_SANITIZE=ON \
  -DSTRIX_PORTABLE=ON -DSTRIX_BUILD_PYTHON=OFF -DSTRIX_WERROR=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure -j"$jobs")

# A short libFuzzer run of every target (the corpus is replayed by ctest
# in both builds above).
bash tools/fuzz.sh run 10

# Formatting: the checked-in sources must equal clang-format's output.
git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror
# The other platforms, cross-built and tested under Wine and qemu.
bash tools/cross.sh windows
bash tools/cross.sh arm64
echo "all tests passed"
