#!/usr/bin/env bash
# Installs the library into a prefix of its own, builds the example against that copy alone, and runs it in front of
# simulated chips of both generations, and without a chip.
# Usage: tests/examples/minimal-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/examples/minimal-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS" >&2; exit 2; }

build=$1
source "$(dirname "$0")/example.sh"
build_example minimal-host "$@"

expect() { # EXPECTED COMMAND...
    local expected=$1 actual
    shift
    actual=$("$@" 2>"$scratch/complaints") || { echo "status $?: $*" >&2; exit 1; }
    [[ $actual == $expected ]] || { echo "expected '$expected', got '$actual'" >&2; exit 1; }
    [ ! -s "$scratch/complaints" ] || { cat "$scratch/complaints" >&2; echo "complaints: $*" >&2; exit 1; }
}
sim=$build/simulator/authchip-sim
host=$scratch/host/minimal-host
expect "certificate of * bytes, challenge of 20 bytes, signature of 128 bytes" \
    "$sim" --device-version 3 -- "$host" /dev/i2c-7 0x2a
expect "certificate of * bytes, challenge of 32 bytes, signature of 64 bytes" \
    "$sim" --device-version 7 -- "$host" /dev/i2c-7 0x2a
expect_no_words_on_the_node "$host" NODE 0x2a
if "$host" /dev/i2c-missing 0x2a >"$scratch/log" 2>&1; then
    echo "the host finds a chip where there is no node" >&2
    exit 1
fi
grep -q "Unable to open /dev/i2c-missing" "$scratch/log"
