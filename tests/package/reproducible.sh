#!/usr/bin/env bash
# Builds the packages of the checked-out commit in two folders of different names and compares them byte by byte.
# Usage: tests/package/reproducible.sh ARCHITECTURE...
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 1 ] || { echo "usage: tests/package/reproducible.sh ARCHITECTURE..." >&2; exit 2; }

project=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for folder in "$scratch/one" "$scratch/another/place"; do
    git clone --quiet --no-hardlinks "$project" "$folder"
    mkdir "$folder/build"
    # The same headers and libraries for both; they would take a while to fetch again.
    [ ! -d "$project/build/armhf-sysroot" ] || {
        cp -al "$project/build/armhf-sysroot" "$folder/build/"
        cp "$project/build/armhf-sysroot.recipe" "$folder/build/"
    }
    "$folder/scripts/package" "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }
done

status=0
for package in "$scratch"/one/build/packages/*.deb; do
    cmp "$package" "$scratch/another/place/build/packages/$(basename "$package")" || status=1
done
exit $status
