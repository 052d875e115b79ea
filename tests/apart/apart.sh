#!/usr/bin/env bash
# Runs commands apart on a machine that is as odd as possible, and checks what they get and what they leave behind.
# Usage: tests/apart/apart.sh APART
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/apart/apart.sh APART" >&2; exit 2; }
apart=$1
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
failed() { echo "$1" >&2; exit 1; }
expect() { # WHAT EXPECTED ACTUAL
    [ "$2" = "$3" ] || failed "$1: expected '$2', got '$3'"
}

# What the command gets.
expect environment "AUTHCHIP_CONFIG AUTHCHIP_TEST_APART HOME LC_ALL LSAN_OPTIONS NAMED=value PATH TMPDIR TZ" "$(
    env -i A=1 LANG=de_DE TMPDIR=/nonexistent LSAN_OPTIONS=x=1 "$apart" NAMED=value env |
        sed -E '/^NAMED=/!s/=.*//' | LC_ALL=C sort | xargs)"
expect "PATH, from none" /usr/sbin "$(env -i "$apart" sh -c 'printenv PATH' | tr : '\n' | grep -x /usr/sbin)"
expect "PATH, first of the caller's" "$scratch" "$(PATH=$scratch:$PATH "$apart" sh -c 'printenv PATH' | cut -d: -f1)"
mkdir -m 000 "$scratch/forbidden"
[ "$(id -u)" -eq 0 ] ||
    expect "PATH, without what is forbidden" "$scratch" "$(PATH=$scratch/forbidden:$scratch:$PATH "$apart" sh -c 'printenv PATH' | cut -d: -f1)"
expect umask 0022 "$(umask 077 && "$apart" bash -c umask)"
expect "ignored signals" 0000000000000000 "$(
    env --ignore-signal=HUP,INT,PIPE,TERM "$apart" sed -n 's/^SigIgn:\t//p' /proc/self/status)"
expect "blocked signals" 0000000000000000 "$(
    env --block-signal=TERM,CHLD "$apart" sed -n 's/^SigBlk:\t//p' /proc/self/status)"
expect "standard input" /dev/null "$("$apart" readlink /proc/self/fd/0 <"$scratch")"
expect "open files" "0 1 2" "$("$apart" bash -c 'ls /proc/$$/fd; :' 4<"$scratch" | xargs)"
"$apart" bash -c 'readlink /proc/$$/fd/1 /proc/$$/fd/2 >"$0"; :' "$scratch/outputs" >&- 2>&-
expect "closed outputs" "/dev/null /dev/null" "$(xargs <"$scratch/outputs")"
expect "another folder each time" 2 "$(for _ in 1 2; do "$apart" printenv TMPDIR; done | sort -u | wc -l)"
expect "folders that others may enter" "755 755" "$(umask 077 && "$apart" sh -c 'stat -c %a "$HOME" "$TMPDIR"' | xargs)"
mkdir -m 700 "$scratch/closed"
expect "a folder for folders that is closed to others" /tmp "$(TMPDIR=$scratch/closed "$apart" sh -c 'dirname "$HOME"')"
long=/tmp/$(printf '%0200d' 0)
expect "a long one" /tmp "$(TMPDIR=$long "$apart" sh -c 'dirname "$HOME"')"
expect "a good one" "$TMPDIR" "$(TMPDIR=$TMPDIR "$apart" sh -c 'dirname "$HOME"')"

# Without System V objects of their own, one after the other.
limited=(env)
[ "$(id -u)" -ne 0 ] || limited=(setpriv --bounding-set=-sys_admin)
for _ in 1 2 3; do
    "${limited[@]}" "$apart" --shares-locks sh -c 'echo in >>"$0"; sleep 0.1; echo out >>"$0"' "$scratch/turns" &
done
wait
expect turns "in out in out in out" "$(xargs <"$scratch/turns")"

# How it ends.
status() { "$@" >/dev/null 2>&1 && echo 0 || echo $?; }
expect "status" 3 "$(status "$apart" sh -c 'exit 3')"
expect "status of a missing command" 127 "$(status "$apart" /nonexistent)"
expect "status of no command" 127 "$(status "$apart" A=b)"
expect "a signal" 139 "$(status bash -c "\"$apart\" sh -c 'kill -SEGV \$\$'; exit \$?")"

# What is left.
folder=$("$apart" sh -c 'mkdir -p "$TMPDIR/a/b"; echo "$HOME"')
[ ! -e "$folder" ] || failed "$folder is left behind"
for start in "" setsid; do
    left=$("$apart" bash -c "$start sleep 1000 >/dev/null 2>&1 & echo \$!")
    [ ! -e "/proc/$left" ] || failed "process $left is left behind"
done
semaphore=$("$apart" perl -e 'my $made = semget(0, 1, 0600);
    open(my $list, ">>", "$ENV{AUTHCHIP_TEST_APART}/semaphores"); print $list "$made\n"; print "$made\n"')
! ipcs -s | grep -q "^0x00000000 $semaphore " || failed "semaphore $semaphore is left behind"

# Ended from outside, by a signal that it can answer and by one that it cannot: whoever waits for the command's end of
# the pipe waits no longer.
for signal in TERM KILL; do
    mkfifo "$scratch/$signal"
    "$apart" sh -c 'echo "$HOME"; exec sleep 1000' >"$scratch/$signal" 2>/dev/null &
    exec 3<"$scratch/$signal"
    read -r folder <&3
    kill -$signal $!
    wait $! 2>/dev/null || true
    cat <&3
    exec 3<&-
    [ $signal = KILL ] || [ ! -e "$folder" ] || failed "$folder is left behind"
    rm -rf "$folder"
done
