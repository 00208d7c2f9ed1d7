#!/usr/bin/env bash
# cross.sh [PLATFORM...]: builds the library and its tests for other platforms, compilers and optimisation levels, runs
# them, those of other processors in an emulator, and writes docs/platforms.md. Without arguments, for all of them.
# Installs on Debian what is missing for that. Levels that the processor lacks are skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

levels=(O0 O2 O3 Os v3 v4)
platforms=("${levels[@]/#/g++-}" "${levels[@]/#/clang++-}" i686 aarch64 armhf riscv64 s390x windows)

# describe PLATFORM: sets what the functions below read. False for a platform that is not known.
describe()
{
    title= system=Linux compiler= options= emulator= packages=()
    case $1 in
    g++-O? | clang++-O?) compiler=${1%-*} options=-${1##*-} ;;
    g++-v? | clang++-v?) compiler=${1%-*} options="-O2 -march=x86-64-${1##*-}" ;;
    # Without SSE2 its doubles would be those of the x87, which the library refuses.
    i686) cross_compiler i686-linux-gnu "32 bits" '' && options='-O2 -msse2 -mfpmath=sse' ;;
    aarch64) cross_compiler aarch64-linux-gnu "64 bits" qemu-aarch64-static ;;
    armhf) cross_compiler arm-linux-gnueabihf "32 bits" qemu-arm-static ;;
    riscv64) cross_compiler riscv64-linux-gnu "64 bits" qemu-riscv64-static ;;
    s390x) cross_compiler s390x-linux-gnu "64 bits, big-endian" qemu-s390x-static ;;
    windows)
        cross_compiler x86_64-w64-mingw32 'Windows, `long` of 32 and `wchar_t` of 16 bits' /usr/lib/wine/wine64
        system=Windows packages=(g++-mingw-w64-x86-64-posix=x86_64-w64-mingw32-g++ wine64=/usr/lib/wine/wine64)
        ;;
    *) return 1 ;;
    esac
    [[ -n $title ]] || title="x86-64, $compiler $options" packages=("${compiler/clang++/clang}=$compiler")
}

cross_compiler()
{
    compiler=$1-g++ options=-O2 emulator=$3 packages=("g++-$1=$1-g++")
    title="${1%%-*}, $2"
    [[ -z $emulator ]] || packages+=("qemu-user-static=$emulator")
}

# configure SOURCES FOLDER [option...]: everything is found among the platform's own files, and linked statically, so
# that no program needs a root file system of its platform. What a compiler warns of at one level only is no error.
configure()
{
    local sources=$1 folder=$2 cross=()
    shift 2
    if [[ $compiler == *-*-* ]]; then
        cross=(-DCMAKE_SYSTEM_NAME="$system" -DCMAKE_SYSTEM_PROCESSOR="${compiler%%-*}"
            -DCMAKE_EXE_LINKER_FLAGS=-static -DCMAKE_CROSSCOMPILING_EMULATOR="$emulator"
            -DCMAKE_FIND_ROOT_PATH="/usr/${compiler%-g++};$prefix"
            -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY
            -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY)
    fi
    cmake --compile-no-warning-as-error -S "$sources" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_C_COMPILER="$(sed 's/clang++$/clang/; s/g++$/gcc/' <<< "$compiler")" \
        -DCMAKE_CXX_FLAGS="$options" -DCMAKE_PREFIX_PATH="$prefix" "${cross[@]}" "$@"
}

build_googletest()
{
    configure /usr/src/googletest "$folder/googletest" -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$prefix" &&
        cmake --build "$folder/googletest" && cmake --install "$folder/googletest"
}

# Without the examples: what their tests compare are outputs of programs that run here.
build_tests()
{
    configure . "$folder" -DCLASTOOL_BUILD_EXAMPLES=OFF && cmake --build "$folder"
}

# run_platform PLATFORM: leaves its row of the table in build/cross. The tests of the scripts and of what is installed
# are about this machine and not about the platform.
run_platform()
{
    local folder=build/cross/$1 prefix=$PWD/build/cross/$1/prefix log=build/cross/$1.log status=0 digest=differ
    step "$1: building GoogleTest" build_googletest || return
    step "$1: building the library and its tests" build_tests || return
    echo "$1: running the tests"
    WINEPREFIX=$PWD/$folder/wine WINEDEBUG=-all ctest --test-dir "$folder" --parallel "$(nproc)" \
        --output-on-failure --label-exclude '^packaging$' --exclude-regex '^scripts\.' > "$log" 2>&1 || status=$?
    ! grep -q 'digest.hasTheExpectedHashes \.* *Passed' "$log" || digest=equal
    sed -n '/tests passed/,$p' "$log"
    sed -nE "s/.* ([0-9]+) tests failed out of ([0-9]+).*/\1 \2/p" "$log" |
        while read -r failed all; do
            echo "| \`$1\` | $title | $("$compiler" -dumpfullversion -dumpversion) | $((all - failed)) of $all | $digest |"
        done > "build/cross/$1.row"
    return "$status"
}

# The rows of this run, and those of the platforms that it leaves out as they were.
write_page()
{
    local platform
    {
        sed '/^| `/,$d' docs/platforms.md
        for platform in "${platforms[@]}"; do
            cat "build/cross/$platform.row" 2> /dev/null || grep -F "| \`$platform\` |" docs/platforms.md || true
        done
    } > build/cross/platforms.md
    cp build/cross/platforms.md docs/platforms.md
}

[[ $# -gt 0 ]] || set -- "${platforms[@]}"
chosen=()
needed=(cmake=cmake ninja-build=ninja libgtest-dev=/usr/src/googletest/CMakeLists.txt)
for platform in "$@"; do
    if ! describe "$platform"; then
        echo "There is no platform $platform. Known are ${platforms[*]}." >&2
        exit 1
    fi
    if [[ $platform == *-v? ]] && ! processor_runs "${platform##*-}"; then
        echo "$platform: skipped, since this processor lacks instructions of x86-64-${platform##*-}"
        continue
    fi
    chosen+=("$platform")
    needed+=("${packages[@]}")
done
if [[ ${#chosen[@]} -eq 0 ]]; then
    exit
fi
require_packages "${needed[@]}"
mkdir -p build/cross
rm -f build/cross/*.row
failed=0
for platform in "${chosen[@]}"; do
    describe "$platform"
    run_platform "$platform" || failed=1
done
write_page
exit "$failed"
