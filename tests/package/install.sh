#!/usr/bin/env bash
# Installs the Debian packages into a clean root of their release, uses them as their owner would, and removes them again:
# the demo runs, an outside project builds against them (on this machine's architecture), and nothing stays. Needs root.
# Usage: tests/package/install.sh PACKAGE_FOLDER RELEASE ARCHITECTURE
# Root of another architecture: its maintainer scripts cannot run while it is made, so it holds what the packages depend
# on, and the machine's own dpkg installs them into it; all that runs in there runs under scripts/emulate.
set -euo pipefail
case ${1:-} in --help) sed -n '2,6s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 3 ] || { echo "usage: tests/package/install.sh PACKAGE_FOLDER RELEASE ARCHITECTURE" >&2; exit 2; }

packages=$(cd "$1" && pwd) release=$2 architecture=$3
here=$(cd "$(dirname "$0")" && pwd)
project=$(cd "$here/../.." && pwd)
readonly names='libauthchipdriver1 libauthchipdriver-dev authchip-tools authchip-sim'
readonly native_names="$names authchipdriver-doc libauthchipdriver1-dbgsym authchip-tools-dbgsym authchip-sim-dbgsym"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Run inside; a failing line fails the whole.
cat >"$scratch/use" <<'END'
set -eux
authchip --help >/help
grep Usage /help
bash /packages/demo --installed
authchip lock seed
authchip doctor -d /dev/i2c-missing -a 0x2a >/answer || true # there is no bus, and it says so
grep -i 'i2c-missing' /answer
mkdir -p /etc/systemd/system/sysinit.target.wants /etc/default
ln -s /usr/lib/systemd/system/authchip-lock.service /etc/systemd/system/sysinit.target.wants/
echo 'AUTHCHIP_LOCK_OPTIONS=""' >/etc/default/authchip
END
cat >"$scratch/gone" <<'END'
set -eux # which an inverted command does not end by itself
! command -v authchip || exit 1
! find / -xdev \( -path /proc -o -path /dev -o -path /packages -o -path /project -o -path /var/lib/dpkg -o -path /var/log \
    -o -path /var/cache \) -prune -o -name '*authchip*' -print | grep . || exit 1
! ls /tmp | grep qipc || exit 1
[ "$(grep -c . /proc/sysvipc/sem)" -eq 1 ] # the line of headings
END
cat >"$scratch/outside" <<'END'
set -eux
apt-get install -y --no-install-recommends g++ cmake ninja-build pkg-config liblog4cplus-dev
cmake -S /packages/project -B /packages/cmake -G Ninja
cmake --build /packages/cmake
g++ -o /packages/plain /packages/project/main.cpp $(pkg-config --cflags --libs authchipdriver-defaulthook)
for program in /packages/cmake/outside /packages/plain; do
    [ "$(authchip-sim --device-version 5 -- $program /dev/i2c-7)" = "device version 5" ]
done
cp -r /usr/share/doc/libauthchipdriver-dev/examples/minimal-host /packages/example
cmake -S /packages/example -B /packages/example/build -G Ninja
cmake --build /packages/example/build
authchip-sim -- /packages/example/build/minimal-host /dev/i2c-7 0x2a
END
cp "$project/scripts/demo" "$scratch"
cp -r "$here/outside" "$scratch/project"

native() {
    cat >"$scratch/inside" <<END
set -eux
mkdir /packages
tar -C /packages -x
apt-get update
apt-get install -y --no-install-recommends /packages/*.deb 2>&1 | tee /said
dpkg --verify $native_names >/differences # its status does not tell of them
! grep . /differences || exit 1
ldconfig -p | grep libauthchipdriver.so.1
getent group i2c || grep "there is no group i2c" /said
dpkg -L libauthchipdriver-dev | grep man3/AuthChipDriver.3
sh /packages/use
sh /packages/outside
apt-get purge -y $native_names
sh /packages/gone
END
    cp "$packages"/*_{"$architecture",all}.deb "$scratch"
    tar -C "$scratch" --exclude=./log -c . | "$project/scripts/clean-root" "$release" sh -c "$(cat "$scratch/inside")"
}

foreign() {
    local root=$scratch/root needs archive
    archive=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' | head -n 1)
    needs=$(for name in $names; do dpkg-deb --field "$packages/$name"_*_"$architecture".deb Depends; done |
        tr ',' '\n' | sed -E 's/^ *([a-z0-9.+-]+).*/\1/' | grep -vxF "${names// /$'\n'}" | sort -u | tr '\n' ',')
    mmdebstrap --quiet --architectures="$architecture" --components=main --variant=extract \
        --include="${needs}bash,coreutils,dash,findutils,grep,libc-bin" "$release" "$root" "$archive"
    rm -rf "$root/dev" # a device node in there would stand before the machine's own
    mkdir -p "$root"/{dev,proc,packages,var/lib/dpkg/{info,updates}}
    touch "$root/var/lib/dpkg/status"
    ln -sf dash "$root/bin/sh"
    cp "$scratch"/{use,gone,demo} "$root/packages/"
    for name in $names; do cp "$packages/$name"_*_"$architecture".deb "$root/packages"; done
    local dpkg="dpkg --root=$root --force-architecture --force-depends"
    "$project/scripts/emulate" "$architecture" unshare --ipc sh -euxc '
        root=$1 dpkg=$2 names=$3
        inside() { chroot "$root" /bin/sh "/packages/$1"; }
        mount --rbind /proc "$root/proc"
        mount --rbind /dev "$root/dev"
        $dpkg --install "$root"/packages/*.deb
        $dpkg --verify $names >"$root/differences"
        ! grep . "$root/differences" || exit 1
        inside use
        $dpkg --purge $names
        inside gone' sh "$root" "$dpkg" "$names"
}

run=native
[ "$architecture" = "$(dpkg --print-architecture)" ] || run=foreign
# In its own shell, or a failing line would not end it.
(set -e; $run) >"$scratch/log" 2>&1 &
wait $! || { cat "$scratch/log" >&2; exit 1; }
