#!/usr/bin/env bash
# Lets another process hold the lock during a run of many attempts. --lock-timeout ends the run, and so does Ctrl-C: both
# with the summary. Until then every attempt has its line as soon as it is over.
# Usage: tests/tool/repeat/lockheld.sh BUILD_FOLDER timeout|interrupted
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/tool/repeat/lockheld.sh BUILD_FOLDER timeout|interrupted" >&2; exit 2; }
build=$(cd "$1" && pwd)
export PATH="$build/tool:$build/simulator:$build/tests/kernel:$PATH"
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"
failed() { cat output errors >&2; echo "$1" >&2; exit 1; }

case $2 in
    timeout) export limit="--lock-timeout 1" interrupts=false failures=1 causes='"lock held":1' expected=6 ;;
    interrupted) export limit="" interrupts=true failures=0 causes="" expected=0 ;;
    *) echo "unknown end '$2'" >&2; exit 2 ;;
esac
status=0
mkfifo held
authchip lock seed >/dev/null
authchip-sim --busy-ms 1 -- bash -c '
    env --default-signal=INT authchip -d /dev/i2c-7 -a 0x2a sign --for 2d --json-lines --report page.html $limit >output &
    tool=$!
    until [ -s output ]; do sleep 0.1; done
    holder /dev/i2c-7 0x2a >held &
    holder=$!
    read -r _ <held
    until authchip lock status | grep -q "^waiting .*1" || ! kill -0 $tool 2>/dev/null; do sleep 0.1; done
    cp output early
    ! $interrupts || kill -INT $tool
    result=0
    wait $tool || result=$?
    kill -KILL $holder
    exit $result' 2>errors || status=$?
[ $status -eq $expected ] || failed "exit status $status"
[ -z "$(tail -c 1 early)" ] || failed "a line is cut while the tool waits"
attempts=$(grep -c '^{"attempt":' output)
summary="{\"summary\":{\"attempts\":$attempts,\"successes\":$((attempts - failures)),\"failures\":$failures,\"causes\":{$causes},"
[[ $(tail -1 output) == "$summary"* ]] || failed "the last line is not $summary..."
grep -q '</html>' page.html || failed "there is no page"
if [ "$2" = timeout ]; then
    tail -2 output | head -1 | grep -q "^{\"attempt\":$attempts,.*\"cause\":\"lock held\"," || failed "the last attempt is not told"
    grep -q 'Waited 1 seconds for process' errors || failed "the cause is not told"
fi
authchip lock remove >/dev/null
