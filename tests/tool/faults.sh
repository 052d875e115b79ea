#!/usr/bin/env bash
# Checks that what faults.txt says is shown: the golden case, the capture or the unit test of each fault is there and has
# the words that name the fault.
# Usage: tests/tool/faults.sh
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
cd "$(dirname "$0")"

trimmed() { sed "s/^ *//; s/ *$//" <<<"$1"; }

# The file that shows a case.
file_of() {
    case $1 in
        RefusalTest) echo chip/advice_test.cpp ;;
        MissingNodeTest) echo chip/missingnode_test.cpp ;;
        ValuesTest) echo commands/values_test.cpp ;;
        TrustTest) echo chip/trust_test.cpp ;;
        StoredCertificateTest) echo chip/storedcertificate_test.cpp ;;
        SecondSignatureTest) echo chip/verification_test.cpp ;;
        LockObstacleTest) echo lock/locklimits_test.cpp ;;
        HaltedProcessTest) echo lock/processes_test.cpp ;;
        captures/*) echo "../$1.txt" ;;
        *) echo "golden/$1.txt" ;;
    esac
}

status=0 count=0
while IFS='|' read -r fault case words; do
    count=$((count + 1))
    file=$(file_of "$(trimmed "$case")")
    if [ ! -e "$file" ]; then
        echo "faults.txt: $(trimmed "$fault"): there is no $file" >&2
        status=1
    elif ! grep -qF -- "$(trimmed "$words")" <(sed -n '2,$p' "$file"); then # a pipe would break when grep has seen enough
        echo "faults.txt: $(trimmed "$fault"): $file does not say \"$(trimmed "$words")\"" >&2
        status=1
    fi
done < <(grep -v '^#' faults.txt)
[ "$count" -ge 57 ] || { echo "faults.txt has only $count faults" >&2; status=1; }
exit $status
