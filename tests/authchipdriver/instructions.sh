#!/usr/bin/env bash
# Counts with callgrind the instructions that one call of each operation executes in the library itself ("own") and in
# the libraries below it (Qt, log4cplus, the C++ library), and compares them with the figures in instructions.tsv.
#
# Usage: instructions.sh own    PROGRAM PROCESSOR COMPILER VERSION BUILDTYPE    the library's own as in the table?
#        instructions.sh below  PROGRAM PROCESSOR COMPILER VERSION BUILDTYPE    those below it within 3 % of the table?
#        instructions.sh update PROGRAM PROCESSOR COMPILER VERSION BUILDTYPE    puts the figures into the table
#        instructions.sh count  PROGRAM [library|floor]    writes "GENERATION OPERATION OBJECT INSTRUCTIONS" lines
# PROGRAM is measuredoperations. The table has figures for some compilers, and says which packages those of the libraries
# below are from: an update of theirs is no fault of ours. Where valgrind is missing, or the table has no figures for the
# compiler or for the packages, own and below say so and end with status 77 (skipped); else with 0 for yes and 1 for no.
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

# The packages of the libraries below, and their versions.
packages() {
    dpkg-query --show --showformat='${db:Status-Status} ${Package} ${Version}\n' \
        'libqt5core5*' 'liblog4cplus-2*' libstdc++6 2>/dev/null | sed -n 's/^installed //p' | paste -sd ,
}

compare() { # COLUMN MARGIN PROGRAM KEY
    command -v valgrind >/dev/null || skip "valgrind is not installed"
    grep -qF "$4"$'\t' "$table" || skip "no figures for '$4' in ${table##*/}; instructions.sh update adds them"
    own_and_below "$3" | awk -v key="$4" -v column="$1" -v margin="$2" -F '[\t ]' -v table="$table" '
        function differs(counted, expected) { return counted > expected * (1 + margin) || counted < expected * (1 - margin) }
        BEGIN {
            while ((getline line < table) > 0) {
                split(line, field, "\t")
                if (field[1] == key) { expected[field[2] " " field[3]] = field[column + 1]; ++rows }
            }
        }
        {
            operation = $1 " " $2
            bad = !(operation in expected) || differs($column, expected[operation])
            printf "%-4s %-46s %5d (table %5d)%s\n", $1, $2, $column, expected[operation], bad ? "  <-- differs" : ""
            failed += bad
            ++counted
        }
        END { exit failed > 0 || counted != rows || counted == 0 }'
}

own() { compare 3 0 "$@"; }

below() { # PROGRAM KEY
    local measured installed
    measured=$(sed -n "s/^# $2: //p" "$table")
    installed=$(packages)
    [ -z "$measured" ] || [ "$measured" = "$installed" ] ||
        skip "the figures are those of $measured; installed are $installed"
    compare 4 0.03 "$@"
}

update() { # PROGRAM KEY
    {
        grep '^#' "$table" | grep -vF "# $2: "
        echo "# $2: $(packages)"
        {
            grep -v '^#' "$table" | grep -vF "$2"$'\t' || true
            own_and_below "$1" | awk -v key="$2" -v OFS='\t' '{ print key, $1, $2, $3, $4 }'
        } | sort --stable --field-separator=$'\t' --key=1,1
    } >"$table.new"
    mv "$table.new" "$table"
}

case "${1:-}" in
own | below | update) [ $# -eq 6 ] || { usage >&2; exit 2; } && "$1" "$2" "$3 $4 $5 $6" ;;
count) [ $# -ge 2 ] || { usage >&2; exit 2; } && count "$2" "${3:-library}" ;;
-h | --help) usage ;;
*) usage >&2; exit 2 ;;
esac
