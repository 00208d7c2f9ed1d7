#!/usr/bin/env bash
# Builds the library and its tests and runs all tests. Installs on Debian what is missing for that.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

require_packages "${test_packages[@]}"
cmake --preset dev
cmake --build --preset dev
ctest --preset dev --parallel "$(nproc)"
