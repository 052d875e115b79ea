#!/usr/bin/env bash
# Compares what the packages say that they need with what dpkg-shlibdeps finds in their programs and libraries: the same
# packages, and none older than found. For a machine of the packages' release and architecture, with what it takes to
# build them.
# Usage: tests/package/needs.sh PACKAGE_FOLDER ARCHITECTURE
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/package/needs.sh PACKAGE_FOLDER ARCHITECTURE" >&2; exit 2; }

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
status=0
mkdir -p "$scratch/work/debian" "$scratch/library"
touch "$scratch/work/debian/control"
dpkg-deb --extract "$(echo "$1"/libauthchipdriver1_*_"$2".deb)" "$scratch/library"
library=$(dirname "$(find "$scratch/library" -name libauthchipdriver.so.1)")
for name in libauthchipdriver1 authchip-tools authchip-sim; do
    package=$(echo "$1/$name"_*_"$2".deb)
    dpkg-deb --extract "$package" "$scratch/$name"
    mapfile -t files < <(find "$scratch/$name" -type f -exec sh -c 'head -c 4 "$1" | grep -q ELF' sh {} \; -print)
    [ ${#files[@]} -gt 0 ] || { echo "$package holds no program" >&2; exit 1; }
    # Our own library comes from no package of this machine; the package names it by its exact version.
    found=$(cd "$scratch/work" && dpkg-shlibdeps --ignore-missing-info -O -l"$library" -xlibauthchipdriver1 "${files[@]}" \
        2>"$scratch/log") || { cat "$scratch/log" >&2; exit 1; }
    said=$(dpkg-deb --field "$package" Depends | sed 's/, */\n/g' | grep -vE '^(libauthchipdriver1|umockdev) ')
    found=$(echo "${found#*=}" | sed 's/, */\n/g')
    diff <(cut -d ' ' -f 1 <<<"$found" | sort) <(cut -d ' ' -f 1 <<<"$said" | sort) >"$scratch/difference" || {
        echo "$(basename "$package") should need (<) what it does not, or need not (>) what it does:" >&2
        cat "$scratch/difference" >&2
        status=1
    }
    while read -r need _ oldest; do
        stated=$(sed -n "s/^$need (>= \(.*\))/\1/p" <<<"$said")
        dpkg --compare-versions "${stated:-0}" ge "${oldest:+${oldest%)}}" || {
            echo "$(basename "$package") says $need (>= ${stated:-any}), and needs at least ${oldest%)}" >&2
            status=1
        }
    done <<<"$found"
done
exit $status
