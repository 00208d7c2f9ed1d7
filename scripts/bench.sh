#!/usr/bin/env bash
# Builds the benchmarks, measures the library against others and writes docs/performance.md with its charts. Installs
# on Debian what is missing; elsewhere, other libraries that are not found are left out. With --quick everything runs
# once with small data, and nothing is written outside build/. Further arguments choose workloads.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

require_packages "${build_packages[@]}" python3=/usr/bin/python3 libopencv-dev=/usr/include/opencv4/opencv2/ml.hpp \
    libfaiss-dev=/usr/include/faiss/IndexFlat.h libdlib-dev=/usr/include/dlib/statistics.h \
    libeigen3-dev=/usr/include/eigen3/Eigen/Dense libfuzzylite-dev=/usr/include/fl/Headers.h \
    python3-sklearn=/usr/lib/python3/dist-packages/sklearn/__init__.py
require_compiler
step "Configuring the build in build/release" cmake --preset release -DCLASTOOL_BUILD_BENCHMARKS=ON
step "Building the benchmarks" cmake --build --preset release --target benchmarks

# One thread for everyone, and the same processor throughout.
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1 MKL_NUM_THREADS=1
pinned=()
if command -v taskset > /dev/null; then
    pinned=(taskset --cpu-list "$(($(nproc) - 1))")
fi
out=build/benchmarks
mkdir -p "$out"
{
    sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1
    "${CXX:-c++}" --version | head -n 1
} > "$out/machine.txt"
quick=()
docs=docs
if [[ ${1:-} == --quick ]]; then
    quick=(--quick)
    docs=$out
    shift
fi
"${pinned[@]}" build/release/benchmarks/benchmarks "${quick[@]}" "$out" "$@" | tee "$out/log.txt"
sed -n 's/^Peers: /Measured against: /p' "$out/log.txt" >> "$out/machine.txt"
/usr/bin/python3 benchmarks/report.py "$out" "$docs"
echo "The report is $docs/performance.md"
