#!/usr/bin/env bash
# Checks that every fault of the simulator and every cause of 'authchip doctor' has a capture here: each fault's option
# is in a row of recordings.txt, each cause in a row of causes.txt, each capture is there, and doctor names the cause when it
# is played back.
# Usage: tests/captures/complete.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/captures/complete.sh BUILD_FOLDER" >&2; exit 2; }
simulator=$(cd "$1" && pwd)/simulator/authchip-sim
cd "$(dirname "$0")"
source ./recordings

status=0
complain() {
    echo "$*" >&2
    status=1
}

is_there() { # NAME OPTIONS COMMAND
    [ -e "$1.pcapng" ] && [ -e "$1.txt" ] || complain "recordings.txt names $1, which is missing; record.sh and play.sh --update make it"
}
each_recording is_there

# A chip that is busy and an address that is taken are faults, too.
faults=$("$simulator" --help | sed -n '/^Faults:/,/^$/s/^  \(--[a-z-]*\).*/\1/p')
[ "$(wc -l <<<"$faults")" -ge 9 ] || complain "only these faults were found in the help: $faults"
for fault in $faults --busy-ms --busy-refusals --bound-address; do
    grep -v '^#' recordings.txt | cut -d '|' -f 2 | grep -- " $fault\b" >/dev/null || complain "no row of recordings.txt has $fault"
done

causes=$(../documents/trouble.sh --causes)
while IFS= read -r cause; do
    grep -qE "^$cause +\|" causes.txt || complain "no row of causes.txt has \"$cause\""
done <<<"$causes"
while IFS='|' read -r cause capture; do
    cause=${cause%"${cause##*[! ]}"} capture=${capture# }
    grep -qFx "$cause" <<<"$causes" || complain "causes.txt: doctor does not name \"$cause\""
    [[ $capture != -* ]] || continue
    grep -qE "^[a-z]+ +$cause: " "$capture.txt" || complain "$capture does not show \"$cause\""
done < <(grep -v '^#' causes.txt)
exit $status
