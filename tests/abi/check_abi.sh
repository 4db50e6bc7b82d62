#!/usr/bin/env bash
# check_abi.sh LIBRARY LIST NM READELF
#
# Compares what the shared library exports with a list of demangled symbols, one a line, and looks
# at the properties that its users rely on.
set -euo pipefail
export LC_ALL=C

library=$1
list=$2
nm=$3
readelf=$4
failures=0

fail() {
    echo "check_abi: $*" >&2
    failures=$((failures + 1))
}

# Without addresses, kinds and versions. The name of the version is listed as an absolute symbol.
exported() {
    "$nm" -D --defined-only "$library" | grep -v ' A ' |
        sed -E 's/^[0-9a-f]* +[A-Za-z] //; s/@@?VQREGLIB_1$//' | c++filt | sort -u
}

if ! difference=$(diff <(sort -u "$list") <(exported)); then
    fail "the exported symbols differ from $list (< missing, > new):"
    echo "$difference" >&2
fi
if "$nm" -D --defined-only "$library" | grep -v ' A ' | grep -v '@@VQREGLIB_1$' >&2; then
    fail "these symbols have no version"
fi

dynamic=$("$readelf" -Wd "$library")
headers=$("$readelf" -Wl "$library")
grep -Eq '\(SONAME\).*\[libVQRegLib\.so\.1\]' <<<"$dynamic" || fail "the SONAME is not libVQRegLib.so.1"
grep -Eq '\(FLAGS\).*BIND_NOW' <<<"$dynamic" || fail "symbols are not bound at load time (-z now)"
grep -Eq '\(FLAGS_1\).*NODELETE' <<<"$dynamic" || fail "the library can be unloaded (-z nodelete)"
grep -q 'GNU_RELRO' <<<"$headers" || fail "there is no read-only relocation segment (-z relro)"
grep -Eq 'GNU_STACK.* RW +0x' <<<"$headers" || fail "the stack is executable"
! grep -q '(TEXTREL)' <<<"$dynamic" || fail "the code needs relocations"
! grep -Eq '\((RPATH|RUNPATH)\)' <<<"$dynamic" || fail "the library has a search path of its own"
imported=$("$nm" -D --undefined-only "$library")
! grep -q '__tls_get_addr' <<<"$imported" || fail "the loader is called for what threads have of their own"

exit $((failures > 0))
