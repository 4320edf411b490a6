#!/bin/sh
# update-abi-baseline.sh BUILD_FOLDER: accepts the interface that the libraries of a build have now as the one to keep.
# The build must be by g++, with debug information and without sanitizers: cmake --preset dev. See docs/ABI.md.
set -eu

[ $# -eq 1 ] && [ -d "$1/lib" ] || {
    sed -n '2,3s/^# //p' "$0" >&2
    exit 2
}
tree=$(cd "$(dirname "$0")/.." && pwd)
for library in vukocrond vukoplatform; do
    abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names \
        --no-write-default-sizes "$1/lib/lib$library.so" |
        sed "s|path='$tree/|path='|" >"$tree/tests/abi/$library.abi"
    "$tree/tools/check_exports.py" --write "$1/lib/lib$library.so" "$tree/tests/abi/exports-$library.txt"
done
git -C "$tree" diff --stat -- tests/abi
