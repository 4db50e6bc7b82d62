#!/usr/bin/env bash
# check_headers.sh INCLUDE COMPILER [FLAG...]
#
# Each header of VQRegStore.h can be included alone, by every standard that it is for, without a warning
# of those that this project builds with; an older standard is told what is wrong.
set -euo pipefail
include=$1
shift

fail() {
    echo "check_headers: $*" >&2
    exit 1
}

compile() {
    "${@:3}" "-std=c++$1" -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -I"$include" \
        -x c++ - <<<"#include <$2>"
}

cd "$include"
headers=(VQRegStore.h VQRegStore/*.h)
[ ${#headers[@]} -gt 6 ] || fail "there are only ${#headers[@]} headers"
for header in "${headers[@]}"; do
    for standard in 17 20; do
        compile "$standard" "$header" "$@" || fail "$header does not stand alone in C++$standard"
    done
done
if compile 14 VQRegStore.h "$@" 2>/dev/null; then
    fail "C++14 takes VQRegStore.h"
fi
said=$(compile 14 VQRegStore.h "$@" 2>&1) || true
grep -qF "VQRegStore.h needs C++17" <<<"$said" || fail "C++14 is not told what VQRegStore.h needs"
