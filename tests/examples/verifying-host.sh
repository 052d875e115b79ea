#!/usr/bin/env bash
# Builds the example against an installed copy of the library, makes a small public key infrastructure, and has the host
# decide about simulated chips: genuine ones of both generations, one of another issuer, and one that signs wrongly.
# Usage: tests/examples/verifying-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/examples/verifying-host.sh BUILD_FOLDER COMPILER COMPILER_FLAGS" >&2; exit 2; }

build=$1
source "$(dirname "$0")/example.sh"
build_example verifying-host "$@"
cd "$scratch"

issuer() { # NAME
    quietly openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=$1" -keyout "$1.key" -out "$1.pem"
}
# Sets up $1.key and $1.p7b: a chip's key, and its certificate in a container as chips have it.
chip() { # NAME KEY_OPTIONS...
    local name=$1
    shift
    quietly openssl genpkey "$@" -out "$name.key"
    quietly openssl req -new -key "$name.key" -subj "/CN=$name" -out "$name.csr"
    quietly openssl x509 -req -in "$name.csr" -CA trusted.pem -CAkey trusted.key -days 2 -out "$name.pem"
    quietly openssl crl2pkcs7 -nocrl -certfile "$name.pem" -out "$name.p7b"
}
issuer trusted
issuer stranger
chip rsa -algorithm RSA -pkeyopt rsa_keygen_bits:1024
chip p256 -algorithm EC -pkeyopt ec_paramgen_curve:P-256

# Standard output is the answer and nothing else; standard error is empty.
expect() { # STATUS OUTPUT ISSUERS SIMULATOR_OPTIONS...
    local status=$1 output=$2 issuers=$3 actual=0
    shift 3
    "$build/simulator/authchip-sim" "$@" -- "$scratch/host/verifying-host" /dev/i2c-7 0x2a "$issuers" \
        >out 2>err || actual=$?
    [ "$actual" -eq "$status" ] && [ "$(cat out)" = "$output" ] && { [ "$status" -eq 1 ] || [ ! -s err ]; } && return
    echo "expected $status and '$output' of: $*; got $actual:" >&2
    cat out err >&2
    exit 1
}
genuine20b=(--device-version 3 --key rsa.key --certificate rsa.p7b)
genuine30=(--device-version 7 --key p256.key --certificate p256.p7b)
expect 0 authentic trusted.pem "${genuine20b[@]}"
expect 0 authentic trusted.pem "${genuine30[@]}"
expect 3 "none of the issuers vouches for the certificate" stranger.pem "${genuine30[@]}"
expect 3 "none of the issuers vouches for the certificate" trusted.pem --device-version 7
expect 3 "the signature is not of the certificate's key" trusted.pem "${genuine20b[@]}" --corrupt-signature
expect 3 "the signature is not of the certificate's key" trusted.pem "${genuine30[@]}" --corrupt-signature
expect 1 "" trusted.pem "${genuine30[@]}" --wrong-status 0x80
expect_no_words_on_the_node "$scratch/host/verifying-host" NODE 0x2a trusted.pem
