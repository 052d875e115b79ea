#!/usr/bin/env bash
# Installs what a developer gets into a prefix of its own, and builds a program against that copy alone: once with CMake,
# once with pkg-config and the bare compiler. Both find a simulated chip.
# Usage: tests/package/outside.sh BUILD_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/package/outside.sh BUILD_FOLDER COMPILER COMPILER_FLAGS" >&2; exit 2; }

build=$1 compiler=$2
read -ra flags <<<"$3"
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }

for component in runtime development; do
    quietly "$(dirname "$0")/../support/install" "$build" --prefix "$scratch/prefix" --component "$component"
done
# Moved, because an installed copy may be in any folder.
mv "$scratch/prefix" "$scratch/moved"
cp -r "$(dirname "$0")/outside" "$scratch/source"

quietly cmake -S "$scratch/source" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/moved" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$3 -Wall -Wextra -Werror"
quietly cmake --build "$scratch/cmake"

modules=$(dirname "$(find "$scratch/moved" -name authchipdriver.pc)")
read -ra from_pkgconfig < <(unset PKG_CONFIG_SYSROOT_DIR
    PKG_CONFIG_PATH=$modules pkg-config --cflags --libs authchipdriver-defaulthook)
quietly "$compiler" -std=c++11 "${flags[@]}" -Wall -Wextra -Werror -o "$scratch/plain" "$scratch/source/main.cpp" \
    "${from_pkgconfig[@]}" "-Wl,-rpath,$(dirname "$modules")"

for program in "$scratch/cmake/outside" "$scratch/plain"; do
    answer=$("$build/simulator/authchip-sim" --device-version 5 -- "$program" /dev/i2c-7)
    [ "$answer" = "device version 5" ] || { echo "$program answers: $answer" >&2; exit 1; }
done
