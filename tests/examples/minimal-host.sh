#!/usr/bin/env bash
# Installs the library into a prefix of its own, builds the example against that copy alone, and runs it in front of
# simulated chips of both generations, and without a chip.
# Usage: tests/examples/minimal-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/examples/minimal-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS" >&2; exit 2; }

build=$1
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
# A copy: nothing of ours is beside it by chance.
cp -r "$(dirname "$0")/../../examples/minimal-host" "$scratch/source"

quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }
for component in runtime development; do
    quietly cmake --install "$build" --prefix "$scratch/prefix" --component "$component"
done
quietly cmake -S "$scratch/source" -B "$scratch/host" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" \
    -DCMAKE_CXX_COMPILER="$2" -DCMAKE_CXX_FLAGS="$3 -Wall -Wextra -Wpedantic -Wconversion -Werror"
quietly cmake --build "$scratch/host"

expect() { # EXPECTED COMMAND...
    local expected=$1 actual
    shift
    actual=$("$@") || { echo "status $?: $*" >&2; exit 1; }
    [[ $actual == $expected ]] || { echo "expected '$expected', got '$actual'" >&2; exit 1; }
}
sim=$build/simulator/authchip-sim
host=$scratch/host/minimal-host
expect "certificate of * bytes, challenge of 20 bytes, signature of 128 bytes" \
    "$sim" --device-version 3 -- "$host" /dev/i2c-7 0x2a
expect "certificate of * bytes, challenge of 32 bytes, signature of 64 bytes" \
    "$sim" --device-version 7 -- "$host" /dev/i2c-7 0x2a
if "$host" /dev/i2c-missing 0x2a >"$scratch/log" 2>&1; then
    echo "the host finds a chip where there is no node" >&2
    exit 1
fi
grep -q "Unable to open /dev/i2c-missing" "$scratch/log"
