#!/usr/bin/env bash
# Runs the maintainer scripts of the tools' package as dpkg does, and looks what becomes of the unit and of the lock. They
# see an /etc and a /run of their own, and programs that only note how they are called.
# Usage: tests/package/maintainer.sh
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 0 ] || { echo "usage: tests/package/maintainer.sh" >&2; exit 2; }

if [ "${AUTHCHIP_TEST_INSIDE:-}" != yes ]; then
    namespaces=(--mount)
    [ "$(id -u)" -eq 0 ] || namespaces+=(--user --map-root-user)
    unshare "${namespaces[@]}" true 2>/dev/null || { echo "skipped: this user may not mount anything"; exit 77; }
    AUTHCHIP_TEST_INSIDE=yes exec unshare "${namespaces[@]}" "$0"
fi

scripts=$(cd "$(dirname "$0")/../../packaging/scripts" && pwd)
scratch=$(mktemp -d)
trap 'umount /etc /run; rm -r "$scratch"' EXIT
readonly link=/etc/systemd/system/sysinit.target.wants/authchip-lock.service
readonly options=/etc/default/authchip
failed() { echo "$1" >&2; exit 1; }

mount -t tmpfs none /etc
mount -t tmpfs none /run
mkdir -p "$scratch/programs" /run/systemd/system "$(dirname "$link")" "$(dirname "$options")"
for program in authchip deb-systemd-invoke systemctl; do
    # shellcheck disable=SC2016 # for the program that it makes
    printf '#!/bin/sh\necho "%s $*" >>"%s/calls"\nexit ${STATUS:-0}\n' "$program" "$scratch" >"$scratch/programs/$program"
done
chmod +x "$scratch/programs/"*
PATH=$scratch/programs:$PATH

# What is there after the script has run, and which programs it has called.
expect() { # SCRIPT ARGUMENT PRESENT CALLS
    local present=
    ln -sf /usr/lib/systemd/system/authchip-lock.service "$link"
    echo 'AUTHCHIP_LOCK_OPTIONS=""' >"$options"
    : >"$scratch/calls"
    sh "$scripts/$1" "$2" 2>"$scratch/errors" || failed "$1 $2 ends with $?: $(cat "$scratch/errors")"
    [ ! -L "$link" ] || present=unit
    [ ! -e "$options" ] || present+=${present:+ }options
    [ "$present" = "$3" ] || failed "after $1 $2 there is '$present', not '$3'"
    [ "$(paste -sd, "$scratch/calls")" = "$4" ] || failed "$1 $2 calls '$(paste -sd, "$scratch/calls")', not '$4'"
}

readonly stops='deb-systemd-invoke stop authchip-lock.service,authchip lock remove'
expect prerm upgrade 'unit options' ''
expect prerm remove 'unit options' "$stops"
expect postrm upgrade 'unit options' ''
expect postrm remove options 'systemctl --system daemon-reload'
expect postrm purge '' 'systemctl --system daemon-reload'

# A lock in use stays; the package is still removed.
export STATUS=6
expect prerm remove 'unit options' "$stops"
grep -q 'the lock between processes stays' "$scratch/errors" || failed "prerm does not say that the lock stays"
unset STATUS

# Without systemd nothing is notified.
rm -r /run/systemd
expect prerm remove 'unit options' 'authchip lock remove'
expect postrm purge '' ''
