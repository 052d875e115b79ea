# For the scripts beside it, which source it: builds an example against an installed copy of the library.

quietly() { "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; exit 1; }; }

# Starts a host with a closed standard output and a file as its node, which no bus is behind: what the library says of it
# must not go there.
expect_no_words_on_the_node() { # HOST ARGUMENT...    NODE stands for the file
    : >"$scratch/node"
    # Until the end of a daemon, too. It fails, for there is no chip.
    { sh -c 'exec "$@" >&-' sh "${@/#NODE/$scratch/node}" 2>&1 || true; } | cat >"$scratch/log"
    [ ! -s "$scratch/node" ] || { cat "$scratch/node" >&2; echo "that went to the node of: $*" >&2; exit 1; }
}

# Sets up $scratch, which goes when the script ends, with the program in $scratch/host.
build_example() { # NAME BUILD_FOLDER COMPILER COMPILER_FLAGS
    scratch=$(mktemp -d)
    trap 'rm -r "$scratch"' EXIT
    # A copy, so that nothing of this tree is near it.
    cp -r "$(dirname "${BASH_SOURCE[0]}")/../../examples/$1" "$scratch/source"
    for component in runtime development; do
        quietly "$(dirname "${BASH_SOURCE[0]}")/../support/install" "$2" --prefix "$scratch/prefix" --component "$component"
    done
    quietly cmake -S "$scratch/source" -B "$scratch/host" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" \
        -DCMAKE_CXX_COMPILER="$3" -DCMAKE_CXX_FLAGS="$4 -Wall -Wextra -Wpedantic -Wconversion -Werror"
    quietly cmake --build "$scratch/host"
}
