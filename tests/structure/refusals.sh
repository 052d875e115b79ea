#!/usr/bin/env bash
# Shows on a small source that includes.pl and functions.pl refuse what they are for.
# Usage: tests/structure/refusals.sh
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
cd "$(dirname "$0")"
source=$(mktemp -d)
trap 'rm -r "$source"' EXIT

mkdir "$source/bottom" "$source/top" "$source/tests"
printf '%s\n' 'bottom:' 'top: bottom' >"$source/folders.txt"
touch "$source/bottom/low.h" "$source/top/high.h" "$source/tests/test.h"
write() { printf '%s\n' "${@:2}" >"$source/$1"; }
write top/high.cpp '#include "top/high.h"' '#include "bottom/low.h"'

fails_with() { # WHAT COMMAND...
    local output
    ! output=$("${@:2}" 2>&1) || { echo "accepted: $1" >&2; exit 1; }
    grep -qF "$1" <<<"$output" || { echo "said of '$1': $output" >&2; exit 1; }
}
includes() { ./includes.pl "$source/folders.txt" "$source"; }

includes
write bottom/low.cpp '#include "top/high.h"'
fails_with 'bottom/low.cpp:1: bottom may not include from top' includes
fails_with 'a circle: bottom -> top -> bottom' includes
write bottom/low.cpp '#include <tests/test.h>'
fails_with 'bottom may not include from tests' includes
rm "$source/bottom/low.cpp"
write folders.txt 'top: bottom' 'bottom:'
fails_with 'top names bottom, which is not above it' includes
write folders.txt 'bottom:' 'middle: bottom' 'top: bottom'
fails_with 'no file of middle includes from bottom any more' includes

function_of() { write top/high.cpp 'int f()' '{' "$(yes '    g();' | head -n "$1")" '}'; }
function_of 40
./functions.pl "$source"
function_of 41
fails_with 'top/high.cpp:1: a function of 41 lines' ./functions.pl "$source"
