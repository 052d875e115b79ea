#!/usr/bin/env bash
# Installs the library, its development package and its debug symbols for several architectures beside each other into a
# clean root of their release, as someone does who builds for a board on a PC. Needs root.
# Usage: tests/package/beside.sh PACKAGE_FOLDER RELEASE ARCHITECTURE...      the first is this machine's
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -ge 4 ] || { echo "usage: tests/package/beside.sh PACKAGE_FOLDER RELEASE ARCHITECTURE..." >&2; exit 2; }

packages=$(cd "$1" && pwd) release=$2
shift 2
project=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Without what they depend on: Debian's own packages are known to work beside each other.
cat >"$scratch/inside" <<END
set -eux
mkdir /packages
tar -C /packages -x
for architecture in ${*:2}; do dpkg --add-architecture \$architecture; done
dpkg --force-depends --install /packages/*.deb
for architecture in $*; do
    for name in libauthchipdriver1 libauthchipdriver-dev libauthchipdriver1-dbgsym; do
        dpkg --verify \$name:\$architecture >/differences # its status does not tell of them
        ! grep . /differences || exit 1
        [ "\$(dpkg-query --show --showformat='\${db:Status-Status}' \$name:\$architecture)" = installed ]
    done
done
[ "\$(find /usr/lib -name libauthchipdriver.so.1 | wc -l)" -eq $# ]
dpkg --force-depends --purge libauthchipdriver-dev:$2
[ -e /usr/include/authchipdriver/authchipdriver.h ] # still the other's
END
mkdir "$scratch/packages"
for architecture in "$@"; do
    cp "$packages"/libauthchipdriver{1,-dev,1-dbgsym}_*_"$architecture".deb "$scratch/packages"
done
tar -C "$scratch/packages" -c . |
    "$project/scripts/clean-root" "$release" sh -c "$(cat "$scratch/inside")" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; exit 1; }
