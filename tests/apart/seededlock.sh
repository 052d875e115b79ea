#!/usr/bin/env bash
# Seeds the lock of a folder for temporary files, and has every test program list its tests there as the build does: the
# lock stays as it is, and no process has used it.
# Usage: tests/apart/seededlock.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/apart/seededlock.sh BUILD_FOLDER" >&2; exit 2; }

build=$1
programs=$(cd "$build" && ctest --show-only=json-v1 | grep -B1 -e '"--gtest_filter=' | grep -oE '"/[^"]+"' | tr -d '"' | sort -u)
[ "$(wc -l <<<"$programs")" -ge 10 ] || { echo "only these test programs are found: $programs" >&2; exit 1; }

semaphore=
trap '[ -z "$semaphore" ] || ipcrm -s "$semaphore"' EXIT
lock() { "$build/tool/authchip" lock "$@"; }
lock seed --group "$(id -g)" >/dev/null
semaphore=$(lock status --json | sed -n 's/.*"semaphore":\([0-9]*\).*/\1/p')
before=$(lock status)
while IFS= read -r program; do
    env -u AUTHCHIP_TEST_APART "$program" --gtest_list_tests >/dev/null
    after=$(lock status)
    [ "$before" = "$after" ] || {
        printf '%s has changed the lock:\n%s\nIt was:\n%s\n' "$program" "$after" "$before" >&2
        exit 1
    }
done <<<"$programs"
