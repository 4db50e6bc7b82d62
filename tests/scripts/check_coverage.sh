#!/usr/bin/env bash
# check_coverage.sh PROJECT BUILD
#
# scripts/coverage in a project of one line, with a ctest and a gcovr that say what they are told to: it ends
# with 1 when a line has no reason, and when a test has failed, also when only the counts are looked at again.
set -euo pipefail
work=$(mktemp -d "$2/coverage-check-XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
    echo "check_coverage: $*" >&2
    [ ! -e "$work/log" ] || cat "$work/log" >&2
    exit 1
}

# stub NAME: a command of that name, whose text is stdin.
stub() {
    cat >"$work/$1"
    chmod +x "$work/$1"
}

mkdir -p "$work/bin" "$work/scripts" "$work/tests" "$work/RegLib" "$work/build/coverage"
cp "$1/scripts/coverage" "$1/scripts/common.sh" "$work/scripts"
cp -r "$1/tests/coverage" "$1/tests/mutants" "$work/tests"
echo "# file	line before	line	reason" >"$work/tests/coverage/reasons.tsv"
echo "int one() { return 1; }" >"$work/RegLib/One.cpp"
touch "$work/build/coverage/one.gcno"
echo true | stub scripts/test
echo "echo installed" | stub bin/dpkg-query
stub bin/ctest <<'SAYS'
if [ -n "${FAILING-}" ]; then
    printf 'The following tests FAILED:\n\t  7 - unit_one.One.IsOne (Failed)\n'
    exit 8
fi
SAYS
stub bin/gcovr <<'SAYS'
while [ "$1" != --json ]; do shift; done
echo '{"files": [{"file": "RegLib/One.cpp",
    "lines": [{"line_number": 1, "count": '"${COUNT-1}"', "branches": []}]}]}' >"$2"
SAYS

coverage() {
    PATH=$work/bin:$PATH "$work/scripts/coverage" "$@" >"$work/log" 2>&1
}

coverage || fail "it is not content"
grep -q "^lines 100.0 %" "$work/log" || fail "it does not tell how much has run"
! COUNT=0 coverage || fail "it is content with a line that is not run"
grep -q "NO REASON" "$work/log" || fail "it does not tell that there is no reason"
for again in "" --again; do
    ! FAILING=yes coverage $again || fail "it is content with tests that fail: $again"
    grep -q "unit_one.One.IsOne (Failed)" "$work/log" || fail "it does not name the test: $again"
    grep -q "^lines 100.0 %" "$work/log" || fail "it gives no figures: $again"
done
coverage || fail "it remembers what has failed once"
