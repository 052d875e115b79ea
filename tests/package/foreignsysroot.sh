#!/usr/bin/env bash
# Builds and installs the library with a toolchain file that is not ours, against a sysroot at another place that holds
# what Debian ships, letter by letter; builds a host against that copy, which finds a simulated chip.
# Usage: tests/package/foreignsysroot.sh BUILD_FOLDER COMPILER PROCESSOR SYSROOT
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 4 ] || { echo "usage: tests/package/foreignsysroot.sh BUILD_FOLDER COMPILER PROCESSOR SYSROOT" >&2; exit 2; }

build=$(cd "$1" && pwd) sysroot=$4
export PRODUCT_COMPILER=$2 PRODUCT_PROCESSOR=$3
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d "$build/product-XXXXXX") # beside the sysroot, so that its files need no second place
trap 'rm -rf "$scratch"' EXIT
quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }
unset CMAKE_TOOLCHAIN_FILE PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR CXXFLAGS

export PRODUCT_SYSROOT=$scratch/product/target
mkdir -p "$PRODUCT_SYSROOT"
cp -al "$sysroot"/lib* "$sysroot/usr" "$PRODUCT_SYSROOT"
# What scripts/sysroot makes easier for hosts is as Debian has it.
log4cplus=$(echo "$PRODUCT_SYSROOT"/usr/lib/*/cmake/log4cplus/log4cplusTargets.cmake)
libraries=${log4cplus#"$PRODUCT_SYSROOT"}
libraries=${libraries%/cmake/*}
# Debian 12 names both, Debian 13 the first only.
sed "/INTERFACE_LINK_LIBRARIES/{s#\"rt#\"$libraries/librt.a#; s#;nsl\"#;$libraries/libnsl.so\"#}" "$log4cplus" >"$scratch/log4cplus"
grep -q "$libraries/librt.a" "$scratch/log4cplus" || { echo "$log4cplus is not what it was" >&2; exit 1; }
rm "$log4cplus"
mv "$scratch/log4cplus" "$log4cplus"

cross() { # SOURCE BUILD [OPTION...]
    quietly cmake -S "$1" -B "$scratch/$2" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$here/outside/toolchain.cmake" "${@:3}"
    quietly cmake --build "$scratch/$2"
}
cross "$here/../.." library -DBUILD_TESTING=OFF -DAUTHCHIPDRIVER_TOOLS=OFF -DCMAKE_INSTALL_PREFIX=/usr
quietly env DESTDIR="$PRODUCT_SYSROOT" cmake --install "$scratch/library"
cross "$here/outside" host

# Not every sysroot has log4cplus built with CMake; pkg-config still finds it.
rm -r "${log4cplus%/*}"
export PKG_CONFIG_SYSROOT_DIR=$PRODUCT_SYSROOT PKG_CONFIG_LIBDIR=$PRODUCT_SYSROOT$libraries/pkgconfig
cross "$here/../.." again -DBUILD_TESTING=OFF -DAUTHCHIPDRIVER_TOOLS=OFF

answer=$(LD_LIBRARY_PATH=$(dirname "$(find "$PRODUCT_SYSROOT" -name libauthchipdriver.so.1)") \
    "$build/simulator/authchip-sim" --device-version 5 -- "$scratch/host/outside" /dev/i2c-7)
[ "$answer" = "device version 5" ] || { echo "the host answers: $answer" >&2; exit 1; }
