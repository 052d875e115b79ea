#!/usr/bin/env bash
# Looks whether the guide warns of everybody who has power over the lock between processes, as 'authchip doctor' does.
# Usage: tests/documents/power.sh [PAGE]    docs/guide/4-production.md by default
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
cd "$(dirname "$0")/../.."
page=${1:-docs/guide/4-production.md}

status=0
text=$(tr '\n' ' ' <"$page")
while IFS='|' read -r doctor guide; do
    grep -qF -- "$doctor" tool/doctor/lockcheck.cpp || { echo "doctor does not say '$doctor'" >&2; status=1; }
    [[ $text == *"$guide"* ]] || { echo "$page does not say '$guide'" >&2; status=1; }
done <<'END'
user can make it instead|Before the lock is seeded, any local user can create it first.
every member of group |A member can hold the lock for as long as it likes, and can spoil it.
every local user can block or break it|`--mode 0666` trusts every local user.
RemoveIPC=no|`RemoveIPC=yes` in `logind.conf` removes the semaphores of a user at the user's logout.
END
exit $status
