#!/usr/bin/env bash
# Checks the shared object as a distribution would: its needs, its protections, its size.
# Usage: tests/binaryinterface/elf.sh READELF STRIP LIBRARY [sized]
#   sized  its size when stripped, too; skipped by default, since a build for debugging may be larger
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 3 ] || { echo "usage: tests/binaryinterface/elf.sh READELF STRIP LIBRARY [sized]" >&2; exit 2; }
readelf=$1 strip=$2 library=$3 sized=${4:-}

status=0
failed() { echo "$library: $1" >&2; status=1; }

header=$("$readelf" --wide --file-header "$library")
segments=$("$readelf" --wide --program-headers "$library")
dynamic=$("$readelf" --wide --dynamic "$library")
symbols=$("$readelf" --wide --dyn-syms "$library")
has() { grep -qE -e "$2" <<<"$1"; }

needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | LC_ALL=C sort | tr '\n' ' ')
case $header in
    *"Machine: "*AArch64*)
        expected='^(ld-linux-aarch64\.so\.1 )?libQt5Core\.so\.5 libc\.so\.6 libgcc_s\.so\.1 liblog4cplus-2\.0\.so\.3 libstdc\+\+\.so\.6 $'
        ;;
    *"Machine: "*ARM*)
        # The stack protector of this architecture keeps its secret in the C library's loader.
        expected='^(ld-linux-armhf\.so\.3 )?libQt5Core\.so\.5 libc\.so\.6 libgcc_s\.so\.1 liblog4cplus-2\.0\.so\.3 libstdc\+\+\.so\.6 $'
        has "$header" 'hard-float ABI' || failed "is not built for hardware floating point"
        has "$("$readelf" --arch-specific "$library")" 'Tag_ABI_VFP_args: VFP registers' ||
            failed "does not pass numbers in floating-point registers"
        ;;
    *)
        expected='^libQt5Core\.so\.5 libc\.so\.6 libgcc_s\.so\.1 liblog4cplus-2\.0\.so\.3 libstdc\+\+\.so\.6 $'
        ;;
esac
[[ $needed =~ $expected ]] || failed "needs other libraries than Qt 5 Core, log4cplus and the C and C++ runtime: $needed"

has "$dynamic" '\(SONAME\).*\[libauthchipdriver\.so\.1\]' || failed "has another name than libauthchipdriver.so.1"
has "$dynamic" '\((RPATH|RUNPATH)\)' && failed "looks for libraries in places of its own"
has "$dynamic" '\(TEXTREL\)|TEXTREL' && failed "has text relocations"
has "$segments" '^ *GNU_RELRO ' || failed "its relocated data stay writable"
has "$dynamic" '\((BIND_NOW|FLAGS)\).*BIND_NOW|\(FLAGS_1\).*NOW' || failed "is not bound when it is loaded"
has "$segments" '^ *GNU_STACK .* RW +0x[0-9a-f]+$' || failed "its stack is executable"
has "$segments" '^ *LOAD .* RWE ' && failed "has memory that is writable and executable"
has "$symbols" ' UND __stack_chk_fail' || failed "is built without stack protector"

# What no library of the system supplies: the hook, and nothing else.
hosts=$(awk '$7 == "UND" && $5 == "GLOBAL" { print $8 }' <<<"$symbols" | grep -v '@' | c++filt |
    grep -vE '^(typeinfo for |vtable for )?(non-virtual thunk to )?(log4cplus::|bool log4cplus::)' || true)
hook='dbglog_scopedFunction(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&, std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const&)'
[ "$hosts" = "$hook" ] || failed "expects from its host: $hosts"

if [ -n "$sized" ]; then
    # The product has 64 KiB for the library; pointers and relocations of 64 bits take half as much again.
    limit=65536
    has "$header" 'Class: +ELF64' && limit=98304
    has "$header" 'Machine: +AArch64' && limit=163840 # its pages have 64 KiB, and data begin on one of their own
    stripped=$(mktemp)
    trap 'rm "$stripped"' EXIT
    "$strip" -o "$stripped" "$library"
    size=$(stat --format=%s "$stripped")
    [ "$size" -le "$limit" ] || failed "is $size bytes when stripped, and not at most $limit"
fi
exit $status
