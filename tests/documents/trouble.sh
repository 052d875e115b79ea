#!/usr/bin/env bash
# Looks every line that the library can write, every assertion, and every cause that the tool can name up in the tables
# of the guide.
# Usage: tests/documents/trouble.sh [PAGE]      docs/guide/7-trouble.md by default
#        tests/documents/trouble.sh --causes    prints the causes that 'authchip doctor' can name
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
cd "$(dirname "$0")/../.."
page=${1:-docs/guide/7-trouble.md}

# The text of a log statement up to its first number.
log_lines() {
    grep -hoP '(DBG_(ERROR|INFO|TRACE)\(|LOG4CPLUS_(ERROR|DEBUG|TRACE)\(g_logger, |TRACE_STATEMENT\()"\K[^"]*' \
        authchipdriver/*.cpp authchipdriver/*.h
}
assertions() { grep -hoP '^ *assert\(\K.*(?=\);)' authchipdriver/*.cpp abstractionlibrary/*.cpp; }

causes_of_doctor() {
    grep -hoP '\{Step::\w+, \w+, "\K[^"]+' tool/chip/advice.cpp
    grep -hoP '(kBitErrors\[\] = |kBusShared\[\] = |throw Failure\(.* : )"\K[^"]+' tool/chip/rereading.h tool/chip/storedcertificate.cpp
    grep -hoP '(kNoI2cNode\[\] = |kChipGone\[\] = |push_back\(\{|return \{\{|return \{|refused\(|ExchangeStopped\(\{)"\K[^"]+' tool/chip/advice.h tool/doctor/*.cpp tool/doctor/*.h
    grep -hoP '^ *\{"\K[a-z ]+(?=",)' tool/doctor/*check.cpp tool/doctor/exchange.cpp
    grep -hoP ', "\K[a-z ]+(?=",$)' tool/lock/conditions.cpp | grep -vx unreadable # a condition, not a cause
}
causes() {
    grep -hoP '^ {4}\{"\K[^"]+(?=", ExitStatus)' tool/report/causes.cpp
    causes_of_doctor
    tr '\n' ' ' <tool/chip/trust.cpp | grep -oP '(X509_V_ERR_\w+, k\w+, +|Result::Failed, +)"\K[^"]+'
}

if [ "${1:-}" = --causes ]; then
    causes_of_doctor | LC_ALL=C sort -u
    exit
fi
found=$({ log_lines; assertions; causes; } | LC_ALL=C sort -u)
[ "$(wc -l <<<"$found")" -ge 90 ] || { echo "only these were found in the sources: $found" >&2; exit 1; }
status=0
while IFS= read -r text; do
    grep -qE '^\|' <(grep -F -- "\`$text\`" "$page") || { echo "$page: no row for \"$text\"" >&2; status=1; }
done <<<"$found"
exit "$status"
