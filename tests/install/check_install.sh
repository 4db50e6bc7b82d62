#!/usr/bin/env bash
# check_install.sh cmake|pkg-config BUILD CONSUMER PRIVATE_ROOT COMPILER [FLAG...]
#
# Installs the build BUILD into a new directory and builds and runs the program in the directory
# CONSUMER against what is there, found in one of the two ways, for each standard of C++.
set -euo pipefail

way=$1
build=$2
consumer=$3
private_root=$4
compiler=$5
shift 5
flags=("$@")

work=$(mktemp -d "$build/install-check-XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
standards=(11 14 17 20)
standards_of_store=(17 20)
cplusplus=(201103 201402 201703 202002)

quietly() {
    if ! "$@" >"$work/log" 2>&1; then
        cat "$work/log" >&2
        echo "check_install: failed: $*" >&2
        exit 1
    fi
}

# The compiler of C that belongs to the one of C++.
c_compiler() {
    case $(basename "$compiler") in
        *clang*) echo clang ;;
        *) echo gcc ;;
    esac
}

build_with_cmake() {
    quietly cmake -S "$consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="${flags[*]}" -DCMAKE_C_FLAGS="${flags[*]}"
    quietly cmake --build "$work/build"
    cp "$work/build"/consumer?? "$work/build"/consumer_store?? "$work"
}

build_with_pkg_config() {
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name VQRegLib.pc)")
    export PKG_CONFIG_PATH
    local options
    read -ra options <<<"$(pkg-config --cflags --libs VQRegLib)"
    for standard in "${standards[@]}"; do
        quietly "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror "${flags[@]}" \
            "$consumer/consumer.cpp" -o "$work/consumer$standard" "${options[@]}"
    done
    for standard in "${standards_of_store[@]}"; do
        quietly "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror "${flags[@]}" \
            "$consumer/consumer_store.cpp" -o "$work/consumer_store$standard" "${options[@]}"
    done
    quietly "$(c_compiler)" -std=c99 -Wall -Wextra -Wpedantic -Werror "${flags[@]}" \
        "$consumer/consumer.c" -o "$work/consumer_c" "${options[@]}"
}

expect_version() {
    local version
    version=$(pkg-config --modversion VQRegLib)
    [[ $version =~ ^1\.[0-9]+\.[0-9]+$ ]] || {
        echo "check_install: pkg-config says version \"$version\"" >&2
        exit 1
    }
}

# What is not for the compiler: pages and documents, and the command with what shells look for.
expect_files() {
    local files=(man/man3/VQRegLib.3.gz man/man5/velquist.cfg.5.gz doc/VQRegLib/user-guide.md
        doc/VQRegLib/examples/count.cpp doc/VQRegLib/examples/ports.c)
    if [ -e "$build/bin/vqreg" ]; then
        files+=(../bin/vqreg man/man1/vqreg.1.gz bash-completion/completions/vqreg
            zsh/site-functions/_vqreg fish/vendor_completions.d/vqreg.fish
            doc/VQRegLib/examples/systemd/appd.service)
    fi
    for file in "${files[@]}"; do
        [ -e "$prefix/share/$file" ] || {
            echo "check_install: share/$file is not installed" >&2
            exit 1
        }
    done
}

# The command of a release is small: its symbols stay in the build.
expect_small_command() {
    [ -e "$prefix/bin/vqreg" ] || return 0
    case $(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$build/CMakeCache.txt") in
        Release | RelWithDebInfo | MinSizeRel) ;;
        *) return 0 ;;
    esac
    local size
    size=$(stat -c %s "$prefix/bin/vqreg")
    if readelf --section-headers --wide "$prefix/bin/vqreg" | grep -qE ' \.(symtab|debug_info) '; then
        echo "check_install: bin/vqreg is not stripped" >&2
        exit 1
    fi
    # A sanitizer makes it several times as large.
    if [ ${#flags[@]} -eq 0 ] && [ "$size" -ge 1000000 ]; then
        echo "check_install: bin/vqreg has $size bytes" >&2
        exit 1
    fi
}

quietly cmake --install "$build" --prefix "$prefix"
expect_files
expect_small_command
case $way in
    cmake) build_with_cmake ;;
    pkg-config)
        build_with_pkg_config
        expect_version
        ;;
    *)
        echo "check_install: unknown way $way" >&2
        exit 2
        ;;
esac

LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name 'libVQRegLib.so.1')")
export LD_LIBRARY_PATH
for i in "${!standards[@]}"; do
    printed=$("$private_root" "$work/consumer${standards[i]}" "/tmp/store$i.cfg" | tail -n 1) || {
        status=$?
        echo "check_install: the program of C++${standards[i]} ended with $status" >&2
        exit "$status"
    }
    if [ "$printed" != "${cplusplus[i]}" ]; then
        echo "check_install: C++${standards[i]} printed \"$printed\"" >&2
        exit 1
    fi
done
for standard in "${standards_of_store[@]}"; do
    "$private_root" "$work/consumer_store$standard" /tmp/store-of-cxx.cfg || {
        echo "check_install: the program with VQRegStore.h in C++$standard ended with $?" >&2
        exit 1
    }
done
"$private_root" "$work/consumer_c" /tmp/store-of-c.cfg || {
    echo "check_install: the program in C ended with $?" >&2
    exit 1
}
