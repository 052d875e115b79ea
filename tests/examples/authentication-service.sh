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

# Starts the service at some port that is free; sets $service and $port.
start_service() { # DEVICE_VERSION CONNECTIONS
    local line
    for _ in {1..50}; do
        port=$((20000 + RANDOM % 10000)) # below those that the system gives out
        exec 3< <(exec "$build/simulator/authchip-sim" --device-version "$1" -- \
            "$scratch/host/authentication-service" /dev/i2c-7 0x2a "$port" "$2" 2>&1)
        service=$!
        while read -r line <&3; do
            case $line in
                *listening)
                    cat <&3 >"$scratch/service.log" &
                    return
                    ;;
                *"is taken") wait "$service" || continue 2 ;;
                *) echo "$line" >&2 ;;
            esac
        done
        break
    done
    echo "the service did not start" >&2
    exit 1
}

expect_service() { # DEVICE_VERSION CONNECTIONS CLIENT_ARGUMENTS...
    start_service "$1" "$2"
    shift 2
    "$client" "$port" "$@" || { echo "status $? of the client: $*" >&2; exit 1; }
    wait "$service" || { echo "status $? of the service" >&2; cat "$scratch/service.log" >&2; exit 1; }
}

expect_service 3 3 20 authentic 3
expect_service 7 3 32 authentic 3
expect_service 7 1 33 refused
expect_service 7 1 31 refused
expect_service 7 1 0 refused
expect_service 7 2 32 cut-off
