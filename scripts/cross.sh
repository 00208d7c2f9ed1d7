#!/usr/bin/env bash
# cross.sh [--digest | --check] [PLATFORM...]: builds the library, its tests and the digest for other platforms,
# compilers and optimisation levels, runs them, those of other processors in an emulator, and writes docs/platforms.md.
# Each platform also loads the archive that this machine's digest stored, and this machine what the platform stored.
# Without platforms, for all of them. With --digest the digest alone is built and run, in a fraction of the time; with
# --check likewise, and docs/platforms.md stays as it is. Installs on Debian what is missing for that. Levels that the
# processor lacks are skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/support.sh

levels=(O0 O2 O3 Os v3 v4)
platforms=("${levels[@]/#/g++-}" "${levels[@]/#/clang++-}" i686 aarch64 armhf riscv64 s390x windows windows-dll wasm)

# describe PLATFORM: sets what the functions below read. False for a platform that is not known. What computes, the
# library and the digest, is built by the options `level`. Test programs are built by `options` alone: they take the
# longest to build, and levels of one compiler share them.
describe()
{
    title= system=Linux compiler= options=-O1 level=-O2 linkage=(-DCMAKE_EXE_LINKER_FLAGS=-static) emulator= packages=()
    cross=() folder= suffix= runtime=()
    case $1 in
    g++-O? | clang++-O?) compiler=${1%-*} level=-${1##*-} ;;
    g++-v? | clang++-v?) compiler=${1%-*} level="-O2;-march=x86-64-${1##*-}" ;;
    # Without SSE2 its doubles would be those of the x87, which the library refuses.
    i686) cross_compiler i686-linux-gnu "32 bits" '' && options+=' -msse2 -mfpmath=sse' ;;
    aarch64) cross_compiler aarch64-linux-gnu "64 bits" qemu-aarch64-static ;;
    armhf) cross_compiler arm-linux-gnueabihf "32 bits" qemu-arm-static ;;
    riscv64) cross_compiler riscv64-linux-gnu "64 bits" qemu-riscv64-static ;;
    s390x) cross_compiler s390x-linux-gnu "64 bits, big-endian" qemu-s390x-static ;;
    windows*)
        system=Windows
        cross_compiler x86_64-w64-mingw32 'Windows, `long` of 32 and `wchar_t` of 16 bits' /usr/lib/wine/wine64
        suffix=.exe
        packages=(g++-mingw-w64-x86-64-posix=x86_64-w64-mingw32-g++ wine64=/usr/lib/wine/wine64)
        if [[ $1 == windows-dll ]]; then
            title+=', DLL' linkage=(-DBUILD_SHARED_LIBS=ON) folder=build/cross/windows-dll
            runtime=(libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        fi
        ;;
    wasm)
        title='WebAssembly, 32 bits' compiler=em++ options='-O1 -fwasm-exceptions' emulator=node suffix=.js
        packages=(emscripten=em++ nodejs=node)
        # Files are those of the machine. Programs are loaded at once: Node.js fetches no file as a browser does.
        linkage=(-DCMAKE_EXE_LINKER_FLAGS='-sNODERAWFS -sWASM_ASYNC_COMPILATION=0 -sEXIT_RUNTIME -sALLOW_MEMORY_GROWTH')
        cross=(-DCMAKE_TOOLCHAIN_FILE=/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
        ;;
    *) return 1 ;;
    esac
    if [[ -z $title ]]; then
        title="x86-64, $compiler ${level/;/ }" linkage=() packages=("${compiler/clang++/clang}=$compiler")
    fi
    folder=${folder:-build/cross/$compiler}
    prefix=$PWD/$folder/prefix
    digest=$folder/bin/digest$suffix
}

cross_compiler()
{
    compiler=$1-g++ emulator=$3 packages=("g++-$1=$1-g++")
    title="${1%%-*}, $2"
    [[ -z $emulator ]] || packages+=("qemu-user-static=$emulator")
    cross=(-DCMAKE_SYSTEM_NAME="$system" -DCMAKE_SYSTEM_PROCESSOR="${1%%-*}" -DCMAKE_CROSSCOMPILING_EMULATOR="$emulator"
        -DCMAKE_FIND_ROOT_PATH="/usr/$1"
        -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY
        -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY)
}

# configure SOURCES FOLDER [option...]: everything is found among the platform's own files, and linked statically, so
# that no program needs a root file system of its platform. What a compiler warns of at one level only is no error.
configure()
{
    local sources=$1 folder=$2
    shift 2
    cmake --compile-no-warning-as-error -S "$sources" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=None \
        -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_C_COMPILER="$(sed 's/^em++$/emcc/; s/clang++$/clang/; s/g++$/gcc/' <<< "$compiler")" \
        -DCMAKE_CXX_FLAGS="$options" -DGTest_DIR="$prefix/lib/cmake/GTest" \
        "${linkage[@]}" "${cross[@]}" "$@"
}

