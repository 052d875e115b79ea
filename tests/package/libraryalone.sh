#!/usr/bin/env bash
# Configures this project without tests and tools: it needs nothing that only those need, and has no test.
# Usage: tests/package/libraryalone.sh
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac

scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }

not_here=()
for package in GTest CLI11 nlohmann_json OpenSSL PkgConfig; do
    not_here+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
done
quietly cmake -S "$(dirname "$0")/../.." -B "$scratch/build" -G Ninja "${not_here[@]}" \
    -DBUILD_TESTING=OFF -DAUTHCHIPDRIVER_TOOLS=OFF
if [ -e "$scratch/build/CTestTestfile.cmake" ]; then
    echo "there are tests, though nobody wants any" >&2
    exit 1
fi
