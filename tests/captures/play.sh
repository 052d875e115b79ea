#!/usr/bin/env bash
# Plays captures back: what 'authchip decode' says about each, and what the command says that its name begins with, in
# front of the chip of the capture, is compared with the file NAME.txt beside it.
# Usage: tests/captures/play.sh [--update] BUILD_FOLDER NAME...
#   --update  writes what came into the files instead; look at the difference before it is committed
#
# A capture is added by putting NAME.pcapng here and running this with --update. Its challenge is used again. A random
# one, as of authenticate, cannot come again: the chip then answers by register.
set -euo pipefail

source "$(dirname "$0")/../support/goldenfiles"
cd "$(dirname "$0")"

# fact PATTERN CAPTURE: the first match in what the capture says to programs.
fact() { authchip decode --json "$2" 2>/dev/null | grep -oP "$1" | head -n 1 || true; }

# What differs from run to run, and what is not of the bus.
normalised() {
    perl -0777 -pe 's/^lock  .*\n(?: +.*\n)*//gm; s/^check validity .*\n//m; s/^((?:challenge|signature) +)([0-9a-f]+(?:\n +[0-9a-f]+)*)$/$1<bytes>/gm; s/(\.cpp:)\d+/$1LINE/g; s/\(\d+\.\d ms, /(TIME, /g' "$1"
}

# section COMMAND...: the command, what it says, and how it ends.
section() {
    local result=0
    "$@" >"$scratch/output" 2>"$scratch/errors" </dev/null || result=$?
    printf '$ %s\n' "$*"
    normalised "$scratch/output"
    [ ! -s "$scratch/errors" ] || { echo "--- errors"; normalised "$scratch/errors"; }
    printf -- '--- status %d\n' "$result"
}

status=0
for name in "$@"; do
    capture=$name.pcapng
    command=${name%%-*} options=() loosely=()
    case $command in
        sign) options=(--challenge "$(fact '"read":false,"register":33,[^}]*"data":"21\K[0-9a-f]+' "$capture")") ;;
        authenticate) loosely=(--replay-loosely) ;;
    esac
    location=(-d "/dev/i2c-$(fact '"bus":\K\d+' "$capture")" -a "$(printf 0x%02x "$(fact '"address":\K\d+' "$capture")")")
    {
        section authchip decode "$capture"
        section authchip-sim --replay "$capture" "${loosely[@]}" -- authchip "${location[@]}" "$command" "${options[@]}"
    } >"$scratch/actual"
    if $update; then
        cp "$scratch/actual" "$name.txt"
    else
        diff -u "$name.txt" "$scratch/actual" || status=1
    fi
done
exit $status
