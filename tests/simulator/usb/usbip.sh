#!/usr/bin/env bash
# Lists the USB device of authchip-sim as a USB/IP client does, then ends authchip-sim with a signal.
# Usage: tests/simulator/usb/usbip.sh AUTHCHIP_SIM
set -euo pipefail
if [ "${1---help}" = --help ]; then
    sed -n '2,3s/^# //p' "$0"
    exit 0
fi

# With a client's request from the shell: protocol version 0x0111, code 0x8005, status 0.
list() {
    exec {connection}<>"/dev/tcp/${1%:*}/${1#*:}"
    printf '\x01\x11\x80\x05\x00\x00\x00\x00' >&"$connection"
    cat <&"$connection"
}

coproc "$1" --usbip --port 0
read -r place <&"${COPROC[0]}"
simulator=$COPROC_PID
list "$place" | grep --quiet --text --fixed-strings /sys/devices/simulated
kill -TERM "$simulator"
wait "$simulator"
