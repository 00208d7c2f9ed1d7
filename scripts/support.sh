# Sourced by the scripts beside it: short output, and the tools that they need.

# step TITLE command...: runs the command and says in one line what is done and how long it took. What the command
# prints goes to a log in build/log, which is shown if it fails.
step()
{
    local title=$1 log status=0 begin=$SECONDS ticker=
    shift
    mkdir -p build/log
    log=build/log/$(tr -cs 'A-Za-z0-9\n' '-' <<< "$title").log
    printf '%s ...' "$title"
    if [[ -t 1 ]]; then
        # Ninja's count of steps, as far as it has come.
        while sleep 1 && kill -0 $$ 2> /dev/null; do
            printf '\r\033[K%s ... %s' "$title" "$(tail -n 1 "$log" 2> /dev/null | grep -o '^\[[0-9]*/[0-9]*\]')"
        done &
        ticker=$!
    fi
    "$@" > "$log" 2>&1 < /dev/null || status=$?
    if [[ -n $ticker ]]; then
        kill "$ticker" 2> /dev/null || true
        wait "$ticker" 2> /dev/null || true
        printf '\r\033[K%s ...' "$title"
    fi
    if [[ $status -ne 0 ]]; then
        printf ' failed with exit status %d:\n' "$status"
        cat "$log"
        echo "This was $PWD/$log"
        return "$status"
    fi
    printf ' done, %d s\n' $((SECONDS - begin))
}

# run_tests PRESET [option...]: runs the tests of a preset and prints ctest's summary, and before it what the failed
# tests printed.
run_tests()
{
    local preset=$1 log status=0
    shift
    mkdir -p build/log
    log=build/log/tests-$preset.log
    echo "Running the tests of $preset"
    ctest --preset "$preset" --parallel "$(nproc)" "$@" > "$log" 2>&1 < /dev/null || status=$?
    if [[ $status -ne 0 ]]; then
        grep -vE '^ *Start +[0-9]+: | Passed +[0-9.]+ sec$' "$log" || true
        echo "All output is in $PWD/$log"
        return "$status"
    fi
    sed -n '/tests passed/,$p' "$log"
}

# compiler_package: the Debian package of the compiler that the variable CXX asks for and the command that it brings;
# nothing if it is no compiler of Debian.
compiler_package()
{
    local command=${CXX:-c++}
    command=${command%% *}
    case ${command##*/} in
    c++) echo "g++=$command" ;;
    g++*) echo "${command##*/}=$command" ;;
    clang++*) echo "clang${command##*clang++}=$command" ;;
    esac
}

# require_packages package=command|path...: names of Debian packages, each with a command that it brings or a file
# that it installs. On Debian the missing ones are installed; elsewhere they are named, and the caller goes on, since
# they may be there under other names.
require_packages()
{
    local missing=() entry provides
    for entry in "$@"; do
        provides=${entry#*=}
        if [[ $provides == /* ]]; then
            compgen -G "$provides" > /dev/null || missing+=("${entry%%=*}")
        else
            command -v "$provides" > /dev/null || missing+=("${entry%%=*}")
        fi
    done
    if [[ ${#missing[@]} -gt 0 ]]; then
        install_packages "${missing[@]}"
    fi
}

# require_compiler: ends the script unless the compiler for this machine is there.
require_compiler()
{
    local compiler=${CXX:-c++}
    if ! command -v "${compiler%% *}" > /dev/null; then
        echo "The C++ compiler $compiler${CXX:+, which the variable CXX asks for,} was not found." >&2
        exit 1
    fi
}

# processor_runs v3|v4: whether the processor has all instructions of this level of x86-64, by its names in Linux.
processor_runs()
{
    local flags flag needed=(avx avx2 bmi1 bmi2 f16c fma abm movbe)
    [[ $1 == v3 ]] || needed+=(avx512f avx512bw avx512cd avx512dq avx512vl)
    flags=$(grep -m 1 '^flags' /proc/cpuinfo) || return 1
    for flag in "${needed[@]}"; do
        [[ " $flags " == *" $flag "* ]] || return 1
    done
}

install_packages()
{
    local as_root=()
    if ! command -v apt-get > /dev/null; then
        echo "Not found here: what Debian has in the packages $*. Install it if a step below fails." >&2
        return
    fi
    if [[ $(id -u) -ne 0 ]]; then
        as_root=(sudo)
        # Asks for the password, if it needs one, where it can be seen.
        if ! { command -v sudo > /dev/null && sudo -v; }; then
            {
                echo "Packages are missing, and sudo is not there to install them. As root, run"
                echo "    apt-get update && apt-get install -y --no-install-recommends $*"
            } >&2
            exit 1
        fi
    fi
    step "Reading the lists of packages" "${as_root[@]}" apt-get update
    step "Installing $*" "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "$@"
}

build_packages=($(compiler_package) cmake=cmake ninja-build=ninja libpng-dev=/usr/include/png.h)
test_packages=("${build_packages[@]}" libgtest-dev=/usr/include/gtest/gtest.h pkg-config=pkg-config
    libmpfr-dev=/usr/include/mpfr.h)
tidy_packages=("${test_packages[@]}" clang-format=clang-format clang-tidy=run-clang-tidy python3=/usr/bin/python3)
