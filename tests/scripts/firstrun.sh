#!/usr/bin/env bash
# Runs the demo as with a fresh copy of the source. Fake programs replace what would install and build: missing
# packages are installed, by root or with sudo, then exactly what the demo shows is built, and it is shown.
# Usage: tests/scripts/firstrun.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/scripts/firstrun.sh BUILD_FOLDER" >&2; exit 2; }

build=$(cd "$1" && pwd)
project=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
export calls=$scratch/calls
mkdir -p "$scratch"/{bin,checkout/build,checkout/tests}
cp -r "$project/scripts" "$scratch/checkout/"
cp -r "$project/tests/scripts" "$scratch/checkout/tests/"
ln -s "$build" "$scratch/checkout/build/dev"

stand_in() { # PROGRAM LINE_OF_SHELL
    printf '#!/bin/sh\n%s\n' "$2" >"$scratch/bin/$1"
    chmod +x "$scratch/bin/$1"
}
for program in cmake apt-get sudo; do
    stand_in "$program" 'echo "${0##*/} $*" >>"$calls"'
done
# Like the real one: a simulated installation ends with a failure.
stand_in apt-get 'echo "${0##*/} $*" >>"$calls"
case "$*" in *--assume-no*) echo "Need to get 169 MB of archives."; exit 1 ;; esac'
stand_in id 'echo "$user"'
stand_in dpkg-query 'for last; do :; done; case " $absent " in *" $last "*) exit 1 ;; *) echo installed ;; esac'
PATH=$scratch/bin:$PATH

# Runs a command of the checkout and compares its calls.
expect_calls() { # EXPECTED COMMAND...
    local expected=$1
    shift
    : >"$calls"
    "$scratch/checkout/$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }
    diff -u <(printf "$expected") "$calls" || { echo "$1 does not call what is expected (user $user)" >&2; exit 1; }
}
builds="cmake --preset dev\ncmake --build --preset dev --target authchip --target authchip-sim\n"
asks="apt-get install --assume-no --no-install-recommends cmake libgtest-dev"
installs="apt-get install -y -qq --no-install-recommends cmake libgtest-dev"

export user=1000 absent=
expect_calls "$builds" tests/scripts/demo.sh
absent="libgtest-dev cmake"
expect_calls "sudo apt-get update -qq\nsudo $asks\nsudo env DEBIAN_FRONTEND=noninteractive $installs\n" scripts/setup
user=0
expect_calls "apt-get update -qq\n$asks\n$installs\n" scripts/setup
grep -qF "Installing cmake libgtest-dev and what they need (169 MB to download)" "$scratch/log" || {
    echo "scripts/setup does not say how much it downloads" >&2
    exit 1
}
