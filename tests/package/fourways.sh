#!/usr/bin/env bash
# Builds outside projects against an installed copy, with the source in their tree, and with a toolchain file and sysroot
# of their own (armhf): each finds a simulated chip. The fourth way, the packages, is tests/package/install.sh. For a clean
# root: scripts/clean-root --with build --with armhf RELEASE tests/package/fourways.sh
# Usage: tests/package/fourways.sh
set -euo pipefail
case ${1:-} in --help) sed -n '2,5s/^# \?//p' "$0"; exit 0 ;; esac
cd "$(dirname "$0")/../.."

log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() { "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }; }

quietly cmake --preset release -DBUILD_TESTING=OFF
quietly cmake --build --preset release
tests/package/outside.sh build/release g++ ""
tests/package/subproject.sh build/release g++

quietly scripts/sysroot armhf
quietly cmake --preset package-armhf -DBUILD_TESTING=OFF
quietly cmake --build --preset package-armhf
scripts/emulate armhf tests/package/foreignsysroot.sh build/package-armhf arm-linux-gnueabihf-g++ arm build/sysroot/armhf
