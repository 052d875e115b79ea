#!/usr/bin/env bash
# Captures the tool in front of a simulated chip, plays the capture back, and compares the tool's output, errors
# and exit status, the same but for the times. Then lets a message differ, and breaks the capture.
# Usage: tests/simulator/replay/replay.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/simulator/replay/replay.sh BUILD_FOLDER" >&2; exit 2; }
build=$(cd "$1" && pwd)
export PATH="$build/tool:$build/simulator:$PATH" AUTHCHIP_DEVICE=/dev/i2c-9 AUTHCHIP_ADDRESS=0x2a
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"

readonly challenge20=000102030405060708090a0b0c0d0e0f10111213
readonly challenge32=${challenge20}1415161718191a1b1c1d1e1f

# run NAME OPTION... -- COMMAND...: stores what the tool prints.
run() {
    local name=$1 status=0
    shift
    authchip-sim "$@" >"$name.output" 2>"$name.errors" || status=$?
    sed -i 's/([0-9.]* ms, /(/' "$name.output"
    echo "$status" >"$name.status"
}

# again OPTION... -- COMMAND...: the same before the chip and before its capture.
again() {
    local options=()
    while [ "$1" != -- ]; do options+=("$1"); shift; done
    run first --device /dev/i2c-9 "${options[@]}" --capture chip.pcapng "$@"
    run second --replay chip.pcapng "$@"
    for part in output errors status; do
        diff -u "first.$part" "second.$part" || { echo "${options[*]} $*: $part differs" >&2; exit 1; }
    done
}

again -- authchip info
again --device-version 3 -- authchip sign --challenge "$challenge20"
again -- authchip sign --challenge "$challenge32"
again -- authchip certificate
again -- authchip read
again --refuse 3 --busy-refusals 5 -- authchip sign --challenge "$challenge32"
again --refuse 1000 -- authchip info
again --fail-reads 1000 -- authchip info
again --fail-reads 2 --fault-register 0x12 -- authchip sign --challenge "$challenge32"
again --short-reads 1 --fault-register 0x12 -- authchip sign --challenge "$challenge32"
again --wrong-status 0x70 -- authchip sign --challenge "$challenge32"
again --wrong-length 0x20=31 -- authchip sign --challenge "$challenge32"
again --wrong-length 0x30=0 -- authchip certificate
again --corrupt-signature -- authchip sign --challenge "$challenge32"
again --stuck-bus 0 -- authchip info
again --bound-address 0x2a -- authchip info
again --device-version 2 -- authchip doctor
again --device-version 99 -- authchip doctor
again --refuse 1000 -- authchip doctor
again -- i2ctransfer -y 9 w1@0x2a 0x00 r4
again -- i2cget -y 9 0x2a 0x01

run differs --replay chip.pcapng -- i2cget -y 9 0x2a 0x02
[ "$(cat differs.status)" = 125 ]
# i2cget may report its failure before the signal ends it.
diff <(grep -vx "Error: Read failed" differs.errors) - <<'END'
authchip-sim: message 2 differs from the recording
  expected: write 1 byte to 0x2a: 01
  actual:   write 1 byte to 0x2a: 02
  next: Give the program the same input as then, or use --replay-loosely.
END
run loosely --replay chip.pcapng --replay-loosely -- i2cget -y 9 0x2a 0x01
[ "$(cat loosely.status loosely.output)" = $'0\n0x01' ]
run stops --replay chip.pcapng -- true
grep -qx "authchip-sim: the program ended before the end of the recording: 2 of 2 messages are left" stops.errors
[ "$(cat stops.status)" = 0 ]

head -c -1 chip.pcapng >cut.pcapng
run cut --replay cut.pcapng -- true
[ "$(cat cut.status)" = 125 ]
grep -q "^authchip-sim: cannot replay cut.pcapng: byte .*: the file ends in the middle of a block" cut.errors
run nothing --replay /dev/null -- true
grep -qx "authchip-sim: cannot replay /dev/null: it is not a pcapng file" nothing.errors
run unwritable --capture no/such/file -- true
[ "$(cat unwritable.status)" = 125 ]
grep -qx "authchip-sim: cannot write the capture no/such/file: No such file or directory" unwritable.errors
