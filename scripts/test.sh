#!/usr/bin/env bash
# Builds the library and its tests and runs all tests. Installs on Debian what is missing for that.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

require_packages "${test_packages[@]}"
require_compiler
step "Configuring the build in build/dev" cmake --preset dev
step "Building the library and its tests" cmake --build --preset dev
run_tests dev
