# Sourced by the scripts beside it: sees to the tools that they need.

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
    if [[ ${#missing[@]} -eq 0 ]]; then
        return
    fi
    if ! command -v apt-get > /dev/null; then
        echo "Not found here: what Debian has in the packages ${missing[*]}. Install it if a step below fails." >&2
        return
    fi
    local as_root=()
    if [[ $(id -u) -ne 0 ]]; then
        as_root=(sudo)
        if ! command -v sudo > /dev/null; then
            echo "Missing packages: ${missing[*]}. Install them as root, there is no sudo here." >&2
            exit 1
        fi
    fi
    echo "Installing the packages ${missing[*]}"
    "${as_root[@]}" apt-get update -qq < /dev/null
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" < /dev/null
}

build_packages=("g++=${CXX:-c++}" cmake=cmake ninja-build=ninja libpng-dev=/usr/include/png.h)
test_packages=("${build_packages[@]}" libgtest-dev=/usr/include/gtest/gtest.h pkg-config=pkg-config)
