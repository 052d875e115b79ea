#!/usr/bin/env bash
# Lets no error that lintian knows through, and no missing hardening, which it counts among its warnings and hints. Of
# packages with debug symbols it reports what Debian's own packages also lack.
# Usage: tests/package/lintian.sh PACKAGE...
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 1 ] || { echo "usage: tests/package/lintian.sh PACKAGE..." >&2; exit 2; }

packages=()
for package in "$@"; do
    [[ $package == *-dbgsym_* ]] || packages+=("$package")
done
status=0
said=$(lintian --allow-root --display-info --fail-on error "${packages[@]}" 2>&1) || status=$?
if [ "$status" -ne 0 ] || grep -q ' hardening-' <<<"$said"; then
    echo "$said"
    exit 1
fi
