#!/usr/bin/env bash
# cross.sh [PLATFORM...]: builds the library and its tests for other platforms and runs them, the ones of other
# processors in an emulator. Without arguments, for all of them. Installs on Debian what is missing for that.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

# Debian's name of each platform's tools, options of the compiler, and the emulator, where one is needed.
platforms=(i686)
declare -A tools=([i686]=i686-linux-gnu)
declare -A options=([i686]='-msse2 -mfpmath=sse')
declare -A emulators=([i686]='')

# configure PLATFORM SOURCES FOLDER [option...]: everything is found among the platform's own files, and linked
# statically, so that no program needs a root file system of its platform.
configure()
{
    local platform=$1 sources=$2 folder=$3
    shift 3
    cmake -S "$sources" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Linux \
        -DCMAKE_SYSTEM_PROCESSOR="$platform" -DCMAKE_CXX_COMPILER="${tools[$platform]}-g++" \
        -DCMAKE_CXX_FLAGS="${options[$platform]}" -DCMAKE_EXE_LINKER_FLAGS=-static \
        -DCMAKE_CROSSCOMPILING_EMULATOR="${emulators[$platform]}" \
        -DCMAKE_FIND_ROOT_PATH="/usr/${tools[$platform]};$PWD/build/cross/$platform/prefix" \
        -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY \
        -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY "$@"
}

build_googletest()
{
    local platform=$1 folder=build/cross/$1/googletest
    configure "$platform" /usr/src/googletest "$folder" -DBUILD_GMOCK=OFF \
        -DCMAKE_INSTALL_PREFIX="$PWD/build/cross/$platform/prefix" &&
        cmake --build "$folder" && cmake --install "$folder"
}

build_tests()
{
    local platform=$1 folder=build/cross/$1
    # What compares examples and scripts runs here, and is tested here.
    configure "$platform" . "$folder" -DCLASTOOL_BUILD_EXAMPLES=OFF && cmake --build "$folder"
}

run_platform()
{
    local platform=$1
    step "$platform: building GoogleTest" build_googletest "$platform"
    step "$platform: building the library and its tests" build_tests "$platform"
    step "$platform: running the tests" ctest --test-dir "build/cross/$platform" --parallel "$(nproc)" \
        --output-on-failure --label-exclude '^packaging$' --exclude-regex '^scripts\.'
}

[[ $# -gt 0 ]] || set -- "${platforms[@]}"
packages=(cmake=cmake ninja-build=ninja libgtest-dev=/usr/src/googletest/CMakeLists.txt)
for platform in "$@"; do
    if [[ -z ${tools[$platform]:-} ]]; then
        echo "There is no platform $platform. Known are ${platforms[*]}." >&2
        exit 1
    fi
    packages+=("g++-${tools[$platform]}=${tools[$platform]}-g++")
    [[ -z ${emulators[$platform]} ]] || packages+=("qemu-user-static=${emulators[$platform]}")
done
require_packages "${packages[@]}"
for platform in "$@"; do
    run_platform "$platform"
done
