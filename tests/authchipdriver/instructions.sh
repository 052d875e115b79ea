#!/usr/bin/env bash
# Counts with callgrind the instructions that one call of each operation executes in the library itself ("own") and in
# the libraries below it (Qt, log4cplus, the C++ library), and compares them with the figures in instructions.tsv.
#
# Usage: instructions.sh check  PROGRAM PROCESSOR COMPILER VERSION BUILDTYPE    within 3 % of the table? 0 yes, 1 no
#        instructions.sh update PROGRAM PROCESSOR COMPILER VERSION BUILDTYPE    puts the figures into the table
#        instructions.sh count  PROGRAM [library|floor]    writes "GENERATION OPERATION OBJECT INSTRUCTIONS" lines
# PROGRAM is measuredoperations. Where valgrind is missing, or the table has no figures for the compiler, check says so
# and ends with status 77 (skipped).
set -euo pipefail

table=$(dirname "$0")/instructions.tsv
readonly table
readonly calls=100 # of each operation, as measuredoperations makes them

usage() { sed -n '/^# Counts/,/^set /{/^set /d;s/^# \{0,1\}//;p}' "$0"; }

# The instructions of one profile, summed by object: a line below "calls=" is the callee's and not counted here.
sum_by_object() {
    awk -v calls="$calls" '
        /^ob=/              { object = substr($0, 4); sub(/.*\//, "", object); next }
        /^calls=/           { inCallee = 1; next }
        /^[0-9+*-]/         { if (!inCallee) sum[object] += $2; inCallee = 0 }
        END                 { for (object in sum) printf "%s %.0f\n", object, sum[object] / calls }' "$1"
}

count() { # PROGRAM [WHAT]
    local folder operation part=0
    folder=$(mktemp -d)
    TMPDIR=$folder valgrind --tool=callgrind --toggle-collect=measured --dump-after=measured --compress-strings=no \
        --callgrind-out-file="$folder/profile" "$1" "${2:-library}" >"$folder/operations" 2>"$folder/messages" ||
        { cat "$folder/messages" >&2; rm -r "$folder"; return 1; }
    while read -r operation; do
        part=$((part + 1))
        sum_by_object "$folder/profile.$part" | sed "s/^/$operation /"
    done <"$folder/operations"
    rm -r "$folder"
}

# "GENERATION OPERATION OWN BELOW" lines.
own_and_below() {
    count "$1" | awk '
        { key = $1 " " $2; if (!(key in own)) { own[key] = below[key] = 0; keys[++n] = key } }
        $3 ~ /^libauthchipdriver\./               { own[key] += $4 }
        $3 ~ /^lib(Qt5Core|log4cplus|stdc\+\+)/   { below[key] += $4 }
        END { for (i = 1; i <= n; ++i) print keys[i], own[keys[i]], below[keys[i]] }'
}

skip() {
    echo "skipped: $1"
    exit 77
}

check() { # PROGRAM KEY
    command -v valgrind >/dev/null || skip "valgrind is not installed"
    grep -qF "$2"$'\t' "$table" || skip "no figures for '$2' in $table; instructions.sh update adds them"
    own_and_below "$1" | awk -v key="$2" -F '[\t ]' -v table="$table" '
        function differs(counted, expected) { return counted > expected * 1.03 || counted < expected * 0.97 }
        BEGIN {
            while ((getline line < table) > 0) {
                split(line, field, "\t")
                if (field[1] == key) { own[field[2] " " field[3]] = field[4]; below[field[2] " " field[3]] = field[5]; ++rows }
            }
        }
        {
            operation = $1 " " $2
            bad = !(operation in own) || differs($3, own[operation]) || differs($4, below[operation])
            printf "%-4s %-46s own %5d (table %5d)  below %5d (table %5d)%s\n", $1, $2, $3, own[operation], $4,
                below[operation], bad ? "  <-- more than 3 % away" : ""
            failed += bad
            ++counted
        }
        END { exit failed > 0 || counted != rows || counted == 0 }'
}

update() { # PROGRAM KEY
    {
        head -1 "$table"
        {
            tail -n +2 "$table" | grep -vF "$2"$'\t' || true
            own_and_below "$1" | awk -v key="$2" -v OFS='\t' '{ print key, $1, $2, $3, $4 }'
        } | sort --stable --field-separator=$'\t' --key=1,1
    } >"$table.new"
    mv "$table.new" "$table"
}

case "${1:-}" in
check | update) [ $# -eq 6 ] || { usage >&2; exit 2; } && "$1" "$2" "$3 $4 $5 $6" ;;
count) [ $# -ge 2 ] || { usage >&2; exit 2; } && count "$2" "${3:-library}" ;;
-h | --help) usage ;;
*) usage >&2; exit 2 ;;
esac
