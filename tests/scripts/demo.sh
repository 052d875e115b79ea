#!/usr/bin/env bash
# Watches the demo: both generations are authenticated, the wrong signature is found out, and nothing goes to standard
# error, since that is no terminal here.
# Usage: tests/scripts/demo.sh [DEMO OPTION...]
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac

project=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch" # the demo finds its project from anywhere

"$project/scripts/demo" "$@" >transcript 2>errors || { cat transcript errors >&2; exit 1; }

sed -E 's/^([a-z ]+[a-z])  +/\1  /' transcript >words # whatever the width of the first column
expect() { # COUNT LINE
    [ "$(grep -cxF "$2" words)" -eq "$1" ] || { cat transcript >&2; echo "not $1 times: $2" >&2; exit 1; }
}
expect 2 "protocol  2.0B, device version 3"
expect 3 "protocol  3.0, device version 7"
expect 2 "result  authentic: the chip holds the key of its certificate"
expect 1 "result  NOT AUTHENTIC"
expect 1 "(exit status 3)"
[ ! -s errors ] || { cat errors >&2; exit 1; }
