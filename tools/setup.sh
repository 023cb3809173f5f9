#!/usr/bin/env bash
# Installs the Debian packages that building, testing, fuzzing and benchmarking
# strix need, and only those that are missing. Safe to run again.
set -euo pipefail

packages=(
  g++ cmake make pkg-config               # toolchain
  libzstd-dev libisal-dev libfmt-dev       # libraries strix links
  pybind11-dev python3-dev python3-numpy   # the Python module
  libgtest-dev                             # unit tests
  zstd gzip tar time                       # independent tools the end-to-end tests check with
  isal                                     # igzip, the benchmark's gzip reference
  python3 python3-jsonschema               # solution file builder, JSON schema validation
  python3-matplotlib                       # the benchmark's charts
  python3-venv python3-skbuild python3-wheel  # pip install of the Python package
  python3-pandas python3-dask python3-distributed python3-mypy  # its tables, recipes, stubs
  clang-14 libclang-rt-14-dev              # libFuzzer targets
  clang-format git                         # the formatting check
  octave liboctave-dev                     # the MEX files (mkoctfile) and their test
)

# Installed for this machine's architecture (or for all): the arm64 build of
# a library that the cross build adds does not count.
arch=$(dpkg --print-architecture)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Architecture} ${Status}\n' "$p" 2>/dev/null |
    grep -Eq "^($arch|all) .*ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}" >&2
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
