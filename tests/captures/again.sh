#!/usr/bin/env bash
# Records one row of recordings.txt again, plays the capture back, and compares what the command says: output, errors and
# exit status, the same but for the times.
# Usage: tests/captures/again.sh BUILD_FOLDER NAME
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/captures/again.sh BUILD_FOLDER NAME" >&2; exit 2; }
build=$(cd "$1" && pwd)
wanted=$2
export PATH="$build/tool:$build/simulator:$PATH"
cd "$(dirname "$0")"
source ./recordings
unset AUTHCHIP_DEVICE AUTHCHIP_ADDRESS
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT

says() { # NAME COMMAND...
    local name=$1 status=0
    shift
    "$@" >"$scratch/$name.output" 2>"$scratch/$name.errors" </dev/null || status=$?
    sed -i -e 's/([0-9.]* ms, /(/' -e '/ note: the bus is slow/{N;d}' "$scratch/$name.output" # a replay takes no time
    sed -i '/^authchip-sim: at random: /d' "$scratch/$name.errors" # a replay has nothing of its own
    echo "$status" >"$scratch/$name.status"
}
play() { # NAME OPTIONS COMMAND
    [ "$1" = "$wanted" ] || return 0
    local command=(authchip -d /dev/i2c-7 -a 0x2a $3) part
    says first authchip-sim $2 -- authchip capture -o "$scratch/chip.pcapng" -- "${command[@]}"
    says again authchip-sim --replay "$scratch/chip.pcapng" -- "${command[@]}"
    for part in output errors status; do
        diff -u "$scratch/first.$part" "$scratch/again.$part" || { echo "$1: $part differs" >&2; exit 1; }
    done
    [ "$(cat "$scratch/again.status")" != 125 ]
    played=yes
}
played=no
each_recording play
[ "$played" = yes ] || { echo "recordings.txt has no row $wanted" >&2; exit 1; }
