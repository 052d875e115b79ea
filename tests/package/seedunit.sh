#!/usr/bin/env bash
# Installs the unit that seeds the lock at boot and the rule that protects the key file, runs what the unit runs, and
# looks whether the rule names the file that came of it.
# Usage: tests/package/seedunit.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/package/seedunit.sh BUILD_FOLDER" >&2; exit 2; }

scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
failed() { echo "$1" >&2; exit 1; }

DESTDIR="$scratch" "$(dirname "$0")/../support/install" "$1" --component tools >"$scratch/log" ||
    { cat "$scratch/log" >&2; exit 1; }
unit=$(find "$scratch" -path '*/lib/systemd/system/authchip-lock.service')
rule=$(find "$scratch" -path '*/lib/tmpfiles.d/authchip.conf')
[ -n "$unit" ] || failed "no unit is installed"
[ -n "$rule" ] || failed "no rule for the key file is installed"
for line in Type=oneshot RemainAfterExit=yes DefaultDependencies=no TimeoutStartSec=30; do
    grep -qx "$line" "$unit" || failed "the unit has no line $line"
done
grep -q '^After=.*systemd-tmpfiles-setup.service' "$unit" || failed "the unit does not come after the clean-up of /tmp"
grep -q '^Before=.*multi-user.target' "$unit" || failed "the unit does not come before multi-user.target"
if command -v systemd-analyze >/dev/null; then
    sed "s#^ExecStart=[^ ]*#ExecStart=/bin/true#" "$unit" >"$scratch/authchip-lock.service"
    systemd-analyze verify --man=no "$scratch/authchip-lock.service" || failed "systemd does not take the unit"
    exposure=$(systemd-analyze security --offline=true "$scratch/authchip-lock.service" |
        sed -n 's/.*Overall exposure level.*: \([0-9]*\)\..*/\1/p')
    [ "$exposure" -lt 2 ] || failed "the unit's exposure is $exposure or more; below 2 is wanted"
fi

# At boot the rule makes room for the seed, whatever somebody has put there; afterwards no clean-up touches the file.
if command -v systemd-tmpfiles >/dev/null; then
    root=$scratch/root
    place=$root$(sed -n 's/^x //p' "$rule")
    mkdir -p "$root/usr/lib/tmpfiles.d" "$root/etc" "$place/full"
    touch "$root/etc/passwd" "$root/etc/group" "$place.seed-0000000000000000"
    cp "$rule" "$root/usr/lib/tmpfiles.d"
    systemd-tmpfiles --root="$root" --create --remove --boot
    [ -z "$(ls -A "$root/tmp")" ] || failed "the rule leaves in /tmp at boot: $(ls "$root/tmp")"
    touch "$place"
    systemd-tmpfiles --root="$root" --create --remove --clean
    [ -f "$place" ] || failed "a clean-up removes the key file"
fi

mkdir "$scratch/tmp"
export TMPDIR=$scratch/tmp AUTHCHIP_LOCK_OPTIONS="--group 0 --mode 0660"
program=$(sed -n 's/^ExecStart=\([^ ]*\) .*/\1/p' "$unit")
bash -c "$(sed -n "s#^ExecStart=\([^ ]*\)#'$scratch\1'#p" "$unit") --json" >"$scratch/answer"
semaphore=$(sed -n 's/.*"semaphore":\([0-9]*\).*/\1/p' "$scratch/answer")
ipcrm -s "$semaphore"
[ -x "$scratch$program" ] || failed "the unit runs $program, which is not installed"
grep -q '"seed":"made".*"group":"root","mode":"0660"' "$scratch/answer" || failed "the seed says: $(cat "$scratch/answer")"
grep -qx "x /tmp/$(ls "$TMPDIR")" "$rule" || failed "the rule does not name the key file $(ls "$TMPDIR")"
