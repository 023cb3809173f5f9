#!/usr/bin/env bash
# Builds strix for another platform and runs its unit and end-to-end tests
# there under emulation:
#   bash tools/cross.sh arm64     Linux on ARM64: build-arm64/strix, under qemu-aarch64-static
#   bash tools/cross.sh windows   Windows x64: build-windows/strix.exe, under Wine
# Missing Debian packages are installed first. zstd (Windows) and ISA-L are
# built for the target from Debian's source packages, once, into a cache
# outside the tree: ${XDG_CACHE_HOME:-~/.cache}/strix-cross/TARGET.
set -euo pipefail
cd "$(dirname "$0")/.."

target=${1-}
case $target in
  arm64) triple=aarch64-linux-gnu ;;
  windows) triple=x86_64-w64-mingw32 ;;
  *) echo "usage: bash tools/cross.sh arm64|windows" >&2; exit 1 ;;
esac
cache=${XDG_CACHE_HOME:-$HOME/.cache}/strix-cross
prefix=$cache/$target
build=build-$target
jobs=2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo

bash tools/setup.sh

apt_get() {
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 -y -qq "$@"
}

# Installs those of the packages (NAME or NAME:ARCH) that are missing.
need() {
  local missing=() p
  for p; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed' || missing+=("$p")
  done
  ((${#missing[@]})) || return 0
  echo "cross: installing ${missing[*]}" >&2
  apt_get update
  apt_get install --no-install-recommends "${missing[@]}" >/dev/null
}

# Unpacks Debian's source package into $cache/src once; prints its folder.
# The deb-src entries come from the archive the machine already uses: its
# deb entries again with "deb-src", in a file of their own.
source_package() {
  local dir list=/etc/apt/sources.list.d/strix-deb-src
  dir=$(find "$cache/src" -maxdepth 1 -type d -name "$1-[0-9]*" 2>/dev/null | sort | tail -n 1)
  if [ -z "$dir" ]; then
    if ! apt-get indextargets --format '$(IDENTIFIER)' | grep -x Sources >/dev/null; then
      if [ -f /etc/apt/sources.list.d/debian.sources ]; then
        awk 'BEGIN { RS = "" }
             { n = split($0, line, "\n"); text = ""; deb = 0
               for (i = 1; i <= n; i++) {
                 if (line[i] ~ /^(#|Architectures:)/) continue
                 if (line[i] ~ /^Types:/) { deb = line[i] ~ /[ \t]deb([ \t]|$)/; line[i] = "Types: deb-src" }
                 text = text line[i] "\n" }
               if (deb) printf "%s\n", text }' /etc/apt/sources.list.d/debian.sources |
          $sudo tee "$list.sources" >/dev/null
      else
        sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' /etc/apt/sources.list | $sudo tee "$list.list" >/dev/null
      fi
      apt_get update
    fi
    mkdir -p "$cache/src"
    (cd "$cache/src" && apt-get source -qq "$1" >/dev/null)
    dir=$(find "$cache/src" -maxdepth 1 -type d -name "$1-[0-9]*" | sort | tail -n 1)
  fi
  echo "$dir"
}

# ISA-L's deflate and CRC as a static library, with its headers and a
# pkg-config file, in $prefix; with "programs" also its igzip, in $prefix/bin.
# The arguments after the units name the target for ISA-L's make.
build_isal() {
  [ -f "$prefix/lib/pkgconfig/libisal.pc" ] && return
  local units=$1 src version work=$cache/isal-$target
  shift
  src=$(source_package libisal)
  version=$(sed -n 's/^version ?= *//p' "$src/make.inc")
  rm -rf "$work" && cp -a "$src" "$work"
  # have_threads: only igzip's -T uses threads.
  make -C "$work" -f Makefile.unx -j"$jobs" units="igzip $units" have_threads=n "$@" \
    lib isa-l.h ${units:+progs} >/dev/null
  mkdir -p "$prefix/lib/pkgconfig" "$prefix/include/isa-l" "$prefix/bin"
  cp "$work/bin/isa-l.a" "$prefix/lib/libisal.a"
  cp "$work"/include/*.h "$prefix/include/isa-l/"
  cp "$work/isa-l.h" "$prefix/include/"
  [ -z "$units" ] || cp "$work/programs/igzip" "$prefix/bin/"
  printf '%s\n' "prefix=$prefix" 'libdir=${prefix}/lib' 'includedir=${prefix}/include' '' \
    'Name: libisal' 'Description: Intelligent Storage Acceleration Library' "Version: $version" \
    'Libs: -L${libdir} -lisal' 'Cflags: -I${includedir}' >"$prefix/lib/pkgconfig/libisal.pc"
  rm -rf "$work"
}

# zstd as a static library with its CMake package, in $prefix.
build_zstd() {
  [ -f "$prefix/lib/cmake/zstd/zstdConfig.cmake" ] && return
  local src work=$cache/zstd-$target
  src=$(source_package libzstd)
  cmake -S "$src/build/cmake" -B "$work" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DZSTD_BUILD_PROGRAMS=OFF \
    -DZSTD_BUILD_TESTS=OFF -DZSTD_BUILD_SHARED=OFF -DZSTD_BUILD_STATIC=ON >/dev/null
  cmake --build "$work" -j"$jobs" >/dev/null
  cmake --install "$work" >/dev/null
  rm -rf "$work"
}

toolchain=$PWD/cmake/toolchains/$triple.cmake
# No Python module (nor MEX files): the build machine's Python and Octave
# cannot load the target's.
cmake_args=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_PREFIX_PATH="$prefix"
            -DSTRIX_BUILD_PYTHON=OFF -DSTRIX_BUILD_FUZZERS=OFF -DSTRIX_WERROR=ON)
case $target in
  arm64)
    dpkg --print-foreign-architectures | grep -qx arm64 || $sudo dpkg --add-architecture arm64
    need dpkg-dev g++-aarch64-linux-gnu qemu-user-static \
      libzstd-dev:arm64 libfmt-dev:arm64 libgtest-dev:arm64
    # libisal-dev:arm64 would replace the native package: ISA-L from source,
    # with the target's igzip, the reference its gzip members are checked by.
    build_isal programs arch=aarch64 host_cpu=aarch64 CC=aarch64-linux-gnu-gcc AR=aarch64-linux-gnu-ar
    ;;
  windows)
    need dpkg-dev g++-mingw-w64-x86-64-posix nasm wine64 wine
    build_isal "" arch=mingw AS=nasm CC=x86_64-w64-mingw32-gcc-posix AR=x86_64-w64-mingw32-ar
    build_zstd
    # {fmt} header-only from Debian's headers, as a package in the build
    # tree: -I/usr/include would bring the build machine's C library along.
    fmt=$PWD/$build/fmt
    mkdir -p "$fmt/include"
    cp -r /usr/include/fmt "$fmt/include/"
    cp "$(dpkg -L "libfmt-dev:$(dpkg --print-architecture)" | grep '/fmt-config-version.cmake$')" "$fmt/"
    cat >"$fmt/fmt-config.cmake" <<'EOF'
if(NOT TARGET fmt::fmt)
  add_library(fmt::fmt INTERFACE IMPORTED)
  set_target_properties(fmt::fmt PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${CMAKE_CURRENT_LIST_DIR}/include"
                                            INTERFACE_COMPILE_DEFINITIONS FMT_HEADER_ONLY=1)
endif()
EOF
    cmake_args+=(-DCMAKE_PREFIX_PATH="$prefix;$fmt" -DCMAKE_FIND_ROOT_PATH="$prefix;$fmt")
    # One Wine prefix, made before the tests, and one server for all their
    # runs, with Wine's own services started here: started by a test, they
    # would hold its output open.
    export WINEPREFIX=$cache/wine WINEDEBUG=-all
    mkdir -p "$WINEPREFIX"
    wineserver -p
    trap 'wineserver -k' EXIT
    wineboot -i </dev/null >/dev/null 2>&1
    ;;
esac

cmake -S . -B "$build" "${cmake_args[@]}" >/dev/null
cmake --build "$build" -j"$jobs"
(cd "$build" && ctest --output-on-failure -j"$jobs")
echo "cross $target: all tests passed"
