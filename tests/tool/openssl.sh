#!/usr/bin/env bash
# Has a simulated chip sign, and lets the openssl command line, which knows nothing of us, verify what the tool wrote:
# the good signature is accepted, one with a changed byte is refused.
# Usage: tests/tool/openssl.sh BUILD_FOLDER DEVICE_VERSION
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/tool/openssl.sh BUILD_FOLDER DEVICE_VERSION" >&2; exit 2; }

export PATH="$1/tool:$1/simulator:$PATH" AUTHCHIP_DEVICE=/dev/i2c-7 AUTHCHIP_ADDRESS=0x2a
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"

# r and s, 32 bytes each, as the two integers of a DER sequence.
to_der() {
    local hex
    hex=$(od -An -v -tx1 "$1" | tr -d ' \n')
    printf 'asn1=SEQUENCE:pair\n[pair]\nr=INTEGER:0x%s\ns=INTEGER:0x%s\n' "${hex:0:64}" "${hex:64}" >pair.conf
    openssl asn1parse -genconf pair.conf -noout -out "$2"
}
verified() {
    openssl pkeyutl -verify -pubin -inkey public.pem -in challenge -sigfile "$1" -pkeyopt "digest:$digest" >/dev/null
}

if [ "$2" -lt 7 ]; then challenge_length=20 digest=sha1; else challenge_length=32 digest=sha256; fi
openssl rand -out challenge "$challenge_length"
authchip-sim --device-version "$2" -- sh -c '
    authchip certificate -o certificate.p7 && authchip sign --challenge-file challenge -o signature' >report

openssl pkcs7 -inform DER -in certificate.p7 -print_certs -out certificate.pem
openssl x509 -in certificate.pem -noout -pubkey >public.pem
# One byte in the middle, another value than before.
cp signature changed
at=$(($(wc -c <signature) / 2))
byte=$(od -An -tu1 -j "$at" -N 1 signature)
printf "\\x$(printf %02x $((byte ^ 1)))" | dd of=changed bs=1 seek="$at" conv=notrunc status=none
! cmp -s signature changed || exit 1

if [ "$2" -ge 7 ]; then
    for file in signature changed; do to_der "$file" "$file.der" && mv "$file.der" "$file"; done
fi
verified signature || { echo "openssl refuses the chip's signature" >&2; exit 1; }
if verified changed 2>errors; then
    echo "openssl accepts a changed signature" >&2
    exit 1
fi
