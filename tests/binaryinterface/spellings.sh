#!/usr/bin/env bash
# Shows that the library reaches the kernel by no name that the fake bus of the tests does not answer to: every function
# of the C library that it uses is faked, or is known not to touch the bus.
# Usage: tests/binaryinterface/spellings.sh NM LIBRARY OBJECT_WITH_THE_FAKES
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/binaryinterface/spellings.sh NM LIBRARY OBJECT_WITH_THE_FAKES" >&2; exit 2; }

readonly memory='malloc free memcmp memcpy memmove memset strlen strerror __memcpy_chk __memmove_chk'
readonly runtime='__assert_fail __errno_location __stack_chk_fail __stack_chk_guard __cxa_finalize __cxa_atexit __tls_get_addr'
readonly processor='__getauxval' # the compiler's own code asks it on 64-bit ARM for instructions that lock
readonly sockets='socket bind listen accept connect send recv __recv_chk inet_addr' # tested on the loopback device

used=$("$1" --dynamic --undefined-only --format=posix "$2" | sed -n 's/@GLIBC_.*//p' | LC_ALL=C sort)
faked=$("$1" --defined-only --extern-only --format=posix "$3" | cut -d ' ' -f 1)
known=$(printf '%s\n' $memory $runtime $processor $sockets $faked | LC_ALL=C sort -u)

for call in open ioctl read write close; do
    grep -qE "^(__)?$call" <<<"$used" || { echo "$2 does not use $call: is this the right library?" >&2; exit 1; }
done
unknown=$(LC_ALL=C comm -23 <(echo "$used") <(echo "$known"))
if [ -n "$unknown" ]; then
    echo "These slip past the fake bus; teach it to tests/support/systemcalls.cpp:" $unknown >&2
    exit 1
fi
