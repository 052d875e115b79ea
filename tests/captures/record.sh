#!/usr/bin/env bash
# Makes the captures that recordings.txt names: one for each fault of the simulator and each cause of 'authchip doctor' that
# shows on the bus. They are kept in the repository. A capture of a real board has no row there.
# Usage: tests/captures/record.sh BUILD_FOLDER [NAME...]    without NAME, the captures that are missing
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 1 ] || { echo "usage: tests/captures/record.sh BUILD_FOLDER [NAME...]" >&2; exit 2; }
build=$(cd "$1" && pwd)
shift
wanted=("$@")
export PATH="$build/tool:$build/simulator:$PATH"
cd "$(dirname "$0")"
source ./recordings

record() { # NAME OPTIONS COMMAND
    local name=$1
    if [ ${#wanted[@]} -eq 0 ]; then
        [ ! -e "$name.pcapng" ] || return 0
    else
        [[ " ${wanted[*]} " == *" $name "* ]] || return 0
    fi
    # A fault is what is recorded, so the command may fail.
    authchip-sim $2 -- authchip capture -o "$name.pcapng" -- authchip -d /dev/i2c-7 -a 0x2a $3 >/dev/null 2>&1 || true
    echo "$name"
}
each_recording record
