#!/usr/bin/env bash
# Compiles each public header alone, with every standard that a host may use and all warnings, and looks through what it
# pulls in.
# Usage: tests/binaryinterface/headers.sh COMPILER HEADER...
# The status is 77 if there is no such compiler.
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 2 ] || { echo "usage: tests/binaryinterface/headers.sh COMPILER HEADER..." >&2; exit 2; }
compiler=$1
shift
project=$(cd "$(dirname "$0")/../.." && pwd)
cd "$project"
command -v "$compiler" >/dev/null || { echo "skipped: $compiler is not installed"; exit 77; }

warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnon-virtual-dtor -Wundef -Werror)
# Everything that clang++ knows, but for the advice to write for older or for its own standard libraries.
[ "$compiler" = clang++ ] && warnings=(-Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-padded -Werror)
status=0
for header in "$@"; do
    name=${header#"$project/"}
    for standard in 11 14 17 20; do
        echo "#include <$name>" |
            "$compiler" -std=c++$standard "${warnings[@]}" -I . -fsyntax-only -x c++ - ||
            { echo "$name: not with $compiler as C++$standard" >&2; status=1; }
    done
    # What the header and our other headers ask for themselves; the C++ library may use what it likes.
    foreign=$(echo "#include <$name>" | "$compiler" -std=c++11 -I . -M -x c++ - | tr -s ' \\' '\n\n' |
        grep -E '^(abstractionlibrary|authchipdriver|\./)' |
        xargs grep -hoE '^ *# *include *[<"][^>"]*[>"]' |
        grep -vE '<(abstractionlibrary|authchipdriver)/[a-z0-9]+\.h>|<(cstddef|cstdint|iosfwd|map|string)>' || true)
    [ -z "$foreign" ] || { echo "$name: pulls in" $foreign >&2; status=1; }
done
exit $status
