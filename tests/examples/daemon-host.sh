#!/usr/bin/env bash
# Builds the example against an installed copy of the library, and waits until the daemon that it becomes has ended.
# Usage: tests/examples/daemon-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/examples/daemon-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS" >&2; exit 2; }

build=$1
source "$(dirname "$0")/example.sh"
build_example daemon-host "$@"

# The daemon has the other end of the pipe: cat returns when it has ended, and the simulated bus stays until then.
expected="the daemon has found device version 7"
answer=$("$build/simulator/authchip-sim" -- sh -c "'$scratch/host/daemon-host' /dev/i2c-7 0x2a 2>&1 | cat")
[ "$answer" = "$expected" ] || { echo "expected '$expected', got '$answer'" >&2; exit 1; }
expect_no_words_on_the_node "$scratch/host/daemon-host" NODE 0x2a
