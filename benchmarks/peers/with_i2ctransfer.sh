#!/usr/bin/env bash
# The version query with i2ctransfer, a process for each.
# Usage: with_i2ctransfer.sh    answers each line "version TIMES" of standard input with the nanoseconds that it took
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac

microseconds() { echo "${EPOCHREALTIME/[.,]/}"; }

while read -r _ times; do
    start=$(microseconds)
    for ((time = 0; time < times; ++time)); do
        i2ctransfer -y 7 w1@0x2a 0x00 r1 >/dev/null
    done
    echo $((($(microseconds) - start) * 1000))
done
