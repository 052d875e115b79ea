#!/usr/bin/env bash
# Looks whether every test of a build runs apart, and none expects anything of the environment besides.
# Usage: tests/apart/everytest.sh BUILD_FOLDER APART
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/apart/everytest.sh BUILD_FOLDER APART" >&2; exit 2; }

# Of each test the name, the program, and ENVIRONMENT if there is that property.
tests=$(cd "$1" && ctest --show-only=json-v1 | awk -F '"' '
    function print_test() { if (program != "") print name "\t" program environment; program = environment = "" }
    /"command" : *$/ { print_test(); getline; getline; program = $2 }
    $2 == "name" && $4 ~ /^ENVIRONMENT/ { environment = "\tENVIRONMENT" }
    /^      "name"|^\t\t\t"name"/ { name = $4 }
    END { print_test() }')
[ "$(wc -l <<<"$tests")" -ge 100 ] || { echo "only these tests are found: $tests" >&2; exit 1; }
others=$(awk -F '\t' -v apart="$2" '$2 != apart || $3 != ""' <<<"$tests")
[ -z "$others" ] || {
    printf 'These do not run apart, or have a property ENVIRONMENT; see add_apart_test():\n%s\n' "$others" >&2
    exit 1
}
