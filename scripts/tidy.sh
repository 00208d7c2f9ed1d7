#!/usr/bin/env bash
# Checks that all sources are formatted, that every published header compiles by itself and that clang-tidy finds
# nothing in the library.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

headers_alone()
{
    cmake --preset dev -DCMAKE_VERIFY_INTERFACE_HEADER_SETS=ON &&
        cmake --build --preset dev --target all_verify_interface_header_sets
}

require_packages "${tidy_packages[@]}"
require_compiler
folders=(clastool foundation numerics clss tests fuzz benchmarks examples)
mkdir -p build/log
find "${folders[@]}" -name '*.h' -o -name '*.cpp' > build/log/sources.txt
step "Looking at the format of the sources" xargs --arg-file build/log/sources.txt clang-format --dry-run --Werror
step "Compiling every published header alone" headers_alone
# Named by its path: the first python3 to be found may be another than the one that Debian's script is made for.
step "Looking at the library with clang-tidy" \
    /usr/bin/python3 "$(command -v run-clang-tidy)" -quiet -p build/dev "^$PWD/(clastool|foundation|numerics|clss)/"
