#!/usr/bin/env bash
# check_scripts.sh demo|bench PROJECT WORK
#
# Whoever runs one of these scripts first and then builds and installs as README.md says gets the
# library and the command. In a copy of the project, the script runs up to its build; then the
# README's configuration must install all that it promises.
set -euo pipefail

script=$1
project=$2
work=$(mktemp -d "$3/scripts-check-XXXXXX")
trap 'rm -rf "$work"' EXIT
readme=$project/README.md
copy=$work/copy

fail() {
    echo "check_scripts: $*" >&2
    exit 1
}

# Stand for cmake, which configures as ever and ends at a build, and for what installs packages.
make_tools() {
    mkdir "$work/bin"
    cat >"$work/bin/cmake" <<END
#!/bin/sh
if [ "\$1" = --build ]; then
    echo "\$@" >>"$work/builds"
    exit 1
fi
exec "$(command -v cmake)" "\$@"
END
    for name in apt-get sudo; do
        printf '#!/bin/sh\ntouch "%s"\nexit 1\n' "$work/missing" >"$work/bin/$name"
    done
    chmod +x "$work/bin"/*
}

# The line of the README's installation that begins with these words.
readme_line() {
    local line
    line=$(awk '/^## / { inside = /Build and install/ } inside' "$readme" | grep "^$1" | head -n 1) ||
        fail "README.md has no line \"$1\""
    echo "$line"
}

run_up_to_the_build() {
    if (cd "$copy" && PATH=$work/bin:$PATH "scripts/$script" >"$work/log" 2>&1); then
        fail "scripts/$script did without a build"
    fi
    [ ! -e "$work/missing" ] || exit 77 # a package that it needs is not installed here
    [ -s "$work/builds" ] || fail "scripts/$script did not come to its build: $(cat "$work/log")"
}

expect_command_in() {
    ! grep -q '^VQREGLIB_TOOLS:[A-Z]*=OFF$' "$1/CMakeCache.txt" ||
        fail "scripts/$script has switched the command off in ${1#"$copy"/}"
    grep -q '/bin/vqreg"' "$1/tools/cmake_install.cmake" ||
        fail "after scripts/$script the installation of ${1#"$copy"/} is without the command"
}

# Where the command's packages are missing, the configuration says so where warnings stand.
expect_word_of_what_is_left_out() {
    local said
    said=$(cd "$copy" && $configure -B "$work/without" -DVQREGLIB_TESTS=OFF -DVQREGLIB_BENCH=OFF \
        -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON 2>&1 >"$work/log")
    [[ $said == *vqreg*"left out"*libcli11-dev* ]] || fail "vqreg is left out without a word: $said"
}

make_tools
mkdir "$copy"
tar -C "$project" --exclude=./build --exclude=./.git -c . | tar -C "$copy" -x
configure=$(readme_line "cmake --preset")
folder=$(readme_line "cmake --install" | cut -d " " -f 3)
run_up_to_the_build
(cd "$copy" && $configure >"$work/log" 2>&1) || fail "$configure: $(cat "$work/log")"
expect_command_in "$copy/$folder"
expect_word_of_what_is_left_out
