#!/usr/bin/env bash
# Builds the example against an installed copy of the library, runs it in front of simulated chips of both generations,
# and has a client check what it answers.
# Usage: tests/examples/authentication-service.sh BUILD_FOLDER COMPILER COMPILER_FLAGS CLIENT
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 4 ] || {
    echo "usage: tests/examples/authentication-service.sh BUILD_FOLDER COMPILER COMPILER_FLAGS CLIENT" >&2
    exit 2
}

build=$1
client=$4
source "$(dirname "$0")/example.sh"
build_example authentication-service "$1" "$2" "$3"

# Starts the service at a port that is free; sets $service and $port.
start_service() { # DEVICE_VERSION [INTERFACE]
    local line
    port=
    exec 3< <(exec "$build/simulator/authchip-sim" --device-version "$1" -- \
        "$scratch/host/authentication-service" /dev/i2c-7 0x2a 0 "${@:2}" 2>&1)
    service=$!
    while read -r line <&3; do
        case $line in
            *"listening on port "*)
                port=${line##* }
                cat <&3 >"$scratch/service.log" &
                return
                ;;
            *) echo "$line" >&2 ;;
        esac
    done
    echo "the service did not start" >&2
    exit 1
}
ask() { # CLIENT_ARGUMENTS...
    "$client" "$port" "$@" || { echo "status $? of the client: $*" >&2; exit 1; }
}
end_service() {
    kill -TERM "$service"
    wait "$service" || { echo "status $? of the service" >&2; cat "$scratch/service.log" >&2; exit 1; }
    [ ! -s "$scratch/service.log" ] || { cat "$scratch/service.log" >&2; exit 1; }
}
# As the kernel lists it: the address with its bytes reversed, and the port.
expect_listener() { # ADDRESS_IN_HEX
    local place
    place=$1:$(printf '%04X' "$port")
    awk -v place="$place" '$2 == place && $4 == "0A" { found = 1 } END { exit !found }' /proc/net/tcp ||
        { echo "nobody listens at $place" >&2; exit 1; }
}

start_service 3
expect_listener 0100007F
ask 20 authentic 3
end_service

start_service 7
ask 32 authentic 3
ask 33 refused
ask 31 refused
ask 0 refused
ask 32 cut-off
ask 32 silent
ask 32 besieged 1000
ask 32 overloading
ask 32 authentic 3
end_service

expect_no_words_on_the_node "$scratch/host/authentication-service" NODE 0x2a 0

start_service 7 127.0.0.2
expect_listener 0200007F
end_service

# Slow clients make room for a new one, also if they may take an hour; without that, this would not end.
sed -i 's/time{5}/time{3600}/' "$scratch/source/server.h"
grep -q 'time{3600}' "$scratch/source/server.h"
quietly cmake --build "$scratch/host"
start_service 7
ask 32 besieged 200
end_service

usage_status=0
"$scratch/host/authentication-service" /dev/i2c-7 0x2a 2>"$scratch/log" || usage_status=$?
[ "$usage_status" -eq 2 ]
for wrong in "0x2a 70000" "2a 0" "0x2a 0 everywhere"; do
    # shellcheck disable=SC2086 # arguments
    ! "$scratch/host/authentication-service" /dev/i2c-7 $wrong 2>>"$scratch/log" ||
        { echo "the service accepts $wrong" >&2; exit 1; }
done
for words in "70000 is no number" "2a is no number" "everywhere is no IPv4 address"; do
    grep -q "$words" "$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
done
