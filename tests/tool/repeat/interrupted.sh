#!/usr/bin/env bash
# Presses Ctrl-C during a run of many attempts: it ends with its summary, and the lock between processes is free.
# Usage: tests/tool/repeat/interrupted.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/tool/repeat/interrupted.sh BUILD_FOLDER" >&2; exit 2; }
build=$(cd "$1" && pwd)
export PATH="$build/tool:$build/simulator:$PATH"
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"
failed() { cat output errors >&2; echo "$1" >&2; exit 1; }

status=0
authchip lock seed >/dev/null
authchip-sim --busy-ms 1 -- bash -c '
    env --default-signal=INT authchip -d /dev/i2c-7 -a 0x2a sign --for 2d --json-lines >output &
    until [ "$(wc -l <output)" -ge 10 ]; do sleep 0.1; done
    kill -INT $!
    wait $!' 2>errors || status=$?
[ $status -eq 0 ] || failed "exit status $status"
tail -1 output | grep -q '^{"summary":{"attempts":[1-9][0-9]*,"successes":[1-9][0-9]*,"failures":0,' ||
    failed "the last line is no summary"
authchip lock status | grep -q '^value .*free' || { authchip lock status >&2; failed "the lock is not free"; }
authchip lock remove >/dev/null
