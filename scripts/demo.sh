#!/usr/bin/env bash
# Builds the surface inspector and lets it classify the pictures in examples/data. Installs on Debian what is missing
# for that. Arguments are handed to the inspector (--help lists them); files that they name are looked for where the
# script is called.
set -euo pipefail
here=$PWD
cd "$(dirname "$0")/.."
root=$PWD
source scripts/support.sh

build()
{
    cmake --preset release && cmake --build --preset release --target surface_inspector
}

require_packages "${build_packages[@]}"
require_compiler
step "Building the surface inspector" build

# A report that is asked for among the arguments takes the place of ours.
details=$root/build/surface_inspector.txt
cd "$here"
"$root/build/release/examples/surface_inspector/surface_inspector" \
    --report "$root/build/surface_inspector.html" "$@" > "$details"
report=$(sed -n 's/^Report with pictures: //p' "$details")
if [[ -z $report ]]; then
    cat "$details" # the help
    exit
fi

# The first line says what was learned; each method's accuracy stands below its name.
echo
awk 'NR == 1 { print }
    /^[^ ]/ { title = $0 }
    /^  accuracy / { sub(/^  accuracy /, ""); printf "  %s  %s\n", $0, title }' "$details"
echo "All that it found in words: $details"
echo "The report with pictures: $(realpath "$report")"
