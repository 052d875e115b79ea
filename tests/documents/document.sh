#!/usr/bin/env bash
# Follows the instructions of a document: runs every command in a block of sh, compares what comes with the
# transcripts in blocks of console, looks the lines of cpp up in the examples, and looks for every file that it links to.
# Usage: tests/documents/document.sh BUILD_FOLDER DOCUMENT
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/documents/document.sh BUILD_FOLDER DOCUMENT" >&2; exit 2; }

build=$(cd "$1" && pwd)
document=$2
cd "$(dirname "$0")/../.."
unset AUTHCHIP_DEVICE AUTHCHIP_ADDRESS
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
mkdir "$scratch/tmp"
ln -s "$build" "$scratch/dev" # the folder's own path may have a blank
export TMPDIR=$scratch/tmp # with it a lock between processes that no other test has

blocks() { # LANGUAGE: the lines inside the blocks of a language
    awk -v language="$1" '/^```/ { inside = ($0 == "```" language); next } inside' "$document"
}
# The programs of this build, nothing left in the reader's folders nor in those of the build, and no test suite inside
# the test suite.
here() {
    sed -E -e "s#^cmake --install #tests/support/install #" -e "s#(\\\$PWD/)?build/(dev|[a-z-]+)#@\2@#g" \
        -e "s#^scripts/demo\$#scripts/demo --no-build @dev@#; s#^scripts/(test|build)\$#scripts/\1 --help#" \
        -e "s#@([a-z-]+)@#$scratch/\1#g"
}
# What differs from run to run: random bytes, times, and the lock's key file, numbers and owner.
normalised() {
    perl -0777 -pe '
        s/^((?:challenge|signature) +)[0-9a-f]+(?:\n +[0-9a-f]+)*$/$1<bytes>/gm;
        s#^(key file +)\S*/(qipc_)#$1$2#gm;
        s/^(semaphore +)\d+, key \w+$/$1<number>/gm;
        s/^(owner +).*/$1<user>/gm;
        s/^(last user +)\d.*/$1<process>/gm;
        s/\(\d+\.\d ms, /(<time>, /g;
        s/^lock +note: .*\n(?: +.*\n)*//gm; # of the machine, or the container, that this runs on
    '
}

failed() { echo "$document: $1" >&2; exit 1; }

while IFS= read -r line; do
    [ -z "$line" ] || grep -qxhF -e "$line" -e "    $line" examples/*/*.cpp || failed "not in an example: $line"
done < <(blocks cpp)

links=$(grep -oP '\]\(\K[^)#:]+(?=(#[^)]*)?\))' "$document" || true)
while IFS= read -r target; do
    [ -z "$target" ] || [ -e "$(dirname "$document")/$target" ] || failed "links to $target, which does not exist"
done <<<"$links"

blocks sh | here >"$scratch/commands"
bash -eux "$scratch/commands" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; failed "a command failed"; }

# One shell for all commands of the transcripts, as the reader has it; a failing command is part of them.
blocks console | sed -n 's/^\$ //p' | here >"$scratch/typed"
while IFS= read -r line; do
    printf 'printf "%%s\\n" %q\n%s\n' "\$ $line" "$line"
done <"$scratch/typed" >"$scratch/session"
{ bash "$scratch/session" 2>&1 </dev/null || true; } | normalised >"$scratch/actual"
blocks console | here | normalised >"$scratch/expected"
diff -u "$scratch/expected" "$scratch/actual" || failed "what came differs from the transcript"
