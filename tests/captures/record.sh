#!/usr/bin/env bash
# Makes the captures of what can go wrong, one for each fault that the simulator knows and each cause that 'authchip
# doctor' sees on the bus. They are kept; this is how they came about. A capture of a real board is only added.
# Usage: tests/captures/record.sh BUILD_FOLDER [NAME...]    without NAME all that are not there
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 1 ] || { echo "usage: tests/captures/record.sh BUILD_FOLDER [NAME...]" >&2; exit 2; }
build=$(cd "$1" && pwd)
shift
export PATH="$build/tool:$build/simulator:$PATH"
cd "$(dirname "$0")"

readonly challenge20=000102030405060708090a0b0c0d0e0f10111213
readonly challenge32=${challenge20}1415161718191a1b1c1d1e1f

# A name begins with the command that was recorded.
while IFS='|' read -r name options command; do
    name=${name// /}
    [ $# -eq 0 ] && [ -e "$name.pcapng" ] && continue
    [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
    eval "authchip-sim $options -- authchip capture -o $name.pcapng -- authchip -d /dev/i2c-7 -a 0x2a $command" \
        >/dev/null 2>&1 || true
    echo "$name"
done <<END
info-healthy              |                                              | info
info-refused              | --refuse 1000                                | info
info-refused-at-first     | --refuse 3                                   | info
info-reads-fail           | --fail-reads 1000                            | info
info-reads-short          | --short-reads 1000                           | info
info-bus-stuck            | --stuck-bus 1                                | info
info-kernel-driver        | --bound-address 0x2a                         | info
sign-20b-healthy          | --device-version 3                           | sign --challenge $challenge20
sign-30-healthy           |                                              | sign --challenge $challenge32
sign-20b-busy             | --device-version 3 --busy-ms 0 --busy-refusals 12 | sign --challenge $challenge20
sign-busy-for-good        | --busy-ms 0 --busy-refusals 1000             | sign --challenge $challenge32
sign-read-fails           | --fail-reads 100 --fault-register 0x12       | sign --challenge $challenge32
sign-read-short           | --short-reads 1 --fault-register 0x12        | sign --challenge $challenge32
sign-refused              | --wrong-status 0x70                          | sign --challenge $challenge32
sign-challenge-cut        | --wrong-length 0x20=31                       | sign --challenge $challenge32
sign-longer-than-it-is    | --wrong-length 0x11=80                       | sign --challenge $challenge32
authenticate-corrupt      | --corrupt-signature                          | authenticate
certificate-of-0-bytes    | --wrong-length 0x30=0                        | certificate
certificate-cut           | --wrong-length 0x30=200                      | certificate
doctor-healthy            |                                              | doctor
doctor-busy               | --refuse 9                                   | doctor
doctor-no-answer          | --refuse 1000                                | doctor
doctor-nothing-delivered  | --fail-reads 1                               | doctor
doctor-bus-stuck          | --stuck-bus 1                                | doctor
doctor-kernel-driver      | --bound-address 0x2a                         | doctor
doctor-version-1          | --device-version 1                           | doctor
doctor-version-2          | --device-version 2                           | doctor
doctor-version-unknown    | --device-version 99                          | doctor
END
