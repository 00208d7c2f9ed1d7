#!/usr/bin/env bash
# Runs the tests with counted lines and prints the line coverage of the library, file by file. The lines that no
# test reached are listed. Fails below 98 percent; arguments are handed to gcovr.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

require_packages "${test_packages[@]}" gcovr=gcovr
require_compiler
step "Configuring the build in build/coverage" cmake --preset coverage
step "Building the tests with counted lines" cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
run_tests coverage
gcovr --root . --object-directory build/coverage \
    --filter foundation/ --filter numerics/ --filter clss/ --fail-under-line 98 "$@"
