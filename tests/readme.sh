#!/usr/bin/env bash
# Does what the README tells its reader to do: runs every command, compares what comes with the transcripts, and looks
# the lines of C++ up in the example that they are from.
# Usage: tests/readme.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/readme.sh BUILD_FOLDER" >&2; exit 2; }

build=$(cd "$1" && pwd)
cd "$(dirname "$0")/.."
unset AUTHCHIP_DEVICE AUTHCHIP_ADDRESS
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
mkdir "$scratch/tmp"
export TMPDIR=$scratch/tmp # with it a lock between processes that no other test has

blocks() { # LANGUAGE: the lines inside the blocks of a language
    awk -v language="$1" '/^```/ { inside = ($0 == "```" language); next } inside' README.md
}
# The programs of this build, nothing left in the reader's folders nor in those of the build, and no test suite inside
# the test suite.
here() {
    sed -E -e "s#^cmake --install #tests/support/install #" -e "s#(\\\$PWD/)?build/(dev|installed|minimal-host)#@\2@#g" \
        -e "s#^scripts/demo\$#scripts/demo --no-build @dev@#; s#^scripts/test\$#scripts/test --help#" \
        -e "s#@dev@#$build#g; s#@(installed|minimal-host)@#$scratch/\1#g"
}
normalised() {
    perl -0777 -pe 's/^((?:challenge|signature) +)[0-9a-f]+(?:\n +[0-9a-f]+)*$/$1<bytes>/gm'
}

failed() { echo "README.md: $1" >&2; exit 1; }

while IFS= read -r line; do
    [ -z "$line" ] || grep -qxF -e "$line" -e "    $line" examples/minimal-host/main.cpp || failed "not in the example: $line"
done < <(blocks cpp)

blocks sh | here >"$scratch/commands"
[ -s "$scratch/commands" ] || failed "no commands found"
bash -eux "$scratch/commands" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; failed "a command failed"; }

# One shell for all commands of the transcripts, as the reader has it; a failing command is part of them.
blocks console | sed -n 's/^\$ //p' | here >"$scratch/typed"
[ -s "$scratch/typed" ] || failed "no transcript found"
while IFS= read -r line; do
    printf 'printf "%%s\\n" %q\n%s\n' "\$ $line" "$line"
done <"$scratch/typed" >"$scratch/session"
{ bash "$scratch/session" 2>&1 </dev/null || true; } | normalised >"$scratch/actual"
blocks console | here | normalised >"$scratch/expected"
diff -u "$scratch/expected" "$scratch/actual" || failed "what came differs from the transcript"
