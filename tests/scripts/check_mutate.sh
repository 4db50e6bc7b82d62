#!/usr/bin/env bash
# check_mutate.sh PROJECT BUILD
#
# scripts/mutate, tried on a small project: it sees the changes that a test notices, also by hanging, and
# names those that none does; it does not repeat itself, and finds records that are not true.
set -euo pipefail
work=$(mktemp -d "$2/mutate-check-XXXXXX")
trap 'rm -rf "$work"' EXIT
cp -r "$1/tests/mutants/sample" "$work/project"
mkdir "$work/records"
results=$work/records/results.tsv

fail() {
    echo "check_mutate: $*" >&2
    [ ! -e "$work/log" ] || cat "$work/log" >&2
    exit 1
}

mutate() {
    python3 -B "$project/tests/mutants" --project "$work/project" --records "$work/records" --patience 2 \
        "$@" >"$work/log" 2>&1
}

# outcome OUTCOME LINE CHANGE: what the records say.
outcome() {
    grep -qF "portable/Sample.cpp	$2	1	$3	$1	" "$results" || fail "not $1: $3: $2: $(cat "$results")"
}

project=$1
mutate --list || fail "--list fails"
[ "$(wc -l <"$work/log")" -eq 6 ] || fail "not the six places of the sample"
! mutate || fail "it is content with survivors"
outcome killed "return one > other;" "> becomes >="
outcome killed "while (count < last) {" "< becomes <="
outcome killed "++count;" "change goes"
grep -q "by unit_portable.* (hangs): portable/Sample.cpp:12: change goes: ++count;" "$work/log" ||
    fail "what hangs is not told"
! pgrep -f "$work/project" >/dev/null || fail "what hangs is still there"
outcome survived "return number == 42;" "== becomes !="
grep -q "^survivor: portable/Sample.cpp:19: == becomes !=: return number == 42;" "$work/log" ||
    fail "the survivor is not named"
cmp -s "$project/tests/mutants/sample/portable/Sample.cpp" "$work/project/portable/Sample.cpp" ||
    fail "the sources are not as they were"
cmp -s "$work/project/portable/Sample.cpp" "$work/project/build/mutants/source/portable/Sample.cpp" ||
    fail "the copy is not as it was"

# Lines may move, and what is known stays known.
sed -i '1i // One more line.' "$work/project/portable/Sample.cpp"
! mutate || fail "it is content with survivors the second time"
! grep -q "^1/" "$work/log" || fail "it repeats itself"

printf 'portable/Sample.cpp\treturn number == 42;\t1\t*\tnobody looks\n' >"$work/records/equivalent.tsv"
mutate || fail "it is not content with reasons"
grep -q " 0 survived, 2 equivalent" "$work/log" || fail "it counts otherwise"
mutate --recheck 2 --only ": > becomes|: < becomes" || fail "the records were not true"
sed -i 's/\tkilled\t/\tsurvived\t/' "$results"
! mutate --recheck 2 --only ": > becomes|: < becomes" || fail "it does not see that the records are not true"
grep -q "DIFFERENT, was survived" "$work/log" || fail "it does not tell what is different"
printf 'portable/Sample.cpp\tnot there\t1\t*\tnobody looks\n' >>"$work/records/equivalent.tsv"
! mutate || fail "it is content with a reason for nothing"
