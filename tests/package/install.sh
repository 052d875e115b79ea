#!/usr/bin/env bash
# Installs the Debian packages into a clean minimal root made for the purpose, authenticates simulated chips in there,
# and removes them again. Needs root.
# Usage: tests/package/install.sh PACKAGE_FOLDER amd64|armhf
# Root of another architecture: its maintainer scripts cannot run while it is made, so it holds what the packages depend
# on, and the machine's own dpkg installs them into it; the programs run under scripts/emulate.
set -euo pipefail
case ${1:-} in --help) sed -n '2,6s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/package/install.sh PACKAGE_FOLDER amd64|armhf" >&2; exit 2; }

packages=$(cd "$1" && pwd) architecture=$2
project=$(cd "$(dirname "$0")/../.." && pwd)
readonly names='libauthchipdriver1 libauthchipdriver-dev authchip-tools'
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
archive=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' "Codename: $codename" 'Component: main' |
    head -n 1)
make_root() { mmdebstrap --quiet --architectures="$architecture" --components=main "$@" "$archive"; }

# Run inside; a failing line fails the whole.
cat >"$scratch/use" <<'END'
set -eux
authchip --help >/help
grep Usage /help
for version in 3 7; do
    authchip-sim --device-version $version -- authchip -d /dev/i2c-7 -a 0x2a authenticate >/answer
    cat /answer
    grep 'result     authentic' /answer
done
END
cat >"$scratch/gone" <<'END'
set -eux
! command -v authchip
! find / -xdev \( -path /proc -o -path /dev -o -path /packages -o -path /var/lib/dpkg -o -path /var/log \) -prune -o \
    -name '*authchip*' -print | grep .
END

native() {
    cat >"$scratch/inside" <<END
set -eux
apt-get install -y --no-install-recommends /packages/*.deb
dpkg --verify $names
ldconfig -p | grep libauthchipdriver.so.1
sh /packages/use
apt-get purge -y $names
sh /packages/gone
END
    make_root --variant=apt \
        --customize-hook="mkdir \"\$1/packages\"; cp $packages/*_$architecture.deb $scratch/inside $scratch/use $scratch/gone \"\$1/packages/\"" \
        --customize-hook='chroot "$1" sh /packages/inside' "$codename" /dev/null
}

foreign() {
    local root=$scratch/root needs
    needs=$(for package in "$packages"/*_"$architecture".deb; do dpkg-deb --field "$package" Depends; done |
        tr ',' '\n' | sed -E 's/^ *([a-z0-9.+-]+).*/\1/' | grep -vxF "${names// /$'\n'}" | sort -u | tr '\n' ',')
    make_root --variant=extract --include="${needs}dash,coreutils,findutils,grep" "$codename" "$root"
    rm -rf "$root/dev" # a device node in there would stand before the machine's own
    mkdir -p "$root"/{dev,proc,packages,var/lib/dpkg/{info,updates}}
    touch "$root/var/lib/dpkg/status"
    ln -sf dash "$root/bin/sh"
    cp "$scratch"/{use,gone} "$root/packages/"
    local dpkg=(dpkg --root="$root" --force-architecture --force-depends)
    "${dpkg[@]}" --install "$packages"/*_"$architecture".deb
    "${dpkg[@]}" --verify $names
    inside "$root" use
    "${dpkg[@]}" --purge $names
    inside "$root" gone
}
inside() { # ROOT SCRIPT
    "$project/scripts/emulate" "$architecture" sh -euc 'mount --rbind /proc "$0/proc"; mount --rbind /dev "$0/dev"
        exec chroot "$0" /bin/sh "/packages/$1"' "$1" "$2"
}

run=native
[ "$architecture" = "$(dpkg --print-architecture)" ] || run=foreign
# In a shell of its own, or a failing line would not end it.
(set -e; $run) >"$scratch/log" 2>&1 &
wait $! || { cat "$scratch/log" >&2; exit 1; }
