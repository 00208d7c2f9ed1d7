#!/usr/bin/env bash
# Runs the tests with counted lines and prints the line coverage of the library, file by file. The lines that no
# test reached are listed. Fails below 98 percent; arguments are handed to gcovr.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

require_packages "${test_packages[@]}" gcovr=gcovr
cmake --preset coverage
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$(nproc)"
gcovr --root . --object-directory build/coverage \
    --filter foundation/ --filter numerics/ --filter clss/ --fail-under-line 98 "$@"
