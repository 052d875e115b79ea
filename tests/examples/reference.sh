#!/usr/bin/env bash
# Runs an example of the reference, in front of a simulated chip if there is one, and compares what it prints.
# Usage: tests/examples/reference.sh PROGRAM EXPECTED [SIMULATOR]      lines of EXPECTED are separated by blanks
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 2 ] || { echo "usage: tests/examples/reference.sh PROGRAM EXPECTED [SIMULATOR]" >&2; exit 2; }

program=$1 expected=$2 simulator=${3:-}
command=("$program")
[ -z "$simulator" ] || command=("$simulator" -- "$program" /dev/i2c-7 0x2a)
errors=$(mktemp)
trap 'rm "$errors"' EXIT
status=0
actual=$("${command[@]}" 2>"$errors" | paste -sd ' ') || status=$?
if [ $status -ne 0 ] || [ "$actual" != "$expected" ]; then
    cat "$errors" >&2
    echo "expected '$expected', got '$actual', exit status $status" >&2
    exit 1
fi
