#!/usr/bin/env bash
# Lets authchip meet one kind of counterfeit of each protocol, by what counterfeits.tsv says about it, and an honest chip
# of the same issuer. With "tables" in place of a kind it compares the kinds that help, manual page, completion, guide and
# counterfeits.tsv have.
# Usage: tests/tool/counterfeit.sh BUILD_FOLDER KIND|tables
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/tool/counterfeit.sh BUILD_FOLDER KIND|tables" >&2; exit 2; }
build=$(cd "$1" && pwd)
kind=$2
cd "$(dirname "$0")"
export PATH="$build/tool:$build/simulator:$PATH"
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
failed() { echo "$1" >&2; exit 1; }

kinds() { authchip-sim --help | sed -n '/^Kinds of counterfeit/,/^$/s/^  \([a-z-]\+\) .*/\1/p'; }
if [ "$kind" = tables ]; then
    sources=../..
    [ -n "$(kinds)" ] || failed "authchip-sim --help lists no kind"
    diff <(kinds) <(grep -v '^#' counterfeits.tsv | cut -f1 | uniq) || failed "counterfeits.tsv has other kinds than the help (<)"
    diff <(kinds) <(sed -n '/^\.SH COUNTERFEITS/,/^\.SH EXIT/s/^\.B \([a-z\\-]*\)$/\1/p' \
        "$sources/packaging/man/authchip-sim.1" | sed 's/\\//g') ||
        failed "the manual page has other kinds than the help (<)"
    diff <(kinds) <(sed -n '/^## Counterfeits/,/^## /s/^| `\([a-z-]\+\)`.*/\1/p' "$sources/docs/guide/5-without-a-chip.md") ||
        failed "the guide has other kinds than the help (<)"
    source "$sources/packaging/completions/authchip-sim"
    COMP_WORDS=(authchip-sim --counterfeit "") COMP_CWORD=2 COMPREPLY=()
    _authchip_sim authchip-sim
    diff <(kinds) <(printf '%s\n' "${COMPREPLY[@]}") || failed "the completion offers other kinds than the help (<)"
    exit 0
fi

rows=$(grep "^$kind	" counterfeits.tsv)
cd "$scratch"
openssl req -x509 -newkey rsa:2048 -nodes -days 365 -subj "/CN=Test issuer" -keyout issuer.key -out issuer.pem 2>openssl.log
# A revocation list of the serial number that the kind "revoked" has.
printf '[ca]\ndefault_ca=list\n[list]\ndatabase=index\ndefault_md=sha256\ndefault_crl_days=1\n' >ca.conf
printf 'R\t491231235959Z\t250101000000Z\t0D0D0D0D0D0D0D0D0D0D0D0D0D0D0D0D\tunknown\t/CN=Revoked\n' >index
openssl ca -config ca.conf -gencrl -cert issuer.pem -keyfile issuer.key -out issuer.crl 2>openssl.log

meet() { # OPTION...: an authentication of such a chip; sets status
    status=0
    authchip-sim --issuer issuer.pem --issuer-key issuer.key "$@" -- \
        authchip -d /dev/i2c-7 -a 0x2a --json authenticate --issuer issuer.pem --crl issuer.crl >answer 2>&1 || status=$?
}
play() { # PROTOCOL EXPECTED SAID
    local protocol=$1 expected=$2 said=$3
    if [ "$protocol" = 3.0 ]; then version=7; else version=3; fi
    meet --device-version $version
    [ $status -eq 0 ] || { cat answer >&2; failed "protocol $protocol: the honest chip is refused"; }
    grep -q '"authentic":true' answer || failed "protocol $protocol: the honest chip is not called authentic"
    meet --device-version $version --counterfeit "$kind"
    [ $status -eq "$expected" ] || { cat answer >&2; failed "protocol $protocol: exit status $status, not $expected"; }
    grep -qF -- "$said" answer || { cat answer >&2; failed "protocol $protocol: the answer does not say $said"; }
    ! grep -q '"authentic":true' answer || failed "protocol $protocol: the counterfeit is called authentic"
    ! grep -q $'\e' answer || failed "protocol $protocol: the answer carries an escape"
}
while IFS=$'\t' read -r _ protocols expected said; do
    for protocol in $protocols; do
        play "$protocol" "$expected" "$said" </dev/null
    done
done <<<"$rows"