build_googletest()
{
    configure /usr/src/googletest "$folder/googletest" -DBUILD_GMOCK=OFF -DBUILD_SHARED_LIBS=OFF \
        -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib &&
        cmake --build "$folder/googletest" && cmake --install "$folder/googletest"
}

# build TARGET: without the examples: what their tests compare are outputs of programs that run here.
build()
{
    configure . "$folder" -DCLASTOOL_BUILD_EXAMPLES=OFF -DCLASTOOL_LEVEL="$level" \
        -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$PWD/$folder/bin" && cmake --build "$folder" --target "$1" || return
    # What a DLL needs is looked for beside the program that loads it.
    local library
    for library in "${runtime[@]}"; do
        cp "$("$compiler" -print-file-name="$library")" "$folder/bin" || return
    done
}

# What the others' archives are compared with and exchanged with is stored by the digest of this machine.
build_reference()
{
    build_googletest && build digest && mkdir -p build/cross/reference &&
        cp "$digest" build/cross/reference/digest && build/cross/reference/digest --store build/cross/reference/archive
}

# Sets `hashes`, `bytes` and `loaded`.
run_digest()
{
    hashes=differ bytes=differ loaded=no
    step "$1: computing the hashes" $emulator "$digest" tests/digest/expected.txt && hashes=equal
    step "$1: storing an archive" $emulator "$digest" --store "$folder/archive" &&
        step "$1: comparing it" cmp "$folder/archive" build/cross/reference/archive && bytes=identical
    step "$1: loading the archive of this machine" $emulator "$digest" --load build/cross/reference/archive &&
        step "$1: loading its archive on this machine" build/cross/reference/digest --load "$folder/archive" &&
        loaded=crosswise
    [[ $hashes == equal && $bytes == identical && $loaded == crosswise ]]
}

# Sets `passed`. The tests of the scripts and of what is installed are about this machine and not about the platform.
run_suite()
{
    local log=build/cross/$1.log status=0
    passed=none
    step "$1: building the tests" build all || return
    echo "$1: running the tests"
    ctest --test-dir "$folder" --parallel "$(nproc)" --output-on-failure --label-exclude '^packaging$' \
        --exclude-regex '^(scripts|digest)\.' > "$log" 2>&1 || status=$?
    sed -n '/tests passed/,$p' "$log"
    passed=$(sed -nE 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1 \2/p' "$log" |
        { read -r failed all && echo "$((all - failed)) of $all"; })
    return "$status"
}

# run_platform PLATFORM: leaves its row of the table in build/cross. Without the tests, the row keeps what it says of
# them.
run_platform()
{
    local status=0 hashes bytes loaded passed
    passed=$(row "$1" | cut -d '|' -f 5 | sed 's/^ *//; s/ *$//')
    step "$1: building GoogleTest" build_googletest || return
    step "$1: building the library and the digest" build digest || return
    run_digest "$1" || status=1
    [[ $mode != suite ]] || run_suite "$1" || status=1
    echo "| \`$1\` | $title | $("$compiler" -dumpfullversion -dumpversion) | ${passed:-not run} |" \
        "$hashes | $bytes | $loaded |" > "build/cross/$1.row"
    return "$status"
}

row()
{
    grep -F "| \`$1\` |" docs/platforms.md || true
}

# The rows of this run, and those of the platforms that it leaves out as they were.
write_page()
{
    local platform
    {
        sed '/^| `/,$d' docs/platforms.md
        for platform in "${platforms[@]}"; do
            cat "build/cross/$platform.row" 2> /dev/null || row "$platform"
        done
    } > build/cross/platforms.md
    cp build/cross/platforms.md docs/platforms.md
}

mode=suite
case ${1:-} in
--digest | --check)
    mode=${1#--}
    shift
    ;;
esac
[[ $# -gt 0 ]] || set -- "${platforms[@]}"
chosen=()
needed=(g++=g++ cmake=cmake ninja-build=ninja libgtest-dev=/usr/src/googletest/CMakeLists.txt)
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
export WINEPREFIX=$PWD/build/cross/wine WINEDEBUG=-all
mkdir -p build/cross
rm -f build/cross/*.row
failed=0
describe g++-O0
step "Building the digest for this machine" build_reference
for platform in "${chosen[@]}"; do
    describe "$platform"
    run_platform "$platform" || failed=1
done
[[ $mode == check ]] || write_page
exit "$failed"
