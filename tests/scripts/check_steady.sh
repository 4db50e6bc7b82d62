#!/usr/bin/env bash
# check_steady.sh PROJECT BUILD
#
# scripts/steady, tried on tests of three lines: it counts what is skipped, and is not content when a test is
# skipped only now and then, is never run, or fails.
set -euo pipefail
project=$1
work=$(mktemp -d "$2/steady-check-XXXXXX")
trap 'rm -rf "$work"' EXIT
chmod 0755 "$work"

fail() {
    echo "check_steady: $*" >&2
    [ ! -e "$work/log" ] || cat "$work/log" >&2
    exit 1
}

# tests NAME COMMAND ...: what ctest finds in a build directory that has nothing else.
tests() {
    rm -rf "$work/build"
    mkdir -p "$work/build/bin" "$work/build/lib"
    echo program >"$work/build/bin/program"
    echo library >"$work/build/lib/library.so"
    while [ $# -gt 0 ]; do
        echo "add_test($1 sh -c \"$2\")"
        echo "set_tests_properties($1 PROPERTIES SKIP_RETURN_CODE 77)"
        shift 2
    done >"$work/build/CTestTestfile.cmake"
}

# Four rounds are two for each user, where root may have some of them run by another one.
steady() {
    timeout 60 "$project/scripts/steady" --built "$work/build" 4 >"$work/log" 2>&1
}

says() {
    grep -qE "$1" "$work/log" || fail "it does not say: $1"
}

is_root=no
if [ "$(id -u)" -eq 0 ]; then
    is_root=yes
    setpriv --reuid=nobody --regid=nogroup --clear-groups test -x "$work" || {
        echo "another user cannot come to the build directory"
        exit 77
    }
fi

tests holds true process.WordSizes.Differ "exit 77"
steady || fail "it is not content"
says "^round 1 \(plain, .*\): 2 tests, 1 skipped, 0 failed"
says "^4 rounds, 8 tests, 4 skipped, 0 failures$"
steady || fail "it is not content the second time"
! grep -q "^round" "$work/log" || fail "it repeats itself"
# As a test leaves one that was killed.
mkdir "$work/build/bin/left"
steady || fail "a directory among the programs is too much for it"
! grep -q "^round" "$work/log" || fail "a directory is a program to it"

tests holds true never "exit 77"
status=0
steady || status=$?
says "^never run: never$"
[ $is_root = no ] || [ $status -eq 1 ] || fail "it is content with a test that is never run"

# The first one runs; whoever comes later finds that it has been there.
tests sometimes "if [ -e been ]; then exit 77; fi; touch been"
! steady || fail "it is content with a test that is skipped now and then"
says "^[1-3] times of [24] skipped for .*: sometimes$"

tests fails false never "exit 77"
! steady || fail "it is content with a failure"
says "^4 times failed: fails$"
says "^4 rounds, 8 tests, 4 skipped, 4 failures$"
