#!/usr/bin/env bash
# Compares the commands and options that a program's help lists with those that its manual page and its completion know.
# Usage: tests/package/manual.sh PROGRAM MANUAL_PAGE COMPLETION
set -euo pipefail
case ${1:-} in --help) sed -n '2,3s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/package/manual.sh PROGRAM MANUAL_PAGE COMPLETION" >&2; exit 2; }

listed=$("$1" --help | grep -oE '^  (-[a-z],)?--[a-z-]+' | sed 's/^ *//; s/^-[a-z],//' | LC_ALL=C sort -u)
[ -n "$listed" ] || { echo "$1 --help lists no option" >&2; exit 1; }

described=$(awk '/^\.TP/ { getline; print }' "$2" | sed 's/\\-/-/g; s/\\f[A-Z]//g' | grep -oE -e '--[a-z-]+' |
    LC_ALL=C sort -u)
diff <(echo "$listed") <(echo "$described") || { echo "$2 does not describe what --help lists (<)" >&2; exit 1; }

# As bash calls it: with the cursor after "--".
COMP_WORDS=("$1" --) COMP_CWORD=1
source "$3"
function=$(complete -p "$(basename "$1")" | sed 's/.*-F \([^ ]*\).*/\1/')
"$function" "$1"
completed=$(printf '%s\n' "${COMPREPLY[@]}" | grep -vx -e -- | LC_ALL=C sort -u)
diff <(echo "$listed") <(echo "$completed") || { echo "$3 does not offer what --help lists (<)" >&2; exit 1; }

commands_of() { # COMMAND...: the words that its help lists below "Subcommands:"
    "$@" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\) .*/\1/p'
}
completions_of() { # WORD...: what is offered behind them
    COMP_WORDS=("$program" "$@" "") COMP_CWORD=$(($# + 1)) COMPREPLY=()
    "$function" "$program"
    printf '%s\n' "${COMPREPLY[@]}" | grep -v '^-' || true
}
program=$1
for command in $(commands_of "$program"); do
    below=$(commands_of "$program" "$command")
    while read -r words; do
        grep -qxF ".B $words" "$2" || { echo "$2 does not describe the command '$words'" >&2; exit 1; }
    done < <(if [ -n "$below" ]; then sed "s/^/$command /" <<<"$below"; else echo "$command"; fi)
    [ -z "$below" ] || diff <(echo "$below") <(completions_of "$command") ||
        { echo "$3 does not offer the commands of '$command' (<)" >&2; exit 1; }
done
diff <(commands_of "$program") <(completions_of) || { echo "$3 does not offer the commands (<)" >&2; exit 1; }

# Values that have a list.
if [ "$(basename "$program")" = authchip ]; then
    modes=$(completions_of lock seed --mode | xargs)
    [ "$modes" = "0600 0660 0666" ] || { echo "$3 offers '$modes' for --mode" >&2; exit 1; }
    completions_of lock seed --group | grep -x "$(id -gn 0)" >/dev/null || { echo "$3 does not offer groups for --group" >&2; exit 1; }
fi
