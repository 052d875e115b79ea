#!/usr/bin/env bash
# Checks that each option of each command of authchip is described in the manual, offered by the completion, and used in
# the command of a golden file.
# Usage: tests/tool/options.sh BUILD_FOLDER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 1 ] || { echo "usage: tests/tool/options.sh BUILD_FOLDER" >&2; exit 2; }
program=$(cd "$1" && pwd)/tool/authchip
cd "$(dirname "$0")/../.."

options_of() { # COMMAND...: with its short form before it, "-o,--output", as the help has it
    "$program" "$@" --help | grep -oE '^  (-[a-zA-Z],)?--[a-z-]+' | tr -d ' '
}
commands_of() {
    "$program" "$@" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\) .*/\1/p'
}

# As bash asks for them: the cursor behind "--".
source packaging/completions/authchip
completed() { # COMMAND... OPTION
    COMP_WORDS=("$program" "${@:1:$#-1}" --) COMP_CWORD=$# COMPREPLY=()
    _authchip "$program"
    printf '%s\n' "${COMPREPLY[@]}" | grep -xF -e "${!#}" >/dev/null # to its end, or printf finds a closed pipe
}
manual=$(sed 's/\\-/-/g; s/\\f[A-Z]//g' packaging/man/authchip.1)
mapfile -t golden < <(sed -sn '1s/^\$ //p' tests/tool/golden/*.txt)
described() { grep -qE -e "(^|[^a-z-])$1([^a-z-]|$)" <<<"$manual"; }
used() { # COMMAND OPTION SHORT: a golden command names the command, and the option
    printf '%s\n' "${golden[@]}" | grep -E -e "(^|[^a-z-])$1([^a-z-]|$)" |
        grep -E -e "(^| )($2|$3)([ =]|$)" >/dev/null
}

status=0 count=0
check() { # COMMAND...
    local option long short
    while read -r option; do
        long=${option#*,} short=${option%%,--*}
        count=$((count + 1))
        described "$long" || { echo "$* $long: the manual does not describe it" >&2; status=1; }
        completed "$@" "$long" || { echo "$* $long: the completion does not offer it" >&2; status=1; }
        used "${*:-.*}" "$long" "$short" || { echo "$* $long: no golden file uses it" >&2; status=1; }
    done < <(options_of "$@")
}
check
for command in $(commands_of); do
    below=$(commands_of "$command")
    check "$command"
    for word in $below; do
        check "$command" "$word"
    done
done
[ $count -ge 60 ] || { echo "the help lists only $count options" >&2; status=1; }
exit $status
