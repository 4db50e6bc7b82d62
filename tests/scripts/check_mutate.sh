#!/usr/bin/env bash
# check_mutate.sh PROJECT BUILD
#
# scripts/mutate, tried on a small project: it sees the changes that a test notices, also by hanging or only
# through the shared library, and names those that none does; it does not repeat itself, finds records and
# reasons that are not true, and gives a test that has failed once another chance.
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

# outcome OUTCOME LINE CHANGE [FILE]: what the records say.
outcome() {
    grep -qF "${4-portable/Sample.cpp}	$2	1	$3	$1	" "$results" ||
        fail "not $1: $3: $2: $(cat "$results")"
}

project=$1
mutate --list || fail "--list fails"
[ "$(wc -l <"$work/log")" -eq 7 ] || fail "not the seven places of the sample"
trap '' HUP # as nohup does
! mutate || fail "it is content with survivors"
! grep -q "^Left out" "$work/log" || fail "its tests have other signals than any program"
outcome killed "return one > other;" "> becomes >="
outcome killed "while (count < last) {" "< becomes <="
outcome killed "++count;" "change goes"
outcome killed "return one < other;" "< becomes <=" RegLib/c/Sample.cpp
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
sed -i 's/\tsurvived\tc\./\tkilled\tc./; s/\tsurvived\tunit/\tkilled\tunit/' "$results"
printf 'portable/Sample.cpp\tnot there\t1\t*\tnobody looks\n' >>"$work/records/equivalent.tsv"
! mutate || fail "it is content with a reason for nothing"

# That nobody notices a change is looked at as well, and also where it is not among the first ones.
printf 'portable/Sample.cpp\treturn number == 42;\t1\t*\tnobody looks\n' >"$work/records/equivalent.tsv"
sed -i '/return number == 42;/d' "$results"
mutate 0 || fail "it is not content with reasons that it has looked at"
outcome survived "return number == 42;" "== becomes !="
printf 'portable/Sample.cpp\treturn one > other;\t1\t*\tnobody looks\n' >>"$work/records/equivalent.tsv"
! mutate || fail "it is content with a reason that is not true"
grep -q "^a reason for what unit_portable.* notices: portable/Sample.cpp:.*: > becomes >=" "$work/log" ||
    fail "it does not tell which reason is not true"
rm "$work/records/equivalent.tsv"

# A test that fails while it is timed is left out of this run, of which each tells, and of no later one.
rm "$work/project/build/mutants/times.json"
for time in first second; do
    ! SAMPLE_IS_DISTURBED=1 mutate --again --only ": > becomes" || fail "it needs no test, the $time time"
    grep -q "^Left out, .*: unit_portable: Sample.TellsWhatIsLarger$" "$work/log" ||
        fail "it does not tell what it has left out, the $time time"
    outcome survived "return one > other;" "> becomes >="
done
! mutate --again --only ": > becomes" || fail "it has forgotten the survivors"
outcome killed "return one > other;" "> becomes >="
