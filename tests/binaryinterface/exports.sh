#!/usr/bin/env bash
# Compares the exported symbols with the promised ones: exactly the same.
# Usage: tests/binaryinterface/exports.sh NM LIBRARY EXPORT_LIST
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/binaryinterface/exports.sh NM LIBRARY EXPORT_LIST" >&2; exit 2; }

promised=$(sed -n 's/^ *"\(.*\)";$/\1/p' "$3" | LC_ALL=C sort)
[ -n "$promised" ] || { echo "$3 promises nothing" >&2; exit 1; }
# The several bodies of a constructor or destructor have one name here.
exported=$("$1" --dynamic --defined-only --format=posix "$2" | cut -d ' ' -f 1 | c++filt | LC_ALL=C sort -u)
if ! difference=$(diff <(echo "$promised") <(echo "$exported")); then
    echo "$2 does not export what $3 promises (< promised and missing, > exported and not promised):" >&2
    grep '^[<>]' <<<"$difference" >&2
    exit 1
fi
