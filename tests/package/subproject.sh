#!/usr/bin/env bash
# Builds a product that has the library's source in its tree, by add_subdirectory with Ninja and by FetchContent with
# Make. Its host finds a simulated chip, and its flags, tests and installed files are its own.
# Usage: tests/package/subproject.sh BUILD_FOLDER COMPILER
set -euo pipefail
case ${1:-} in --help) sed -n '2,4s/^# \?//p' "$0"; exit 0 ;; esac
[ $# -eq 2 ] || { echo "usage: tests/package/subproject.sh BUILD_FOLDER COMPILER" >&2; exit 2; }

build=$1 compiler=$2
here=$(cd "$(dirname "$0")" && pwd)
library=$(cd "$here/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -r "$scratch"' EXIT
quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }
failed() { echo "$way, $generator: $1" >&2; exit 1; }

cp -r "$here/parent" "$here/outside/main.cpp" "$scratch"
take() { # WAY GENERATOR
    way=$1 generator=$2
    local folder="$scratch/a folder for $1"
    quietly cmake -S "$scratch/parent" -B "$folder" -G "$generator" -DWAY="$way" -DLIBRARY="$library" \
        -DHOST="$scratch/main.cpp" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_CXX_FLAGS_RELEASE="-O0 -DNDEBUG"
    quietly cmake --build "$folder" --parallel 2

    local answer
    answer=$("$build/simulator/authchip-sim" --device-version 5 -- "$folder/host" /dev/i2c-7)
    [ "$answer" = "device version 5" ] || failed "the host answers: $answer"
    grep '"command".*/host\.dir/' "$folder/compile_commands.json" >"$scratch/command"
    ! grep -E 'UNDEBUG|no-plt|prefix-map|Wno-error' "$scratch/command" ||
        failed "the host is compiled with options of the library"
    [ "$(ctest --test-dir "$folder" --show-only | grep -c 'Test *#')" -eq 1 ] || failed "there are tests of the library"
    answer=$(installed)
    [ "$answer" = ./bin/host ] || failed "installed is: $answer"

    quietly cmake "$folder" -DAUTHCHIPDRIVER_INSTALL=ON
    quietly cmake --build "$folder"
    installed >"$scratch/names"
    grep -q 'lib.*/libauthchipdriver\.so\.1$' "$scratch/names" || failed "the library is not installed on request"
    grep -q 'authchipdriverConfig.cmake' "$scratch/names" || failed "its development files are not installed on request"
}
installed() { # the names of what the parent installs
    rm -rf "$scratch/installed"
    quietly cmake --install "$folder" --prefix "$scratch/installed"
    (cd "$scratch/installed" && find . ! -type d)
}
take add_subdirectory Ninja
take FetchContent "Unix Makefiles"
