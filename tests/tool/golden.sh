#!/usr/bin/env bash
# Runs the command of each golden file and compares output, errors and exit status with what the file says.
# Usage: tests/tool/golden.sh [--update] BUILD_FOLDER CASE...
#   --update  writes what came into the files instead; look at the difference before it is committed
#
# A file is golden/CASE.txt: the command behind "$ ", then the sections "--- output", "--- errors" and "--- status".
# What differs from run to run is replaced: challenges and signatures by their length, source lines by LINE.
set -euo pipefail

update=false
case ${1:-} in
    --help) sed -n '2,7s/^# \?//p' "$0"; exit 0 ;;
    --update) update=true; shift ;;
esac
[ $# -ge 2 ] || { echo "usage: tests/tool/golden.sh [--update] BUILD_FOLDER CASE..." >&2; exit 2; }
build=$(cd "$1" && pwd)
shift

cd "$(dirname "$0")"
export PATH="$build/tool:$build/simulator:$PATH" LC_ALL=C
unset AUTHCHIP_DEVICE AUTHCHIP_ADDRESS
scratch=$(mktemp -d)
export scratch # commands may put files there
trap 'rm -r "$scratch"' EXIT

normalised() {
    perl -0777 -pe '
        sub lengthOf { my $digits = join("", split(/\s+/, shift)); "<" . length($digits) / 2 . " bytes>" }
        s/^((?:challenge|signature) +)([0-9a-f]+(?:\n +[0-9a-f]+)*)$/$1 . lengthOf($2)/gme;
        s/("(?:challenge|signature)":")([0-9a-f]+)"/$1 . lengthOf($2) . q(")/ge;
        s/(\.cpp:)\d+/$1LINE/g;
    ' "$1"
}

status=0
for name in "$@"; do
    file=golden/$name.txt
    command=$(sed -n '1s/^\$ //p' "$file")
    result=0
    bash -c "$command" >"$scratch/output" 2>"$scratch/errors" </dev/null || result=$?
    {
        printf '$ %s\n--- output\n' "$command"
        normalised "$scratch/output"
        echo "--- errors"
        normalised "$scratch/errors"
        printf -- '--- status\n%d\n' "$result"
    } >"$scratch/actual"
    if $update; then
        cp "$scratch/actual" "$file"
    else
        diff -u "$file" "$scratch/actual" || status=1
    fi
done
exit $status
