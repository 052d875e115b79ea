#!/usr/bin/env bash
# A night in short: authenticates a simulated chip again and again while messages go wrong at random, and compares the
# summary with what the simulator counted: each read that is cut fails its attempt, each refused message is sent again.
# Neither memory nor descriptors may grow meanwhile.
# Usage: tests/tool/repeat/night.sh BUILD_FOLDER ATTEMPTS
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/tool/repeat/night.sh BUILD_FOLDER ATTEMPTS" >&2; exit 2; }
build=$(cd "$1" && pwd)
export PATH="$build/tool:$build/simulator:$PATH" attempts=$2
# AddressSanitizer would keep freed blocks for a while, and memory would grow.
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}quarantine_size_mb=0:thread_local_quarantine_size_kb=0"
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
cd "$scratch"
failed() { cat summary errors >&2; echo "$1" >&2; exit 1; }

# What the process has after a while, and at the end: kilobytes of memory, and descriptors.
sample() { echo "$(sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$1/status") $(find "/proc/$1/fd" -mindepth 1 | wc -l)"; }
export -f sample
status=0
authchip-sim --busy-ms 0 --random-faults 300 -- bash -c '
    authchip -d /dev/i2c-7 -a 0x2a --json authenticate --repeat "$attempts" --json-lines --report page.html >lines &
    tool=$!
    while kill -0 $tool 2>/dev/null; do
        sample $tool >sample 2>/dev/null || true
        ended=$(wc -l <lines)
        # It has not ended meanwhile, nor does it write its report yet, which takes memory of its own.
        if [[ $(<sample) =~ ^[0-9]+\ [1-9] ]] && [ "$ended" -lt "$attempts" ]; then
            [ -e early ] || [ "$ended" -lt $((attempts / 10)) ] || cp sample early
            mv sample late
        fi
        sleep 0.1
    done
    wait $tool' 2>errors || status=$?
tail -1 lines >summary

read -r refused reads < <(sed -n 's/^authchip-sim: at random: \([0-9]*\) messages refused, \([0-9]*\) reads cut$/\1 \2/p' errors)
[ -n "${reads:-}" ] || failed "the simulator does not say what it counted"
perl -MJSON::PP -e '
    my ($attempts, $refused, $failed) = @ARGV;
    open(my $file, "<", "summary") or die;
    my $summary = decode_json(<$file>)->{summary};
    my ($seen, $causes, $lines, $bad) = (0, 0, 0, 0);
    $seen += $_->{refused} for @{$summary->{steps}};
    $causes += $_ for values %{$summary->{causes}};
    open(my $each, "<", "lines") or die;
    while (<$each>) {
        my $line = decode_json($_);
        next if $line->{summary};
        ++$lines;
        ++$bad if defined $line->{cause};
    }
    my %expected = ("attempts" => [$attempts, $summary->{attempts}], "lines" => [$attempts, $lines],
        "failures" => [$failed, $summary->{failures}], "failures of lines" => [$failed, $bad],
        "failures by cause" => [$failed, $causes], "successes" => [$attempts - $failed, $summary->{successes}],
        "refused messages" => [$refused, $seen]);
    my $differs = 0;
    for (sort keys %expected) {
        my ($wanted, $got) = @{$expected{$_}};
        print "$_: $got\n";
        next if $wanted == $got;
        print STDERR "$_: $got, and the simulator counted $wanted\n";
        $differs = 1;
    }
    exit $differs;' "$attempts" "$refused" "$reads" || failed "the summary differs from what the simulator counted"
[ "$reads" -gt 0 ] && [ "$refused" -gt 0 ] || failed "nothing went wrong: this shows nothing"
[ $status -ne 0 ] || failed "attempts failed, and the exit status is 0"

read -r memory descriptors <early
read -r memoryLater descriptorsLater <late
echo "memory: $memory kB after a tenth, $memoryLater kB at the end; descriptors: $descriptors, $descriptorsLater"
# The thread that watches the lock has files open now and then.
[ "$descriptorsLater" -le $((descriptors + 8)) ] || failed "descriptors grow"
[ "$memoryLater" -le $((memory + 1024)) ] || failed "memory grows"
grep -q '</html>' page.html || failed "the page is not whole"
! grep -qE '<script|(src|href)=' page.html || failed "the page needs something from elsewhere"
