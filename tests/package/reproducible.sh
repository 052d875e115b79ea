#!/usr/bin/env bash
# Builds the packages of this machine's release again in a folder of another name, and compares them byte by byte with
# those of scripts/package.
# Usage: tests/package/reproducible.sh ARCHITECTURE...
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 1 ] || { echo "usage: tests/package/reproducible.sh ARCHITECTURE..." >&2; exit 2; }

release=$(. /etc/os-release && echo "$VERSION_CODENAME")
project=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
chmod 755 "$scratch" # the checker of links runs as nobody
again=$scratch/a/folder/of/another/name
mkdir -p "$again/build"
tar -C "$project" --exclude=./build --exclude=./install --exclude=./.git -c . | tar -C "$again" -x
# The same headers and libraries for both; they would take a while to fetch again.
[ ! -d "$project/build/sysroot" ] || cp -a "$project/build/sysroot" "$again/build/"
: "${SOURCE_DATE_EPOCH:=$(stat --format=%Y "$project/build/packages/$release/.time")}"
export SOURCE_DATE_EPOCH
"$again/scripts/package" "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }

status=0
for architecture in "$@"; do
    for package in "$project/build/packages/$release"/*_"$architecture".deb; do
        cmp "$package" "$again/build/packages/$release/$(basename "$package")" || status=1
    done
done
exit $status
