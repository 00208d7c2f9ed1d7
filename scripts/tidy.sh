#!/usr/bin/env bash
# Checks that all sources are formatted, that every published header compiles by itself and that clang-tidy finds
# nothing in the library.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

require_packages "${test_packages[@]}" clang-format=clang-format clang-tidy=clang-tidy
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
cmake --preset dev -DCMAKE_VERIFY_INTERFACE_HEADER_SETS=ON > /dev/null
cmake --build --preset dev --target all_verify_interface_header_sets
run-clang-tidy -quiet -p build/dev "^$PWD/(foundation|numerics|clss)/"
