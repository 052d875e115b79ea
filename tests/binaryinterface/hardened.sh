#!/usr/bin/env bash
# Looks programs and preloaded libraries over for what makes mistakes harder to abuse.
# Usage: tests/binaryinterface/hardened.sh READELF OBJDUMP FILE...
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 3 ] || { echo "usage: tests/binaryinterface/hardened.sh READELF OBJDUMP FILE..." >&2; exit 2; }
readelf=$1 objdump=$2
shift 2

status=0
has() { grep -qE -e "$2" <<<"$1"; }

for file in "$@"; do
    failed() { echo "$file: $1" >&2; status=1; }
    header=$("$readelf" --wide --file-header "$file")
    segments=$("$readelf" --wide --program-headers "$file")
    dynamic=$("$readelf" --wide --dynamic "$file")
    symbols=$("$readelf" --wide --dyn-syms "$file")
    has "$header" 'Type: +DYN' || failed "has a fixed address"
    has "$segments" '^ *GNU_RELRO ' || failed "its relocated data stay writable"
    has "$dynamic" '\((BIND_NOW|FLAGS)\).*BIND_NOW|\(FLAGS_1\).*NOW' || failed "is not bound when it is loaded"
    has "$segments" '^ *GNU_STACK .* RW +0x[0-9a-f]+$' || failed "its stack is executable"
    has "$segments" '^ *LOAD .* RWE ' && failed "has memory that is writable and executable"
    case $file in
        *-preload.so | *-capture.so) continue ;; # need no protected stack, answer to the fortified calls, and have no main()
    esac
    has "$symbols" ' UND __stack_chk_fail' || failed "is built without stack protector"
    has "$symbols" ' UND __[a-z]+_chk@' || failed "is built without fortified calls"
    case $header in
        *"X86-64"*) mark=endbr64 ;;
        *AArch64*) mark='paciasp|bti' ;;
        *) continue ;;
    esac
    start=$("$objdump" --disassemble=main --no-show-raw-insn "$file" | grep -A2 '<main>:' || true)
    [ -z "$start" ] || has "$start" "$mark" || failed "does not mark where indirect branches may go"
done
exit $status
