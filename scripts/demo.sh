#!/usr/bin/env bash
# Builds the surface inspector and lets it classify the pictures in examples/data. Installs on Debian what is missing
# for that. Arguments are handed to the inspector.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

require_packages "${build_packages[@]}"
cmake --preset release
cmake --build --preset release --target surface_inspector
report=build/surface_inspector.html
"$(find build/release/examples -name surface_inspector -type f)" --report "$report" "$@"
echo "The report with pictures is $PWD/$report"
